#include "store/BookmarkLocator.h"

#include <fmt/format.h>

#include "platform/AtomicFile.h"
#include "platform/Localization.h"
#include "platform/MainLoop.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Url.h"

namespace quillon {

namespace {

std::optional<std::string> textBetween(std::string_view text, std::string_view start, std::string_view end) {
    std::size_t from = text.find(start);
    if (from == std::string_view::npos) return std::nullopt;
    from += start.size();
    std::size_t to = text.find(end, from);
    if (to == std::string_view::npos) return std::nullopt;
    return textFromWire(text.substr(from, to - from));
}

// A fresh bookmark filled from playlist text, or null when it is not usable.
std::shared_ptr<Bookmark> bookmarkFromData(std::span<const std::uint8_t> data,
                                           const std::string& pendingName) {
    auto bookmark = Bookmark::bookmark();
    if (!bookmark->getUrlFromData(data)) return nullptr;
    if (!pendingName.empty()) bookmark->setName(pendingName);
    return bookmark;
}

// The bookmark an ICY header describes: name from "icy-name:", and, when the
// header names one, host, port and path from "icy-url:". Null when the header
// has no "icy-url:" (nothing for the editor then).
std::shared_ptr<Bookmark> bookmarkFromStreamHeader(std::string_view header) {
    auto bookmark = Bookmark::bookmark();
    if (auto name = textBetween(header, "icy-name:", "\r\n")) bookmark->setName(*name);
    auto location = textBetween(header, "icy-url:", "\r\n");
    if (!location) return nullptr;
    auto url = Url::parse(*location);
    if (url) bookmark->setScheme(url->scheme.value_or("http"));
    bookmark->setHost(url ? url->host : std::nullopt);
    auto port = static_cast<std::uint16_t>(url && url->port ? *url->port : 0);
    bookmark->setPort(std::to_string(port));
    if (url) bookmark->setPath(url->path);
    return bookmark;
}

}  // namespace

BookmarkLocator::BookmarkLocator(Callbacks callbacks) : callbacks_(std::move(callbacks)) {}

BookmarkLocator::~BookmarkLocator() {
    // Joins the fetch thread; tasks it posted find alive_ expired.
    fetcher_.reset();
}

void BookmarkLocator::deliver(std::uint64_t generation, std::function<void()> task) {
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().post([this, alive, generation, task = std::move(task)] {
        if (alive.expired() || generation != generation_) return;
        task();
    });
}

void BookmarkLocator::endSearch() {
    bool was = searching_;
    searching_ = false;
    if (was && callbacks_.searching) callbacks_.searching(false);
}

void BookmarkLocator::cancel() {
    ++generation_;
    if (fetcher_) fetcher_->cancel();
    endSearch();
}

void BookmarkLocator::getUrl(const std::string& location, const std::string& pendingName) {
    cancel();
    fetcher_.reset();
    if (startsWith(location, kLive365Prefix)) {
        auto bookmark = Bookmark::bookmark();
        bookmark->setHost(std::string(kLive365Host));
        bookmark->setPort(std::string("80"));
        bookmark->setPath(location.substr(std::string_view(kLive365Prefix).size()));
        bookmark->setName(pendingName);
        if (callbacks_.openEditor) callbacks_.openEditor(bookmark);
        return;
    }
    if (location.substr(0, 4) != "http") {
        auto bytes = readWholeFile(location);
        parseURLfromData(bytes ? *bytes : Bytes{}, pendingName);
        return;
    }
    startFetch(location, pendingName);
}

void BookmarkLocator::parseURLfromData(std::span<const std::uint8_t> data, const std::string& pendingName) {
    auto bookmark = bookmarkFromData(data, pendingName);
    if (bookmark && callbacks_.openEditor) callbacks_.openEditor(bookmark);
    cancel();
}

void BookmarkLocator::startFetch(const std::string& location, const std::string& pendingName) {
    std::uint64_t generation = ++generation_;
    searching_ = true;
    if (callbacks_.searching) callbacks_.searching(true);

    // The buffer belongs to the fetch thread; results travel to the main thread
    // by value.
    auto buffer = std::make_shared<std::string>();
    auto header = std::make_shared<std::string>();
    auto liveStream = std::make_shared<bool>(false);
    UrlFetcher::Callbacks fetch;
    fetch.onHeader = [this, header, liveStream, generation](std::string_view line) {
        // Redirects bring several headers; keep the last one.
        if (line.rfind("HTTP/", 0) == 0 || line.rfind("ICY ", 0) == 0) header->clear();
        header->append(line);
        if (line != "\r\n" && line != "\n") return;
        if (header->rfind("ICY 200 OK", 0) != 0) {
            deliver(generation, [this, text = *header] {
                if (callbacks_.httpHeader) callbacks_.httpHeader(text);
            });
            return;
        }
        // A live stream: its header is all the search needs; onData ends the fetch.
        *liveStream = true;
        auto bookmark = bookmarkFromStreamHeader(*header);
        deliver(generation, [this, text = *header, bookmark] {
            if (callbacks_.liveStream) callbacks_.liveStream(text);
            if (bookmark && callbacks_.openEditor) callbacks_.openEditor(bookmark);
            cancel();
        });
    };
    fetch.onData = [this, buffer, liveStream, generation](std::span<const std::uint8_t> chunk) {
        if (*liveStream) return false;
        buffer->append(asText(chunk));
        if (buffer->size() > kMaxProbeBytes) {
            deliver(generation, [this] { cancel(); });
            return false;
        }
        return true;
    };
    fetch.onFinished = [this, buffer, generation, pendingName] {
        // Playlist text may hold a redirect to probe: do it here, off the main thread.
        auto bookmark = bookmarkFromData(asBytes(*buffer), pendingName);
        deliver(generation, [this, bookmark] {
            if (bookmark && callbacks_.openEditor) callbacks_.openEditor(bookmark);
            cancel();
        });
    };
    fetch.onFailed = [this, generation](const std::string&) {
        deliver(generation, [this] {
            if (callbacks_.alert) {
                callbacks_.alert(localized("LoadFail", "URL Failed to load"),
                                 localized("LoadFailLong", "Sorry, but this URL Failed to load."));
            }
            cancel();
        });
    };
    fetcher_ = std::make_unique<UrlFetcher>(location, timing().redirectTimeout, std::move(fetch));
    fetcher_->start();
}

bool BookmarkLocator::directURL(const std::string& text, const std::string& name) {
    auto url = Url::parse(text);
    if (!url || !url->port || *url->port < 1) return false;
    auto bookmark = Bookmark::bookmark();
    bookmark->setName(name);
    bookmark->setScheme(url->scheme.value_or("http"));
    bookmark->setHost(url->host);
    bookmark->setPort(std::to_string(*url->port));
    bookmark->setPath(url->path);
    if (callbacks_.openEditor) callbacks_.openEditor(bookmark);
    return true;
}

}  // namespace quillon
