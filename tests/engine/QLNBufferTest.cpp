#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "engine/QLNBuffer.h"
#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"
#include "platform/NamedException.h"

using namespace quillon;

// Counts allocations made by this thread while counting is switched on, to show
// that the writer's steady state allocates nothing per block.
namespace {
thread_local bool countAllocations = false;
std::atomic<long> allocations{0};
}  // namespace

// GCC pairs the inlined malloc with the delete below and warns, although both
// halves are replaced together.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    if (countAllocations) allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

constexpr std::int64_t kPerSecond = 16000;  // 128 kbit/s
constexpr std::size_t kBlock = 8192;

// A byte pattern that repeats every 251 bytes, so a byte out of place shows.
std::uint8_t patternAt(std::int64_t position) { return static_cast<std::uint8_t>(position % 251); }

// Feeds the writer a continuous stream, block by block, as a connection does.
class Stream {
public:
    explicit Stream(QLNBuffer& writer) : writer_(writer), block_(kBlock) {}
    void feed(std::int64_t bytes) {
        while (bytes > 0) {
            std::size_t n = static_cast<std::size_t>(std::min<std::int64_t>(bytes, kBlock));
            for (std::size_t i = 0; i < n; ++i) block_[i] = patternAt(sent_ + static_cast<std::int64_t>(i));
            writer_.addData(std::span(block_.data(), n));
            sent_ += static_cast<std::int64_t>(n);
            bytes -= static_cast<std::int64_t>(n);
        }
    }
    std::int64_t sent() const { return sent_; }

private:
    QLNBuffer& writer_;
    std::vector<std::uint8_t> block_;
    std::int64_t sent_ = 0;
};

int fileCounter = 0;

struct TrackFile {
    std::string path = homePath("track-" + std::to_string(++fileCounter) + ".mp3");
    FileHandle open() const { return FileHandle::createForWriting(path); }
    std::size_t size() const { return readWholeFile(path).value_or(Bytes{}).size(); }
    // Whether the file holds exactly the stream's bytes from `from`, `length` of them.
    ::testing::AssertionResult holds(std::int64_t from, std::int64_t length) const {
        Bytes bytes = readWholeFile(path).value_or(Bytes{});
        if (static_cast<std::int64_t>(bytes.size()) != length)
            return ::testing::AssertionFailure()
                   << path << " has " << bytes.size() << " bytes, not " << length;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != patternAt(from + static_cast<std::int64_t>(i)))
                return ::testing::AssertionFailure() << path << " byte " << i << " is out of place";
        return ::testing::AssertionSuccess();
    }
};

}  // namespace

TEST(QLNBufferSizes, CapacityAndCutDistanceFromBitRateSecondsAndOffset) {
    struct Case {
        unsigned bitrate, seconds;
        int offset;
        std::uint32_t capacity;
        std::int64_t flushSize;
    };
    const Case cases[] = {
        {128, 60, 0, 960000, 480000},   {0, 60, 0, 960000, 480000},
        {128, 60, 5, 960000, 560000},   {128, 60, -10, 960000, 320000},
        {320, 60, 0, 2400000, 1200000}, {56, 60, 0, 420000, 210000},
        {128, 5, 0, 80000, 32000},      {128, 0, 3, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << c.bitrate << " kbit/s, " << c.seconds << " s, offset " << c.offset);
        QLNBuffer writer(c.seconds, c.offset);
        EXPECT_EQ(writer.capacity(), 0u);
        writer.initValues(c.bitrate);
        EXPECT_EQ(writer.capacity(), c.capacity);
        EXPECT_EQ(writer.flushSize(), c.flushSize);
    }
}

TEST(QLNBufferCuts, EachOffsetCutsTheFileAtItsByte) {
    for (int offset : {0, 5, -10}) {
        SCOPED_TRACE(::testing::Message() << "offset " << offset);
        QLNBuffer writer(60, offset);
        writer.initValues(128);
        TrackFile first, second;
        writer.setNewFileHandle(first.open());
        Stream stream(writer);
        stream.feed(1'000'000);
        // Steady state: the delay line plus less than one burst is held.
        std::int64_t held = static_cast<std::int64_t>(writer.bufferSize());
        EXPECT_GE(held, 480000);
        EXPECT_LE(held, 480000 + QLNBuffer::kWriteSlack);

        const std::int64_t titleChange = stream.sent();
        writer.setNewFileHandle(second.open());
        ASSERT_EQ(writer.pendingCuts(), std::vector<std::int64_t>{held + offset * kPerSecond});
        stream.feed(1'000'000);

        const std::int64_t cut = titleChange + offset * kPerSecond;
        EXPECT_TRUE(first.holds(0, cut));
        EXPECT_TRUE(second.holds(cut, static_cast<std::int64_t>(second.size())));
        EXPECT_EQ(cut + static_cast<std::int64_t>(second.size() + writer.bufferSize()), stream.sent());
        EXPECT_TRUE(writer.pendingCuts().empty());
    }
}

