#include "net/Broadcaster.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "net/BroadcastController.h"
#include "net/TCPSocket.h"
#include "platform/Log.h"
#include "platform/NamedException.h"
#include "platform/Timing.h"

namespace quillon {

namespace {
constexpr unsigned kUnknownBitrate = 320;  // the highest MP3 rate: never too strict
// An idle writer still looks this many relay cadences apart whether the
// connection streams, in case no one wakes it (the feed thread does when the
// connection stops): rarely, as a hundred players would wake a hundred threads.
constexpr double kIdleCadences = 100;
}  // namespace

std::size_t Broadcaster::backlogLimit(unsigned kbps) {
    if (kbps == 0) kbps = kUnknownBitrate;
    return static_cast<std::size_t>(kMaxBacklogSeconds * kbps * 1000 / 8);
}

Broadcaster::Broadcaster(BroadcastController& owner, std::shared_ptr<TCPSocket> socket, unsigned bufferSize,
                         std::size_t backlogLimit)
    : owner_(owner), bufferSize_(bufferSize), backlogLimit_(backlogLimit), socket_(std::move(socket)) {}

Broadcaster::~Broadcaster() {
    setBroadcastState(0);
    // Frees a writer blocked in a read or write of up to a minute.
    socket_->interrupt();
    if (thread_.joinable()) thread_.join();
    // A player that was never started still holds its descriptor.
    socket_->close();
}

void Broadcaster::start() { thread_ = std::thread(&Broadcaster::stream, this); }

void Broadcaster::writeDataToBroadcast(std::span<const Block> blocks) {
    if (state_ != 1 || blocks.empty()) return;
    std::lock_guard lock(bufferLock_);
    std::size_t sent = 0;
    if (direct_ && !writing_ && buffer_.empty()) {
        try {
            sent = sendNow(blocks);
        } catch (const NamedException&) {
            // The writer's own write meets the same failure and reports it.
        }
    }
    queue(blocks, sent);
    if (buffered_ > backlogLimit_) {
        dropForBacklog();
    } else if (buffered_ > bufferSize_) {
        {
            std::lock_guard wakeLock(wakeMutex_);
            dataReady_ = true;
        }
        wake_.notify_one();
    }
}

std::size_t Broadcaster::sendNow(std::span<const Block> blocks) {
    constexpr std::size_t kMaxBlocks = 4;
    std::span<const std::uint8_t> parts[kMaxBlocks];
    std::size_t count = 0;
    for (const Block& block : blocks.first(std::min(blocks.size(), kMaxBlocks)))
        if (block) parts[count++] = *block;
    return socket_->writeWithoutWaiting(std::span(parts, count));
}

void Broadcaster::queue(std::span<const Block> blocks, std::size_t sent) {
    for (const Block& block : blocks) {
        if (!block || sent >= block->size()) {
            sent -= block ? block->size() : 0;
            continue;
        }
        // A block the socket took in part: its rest is a block of its own.
        Block rest = sent == 0 ? block
                               : std::make_shared<const Bytes>(
                                     block->begin() + static_cast<std::ptrdiff_t>(sent), block->end());
        sent = 0;
        buffered_ += rest->size();
        buffer_.push_back(std::move(rest));
    }
}

void Broadcaster::dropForBacklog() {
    backlogReason_ = fmt::format("more than {} seconds of audio behind", kMaxBacklogSeconds);
    buffer_.clear();
    buffered_ = 0;
    setBroadcastState(0);
    socket_->interrupt();
}

std::vector<Broadcaster::Block> Broadcaster::getDataFromBroadcast() {
    std::vector<Block> out;
    std::lock_guard lock(bufferLock_);
    if (buffered_ > bufferSize_) {
        out.swap(buffer_);
        buffered_ = 0;
        writing_ = true;
    }
    return out;
}

void Broadcaster::finishedWriting() {
    std::lock_guard lock(bufferLock_);
    writing_ = false;
}

void Broadcaster::wake() {
    {
        std::lock_guard lock(wakeMutex_);
        woken_ = true;
    }
    wake_.notify_one();
}

bool Broadcaster::firstTime() { return firstTime_.exchange(false); }

void Broadcaster::setBroadcastState(int state) {
    {
        std::lock_guard lock(wakeMutex_);
        state_ = state;
    }
    if (state == 0) wake_.notify_all();
}

std::string Broadcaster::status() const {
    std::lock_guard lock(statusMutex_);
    return status_;
}

void Broadcaster::setStatus(std::string status) {
    std::lock_guard lock(statusMutex_);
    status_ = std::move(status);
}

bool Broadcaster::pause() {
    std::unique_lock lock(wakeMutex_);
    wake_.wait_for(lock, std::chrono::duration<double>(timing().relayCadence * kIdleCadences),
                   [&] { return state_ == 0 || dataReady_ || woken_; });
    dataReady_ = woken_ = false;
    return state_ != 0;
}

void Broadcaster::stream() {
    const double timeout = timing().streamReadTimeout;
    std::string reason;
    try {
        // Neither the path nor the headers matter: every request gets the stream.
        // Deliberate: the request is bounded in size and in total time, not
        // read byte by byte without end, because a player that never finishes
        // it would otherwise hold memory and a descriptor for ever.
        socket_->readBoundedUpToString("\r\n\r\n", kMaxRequestBytes, timing().relayRequestTimeout);
        ready_ = true;
        socket_->writeData(asBytes(owner_.streamHeader()), timeout);
        {
            std::lock_guard lock(bufferLock_);
            direct_ = true;
        }
        while (state_ != 0 && owner_.connectionLive()) {
            for (const Block& block : getDataFromBroadcast()) socket_->writeData(*block, timeout);
            finishedWriting();
            if (!pause()) break;
        }
    } catch (const NamedException& e) {
        reason = e.reason();
    }
    {
        // Under the lock: the feed thread may be sending to this socket.
        std::lock_guard lock(bufferLock_);
        if (!backlogReason_.empty()) reason = backlogReason_;
        buffer_.clear();
        buffered_ = 0;
        direct_ = writing_ = false;
        socket_->close();
    }
    if (!reason.empty()) Log::info("Client disconnected. {}", reason);
    setBroadcastState(0);
}

}  // namespace quillon
