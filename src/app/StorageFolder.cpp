#include "app/StorageFolder.h"

#include <sys/stat.h>

#include "app/UserInterface.h"
#include "platform/DefaultsStore.h"
#include "platform/Home.h"
#include "platform/Localization.h"
#include "platform/Log.h"

namespace quillon {

namespace {

// Built-in texts of the message keys, for a table that lacks them.
std::string messageDefault(const std::string& key) {
    if (key == "ERROR_RECORDS_FOLDER_INVALID")
        return "The recordings folder does not exist. Please choose another one.";
    if (key == "ERROR_BOOKMARKS_FOLDER_INVALID")
        return "The bookmarks folder does not exist. Please choose another one.";
    return "The folder does not exist; the default folder is used instead.";
}

}  // namespace

StorageFolder::StorageFolder(std::string key, std::string defaultRelative, std::string messageKey,
                             bool userMayChoose)
    : key_(std::move(key)),
      defaultRelative_(std::move(defaultRelative)),
      messageKey_(std::move(messageKey)),
      userMayChoose_(userMayChoose) {}

StorageFolder StorageFolder::forModule(Module module) {
    switch (module) {
        case Module::activity:
            return {"RECORDS_STORAGE_FOLDER", "Music", "ERROR_RECORDS_FOLDER_INVALID", true};
        case Module::bookmarks:
            return {"_BOOKMARKS_PATH", "Documents/QLN Bookmarks/", "ERROR_BOOKMARKS_FOLDER_INVALID", true};
        case Module::history:
            return {"HISTORY_STORAGE_FOLDER", "Library/Application Support/Quillon/History",
                    "ERROR_INVALID_PATH_DEFAULT", false};
        case Module::base:
        case Module::tuner:
        case Module::schedules:
            break;
    }
    return {"ABSTRACT_STORAGE_FOLDER", "/tmp", "ERROR_INVALID_PATH_DEFAULT", false};
}

std::string StorageFolder::defaultStorageFolder() const {
    if (!defaultRelative_.empty() && defaultRelative_.front() == '/') return defaultRelative_;
    return homePath(defaultRelative_);
}

std::string StorageFolder::storageFolder() const {
    auto stored = DefaultsStore::standard().stringForKey(key_);
    return stored ? *stored : defaultStorageFolder();
}

void StorageFolder::setStorageFolder(const std::string& folder) const {
    DefaultsStore::standard().setObject(PlistValue(folder), key_);
}

bool StorageFolder::isUsableFolder(const std::string& path) {
    struct stat info {};
    return !path.empty() && ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool StorageFolder::verifyStorageFolder(UserInterface* ui) const {
    DefaultsStore& store = DefaultsStore::standard();
    auto stored = store.stringForKey(key_);
    if (!stored) {
        stored = defaultStorageFolder();
        store.setObject(PlistValue(*stored), key_);
        store.synchronize();
    }
    if (isUsableFolder(*stored)) return true;
    if (!ui || !ui->interactive()) return false;
    std::string message = localized(messageKey_, messageDefault(messageKey_));
    if (!userMayChoose_) {
        ui->alert(messageKey_, message);
        return false;
    }
    auto chosen = ui->chooseFolder(messageKey_, message);
    if (!chosen) return false;
    setStorageFolder(*chosen);
    Log::info("Storage folder {} set to {}", key_, *chosen);
    return true;
}

}  // namespace quillon
