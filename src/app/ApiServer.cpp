#include "app/ApiServer.h"

#include <sys/socket.h>

#include <httplib.h>

#include <condition_variable>
#include <mutex>
#include <optional>

#include "app/ApiToken.h"
#include "app/EventHub.h"
#include "app/LoginLinks.h"
#include "app/WebAssets.h"
#include "platform/Log.h"

namespace quillon {

namespace {

void reply(httplib::Response& res, int status, const nlohmann::json& body) {
    res.status = status;
    res.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), "application/json");
}

std::string cookieValue(const std::string& cookies, const std::string& name) {
    std::size_t pos = 0;
    while (pos < cookies.size()) {
        std::size_t end = cookies.find(';', pos);
        if (end == std::string::npos) end = cookies.size();
        std::string part = cookies.substr(pos, end - pos);
        std::size_t start = part.find_first_not_of(' ');
        if (start != std::string::npos) part.erase(0, start);
        if (part.size() > name.size() && part.compare(0, name.size(), name) == 0 && part[name.size()] == '=')
            return part.substr(name.size() + 1);
        pos = end + 1;
    }
    return {};
}

// One deferred answer.
struct Pending {
    std::optional<ApiReply> reply;  // guarded by ApiServer::Replies::mutex
};

bool changes(const std::string& method) { return method == "POST" || method == "PUT" || method == "DELETE"; }

}  // namespace

// Where the workers wait for their answers; stop() wakes them all.
struct ApiServer::Replies {
    std::mutex mutex;
    std::condition_variable arrived;
    bool stopping = false;  // guarded by mutex
};

ApiServer::ApiServer(Options options, EventHub& events, LoginLinks& logins)
    : options_(std::move(options)),
      events_(events),
      logins_(logins),
      server_(std::make_unique<httplib::Server>()),
      replies_(std::make_shared<Replies>()) {
    // Every event stream and every streamed answer holds a worker for as long as it is open.
    server_->new_task_queue = [] {
        return new httplib::ThreadPool(EventHub::kMaxSubscribers + kMaxStreams + 16);
    };
    // SO_REUSEADDR only: httplib's default SO_REUSEPORT would let a second
    // daemon listen on the same port.
    server_->set_socket_options([this](int fd) {
        int yes = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        listenFd_ = fd;
    });
    server_->set_payload_max_length(kMaxBodyBytes);
    server_->set_read_timeout(10, 0);
    server_->set_keep_alive_timeout(5);
    server_->set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        return refused(req, res) ? httplib::Server::HandlerResponse::Handled
                                 : httplib::Server::HandlerResponse::Unhandled;
    });
    server_->set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty()) return;
        std::string reason = res.status == 404 ? "no such path: " + req.method + " " + req.path
                                               : "refused (HTTP " + std::to_string(res.status) + ")";
        reply(res, res.status, errorBody(reason));
    });
    server_->set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
        reply(res, 500, errorBody("internal error"));
    });
    auto file = [this](const httplib::Request& req, httplib::Response& res) { serveFile(req, res); };
    server_->Get("/", file);
    server_->Get("/index.html", file);
    server_->Get(R"(/assets/[A-Za-z0-9._-]+)", file);
    server_->Get("/login",
                 [this](const httplib::Request& req, httplib::Response& res) { serveLogin(req, res); });
    server_->Get("/api/events",
                 [this](const httplib::Request&, httplib::Response& res) { serveEvents(res); });
}

ApiServer::~ApiServer() { stop(); }

void ApiServer::route(const std::string& method, const std::string& pattern, Handler handler) {
    routeDeferred(method, pattern, [handler = std::move(handler)](const ApiRequest& req, Respond respond) {
        respond(handler(req));
    });
}

void ApiServer::routeStream(const std::string& pattern, StreamHandler handler) {
    server_->Get(pattern,
                 [this, handler = std::move(handler)](const httplib::Request& req, httplib::Response& res) {
                     serveStream(handler, req, res);
                 });
}

void ApiServer::routeDeferred(const std::string& method, const std::string& pattern,
                              DeferredHandler handler) {
    auto h = [this, handler = std::move(handler)](const httplib::Request& req, httplib::Response& res) {
        dispatch(handler, req, res);
    };
    if (method == "GET")
        server_->Get(pattern, h);
    else if (method == "POST")
        server_->Post(pattern, h);
    else if (method == "PUT")
        server_->Put(pattern, h);
    else if (method == "DELETE")
        server_->Delete(pattern, h);
}

