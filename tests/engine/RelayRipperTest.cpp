// The relay of a recording connection against the built-in station: what
// players receive compared with what the connection wrote, a real player that
// reports the titles, relaying without recording, opening the player, and the
// relay ports of several connections.
#include <unistd.h>

#include <atomic>

#include "RipperTestSupport.h"
#include "engine/RipperRelay.h"
#include "net/RelayPlaylist.h"
#include "net/RelayTestSupport.h"
#include "platform/AtomicFile.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

constexpr std::size_t kTagSize = 714;

// An owner that hands out relay ports as the activity list does: the first port
// from `base` up that no live connection of its own uses.
class RelayOwner : public RecordingOwner {
public:
    RelayOwner(std::string folder, std::uint16_t base) : RecordingOwner(std::move(folder)), base_(base) {}
    std::uint16_t firstFreeRelay() override {
        if (base_ == 0) return 0;
        std::uint16_t candidate = base_;
        for (bool taken = true; taken;) {
            taken = false;
            for (Ripper* r : live)
                if (r->servePort() == candidate) taken = true, ++candidate;
        }
        return candidate;
    }
    std::vector<Ripper*> live;

private:
    std::uint16_t base_;
};

class RelayRipperTest : public RipperFixture {
protected:
    void SetUp() override {
        RipperFixture::SetUp();
        timing().relayCadence = 0.005;
        timing().acceptWait = 0.2;
    }

    // Services whose relay reports its port into `port`.
    static ConnectionServices relayServices(std::atomic<std::uint16_t>& port) {
        ConnectionServices services;
        services.makeRelay = RipperRelay::factory([&port](std::uint16_t p) { port = p; });
        return services;
    }

    // The counter at ten blocks of 4000 bytes a second: slow enough that the
    // relay never has to drop a block.
    static StationOptions gentleStation() {
        StationOptions options = counterStation();
        options.rate = StationRate::realtime;
        options.bitrate = 320;
        options.metaint = 4000;
        return options;
    }

    // The audio of the one file recorded, after its tag.
    std::string recordedAudio() {
        auto files = filesUnder(folder_);
        EXPECT_EQ(files.size(), 1u);
        if (files.empty()) return "";
        auto bytes = readWholeFile(joinPath(folder_, files.front()));
        if (!bytes || bytes->size() < kTagSize) return "";
        return std::string(bytes->begin() + kTagSize, bytes->end());
    }
};

TEST_F(RelayRipperTest, TwentyPlayersGetExactlyTheRecordedAudioWhileAnotherStalls) {
    // At full speed, so that the file writer's 30-second delay line is passed
    // soon; the relay then drops blocks it cannot pass on in time, so a player
    // gets whole recorded blocks in stream order, with gaps.
    constexpr std::size_t kBlock = 16000;
    StationOptions options = counterStation();
    options.metaint = kBlock;
    options.titles = {"Solo - Track"};
    options.titleEvery = 0;
    Station station(options);
    station.start();
    RelayOwner owner(folder_, 0);
    std::atomic<std::uint16_t> port{0};
    std::vector<std::unique_ptr<RelayClient>> players;
    std::vector<std::string> received;
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), false, false, relayServices(port));
        ASSERT_TRUE(runUntil([&] { return port != 0; }));
        RelayClient stalled(port, {.reading = false});
        // One at a time: the listen queue is short, and each is handed over on
        // this (the main) thread.
        for (int i = 0; i < 20; ++i) {
            players.push_back(std::make_unique<RelayClient>(port));
            ASSERT_TRUE(runUntil([&] { return players.back()->receivedSize() > 0; }));
        }
        ASSERT_TRUE(runUntil([&] {
            for (auto& p : players)
                if (parseIcyReply(p->received(), kBlock).audio.size() < 12 * kBlock) return false;
            return true;
        }));
        // What the players got so far must leave the delay line before the file ends.
        for (auto& p : players) received.push_back(p->received());
        const std::uint64_t reached = ripper.bytesRead();
        ASSERT_TRUE(runUntil([&] { return ripper.bytesRead() > reached + 30 * 16000 + 200000; }));
        ripper.userClose();
    }
    station.stop();
    const std::string file = recordedAudio();
    // The recording is the unbroken stream from its first byte.
    ASSERT_GT(file.size(), 12 * kBlock);
    for (std::size_t i = 0; i < file.size(); ++i)
        ASSERT_EQ(static_cast<std::uint8_t>(file[i]), Station::counterByte(i)) << "file byte " << i;
    const std::string& stream = file;
    for (std::size_t n = 0; n < players.size(); ++n) {
        SCOPED_TRACE("player " + std::to_string(n));
        IcyStream got = parseIcyReply(received[n], kBlock);
        EXPECT_TRUE(got.wellFormed);
        EXPECT_NE(got.header.find("icy-metaint:16000\r\n"), std::string::npos) << got.header;
        // Each block is a block of the stream, later than the one before: the
        // first block, which carries the first title, is relayed but not recorded.
        // The counter repeats every 251 bytes, so a block's bytes place it only
        // within 251 blocks; taking the earliest fit never rejects a true order.
        const auto blocks = got.audioBlocks(kBlock);
        std::size_t next = 0;
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            while ((next + 1) * kBlock <= stream.size() &&
                   stream.compare(next * kBlock, kBlock, blocks[i]) != 0)
                ++next;
            ASSERT_LE((next + 1) * kBlock, stream.size())
                << "block " << i << " is not in the stream after block " << next;
            ++next;
        }
        // The title with the first block, and never another one. (Whichever player
        // is first in the relay's list may hear it once more: the relay's last
        // title starts out empty, so the first title counts as a change.)
        ASSERT_FALSE(got.meta.empty());
        EXPECT_EQ(streamTitle(got.meta.front().text), "Solo - Track");
        int repeats = 0;
        for (std::size_t i = 1; i < got.meta.size(); ++i) {
            if (got.meta[i].length == 0) continue;
            EXPECT_EQ(streamTitle(got.meta[i].text), "Solo - Track") << i;
            ++repeats;
        }
        EXPECT_LE(repeats, 1);
    }
}

