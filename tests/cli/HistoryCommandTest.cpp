// `quillon history`, run as a user would: listing, searching, adding files by hand and deleting with and
// without a confirmation.
#include <filesystem>

#include <nlohmann/json.hpp>

#include "cli/CliTest.h"
#include "history/HistoryTestSupport.h"
#include "support/Terminal.h"

namespace quillon::test {

// Three tracks on two days, in a day file per day.
void seedHistory(const std::string& folder) {
    makeFolders(folder);
    History history(folder);
    history.addObjectToHistory(makeItem("Miles Davis - So What", "Jazz FM", localDate(2008, 7, 5, 9, 30),
                                        true, false, "/music/So What.mp3"));
    history.addObjectToHistory(
        makeItem("Nina Simone - Sinnerman", "Jazz FM", localDate(2008, 7, 5, 8, 15), false));
    history.addObjectToHistory(makeItem("Metallica - One", "Rock FM", localDate(2008, 7, 6, 22), true, true));
}

namespace {

class HistoryCommand : public CliTest {
protected:
    void SetUp() override {
        CliTest::SetUp();
        historyFolder_ = file("Library/Application Support/Quillon/History");
        seedHistory(historyFolder_);
    }
    std::string historyFolder_;
};

TEST_F(HistoryCommand, ListsDaysAndTheTracksOfADay) {
    auto days = quillon({"history", "list"});
    ASSERT_EQ(days.status, 0) << days.err;
    EXPECT_EQ(lines(days.out),
              (std::vector<std::string>{"2008_07_05\tSaturday, July 05 2008\t2 items, 1 complete",
                                        "2008_07_06\tSunday, July 06 2008\t1 items, 0 complete"}));

    auto json = nlohmann::json::parse(quillon({"history", "list", "--json"}).out);
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[1]["day"], "2008_07_06");
    EXPECT_EQ(json[1]["items"], 1);
    EXPECT_EQ(json[1]["complete"], 0);

    // A day as typed, with or without leading zeros; tracks in time order.
    for (const char* day : {"2008_07_05", "2008_7_5"}) {
        auto tracks = quillon({"history", "list", "--day", day});
        ASSERT_EQ(tracks.status, 0) << tracks.err;
        auto out = lines(tracks.out);
        ASSERT_EQ(out.size(), 3u);
        EXPECT_EQ(out[0], "Saturday, July 05 2008");
        EXPECT_EQ(out[1], "1\t8:15 am\tincomplete\tNina Simone - Sinnerman\tJazz FM\t");
        EXPECT_EQ(out[2], "2\t9:30 am\tcomplete\tMiles Davis - So What\tJazz FM\t/music/So What.mp3");
    }
    auto dayJson = nlohmann::json::parse(quillon({"history", "list", "--day", "2008_07_06", "--json"}).out);
    ASSERT_EQ(dayJson["tracks"].size(), 1u);
    EXPECT_EQ(dayJson["tracks"][0]["trackname"], "Metallica - One");
    EXPECT_EQ(dayJson["tracks"][0]["skipped"], true);
    EXPECT_EQ(dayJson["tracks"][0]["number"], 1);

    EXPECT_EQ(quillon({"history", "list", "--help"}).status, 0);
}

TEST_F(HistoryCommand, SearchMatchesTrackAndStationInAnyCase) {
    auto found = quillon({"history", "search", "JAZZ", "fm"});
    ASSERT_EQ(found.status, 0) << found.err;
    auto out = lines(found.out);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0], "2008_07_05\tSaturday, July 05 2008");
    // Numbers are those of the day's full list, for history rm.
    EXPECT_EQ(out[1].substr(0, 2), "1\t");
    EXPECT_EQ(out[2].substr(0, 2), "2\t");

    auto json = nlohmann::json::parse(quillon({"history", "search", "ONE", "Rock", "--json"}).out);
    ASSERT_EQ(json.size(), 1u);
    EXPECT_EQ(json[0]["day"], "2008_07_06");
    EXPECT_EQ(json[0]["tracks"][0]["trackname"], "Metallica - One");

    auto none = quillon({"history", "search", "opera", "--json"});
    EXPECT_EQ(none.status, 0);
    EXPECT_TRUE(nlohmann::json::parse(none.out).empty());
}

