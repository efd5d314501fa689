#pragma once
// The per-user defaults store: a few interface settings and module folders
// ("_BOOKMARKS_PATH", "RECORDS_STORAGE_FOLDER", ...) kept outside the
// preferences file, in the XML property list
// home + "Library/Preferences/quillon.defaults.plist".
//
// Lookups see the stored values first, then the registered defaults (which live
// in memory only). Every write saves the file at once. The shared instance
// follows the home folder: when $QUILLON_HOME changes (tests) it reads the store
// of the new home. Any instance re-reads its file when another process has
// replaced it since, so that `quillon serve` and a CLI command agree. A file
// that cannot be read is moved aside (DamagedFile), never overwritten.
//
// Thread contract: every member may be called from any thread; one mutex per
// store guards its values and its file.
#include <sys/types.h>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PlistValue.h"

namespace quillon {

class DefaultsStore {
public:
    // The per-user store of the current home folder.
    static DefaultsStore& standard();
    // The home-relative location of the per-user store.
    static constexpr const char* kRelativePath = "Library/Preferences/quillon.defaults.plist";

    // A store kept in the given file.
    explicit DefaultsStore(std::string path);
    DefaultsStore(const DefaultsStore&) = delete;
    DefaultsStore& operator=(const DefaultsStore&) = delete;

    std::string path() const;

    // The stored value, else the registered default, else nothing.
    std::optional<PlistValue> objectForKey(std::string_view key);
    // A string value only (numbers are not turned into text).
    std::optional<std::string> stringForKey(std::string_view key);
    // Numbers and booleans by value; strings "YES"/"true" (any case) or a
    // non-zero leading number read as true.
    bool boolForKey(std::string_view key);
    // Numbers, booleans and decimal strings by value; 0 otherwise.
    int intForKey(std::string_view key);
    float floatForKey(std::string_view key);
    double doubleForKey(std::string_view key);

    // Each stores the value and saves the file; false when the save failed
    // (the value is kept in memory all the same).
    bool setObject(const PlistValue& value, std::string_view key);
    bool setBool(bool value, std::string_view key);
    bool setInt(int value, std::string_view key);
    bool setFloat(float value, std::string_view key);
    bool removeObject(std::string_view key);

    // Adds to the registered defaults (later registrations win).
    void registerDefaults(const PlistValue::Dictionary& defaults);
    // Saves the stored values now.
    bool synchronize();

private:
    struct FileStamp {
        bool exists = false;
        ino_t inode = 0;
        std::int64_t mtimeNanos = 0;
        std::int64_t size = 0;
        bool operator==(const FileStamp&) const = default;
    };

    explicit DefaultsStore(bool followsHome);
    // Re-reads the file when the home folder or the file changed. Caller holds mutex_.
    void refresh();
    // Writes values_ to the file. Caller holds mutex_.
    bool save();
    const PlistValue* find(std::string_view key) const;
    static FileStamp stampOf(const std::string& path);

    mutable std::mutex mutex_;
    bool followsHome_ = false;
    std::string path_;
    FileStamp stamp_;
    bool loaded_ = false;
    PlistValue::Dictionary values_;
    PlistValue::Dictionary registered_;
};

}  // namespace quillon