TEST_F(RelayRipperTest, MpegPlayerReportsTheStationTitlesAsTheyChange) {
    StationOptions options;
    options.payload = StationPayload::mp3;
    options.rate = StationRate::realtime;
    options.bitrate = 128;
    options.metaint = 8000;
    options.titles = {"Alpha - One", "Beta - Two", "Gamma - Three", "Delta - Four", "Omega - Five"};
    options.titleEvery = 24000;  // a new title every 1.5 seconds
    Station station(options);
    station.start();
    RelayOwner owner(folder_, 0);
    std::atomic<std::uint16_t> port{0};
    const std::string output = homePath("mpg123.txt");
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), true, false, relayServices(port));
        ASSERT_TRUE(runUntil([&] { return port != 0; }));
        // About five seconds of audio, decoded and thrown away.
        ServerProcess player(
            {"mpg123", "-v", "-t", "-n", "190", "http://127.0.0.1:" + std::to_string(port) + "/"}, output);
        ASSERT_GT(player.pid(), 0);
        EXPECT_TRUE(runUntil([&] { return !player.running(); }, 60));
        ripper.userClose();
    }
    station.stop();
    auto text = readWholeFile(output);
    ASSERT_TRUE(text);
    std::string log(text->begin(), text->end());
    std::vector<std::size_t> seen;  // indexes of the titles in the order reported
    for (std::size_t at = log.find("StreamTitle='"); at != std::string::npos;
         at = log.find("StreamTitle='", at + 1)) {
        std::string title = streamTitle(log.substr(at, 64)).value_or("");
        auto it = std::find(options.titles.begin(), options.titles.end(), title);
        ASSERT_NE(it, options.titles.end()) << title;
        const auto index = static_cast<std::size_t>(it - options.titles.begin());
        // A player joins with the title it is told at once, which may be told
        // again with the next block; only changes count.
        if (seen.empty() || seen.back() != index) seen.push_back(index);
    }
    ASSERT_GE(seen.size(), 2u) << log;
    // Each report is the station's next title.
    for (std::size_t i = 1; i < seen.size(); ++i)
        EXPECT_EQ(seen[i], (seen[i - 1] + 1) % options.titles.size()) << log;
}

TEST_F(RelayRipperTest, RelayOnlyConnectionServesPlayersAndWritesNoFile) {
    StationOptions options = gentleStation();
    options.metaint = 0;  // no metadata: 8192-byte blocks
    Station station(options);
    station.start();
    RelayOwner owner(folder_, 0);
    std::atomic<std::uint16_t> port{0};
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), true, false, relayServices(port));
        ASSERT_TRUE(runUntil([&] { return port != 0; }));
        RelayClient player(port);
        ASSERT_TRUE(runUntil([&] { return parseIcyReply(player.received(), 0).audio.size() >= 4 * 8192; }));
        EXPECT_EQ(ripper.ripperState(), Ripper::State::Relaying);
        // Audio only: every 8192 bytes one unbroken run of the counter; a
        // metadata byte anywhere would break the run.
        for (const auto& block : parseIcyReply(player.received(), 0).audioBlocks(8192)) {
            const auto first = static_cast<std::uint8_t>(block[0]);
            for (std::size_t i = 0; i < block.size(); ++i)
                ASSERT_EQ(static_cast<std::uint8_t>(block[i]), (first + i) % 251) << i;
        }
        ripper.userClose();
    }
    EXPECT_TRUE(filesUnder(folder_).empty());
}

