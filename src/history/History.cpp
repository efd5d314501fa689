#include "history/History.h"

#include "engine/AudioFormat.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <system_error>

#include "platform/DamagedFile.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"

namespace quillon {

namespace {

std::mutex sharedMutex;
std::shared_ptr<History> sharedHistory;  // guarded by sharedMutex

// Deliberate: every extension a recording gets, not only "mp3", because
// AAC and Ogg stations are recorded too.
bool isRecording(const std::filesystem::path& path) {
    return isRecordingExtension(path.extension().string());
}

}  // namespace

// The refresh handler and whether a refresh is already queued; shared with the
// queued task, so that it stays valid if the history goes first.
struct History::Refresh {
    std::mutex mutex;
    std::function<void()> handler;  // guarded by mutex
    std::atomic<bool> pending{false};
};

std::shared_ptr<History> History::history() {
    std::lock_guard lock(sharedMutex);
    if (sharedHistory) return sharedHistory;
    auto history = std::make_shared<History>(defaultFolder());
    if (!isFolder(history->folder())) {
        makeFolders(history->folder());
        history->importOldHistory();
    }
    history->loadFromPath(history->folder());
    sharedHistory = history;
    return history;
}

void History::resetShared() {
    std::shared_ptr<History> previous;
    {
        std::lock_guard lock(sharedMutex);
        previous.swap(sharedHistory);
    }
    // The next history() reads the files: what the old one added must be there.
    if (previous) previous->flush();
}

std::string History::defaultFolder() { return homePath(kFolder); }

History::History(std::string folder, HistoryWriter::SaveFunction save)
    : folder_(std::move(folder)), refresh_(std::make_shared<Refresh>()), writer_(folder_, std::move(save)) {}

void History::loadFromPath(const std::string& folder) {
    std::vector<std::filesystem::path> files;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        if (it->path().extension() == std::string(".") + HistoryDatabase::kExtension)
            files.push_back(it->path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        auto date = HistoryDatabase::dateFromKey(file.stem().string());
        if (!date) {
            Log::info("Unable to create a date from file name {}", file.string());
            continue;
        }
        auto database = HistoryDatabase::databaseAtPath(file.string(), *date);
        if (!database) {
            // Logged by the database. Deliberate: the file goes aside rather
            // than stay where the day's next addition would overwrite it.
            DamagedFile::moveAside(file.string(), "not a history day file");
            continue;
        }
        std::string key = HistoryDatabase::keyFromDate(database->date());
        std::lock_guard lock(locked_);
        if (!dateStorage_.contains(key)) dateKeys_.push_back(key);
        dateStorage_[key] = database;
        std::sort(dateKeys_.begin(), dateKeys_.end());
    }
}

void History::importOldHistory() { Log::line("Unable to convert old history."); }

History::DatabasePtr History::dayForItem(const HistoryItem& item, bool sortKeys) {
    Date date = item.calDate().value_or(std::chrono::system_clock::now());
    std::string key = HistoryDatabase::keyFromDate(date);
    auto found = dateStorage_.find(key);
    if (found != dateStorage_.end()) return found->second;
    auto database = std::make_shared<HistoryDatabase>(date);
    dateStorage_.emplace(key, database);
    dateKeys_.push_back(key);
    if (sortKeys) std::sort(dateKeys_.begin(), dateKeys_.end());
    return database;
}

void History::addObjectToHistory(ItemPtr item) {
    if (!item) return;
    {
        std::lock_guard lock(locked_);
        DatabasePtr day = dayForItem(*item, true);
        day->addObject(item);
        day->sortItems();
        // Deliberate: the day's file is written by the writer thread, not here
        // under the lock, so that a title change never waits for the disk.
        writer_.save(HistoryDatabase::keyFromDate(day->date()), day);
    }
    requestRefresh();
}

bool History::flush() { return writer_.flush(); }

void History::addObjectManuallyToHistory(ItemPtr item) {
    if (!item) return;
    std::lock_guard lock(locked_);
    dayForItem(*item, false)->addObject(std::move(item));
}

void History::sortAndSaveAllHistoryItems() {
    {
        std::lock_guard lock(locked_);
        std::sort(dateKeys_.begin(), dateKeys_.end());
        for (const auto& [key, day] : dateStorage_) {
            day->sortItems();
            writer_.save(key, day);  // one writer, so no older copy of a day lands later
        }
    }
    writer_.flush();
}

std::vector<History::ItemPtr> History::addFiles(const std::vector<std::string>& paths) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) {
            std::vector<std::string> found;
            auto options = std::filesystem::directory_options::skip_permission_denied;
            for (std::filesystem::recursive_directory_iterator it(path, options, ec), end; !ec && it != end;
                 it.increment(ec)) {
                if (isRecording(it->path()) && it->is_regular_file(ec)) found.push_back(it->path().string());
            }
            std::sort(found.begin(), found.end());
            files.insert(files.end(), found.begin(), found.end());
        } else if (isRecording(path)) {
            files.push_back(path);
        }
    }
    std::vector<ItemPtr> added;
    for (const std::string& file : files) {
        if (auto item = HistoryItem::itemForFile(file)) {
            addObjectManuallyToHistory(item);
            added.push_back(std::move(item));
        }
    }
    if (!added.empty()) {
        sortAndSaveAllHistoryItems();
        requestRefresh();
    }
    return added;
}

