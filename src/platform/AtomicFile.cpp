#include "platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fmt/format.h>

#include "platform/FileHandle.h"

namespace quillon {

namespace {

// Writes the bytes to a new temporary file beside `path`, synced and checked;
// its name, or nothing when that fails (the temporary file is then gone, errno
// tells why).
std::optional<std::string> writeTemporaryBeside(const std::string& path,
                                                std::span<const std::uint8_t> bytes) {
    const std::filesystem::path target(path);
    const std::filesystem::path folder = target.has_parent_path() ? target.parent_path() : ".";
    // fmt rather than string concatenation: GCC 12 warns of an overlapping copy there.
    std::string temp = fmt::format("{}/.{}.XXXXXX", folder.string(), target.filename().string());
    // A new file of its own (O_CREAT|O_EXCL come with mkostemp), never reached
    // through a link and not inherited by child processes: the folder may be
    // one that others can write to, as /tmp.
    int fd = ::mkostemp(temp.data(), O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return std::nullopt;
    FileHandle file(fd);
    struct stat written {};
    const bool ok = ::fchmod(file.fd(), 0644) == 0 && file.writeAll(bytes) && file.sync() &&
                    ::fstat(file.fd(), &written) == 0 && S_ISREG(written.st_mode) &&
                    static_cast<std::uint64_t>(written.st_size) == bytes.size();
    const int error = errno;
    file.close();
    if (!ok) {
        ::unlink(temp.c_str());
        errno = error;
        return std::nullopt;
    }
    return temp;
}

}  // namespace

bool renameNoReplace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return false;
    // A file system without that flag: a hard link fails just as atomically.
    if (::link(from.c_str(), to.c_str()) != 0) return false;
    ::unlink(from.c_str());
    return true;
}

bool writeFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    auto temp = writeTemporaryBeside(path, bytes);
    if (!temp) return false;
    // rename replaces whatever has the name, a link included, and never follows it.
    if (::rename(temp->c_str(), path.c_str()) != 0) {
        const int failure = errno;
        ::unlink(temp->c_str());
        errno = failure;
        return false;
    }
    return true;
}

WriteResult writeNewFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    auto temp = writeTemporaryBeside(path, bytes);
    if (!temp) return WriteResult::Failed;
    if (renameNoReplace(*temp, path)) return WriteResult::Written;
    const bool exists = errno == EEXIST;
    ::unlink(temp->c_str());
    return exists ? WriteResult::Exists : WriteResult::Failed;
}

std::optional<Bytes> readWholeFile(const std::string& path) {
    FileHandle file = FileHandle::openForReading(path);
    if (!file.isOpen()) return std::nullopt;
    Bytes out;
    std::uint8_t chunk[65536];
    while (true) {
        ssize_t n = ::read(file.fd(), chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR) continue;
            return std::nullopt;
        }
        if (n == 0) break;
        out.insert(out.end(), chunk, chunk + n);
    }
    return out;
}

}  // namespace quillon
