#include "net/UrlFetcher.h"

#include "net/CurlLibrary.h"

#include <chrono>
#include <memory>

namespace quillon {

namespace {

using Clock = std::chrono::steady_clock;

// What the curl callbacks share with the fetch.
struct Transfer {
    const std::function<bool(std::span<const std::uint8_t>)>* onData;
    const std::function<void(std::string_view)>* onHeader;
    std::atomic<bool>* cancelled;
    double timeout;
    Clock::time_point lastActivity = Clock::now();
    bool timedOut = false;
};

std::size_t writeChunk(char* data, std::size_t size, std::size_t count, void* user) {
    auto* t = static_cast<Transfer*>(user);
    std::size_t length = size * count;
    if (*t->cancelled) return 0;
    t->lastActivity = Clock::now();
    if (*t->onData && !(*t->onData)({reinterpret_cast<const std::uint8_t*>(data), length})) {
        *t->cancelled = true;
        return 0;
    }
    return length;
}

std::size_t headerLine(char* data, std::size_t size, std::size_t count, void* user) {
    auto* t = static_cast<Transfer*>(user);
    std::size_t length = size * count;
    if (*t->cancelled) return 0;
    t->lastActivity = Clock::now();
    if (*t->onHeader) (*t->onHeader)(std::string_view(data, length));
    return length;
}

int checkProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto* t = static_cast<Transfer*>(user);
    if (*t->cancelled) return 1;
    std::chrono::duration<double> quiet = Clock::now() - t->lastActivity;
    if (quiet.count() > t->timeout) {
        t->timedOut = true;
        return 1;
    }
    return 0;
}

}  // namespace

UrlFetcher::UrlFetcher(std::string url, double timeout, Callbacks callbacks)
    : url_(std::move(url)), timeout_(timeout), callbacks_(std::move(callbacks)) {}

UrlFetcher::~UrlFetcher() {
    cancel();
    if (thread_.joinable()) thread_.join();
}

void UrlFetcher::start() {
    if (thread_.joinable() || done_) return;
    thread_ = std::thread([this] { run(); });
}

void UrlFetcher::cancel() { cancelled_ = true; }

void UrlFetcher::run() {
    const CurlLibrary* lib = CurlLibrary::get();
    if (!lib) {
        if (!cancelled_ && callbacks_.onFailed) callbacks_.onFailed(CurlLibrary::loadError());
        done_ = true;
        return;
    }
    auto cleanup = [lib](CURL* c) { lib->easyCleanup(c); };
    auto freeList = [lib](curl_slist* l) { lib->slistFreeAll(l); };
    std::unique_ptr<CURL, decltype(cleanup)> curl(lib->easyInit(), cleanup);
    std::unique_ptr<curl_slist, decltype(freeList)> headers(nullptr, freeList);
    Transfer transfer{&callbacks_.onData, &callbacks_.onHeader, &cancelled_, timeout_};
    CURLcode result = CURLE_FAILED_INIT;
    if (curl) {
        CURL* c = curl.get();
        auto set = lib->easySetopt;
        set(c, CURLOPT_URL, url_.c_str());
        set(c, CURLOPT_NOSIGNAL, 1L);
        set(c, CURLOPT_PROTOCOLS_STR, "http,https,file");
        set(c, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        set(c, CURLOPT_FOLLOWLOCATION, 1L);
        set(c, CURLOPT_MAXREDIRS, 10L);
        // Stream servers answer "ICY 200 OK"; take such a reply whole as the body.
        set(c, CURLOPT_HTTP09_ALLOWED, 1L);
        set(c, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout_ * 1000) + 1);
        set(c, CURLOPT_WRITEFUNCTION, writeChunk);
        set(c, CURLOPT_WRITEDATA, &transfer);
        set(c, CURLOPT_HEADERFUNCTION, headerLine);
        set(c, CURLOPT_HEADERDATA, &transfer);
        set(c, CURLOPT_NOPROGRESS, 0L);
        set(c, CURLOPT_XFERINFOFUNCTION, checkProgress);
        set(c, CURLOPT_XFERINFODATA, &transfer);
        if (!userAgent_.empty()) {
            headers.reset(lib->slistAppend(nullptr, ("User-Agent: " + userAgent_).c_str()));
            set(c, CURLOPT_HTTPHEADER, headers.get());
        }
        result = lib->easyPerform(c);
    }
    if (!cancelled_) {
        if (result == CURLE_OK) {
            if (callbacks_.onFinished) callbacks_.onFinished();
        } else if (callbacks_.onFailed) {
            callbacks_.onFailed(transfer.timedOut ? "The request timed out." : lib->easyStrerror(result));
        }
    }
    done_ = true;
}

}  // namespace quillon
