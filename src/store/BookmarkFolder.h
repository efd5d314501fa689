#pragma once
// Where bookmark files live: the folder stored under the defaults-store key
// "_BOOKMARKS_PATH", or, when the key is absent, home + "Documents/QLN
// Bookmarks/", created and then recorded under the key. Sub-folders are
// bookmark groups; files ending in ".qlnbk" are bookmarks.
//
// Thread contract: any thread (the defaults store locks itself).
#include <optional>
#include <string>
#include <vector>

namespace quillon {

class BookmarkFolder {
public:
    static constexpr const char* kDefaultsKey = "_BOOKMARKS_PATH";
    // The localisation key of the message shown when the stored folder is gone.
    static constexpr const char* kInvalidFolderMessage = "ERROR_BOOKMARKS_FOLDER_INVALID";

    // The bookmarks folder. Nothing when the stored folder does not exist (the
    // caller shows kInvalidFolderMessage and asks for another) or when the
    // default folder cannot be created.
    static std::optional<std::string> folder();
    // The stored folder, without checking it; nothing when the key is absent.
    static std::optional<std::string> storedFolder();
    static std::string defaultFolder();
    static void setFolder(const std::string& path);

    // The bookmark files below `folder`, groups included, as paths relative to
    // it without the extension ("Jazz", "Talk/News"), sorted.
    static std::vector<std::string> bookmarkNames(const std::string& folder);
    // folder/name.qlnbk for a relative name as listed by bookmarkNames.
    static std::string pathForName(const std::string& folder, const std::string& name);
    // The file of the bookmark that `name` means: the entry as listed, else
    // the file a bookmark gets when given that name (whose characters other
    // than letters and digits became spaces). Nothing when neither exists.
    static std::optional<std::string> fileForName(const std::string& folder, const std::string& name);
};

}  // namespace quillon
