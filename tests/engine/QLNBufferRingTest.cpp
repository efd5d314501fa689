// The writer's storage and files: bytes that wrap around the ring's end, cuts
// whose bytes straddle the wrap, growth while cuts are pending far ahead,
// storage that stays at the delay line's size however long the recording runs,
// and finished files that are whole at the cut and closed by the time the
// writer is gone.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/QLNBuffer.h"
#include "platform/AtomicFile.h"
#include "platform/FileHandle.h"
#include "platform/Home.h"

using namespace quillon;

namespace {

constexpr std::int64_t kPerSecond = 16000;  // 128 kbit/s

// A pattern that repeats every 253 bytes (prime, so it never lines up with a
// block size or the ring's size).
std::uint8_t ringPattern(std::int64_t position) { return static_cast<std::uint8_t>(position % 253); }

int ringFileCounter = 0;

std::string freshPath() { return homePath("ring-" + std::to_string(++ringFileCounter) + ".mp3"); }

// Feeds the stream in blocks of `block` bytes up to `until` bytes in all.
void feedTo(QLNBuffer& writer, std::int64_t& sent, std::int64_t until, std::size_t block) {
    std::vector<std::uint8_t> bytes(block);
    while (sent < until) {
        const auto n = static_cast<std::size_t>(std::min<std::int64_t>(until - sent, block));
        for (std::size_t i = 0; i < n; ++i) bytes[i] = ringPattern(sent + static_cast<std::int64_t>(i));
        writer.addData(std::span(bytes.data(), n));
        sent += static_cast<std::int64_t>(n);
    }
}

// Whether the files, in order, followed by what the writer still holds, are the
// stream from byte 0 without a byte lost, doubled or out of place; and whether
// each file but the first starts at its expected cut.
::testing::AssertionResult filesSpellTheStream(const std::vector<std::string>& paths,
                                               const std::vector<std::int64_t>& cuts, QLNBuffer& writer,
                                               std::int64_t sent) {
    std::int64_t position = 0;
    for (std::size_t f = 0; f < paths.size(); ++f) {
        if (f > 0 && f - 1 < cuts.size() && position != cuts[f - 1])
            return ::testing::AssertionFailure()
                   << "file " << f << " starts at " << position << ", not at its cut " << cuts[f - 1];
        Bytes bytes = readWholeFile(paths[f]).value_or(Bytes{});
        for (std::size_t i = 0; i < bytes.size(); ++i, ++position)
            if (bytes[i] != ringPattern(position))
                return ::testing::AssertionFailure() << "file " << f << " byte " << i << " is out of place";
    }
    const auto held = static_cast<std::int64_t>(writer.bufferSize());
    if (position + held != sent)
        return ::testing::AssertionFailure()
               << position << " bytes in files and " << held << " held, but " << sent << " sent";
    Bytes rest = writer.getData(held);
    for (std::size_t i = 0; i < rest.size(); ++i, ++position)
        if (rest[i] != ringPattern(position))
            return ::testing::AssertionFailure() << "held byte " << i << " is out of place";
    return ::testing::AssertionSuccess();
}

// The files this process has open now.
std::set<std::string> openFiles() {
    std::set<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        auto target = std::filesystem::read_symlink(entry.path(), error);
        if (!error) paths.insert(target.string());
    }
    return paths;
}

}  // namespace

