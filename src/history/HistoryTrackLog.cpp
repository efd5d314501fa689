#include "history/HistoryTrackLog.h"

#include "history/History.h"
#include "history/HistoryItem.h"

namespace quillon {

HistoryTrackLog::HistoryTrackLog(std::shared_ptr<History> history) : history_(std::move(history)) {}

HistoryTrackLog::~HistoryTrackLog() {
    std::shared_ptr<History> history;
    {
        std::lock_guard lock(mutex_);
        history = history_;
    }
    if (history) history->flush();  // the additions of this connection are on disk
}

History& HistoryTrackLog::history() {
    std::lock_guard lock(mutex_);
    if (!history_) history_ = History::history();
    return *history_;
}

std::shared_ptr<TrackHistoryEntry> HistoryTrackLog::newItem(const std::string& trackName,
                                                            const std::string& recordedOn, int trackNumber) {
    return HistoryItem::newItem(trackName, recordedOn, trackNumber);
}

std::shared_ptr<TrackHistoryEntry> HistoryTrackLog::existing(const std::string& trackName) {
    return history().existsInDatabase(trackName);
}

void HistoryTrackLog::add(std::shared_ptr<TrackHistoryEntry> entry) {
    // Entries come from newItem, so they are history items.
    if (auto item = std::dynamic_pointer_cast<HistoryItem>(entry))
        history().addObjectToHistory(std::move(item));
}

}  // namespace quillon
