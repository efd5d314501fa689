#include "engine/M3uLibrary.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <fmt/format.h>

#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"

namespace quillon {

namespace {

constexpr std::string_view kHeader = "#EXTM3U";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string errorText() { return std::strerror(errno); }

// Whether the playlist text already lists `path` on a line of its own.
bool lists(std::string_view text, std::string_view path) {
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (line == path) return true;
        start = end + 1;
    }
    return false;
}

bool hasHeader(std::string_view text) {
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    return text.starts_with(kHeader);
}

}  // namespace

M3uLibrary::M3uLibrary(std::string folder) : folder_(std::move(folder)) {}

std::string M3uLibrary::description() const { return "M3U playlists in " + folder_; }

std::string M3uLibrary::playlistPath(const std::string& playlist) const {
    return joinPath(folder_, safePlaylistName(playlist) + ".m3u8");
}

MusicLibrary::Result M3uLibrary::addTrack(const std::string& path, const std::string& playlist) {
    if (path.empty() || path.front() != '/') return Result::failed("not an absolute path: " + path);
    // A line break would end the entry early and smuggle in a line of its own.
    if (path.find_first_of("\r\n") != std::string::npos)
        return Result::failed("a path with a line break cannot go into an M3U playlist");
    struct stat track {};
    if (::stat(path.c_str(), &track) != 0) return Result::failed(path + ": " + errorText());
    if (!S_ISREG(track.st_mode)) return Result::failed(path + ": not a file");
    if (folder_.empty()) return Result::failed("no playlist folder is set");
    if (!makeFolders(folder_))
        return Result::failed("cannot create the playlist folder " + folder_ + ": " + errorText());

    FileHandle folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen())
        return Result::failed("cannot open the playlist folder " + folder_ + ": " + errorText());
    if (::flock(folder.fd(), LOCK_EX) != 0)
        return Result::failed("cannot lock the playlist folder " + folder_ + ": " + errorText());

    std::string target = playlistPath(playlist);
    // A playlist that is a link to one elsewhere is updated where it lies;
    // replacing the link would lose the user's list.
    std::error_code ec;
    if (std::filesystem::is_symlink(target, ec)) {
        auto resolved = std::filesystem::canonical(target, ec);
        if (ec) return Result::failed(target + ": a link that leads nowhere (" + ec.message() + ")");
        target = resolved.string();
    }

    std::string text;
    struct stat existing {};
    if (::lstat(target.c_str(), &existing) == 0) {
        if (!S_ISREG(existing.st_mode)) return Result::failed(target + ": not a playlist file");
        // Never rewrite a list that could not be read whole: its entries would be lost.
        auto bytes = readWholeFile(target);
        if (!bytes) return Result::failed("cannot read the playlist " + target + ": " + errorText());
        text.assign(bytes->begin(), bytes->end());
    } else if (errno != ENOENT) {
        return Result::failed(target + ": " + errorText());
    }

    if (lists(text, path)) return Result::done();
    if (!hasHeader(text))
        text.insert(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0,
                    std::string(kHeader) + "\n");
    if (text.back() != '\n') text += '\n';
    text += fmt::format("#EXTINF:-1,{}\n{}\n", std::filesystem::path(path).stem().string(), path);

    if (!writeFileAtomically(target,
                             std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size())))
        return Result::failed("cannot write the playlist " + target + ": " + errorText());
    return Result::done();
}

}  // namespace quillon
