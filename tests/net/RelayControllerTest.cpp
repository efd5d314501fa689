// The relay feeder against plain loopback players, with a scripted connection:
// what players receive and in which layout, who learns a title change, and how
// players that stall, vanish or never ask leave the others alone.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/BroadcastController.h"
#include "net/RelayTestSupport.h"
#include "platform/Log.h"
#include "support/Files.h"
#include "support/MainThread.h"

namespace quillon {
namespace {

using test::IcyStream;
using test::parseIcyReply;
using test::RelayClient;
using test::runUntil;
using test::ScriptedSource;

class RelayController : public test::RelayFixture {
protected:
    // Block n starts with n (4 bytes, big-endian), then repeats n's low byte,
    // so that order, gaps and torn blocks show.
    std::shared_ptr<const Bytes> block(unsigned size) {
        Bytes b(size, static_cast<std::uint8_t>(next_));
        for (int i = 0; i < 4; ++i) b[i] = static_cast<std::uint8_t>(next_ >> (24 - 8 * i));
        ++next_;
        return std::make_shared<const Bytes>(std::move(b));
    }
    static std::uint32_t indexOf(const std::string& audio) {
        std::uint32_t n = 0;
        for (int i = 0; i < 4; ++i) n = (n << 8) | static_cast<std::uint8_t>(audio[i]);
        return n;
    }
    // Every block whole and later than the one before it.
    static void expectWholeAndInOrder(const std::vector<std::string>& audio) {
        for (std::size_t i = 0; i < audio.size(); ++i) {
            std::uint32_t n = indexOf(audio[i]);
            EXPECT_EQ(audio[i].substr(4), std::string(audio[i].size() - 4, static_cast<char>(n & 0xFF))) << i;
            if (i > 0) {
                EXPECT_GT(n, indexOf(audio[i - 1])) << i;
            }
        }
    }
    // Feeds blocks on the main loop (which also hands players over) until the
    // condition holds.
    bool feedUntil(BroadcastController& relay, unsigned size, const std::function<bool()>& done,
                   double seconds = 20) {
        auto timer = MainLoop::main().addTimer(
            0.01, [&] { relay.feed(block(size)); }, true);
        bool ok = runUntil(done, seconds);
        MainLoop::main().cancelTimer(timer);
        return ok;
    }
    // The whole audio blocks a player received (the meta interval is the block size).
    static std::size_t blocksOf(const RelayClient& c, unsigned size, bool meta) {
        return parseIcyReply(c.received(), meta ? size : 0).audio.size() / size;
    }

