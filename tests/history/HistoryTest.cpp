// The history of a folder of day files: loading (with bad files left out),
// additions as tracks are recorded, the "skip" lookup, filtering, deleting,
// files added by hand, and additions from several threads at once.
#include <atomic>
#include <filesystem>
#include <thread>

#include <fmt/format.h>

#include "HistoryTestSupport.h"
#include "history/HistoryTrackLog.h"
#include "platform/Log.h"
#include "support/MainThread.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

using Database = HistoryDatabase;
using Names = std::vector<std::string>;

class HistoryTest : public HistoryFixture {
protected:
    void writeDay(const std::string& key, const std::vector<std::shared_ptr<HistoryItem>>& items) {
        Database day(*Database::dateFromKey(key));
        for (const auto& item : items) day.addObject(item);
        ASSERT_TRUE(day.saveAtPath(folder_, key));
    }

    // A fresh history of the folder, as the next start would load it.
    std::unique_ptr<History> reloaded() const {
        auto history = std::make_unique<History>(folder_);
        history->loadFromPath(folder_);
        return history;
    }

    static Names names(const Database& day) {
        Names out;
        for (const auto& item : day.logItems()) out.push_back(item->trackName());
        return out;
    }

    // The keys of the days as count/itemAtIndex show them.
    static Names shownDays(const History& history) {
        Names keys;
        for (std::size_t i = 0; i < history.count(); ++i) {
            keys.push_back(Database::keyFromDate(history.itemAtIndex(i)->date()));
        }
        return keys;
    }
};

TEST_F(HistoryTest, BadNamesAndCorruptDaysAreLoggedAndLeftOut) {
    auto empty = reloaded();
    EXPECT_EQ(empty->count(), 0u);
    EXPECT_EQ(empty->numberOfTracks(), 0);

    writeDay("2008_07_05", {makeItem("A", "r", localDate(2008, 7, 5, 10), true)});
    writeDay("2008_07_07", {makeItem("B", "r", localDate(2008, 7, 7, 10), true),
                            makeItem("C", "r", localDate(2008, 7, 7, 11), true, true)});
    writeText(dayFile("2008_07_06"), "<plist>broken");
    writeText(dayFile("notes"), "whatever");
    writeText(dayFile("2008_13"), "whatever");
    writeText(folder_ + "/readme.txt", "not a day file at all");
    std::filesystem::copy_file(dayFile("2008_07_05"), dayFile("2008_7_9") + ".bak");
    // A day file named without leading zeros is filed under its proper key.
    std::filesystem::copy_file(dayFile("2008_07_05"), dayFile("2008_7_8"));

    Log::Capture log;
    auto history = reloaded();
    EXPECT_EQ(history->dateKeys(), (Names{"2008_07_05", "2008_07_07", "2008_07_08"}));
    EXPECT_EQ(shownDays(*history), history->dateKeys());
    EXPECT_EQ(history->numberOfTracks(), 3);  // the skipped one does not count
    EXPECT_TRUE(log.contains("Unable to create a date from file name " + dayFile("notes")));
    EXPECT_TRUE(log.contains("Unable to create a date from file name " + dayFile("2008_13")));
    EXPECT_EQ(log.lines().size(), 4u);
    EXPECT_EQ(log.lines()[0].rfind("Unable to load history db at path " + dayFile("2008_07_06") + " : ", 0),
              0u);
    // The corrupt day went aside, so that the day's next addition cannot overwrite it.
    EXPECT_FALSE(std::filesystem::exists(dayFile("2008_07_06")));
    EXPECT_NE(log.lines()[1].find(dayFile("2008_07_06") + ".damaged-"), std::string::npos);
}

TEST_F(HistoryTest, AdditionsAreSortedAndSavedPerDay) {
    History history(folder_);
    auto late = makeItem("Late", "r", localDate(2008, 7, 5, 23, 59), false);
    history.addObjectToHistory(late);
    ASSERT_TRUE(history.flush());
    EXPECT_TRUE(std::filesystem::exists(dayFile("2008_07_05")));
    history.addObjectToHistory(makeItem("After", "r", localDate(2008, 7, 6, 0, 1), false));
    history.addObjectToHistory(makeItem("Early", "r", localDate(2008, 7, 5, 8, 0), true));
    // Seen at once in memory, written by the writer thread.
    EXPECT_EQ(history.dateKeys(), (Names{"2008_07_05", "2008_07_06"}));
    EXPECT_NE(history.existsInDatabase("Early"), nullptr);
    ASSERT_TRUE(history.flush());
    // 23:59 and 00:01 are two days, each with its own file.
    EXPECT_EQ(names(*reloaded()->databaseForKey("2008_07_05")), (Names{"Early", "Late"}));
    EXPECT_EQ(names(*reloaded()->databaseForKey("2008_07_06")), (Names{"After"}));

    // A change to an item reaches the file with the day's next save only.
    late->setComplete(true);
    EXPECT_EQ(reloaded()->numberOfTracks(), 1);
    history.addObjectToHistory(makeItem("Later", "r", localDate(2008, 7, 5, 23, 59, 30), false));
    ASSERT_TRUE(history.flush());
    EXPECT_EQ(reloaded()->numberOfTracks(), 2);
}

