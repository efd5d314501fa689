#include "net/Live365Parser.h"

#include <algorithm>
#include <chrono>

#include "net/UrlFetcher.h"
#include "platform/Log.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "platform/VoObject.h"

namespace quillon {

namespace {

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// Whether the text may stand in a URL's query as it is: unreserved and
// reserved characters, and "%" only as the start of an escape.
bool queryText(std::string_view text) {
    static constexpr std::string_view kAllowed = "-._~!$&'()*+,;=:@/?";
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                     kAllowed.find(c) != std::string_view::npos;
        if (plain) continue;
        if (c == '%' && i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2])) continue;
        return false;
    }
    return true;
}

bool hostText(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == ':' || c == '[' || c == ']';
    });
}

std::string hostOrDefault(std::string_view webHost) {
    return webHost.empty() ? std::string(Live365Parser::kDefaultWebHost) : std::string(webHost);
}

}  // namespace

std::optional<std::string> Live365Parser::stationHandle(std::string_view headerText) {
    static constexpr std::string_view kSession = "session=";
    std::size_t at = headerText.find(kSession);
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view rest = headerText.substr(at + kSession.size());
    return std::string(rest.substr(0, rest.find(':')));
}

std::optional<std::string> Live365Parser::playlistPageURL(std::string_view webHost, std::string_view handle) {
    const std::string host = hostOrDefault(webHost);
    if (!hostText(host) || !queryText(handle)) return std::nullopt;
    return "http://" + host + "/pls/front?handler=playlist&cmd=view&handle=" + std::string(handle) +
           "&site=..#bottom";
}

std::string Live365Parser::stationPageURL(std::string_view webHost, std::string_view handle) {
    return "http://" + hostOrDefault(webHost) + "/stations/" + std::string(handle);
}

std::optional<Live365Parser::Track> Live365Parser::getTrackName(std::span<const std::uint8_t> page) {
    auto block = VoObject::returnStringInData(page, "one:{", "},");
    if (!block) return std::nullopt;
    Track track;
    const std::string artist = VoObject::returnStringInData(*block, "artist:\"", "\",").value_or("");
    const std::string title = VoObject::returnStringInData(*block, "title:\"", "\",").value_or("");
    track.currentName = artist + " - " + title;
    if (auto seconds = VoObject::returnStringInData(page, "var gSecondsLeft  =", ";"))
        track.secondsLeft = intValue(*seconds);
    return track;
}

Live365Parser::Live365Parser(Connection& connection, std::string_view headerText, std::string webHost)
    : connection_(connection), webHost_(std::move(webHost)) {
    auto handle = stationHandle(headerText);
    if (!handle) return;
    if (connectToPlaylist(*handle)) {
        stationURL_ = stationPageURL(webHost_, *handle);
        connection_.setStationURL(stationURL_);
    }
}

Live365Parser::~Live365Parser() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        if (fetching_) fetching_->cancel();
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

bool Live365Parser::connectToPlaylist(const std::string& handle) {
    auto url = playlistPageURL(webHost_, handle);
    if (!url) {
        Log::info("No playlist page for the station handle '{}'", printable(handle));
        return false;
    }
    playlistURL_ = *url;
    thread_ = std::thread([this] { readNameLoop(); });
    enabled_ = true;
    return true;
}

void Live365Parser::readNameLoop() {
    // Deliberate: the no-name file is asked for once per stretch of nameless
    // pages, not at every look at the page, which would cut the untitled
    // recording into one file per poll.
    bool noName = false;
    while (connection_.live()) {
        const std::string page = getNewData();
        double wait = 0;
        auto track = getTrackName({reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
        // A page without its track block is looked at again at once.
        if (track) {
            wait = track->secondsLeft ? std::max(0, *track->secondsLeft) : timing().pageTitleWait;
            currentName_ = track->currentName;
            if (toUtf32(currentName_).size() > 3) {
                connection_.setFileName(currentName_);
                noName = false;
            } else if (!noName) {
                connection_.setNoNameFile();
                noName = true;
            }
        }
        if (!pause(wait)) return;
    }
}

bool Live365Parser::pause(double seconds) {
    std::unique_lock lock(mutex_);
    wake_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return stopping_; });
    return !stopping_;
}

std::string Live365Parser::getNewData() {
    std::string page = fetchOnce();
    if (page.empty()) page = fetchOnce();
    return page;
}

std::string Live365Parser::fetchOnce() {
    std::string body;
    bool ended = false;
    UrlFetcher::Callbacks callbacks;
    callbacks.onData = [&body](std::span<const std::uint8_t> chunk) {
        body.append(reinterpret_cast<const char*>(chunk.data()), chunk.size());
        return true;
    };
    bool ok = false;
    auto end = [this, &ended, &ok](bool success) {
        std::lock_guard lock(mutex_);
        ended = true;
        ok = success;
        wake_.notify_all();
    };
    callbacks.onFinished = [end] { end(true); };
    callbacks.onFailed = [end](const std::string&) { end(false); };
    UrlFetcher fetcher(playlistURL_, timing().urlFetchTimeout, std::move(callbacks));
    fetcher.setMaxBytes(kMaxPageBytes);
    fetcher.setFailOnHttpError(true);
    {
        std::unique_lock lock(mutex_);
        if (stopping_) return {};
        fetching_ = &fetcher;
        fetcher.start();
        wake_.wait(lock, [&] { return ended || stopping_; });
        fetching_ = nullptr;
        if (!ended || !ok) return {};
    }
    return body;
}

}  // namespace quillon
