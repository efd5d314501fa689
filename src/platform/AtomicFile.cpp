#include "platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/FileHandle.h"

namespace quillon {

bool writeFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
    std::filesystem::path target(path);
    std::string folder = target.parent_path().string();
    if (folder.empty()) folder = ".";
    std::string temp = folder + "/." + target.filename().string() + ".XXXXXX";
    int fd = ::mkstemp(temp.data());
    if (fd < 0) return false;
    FileHandle file(fd);
    ::fchmod(file.fd(), 0644);
    if (!file.writeAll(bytes) || !file.sync()) {
        ::unlink(temp.c_str());
        return false;
    }
    file.close();
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        ::unlink(temp.c_str());
        return false;
    }
    return true;
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
