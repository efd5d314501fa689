#pragma once
// One player connected to a relay: owns the accepted client socket and a writer
// thread that reads (and ignores) the player's request, bounded in size and
// time, and sends the upstream header. After that the feed thread hands each
// block straight to the socket without waiting, as long as nothing is queued
// and the socket takes it all: a hundred players then cost a hundred sends and
// no thread switches. Whatever the socket does not take at once is queued, and
// the writer thread, woken once more than a block's worth waits, writes it with
// the usual blocking time-outs; while it does, new blocks queue behind it, so
// the order never changes.
//
// Thread contract: made, started and destroyed by its BroadcastController (the
// main thread makes and starts it, the feed thread or the feeder's destruction
// destroys it). writeDataToBroadcast and firstTime are called by the feed thread,
// getDataFromBroadcast by the writer thread; `bufferLock_` guards the queue and
// serialises the feed thread's direct sends with the writer's use of the socket
// (including its close). State queries may be called from any thread.
// Destruction stops the writer (waking a blocked write) and joins it.
//
// Blocks are shared, read-only, with every other player; the queue is bounded by
// `backlogLimit` bytes: a player that falls further behind is dropped.
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
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

    // The most a player's request may take; a longer one drops the player, as
    // does one that takes longer than the timing table's relayRequestTimeout.
    static constexpr std::size_t kMaxRequestBytes = 8192;
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

    // Sends or queues blocks (in order) while the player is active; drops them
    // otherwise.
    void writeDataToBroadcast(std::span<const Block> blocks);
    void writeDataToBroadcast(Block bytes) { writeDataToBroadcast(std::span<const Block>(&bytes, 1)); }
    // Everything queued, once more than one block's worth is waiting; else
    // nothing. The caller owns the socket until finishedWriting().
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
    // Sends what the socket takes now; returns how many bytes of `blocks` went.
    // Caller holds bufferLock_.
    std::size_t sendNow(std::span<const Block> blocks);
    // Appends blocks to the queue, skipping the first `sent` bytes of them;
    // caller holds bufferLock_.
    void queue(std::span<const Block> blocks, std::size_t sent);
    // The writer is done with the socket; direct sends may resume.
    void finishedWriting();
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
    bool direct_ = false;        // guarded by bufferLock_: header sent, socket open
    bool writing_ = false;       // guarded by bufferLock_: the writer is using the socket

    mutable std::mutex statusMutex_;
    std::string status_;

    std::mutex wakeMutex_;  // taken after bufferLock_ when both are held
    std::condition_variable wake_;
    bool dataReady_ = false;  // guarded by wakeMutex_
    bool woken_ = false;      // guarded by wakeMutex_
    std::thread thread_;
};

}  // namespace quillon
