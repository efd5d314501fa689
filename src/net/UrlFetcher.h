#pragma once
// Downloads one URL (HTTP, HTTPS, file) in the background with libcurl, on a
// thread of its own, handing the bytes over as they arrive. A stream server's
// "ICY 200 OK" status line counts as HTTP 200: its header goes to onHeader and
// only what follows it is the body. Any other reply that is not HTTP is passed
// on whole, status line and header included, as the body.
//
// Thread contract: start(), cancel() and the destructor may be called from any
// thread except the fetch thread itself (the destructor cancels and joins).
// The callbacks run on the fetch thread; exactly one of onFinished / onFailed
// runs at the end, unless the fetch was cancelled (then neither runs). Returning
// false from onData cancels. `timeout` bounds the connection and every silence
// of the transfer, not the whole download. The setters are for before start().
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

    // The body, or the status line and header that count as it, may be this
    // long at most; a longer one fails the fetch.
    static constexpr std::uint64_t kUnbounded = 0;

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

    // A "User-Agent" header to send.
    void setUserAgent(std::string agent) { userAgent_ = std::move(agent); }
    // Fails the fetch once more than `bytes` of body arrive (kUnbounded: never).
    void setMaxBytes(std::uint64_t bytes) { maxBytes_ = bytes; }
    // Fails the fetch on an HTTP error status (400 and up) instead of passing
    // the error page on as the body.
    void setFailOnHttpError(bool on) { failOnHttpError_ = on; }

    // The file name the server suggests for the body: the Content-Disposition
    // "filename" of the last response, else the last path component of the
    // URL that was finally fetched (after redirections), else "index.html".
    // Always one plain path component (no "/", never "." or ".."). Valid from
    // onFinished on (on the fetch thread), or once done().
    std::string suggestedFileName() const { return suggestedFileName_; }
    // The same rule for a Content-Disposition value (empty when there is none)
    // and a URL.
    static std::string fileNameFor(std::string_view contentDisposition, std::string_view url);

private:
    void run();

    std::string url_;
    double timeout_;
    Callbacks callbacks_;
    std::string userAgent_;
    std::uint64_t maxBytes_ = kUnbounded;
    bool failOnHttpError_ = false;
    std::string suggestedFileName_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> done_{false};
    std::thread thread_;
};

}  // namespace quillon