bool ApiServer::start(std::string& failure) {
    if (!server_->bind_to_port(options_.host, options_.port)) {
        failure = "cannot listen on " + options_.host + ":" + std::to_string(options_.port) +
                  " (is another daemon running, or is the port taken?)";
        return false;
    }
    boundPort_ = options_.port;
    // httplib listens with a backlog of 5: a burst of clients (a page and its
    // event stream, many status watchers) would wait for SYN retries.
    if (listenFd_ >= 0) ::listen(listenFd_, SOMAXCONN);
    thread_ = std::thread([this] {
        server_->listen_after_bind();
        listenEnded_ = true;
    });
    // httplib gives no ready signal, and a stop() that comes before its loop
    // runs is lost (the loop would then run on, and stop() wait for it).
    while (!server_->is_running() && !listenEnded_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

void ApiServer::stop() {
    *stopping_ = true;  // streamed answers end at their next part
    guard_.cancel();
    {
        std::lock_guard lock(replies_->mutex);
        replies_->stopping = true;
    }
    replies_->arrived.notify_all();
    events_.close();
    if (thread_.joinable()) {
        server_->stop();
        thread_.join();
    }
}

bool ApiServer::hostAllowed(const std::string& host) const {
    if (options_.anyHost) return true;
    const std::string port = ":" + std::to_string(boundPort_);
    return host == "127.0.0.1" + port || host == "localhost" + port || host == "[::1]" + port;
}

bool ApiServer::refused(const httplib::Request& req, httplib::Response& res) const {
    const std::string host = req.get_header_value("Host");
    if (!hostAllowed(host)) {
        reply(res, 403,
              errorBody("refused: this daemon answers only to 127.0.0.1:" + std::to_string(boundPort_)));
        return true;
    }
    if (req.has_header("Origin") && req.get_header_value("Origin") != "http://" + host) {
        reply(res, 403, errorBody("refused: calls from other web sites are not allowed"));
        return true;
    }
    if (req.path.rfind("/api/", 0) != 0) return false;
    std::string given = req.get_header_value(kTokenHeader);
    if (given.empty()) given = cookieValue(req.get_header_value("Cookie"), kTokenCookie);
    if (!ApiToken::matches(given, options_.token)) {
        reply(res, 401, errorBody("refused: a valid token is needed (see quillon ui)"));
        return true;
    }
    // The body is not read yet: its announced length tells whether there is one.
    const bool hasBody =
        req.get_header_value<std::uint64_t>("Content-Length") > 0 || req.has_header("Transfer-Encoding");
    if (changes(req.method) && hasBody &&
        req.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
        reply(res, 415, errorBody("refused: the body must be JSON (Content-Type: application/json)"));
        return true;
    }
    return false;
}

ApiRequest ApiServer::requestOf(const httplib::Request& req, nlohmann::json body) const {
    std::vector<std::string> params;
    for (std::size_t i = 1; i < req.matches.size(); ++i) params.push_back(req.matches[i].str());
    std::map<std::string, std::string> query(req.params.begin(), req.params.end());
    return ApiRequest(req.method, std::move(params), std::move(query), std::move(body));
}

void ApiServer::dispatch(const DeferredHandler& handler, const httplib::Request& req,
                         httplib::Response& res) {
    nlohmann::json body;
    if (!req.body.empty()) {
        body = nlohmann::json::parse(req.body, nullptr, false);
        if (body.is_discarded()) return reply(res, 400, errorBody("bad JSON in the body"));
        if (!body.is_object()) return reply(res, 400, errorBody("the body must be a JSON object"));
    }
    ApiRequest request = requestOf(req, std::move(body));

    auto pending = std::make_shared<Pending>();
    Respond respond = [replies = replies_, pending](ApiReply answer) {
        {
            std::lock_guard lock(replies->mutex);
            if (pending->reply) return;  // answered once only
            pending->reply = std::move(answer);
        }
        replies->arrived.notify_all();
    };
    bool ran = MainLoop::main().invoke(
        [&] {
            try {
                handler(request, respond);
            } catch (const ApiError& e) {
                respond({e.status(), errorBody(e.what())});
            } catch (const nlohmann::json::exception& e) {
                respond({400, errorBody(std::string("bad value: ") + e.what())});
            } catch (const std::exception& e) {
                Log::warn("API call {} {} failed: {}", req.method, req.path, e.what());
                respond({500, errorBody(e.what())});
            }
        },
        guard_);
    ApiReply answer{503, errorBody("the daemon is stopping")};
    if (ran) {
        std::unique_lock lock(replies_->mutex);
        replies_->arrived.wait_for(lock, std::chrono::seconds(kDeferredSeconds),
                                   [&] { return pending->reply || replies_->stopping; });
        if (pending->reply)
            answer = std::move(*pending->reply);
        else if (!replies_->stopping)
            answer = {504, errorBody("no answer in time")};
    }
    reply(res, answer.status, answer.body);
}

void ApiServer::serveEvents(httplib::Response& res) {
    std::shared_ptr<EventHub::Subscription> subscription = events_.subscribe();
    if (!subscription) return reply(res, 503, errorBody("too many event streams are open"));
    res.set_header("Cache-Control", "no-store");
    res.set_chunked_content_provider(
        "text/event-stream", [subscription, first = true](std::size_t, httplib::DataSink& sink) mutable {
            if (first) {
                first = false;
                static const std::string hello = "data: {\"type\":\"hello\"}\n\n";
                return sink.write(hello.data(), hello.size());
            }
            auto event = subscription->next(std::chrono::seconds(5));
            if (!event) {
                if (subscription->closed()) {
                    sink.done();
                    return true;
                }
                // A comment line: finds a client that went away.
                static const std::string ping = ":\n\n";
                return sink.is_writable() && sink.write(ping.data(), ping.size());
            }
            std::string chunk = "data: " + *event + "\n\n";
            return sink.write(chunk.data(), chunk.size());
        });
}

void ApiServer::serveLogin(const httplib::Request& req, httplib::Response& res) {
    if (!logins_.redeem(req.get_param_value("code"))) {
        res.status = 403;
        res.set_content("This login link has expired or was used already. Run 'quillon ui' for a new one.\n",
                        "text/plain; charset=utf-8");
        return;
    }
    res.set_header("Set-Cookie",
                   std::string(kTokenCookie) + "=" + options_.token + "; Path=/; HttpOnly; SameSite=Strict");
    res.set_redirect("/", 303);
}

}  // namespace quillon

namespace quillon {

void ApiServer::serveFile(const httplib::Request& req, httplib::Response& res) {
    auto file = WebAssets::find(req.path);
    if (!file) return reply(res, 404, errorBody("no such page: " + req.path));
    if (file->contentType.starts_with("text/html"))
        res.set_header("Content-Security-Policy",
                       "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
                       "form-action 'self'");
    res.set_header("X-Content-Type-Options", "nosniff");
    res.set_header("Cache-Control", file->cacheControl);
    res.set_content(file->body.data(), file->body.size(), file->contentType);
}

void ApiServer::serveStream(const StreamHandler& handler, const httplib::Request& req,
                            httplib::Response& res) {
    // Counted from here to the release below, so that a refused or failed
    // opening gives its place back at once.
    if (streams_.fetch_add(1) >= kMaxStreams) {
        streams_.fetch_sub(1);
        return reply(res, 503, errorBody("too many streams are open; close a player first"));
    }
    OnMain onMain = [this](const std::function<void()>& work) {
        return MainLoop::main().invoke(work, guard_);
    };
    Stream stream;
    try {
        stream = handler(requestOf(req, nlohmann::json::object()), onMain);
    } catch (const ApiError& e) {
        streams_.fetch_sub(1);
        return reply(res, e.status(), errorBody(e.what()));
    } catch (const std::exception& e) {
        streams_.fetch_sub(1);
        Log::warn("API stream {} failed: {}", req.path, e.what());
        return reply(res, 500, errorBody(e.what()));
    }
    // A live stream has no byte ranges: an audio element's "Range: bytes=0-"
    // gets the whole stream from now, not a 206 without a Content-Range.
    res.status = 200;
    res.set_header("Cache-Control", "no-store");
    res.set_header("X-Content-Type-Options", "nosniff");
    res.set_chunked_content_provider(
        stream.contentType,
        [next = std::move(stream.next), stopping = stopping_](std::size_t, httplib::DataSink& sink) {
            if (*stopping) return false;
            Write write = [&sink](const char* data, std::size_t size) { return sink.write(data, size); };
            if (!next(write)) sink.done();
            return true;
        },
        [this](bool) { streams_.fetch_sub(1); });
}

}  // namespace quillon