// Which tracks count is the day's rule (HistoryItems tests); across days the
// earliest wins, and the connection's log sees the same.
TEST_F(HistoryTest, ExistsInDatabaseLooksFromTheEarliestDay) {
    History history(folder_);
    history.addObjectToHistory(makeItem("Partial", "r", localDate(2008, 7, 5, 9), false, false, "/a.mp3"));
    history.addObjectToHistory(makeItem("Done", "r", localDate(2008, 7, 7, 9), true, false, "/second.mp3"));
    history.addObjectToHistory(makeItem("Done", "r", localDate(2008, 7, 6, 9), true, false, "/first.mp3"));
    ASSERT_NE(history.existsInDatabase("Done"), nullptr);
    EXPECT_EQ(history.existsInDatabase("Done")->path(), "/first.mp3");

    HistoryTrackLog log(std::shared_ptr<History>(&history, [](History*) {}));
    EXPECT_EQ(log.existing("Done")->path(), "/first.mp3");
    EXPECT_EQ(log.existing("Partial"), nullptr);
    auto entry = log.newItem("Fresh", "Radio", 4);
    entry->setComplete(true);
    log.add(entry);
    ASSERT_NE(history.existsInDatabase("Fresh"), nullptr);
    EXPECT_EQ(history.existsInDatabase("Fresh")->tracknum(), 4);
}

TEST_F(HistoryTest, SharedHistoryCreatesAndLoadsTheHomeFolder) {
    std::string folder = homePath("Library/Application Support/Quillon/History");
    std::filesystem::remove_all(folder);
    Log::Capture log;
    auto shared = History::history();
    EXPECT_TRUE(isFolder(folder));
    EXPECT_EQ(shared->folder(), folder);
    EXPECT_EQ(History::history(), shared);
    EXPECT_TRUE(log.contains("Unable to convert old history."));
    shared->addObjectToHistory(makeItem("Kept", "r", localDate(2008, 7, 5), true));
    History::resetShared();
    EXPECT_NE(History::history()->existsInDatabase("Kept"), nullptr);
    std::filesystem::remove_all(folder);
}

TEST_F(HistoryTest, FilterKeepsMatchingItemsPerDay) {
    History history(folder_);
    history.addObjectToHistory(makeItem("Miles Davis - So What", "Jazz FM", localDate(2008, 7, 5, 9), true));
    history.addObjectToHistory(
        makeItem("Nina Simone - Sinnerman", "Jazz FM", localDate(2008, 7, 5, 10), true));
    history.addObjectToHistory(makeItem("Metallica - One", "Rock FM", localDate(2008, 7, 6, 9), true));
    history.addObjectToHistory(
        makeItem("Miles Davis - Blue in Green", "Rock FM", localDate(2008, 7, 7, 9), true));

    struct Case {
        const char* keyword;
        Names days;
        std::size_t itemsOnFirstDay;
    };
    const Case cases[] = {
        {"miles", {"2008_07_05", "2008_07_07"}, 1},
        {"jazz fm", {"2008_07_05"}, 2},
        {"Miles", {}, 0},  // keywords are not lower-cased
        {"opera", {}, 0},
    };
    for (const Case& c : cases) {
        history.filter({{History::kFilterKeywords, PlistValue(c.keyword)}});
        EXPECT_TRUE(history.filtered());
        EXPECT_EQ(shownDays(history), c.days) << c.keyword;
        if (!c.days.empty()) {
            EXPECT_EQ(history.itemAtIndex(0)->count(), c.itemsOnFirstDay) << c.keyword;
        }
    }
    // The result shares the items; counts stay over the whole history.
    history.filter({{History::kFilterKeywords, PlistValue("sinnerman")}});
    EXPECT_EQ(history.itemAtIndex(0)->objectAtIndex(0),
              history.databaseForKey("2008_07_05")->objectAtIndex(1));
    EXPECT_EQ(history.numberOfTracks(), 4);

    // An empty or absent keyword restores the full view.
    for (const auto& options :
         {PlistValue::Dictionary{{History::kFilterKeywords, PlistValue("")}}, PlistValue::Dictionary{}}) {
        history.filter({{History::kFilterKeywords, PlistValue("miles")}});
        history.filter(options);
        EXPECT_FALSE(history.filtered());
        EXPECT_EQ(history.count(), 3u);
    }
}