TEST(QLNBufferCuts, TwoQuickTitleChangesGiveEachFileItsSpan) {
    // With a positive offset the first cut is still ahead when the second title
    // arrives, so both cuts are queued.
    QLNBuffer writer(60, 5);
    writer.initValues(128);
    TrackFile first, second, third;
    writer.setNewFileHandle(first.open());
    Stream stream(writer);
    stream.feed(700'000);
    const std::int64_t cut1 = stream.sent() + 5 * kPerSecond;
    writer.setNewFileHandle(second.open());
    stream.feed(3 * kBlock + 100);
    const std::int64_t cut2 = stream.sent() + 5 * kPerSecond;
    writer.setNewFileHandle(third.open());
    EXPECT_EQ(writer.pendingCuts().size(), 2u);
    stream.feed(900'000);

    EXPECT_TRUE(writer.pendingCuts().empty());
    EXPECT_TRUE(first.holds(0, cut1));
    EXPECT_TRUE(second.holds(cut1, cut2 - cut1));
    EXPECT_TRUE(third.holds(cut2, static_cast<std::int64_t>(third.size())));
    EXPECT_EQ(cut2 + static_cast<std::int64_t>(third.size() + writer.bufferSize()), stream.sent());
}

TEST(QLNBufferCuts, ZeroOffsetCutsAtOnceAndEmptiesTheDelayLine) {
    QLNBuffer writer(60, 0);
    writer.initValues(128);
    TrackFile first, second;
    writer.setNewFileHandle(first.open());
    Stream stream(writer);
    stream.feed(600'000);
    const std::int64_t change = stream.sent();
    writer.setNewFileHandle(second.open());
    stream.feed(kBlock);
    // The whole delay line up to the title change went to the first file.
    EXPECT_TRUE(first.holds(0, change));
    EXPECT_EQ(writer.bufferSize(), kBlock);
    EXPECT_EQ(second.size(), 0u);
}

TEST(QLNBufferCuts, CutBeforeTheHeldAudioIsMadeAtItsFront) {
    QLNBuffer writer(60, -40);  // 40 s earlier reaches past the 30 s still held
    writer.initValues(128);
    TrackFile first, second;
    writer.setNewFileHandle(first.open());
    Stream stream(writer);
    stream.feed(800'000);
    const std::int64_t written = stream.sent() - static_cast<std::int64_t>(writer.bufferSize());
    writer.setNewFileHandle(second.open());
    EXPECT_EQ(writer.pendingCuts(), std::vector<std::int64_t>{0});
    stream.feed(kBlock);
    EXPECT_TRUE(writer.pendingCuts().empty());
    stream.feed(100'000);
    EXPECT_TRUE(first.holds(0, written));
    EXPECT_TRUE(second.holds(written, static_cast<std::int64_t>(second.size())));
}

TEST(QLNBufferCuts, AFlushWithoutPendingFileGoesOnIntoTheNullDevice) {
    QLNBuffer writer(60, 0);
    writer.initValues(128);
    TrackFile only;
    writer.setNewFileHandle(only.open());
    Stream stream(writer);
    stream.feed(5000);
    writer.flushBuffer(1000);
    EXPECT_EQ(writer.bufferSize(), 4000u);
    EXPECT_TRUE(writer.hasFileHandle());
    stream.feed(1'000'000);
    EXPECT_TRUE(only.holds(0, 1000));
}

TEST(QLNBufferData, GetDataFailures) {
    QLNBuffer writer(60, 0);
    const std::uint8_t bytes[] = {1, 2, 3, 4};
    writer.addData(bytes);
    struct Case {
        std::int64_t count;
        const char* name;
        const char* reason;
    };
    const Case cases[] = {
        {-1, "QLN BUFFER INCONSISTENT VALUE", "QLN BUFFER INCONSISTENT VALUE"},
        {10, "not enough data", "trying to get 10 bytes, only 4 bytes in data object"},
    };
    for (const Case& c : cases) {
        try {
            writer.getData(c.count);
            ADD_FAILURE() << "no failure for " << c.count;
        } catch (const NamedException& e) {
            EXPECT_EQ(e.name(), c.name);
            EXPECT_EQ(e.reason(), c.reason);
        }
        EXPECT_THROW(writer.flushBuffer(c.count), NamedException);
    }
    EXPECT_EQ(writer.getData(2), (Bytes{1, 2}));
    EXPECT_EQ(writer.bufferSize(), 2u);
}

TEST(QLNBufferData, FilledValueOfTheDelayLine) {
    QLNBuffer writer(60, 5);
    Stream stream(writer);
    stream.feed(1000);
    EXPECT_EQ(writer.filledValue(), 0u);  // not sized yet
    writer.getData(1000);
    writer.initValues(0);
    stream.feed(240'000);
    EXPECT_EQ(writer.filledValue(), 50u);
    stream.feed(240'000);
    EXPECT_EQ(writer.filledValue(), 100u);
    // A pending cut 5 s ahead lets the held audio grow past the delay line.
    TrackFile a, b;
    writer.setNewFileHandle(a.open());
    writer.setNewFileHandle(b.open());
    stream.feed(70'000);
    EXPECT_EQ(writer.pendingCuts().size(), 1u);
    EXPECT_GT(writer.bufferSize(), 480000u + QLNBuffer::kWriteSlack);
    EXPECT_EQ(writer.filledValue(), 100u);
}

TEST(QLNBufferData, SteadyStateAllocatesNothingPerBlock) {
    QLNBuffer writer(60, 0);
    writer.initValues(128);
    writer.setNewFileHandle(FileHandle::nullDevice());
    Stream stream(writer);
    stream.feed(2'000'000);  // warm up: delay line full, storage at its size
    allocations = 0;
    countAllocations = true;
    stream.feed(4'000'000);
    countAllocations = false;
    EXPECT_EQ(allocations.load(), 0);
}
