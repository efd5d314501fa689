// The history's writer thread: additions never wait for the disk, saves of a
// day asked for during a write become one, failures are loud, a deleted day
// stays deleted, and what is pending is on disk once its owner is gone.
#include <condition_variable>
#include <future>
#include <map>

#include <fmt/format.h>

#include "HistoryTestSupport.h"
#include "history/HistoryTrackLog.h"
#include "platform/Log.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

// Counts the writes per day; the first write stops until released, then each
// one saves into `folder` (none: succeeds without a file).
class HeldSave {
public:
    explicit HeldSave(std::string folder = {}) : folder_(std::move(folder)) {}
    HistoryWriter::SaveFunction function() {
        return [this](const std::string& key, const HistoryDatabase& day) {
            std::unique_lock lock(mutex_);
            ++writes_[key];
            writing_ = true;
            changed_.notify_all();
            changed_.wait(lock, [&] { return !held_; });
            return folder_.empty() || day.saveAtPath(folder_, key);
        };
    }
    void waitUntilWriting() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return writing_; });
    }
    void release() {
        std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    std::map<std::string, int> writes() {
        std::lock_guard lock(mutex_);
        return writes_;
    }

private:
    const std::string folder_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = true, writing_ = false;
    std::map<std::string, int> writes_;
};

TEST(HistoryWriterTest, SavesAskedForDuringAWriteBecomeOnePerDay) {
    const std::pair<std::string, std::map<std::string, int>> cases[] = {
        {"", {{"A", 1}}},
        {std::string(50, 'A'), {{"A", 2}}},
        {"BABABB", {{"A", 2}, {"B", 1}}},
        {"CBCAB", {{"A", 2}, {"B", 1}, {"C", 1}}},
    };
    for (const auto& [meanwhile, writes] : cases) {
        SCOPED_TRACE(meanwhile);
        HeldSave held;
        HistoryWriter writer("/nowhere", held.function());
        auto day = std::make_shared<HistoryDatabase>(localDate(2008, 7, 5));
        writer.save("A", day);
        held.waitUntilWriting();
        for (char key : meanwhile) writer.save(std::string(1, key), day);
        held.release();
        EXPECT_TRUE(writer.flush());
        EXPECT_EQ(held.writes(), writes);
    }
}

TEST(HistoryWriterTest, AFailedWriteIsLoggedAndFlushSaysSo) {
    Log::Capture log;
    HistoryWriter writer("/nowhere/at/all", {});
    writer.save("2008_07_05", std::make_shared<HistoryDatabase>(localDate(2008, 7, 5)));
    EXPECT_FALSE(writer.flush());
    EXPECT_TRUE(log.contains("Unable to save the history day /nowhere/at/all/2008_07_05.historyDB"));
    EXPECT_TRUE(writer.flush());  // each failure is reported once
}

class HistoryWriting : public HistoryFixture {};

TEST_F(HistoryWriting, AdditionsReturnWhileTheDiskIsBusyAndAreSeenAtOnce) {
    HeldSave held(folder_);
    {
        History history(folder_, held.function());
        history.addObjectToHistory(makeItem("First", "r", localDate(2008, 7, 5, 8), true));
        held.waitUntilWriting();
        auto recorder = std::async(std::launch::async, [&] {
            for (int i = 0; i < 20; ++i)
                history.addObjectToHistory(
                    makeItem(fmt::format("T{}", i), "r", localDate(2008, 7, 5 + i % 2, 9, i), true));
        });
        EXPECT_EQ(recorder.wait_for(std::chrono::milliseconds(kWaitMs)), std::future_status::ready)
            << "an addition waited for the disk";
        EXPECT_EQ(history.numberOfTracks(), 21);
        held.release();
    }  // destroyed: what is pending is written
    EXPECT_EQ(held.writes(), (std::map<std::string, int>{{"2008_07_05", 2}, {"2008_07_06", 1}}));
    History reloaded(folder_);
    reloaded.loadFromPath(folder_);
    EXPECT_EQ(reloaded.numberOfTracks(), 21);
}

TEST_F(HistoryWriting, ADeletedDayStaysDeletedThoughItsWriteWasPending) {
    HeldSave held(folder_);
    History history(folder_, held.function());
    history.addObjectToHistory(makeItem("Kept", "r", localDate(2008, 7, 6, 9), true));
    held.waitUntilWriting();
    history.addObjectToHistory(makeItem("Gone", "r", localDate(2008, 7, 5, 9), true));  // pending
    history.databaseForKey("2008_07_05")->markForDelete();
    history.setDeleteConfirmation([](const DeleteAlert&) { return true; });
    history.deleteItems();
    held.release();
    ASSERT_TRUE(history.flush());
    EXPECT_FALSE(std::filesystem::exists(dayFile("2008_07_05")));
    EXPECT_TRUE(std::filesystem::exists(dayFile("2008_07_06")));
}

TEST_F(HistoryWriting, AConnectionsTrackLogLeavesItsAdditionsOnDisk) {
    auto history = std::make_shared<History>(folder_);
    {
        HistoryTrackLog log(history);
        for (int i = 0; i < 30; ++i)
            log.add(makeItem(fmt::format("T{}", i), "r", localDate(2008, 7, 5 + i % 3, 9, i), true));
    }  // the history itself lives on
    History reloaded(folder_);
    reloaded.loadFromPath(folder_);
    EXPECT_EQ(reloaded.numberOfTracks(), 30);
}

}  // namespace
}  // namespace quillon::test
