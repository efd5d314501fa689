// The decisions of track splitting and naming, over tables.
#include <gtest/gtest.h>

#include "engine/TrackSplitPolicy.h"
#include "platform/ByteBuffer.h"

namespace quillon {
namespace {

using Step = TrackSplitPolicy::Step;

TEST(TrackSplitPolicyTest, WhatATitleMeansForTheTracks) {
    struct Case {
        std::string title, last;
        int opened;
        bool sizeSplit;
        Step step;
    };
    const Case cases[] = {
        {"A - x", "", 0, false, Step::NewTrack},
        {"A - x", "A - x", 3, false, Step::Ignore},
        {"B - y", "A - x", 3, false, Step::NewTrack},
        {"", "A - x", 1, false, Step::Ignore},
        {"", "", 0, false, Step::Generic},
        {"", "", 0, true, Step::Chunk},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TrackSplitPolicy::onTitle(c.title, c.last, c.opened, c.sizeSplit), c.step) << c.title;
}

TEST(TrackSplitPolicyTest, TitlesFromMetadataAndTheirFileNames) {
    auto title = [](const char* text, bool clean) {
        return TrackSplitPolicy::titleFromMetadata(asBytes(text), clean, TitleEncoding::Charset::Auto);
    };
    EXPECT_EQ(title("StreamTitle='Artist - Song';StreamUrl='';", false), "Artist - Song");
    EXPECT_EQ(title("StreamTitle='AC/DC: Live!';", true), "ACDC Live");
    EXPECT_EQ(title("StreamUrl='http://x/';", false), std::nullopt);
    // Converted before it is cleaned: the letters of any script stay letters.
    EXPECT_EQ(title("StreamTitle='\xca\xe8\xed\xee: \xc3\xf0\xf3\xef\xef\xe0!';", true), "Кино Группа");
    EXPECT_EQ(title("StreamTitle='Caf\xe9';", true), "Café");

    EXPECT_EQ(TrackSplitPolicy::trackStem("AC/DC: Live", 0, false), "AC_DC  Live");
    EXPECT_EQ(TrackSplitPolicy::trackStem("Mr. X", 5, true), "005 Mr_ X");
    EXPECT_EQ(TrackSplitPolicy::trackStem("T", 1234, true), "234 T");  // titled tracks keep three digits
    EXPECT_EQ(TrackSplitPolicy::chunkStem("R-(1-2-2026@3:04)", 7), "007 R-(1-2-2026@3 04)");
    EXPECT_EQ(TrackSplitPolicy::chunkStem("R", 1000), "1000 R");  // chunks go past 999
}

TEST(TrackSplitPolicyTest, GenericTitlesInBothClockModes) {
    std::tm local{};
    local.tm_year = 2026 - 1900;
    local.tm_mon = 10;
    local.tm_mday = 15;
    local.tm_hour = 18;
    local.tm_min = 3;
    EXPECT_EQ(TrackSplitPolicy::genericTitle("Radio One", local, 24), "Radio One-(15-11-2026@18:03)");
    EXPECT_EQ(TrackSplitPolicy::genericTitle("Radio One", local, 12), "Radio One-(11-15-2026@6:03 pm)");
}

TEST(TrackSplitPolicyTest, WhereAFinishedTrackGoes) {
    struct Case {
        const char* what;
        int opened;
        bool artists;
        std::string path;
        std::optional<std::string> folder;
    };
    const Case cases[] = {
        {"the first track stays", 1, true, "/r/Incomplete/A - x.mp3", std::nullopt},
        {"out of Incomplete", 2, false, "/r/A - x.mp3", std::nullopt},
        {"into the artist's folder", 2, true, "/r/A/A - x.mp3", "/r/A"},
    };
    for (const auto& c : cases) {
        auto finished = TrackSplitPolicy::finishedPath("/r/Incomplete/A - x.mp3", c.opened, "Incomplete",
                                                       "A - x", " - ", c.artists);
        EXPECT_EQ(finished.path, c.path) << c.what;
        EXPECT_EQ(finished.artistFolder, c.folder) << c.what;
    }
}

}  // namespace
}  // namespace quillon
