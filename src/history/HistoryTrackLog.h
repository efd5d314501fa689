#pragma once
// The history as a recording connection sees it: new entries are history
// items, earlier recordings are looked up by track name, and additions go to
// the history at once (its writer thread writes the day's file). Destroying the
// track log waits until its additions are on disk, so that a recording that
// ends has its history written before the process goes.
//
// Thread contract: any thread; called from connection threads. The history
// locks itself; the shared history is fetched (and so loaded) at the first call,
// so that a connection that records no history never creates the folder.
#include <memory>
#include <mutex>
#include <string>

#include "engine/TrackHistory.h"

namespace quillon {

class History;

class HistoryTrackLog : public TrackHistory {
public:
    // Null: the shared history of the home folder.
    explicit HistoryTrackLog(std::shared_ptr<History> history = nullptr);
    ~HistoryTrackLog() override;
    HistoryTrackLog(const HistoryTrackLog&) = delete;
    HistoryTrackLog& operator=(const HistoryTrackLog&) = delete;

    std::shared_ptr<TrackHistoryEntry> newItem(const std::string& trackName, const std::string& recordedOn,
                                               int trackNumber) override;
    std::shared_ptr<TrackHistoryEntry> existing(const std::string& trackName) override;
    void add(std::shared_ptr<TrackHistoryEntry> entry) override;

private:
    History& history();

    std::mutex mutex_;
    std::shared_ptr<History> history_;  // guarded by mutex_
};

}  // namespace quillon
