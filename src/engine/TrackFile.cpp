#include "engine/TrackFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "engine/TrackName.h"
#include "platform/AtomicFile.h"

namespace quillon {

namespace {

std::string numbered(const std::string& path, int copy) {
    std::filesystem::path p(path);
    return (p.parent_path() / numberedFileName(p.filename().string(), copy)).string();
}

}  // namespace

TrackFile::Opened TrackFile::createUnique(const std::string& path) {
    Opened out;
    for (int copy = 1; copy <= kMaxCopies; ++copy) {
        out.path = numbered(path, copy);
        out.file = FileHandle::createForWriting(out.path);
        out.error = out.file.isOpen() ? 0 : errno;
        if (out.file.isOpen()) return out;
        if (out.error != EEXIST) return out;
    }
    return out;
}

TrackFile::Opened TrackFile::openForAppending(const std::string& path) {
    Opened out;
    out.path = path;
    out.file = FileHandle(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW));
    if (!out.file.isOpen()) out.error = errno;
    return out;
}

std::string TrackFile::moveUnique(const std::string& from, const std::string& to) {
    for (int copy = 1; copy <= kMaxCopies; ++copy) {
        const std::string target = numbered(to, copy);
        if (renameNoReplace(from, target)) return target;
        if (errno != EEXIST) return from;
    }
    return from;
}

}  // namespace quillon
