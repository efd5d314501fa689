#pragma once
// One call to the daemon's API as its handler sees it, with strict access to
// the JSON body: a field the call does not know, a value of the wrong type or
// out of range ends the call with 400 and a one-line reason (an ApiError)
// before the handler has changed anything. Handlers validate everything first
// and change state after, so a call applies whole or not at all.
//
// Thread contract: a plain value; built on an HTTP worker, read on the main loop.
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/OperationResult.h"

namespace quillon {

class ApiError : public std::runtime_error {
public:
    ApiError(int status, const std::string& reason) : std::runtime_error(reason), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

struct ApiReply {
    int status = 200;
    nlohmann::json body = nlohmann::json::object();
};

class ApiRequest {
public:
    ApiRequest() = default;
    ApiRequest(std::string method, std::vector<std::string> params, std::map<std::string, std::string> query,
               nlohmann::json body);

    const std::string& method() const { return method_; }
    // The path's captured parts, in order.
    const std::string& param(std::size_t index) const;
    // A path part that must be a whole number (an identifier); 404 otherwise.
    std::uint64_t idParam(std::size_t index) const;
    std::optional<std::string> query(const std::string& name) const;
    // The body object (empty when the call had none).
    const nlohmann::json& body() const { return body_; }
    bool has(const char* field) const { return body_.contains(field); }

    // 400 for any body field not in the list.
    void allowOnly(std::initializer_list<const char*> fields) const;
    std::optional<bool> optionalBool(const char* field) const;
    std::optional<std::string> optionalString(const char* field) const;
    std::string requiredString(const char* field) const;
    std::optional<std::int64_t> optionalInt(const char* field, std::int64_t min, std::int64_t max) const;
    std::optional<std::vector<std::string>> optionalStrings(const char* field) const;

private:
    const nlohmann::json* field(const char* name) const;

    std::string method_;
    std::vector<std::string> params_;
    std::map<std::string, std::string> query_;
    nlohmann::json body_ = nlohmann::json::object();
};

// The error body every failing call answers with.
nlohmann::json errorBody(const std::string& reason);

// A shared operation's outcome as an answer: its value with `doneStatus`, or
// the ApiError its failure maps to (400, 404, 409, 500).
ApiReply replyFor(const OperationResult& result, int doneStatus = 200);

}  // namespace quillon
