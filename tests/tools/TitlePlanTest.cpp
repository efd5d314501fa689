// The station's title rule: which title is announced at which audio offset.
#include <gtest/gtest.h>

#include "station/TitlePlan.h"

namespace quillon {
namespace {

StationOptions planOptions(std::uint64_t titleEvery) {
    StationOptions options;
    options.metaint = 100;
    options.titleEvery = titleEvery;
    return options;
}

TEST(TitlePlan, AnnouncesEachTitleAfterTheBlockHoldingItsFirstByte) {
    using Offsets = std::vector<std::pair<std::uint64_t, std::uint32_t>>;
    const std::vector<std::tuple<const char*, std::uint64_t, std::uint64_t, Offsets>> cases = {
        {"one title when titles never change", 0, 500, {{100, 0}}},
        {"thresholds inside blocks", 250, 800, {{100, 0}, {300, 1}, {600, 2}, {800, 3}}},
        {"threshold on a block's first byte", 200, 600, {{100, 0}, {300, 1}, {500, 2}}},
        {"one title per block", 100, 400, {{100, 0}, {200, 1}, {300, 2}, {400, 3}}},
        {"several titles per block: only the last", 30, 300, {{100, 3}, {200, 6}, {300, 9}}},
        {"limit between boundaries", 250, 799, {{100, 0}, {300, 1}, {600, 2}}},
        {"no complete block", 250, 99, {}},
    };
    for (const auto& [what, titleEvery, audioBytes, expected] : cases) {
        Offsets got;
        for (const auto& a : TitlePlan(planOptions(titleEvery)).schedule(audioBytes))
            got.emplace_back(a.audioOffset, a.index);
        EXPECT_EQ(got, expected) << what;
    }
    auto none = planOptions(100);
    none.metaint = 0;
    EXPECT_TRUE(TitlePlan(none).schedule(10000).empty()) << "no metadata, no titles";
}

TEST(TitlePlan, TitlesCycleThroughTheListOrAreGenerated) {
    auto options = planOptions(100);
    EXPECT_EQ(TitlePlan(options).title(41), "Artist 42 - Title 42");
    options.titles = {"A - x", "B - y", "C - z"};
    const auto schedule = TitlePlan(options).schedule(400);
    ASSERT_EQ(schedule.size(), 4u);
    EXPECT_EQ(schedule[1].title, "B - y");
    EXPECT_EQ(schedule[3].title, "A - x");
}

TEST(TitlePlan, MetadataBlocksArePaddedToSixteenByteUnits) {
    const std::string title = TitlePlan::metadataText("A - x");  // 33 bytes
    EXPECT_EQ(title, "StreamTitle='A - x';StreamUrl='';");
    const std::vector<std::tuple<std::string, std::uint8_t, std::uint8_t>> cases = {
        {"", 0, 0},
        {std::string(16, 'a'), 0, 1},
        {std::string(17, 'a'), 0, 2},
        {title, 0, 3},
        {title, 0x80, 0x83}};
    for (const auto& [text, flag, lengthByte] : cases) {
        const Bytes block = TitlePlan::metadataBlock(text, flag);
        ASSERT_EQ(block[0], lengthByte) << text;
        ASSERT_EQ(block.size(), 1u + lengthByte * 16u) << text;
        EXPECT_EQ(asText(block).substr(1, text.size()), text);
        EXPECT_EQ(std::count(block.begin() + 1 + text.size(), block.end(), 0),
                  block.size() - 1 - text.size());
    }
    // The longest title accepted still gets a length byte below 128.
    auto options = planOptions(100);
    options.titles = {std::string(TitlePlan::maxMetadataBytes - TitlePlan::metadataText("").size(), 'x')};
    EXPECT_NO_THROW(validate(options));
    EXPECT_LT(TitlePlan::metadataBlock(TitlePlan::metadataText(options.titles[0]))[0], 128);
    options.titles[0] += "x";
    EXPECT_THROW(validate(options), std::invalid_argument);
}

}  // namespace
}  // namespace quillon
