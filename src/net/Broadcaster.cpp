#include "net/Broadcaster.h"

#include <fmt/format.h>

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
// connection streams, in case no one wakes it.
constexpr double kIdleCadences = 10;
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

void Broadcaster::writeDataToBroadcast(Block bytes) {
    if (state_ != 1 || !bytes) return;
    std::lock_guard lock(bufferLock_);
    buffered_ += bytes->size();
    buffer_.push_back(std::move(bytes));
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
    }
    return out;
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
        socket_->readDataUpToString("\r\n\r\n", timeout);
        ready_ = true;
        socket_->writeData(asBytes(owner_.streamHeader()), timeout);
        while (state_ != 0 && owner_.connectionLive()) {
            for (const Block& block : getDataFromBroadcast()) socket_->writeData(*block, timeout);
            if (!pause()) break;
        }
    } catch (const NamedException& e) {
        reason = e.reason();
    }
    {
        std::lock_guard lock(bufferLock_);
        if (!backlogReason_.empty()) reason = backlogReason_;
        buffer_.clear();
        buffered_ = 0;
    }
    if (!reason.empty()) Log::info("Client disconnected. {}", reason);
    setBroadcastState(0);
    socket_->close();
}

}  // namespace quillon
