#include "engine/QLNBuffer.h"

#include <algorithm>

#include <fmt/format.h>

#include "platform/NamedException.h"

namespace quillon {

QLNBuffer::QLNBuffer(unsigned seconds, int offset) : bufferSeconds_(seconds), bufferOffset_(offset) {}

void QLNBuffer::initValues(unsigned bitrate) {
    std::lock_guard lock(mutex_);
    const std::uint64_t rate = bitrate == 0 ? 128 : bitrate;
    const auto capacity = static_cast<std::uint32_t>(rate * bufferSeconds_ * 125);
    const std::int64_t perSecond = bufferSeconds_ == 0 ? 0 : capacity / bufferSeconds_;
    flushSize_ = perSecond * (static_cast<std::int64_t>(bufferSeconds_ / 2) + bufferOffset_);
    capacity_.store(capacity, std::memory_order_relaxed);
    // The delay line plus a burst and a few blocks: steady state then appends
    // without growing the storage.
    buffer_.reserve(capacity + 4 * kWriteSlack);
}

std::int64_t QLNBuffer::flushSize() const {
    std::lock_guard lock(mutex_);
    return flushSize_;
}

std::vector<std::int64_t> QLNBuffer::pendingCuts() const {
    std::lock_guard lock(mutex_);
    return {flushEvents_.begin(), flushEvents_.end()};
}

bool QLNBuffer::hasFileHandle() const {
    std::lock_guard lock(mutex_);
    return filehandle_.isOpen();
}

unsigned QLNBuffer::filledValue() const {
    const std::uint64_t line = capacity() / 2;
    if (line == 0) return 0;
    return static_cast<unsigned>(std::min<std::uint64_t>(bufferSize() * 100 / line, 100));
}

void QLNBuffer::addData(std::span<const std::uint8_t> block) {
    std::lock_guard lock(mutex_);
    buffer_.append(block);
    updateHeld();
    const auto held = static_cast<std::int64_t>(buffer_.size());
    if (!flushEvents_.empty()) {
        // While a cut is pending nothing else is written: the held audio may
        // grow past the delay line until the cut is reached.
        if (held > flushEvents_.front()) {
            flushBufferLocked(flushEvents_.front());
            flushEvents_.pop_front();
        }
        return;
    }
    const std::int64_t line = capacity_.load(std::memory_order_relaxed) / 2;
    if (held > line + kWriteSlack) writeFront(static_cast<std::size_t>(held - line));
}

void QLNBuffer::setNewFileHandle(FileHandle file) {
    std::lock_guard lock(mutex_);
    if (shouldSetNewFileHandle_) {
        filehandle_ = std::move(file);
        shouldSetNewFileHandle_ = false;
        return;
    }
    const std::int64_t line = capacity_.load(std::memory_order_relaxed) / 2;
    // A cut before the front of what is still held (a large negative offset)
    // cannot go back into the written file: it is made at the front instead,
    // with the next block.
    const std::int64_t position =
        std::max<std::int64_t>(0, static_cast<std::int64_t>(buffer_.size()) + flushSize_ - line);
    flushEvents_.push_back(position);
    pendingFiles_.push_back(std::move(file));
}

void QLNBuffer::flushBuffer(std::int64_t count) {
    std::lock_guard lock(mutex_);
    flushBufferLocked(count);
}

void QLNBuffer::flushBufferLocked(std::int64_t count) {
    requireCount(count);
    for (std::int64_t& position : flushEvents_) position -= count;
    writeFront(static_cast<std::size_t>(count));
    filehandle_.sync();
    filehandle_.close();
    if (!pendingFiles_.empty()) {
        filehandle_ = std::move(pendingFiles_.front());
        pendingFiles_.pop_front();
    } else {
        filehandle_ = FileHandle::nullDevice();
    }
}

void QLNBuffer::requireCount(std::int64_t count) const {
    if (count < 0) throw NamedException("QLN BUFFER INCONSISTENT VALUE", "QLN BUFFER INCONSISTENT VALUE");
    if (static_cast<std::uint64_t>(count) > buffer_.size())
        throw NamedException(
            "not enough data",
            fmt::format("trying to get {} bytes, only {} bytes in data object", count, buffer_.size()));
}

void QLNBuffer::writeFront(std::size_t count) {
    // A failed write (a full disk) is not a stream failure: the free-space
    // guard stops the recording, and the relay goes on meanwhile.
    filehandle_.writeAll(buffer_.bytes().first(count));
    buffer_.dropFront(count);
    updateHeld();
}

Bytes QLNBuffer::getData(std::int64_t count) {
    std::lock_guard lock(mutex_);
    requireCount(count);
    Bytes out = buffer_.getBytes(static_cast<std::size_t>(count));
    updateHeld();
    return out;
}

}  // namespace quillon