TEST(QLNBufferRing, CutsAcrossTheWrapGiveEveryFileItsBytes) {
    struct Case {
        int offset;          // record offset in seconds
        std::size_t block;   // bytes per block
        std::int64_t every;  // bytes between title changes
    };
    const Case cases[] = {
        {0, 16000, 700'000},   // the common stream: cut at the title change
        {0, 7919, 333'333},    // odd blocks: the ring's end falls inside blocks
        {-10, 8192, 410'000},  // cuts 10 s back, inside the held audio
        {5, 45'000, 60'000},   // large blocks; each cut queued before the one before is made
        {25, 4096, 90'000},    // many cuts pending at once: the ring must grow
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "offset " << c.offset << ", block " << c.block << ", title every " << c.every);
        QLNBuffer writer(60, c.offset);
        writer.initValues(128);
        std::vector<std::string> paths{freshPath()};
        std::vector<std::int64_t> cuts;
        writer.setNewFileHandle(FileHandle::createForWriting(paths.back()));
        std::int64_t sent = 0;
        // Past the delay line first, so that the ring has wrapped before any cut.
        feedTo(writer, sent, 1'000'000, c.block);
        for (int title = 1; title <= 8; ++title) {
            feedTo(writer, sent, sent + c.every, c.block);
            // A cut further back than the held audio is made at its front.
            const std::int64_t front = sent - static_cast<std::int64_t>(writer.bufferSize());
            cuts.push_back(std::max(front, sent + c.offset * kPerSecond));
            paths.push_back(freshPath());
            writer.setNewFileHandle(FileHandle::createForWriting(paths.back()));
        }
        feedTo(writer, sent, sent + 1'500'000, c.block);
        ASSERT_TRUE(writer.pendingCuts().empty());
        EXPECT_TRUE(filesSpellTheStream(paths, cuts, writer, sent));
    }
}

TEST(QLNBufferRing, StorageStaysAtTheDelayLineOverALongRecording) {
    QLNBuffer writer(60, 0);
    writer.initValues(128);
    writer.setNewFileHandle(FileHandle::nullDevice());
    std::int64_t sent = 0;
    feedTo(writer, sent, 2'000'000, 16000);
    const std::size_t storage = writer.storageSize();
    // The audio is held once: the 480000-byte delay line, a burst and a block.
    EXPECT_GE(storage, 480000u + QLNBuffer::kWriteSlack + 16000u);
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));  // the ring is whole pages
    EXPECT_LE(storage, 480000u + QLNBuffer::kWriteSlack + QLNBuffer::kBlockAllowance + page - 1);
    for (int track = 0; track < 20; ++track) {
        writer.setNewFileHandle(FileHandle::nullDevice());
        feedTo(writer, sent, sent + 1'000'000, 16000);
    }
    EXPECT_EQ(writer.storageSize(), storage);
}

TEST(QLNBufferRing, TakingBytesAcrossTheWrapKeepsTheirOrder) {
    QLNBuffer writer(60, 0);
    writer.initValues(128);
    writer.setNewFileHandle(FileHandle::nullDevice());
    std::int64_t sent = 0;
    // Takes of every size, between blocks whose size is prime to the ring's, so
    // the front lies at ever other places against the ring's end.
    const std::int64_t takes[] = {1, 40'000, 3, 65'535, 20'000, 99'999, 250'000, 7};
    for (int round = 0; round < 12; ++round) {
        for (std::int64_t take : takes) {
            feedTo(writer, sent, sent + 77'777, 5'003);
            const std::int64_t front = sent - static_cast<std::int64_t>(writer.bufferSize());
            const Bytes got = writer.getData(take);
            ASSERT_EQ(static_cast<std::int64_t>(got.size()), take);
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_EQ(got[i], ringPattern(front + static_cast<std::int64_t>(i)))
                    << "round " << round << ", take " << take << ", byte " << i;
            EXPECT_EQ(front + take + static_cast<std::int64_t>(writer.bufferSize()), sent);
        }
    }
}

TEST(QLNBufferClose, FinishedFilesAreWholeAtTheCutAndClosedOnceTheWriterIsGone) {
    std::vector<std::string> paths{freshPath()};
    std::vector<std::int64_t> cuts;
    {
        QLNBuffer writer(60, 0);
        writer.initValues(128);
        writer.setNewFileHandle(FileHandle::createForWriting(paths.back()));
        std::int64_t sent = 0;
        feedTo(writer, sent, 1'000'000, 16000);
        // Quick title changes: each cut is made with the next block, so files
        // are handed over for closing faster than a disk may take them.
        for (int title = 0; title < 40; ++title) {
            cuts.push_back(sent);
            paths.push_back(freshPath());
            writer.setNewFileHandle(FileHandle::createForWriting(paths.back()));
            feedTo(writer, sent, sent + 20'000, 16000);
        }
        ASSERT_TRUE(writer.pendingCuts().empty());
        // Every finished file holds all its bytes already, closed or not.
        EXPECT_TRUE(filesSpellTheStream(paths, cuts, writer, sent));
        // The current file is open: the look at open files sees ours.
        ASSERT_EQ(openFiles().count(paths.back()), 1u);
    }
    const auto open = openFiles();
    for (const auto& path : paths) EXPECT_EQ(open.count(path), 0u) << path << " is still open";
}
