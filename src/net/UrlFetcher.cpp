#include "net/UrlFetcher.h"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <mutex>

namespace quillon {

namespace {

using Clock = std::chrono::steady_clock;

void initCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct CurlDeleter {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};

struct SlistDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

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
    initCurlOnce();
    thread_ = std::thread([this] { run(); });
}

void UrlFetcher::cancel() { cancelled_ = true; }

void UrlFetcher::run() {
    std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    std::unique_ptr<curl_slist, SlistDeleter> headers;
    Transfer transfer{&callbacks_.onData, &callbacks_.onHeader, &cancelled_, timeout_};
    CURLcode result = CURLE_FAILED_INIT;
    if (curl) {
        CURL* c = curl.get();
        curl_easy_setopt(c, CURLOPT_URL, url_.c_str());
        curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https,file");
        curl_easy_setopt(c, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(c, CURLOPT_MAXREDIRS, 10L);
        // Stream servers answer "ICY 200 OK"; take such a reply whole as the body.
        curl_easy_setopt(c, CURLOPT_HTTP09_ALLOWED, 1L);
        curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout_ * 1000) + 1);
        curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, writeChunk);
        curl_easy_setopt(c, CURLOPT_WRITEDATA, &transfer);
        curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, headerLine);
        curl_easy_setopt(c, CURLOPT_HEADERDATA, &transfer);
        curl_easy_setopt(c, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(c, CURLOPT_XFERINFOFUNCTION, checkProgress);
        curl_easy_setopt(c, CURLOPT_XFERINFODATA, &transfer);
        if (!userAgent_.empty()) {
            headers.reset(curl_slist_append(nullptr, ("User-Agent: " + userAgent_).c_str()));
            curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
        }
        result = curl_easy_perform(c);
    }
    if (!cancelled_) {
        if (result == CURLE_OK) {
            if (callbacks_.onFinished) callbacks_.onFinished();
        } else if (callbacks_.onFailed) {
            callbacks_.onFailed(transfer.timedOut ? "The request timed out." : curl_easy_strerror(result));
        }
    }
    done_ = true;
}

}  // namespace quillon
