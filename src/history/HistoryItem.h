#pragma once
// One recorded track of the history (or an MP3 file the user added by hand): a
// resource whose dictionary holds the track name, the station, the track
// number, the record date, the file's path and the complete/skipped flags. It is
// also the history entry a recording connection fills in as the track goes on.
//
// Thread contract: a recording thread creates an item and changes its flags and
// path while other threads (the history's saves, lookups and filters) read it;
// every dictionary access goes through the resource's own mutex. The cached
// search text and the delete mark are guarded separately, so any thread may
// call any member.
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "engine/TrackHistory.h"
#include "store/AbstractResource.h"

namespace quillon {

class HistoryItem : public AbstractResource, public TrackHistoryEntry {
public:
    using Date = std::chrono::system_clock::time_point;

    static constexpr const char* kTrackNameKey = "trackname";
    static constexpr const char* kRadioNameKey = "radioname";
    static constexpr const char* kTrackNumKey = "tracknum";
    static constexpr const char* kRecordDateKey = "recorddate";
    static constexpr const char* kPathKey = "path";
    static constexpr const char* kCompleteKey = "complete";
    static constexpr const char* kSkippedKey = "skipped";
    // The station name of files added by hand.
    static constexpr const char* kLocalRadioName = "(local HardDrive)";

    HistoryItem() = default;

    // A new item, not complete, recorded now.
    static std::shared_ptr<HistoryItem> newItem(const std::string& trackName, const std::string& radioName,
                                                int trackNumber);
    // An item for an MP3 file added by hand: named after the file, complete,
    // dated by the file's modification time. Null when the file cannot be read.
    static std::shared_ptr<HistoryItem> itemForFile(const std::string& path);

    std::string trackName() const;
    void setTrackName(const std::string& name);
    std::string radioName() const;
    void setRadioName(const std::string& name);
    int tracknum() const;
    void setTracknum(int number);
    // The record date; nothing when the item has none (an item that did not unarchive).
    std::optional<Date> calDate() const;
    void setRecDate(Date date);

    // TrackHistoryEntry
    std::string path() const override;
    void setPath(const std::string& path) override;
    void setComplete(bool complete) override;
    void setSkipped(bool skipped) override;
    bool skipped() const override;

    bool complete() const;
    // The track name of a complete item; nothing otherwise.
    std::optional<std::string> completeTrackName() const;
    // Whether the lower-cased "track station" text contains the keyword as it is
    // given (an upper-case keyword therefore never matches).
    bool containsKeyword(std::string_view keyword) const;
    // Built on first use and kept for the item's life.
    std::string fullDescription() const;

    // The record time as a clock time in the "timeMode" display mode.
    std::string time() const;
    // "YYYY-MM-DD hh:mm:ss +zzzz" in local time; empty without a record date.
    std::string date() const;
    // Orders by the date texts: negative, zero or positive.
    int compare(const HistoryItem& other) const;

    std::string title() const { return trackName(); }
    // "<time> on <station>".
    std::string description() const override;
    int count() const { return -1; }
    std::string image() const { return complete() ? "complete.psd" : "incomplete.psd"; }

    void markForDelete() { shouldBeDeleted_ = true; }
    bool shouldBeDeleted() const { return shouldBeDeleted_; }

protected:
    std::shared_ptr<AbstractResource> newResource() const override { return std::make_shared<HistoryItem>(); }

private:
    std::atomic<bool> shouldBeDeleted_{false};
    mutable std::once_flag descriptionOnce_;
    mutable std::string fullDescription_;  // written once under descriptionOnce_
};

// Lower case for the scripts a track title is likely to use (ASCII, Latin-1,
// Latin Extended-A, Greek, Cyrillic); other characters stay as they are.
std::string lowerCaseText(std::string_view text);

}  // namespace quillon