TEST_F(HistoryTest, DeletingItemsAndDays) {
    struct Case {
        const char* name;
        DeleteConfirmation confirm;  // null: no one answers
        bool dayRemoved;
    };
    const Case cases[] = {
        {"OK", [](const DeleteAlert&) { return true; }, true},
        {"Cancel", [](const DeleteAlert&) { return false; }, false},
        {"no confirmation", nullptr, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(folder_);
        makeFolders(folder_);
        History history(folder_);
        std::vector<std::shared_ptr<HistoryItem>> items;
        for (int day = 5; day <= 7; ++day) {
            for (int hour = 8; hour <= 10; ++hour) {
                items.push_back(
                    makeItem(fmt::format("T{}-{}", day, hour), "r", localDate(2008, 7, day, hour), true));
                history.addObjectToHistory(items.back());
            }
        }
        ASSERT_TRUE(history.flush());
        std::string day6File = readText(dayFile("2008_07_06"));
        items[1]->markForDelete();  // the 5th, 9:00
        items[4]->markForDelete();  // the 6th, 9:00, in the marked day
        history.databaseForKey("2008_07_06")->markForDelete();
        history.setDeleteConfirmation(c.confirm);

        History::DeleteResult result = history.deleteItems();
        ASSERT_TRUE(history.flush());
        EXPECT_EQ(result.removedItems, 1u);
        EXPECT_EQ(names(*history.databaseForKey("2008_07_05")), (Names{"T5-8", "T5-10"}));
        if (c.dayRemoved) {
            EXPECT_EQ(history.dateKeys(), (Names{"2008_07_05", "2008_07_07"}));
            EXPECT_EQ(result.removedDays, Names{"2008_07_06"});
            EXPECT_FALSE(std::filesystem::exists(dayFile("2008_07_06")));
        } else {
            // A refused day keeps everything, its marked items included.
            EXPECT_EQ(result.keptDays, Names{"2008_07_06"});
            EXPECT_EQ(history.databaseForKey("2008_07_06")->count(), 3u);
            EXPECT_EQ(readText(dayFile("2008_07_06")), day6File);
        }
        // Items taken out of a day that stays are gone from memory only.
        EXPECT_EQ(reloaded()->databaseForKey("2008_07_05")->count(), 3u);
    }
}

// The command line's test covers folders, other files and the saved items;
// here: the extension's case, missing paths in a list, and the date.
TEST_F(HistoryTest, FilesAddedByHand) {
    std::string music = folder_ + "/music";
    makeFolders(music);
    writeText(music + "/Artist - Song.mp3", "x");
    writeText(music + "/Upper.MP3", "w");  // extensions as recordings get them, case included
    writeText(music + "/Station - Show.aac", "a");
    writeText(music + "/cover.jpg", "j");
    writeText(folder_ + "/Single.mp3", "s");
    std::filesystem::last_write_time(folder_ + "/Single.mp3", std::filesystem::file_time_type::clock::now() -
                                                                  std::chrono::hours(24 * 400));

    History history(folder_ + "/db");
    makeFolders(history.folder());
    auto added = history.addFiles({music, folder_ + "/gone.mp3", folder_ + "/Single.mp3"});
    ASSERT_EQ(added.size(), 3u);
    EXPECT_EQ(added[0]->path(), music + "/Artist - Song.mp3");
    EXPECT_EQ(added[1]->trackName(), "Station - Show");
    EXPECT_EQ(added[2]->trackName(), "Single");
    // Dated by the file's modification time: the old file is a day of its own.
    auto modified =
        std::chrono::file_clock::to_sys(std::filesystem::last_write_time(folder_ + "/Single.mp3"));
    EXPECT_EQ(std::chrono::duration_cast<std::chrono::seconds>(*added[2]->calDate() - modified).count(), 0);
    EXPECT_EQ(history.count(), 2u);  // days
}

TEST_F(HistoryTest, RefreshesAreQueuedToTheMainThreadAndCoalesced) {
    becomeMainThread();
    History history(folder_);
    std::atomic<int> refreshes{0};
    std::atomic<bool> onMain{true};
    history.setRefreshHandler([&] {
        onMain = onMain && MainLoop::main().isMainThread();
        ++refreshes;
    });
    std::thread recorder([&] {
        for (int i = 0; i < 5; ++i)
            history.addObjectToHistory(makeItem("T", "r", localDate(2008, 7, 5, 9, i), true));
    });
    recorder.join();
    EXPECT_EQ(refreshes, 0);  // nothing runs until the main loop does
    drainMainLoop();
    EXPECT_EQ(refreshes, 1);
    EXPECT_TRUE(onMain);
    history.addObjectToHistory(makeItem("U", "r", localDate(2008, 7, 5, 10), true));
    runUntil([&] { return refreshes > 1; }, 10);
    EXPECT_EQ(refreshes, 2);
}

TEST_F(HistoryTest, ConcurrentAdditionsFromRecordingThreads) {
    History history(folder_);
    constexpr int kThreads = 6;
    constexpr int kItems = 25;
    std::atomic<bool> stop{false};
    std::atomic<int> found{0};
    // Three days, so that days are created while others are saved. (The dates
    // are made here: mktime's first time-zone set-up is not for several threads.)
    std::vector<std::chrono::system_clock::time_point> dates;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kItems; ++i) dates.push_back(localDate(2008, 7, 5 + (i % 3), 9, t, i % 60));
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kItems; ++i) {
                auto item =
                    makeItem(fmt::format("Thread {} - Track {}", t, i), "r", dates[t * kItems + i], true);
                history.addObjectToHistory(item);
                item->setPath("/tmp/" + item->trackName());  // as a connection does after adding
                if (history.existsInDatabase(item->trackName())) ++found;
            }
        });
    }
    std::thread reader([&] {  // the history window meanwhile
        while (!stop) {
            history.filter({{History::kFilterKeywords, PlistValue("track 1")}});
            for (std::size_t i = 0; i < history.count(); ++i) {
                if (auto day = history.itemAtIndex(i)) day->numberOfTracks();
            }
        }
    });
    for (auto& t : threads) t.join();
    stop = true;
    reader.join();

    EXPECT_EQ(found, kThreads * kItems);
    ASSERT_TRUE(history.flush());
    // Each day file holds every item of its day, in time order.
    auto saved = reloaded();
    EXPECT_EQ(saved->dateKeys(), (Names{"2008_07_05", "2008_07_06", "2008_07_07"}));
    EXPECT_EQ(saved->numberOfTracks(), kThreads * kItems);
    for (const auto& key : saved->dateKeys()) {
        auto items = saved->databaseForKey(key)->logItems();
        for (std::size_t i = 1; i < items.size(); ++i) EXPECT_LE(items[i - 1]->date(), items[i]->date());
    }
}

