// The history's writer thread: additions never wait for the disk, saves of a
// day asked for while a write is under way become one, a failed write is loud,
// a deleted day stays deleted, and everything pending is on disk once the
// history (or a connection's track log) is gone.
#include <condition_variable>
#include <future>
#include <map>
#include <mutex>

#include <fmt/format.h>

#include "HistoryTestSupport.h"
#include "history/HistoryTrackLog.h"
#include "history/HistoryWriter.h"
#include "platform/Log.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

// Writes day files (through `folder` when given) and counts them per day;
// while held, the first write stops until released.
class HeldSave {
public:
    explicit HeldSave(std::string folder = {}) : folder_(std::move(folder)) {}

    HistoryWriter::SaveFunction function() {
        return [this](const std::string& key, const HistoryDatabase& day) {
            std::unique_lock lock(mutex_);
            ++writes_[key];
            lastCount_[key] = day.count();
            writing_ = true;
            changed_.notify_all();
            changed_.wait(lock, [&] { return !held_; });
            return folder_.empty() ? succeed_ : day.saveAtPath(folder_, key);
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
    void setSucceed(bool on) {
        std::lock_guard lock(mutex_);
        succeed_ = on;
    }
    std::map<std::string, int> writes() const {
        std::lock_guard lock(mutex_);
        return writes_;
    }
    std::map<std::string, std::size_t> lastCount() const {
        std::lock_guard lock(mutex_);
        return lastCount_;
    }

private:
    const std::string folder_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = true, writing_ = false, succeed_ = true;
    std::map<std::string, int> writes_;
    std::map<std::string, std::size_t> lastCount_;
};

TEST(HistoryWriterTest, SavesAskedForDuringAWriteBecomeOnePerDay) {
    struct Case {
        const char* name;
        std::vector<std::string> meanwhile;  // days saved while the first write of "A" is held
        std::map<std::string, int> writes;
    } cases[] = {
        {"nothing else", {}, {{"A", 1}}},
        {"the same day again and again", std::vector<std::string>(50, "A"), {{"A", 2}}},
        {"two days interleaved", {"B", "A", "B", "A", "B", "B"}, {{"A", 2}, {"B", 1}}},
        {"three days", {"C", "B", "C", "A", "B"}, {{"A", 2}, {"B", 1}, {"C", 1}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HeldSave held;
        std::map<std::string, std::shared_ptr<HistoryDatabase>> days;
        for (const char* key : {"A", "B", "C"})
            days[key] = std::make_shared<HistoryDatabase>(localDate(2008, 7, 5));
        HistoryWriter writer("/nowhere", held.function());
        auto add = [&](const std::string& key) {
            days[key]->addObject(makeItem("T", "r", localDate(2008, 7, 5), true));
            writer.save(key, days[key]);
        };
        add("A");
        held.waitUntilWriting();
        for (const std::string& key : c.meanwhile) add(key);
        held.release();
        EXPECT_TRUE(writer.flush());
        EXPECT_EQ(held.writes(), c.writes);
        // The last write of each day held every item it had been given.
        for (const auto& [key, count] : held.lastCount()) EXPECT_EQ(count, days[key]->count()) << key;
    }
}

TEST(HistoryWriterTest, AFailedWriteIsLoggedAndFlushSaysSo) {
    HeldSave held;
    held.release();
    held.setSucceed(false);
    HistoryWriter writer("/music/history", held.function());
    Log::Capture log;
    writer.save("2008_07_05", std::make_shared<HistoryDatabase>(localDate(2008, 7, 5)));
    EXPECT_FALSE(writer.flush());
    EXPECT_TRUE(log.contains("Unable to save the history day /music/history/2008_07_05.historyDB"));
    held.setSucceed(true);
    writer.save("2008_07_05", std::make_shared<HistoryDatabase>(localDate(2008, 7, 5)));
    EXPECT_TRUE(writer.flush());
}

class HistoryWriting : public HistoryFixture {};

TEST_F(HistoryWriting, AdditionsReturnWhileTheDiskIsBusyAndAreSeenAtOnce) {
    HeldSave held(folder_);
    {
        History history(folder_, held.function());
        history.addObjectToHistory(makeItem("First", "r", localDate(2008, 7, 5, 8), true));
        held.waitUntilWriting();
        // A recording thread goes on adding while the first write is held.
        auto recorder = std::async(std::launch::async, [&] {
            for (int i = 0; i < 20; ++i) {
                history.addObjectToHistory(
                    makeItem(fmt::format("Track {}", i), "r", localDate(2008, 7, 5 + i % 2, 9, i), true));
            }
        });
        bool returned = recorder.wait_for(std::chrono::milliseconds(kWaitMs)) == std::future_status::ready;
        EXPECT_TRUE(returned) << "an addition waited for the disk";
        EXPECT_NE(history.existsInDatabase("Track 19"), nullptr);
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
    EXPECT_EQ(history.deleteItems().removedDays, std::vector<std::string>{"2008_07_05"});
    held.release();
    ASSERT_TRUE(history.flush());
    EXPECT_FALSE(std::filesystem::exists(dayFile("2008_07_05")));
    EXPECT_TRUE(std::filesystem::exists(dayFile("2008_07_06")));
}

TEST_F(HistoryWriting, EverythingAddedIsOnDiskOnceItsOwnerIsGone) {
    using Items = std::vector<History::ItemPtr>;
    struct Case {
        const char* owner;
        // Adds the items through the owner and ends it; returns the history if it lives on.
        std::function<std::shared_ptr<History>(std::shared_ptr<History>, const Items&)> addAndEnd;
    } cases[] = {
        {"the history",
         [](std::shared_ptr<History> history, const Items& items) {
             for (const auto& item : items) history->addObjectToHistory(item);
             return nullptr;
         }},
        {"a connection's track log",
         [](std::shared_ptr<History> history, const Items& items) {
             HistoryTrackLog log(history);
             for (const auto& item : items) log.add(item);
             return history;
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.owner);
        std::filesystem::remove_all(folder_);
        makeFolders(folder_);
        Items items;
        for (int i = 0; i < 30; ++i)
            items.push_back(makeItem(fmt::format("T{}", i), "r", localDate(2008, 7, 5 + i % 3, 9, i), true));
        auto survivor = c.addAndEnd(std::make_shared<History>(folder_), items);
        History reloaded(folder_);
        reloaded.loadFromPath(folder_);
        EXPECT_EQ(reloaded.dateKeys(), (std::vector<std::string>{"2008_07_05", "2008_07_06", "2008_07_07"}));
        EXPECT_EQ(reloaded.numberOfTracks(), 30);
    }
}

}  // namespace
}  // namespace quillon::test
