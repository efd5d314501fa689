#include "app/LocationBookmark.h"

#include <cerrno>
#include <cstring>

#include "app/BadInput.h"
#include "app/LocationProbe.h"
#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "platform/MainLoop.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"
#include "store/Url.h"

namespace quillon {

namespace {

// A header field's value (key matched in any case), blanks trimmed.
std::optional<std::string> headerValue(const std::string& header, const std::string& key) {
    std::size_t at = toLowerAscii(header).find(toLowerAscii(key));
    if (at == std::string::npos) return std::nullopt;
    at += key.size();
    std::size_t end = header.find("\r\n", at);
    if (end == std::string::npos) return std::nullopt;
    std::string value = textFromWire(std::string_view(header).substr(at, end - at));
    value.erase(0, value.find_first_not_of(" \t"));
    value.erase(value.find_last_not_of(" \t") + 1);
    return value;
}

// A bookmark for a stream at `url` exactly as written.
std::shared_ptr<Bookmark> bookmarkForStreamUrl(const Url& url, const std::string& name) {
    auto b = Bookmark::bookmark();
    b->setName(name);
    const std::string scheme = url.scheme.value_or("http");
    b->setScheme(scheme);
    b->setHost(url.host);
    b->setPort(std::to_string(url.port && *url.port > 0 ? *url.port : Bookmark::defaultPort(scheme)));
    b->setPath(url.query ? url.path + "?" + *url.query : url.path);
    b->setUser(url.user);
    b->setPass(url.password);
    return b;
}

// A live stream whose header names no usable stream URL: the typed location is
// the stream itself.
std::shared_ptr<Bookmark> bookmarkFromStreamLocation(const std::string& location, const std::string& header) {
    auto url = Url::parse(location);
    if (!url || !url->host) return nullptr;
    auto streamName = headerValue(header, "icy-name:");
    return bookmarkForStreamUrl(
        *url, streamName && !streamName->empty() ? *streamName : std::string(Bookmark::kUntitledName));
}

bool isAudioHeader(const std::string& header) {
    std::string lower = toLowerAscii(header);
    return lower.find("\ncontent-type: audio/") != std::string::npos ||
           lower.find("\ncontent-type:audio/") != std::string::npos ||
           lower.find("\nicy-metaint:") != std::string::npos;
}

// A location that begins with "http" must be a URL the fetch can use: an
// http(s) scheme, a host, and a port from 1 to 65535 when one is written.
void checkUrl(const std::string& location) {
    auto url = Url::parse(location);
    bool ok = url && url->scheme && url->host && !url->host->empty();
    if (ok) {
        std::string scheme = toLowerAscii(*url->scheme);
        ok = scheme == "http" || scheme == "https";
    }
    if (ok) {
        // The parser leaves out a port that is not a number; a written one counts.
        std::string_view authority = std::string_view(location).substr(location.find("://") + 3);
        authority = authority.substr(0, authority.find_first_of("/?#"));
        authority = authority.substr(authority.rfind('@') + 1);
        std::size_t close = !authority.empty() && authority[0] == '[' ? authority.find(']') : 0;
        bool written = authority.find(':', close) != std::string_view::npos;
        ok = !written || (url->port && *url->port >= 1 && *url->port <= 65535);
    }
    if (!ok) throw BadInput("not a stream or playlist URL: " + location);
}

// A saved bookmark that can be recorded.
std::shared_ptr<Bookmark> savedBookmark(const std::string& file) {
    auto b = Bookmark::bookmark();
    if (!b->loadFromFile(file)) throw BadInput("not a bookmark file: " + file);
    if (!usableBookmark(*b))
        throw BadInput("the bookmark " + file + " has no stream address (host and port)");
    return b;
}

}  // namespace

bool looksLikePlaylist(const std::string& path) {
    std::string lower = toLowerAscii(path);
    for (const char* ext : {".pls", ".m3u", ".m3u8", ".asx", ".xspf"})
        if (endsWith(lower, ext)) return true;
    return false;
}

bool isRemoteLocation(const std::string& location) { return location.substr(0, 4) == "http"; }

std::optional<Bytes> checkLocation(const std::string& location) {
    if (location.empty()) throw BadInput("the location is empty");
    if (isRemoteLocation(location)) {
        checkUrl(location);
        return std::nullopt;
    }
    if (!fileExists(location)) throw BadInput("no such file: " + location);
    if (isFolder(location)) throw BadInput("not a playlist file: " + location);
    errno = 0;
    auto bytes = readWholeFile(location);
    if (!bytes) throw BadInput("cannot read " + location + ": " + std::strerror(errno ? errno : EIO));
    return bytes;
}

std::shared_ptr<Bookmark> bookmarkFromHeader(const std::string& location, const std::string& header,
                                             bool live) {
    // An Icecast stream answers in HTTP with audio and icy- headers.
    if (!live && !isAudioHeader(header)) return nullptr;
    return bookmarkFromStreamLocation(location, header);
}

bool usableBookmark(const Bookmark& b) {
    return !b.host().value_or("").empty() && intValue(b.port().value_or("")) > 0;
}

std::shared_ptr<Bookmark> bookmarkFromLocation(const std::string& location, const std::string& name,
                                               std::string& failure) {
    std::optional<LocationProbe::Outcome> outcome;
    LocationProbe probe(location, name, [&outcome](LocationProbe::Outcome o) { outcome = std::move(o); });
    MainLoop::main().runUntil([&outcome] { return outcome.has_value(); }, LocationProbe::timeLimit() + 5);
    if (!outcome) throw BadInput("no answer from " + location);
    if (!outcome->bookmark) {
        // A file is what the user typed; a fetched page is what a server sent.
        if (!isRemoteLocation(location)) throw BadInput("no stream address in " + location);
        failure = outcome->failure;
    }
    return outcome->bookmark;
}

std::shared_ptr<Bookmark> bookmarkFromArgument(const std::string& argument, std::string& failure) {
    const bool remote = isRemoteLocation(argument);
    if (remote) checkUrl(argument);
    const std::string extension = std::string(".") + Bookmark::kFileExtension;
    if (endsWith(argument, extension) && fileExists(argument)) return savedBookmark(argument);
    if (!remote && !fileExists(argument)) {
        if (auto folder = BookmarkFolder::folder()) {
            std::string name = endsWith(argument, extension)
                                   ? argument.substr(0, argument.size() - extension.size())
                                   : argument;
            if (name.find("..") == std::string::npos) {
                if (auto file = BookmarkFolder::fileForName(*folder, name)) return savedBookmark(*file);
            }
        }
        throw BadInput("no bookmark, URL or playlist file named \"" + argument + "\"");
    }
    if (auto url = Url::parse(argument); url && url->host && !looksLikePlaylist(url->path)) {
        // A stream address is recorded as it stands: asking the server first
        // would cost a second connection, which many stations count against
        // their listener limit.
        return bookmarkForStreamUrl(*url, *url->host);
    }
    return bookmarkFromLocation(argument, "", failure);
}

}  // namespace quillon
