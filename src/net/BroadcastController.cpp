#include "net/BroadcastController.h"

#include <arpa/inet.h>

#include <algorithm>
#include <chrono>
#include <exception>

#include "net/TCPSocket.h"
#include "platform/Log.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"

namespace quillon {

namespace {

constexpr std::string_view kTitlePrefix = "StreamTitle='";
constexpr std::string_view kTitleSuffix = "';StreamUrl='';";
// The length byte counts 16-byte units: at most 255 of them.
constexpr std::size_t kMaxText = 255 * 16 - 1;
// How many blocks may wait for the feed thread, and how many of the oldest go
// when more arrive: a relay with no player or a slow feed keeps only the latest.
constexpr std::size_t kMaxPendingBlocks = 8;
constexpr std::size_t kDroppedBlocks = 2;

const Broadcaster::Block& noChangeBlock() {
    static const Broadcaster::Block block = std::make_shared<const Bytes>(Bytes{0});
    return block;
}

}  // namespace

int BroadcastController::Settings::maxPlayersFrom(std::string_view text) {
    const int value = intValue(text);
    return value > 0 ? value : kDefaultMaxPlayers;
}

BroadcastController::BroadcastController(RelaySource& owner, Settings settings)
    : settings_(settings), owner_(&owner) {
    currentName_ = owner.currentTrack();
}

BroadcastController::BroadcastController(RelaySource& owner) : BroadcastController(owner, Settings{}) {}

BroadcastController::~BroadcastController() {
    stopFeeding();
    std::vector<std::unique_ptr<Broadcaster>> players;
    {
        std::lock_guard lock(playersMutex_);
        players.swap(clients_);
    }
    // Each stops its writer (waking a blocked write) and waits for it.
    players.clear();
}

void BroadcastController::startFeeding() {
    std::lock_guard lock(feedMutex_);
    if (isStreaming_) return;
    std::uint16_t port = 0;
    {
        std::lock_guard owner(ownerMutex_);
        if (!owner_) return;
        port = owner_->servePort();
    }
    auto server = std::make_shared<TCPSocket>();
    server->setNewClientHandler(
        [this](std::shared_ptr<TCPSocket> client, auto) { incommingConnection(std::move(client)); });
    // Deliberate: loopback only unless the user opens the relay to the network
    // (preference "relayAllInterfaces"), because the relay has no access control.
    if (!server->listenOnPort(
            port, settings_.allInterfaces ? Socket::Interfaces::all : Socket::Interfaces::loopback)) {
        server->setNewClientHandler(nullptr);
        Log::line("Unable to start broadcast controller.");
        return;
    }
    server_ = std::move(server);
    listeningPort_ = server_->listeningPort();
    isStreaming_ = true;
    feedThread_ = std::thread(&BroadcastController::feedStreams, this);
}

void BroadcastController::stopFeeding() {
    std::shared_ptr<TCPSocket> server;
    std::thread thread;
    {
        std::lock_guard lock(feedMutex_);
        server = std::move(server_);
        thread = std::move(feedThread_);
        listeningPort_ = 0;
        std::lock_guard wake(wakeMutex_);
        isStreaming_ = false;
    }
    wake_.notify_all();
    if (server) {
        server->setNewClientHandler(nullptr);
        // Waits for a new player's hand-off that the main thread is running.
        server->close();
    }
    if (thread.joinable()) thread.join();
}

void BroadcastController::feed(Broadcaster::Block block) {
    if (!block || block->empty()) return;
    const std::size_t unit = block->size();
    std::lock_guard lock(pendingMutex_);
    pendingBytes_ += unit;
    pending_.push_back(std::move(block));
    if (pendingBytes_ > kMaxPendingBlocks * unit) {
        for (std::size_t i = 0; i < kDroppedBlocks && !pending_.empty(); ++i) {
            pendingBytes_ -= pending_.front()->size();
            pending_.pop_front();
        }
    }
}

void BroadcastController::disposeOwner() {
    std::lock_guard lock(ownerMutex_);
    owner_ = nullptr;
}

int BroadcastController::count() const {
    std::lock_guard lock(playersMutex_);
    return static_cast<int>(clients_.size());
}

int BroadcastController::activePlayers() const {
    std::lock_guard lock(playersMutex_);
    return static_cast<int>(std::count_if(clients_.begin(), clients_.end(),
                                          [](const auto& player) { return player->broadcastState() != 0; }));
}

std::uint16_t BroadcastController::listeningPort() const { return listeningPort_; }

std::uint64_t BroadcastController::acceptAttempts() const {
    std::lock_guard lock(feedMutex_);
    return server_ ? server_->acceptAttempts() : 0;
}

Bytes BroadcastController::metadataBlock(std::string_view title) {
    std::string text(kTitlePrefix);
    const std::size_t maxTitle = kMaxText - kTitlePrefix.size() - kTitleSuffix.size();
    // Deliberate: the title goes out as the UTF-8 it was converted to when it
    // was read, not as Latin-1, because a Cyrillic or any other non-Western
    // title would reach the players as question marks; players read ICY
    // titles as UTF-8 first.
    text.append(utf8Prefix(title, maxTitle));
    text.append(kTitleSuffix);
    // A text of a whole number of units still gets one more, all zeros.
    const std::size_t units = text.size() / 16 + 1;
    Bytes block(1 + units * 16, 0);
    block[0] = static_cast<std::uint8_t>(units);
    std::copy(text.begin(), text.end(), block.begin() + 1);
    return block;
}

Bytes BroadcastController::createNameData() {
    std::string title;
    {
        std::lock_guard lock(ownerMutex_);
        if (owner_) title = owner_->currentTrack();
    }
    return metadataBlock(title);
}

Broadcaster::Block BroadcastController::nameData() {
    std::string title;
    {
        std::lock_guard lock(ownerMutex_);
        if (!owner_) return noChangeBlock();
        title = owner_->currentTrack();
    }
    return nameDataFor(title);
}

Broadcaster::Block BroadcastController::nameDataFor(const std::string& title) {
    std::lock_guard lock(nameMutex_);
    if (title == currentName_) return noChangeBlock();
    currentName_ = title;
    return std::make_shared<const Bytes>(metadataBlock(title));
}

void BroadcastController::setCurrentName(std::string name) {
    std::lock_guard lock(nameMutex_);
    currentName_ = std::move(name);
}

bool BroadcastController::connectionLive() const {
    std::lock_guard lock(ownerMutex_);
    return owner_ && owner_->ripperState() >= RelaySource::kStreaming;
}

std::string BroadcastController::streamHeader() const {
    std::lock_guard lock(ownerMutex_);
    return owner_ ? owner_->streamHeader() : std::string();
}

void BroadcastController::incommingConnection(std::shared_ptr<TCPSocket> client) {
    unsigned bufferSize = 0;
    unsigned kbps = 0;
    {
        std::lock_guard lock(ownerMutex_);
        if (!owner_) {
            client->close();
            return;
        }
        bufferSize = owner_->bufferSize();
        kbps = owner_->bitrate();
    }
    // Deliberate: the players are capped, because each costs a thread and a
    // descriptor and anyone who can reach the port can open more.
    const int players = activePlayers();
    if (players >= settings_.maxPlayers) {
        char peer[INET_ADDRSTRLEN] = "?";
        ::inet_ntop(AF_INET, &client->inetAddress().sin_addr, peer, sizeof peer);
        Log::info("Relay player refused: {} players already (relayMaxPlayers), from {}", players, peer);
        client->close();
        return;
    }
    // The player reads the request on its own thread: a player that sends
    // nothing must not hold up the main thread (and with it the recording).
    auto player =
        std::make_unique<Broadcaster>(*this, std::move(client), bufferSize, Broadcaster::backlogLimit(kbps));
    player->start();
    {
        std::lock_guard lock(playersMutex_);
        clients_.push_back(std::move(player));
    }
    setPlayerCount(count());
}

void BroadcastController::setPlayerCount(int players) {
    {
        std::lock_guard lock(wakeMutex_);
        playerCount_ = players;
    }
    wake_.notify_all();
}

bool BroadcastController::pause() {
    std::unique_lock lock(wakeMutex_);
    if (playerCount_ == 0) {
        // Nobody listens: sleep until a player comes rather than ten times a
        // second, then start from the newest audio, not from what piled up.
        wake_.wait(lock, [&] { return !isStreaming_ || playerCount_ > 0; });
        if (isStreaming_) keepNewestBlock();
    }
    wake_.wait_for(lock, std::chrono::duration<double>(timing().relayCadence), [&] { return !isStreaming_; });
    return isStreaming_;
}

void BroadcastController::keepNewestBlock() {
    std::lock_guard lock(pendingMutex_);
    while (pending_.size() > 1) {
        pendingBytes_ -= pending_.front()->size();
        pending_.pop_front();
    }
}

void BroadcastController::feedStreams() {
    while (isStreaming_) {
        if (!pause()) break;
        try {
            if (!feedPass()) break;
        } catch (const std::exception&) {
            // A failed pass loses at most its block; the next one goes on.
        }
    }
    // Writers sleep until data comes; tell them at once that none will.
    std::lock_guard lock(playersMutex_);
    for (auto& player : clients_) player->wake();
}

bool BroadcastController::snapshot(Snapshot& out) const {
    std::lock_guard lock(ownerMutex_);
    if (!owner_ || owner_->ripperState() < RelaySource::kStreaming) return false;
    out.bufferSize = owner_->bufferSize();
    out.hasMeta = owner_->hasMeta();
    out.title = owner_->currentTrack();
    return true;
}

Broadcaster::Block BroadcastController::takeBlock(unsigned bufferSize) {
    std::lock_guard lock(pendingMutex_);
    if (pendingBytes_ <= bufferSize || pending_.empty()) return nullptr;
    Broadcaster::Block block = std::move(pending_.front());
    pending_.pop_front();
    pendingBytes_ -= block->size();
    return block;
}

bool BroadcastController::feedPass() {
    Snapshot now;
    if (!snapshot(now)) return false;
    Broadcaster::Block block = takeBlock(now.bufferSize);
    std::vector<std::unique_ptr<Broadcaster>> removed;
    {
        std::lock_guard lock(playersMutex_);
        if (block) {
            Broadcaster::Block full;
            for (auto& player : clients_) {
                if (!player->ready()) continue;
                // The audio and its metadata block go out together.
                Broadcaster::Block parts[2] = {block, nullptr};
                if (now.hasMeta) {
                    if (player->firstTime()) {
                        if (!full) full = std::make_shared<const Bytes>(metadataBlock(now.title));
                        parts[1] = full;
                    } else {
                        // Shared by all: after a change only the first player sees it.
                        parts[1] = nameDataFor(now.title);
                    }
                }
                player->writeDataToBroadcast(std::span<const Broadcaster::Block>(parts, now.hasMeta ? 2 : 1));
            }
        }
        // The index advances past a removed player, so one that slides into its
        // place waits for the next pass.
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            if (clients_[i]->broadcastState() != 0) continue;
            removed.push_back(std::move(clients_[i]));
            clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    if (!removed.empty()) {
        setPlayerCount(count());
        {
            std::lock_guard lock(ownerMutex_);
            if (owner_) owner_->refreshStatus();
        }
        // Their writers have ended; this only reaps the threads.
        removed.clear();
        std::lock_guard lock(feedMutex_);
        if (server_) server_->removeClosedSockets();
    }
    return true;
}

}  // namespace quillon
