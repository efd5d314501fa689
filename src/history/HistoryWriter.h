#pragma once
// Writes the history's day files off the threads that add to it. One thread of
// its own, started with the first write asked for, writes each day asked for
// once however often it was asked meanwhile (a day is written as it is when its
// turn comes, so many additions to one day make one save). Destruction writes
// everything still pending, then joins.
//
// Thread contract: any thread. `mutex_` guards the pending days and the
// progress counters; save() only notes the day under it and returns, so a
// recording thread never waits for the disk. Files are written on the writer
// thread alone, one after the other, outside the mutex.
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quillon {

class HistoryDatabase;

class HistoryWriter {
public:
    using DatabasePtr = std::shared_ptr<HistoryDatabase>;
    // Writes one day's file; true on success.
    using SaveFunction = std::function<bool(const std::string& key, const HistoryDatabase& day)>;

    // Writes folder/key.historyDB, or through `save` when given (tests).
    explicit HistoryWriter(std::string folder, SaveFunction save = {});
    ~HistoryWriter();
    HistoryWriter(const HistoryWriter&) = delete;
    HistoryWriter& operator=(const HistoryWriter&) = delete;

    // Notes the day for writing and returns at once.
    void save(const std::string& key, DatabasePtr day);
    // Has the day's file deleted in turn with the writes, so that no pending
    // write brings it back; nothing when a newer day of the key was saved
    // since (its file replaces this one's anyway).
    void remove(const std::string& key, const DatabasePtr& day);
    // Waits until every day asked for before the call is written; false when
    // a write failed since the previous flush (each failure is logged).
    bool flush();

private:
    struct Pending {
        DatabasePtr day;                 // null: delete the file
        std::uint64_t firstRequest = 0;  // the oldest request this write covers
    };

    // Notes the write or deletion; caller holds mutex_.
    void enqueue(const std::string& key, DatabasePtr day);
    void run();
    bool write(const std::string& key, const DatabasePtr& day);
    // The oldest request not yet written; caller holds mutex_.
    std::uint64_t oldestOutstanding() const;

    const std::string folder_;
    const SaveFunction save_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Pending> pending_;                        // guarded by mutex_
    std::map<std::string, std::weak_ptr<HistoryDatabase>> latest_;  // per key; guarded by mutex_
    std::optional<Pending> current_;                                // being written; guarded by mutex_
    std::uint64_t requests_ = 0;                                    // guarded by mutex_
    std::uint64_t failures_ = 0;                                    // guarded by mutex_
    std::uint64_t failuresReported_ = 0;                            // by flush; guarded by mutex_
    bool stopping_ = false;                                         // guarded by mutex_
    std::thread thread_;                                            // started by the first save, under mutex_
};

}  // namespace quillon
