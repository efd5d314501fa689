#include <gtest/gtest.h>

#include "platform/ByteBuffer.h"
#include "platform/NamedException.h"

using namespace quillon;

namespace {

Bytes counting(std::size_t from, std::size_t n) {
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<std::uint8_t>((from + i) % 251);
    return b;
}

TEST(ByteBufferTest, TakesFromTheFrontInOrderAcrossCompactions) {
    ByteBuffer buf;
    std::size_t written = 0, read = 0;
    Bytes block;
    // Many small appends and takes: crosses the compaction threshold repeatedly.
    for (int round = 0; round < 400; ++round) {
        buf.append(counting(written, 1000));
        written += 1000;
        buf.getBytesInto(700, block);
        EXPECT_EQ(block, counting(read, 700));
        read += 700;
    }
    EXPECT_EQ(buf.size(), written - read);
    EXPECT_EQ(Bytes(buf.data(), buf.data() + buf.size()), counting(read, written - read));
}

TEST(ByteBufferTest, AskingForMoreThanHeldRaisesNotEnoughData) {
    ByteBuffer buf(counting(0, 10));
    try {
        buf.getBytes(11);
        FAIL() << "expected an exception";
    } catch (const NamedException& e) {
        EXPECT_EQ(e.name(), "not enough data");
        EXPECT_EQ(e.reason(), "trying to get 11 bytes, only 10 bytes in data object");
    }
    EXPECT_EQ(buf.size(), 10u);  // nothing was taken
    EXPECT_THROW(buf.dropFront(11), NamedException);
    buf.dropFront(10);
    EXPECT_TRUE(buf.empty());
    EXPECT_EQ(buf.getBytes(0).size(), 0u);
}

}  // namespace