// Python's plistlib reads a day file: an XML list of binary property lists,
// each a dictionary with the item's keys.
TEST_F(HistoryTest, PythonReadsADayFile) {
    const char* python = "/usr/bin/python3";
    if (!std::filesystem::exists(python)) GTEST_SKIP() << "python3 is not installed";
    History history(folder_);
    history.addObjectToHistory(makeItem("Björk - Jóga", "Radio <Ísland> & co",
                                        localDate(2008, 7, 5, 18, 3, 9), true, false, "/m/J.mp3"));
    history.addObjectToHistory(makeItem("Second", "R", localDate(2008, 7, 5, 19), false, true));
    ASSERT_TRUE(history.flush());  // the writer thread writes the day file
    const char* script = R"(
import plistlib, sys, datetime
with open(sys.argv[1], 'rb') as f:
    root = plistlib.load(f)
print(type(root).__name__, len(root))
for element in root:
    item = plistlib.loads(element)
    d = item['recorddate'].replace(tzinfo=datetime.timezone.utc).astimezone()
    print('|'.join([item['trackname'], item['radioname'], str(item['tracknum']), item['complete'],
                    item['skipped'], item.get('path', '-'), d.strftime('%Y-%m-%d %H:%M:%S')]))
)";
    auto result = runProcess({python, "-c", script, dayFile("2008_07_05")});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out,
              "list 2\n"
              "Björk - Jóga|Radio <Ísland> & co|3|YES|NO|/m/J.mp3|2008-07-05 18:03:09\n"
              "Second|R|3|NO|YES|-|2008-07-05 19:00:00\n");
}

}  // namespace
}  // namespace quillon::test
