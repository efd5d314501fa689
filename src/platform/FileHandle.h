#pragma once
// A move-only owner of one open file descriptor; closing is the destructor.
// Used by one thread at a time.
#include <cstdint>
#include <span>
#include <string>

namespace quillon {

class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    ~FileHandle() { close(); }
    FileHandle(FileHandle&& other) noexcept : fd_(other.release()) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    // A new file created for writing (fails when it exists).
    static FileHandle createForWriting(const std::string& path);
    static FileHandle openForReading(const std::string& path);
    // The null device, for audio that is to be discarded.
    static FileHandle nullDevice();

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    bool writeAll(std::span<const std::uint8_t> bytes);
    // Pushes written data to the disk.
    bool sync();
    void close();
    int release();

private:
    int fd_ = -1;
};

}  // namespace quillon
