#pragma once
// The relay of one connection: a listening socket on the connection's relay
// port, a feed thread that every 0.1 second moves one block of the connection's
// audio to each connected player followed by a metadata block (and sleeps while
// no player is connected), and one Broadcaster per player. Players get the upstream header, then audio in
// blocks of the meta interval, each followed by a metadata block, as from an ICY server. After a title change
// only the first player in the list gets the new title; the others learn titles when they connect.
// The listener is on loopback only unless the settings say otherwise, and players
// over the settings' cap are refused.
//
// Thread contract: construction, startFeeding, stopFeeding, disposeOwner and
// destruction may run on any one thread at a time (the connection's thread or the
// main thread), never on the feed thread. feed() may be called from any thread
// (the connection's reader). New players are accepted on the main thread.
// `ownerMutex_` guards the connection reference (and serialises calls into it),
// `playersMutex_` the players list, `nameMutex_` the last title sent,
// `pendingMutex_` the blocks waiting for the feed thread, `feedMutex_` the
// listener and the feed thread, `wakeMutex_` the feed thread's sleep and the
// player count. Lock order: feedMutex_, playersMutex_, then any one of the
// others, except wakeMutex_ before pendingMutex_. Destruction stops feeding,
// joins the feed thread and every writer.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "net/Broadcaster.h"
#include "net/RelaySource.h"
#include "platform/ByteBuffer.h"

namespace quillon {

class TCPSocket;

class BroadcastController {
public:
    // Who may reach the relay, read from the preferences by whoever makes it
    // (the relay sits below the preferences).
    struct Settings {
        static constexpr int kDefaultMaxPlayers = 64;

        // Listen on every interface rather than on loopback only.
        bool allInterfaces = false;
        // Players served at once; more are refused.
        int maxPlayers = kDefaultMaxPlayers;

        // The preference text of "relayMaxPlayers": its leading whole number
        // when above 0, else the default.
        static int maxPlayersFrom(std::string_view text);
    };

    // Remembers the connection's current title as the last one sent.
    BroadcastController(RelaySource& owner, Settings settings);
    explicit BroadcastController(RelaySource& owner);
    ~BroadcastController();
    BroadcastController(const BroadcastController&) = delete;
    BroadcastController& operator=(const BroadcastController&) = delete;

    // Listens on the connection's relay port and starts the feed thread; logs
    // "Unable to start broadcast controller." when the port cannot be had.
    void startFeeding();
    // Closes the listener and ends the feed thread; players end once the
    // connection stops streaming or the feeder is destroyed.
    void stopFeeding();
    // One block of audio as the connection received it (metadata removed). At
    // most about eight blocks wait; a feed that falls behind loses the oldest.
    void feed(Broadcaster::Block block);
    // The connection goes away: nothing asks it anything from now on.
    void disposeOwner();

    int count() const;
    bool isStreaming() const { return isStreaming_; }
    // The port actually listened on; 0 while not feeding.
    std::uint16_t listeningPort() const;
    // The listener's accept calls so far (see Socket::acceptAttempts); 0 while
    // not feeding.
    std::uint64_t acceptAttempts() const;

    // A metadata block for the connection's current title.
    Bytes createNameData();
    // The full block when the title changed since the last one sent (which it
    // then becomes), else the single byte 0.
    Broadcaster::Block nameData();
    void setCurrentName(std::string name);

    // The ICY metadata block for a title: a length byte N, then N * 16 bytes of
    // "StreamTitle='<title>';StreamUrl='';" in UTF-8 (the title cut at a
    // character boundary when too long), zero-padded. N is the text length / 16 + 1.
    static Bytes metadataBlock(std::string_view title);

    // For players: whether the connection still streams, and its header.
    bool connectionLive() const;
    std::string streamHeader() const;

private:
    // What one feed pass needs of the connection, read once.
    struct Snapshot {
        unsigned bufferSize = 0;
        bool hasMeta = false;
        std::string title;
    };

    void incommingConnection(std::shared_ptr<TCPSocket> client);
    void feedStreams();
    // One pass of the feed thread; false when the connection no longer streams.
    bool feedPass();
    bool snapshot(Snapshot& out) const;
    Broadcaster::Block nameDataFor(const std::string& title);
    Broadcaster::Block takeBlock(unsigned bufferSize);
    // Waits one cadence (and, while no player is connected, until one is);
    // false once feeding stops.
    bool pause();
    // Drops every waiting block but the newest.
    void keepNewestBlock();
    void setPlayerCount(int players);
    // Players not yet stopped: those a new one is counted against.
    int activePlayers() const;

    const Settings settings_;

    mutable std::mutex ownerMutex_;
    RelaySource* owner_;  // guarded by ownerMutex_

    mutable std::mutex feedMutex_;
    std::shared_ptr<TCPSocket> server_;  // guarded by feedMutex_
    std::thread feedThread_;             // guarded by feedMutex_
    std::atomic<bool> isStreaming_{false};
    std::atomic<std::uint16_t> listeningPort_{0};

    mutable std::mutex playersMutex_;
    std::vector<std::unique_ptr<Broadcaster>> clients_;  // guarded by playersMutex_

    std::mutex nameMutex_;
    std::string currentName_;  // guarded by nameMutex_

    std::mutex pendingMutex_;
    std::deque<Broadcaster::Block> pending_;  // guarded by pendingMutex_
    std::size_t pendingBytes_ = 0;            // guarded by pendingMutex_

    std::mutex wakeMutex_;
    std::condition_variable wake_;
    int playerCount_ = 0;  // guarded by wakeMutex_: the feed thread idles at 0
};

}  // namespace quillon
