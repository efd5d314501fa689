#pragma once
// The command line's way to the running `quillon serve` of the same home folder:
// find() reads the daemon's token (home + "Library/Preferences/quillon.token")
// and the preference "webPort" (default 8642), then asks GET /api/status on
// 127.0.0.1 whether the daemon is there; request() makes one call of the JSON
// API with the token header.
//
// No token file, or nothing listening on the port, means no daemon runs: the
// commands then work on the files themselves. Anything else that stands in the
// way (a token that cannot be read while something answers, an answer that
// refuses the token) is a problem to report, never a reason to write the files
// behind a running daemon's back.
//
// Thread contract: an instance is used by one thread at a time. Each call opens
// a connection of its own and shares nothing with other calls, so separate
// instances may run on separate threads. Calls block for at most their
// time-outs; none touches the main loop.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace quillon {

struct DaemonLookup;

class DaemonClient {
public:
    static constexpr const char* kTokenRelativePath = "Library/Preferences/quillon.token";
    static constexpr int kDefaultPort = 8642;
    // An answer larger than this is cut off and reported; none is near it.
    static constexpr std::size_t kMaxAnswerBytes = 16u << 20;

    struct Reply {
        int status = 0;       // the HTTP status; 0 when no answer came
        nlohmann::json body;  // the answer's JSON; null when there is none
        std::string error;    // one line when the call failed (no answer, or the answer's "error")
        bool ok() const { return error.empty(); }
    };

    // No client and no problem: no daemon runs for this home folder.
    static DaemonLookup find();

    DaemonClient(std::string token, int port);

    // One call, e.g. request("POST", "/api/activity", {{"url", u}}). A null body
    // sends none. A transport failure, an answer that is not JSON and an answer
    // with a status of 400 or more each give `error`.
    Reply request(std::string_view method, const std::string& path,
                  const nlohmann::json& body = nullptr) const;

    // Reads a text/event-stream (GET), handing each event's data to `onData`
    // until it returns false, the daemon ends the stream or no byte comes for
    // `idleSeconds`. The reply carries the status and, on failure, the error.
    Reply stream(const std::string& path, const std::function<bool(const std::string&)>& onData,
                 int idleSeconds) const;

    int port() const { return port_; }
    // "http://127.0.0.1:PORT"
    std::string origin() const;

private:
    std::string token_;
    int port_;
};

struct DaemonLookup {
    std::optional<DaemonClient> client;  // set when the daemon answered
    std::string problem;                 // one line when something is in the way
};

}  // namespace quillon
