#include "engine/QLNBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <fmt/format.h>

#include "engine/AdtsSync.h"
#include "engine/OggPages.h"
#include "platform/Log.h"
#include "platform/NamedException.h"

namespace quillon {

QLNBuffer::Pages::Pages(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t size = (bytes + page - 1) / page * page;
    void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(p);
    size_ = size;
}

QLNBuffer::Pages::~Pages() {
    if (data_) ::munmap(data_, size_);
}

QLNBuffer::Pages::Pages(Pages&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

QLNBuffer::Pages& QLNBuffer::Pages::operator=(Pages&& other) noexcept {
    if (this != &other) {
        if (data_) ::munmap(data_, size_);
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

QLNBuffer::QLNBuffer(unsigned seconds, int offset) : bufferSeconds_(seconds), bufferOffset_(offset) {}

QLNBuffer::~QLNBuffer() {
    {
        std::lock_guard lock(closeMutex_);
        closerStop_ = true;
    }
    closeWake_.notify_all();
    if (closer_.joinable()) closer_.join();
}

void QLNBuffer::retire(FileHandle file) {
    {
        std::unique_lock lock(closeMutex_);
        if (!file.isOpen()) return;
        // A bounded queue: titles that change faster than files reach the
        // disk make the writer wait here rather than pile up open files.
        closeWake_.wait(lock, [this] { return closing_.size() < kMaxClosing; });
        closing_.push_back(std::move(file));
        if (!closer_.joinable()) closer_ = std::thread([this] { closeLoop(); });
    }
    closeWake_.notify_all();
}

void QLNBuffer::closeLoop() {
    std::unique_lock lock(closeMutex_);
    while (true) {
        closeWake_.wait(lock, [this] { return closerStop_ || !closing_.empty(); });
        // On stop, what is queued is still flushed before the thread ends.
        if (closing_.empty()) return;
        FileHandle file = std::move(closing_.front());
        closing_.pop_front();
        closingBusy_ = true;
        lock.unlock();
        const bool synced = file.sync();
        const int error = errno;
        file.close();
        lock.lock();
        closingBusy_ = false;
        if (!synced && closeError_.empty()) closeError_ = fmt::format("Disk error: {}", std::strerror(error));
        closeWake_.notify_all();
    }
}

void QLNBuffer::initValues(unsigned bitrate, AudioFormat format) {
    std::lock_guard lock(mutex_);
    alignAdts_ = format == AudioFormat::aac;
    if (format == AudioFormat::ogg || format == AudioFormat::opus)
        oggHeaders_.emplace();
    else
        oggHeaders_.reset();
    const std::uint64_t rate = bitrate == 0 ? 128 : bitrate;
    const auto capacity = static_cast<std::uint32_t>(rate * bufferSeconds_ * 125);
    const std::int64_t perSecond = bufferSeconds_ == 0 ? 0 : capacity / bufferSeconds_;
    flushSize_ = perSecond * (static_cast<std::int64_t>(bufferSeconds_ / 2) + bufferOffset_);
    capacity_.store(capacity, std::memory_order_relaxed);
    // The ring grows to the delay line, a burst and a block (a meta interval of
    // up to 64 KiB) as audio arrives, and no further unless cuts pending far
    // ahead hold more: streams whose titles change more often than the delay
    // line lasts keep a smaller ring.
    ringTarget_ = capacity / 2 + static_cast<std::size_t>(kWriteSlack) + kBlockAllowance;
}

std::size_t QLNBuffer::storageSize() const {
    std::lock_guard lock(mutex_);
    return ringSize_;
}

void QLNBuffer::ringReserve(std::size_t bytes) {
    if (bytes <= ringSize_) return;
    Pages fresh(bytes);
    auto first = frontFirst(size_);
    auto second = frontSecond(size_);
    if (!first.empty()) std::memcpy(fresh.data(), first.data(), first.size());
    if (!second.empty()) std::memcpy(fresh.data() + first.size(), second.data(), second.size());
    ring_ = std::move(fresh);
    ringSize_ = ring_.size();
    head_ = 0;
}

void QLNBuffer::ringAppend(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return;
    if (size_ + bytes.size() > ringSize_) {
        // Growth by half keeps the cost per byte constant; up to the target it
        // stops at the target, so that steady state uses no more than that.
        std::size_t grown = std::max(ringSize_ + ringSize_ / 2, kMinRing);
        if (ringSize_ < ringTarget_) grown = std::min(grown, ringTarget_);
        ringReserve(std::max(grown, size_ + bytes.size()));
    }
    const std::size_t tail = (head_ + size_) % ringSize_;
    const std::size_t first = std::min(bytes.size(), ringSize_ - tail);
    std::memcpy(ring_.data() + tail, bytes.data(), first);
    if (first < bytes.size()) std::memcpy(ring_.data(), bytes.data() + first, bytes.size() - first);
    size_ += bytes.size();
}

void QLNBuffer::ringDrop(std::size_t count) {
    size_ -= count;
    head_ = size_ == 0 ? 0 : (head_ + count) % ringSize_;
}

std::span<const std::uint8_t> QLNBuffer::frontFirst(std::size_t count) const {
    if (count == 0) return {};
    return {ring_.data() + head_, std::min(count, ringSize_ - head_)};
}

std::span<const std::uint8_t> QLNBuffer::frontSecond(std::size_t count) const {
    const std::size_t first = frontFirst(count).size();
    return {ring_.data(), count - first};
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

void QLNBuffer::raiseCloseError() {
    std::string error;
    {
        std::lock_guard lock(closeMutex_);
        error = closeError_;
    }
    if (!error.empty()) throw NamedException(kDiskError, error);
}

void QLNBuffer::addData(std::span<const std::uint8_t> block) {
    raiseCloseError();
    std::lock_guard lock(mutex_);
    ringAppend(block);
    updateHeld();
    const auto held = static_cast<std::int64_t>(size_);
    if (!flushEvents_.empty()) {
        // While a cut is pending nothing else is written: the held audio may
        // grow past the delay line until the cut is reached.
        if (held > flushEvents_.front()) {
            if (auto cut = cutAt(flushEvents_.front(), false)) {
                cutLocked(*cut);
                flushEvents_.pop_front();
            }
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
        std::max<std::int64_t>(0, static_cast<std::int64_t>(size_) + flushSize_ - line);
    flushEvents_.push_back(position);
    pendingFiles_.push_back(std::move(file));
}

void QLNBuffer::flushBuffer(std::int64_t count) {
    std::lock_guard lock(mutex_);
    flushBufferLocked(count);
}

void QLNBuffer::flushBufferLocked(std::int64_t count) {
    requireCount(count);
    // A cut moved forward to a frame start may pass the next one (two titles
    // within a frame); that one then comes at the front.
    for (std::int64_t& position : flushEvents_) position = std::max<std::int64_t>(0, position - count);
    writeFront(static_cast<std::size_t>(count));
    retire(std::move(filehandle_));
    if (!pendingFiles_.empty()) {
        filehandle_ = std::move(pendingFiles_.front());
        pendingFiles_.pop_front();
    } else {
        filehandle_ = FileHandle::nullDevice();
    }
}

Bytes QLNBuffer::heldCopy(std::size_t from, std::size_t count) const {
    Bytes bytes(count);
    const std::size_t start = (head_ + from) % ringSize_;
    const std::size_t first = std::min(count, ringSize_ - start);
    std::memcpy(bytes.data(), ring_.data() + start, first);
    if (first < count) std::memcpy(bytes.data() + first, ring_.data(), count - first);
    return bytes;
}

std::optional<QLNBuffer::Cut> QLNBuffer::cutAt(std::int64_t position, bool complete) const {
    if ((!alignAdts_ && !oggHeaders_) || position < 0 || static_cast<std::size_t>(position) >= size_)
        return Cut{position, false};
    const std::size_t from = static_cast<std::size_t>(position);
    if (alignAdts_) {
        // Enough to find a frame start in the window and see the header after it.
        const std::size_t count =
            std::min(size_ - from, AdtsSync::kSearchWindow + 8192 + AdtsSync::kHeaderSize);
        const Bytes bytes = heldCopy(from, count);
        auto start = AdtsSync::frameStart(bytes, complete || count < size_ - from);
        if (!start) return std::nullopt;
        return Cut{position + static_cast<std::int64_t>(*start), false};
    }
    // Enough to find a page start in the window and check that whole page.
    const std::size_t count = std::min(size_ - from, OggPages::kSearchWindow + OggPages::kMaxPageSize);
    const Bytes bytes = heldCopy(from, count);
    const auto start = OggPages::pageStart(bytes, 0, complete || count < size_ - from);
    switch (start.result) {
        case OggPages::Search::needMore:
            return std::nullopt;
        case OggPages::Search::absent:
            // No Ogg here: the cut stays, and headers ahead of a page's middle
            // would not help a decoder.
            return Cut{position, false};
        case OggPages::Search::found:
            break;
    }
    return Cut{position + static_cast<std::int64_t>(start.offset), !start.page.bos};
}

void QLNBuffer::cutLocked(const Cut& cut) {
    flushBufferLocked(cut.position);
    if (!cut.replayHeaders || !oggHeaders_) return;
    if (oggHeaders_->overflowed() && !oggOverflowLogged_) {
        oggOverflowLogged_ = true;
        Log::warn("Ogg header pages longer than {} bytes: track files begin without them",
                  OggHeaders::kDefaultLimit);
    }
    // Deliberate: the header pages are written again at the head of the file
    // (they are no received audio and feed no header tracking), so that a
    // file cut from the middle of an Ogg stream plays on its own.
    const auto pages = oggHeaders_->pages();
    if (!pages.empty() && !filehandle_.writeAll(pages))
        throw NamedException(kDiskError, fmt::format("Disk error: {}", std::strerror(errno)));
}

void QLNBuffer::requireCount(std::int64_t count) const {
    if (count < 0) throw NamedException("QLN BUFFER INCONSISTENT VALUE", "QLN BUFFER INCONSISTENT VALUE");
    if (static_cast<std::uint64_t>(count) > size_)
        throw NamedException(
            "not enough data",
            fmt::format("trying to get {} bytes, only {} bytes in data object", count, size_));
}

void QLNBuffer::writeFront(std::size_t count) {
    // Deliberate: a failed write (a full disk, a read-only folder, a quota,
    // an I/O error) ends the recording loudly rather than dropping audio.
    auto first = frontFirst(count);
    auto rest = frontSecond(count);
    if (!filehandle_.writeAll(first) || (!rest.empty() && !filehandle_.writeAll(rest)))
        throw NamedException(kDiskError, fmt::format("Disk error: {}", std::strerror(errno)));
    if (oggHeaders_) {
        oggHeaders_->add(first);
        oggHeaders_->add(rest);
    }
    ringDrop(count);
    updateHeld();
}

void QLNBuffer::finish() {
    {
        std::lock_guard lock(mutex_);
        while (!flushEvents_.empty() && flushEvents_.front() <= static_cast<std::int64_t>(size_)) {
            cutLocked(cutAt(flushEvents_.front(), true).value_or(Cut{flushEvents_.front(), false}));
            flushEvents_.pop_front();
        }
        // Cuts beyond the held audio (a positive offset the stop came before):
        // the current file keeps it all; the files that were to follow get none.
        flushEvents_.clear();
        if (filehandle_.isOpen()) writeFront(size_);
        retire(std::move(filehandle_));
        for (FileHandle& file : pendingFiles_) retire(std::move(file));
        pendingFiles_.clear();
        filehandle_ = FileHandle::nullDevice();
    }
    // Every file is on disk (or has failed loudly) before the writer is done.
    {
        std::unique_lock lock(closeMutex_);
        closeWake_.wait(lock, [this] { return closing_.empty() && !closingBusy_; });
    }
    raiseCloseError();
}

Bytes QLNBuffer::getData(std::int64_t count) {
    std::lock_guard lock(mutex_);
    requireCount(count);
    const auto n = static_cast<std::size_t>(count);
    auto first = frontFirst(n);
    auto second = frontSecond(n);
    Bytes out(first.begin(), first.end());
    out.insert(out.end(), second.begin(), second.end());
    ringDrop(n);
    updateHeld();
    return out;
}

}  // namespace quillon
