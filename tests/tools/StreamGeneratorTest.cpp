// One client's stream bytes, checked without sockets.
#include <gtest/gtest.h>

#include "StationTestSupport.h"
#include "station/Mp3Tones.h"
#include "station/Station.h"
#include "station/StreamGenerator.h"

namespace quillon {
namespace {

StationOptions counterOptions(std::uint64_t titleEvery = 2500) {
    StationOptions options;
    options.payload = StationPayload::counter;
    options.metaint = 1000;
    options.titleEvery = titleEvery;
    return options;
}

// `audioBytes` of audio (or less when the stream ends), made in pieces of `piece`.
Bytes generate(StreamGenerator& generator, std::size_t audioBytes, std::size_t piece) {
    Bytes out;
    for (std::size_t made = 0, n = 1; made < audioBytes && n > 0; made += n) {
        n = generator.produce(out, std::min(piece, audioBytes - made));
    }
    return out;
}

TEST(StreamGenerator, PieceSizeDoesNotChangeTheBytes) {
    const auto options = counterOptions(1700);
    StreamGenerator whole(options, true);
    const Bytes reference = generate(whole, 12345, 12345);
    EXPECT_EQ(test::parseIcy(reference, 1000).audio.size(), 12345u);
    EXPECT_EQ(whole.announcements(), TitlePlan(options).schedule(12345));
    for (std::size_t piece : {1u, 7u, 999u, 1000u, 1001u}) {
        StreamGenerator pieces(options, true);
        EXPECT_EQ(generate(pieces, 12345, piece), reference) << "pieces of " << piece;
    }
}

TEST(StreamGenerator, EndsExactlyAtTheCloseAfterLimit) {
    // On a block boundary the stream ends before that boundary's metadata block.
    const std::vector<std::pair<std::uint64_t, std::size_t>> cases = {{1, 0},    {999, 0},  {1000, 0},
                                                                      {1001, 1}, {5000, 4}, {5500, 5}};
    for (const auto& [limit, blocks] : cases) {
        auto options = counterOptions();
        options.closeAfter = limit;
        StreamGenerator generator(options, true);
        const Bytes bytes = generate(generator, 100000, 777);
        EXPECT_TRUE(generator.ended());
        const auto stream = test::parseIcy(bytes, options.metaint);
        EXPECT_EQ(stream.audio.size(), limit);
        EXPECT_EQ(stream.meta.size(), blocks) << limit;
        Bytes more;
        EXPECT_EQ(generator.produce(more, 100), 0u);
        EXPECT_TRUE(more.empty());
    }
}

TEST(StreamGenerator, BadLengthByteWhenTheChosenTitleIsAnnounced) {
    // Every 300 bytes several titles share a block: title 5 (due at byte 1500)
    // falls in the block announced at 2000, which shows title 6.
    const std::vector<std::tuple<std::uint64_t, std::uint32_t, std::uint64_t>> cases = {
        {2500, 0, 1000}, {2500, 2, 6000}, {300, 5, 2000}};
    for (const auto& [titleEvery, badAt, badOffset] : cases) {
        auto options = counterOptions(titleEvery);
        options.badMetaAt = badAt;
        StreamGenerator generator(options, true);
        const auto stream = test::parseIcy(generate(generator, 10001, 10001), options.metaint);
        std::vector<std::uint64_t> bad;
        for (const auto& block : stream.meta) {
            if (block.length < 128) continue;
            bad.push_back(block.audioOffset);
            EXPECT_TRUE(test::streamTitle(block.text)) << "long enough for what it claims";
        }
        EXPECT_EQ(bad, std::vector<std::uint64_t>{badOffset}) << badAt;
    }
}

TEST(StreamGenerator, RepeatTitleFillsEveryBlockButAnnouncesOnce) {
    auto options = counterOptions();
    options.repeatTitle = true;
    StreamGenerator generator(options, true);
    const auto stream = test::parseIcy(generate(generator, 6001, 6001), options.metaint);
    std::vector<std::string> titles;
    for (const auto& block : stream.meta) titles.push_back(test::streamTitle(block.text).value_or("-"));
    const TitlePlan plan(options);
    EXPECT_EQ(titles, (std::vector<std::string>{plan.title(0), plan.title(0), plan.title(1), plan.title(1),
                                                plan.title(1), plan.title(2)}));
    EXPECT_EQ(generator.announcements().size(), 3u);
}

TEST(StreamGenerator, Mp3AudioStaysFrameAlignedAndSwitchesToneAtAFrameBoundary) {
    StationOptions options;
    options.metaint = 1000;
    options.titleEvery = 10000;
    StreamGenerator generator(options, true);
    const Bytes audio = test::parseIcy(generate(generator, 40000, 40000), options.metaint).audio;
    std::vector<std::size_t> starts;
    std::size_t pos = 0;
    while (pos < audio.size()) {
        const auto length = Mp3Tones::frameLength(std::span(audio).subspan(pos));
        if (!length) break;
        starts.push_back(pos);
        pos += *length;
    }
    EXPECT_GT(pos + 4, audio.size()) << "a frame header is broken at byte " << pos;

    const auto loops = Mp3Tones::loops(options.bitrate);
    const auto& announcements = generator.announcements();
    ASSERT_GE(announcements.size(), 3u);
    for (const auto& a : announcements) {
        if (a.index % Mp3Tones::toneCount == 0) continue;  // tone 0 plays from the start
        // The title's tone loop begins at the first frame boundary at or after the announcement.
        const auto first = std::lower_bound(starts.begin(), starts.end(), a.audioOffset);
        ASSERT_NE(first, starts.end());
        const Bytes& expected = (*loops)[a.index % Mp3Tones::toneCount][0];
        ASSERT_LE(*first + expected.size(), audio.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), audio.begin() + *first)) << a.index;
    }
}

}  // namespace
}  // namespace quillon
