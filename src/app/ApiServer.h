#pragma once
// The daemon's HTTP side: the JSON API, the event stream, the login link,
// streamed answers (a relay's audio for the page) and the web page's embedded
// files (WebAssets), on cpp-httplib. It guards every call before routing: the Host
// must name this daemon (no DNS rebinding), an Origin must be the daemon's own
// (no cross-site requests), /api calls must carry the token (header or
// cookie), and bodies of changing calls must be JSON. Handlers run on the main
// loop, one at a time, so that they see and change the application's state as
// the main thread does (a deferred handler answers later, from the main loop,
// while its worker waits); the event stream and the login are answered on the
// worker threads.
//
// Thread contract: route, routeStream and start before serving, stop and the
// destructor on the main thread. Workers block in MainLoop::invoke through a
// guard that stop() cancels first, so stopping never waits for itself.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "app/ApiRequest.h"
#include "platform/MainLoop.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace quillon {

class EventHub;
class LoginLinks;

class ApiServer {
public:
    using Handler = std::function<ApiReply(const ApiRequest&)>;
    // A handler whose answer comes later (after a fetch): it keeps `respond`
    // and calls it once, on the main loop. Throwing an ApiError answers at once.
    using Respond = std::function<void(ApiReply)>;
    using DeferredHandler = std::function<void(const ApiRequest&, Respond)>;

    // A streamed answer: `next` is called on the worker again and again, hands
    // each part to `write` and returns false at the end (or when `write` does).
    // It must return within about a second, so that stop() is not held up.
    using Write = std::function<bool(const char* data, std::size_t size)>;
    struct Stream {
        std::string contentType;
        std::function<bool(const Write& write)> next;
    };
    // Runs `work` on the main loop and waits for it; false when the server stops.
    using OnMain = std::function<bool(const std::function<void()>& work)>;
    // Opens a stream on a worker (it may block, within bounds, and calls
    // `onMain` for the application's state); throwing an ApiError refuses it.
    using StreamHandler = std::function<Stream(const ApiRequest&, const OnMain& onMain)>;

    struct Options {
        std::string host = "127.0.0.1";
        std::uint16_t port = 8642;
        std::string token;
        // Listening on every interface: any Host is accepted (the token
        // still guards every call).
        bool anyHost = false;
    };

    static constexpr std::size_t kMaxBodyBytes = 1 << 20;
    // A deferred answer that has not come by then is a 504.
    static constexpr int kDeferredSeconds = 180;
    static constexpr const char* kTokenHeader = "X-Quillon-Token";
    static constexpr const char* kTokenCookie = "quillon_token";
    // Streamed answers open at once: each holds a worker while it lasts.
    static constexpr int kMaxStreams = 8;

    ApiServer(Options options, EventHub& events, LoginLinks& logins);
    ~ApiServer();
    ApiServer(const ApiServer&) = delete;
    ApiServer& operator=(const ApiServer&) = delete;

    // `pattern` is a regular expression over the path; its groups become the
    // request's params. The handler runs on the main loop.
    void route(const std::string& method, const std::string& pattern, Handler handler);
    void routeDeferred(const std::string& method, const std::string& pattern, DeferredHandler handler);
    // A GET answered with a stream (at most kMaxStreams at once, else 503).
    void routeStream(const std::string& pattern, StreamHandler handler);

    // Binds and starts serving; false with the reason when the port is taken.
    bool start(std::string& failure);
    // Ends the event streams, refuses further calls and joins the server.
    void stop();
    std::uint16_t port() const { return boundPort_; }

private:
    // Nothing when the call may go on; else the refusal was written.
    bool refused(const httplib::Request& req, httplib::Response& res) const;
    bool hostAllowed(const std::string& host) const;
    void dispatch(const DeferredHandler& handler, const httplib::Request& req, httplib::Response& res);
    void serveEvents(httplib::Response& res);
    void serveLogin(const httplib::Request& req, httplib::Response& res);
    void serveFile(const httplib::Request& req, httplib::Response& res);
    void serveStream(const StreamHandler& handler, const httplib::Request& req, httplib::Response& res);
    ApiRequest requestOf(const httplib::Request& req, nlohmann::json body) const;

    Options options_;
    EventHub& events_;
    LoginLinks& logins_;
    std::unique_ptr<httplib::Server> server_;
    std::atomic<int> streams_{0};
    std::shared_ptr<std::atomic<bool>> stopping_ = std::make_shared<std::atomic<bool>>(false);
    InvokeGuard guard_;
    struct Replies;
    std::shared_ptr<Replies> replies_;  // shared with the respond callbacks
    std::thread thread_;
    std::atomic<bool> listenEnded_{false};
    std::uint16_t boundPort_ = 0;
    int listenFd_ = -1;  // owned by the httplib server
};

}  // namespace quillon
