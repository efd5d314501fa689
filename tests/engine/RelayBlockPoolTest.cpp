#include "engine/RelayBlockPool.h"

#include <gtest/gtest.h>

#include <deque>
#include <thread>
#include <vector>

using namespace quillon;

namespace {

Bytes filled(std::size_t size, std::uint8_t value) { return Bytes(size, value); }

bool allAre(const Bytes& bytes, std::uint8_t value) {
    for (std::uint8_t b : bytes)
        if (b != value) return false;
    return true;
}

}  // namespace

TEST(RelayBlockPool, ABlockIsReusedOnlyOnceNobodyHoldsIt) {
    auto pool = RelayBlockPool::create();
    auto first = pool->make(filled(16000, 1));
    const std::uint8_t* firstBytes = first->data();
    auto second = pool->make(filled(16000, 2));
    // Held blocks are never handed out again, and keep their bytes.
    EXPECT_NE(second->data(), firstBytes);
    EXPECT_TRUE(allAre(*first, 1));
    EXPECT_TRUE(allAre(*second, 2));
    EXPECT_EQ(pool->freeBlocks(), 0u);

    auto copy = first;  // a second player holds it too
    first.reset();
    EXPECT_EQ(pool->freeBlocks(), 0u);
    copy.reset();
    EXPECT_EQ(pool->freeBlocks(), 1u);
    EXPECT_EQ(pool->freeControls(), 1u);

    auto third = pool->make(filled(8000, 3));
    EXPECT_EQ(third->data(), firstBytes);
    EXPECT_EQ(third->size(), 8000u);
    EXPECT_TRUE(allAre(*third, 3));
    EXPECT_EQ(pool->freeBlocks(), 0u);
    EXPECT_EQ(pool->freeControls(), 0u);
}

TEST(RelayBlockPool, SteadyStreamingMakesNoNewBlocks) {
    auto pool = RelayBlockPool::create();
    // A relay that keeps the last four blocks in flight.
    std::deque<std::shared_ptr<const Bytes>> inFlight;
    for (int n = 0; n < 2000; ++n) {
        inFlight.push_back(pool->make(filled(16000, static_cast<std::uint8_t>(n))));
        if (inFlight.size() > 4) inFlight.pop_front();
        ASSERT_TRUE(allAre(*inFlight.back(), static_cast<std::uint8_t>(n)));
        // Only five blocks ever exist: four held, at most one free.
        ASSERT_LE(inFlight.size() + pool->freeBlocks(), 5u) << "block " << n;
    }
    for (std::size_t i = 0; i < inFlight.size(); ++i)
        EXPECT_TRUE(allAre(*inFlight[i], static_cast<std::uint8_t>(2000 - inFlight.size() + i)));
}

TEST(RelayBlockPool, BlocksReleasedOnOtherThreadsAfterThePoolIsDropped) {
    auto pool = RelayBlockPool::create();
    std::vector<std::shared_ptr<const Bytes>> blocks;
    for (int n = 0; n < 64; ++n) blocks.push_back(pool->make(filled(4096, static_cast<std::uint8_t>(n))));
    std::weak_ptr<RelayBlockPool> watch = pool;
    pool.reset();  // the connection is gone; players still hold its blocks
    EXPECT_FALSE(watch.expired());

    std::vector<std::thread> players;
    for (int t = 0; t < 4; ++t) {
        std::vector<std::shared_ptr<const Bytes>> mine;
        for (std::size_t i = static_cast<std::size_t>(t); i < blocks.size(); i += 4)
            mine.push_back(blocks[i]);
        players.emplace_back([mine = std::move(mine)]() mutable {
            for (auto& block : mine) {
                EXPECT_EQ(block->size(), 4096u);
                block.reset();
            }
        });
    }
    for (std::size_t i = 0; i < blocks.size(); ++i)
        EXPECT_TRUE(allAre(*blocks[i], static_cast<std::uint8_t>(i)));
    blocks.clear();
    for (auto& player : players) player.join();
    // The last block let go took the pool with it.
    EXPECT_TRUE(watch.expired());
}
