#pragma once
// The folder each module keeps in the per-user defaults store: the recordings
// of the activity module, the bookmarks, the history, and the base folder that
// the station directory and the schedules share. A module reads its folder
// under its key, falls back to its default (without storing it), and verifies
// it at start, telling the user and, where the module allows, asking for
// another folder.
//
// Thread contract: a small value; storageFolder and setStorageFolder from any
// thread (the defaults store locks itself); verifyStorageFolder on the main
// thread, as it may ask the user.
#include <string>

namespace quillon {

class UserInterface;

class StorageFolder {
public:
    enum class Module { base, activity, bookmarks, history, tuner, schedules };

    static StorageFolder forModule(Module module);
    static StorageFolder records() { return forModule(Module::activity); }

    // The defaults-store key, e.g. "RECORDS_STORAGE_FOLDER".
    const std::string& storageFolderKey() const { return key_; }
    // The default folder, under the current home folder.
    std::string defaultStorageFolder() const;
    // The message key shown when the folder is not usable.
    const std::string& storageErrorMessage() const { return messageKey_; }
    // Whether the user may pick another folder when it is not usable.
    bool userMayChoose() const { return userMayChoose_; }

    // The stored folder, or the default when none is stored (the default is
    // then not stored).
    std::string storageFolder() const;
    void setStorageFolder(const std::string& folder) const;

    // Stores the default when nothing is stored; then true when the folder is
    // usable. Otherwise, with a user interface that is interactive, shows the
    // module's message and, when the module allows, stores the folder the user
    // picks (true) or gives up when the user cancels (false).
    bool verifyStorageFolder(UserInterface* ui) const;

    // The path itself names an existing directory; a symbolic link, even to a
    // directory, does not count.
    static bool isUsableFolder(const std::string& path);

private:
    StorageFolder(std::string key, std::string defaultRelative, std::string messageKey, bool userMayChoose);

    std::string key_;
    std::string defaultRelative_;  // under the home folder; absolute when it starts with "/"
    std::string messageKey_;
    bool userMayChoose_ = false;
};

}  // namespace quillon