    ScriptedSource source_;
    unsigned next_ = 0;

private:
    test::ScopedTiming savedTiming_;
};

TEST_F(RelayController, PlayerGetsTheHeaderThenBlocksEachFollowedByMetadata) {
    BroadcastController relay(source_);
    relay.startFeeding();
    ASSERT_TRUE(relay.isStreaming());
    ASSERT_NE(relay.listeningPort(), 0);  // servePort 0: the system chose one
    RelayClient player(relay.listeningPort());
    ASSERT_TRUE(feedUntil(relay, 1000, [&] { return blocksOf(player, 1000, true) >= 4; }));
    source_.setTitle("Second - Title");
    const std::size_t before = blocksOf(player, 1000, true);
    ASSERT_TRUE(feedUntil(relay, 1000, [&] { return blocksOf(player, 1000, true) >= before + 4; }));

    IcyStream got = parseIcyReply(player.received(), 1000);
    EXPECT_EQ(got.header, source_.streamHeader());
    EXPECT_TRUE(got.wellFormed);
    expectWholeAndInOrder(got.audioBlocks(1000));
    // The first block tells the title; then only the change is sent, once.
    EXPECT_EQ(got.titles(), (std::vector<std::string>{"First - Title", "Second - Title"}));
    EXPECT_EQ(relay.count(), 1);
}

TEST_F(RelayController, AfterATitleChangeOnlyTheFirstPlayerLearnsIt) {
    BroadcastController relay(source_);
    relay.startFeeding();
    RelayClient first(relay.listeningPort());
    ASSERT_TRUE(
        feedUntil(relay, 1000, [&] { return relay.count() == 1 && blocksOf(first, 1000, true) >= 1; }));
    RelayClient second(relay.listeningPort());
    ASSERT_TRUE(feedUntil(relay, 1000, [&] { return blocksOf(second, 1000, true) >= 2; }));
    source_.setTitle("Changed - Title");
    const std::size_t before = blocksOf(second, 1000, true);
    ASSERT_TRUE(feedUntil(relay, 1000, [&] { return blocksOf(second, 1000, true) >= before + 3; }));

    EXPECT_EQ(parseIcyReply(first.received(), 1000).titles(),
              (std::vector<std::string>{"First - Title", "Changed - Title"}));
    // The second learnt the title it joined with, and no change after it.
    EXPECT_EQ(parseIcyReply(second.received(), 1000).titles(), std::vector<std::string>{"First - Title"});
}

TEST_F(RelayController, StreamWithoutMetadataCarriesAudioOnly) {
    source_.meta = false;
    source_.blockSize = 8192;
    BroadcastController relay(source_);
    relay.startFeeding();
    RelayClient player(relay.listeningPort());
    ASSERT_TRUE(feedUntil(relay, 8192, [&] { return player.receivedSize() > 6 * 8192; }));
    std::string data = player.received();
    // Audio only: cut at 8192 bytes without metadata, every block is whole and
    // in order; a metadata byte anywhere would shift and tear the blocks after it.
    const auto blocks = parseIcyReply(data, 0).audioBlocks(8192);
    ASSERT_GE(blocks.size(), 6u);
    expectWholeAndInOrder(blocks);
}

TEST_F(RelayController, ATakenPortIsReportedAndFreedAgainWhenTheFeederGoes) {
    source_.port = test::unusedPort();
    auto first = std::make_unique<BroadcastController>(source_);
    first->startFeeding();
    ASSERT_EQ(first->listeningPort(), source_.port);

    Log::Capture log;
    BroadcastController second(source_);
    second.startFeeding();
    EXPECT_FALSE(second.isStreaming());
    EXPECT_EQ(second.listeningPort(), 0);
    EXPECT_TRUE(log.contains("Unable to start broadcast controller."));

    RelayClient player(source_.port);
    ASSERT_TRUE(feedUntil(*first, 1000, [&] { return blocksOf(player, 1000, true) >= 1; }));
    first.reset();  // closes the listener and ends its player
    EXPECT_TRUE(runUntil([&] { return player.ended(); }));
    EXPECT_FALSE(RelayClient(source_.port).connected());

    BroadcastController again(source_);
    again.startFeeding();
    EXPECT_EQ(again.listeningPort(), source_.port);
}

TEST_F(RelayController, StalledPlayerIsDroppedWhileTheOthersKeepReceiving) {
    // 30 seconds are 120000 bytes, some seven blocks; the kernel's buffers take
    // the first megabytes.
    source_.kbps = 32;
    source_.blockSize = 16000;
    BroadcastController relay(source_);
    relay.startFeeding();
    Log::Capture log;
    RelayClient stalled(relay.listeningPort(), {.reading = false});
    RelayClient reader(relay.listeningPort());
    ASSERT_TRUE(feedUntil(relay, 16000, [&] {
        return log.contains("Client disconnected. more than 30 seconds of audio behind");
    }));
    EXPECT_TRUE(runUntil([&] { return relay.count() == 1; }));
    const std::size_t before = blocksOf(reader, 16000, true);
    ASSERT_TRUE(feedUntil(relay, 16000, [&] { return blocksOf(reader, 16000, true) >= before + 5; }));
    IcyStream got = parseIcyReply(reader.received(), 16000);
    EXPECT_TRUE(got.wellFormed);
    expectWholeAndInOrder(got.audioBlocks(16000));
    EXPECT_GT(source_.refreshes.load(), 0);
}

// The most the kernel holds for one sender (its send buffer's upper bound).
std::size_t maxSendBuffer() {
    std::size_t low = 0, initial = 0, max = 4u << 20;
    if (std::FILE* f = std::fopen("/proc/sys/net/ipv4/tcp_wmem", "r")) {
        if (std::fscanf(f, "%zu %zu %zu", &low, &initial, &max) != 3) max = 4u << 20;
        std::fclose(f);
    }
    return max;
}

TEST_F(RelayController, SlowPlayerGetsEveryByteInOrderAsSendsPassToItsWriterAndBack) {
    // The relay sends faster than the slow player reads until more is owed than
    // the kernel can hold, so the rest waits for the player's writer; then the
    // feed pauses, the player catches up, and direct sends resume.
    source_.blockSize = 100000;
    source_.kbps = 1000000;  // no drop for falling behind here
    BroadcastController relay(source_);
    relay.startFeeding();
    RelayClient slow(relay.listeningPort(), {.restAfterRead = 0.001});
    RelayClient fast(relay.listeningPort());
    ASSERT_TRUE(runUntil([&] { return relay.count() == 2 && fast.receivedSize() > 0; }));
    const std::size_t owed = maxSendBuffer() + (2u << 20);
    ASSERT_TRUE(feedUntil(relay, 100000, [&] { return next_ * 100000 > slow.receivedSize() + owed; }));
    const unsigned fed = next_;
    ASSERT_TRUE(runUntil([&] { return blocksOf(slow, 100000, true) >= fed - 8; }, 60));
    const std::size_t before = blocksOf(slow, 100000, true);
    ASSERT_TRUE(feedUntil(relay, 100000, [&] { return blocksOf(slow, 100000, true) >= before + 10; }));
    for (const RelayClient* player : {&slow, &fast}) {
        IcyStream got = parseIcyReply(player->received(), 100000);
        EXPECT_TRUE(got.wellFormed);
        expectWholeAndInOrder(got.audioBlocks(100000));
    }
    EXPECT_EQ(relay.count(), 2);
}

TEST_F(RelayController, PlayerThatNeverAsksHoldsUpNeitherTheMainThreadNorOthers) {
    timing().streamReadTimeout = 60;
    BroadcastController relay(source_);
    relay.startFeeding();
    RelayClient silent(relay.listeningPort(), {.reading = true, .sendRequest = false});
    ASSERT_TRUE(runUntil([&] { return relay.count() == 1; }));
    RelayClient player(relay.listeningPort());
    ASSERT_TRUE(feedUntil(relay, 1000, [&] { return blocksOf(player, 1000, true) >= 3; }));
    // Still waiting for its request, and given nothing meanwhile.
    EXPECT_EQ(relay.count(), 2);
    EXPECT_EQ(silent.receivedSize(), 0u);
}

TEST_F(RelayController, PlayersThatVanishLeaveNoThreadOrDescriptorBehind) {
    // A thread started and joined first: a runtime's own helper thread (the
    // thread sanitizer starts one with the first thread) is then in the count.
    std::thread([] {}).join();
    const std::size_t descriptors = test::openDescriptorCount();
    const std::size_t threads = test::threadCount();
    {
        BroadcastController relay(source_);
        relay.startFeeding();
        std::vector<std::unique_ptr<RelayClient>> players;
        // One at a time: the listen queue is short, and each is handed over on
        // this (the main) thread.
        for (int i = 0; i < 6; ++i) {
            players.push_back(std::make_unique<RelayClient>(relay.listeningPort()));
            ASSERT_TRUE(runUntil([&] { return relay.count() == i + 1; }));
        }
        ASSERT_TRUE(feedUntil(relay, 1000, [&] {
            for (auto& p : players)
                if (p->receivedSize() < 3000) return false;
            return true;
        }));
        // Half reset mid-stream, half close in order.
        for (std::size_t i = 0; i < players.size(); ++i) {
            if (i % 2 == 0)
                players[i]->vanish();
            else
                players[i]->close();
        }
        ASSERT_TRUE(feedUntil(relay, 1000, [&] { return relay.count() == 0; }));
        players.clear();
        // Only the feeder's own listener and feed and accept threads remain.
        EXPECT_TRUE(runUntil([&] { return test::openDescriptorCount() == descriptors + 1; }))
            << test::openDescriptorCount() << " descriptors, " << descriptors << " before";
        EXPECT_TRUE(runUntil([&] { return test::threadCount() == threads + 2; }))
            << test::threadCount() << " threads, " << threads << " before";
    }
    EXPECT_EQ(test::openDescriptorCount(), descriptors);
    EXPECT_EQ(test::threadCount(), threads);
}

TEST_F(RelayController, PlayersEndWhenTheConnectionStopsStreaming) {
    BroadcastController relay(source_);
    relay.startFeeding();
    RelayClient a(relay.listeningPort()), b(relay.listeningPort());
    ASSERT_TRUE(
        feedUntil(relay, 1000, [&] { return blocksOf(a, 1000, true) >= 1 && blocksOf(b, 1000, true) >= 1; }));
    source_.state = 3;  // waiting to reconnect
    EXPECT_TRUE(runUntil([&] { return a.ended() && b.ended(); }));
    relay.disposeOwner();
    // A feeder whose connection is gone serves nobody new.
    RelayClient late(relay.listeningPort());
    EXPECT_TRUE(runUntil([&] { return late.ended(); }));
    EXPECT_EQ(late.receivedSize(), 0u);
}

}  // namespace
}  // namespace quillon
