#pragma once
// One player connected to a relay: owns the accepted client socket and a writer
// thread that reads (and ignores) the player's request, sends the upstream
// header, then writes whatever audio and metadata the feeder queued for it as
// soon as more than a block's worth waits. The writer sleeps until then (or until
// woken), not on a fixed cadence: with a hundred players, a wake-up every 0.1
// second each was most of the relay's CPU.
//
// Thread contract: made, started and destroyed by its BroadcastController (the
// main thread makes and starts it, the feed thread or the feeder's destruction
// destroys it). writeDataToBroadcast and firstTime are called by the feed thread,
// getDataFromBroadcast by the writer thread; `bufferLock_` guards the queue
// between them. State queries may be called from any thread. Destruction stops
// the writer (waking a blocked write) and joins it.
//
// Blocks are shared, read-only, with every other player; the queue is bounded by
// `backlogLimit` bytes: a player that falls further behind is dropped.
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/ByteBuffer.h"

namespace quillon {

class BroadcastController;
class TCPSocket;

class Broadcaster {
public:
    using Block = std::shared_ptr<const Bytes>;

    // Seconds of audio a player may fall behind before it is dropped.
    static constexpr double kMaxBacklogSeconds = 30;
    // The queue bound for a stream of `kbps` kbit/s (0: unknown, taken as 320).
    static std::size_t backlogLimit(unsigned kbps);

    Broadcaster(BroadcastController& owner, std::shared_ptr<TCPSocket> socket, unsigned bufferSize,
                std::size_t backlogLimit);
    ~Broadcaster();
    Broadcaster(const Broadcaster&) = delete;
    Broadcaster& operator=(const Broadcaster&) = delete;

    // Starts the writer thread.
    void start();

    // Queues a block while the player is active; drops it otherwise.
    void writeDataToBroadcast(Block bytes);
    // Everything queued, once more than one block's worth is waiting; else nothing.
    std::vector<Block> getDataFromBroadcast();
    // True exactly once: the first metadata block of this player is a full one.
    bool firstTime();

    // 1 while active, 0 once stopped or failed.
    int broadcastState() const { return state_; }
    void setBroadcastState(int state);
    // The connection may have stopped streaming: the writer looks now rather
    // than at its next idle check.
    void wake();
    // Whether the player's request has been read; only then is it fed.
    bool ready() const { return ready_; }
    std::string status() const;
    void setStatus(std::string status);

private:
    void stream();
    // Stops the player because it fell too far behind; caller holds bufferLock_.
    void dropForBacklog();
    // Waits until data is ready, a wake(), a stop, or the idle check is due;
    // false once the player is stopped.
    bool pause();

    BroadcastController& owner_;
    const unsigned bufferSize_;
    const std::size_t backlogLimit_;
    std::shared_ptr<TCPSocket> socket_;
    std::atomic<int> state_{1};
    std::atomic<bool> firstTime_{true};
    std::atomic<bool> ready_{false};

    mutable std::mutex bufferLock_;
    std::vector<Block> buffer_;  // guarded by bufferLock_
    std::size_t buffered_ = 0;   // bytes in buffer_, guarded by bufferLock_
    std::string backlogReason_;  // guarded by bufferLock_; set when dropped for backlog

    mutable std::mutex statusMutex_;
    std::string status_;

    std::mutex wakeMutex_;  // taken after bufferLock_ when both are held
    std::condition_variable wake_;
    bool dataReady_ = false;  // guarded by wakeMutex_
    bool woken_ = false;      // guarded by wakeMutex_
    std::thread thread_;
};

}  // namespace quillon
