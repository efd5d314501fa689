#include "net/UrlFetcher.h"

#include "net/CurlLibrary.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <memory>

namespace quillon {

namespace {

using Clock = std::chrono::steady_clock;

// What the curl callbacks share with the fetch.
struct Transfer {
    const std::function<bool(std::span<const std::uint8_t>)>* onData = nullptr;
    const std::function<void(std::string_view)>* onHeader = nullptr;
    std::atomic<bool>* cancelled = nullptr;
    double timeout = 0;
    std::uint64_t maxBytes = UrlFetcher::kUnbounded;
    Clock::time_point lastActivity = Clock::now();
    bool timedOut = false;
    std::uint64_t received = 0;
    bool tooLarge = false;
    // The Content-Disposition value of the response being read, and whether the
    // next header line starts a response (redirections bring several).
    std::string contentDisposition;
    bool atStatusLine = true;
};

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) ==
                      std::tolower(static_cast<unsigned char>(b));
           });
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        int high = -1, low = -1;
        if (text[i] == '%' && i + 2 < text.size() && (high = hexDigit(text[i + 1])) >= 0 &&
            (low = hexDigit(text[i + 2])) >= 0) {
            out += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// The last component of a name a server or URL suggests, without control
// characters and bounded to one file name's length; empty when nothing usable
// is left ("", "." and ".." would leave the destination folder).
std::string plainComponent(std::string_view name) {
    if (auto slash = name.find_last_of("/\\"); slash != std::string_view::npos) name.remove_prefix(slash + 1);
    std::string out;
    for (char c : name) {
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) out += c;
    }
    if (out.size() > 255) out.resize(255);
    if (out == "." || out == "..") return {};
    return out;
}

// The file name of a Content-Disposition value: "filename*=charset''text"
// (percent-encoded) wins over "filename=" (quoted or a token).
std::string dispositionFileName(std::string_view value) {
    std::string plain, extended;
    while (!value.empty()) {
        auto semicolon = value.find(';');
        std::string_view param = trimmed(value.substr(0, semicolon));
        value = semicolon == std::string_view::npos ? std::string_view{} : value.substr(semicolon + 1);
        if (startsWithNoCase(param, "filename*=")) {
            std::string_view text = param.substr(10);
            auto quote = text.find("''");
            if (quote != std::string_view::npos) extended = percentDecoded(text.substr(quote + 2));
        } else if (startsWithNoCase(param, "filename=")) {
            std::string_view text = trimmed(param.substr(9));
            if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
                text = text.substr(1, text.size() - 2);
            }
            plain = std::string(text);
        }
    }
    return !extended.empty() ? extended : plain;
}

std::size_t writeChunk(char* data, std::size_t size, std::size_t count, void* user) {
    auto* t = static_cast<Transfer*>(user);
    std::size_t length = size * count;
    if (*t->cancelled) return 0;
    t->lastActivity = Clock::now();
    t->received += length;
    if (t->maxBytes != UrlFetcher::kUnbounded && t->received > t->maxBytes) {
        t->tooLarge = true;
        return 0;
    }
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
    std::string_view line(data, length);
    if (t->atStatusLine) t->contentDisposition.clear();
    t->atStatusLine = line == "\r\n" || line == "\n";
    if (startsWithNoCase(line, "content-disposition:")) {
        t->contentDisposition = std::string(trimmed(line.substr(20)));
    }
    if (*t->onHeader) (*t->onHeader)(line);
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

std::string UrlFetcher::fileNameFor(std::string_view contentDisposition, std::string_view url) {
    std::string name = plainComponent(dispositionFileName(contentDisposition));
    if (!name.empty()) return name;
    if (auto scheme = url.find("://"); scheme != std::string_view::npos) {
        url.remove_prefix(scheme + 3);
        auto path = url.find('/');
        url = path == std::string_view::npos ? std::string_view{} : url.substr(path);
    }
    url = url.substr(0, url.find_first_of("?#"));
    auto slash = url.find_last_of('/');
    name = plainComponent(percentDecoded(slash == std::string_view::npos ? url : url.substr(slash + 1)));
    return name.empty() ? "index.html" : name;
}

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
    std::unique_ptr<curl_slist, decltype(freeList)> aliases(nullptr, freeList);
    Transfer transfer;
    transfer.onData = &callbacks_.onData;
    transfer.onHeader = &callbacks_.onHeader;
    transfer.cancelled = &cancelled_;
    transfer.timeout = timeout_;
    transfer.maxBytes = maxBytes_;
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
        // Stream servers answer "ICY 200 OK": that counts as HTTP 200. Other
        // replies without an HTTP status line are taken whole as the body.
        aliases.reset(lib->slistAppend(nullptr, "ICY 200 OK"));
        set(c, CURLOPT_HTTP200ALIASES, aliases.get());
        set(c, CURLOPT_HTTP09_ALLOWED, 1L);
        if (failOnHttpError_) set(c, CURLOPT_FAILONERROR, 1L);
        // A declared length over the bound fails before any byte is taken.
        if (maxBytes_ != kUnbounded) {
            set(c, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(maxBytes_));
        }
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
        const char* effective = nullptr;
        if (lib->easyGetinfo(c, CURLINFO_EFFECTIVE_URL, &effective) != CURLE_OK || !effective) {
            effective = url_.c_str();
        }
        suggestedFileName_ = fileNameFor(transfer.contentDisposition, effective);
    }
    if (!cancelled_) {
        if (result == CURLE_OK) {
            if (callbacks_.onFinished) callbacks_.onFinished();
        } else if (callbacks_.onFailed) {
            std::string reason = lib->easyStrerror(result);
            if (transfer.timedOut) reason = "The request timed out.";
            if (transfer.tooLarge || result == CURLE_FILESIZE_EXCEEDED) {
                reason = "The reply is larger than " + std::to_string(maxBytes_) + " bytes.";
            }
            callbacks_.onFailed(reason);
        }
    }
    done_ = true;
}

}  // namespace quillon
