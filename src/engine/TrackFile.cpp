#include "engine/TrackFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "engine/TrackName.h"

namespace quillon {

namespace {

std::string numbered(const std::string& path, int copy) {
    std::filesystem::path p(path);
    return (p.parent_path() / numberedFileName(p.filename().string(), copy)).string();
}

// rename() that fails with EEXIST instead of replacing the target.
bool renameNoReplace(const std::string& from, const std::string& to, int& error) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    error = errno;
    if (error != EINVAL && error != ENOSYS) return false;
    // File systems without the flag: a hard link claims the name exclusively.
    if (::link(from.c_str(), to.c_str()) != 0) {
        error = errno;
        return false;
    }
    ::unlink(from.c_str());
    return true;
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
        int error = 0;
        if (renameNoReplace(from, target, error)) return target;
        if (error != EEXIST) return from;
    }
    return from;
}

}  // namespace quillon
