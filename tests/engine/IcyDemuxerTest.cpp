// The ICY demuxer over byte tables: blocks are cut only with the lookahead
// behind them, metadata follows each block, and the end of a stream gives
// back every audio byte that is left.
#include <gtest/gtest.h>

#include <string>

#include "engine/IcyDemuxer.h"
#include "platform/NamedException.h"

namespace quillon {
namespace {

using Meta = IcyDemuxer::Metadata;

// `blocks` audio blocks of `size` bytes (byte value = block number), each
// followed by the given metadata text (padded to 16-byte units), or by a zero
// length byte when the text is empty.
Bytes stream(std::size_t size, const std::vector<std::string>& metadata) {
    Bytes out;
    for (std::size_t b = 0; b < metadata.size(); ++b) {
        out.insert(out.end(), size, static_cast<std::uint8_t>(b + 1));
        const std::size_t units = (metadata[b].size() + 15) / 16;
        out.push_back(static_cast<std::uint8_t>(units));
        Bytes text(units * 16, 0);
        std::copy(metadata[b].begin(), metadata[b].end(), text.begin());
        out.insert(out.end(), text.begin(), text.end());
    }
    return out;
}

std::string text(std::span<const std::uint8_t> bytes) {
    std::string s(bytes.begin(), bytes.end());
    return s.substr(0, s.find('\0'));
}

TEST(IcyDemuxerTest, CutsBlocksWithTheirMetadataOnlyWithTheLookaheadBehind) {
    const std::size_t size = 1000;
    // Enough blocks that the lookahead (16 KiB) is covered for the first ones.
    std::vector<std::string> meta(40, "");
    meta[0] = "StreamTitle='A - x';";
    meta[2] = "StreamUrl='u';";
    Bytes bytes = stream(size, meta);
    IcyDemuxer demuxer(size, true);
    // Fed in odd-sized pieces: cutting must not depend on how bytes arrive.
    std::vector<IcyDemuxer::Block> seen;
    std::vector<std::string> texts;
    for (std::size_t at = 0; at < bytes.size(); at += 777) {
        demuxer.append(std::span(bytes).subspan(at, std::min<std::size_t>(777, bytes.size() - at)));
        for (std::size_t before = demuxer.held(); auto block = demuxer.next(); before = demuxer.held()) {
            ASSERT_EQ(block->audio.size(), size);
            EXPECT_EQ(block->audio.front(), seen.size() + 1);
            EXPECT_GE(before, size + IcyDemuxer::kLookahead) << "cut without the lookahead behind it";
            texts.push_back(text(block->metadataBytes));
            seen.push_back(*block);
        }
    }
    ASSERT_GE(seen.size(), 3u);
    EXPECT_EQ(seen[0].metadata, Meta::Block);
    EXPECT_EQ(texts[0], "StreamTitle='A - x';");
    EXPECT_EQ(seen[1].metadata, Meta::Empty);
    EXPECT_EQ(texts[2], "StreamUrl='u';");
    // The rest comes out at the end, the last block whole, nothing lost.
    std::size_t audio = seen.size() * size;
    while (auto block = demuxer.nextAtEnd()) audio += block->audio.size();
    EXPECT_EQ(audio, meta.size() * size);
    EXPECT_EQ(demuxer.held(), 0u);
}

TEST(IcyDemuxerTest, TheEndGivesBackEveryAudioByteAndDropsACutOffMetadataBlock) {
    struct Case {
        const char* what;
        bool hasMeta;
        Bytes bytes;
        std::vector<std::size_t> audio;  // block sizes expected at the end
    };
    Bytes cutOff = stream(10, {"StreamTitle='a long title';"});
    cutOff.resize(10 + 1 + 5);  // audio, length byte, 5 of 32 metadata bytes
    const Case cases[] = {
        {"short last block, no metadata", false, Bytes(25, 7), {10, 10, 5}},
        {"metadata cut off by the end", true, cutOff, {10}},
        {"audio then nothing", true, Bytes(4, 1), {4}},
        {"empty", true, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        IcyDemuxer demuxer(10, c.hasMeta);
        demuxer.append(c.bytes);
        EXPECT_FALSE(demuxer.next());
        std::vector<std::size_t> sizes;
        while (auto block = demuxer.nextAtEnd()) sizes.push_back(block->audio.size());
        EXPECT_EQ(sizes, c.audio);
    }
}

TEST(IcyDemuxerTest, ALengthByteOf128OrMoreLosesSyncAndDropsWhatIsHeld) {
    for (std::uint8_t length : {0x80, 0xff}) {
        Bytes bytes(100 + IcyDemuxer::kLookahead, 0);
        bytes[100] = length;
        IcyDemuxer demuxer(100, true);
        demuxer.append(bytes);
        try {
            demuxer.next();
            ADD_FAILURE() << "no failure for length byte " << int(length);
        } catch (const NamedException& e) {
            EXPECT_EQ(e.reason(), "Error getting name : stream sync failed");
        }
        EXPECT_EQ(demuxer.held(), 0u);
    }
}

}  // namespace
}  // namespace quillon
