// A connection recording the built-in station with the history on: the day
// files must follow the tracks as they are cut, and with "skip" on a title that
// is already in the history is not recorded again.
#include <filesystem>
#include <mutex>

#include <fmt/format.h>

#include "HistoryTestSupport.h"
#include "engine/RipperTestSupport.h"
#include "history/History.h"
#include "history/HistoryTrackLog.h"

namespace quillon::test {
namespace {

// The history log of a connection that reads the day file back as soon as each
// addition is written (on the connection's thread, where the addition runs) and
// keeps what it said about the added item.
class WatchedLog : public HistoryTrackLog {
public:
    explicit WatchedLog(std::shared_ptr<History> history) : HistoryTrackLog(history), history_(history) {}

    void add(std::shared_ptr<TrackHistoryEntry> entry) override {
        HistoryTrackLog::add(entry);
        EXPECT_TRUE(history_->flush());
        auto date = *std::dynamic_pointer_cast<HistoryItem>(entry)->calDate();
        auto day = HistoryDatabase::databaseAtPath(history_->databasePathForDate(date), date);
        std::lock_guard lock(mutex_);
        saved_.push_back(day && day->count() > 0 ? day->objectAtIndex(day->count() - 1) : nullptr);
    }
    std::vector<std::shared_ptr<HistoryItem>> saved() const {
        std::lock_guard lock(mutex_);
        return saved_;
    }

private:
    std::shared_ptr<History> history_;
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<HistoryItem>> saved_;
};

class HistoryRecordingTest : public RipperFixture {
protected:
    void SetUp() override {
        RipperFixture::SetUp();
        historyFolder_ = testFolder("history-recordings");
        history_ = std::make_shared<History>(historyFolder_);
        prefs().setState(true, "log");
    }

    StationOptions stationWithTitles() {
        StationOptions options = counterStation();
        for (int i = 0; i < 30; ++i) options.titles.push_back(fmt::format("Artist {:02} - Song {:02}", i, i));
        options.titleEvery = 100000;
        return options;
    }

    // Records until `tracks` files were opened, then stops.
    void record(const StationOptions& options, std::shared_ptr<TrackHistory> log, int tracks) {
        Station station(options);
        station.start();
        RecordingOwner owner(folder_);
        ConnectionServices services;
        services.history = std::move(log);
        {
            Ripper ripper(owner, *bookmarkFor(station.port()), false, false, services);
            EXPECT_TRUE(runUntil([&] { return ripper.trackCount() >= tracks; }));
            ripper.userClose();
        }
        station.stop();
    }

    // Every item of the day files, day by day, as a fresh history loads them.
    std::vector<std::shared_ptr<HistoryItem>> itemsOnDisk() const {
        History loaded(historyFolder_);
        loaded.loadFromPath(historyFolder_);
        std::vector<std::shared_ptr<HistoryItem>> items;
        for (const auto& key : loaded.dateKeys()) {
            for (const auto& item : loaded.databaseForKey(key)->logItems()) items.push_back(item);
        }
        return items;
    }

    std::string historyFolder_;
    std::shared_ptr<History> history_;
};

TEST_F(HistoryRecordingTest, DayFilesFollowTheRecordedTracks) {
    StationOptions options = stationWithTitles();
    record(options, std::make_shared<HistoryTrackLog>(history_), 4);

    auto items = itemsOnDisk();
    ASSERT_GE(items.size(), 4u);
    for (std::size_t i = 0; i < items.size(); ++i) {
        SCOPED_TRACE(i);
        const HistoryItem& item = *items[i];
        EXPECT_EQ(item.trackName(), options.titles[i]);
        EXPECT_EQ(item.radioName(), "Test Radio");
        EXPECT_EQ(item.tracknum(), static_cast<int>(i));
        EXPECT_FALSE(item.skipped());
        if (i + 1 == items.size()) {
            // The track being recorded when the connection stopped never ended.
            EXPECT_FALSE(item.complete());
            continue;
        }
        // The first track began mid-way and never counts as complete; the
        // following ones were recorded to their end.
        EXPECT_EQ(item.complete(), i > 0);
        EXPECT_EQ(item.path(), joinPath(folder_, options.titles[i] + ".mp3"));
        EXPECT_TRUE(std::filesystem::exists(item.path()));
    }
    EXPECT_EQ(history_->numberOfTracks(), static_cast<int>(items.size()) - 2);
}

TEST_F(HistoryRecordingTest, SkipRecordsKnownTitlesToTheNullDevice) {
    prefs().setState(true, "skip");
    StationOptions options = stationWithTitles();
    const std::string known = options.titles[2];
    const std::string earlierFile = "/earlier/recordings/" + known + ".mp3";
    // Recorded before, on another day and station; and an unfinished one that
    // does not count.
    auto before = std::chrono::system_clock::now() - std::chrono::hours(72);
    history_->addObjectToHistory(makeItem(known, "Other Radio", before, true, false, earlierFile));
    history_->addObjectToHistory(
        makeItem(options.titles[3], "Other Radio", before, false, false, "/partial.mp3"));

    auto log = std::make_shared<WatchedLog>(history_);
    record(options, log, 5);

    // When it was added, the skipped track was saved as complete, skipped and
    // pointing at the earlier file; the others as neither.
    auto saved = log->saved();
    ASSERT_GE(saved.size(), 5u);
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_NE(saved[i], nullptr);
        EXPECT_EQ(saved[i]->trackName(), options.titles[i]);
        EXPECT_EQ(saved[i]->skipped(), i == 2) << i;
        EXPECT_EQ(saved[i]->complete(), i == 2) << i;
    }
    EXPECT_EQ(saved[2]->path(), earlierFile);

    // Its audio went nowhere; the tracks around it were written.
    EXPECT_FALSE(std::filesystem::exists(joinPath(folder_, known + ".mp3")));
    EXPECT_TRUE(std::filesystem::exists(joinPath(folder_, options.titles[1] + ".mp3")));
    EXPECT_TRUE(std::filesystem::exists(joinPath(folder_, options.titles[3] + ".mp3")));

    // Later saves of the day keep it marked skipped and pointing at the earlier file.
    auto onDisk = itemsOnDisk();
    auto found = std::find_if(onDisk.begin(), onDisk.end(), [&](const auto& item) {
        return item->trackName() == known && item->tracknum() == 2;
    });
    ASSERT_NE(found, onDisk.end());
    EXPECT_TRUE((*found)->skipped());
    EXPECT_EQ((*found)->path(), earlierFile);
}

}  // namespace
}  // namespace quillon::test
