#pragma once
// The outcome of a change that the command line and the daemon's routes share
// (a schedule rule, history items, a bookmark): done with a JSON value, or why not. The
// command line turns it into an exit status, a route into an HTTP status.
//
// Thread contract: a plain value.
#include <string>

#include <nlohmann/json.hpp>

namespace quillon {

struct OperationResult {
    enum class Status { Done, Failed, BadInput, NotFound, Conflict };
    Status status = Status::Done;
    std::string error;     // one line, when not done
    nlohmann::json value;  // what was changed or listed, when done

    static OperationResult done(nlohmann::json value) { return {Status::Done, {}, std::move(value)}; }
    static OperationResult failure(Status status, std::string error) {
        return {status, std::move(error), nullptr};
    }
    bool ok() const { return status == Status::Done; }
};

}  // namespace quillon
