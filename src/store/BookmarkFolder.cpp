#include "store/BookmarkFolder.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/DefaultsStore.h"
#include "platform/Home.h"
#include "store/Bookmark.h"

namespace quillon {

namespace fs = std::filesystem;

std::optional<std::string> BookmarkFolder::storedFolder() {
    return DefaultsStore::standard().stringForKey(kDefaultsKey);
}

std::string BookmarkFolder::defaultFolder() { return homePath("Documents/QLN Bookmarks/"); }

void BookmarkFolder::setFolder(const std::string& path) {
    DefaultsStore::standard().setObject(PlistValue(path), kDefaultsKey);
}

std::optional<std::string> BookmarkFolder::folder() {
    if (auto stored = storedFolder()) {
        if (!isFolder(*stored)) return std::nullopt;
        return stored;
    }
    std::string path = defaultFolder();
    if (!makeFolders(path)) return std::nullopt;
    setFolder(path);
    return path;
}

std::vector<std::string> BookmarkFolder::bookmarkNames(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    const std::string extension = std::string(".") + Bookmark::kFileExtension;
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        const fs::path& p = it->path();
        if (!it->is_regular_file(ec) || p.extension() != extension) continue;
        fs::path relative = p.lexically_relative(folder);
        relative.replace_extension();
        names.push_back(relative.generic_string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string BookmarkFolder::pathForName(const std::string& folder, const std::string& name) {
    return joinPath(folder, name) + "." + Bookmark::kFileExtension;
}

std::optional<std::string> BookmarkFolder::fileForName(const std::string& folder, const std::string& name) {
    std::error_code ec;
    for (const std::string& candidate : {name, Bookmark::checkName(name)}) {
        std::string file = pathForName(folder, candidate);
        if (fs::is_regular_file(file, ec)) return file;
    }
    return std::nullopt;
}

}  // namespace quillon
