#pragma once
// The whole recording history: every day database of the history folder, by
// day key. Recording connections add their tracks as they go and ask whether a
// title was recorded before; the user interface lists, filters and deletes,
// and adds MP3 files by hand. An addition is seen at once in memory; its day
// file is written by the history's writer thread (HistoryWriter), and
// destroying the history writes whatever is still pending.
//
// Thread contract: any thread. `locked_` guards the day keys, the day
// dictionary and the filter result. Additions hold it only to file the item
// and note its day for writing: no disk work happens under it, so a recording
// thread never waits for the disk. Every other member takes it only to read or
// replace those lists, and never while a confirmation or refresh callback
// runs. Day databases and items lock themselves.
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "history/HistoryDatabase.h"
#include "history/HistoryItem.h"
#include "history/HistoryWriter.h"
#include "platform/PlistValue.h"

namespace quillon {

class History {
public:
    using Date = std::chrono::system_clock::time_point;
    using ItemPtr = std::shared_ptr<HistoryItem>;
    using DatabasePtr = std::shared_ptr<HistoryDatabase>;

    // Under the home folder.
    static constexpr const char* kFolder = "Library/Application Support/Quillon/History";
    // The entry of filter()'s dictionary that holds the keyword.
    static constexpr const char* kFilterKeywords = "FilterKeywords";

    // What deleteItems did.
    struct DeleteResult {
        std::vector<std::string> removedDays;  // day files deleted
        std::vector<std::string> keptDays;     // marked, but the deletion was refused
        std::size_t removedItems = 0;          // items taken out of days that stay
    };

    // The shared history of the home folder's history folder, created and
    // loaded on first use (the folder is created when missing).
    static std::shared_ptr<History> history();
    // Forgets the shared instance (once its pending day files are written), so
    // that the next history() loads the current home folder afresh (tests).
    static void resetShared();
    // home + kFolder.
    static std::string defaultFolder();

    // An empty history whose day files live in `folder`; nothing is loaded.
    // `save` replaces the writing of a day file (tests).
    explicit History(std::string folder, HistoryWriter::SaveFunction save = {});
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    const std::string& folder() const { return folder_; }

    // Adds every day file of the folder. Names that are no day key are logged
    // and left out; files that do not load are logged and moved aside
    // (DamagedFile), so that a new day file cannot replace them.
    void loadFromPath(const std::string& folder);
    // Histories of earlier versions are archives in a format this system does
    // not read; the new history starts empty and the old file stays put.
    void importOldHistory();

    // Adds the item to its day (created when new), sorts that day and has its
    // file written soon, then has the refresh handler run on the main thread.
    void addObjectToHistory(ItemPtr item);
    // Waits until every day file asked for so far is written; false when a
    // write failed since the previous flush (logged).
    bool flush();
    // Adds without sorting or saving; end a batch with sortAndSaveAllHistoryItems.
    void addObjectManuallyToHistory(ItemPtr item);
    // Sorts the day keys and each day's items, and saves every day file
    // (returning once they are written).
    void sortAndSaveAllHistoryItems();
    // Adds every file ending in ".mp3" among the paths (folders are searched
    // through), then sorts and saves all days once. Returns the items added.
    std::vector<ItemPtr> addFiles(const std::vector<std::string>& paths);

    // The first complete item of that exact track name, over the days in key
    // order; null if none.
    ItemPtr existsInDatabase(std::string_view trackName) const;
    int numberOfTracks() const;

    // Days, over the filter result while a filter is in force.
    std::size_t count() const;
    DatabasePtr itemAtIndex(std::size_t index) const;
    // Every day key (not filtered), sorted, and the day of a key.
    std::vector<std::string> dateKeys() const;
    DatabasePtr databaseForKey(std::string_view key) const;

    // Keeps, per day, the items that contain the "FilterKeywords" text. An empty
    // or absent keyword ends filtering (the last result is kept, unused).
    void filter(const PlistValue::Dictionary& options);
    bool filtered() const;

    // Marked days are deleted once the confirmation agrees, their files by the
    // writer thread after any write of them still pending (flush() waits for
    // it); refused days keep all their items. Other days lose their marked
    // items in memory only: their files are rewritten at their next save.
    DeleteResult deleteItems();
    // The question asked before a marked day goes; without one, days are kept.
    void setDeleteConfirmation(DeleteConfirmation confirm);

    // Deletes the day's file.
    bool removeDatabaseForDate(Date date) const;
    // folder + "/" + key + ".historyDB".
    std::string databasePathForDate(Date date) const;
    void sortWithDescriptors(const std::vector<SortDescriptor>& descriptors);

    // Run on the main thread after additions (once for several additions that
    // arrive before it runs). Queued, not waited for: a recording thread must
    // not wait on a main thread that may be waiting for it.
    void setRefreshHandler(std::function<void()> handler);

    std::string title() const { return "Root"; }
    std::string image() const { return "bfolder.psd"; }

private:
    struct Refresh;

    // Caller holds locked_.
    DatabasePtr dayForItem(const HistoryItem& item, bool sortKeys);
    void requestRefresh();

    const std::string folder_;
    mutable std::mutex locked_;
    std::vector<std::string> dateKeys_;                                     // guarded by locked_
    std::map<std::string, DatabasePtr, std::less<>> dateStorage_;           // guarded by locked_
    std::vector<std::string> filteredHistoryKeys_;                          // guarded by locked_
    std::map<std::string, DatabasePtr, std::less<>> filteredHistoryItems_;  // guarded by locked_
    bool filtered_ = false;                                                 // guarded by locked_

    std::mutex confirmMutex_;
    DeleteConfirmation confirm_;  // guarded by confirmMutex_
    std::shared_ptr<Refresh> refresh_;
    // Last: destroyed first, so that pending day files are written while the
    // rest of the history still stands.
    HistoryWriter writer_;
};

}  // namespace quillon