History::ItemPtr History::existsInDatabase(std::string_view trackName) const {
    std::vector<DatabasePtr> days;
    {
        std::lock_guard lock(locked_);
        for (const auto& entry : dateStorage_) days.push_back(entry.second);
    }
    for (const DatabasePtr& day : days) {
        if (auto item = day->containsTrack(trackName)) return item;
    }
    return nullptr;
}

int History::numberOfTracks() const {
    std::lock_guard lock(locked_);
    int n = 0;
    for (const auto& entry : dateStorage_) n += entry.second->numberOfTracks();
    return n;
}

std::size_t History::count() const {
    std::lock_guard lock(locked_);
    return filtered_ ? filteredHistoryKeys_.size() : dateKeys_.size();
}

History::DatabasePtr History::itemAtIndex(std::size_t index) const {
    std::lock_guard lock(locked_);
    const auto& keys = filtered_ ? filteredHistoryKeys_ : dateKeys_;
    const auto& storage = filtered_ ? filteredHistoryItems_ : dateStorage_;
    if (index >= keys.size()) return nullptr;
    auto found = storage.find(keys[index]);
    return found == storage.end() ? nullptr : found->second;
}

std::vector<std::string> History::dateKeys() const {
    std::lock_guard lock(locked_);
    return dateKeys_;
}

History::DatabasePtr History::databaseForKey(std::string_view key) const {
    std::lock_guard lock(locked_);
    auto found = dateStorage_.find(key);
    return found == dateStorage_.end() ? nullptr : found->second;
}

void History::filter(const PlistValue::Dictionary& options) {
    std::string keyword;
    if (auto found = options.find(kFilterKeywords); found != options.end() && found->second.asString()) {
        keyword = *found->second.asString();
    }
    std::vector<std::pair<std::string, DatabasePtr>> days;
    {
        std::lock_guard lock(locked_);
        if (keyword.empty()) {
            filtered_ = false;
            return;
        }
        for (const std::string& key : dateKeys_) days.emplace_back(key, dateStorage_.at(key));
    }
    // Matching runs without the lock: additions go on meanwhile.
    std::vector<std::string> keys;
    std::map<std::string, DatabasePtr, std::less<>> storage;
    for (const auto& [key, day] : days) {
        auto matches = std::make_shared<HistoryDatabase>(day->date());
        for (const ItemPtr& item : day->logItems()) {
            if (item->containsKeyword(keyword)) matches->addObject(item);
        }
        if (matches->count() == 0) continue;
        keys.push_back(key);
        storage.emplace(key, std::move(matches));
    }
    std::lock_guard lock(locked_);
    filteredHistoryKeys_ = std::move(keys);
    filteredHistoryItems_ = std::move(storage);
    filtered_ = true;
}

bool History::filtered() const {
    std::lock_guard lock(locked_);
    return filtered_;
}

History::DeleteResult History::deleteItems() {
    std::vector<std::pair<std::string, DatabasePtr>> days;
    {
        std::lock_guard lock(locked_);
        days.assign(dateStorage_.begin(), dateStorage_.end());
    }
    DeleteConfirmation confirm;
    {
        std::lock_guard lock(confirmMutex_);
        confirm = confirm_;
    }
    DeleteResult result;
    for (const auto& [key, day] : days) {
        if (!day->shouldBeDeleted()) {
            result.removedItems += day->deleteObject();
            continue;
        }
        if (!day->askDelete(confirm)) {
            result.keptDays.push_back(key);
            continue;
        }
        {
            std::lock_guard lock(locked_);
            dateStorage_.erase(key);
            dateKeys_.clear();
            for (const auto& entry : dateStorage_) dateKeys_.push_back(entry.first);
            std::sort(dateKeys_.begin(), dateKeys_.end());
        }
        // Deleted by the writer, after any write of the day still pending
        // (which would otherwise bring the file back).
        writer_.remove(key, day);
        result.removedDays.push_back(key);
    }
    return result;
}

void History::setDeleteConfirmation(DeleteConfirmation confirm) {
    std::lock_guard lock(confirmMutex_);
    confirm_ = std::move(confirm);
}

bool History::removeDatabaseForDate(Date date) const {
    std::error_code ec;
    return std::filesystem::remove(databasePathForDate(date), ec) && !ec;
}

std::string History::databasePathForDate(Date date) const {
    return folder_ + "/" + HistoryDatabase::keyFromDate(date) + "." + HistoryDatabase::kExtension;
}

void History::sortWithDescriptors(const std::vector<SortDescriptor>& descriptors) {
    std::lock_guard lock(locked_);
    for (const auto& entry : dateStorage_) entry.second->sortWithDescriptors(descriptors);
}

void History::setRefreshHandler(std::function<void()> handler) {
    std::lock_guard lock(refresh_->mutex);
    refresh_->handler = std::move(handler);
}

void History::requestRefresh() {
    {
        std::lock_guard lock(refresh_->mutex);
        if (!refresh_->handler) return;
    }
    if (refresh_->pending.exchange(true)) return;  // one queued refresh covers this addition too
    MainLoop::main().post([refresh = refresh_] {
        refresh->pending = false;
        std::function<void()> handler;
        {
            std::lock_guard lock(refresh->mutex);
            handler = refresh->handler;
        }
        if (handler) handler();
    });
}

}  // namespace quillon
