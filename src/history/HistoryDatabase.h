#pragma once
// The history items of one calendar day, stored as one file per day: an XML
// property list whose root array holds one archive per item, in order. Also the
// day keys ("2008_07_05") that name those files, and the localised date text
// of a day.
//
// Thread contract: any thread. `mutex_` guards the day's date, its item list
// and its delete mark for each single call; `logItems` hands out a snapshot.
// Saving takes the snapshot under the mutex and writes outside it. Items are
// shared with their recording connection, which keeps changing them (they
// lock themselves).
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "history/HistoryItem.h"

namespace quillon {

// One sort key of the history's lists: an item property and its direction.
struct SortDescriptor {
    std::string key;
    bool ascending = true;
};

// The question asked before a whole day is deleted. The user interface answers
// it; "OK" is true.
struct DeleteAlert {
    std::string title;
    std::string message;
    std::string defaultButton = "OK";
    std::string alternateButton = "Cancel";
    std::string day;  // the day's localised title, for context
};
using DeleteConfirmation = std::function<bool(const DeleteAlert&)>;

// The weekday names (Sunday first) and month names used in day titles.
struct DateFormats {
    std::vector<std::string> weekdays;
    std::vector<std::string> months;
};

class HistoryDatabase {
public:
    using Date = std::chrono::system_clock::time_point;
    using ItemPtr = std::shared_ptr<HistoryItem>;

    static constexpr const char* kExtension = "historyDB";

    explicit HistoryDatabase(Date date);
    HistoryDatabase(const HistoryDatabase&) = delete;
    HistoryDatabase& operator=(const HistoryDatabase&) = delete;

    // "YYYY_MM_DD" / "YYYY/MM/DD" of the date's local calendar day.
    static std::string keyFromDate(Date date);
    static std::string oldKeyFromDate(Date date);
    // The old key of today.
    static std::string key();
    // The day at 00:00:01 local time; nothing unless the text splits into
    // exactly three parts whose values multiply to at least 1.
    static std::optional<Date> dateFromKey(std::string_view key);
    static std::optional<Date> dateFromOldKey(std::string_view key);

    // A database for the date loaded from the day file; null when loading fails.
    static std::shared_ptr<HistoryDatabase> databaseAtPath(const std::string& path, Date date);

    Date date() const;
    void setDate(Date date);

    // Appends the file's items. A missing file loads as an empty day. A file
    // that is no property-list array, or holds something other than archives,
    // is logged and fails (items read so far stay).
    bool loadFromPath(const std::string& path);
    // Writes folder/key.historyDB atomically with every item in its order.
    bool saveAtPath(const std::string& folder, const std::string& key) const;

    void addObject(ItemPtr item);
    std::size_t count() const;
    // Null when the index is out of range.
    ItemPtr objectAtIndex(std::size_t index) const;
    std::vector<ItemPtr> logItems() const;
    // Stable sort by the descriptors in turn.
    void sortWithDescriptors(const std::vector<SortDescriptor>& descriptors);
    // Stable sort by the items' compare (their date texts).
    void sortItems();
    // Removes every item marked for deletion, keeping the order of the rest;
    // returns how many went.
    std::size_t deleteObject();

    void markForDelete() { shouldBeDeleted_ = true; }
    bool shouldBeDeleted() const { return shouldBeDeleted_; }
    // The question asked before a whole day goes, for the day's title.
    static DeleteAlert deleteAlert(const std::string& dayTitle);
    // Asks whether the whole day may go; no one to ask means no.
    bool askDelete(const DeleteConfirmation& confirm) const;

    // The first complete item of exactly this track name; null if none.
    ItemPtr containsTrack(std::string_view trackName) const;
    // Items that are complete and not skipped.
    int numberOfTracks() const;

    // The day in the localised "dateFormat".
    std::string title() const;
    std::string description() const { return {}; }
    std::string image() const { return "date.psd"; }
    // A day has no calendar date of its own to show; logs a warning.
    std::optional<Date> calDate() const;

    static const DateFormats& dateFormats();
    // The date in a calendar format: %A/%a weekday, %B/%b month (full/short
    // names from dateFormats), %d %e %m %Y %y %H %M %S, %% a percent sign.
    static std::string formatDate(Date date, std::string_view format);

private:
    mutable std::mutex mutex_;
    Date date_;                   // guarded by mutex_
    std::vector<ItemPtr> items_;  // guarded by mutex_
    std::atomic<bool> shouldBeDeleted_{false};
};

}  // namespace quillon