TEST_F(RelayRipperTest, AutoListenOpensThePlaylistInThePlayer) {
    timing().autoListenDelay = 0.05;
    const std::string copies = homePath("player-saw");
    ASSERT_TRUE(makeFolders(copies));
    RelayPlaylist::setPath(homePath("restream.pls"));
    prefs().setParam("cp -t '" + copies + "'", "playerCommand");
    Station station(gentleStation());
    station.start();
    RelayOwner owner(folder_, 0);
    std::atomic<std::uint16_t> port{0};
    const std::string seen = joinPath(copies, "restream.pls");
    {
        Ripper ripper(owner, *bookmarkFor(station.port(), "Night Jazz"), true, true, relayServices(port));
        EXPECT_TRUE(runUntil([&] { return fileExists(seen); }));
        ripper.userClose();
    }
    RelayPlaylist::setPath("");
    auto bytes = readWholeFile(seen);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(std::string(bytes->begin(), bytes->end()),
              "[playlist]\nNumberOfEntries=1\nFile1=http://localhost:" + std::to_string(port) +
                  "\nTitle1=Night Jazz");
}

// Two free ports in a row, above the ephemeral range's usual start.
std::uint16_t freePortPair() {
    for (std::uint16_t p = 47000; p < 48000; p += 2) {
        bool free = true;
        for (std::uint16_t q : {p, static_cast<std::uint16_t>(p + 1)}) {
            int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_port = htons(q);
            if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) free = false;
            ::close(fd);
        }
        if (free) return p;
    }
    return 0;
}

TEST_F(RelayRipperTest, ConnectionsListenOnConsecutivePortsAndAStoppedOnesPortIsReused) {
    const std::uint16_t base = freePortPair();
    ASSERT_NE(base, 0);
    StationOptions options = gentleStation();
    Station station(options);
    station.start();
    RelayOwner owner(folder_, base);
    std::atomic<std::uint16_t> portA{0}, portB{0}, portC{0};
    auto a =
        std::make_unique<Ripper>(owner, *bookmarkFor(station.port(), "A"), true, false, relayServices(portA));
    owner.live.push_back(a.get());
    Ripper b(owner, *bookmarkFor(station.port(), "B"), true, false, relayServices(portB));
    owner.live.push_back(&b);
    ASSERT_TRUE(runUntil([&] { return portA != 0 && portB != 0; }));
    EXPECT_EQ(portA, base);
    EXPECT_EQ(portB, base + 1);

    RelayClient player(portA);
    ASSERT_TRUE(runUntil([&] { return !parseIcyReply(player.received(), options.metaint).meta.empty(); }));
    a->userClose();
    EXPECT_EQ(a->servePort(), 0);
    EXPECT_TRUE(runUntil([&] { return player.ended(); }));

    Ripper c(owner, *bookmarkFor(station.port(), "C"), true, false, relayServices(portC));
    owner.live.push_back(&c);
    ASSERT_TRUE(runUntil([&] { return portC != 0; }));
    EXPECT_EQ(portC, base);
    RelayClient next(portC);
    EXPECT_TRUE(runUntil([&] { return !parseIcyReply(next.received(), options.metaint).meta.empty(); }));
    b.userClose();
    c.userClose();
    owner.live.clear();
    a.reset();
}

TEST_F(RelayRipperTest, PlayersHearTheTitlesAsTheConvertedUtf8) {
    StationOptions options = gentleStation();
    options.titles = {"Кино - Группа крови"};
    options.titleEncoding = "CP1251";
    Station station(options);
    station.start();
    RelayOwner owner(folder_, 0);
    std::atomic<std::uint16_t> port{0};
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), true, false, relayServices(port));
        ASSERT_TRUE(runUntil([&] { return port != 0; }));
        RelayClient player(port);
        const auto titled = [&] {
            for (const auto& m : parseIcyReply(player.received(), options.metaint).meta)
                if (m.length > 0) return true;
            return false;
        };
        ASSERT_TRUE(runUntil(titled));
        ripper.userClose();
        const auto got = parseIcyReply(player.received(), options.metaint);
        const auto first =
            std::find_if(got.meta.begin(), got.meta.end(), [](const auto& m) { return m.length > 0; });
        ASSERT_NE(first, got.meta.end());
        EXPECT_EQ(streamTitle(first->text), "Кино - Группа крови");
    }
}

}  // namespace
}  // namespace quillon::test
