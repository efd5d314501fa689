#pragma once
// Downloads one URL (HTTP, HTTPS, file) in the background with libcurl, on a
// thread of its own, handing the bytes over as they arrive. A response that is
// not HTTP (a stream server's "ICY 200 OK" status line) is passed on whole,
// status line and header included, as the body.
//
// Thread contract: start(), cancel() and the destructor may be called from any
// thread except the fetch thread itself (the destructor cancels and joins).
// The callbacks run on the fetch thread; exactly one of onFinished / onFailed
// runs at the end, unless the fetch was cancelled (then neither runs). Returning
// false from onData cancels. `timeout` bounds the connection and every silence
// of the transfer, not the whole download.
#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <thread>

namespace quillon {

class UrlFetcher {
public:
    struct Callbacks {
        std::function<bool(std::span<const std::uint8_t> chunk)> onData;
        std::function<void()> onFinished;
        std::function<void(const std::string& reason)> onFailed;
        // Each line of an HTTP response header (status line first, line end
        // included); optional. Not called for a reply that is not HTTP.
        std::function<void(std::string_view line)> onHeader;
    };

    UrlFetcher(std::string url, double timeout, Callbacks callbacks);
    ~UrlFetcher();
    UrlFetcher(const UrlFetcher&) = delete;
    UrlFetcher& operator=(const UrlFetcher&) = delete;

    // Starts the fetch thread (once).
    void start();
    // Stops the transfer soon; no completion callback runs afterwards.
    void cancel();
    bool cancelled() const { return cancelled_; }
    // Whether the fetch thread has ended (finished, failed or cancelled).
    bool done() const { return done_; }

    // A "User-Agent" header to send; set before start().
    void setUserAgent(std::string agent) { userAgent_ = std::move(agent); }

private:
    void run();

    std::string url_;
    double timeout_;
    Callbacks callbacks_;
    std::string userAgent_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> done_{false};
    std::thread thread_;
};

}  // namespace quillon
