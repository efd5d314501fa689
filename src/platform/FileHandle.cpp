#include "platform/FileHandle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace quillon {

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = other.release();
    }
    return *this;
}

FileHandle FileHandle::createForWriting(const std::string& path) {
    return FileHandle(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
}

FileHandle FileHandle::openForReading(const std::string& path) {
    return FileHandle(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

FileHandle FileHandle::nullDevice() { return FileHandle(::open("/dev/null", O_WRONLY | O_CLOEXEC)); }

bool FileHandle::writeAll(std::span<const std::uint8_t> bytes) {
    if (fd_ < 0) {
        errno = EBADF;
        return false;
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool FileHandle::sync() {
    if (fd_ < 0) return false;
    // The null device and pipes cannot be synced; that is not a failure.
    return ::fdatasync(fd_) == 0 || errno == EINVAL || errno == EROFS;
}

void FileHandle::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

int FileHandle::release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
}

}  // namespace quillon