TEST_F(HistoryCommand, TitlesReachTheTerminalWithoutTheirControlCharacters) {
    const std::string title(kHostileTitle);
    {
        History history(historyFolder_);
        history.addObjectToHistory(makeItem(title, "Radio\x1b[H", localDate(2008, 7, 7, 12), true));
    }
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"history", "list", "--day", "2008_07_07"},
          {"history", "search", "evil"}}) {
        auto result = quillon(args);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_NE(result.out.find("Evil Title"), std::string::npos) << args[1];
        EXPECT_FALSE(holdsControlCharacter(result.out)) << args[1] << ": " << result.out;
    }
    // Only the printing changed: the day file keeps the title as it was received.
    auto day =
        HistoryDatabase::databaseAtPath(historyFolder_ + "/2008_07_07.historyDB", localDate(2008, 7, 7));
    ASSERT_NE(day, nullptr);
    EXPECT_EQ(day->objectAtIndex(0)->trackName(), title);
}

TEST_F(HistoryCommand, AddEntersMp3FilesByHand) {
    std::string music = file("music");
    makeFolders(music + "/sub");
    writeText(music + "/Alpha - One.mp3", "a");
    writeText(music + "/sub/Beta - Two.mp3", "b");
    writeText(music + "/sub/cover.jpg", "c");
    auto added = quillon({"history", "add", music, "--json"});
    ASSERT_EQ(added.status, 0) << added.err;
    auto json = nlohmann::json::parse(added.out);
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["trackname"], "Alpha - One");
    EXPECT_EQ(json[1]["path"], music + "/sub/Beta - Two.mp3");
    EXPECT_EQ(json[1]["radioname"], "(local HardDrive)");
    EXPECT_EQ(json[1]["complete"], true);

    // Saved: another run sees them.
    auto search = nlohmann::json::parse(quillon({"history", "search", "beta", "--json"}).out);
    ASSERT_EQ(search.size(), 1u);
    EXPECT_EQ(search[0]["tracks"][0]["trackname"], "Beta - Two");

    auto missing = quillon({"history", "add", music + "/none.mp3"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find("no such file or folder"), std::string::npos);
    auto notMp3 = quillon({"history", "add", music + "/sub/cover.jpg"});
    EXPECT_EQ(notMp3.status, 1);
    EXPECT_NE(notMp3.err.find("is not a recording"), std::string::npos);
}

TEST_F(HistoryCommand, RemoveTracksAndDays) {
    // Deleting asks first; with no terminal to ask on, nothing happens.
    auto refused = quillon({"history", "rm", "2008_07_06"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("add --yes"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(historyFolder_ + "/2008_07_06.historyDB"));

    auto track = quillon({"history", "rm", "2008_07_05:1", "--yes"});
    ASSERT_EQ(track.status, 0) << track.err;
    EXPECT_EQ(track.out, "Removed 1 track(s)\n");
    auto left = lines(quillon({"history", "list", "--day", "2008_07_05"}).out);
    ASSERT_EQ(left.size(), 2u);
    EXPECT_NE(left[1].find("Miles Davis - So What"), std::string::npos);

    auto day = quillon({"history", "rm", "-y", "2008_07_06"});
    ASSERT_EQ(day.status, 0) << day.err;
    EXPECT_EQ(day.out, "Removed day 2008_07_06\n");
    EXPECT_FALSE(std::filesystem::exists(historyFolder_ + "/2008_07_06.historyDB"));
    EXPECT_EQ(lines(quillon({"history", "list"}).out).size(), 1u);
}

TEST_F(HistoryCommand, RemoveAsksOnTheTerminal) {
    // "n" keeps the day and the track in it.
    auto kept = quillon({"history", "rm", "2008_07_06", "2008_07_05:2"}, "n\nn\n");
    ASSERT_EQ(kept.status, 0) << kept.err;
    EXPECT_NE(kept.err.find("Delete 1 track(s) from the history?"), std::string::npos);
    EXPECT_NE(kept.err.find("Delete this item ? Sunday, July 06 2008"), std::string::npos);
    EXPECT_EQ(kept.out, "Kept day 2008_07_06\nNothing deleted\n");
    EXPECT_EQ(lines(quillon({"history", "list"}).out).size(), 2u);
    EXPECT_EQ(lines(quillon({"history", "list", "--day", "2008_07_05"}).out).size(), 3u);

    auto removed = quillon({"history", "rm", "2008_07_06", "2008_07_05:2"}, "y\nyes\n");
    ASSERT_EQ(removed.status, 0) << removed.err;
    EXPECT_EQ(removed.out, "Removed day 2008_07_06\nRemoved 1 track(s)\n");
    EXPECT_EQ(lines(quillon({"history", "list"}).out).size(), 1u);
    EXPECT_EQ(lines(quillon({"history", "list", "--day", "2008_07_05"}).out).size(), 2u);
}

}  // namespace
}  // namespace quillon::test
