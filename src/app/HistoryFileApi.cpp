#include "app/HistoryFileApi.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "app/ApiServer.h"
#include "history/History.h"
#include "platform/FileHandle.h"
#include "platform/Log.h"

namespace quillon {

namespace {

ApiServer::Stream openRecordedFile(History& history, const ApiRequest& req, const ApiServer::OnMain& onMain) {
    const std::string path = req.query("path").value_or("");
    if (path.empty()) throw ApiError(400, "give the recorded file: ?path=...");
    bool known = false;
    if (!onMain([&] { known = HistoryFileApi::holdsFile(history, path); }))
        throw ApiError(503, "the daemon is stopping");
    if (!known) throw ApiError(404, "no track of the history is the file " + path);

    auto file = std::make_shared<FileHandle>(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file->isOpen()) throw ApiError(404, "cannot read " + path + ": " + std::strerror(errno));
    auto next = [file, path](const ApiServer::Write& write) {
        std::array<char, HistoryFileApi::kReadBytes> buffer;
        ssize_t got = 0;
        do {
            got = ::read(file->fd(), buffer.data(), buffer.size());
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            // The answer ends short: the player sees the end, the log says why.
            Log::warn("reading {} for the web page failed: {}", path, std::strerror(errno));
            return false;
        }
        if (got == 0) return false;
        return write(buffer.data(), static_cast<std::size_t>(got));
    };
    return {HistoryFileApi::audioTypeFor(path), std::move(next)};
}

}  // namespace

HistoryFileApi::HistoryFileApi(ApiServer& server, History& history) {
    server.routeStream("/api/history/file",
                       [&history](const ApiRequest& req, const ApiServer::OnMain& onMain) {
                           return openRecordedFile(history, req, onMain);
                       });
}

bool HistoryFileApi::holdsFile(const History& history, const std::string& path) {
    for (const std::string& key : history.dateKeys()) {
        auto day = history.databaseForKey(key);
        if (!day) continue;
        for (const auto& item : day->logItems())
            if (item->path() == path) return true;
    }
    return false;
}

std::string HistoryFileApi::audioTypeFor(std::string_view path) {
    std::string lower(path);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char ch) { return std::tolower(ch); });
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kTypes{{
        {".aac", "audio/aac"},
        {".aacp", "audio/aac"},
        {".ogg", "audio/ogg"},
        {".oga", "audio/ogg"},
        {".opus", "audio/ogg"},
    }};
    for (const auto& [extension, type] : kTypes)
        if (lower.ends_with(extension)) return std::string(type);
    return "audio/mpeg";
}

}  // namespace quillon
