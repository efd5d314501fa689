#pragma once
// The recent-connections list: the last 16 distinct bookmarks connected, oldest
// first, each with a copy of its bookmark file in the recent-connections folder.
// Stored as the binary property list home + "Library/Preferences/kv.recents.qln":
// an array of entries, each the array [title, file path]. The menu shows the
// entries newest first; choosing one hands its file path to the open handler.
//
// Thread contract: main thread only.
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "app/RecentMenuItem.h"

namespace quillon {

class RecentMenu {
public:
    static constexpr const char* kRelativePath = "Library/Preferences/kv.recents.qln";
    static constexpr std::size_t kMaxItems = 16;
    // Gets the bookmark file path of a chosen entry.
    using OpenHandler = std::function<void(const std::string& path)>;

    // Loads the list kept in `path` (default: the user's) and builds the menu.
    explicit RecentMenu(std::string path = {});
    // Saves the list.
    ~RecentMenu();
    RecentMenu(const RecentMenu&) = delete;
    RecentMenu& operator=(const RecentMenu&) = delete;

    // Puts the entry last: entries of the same title go, and when 16 or more
    // remain the oldest goes too, its bookmark copy deleted from disk. Then
    // saves the list and rebuilds the menu.
    void addRecent(const std::string& path, const std::string& name);

    // The entries, oldest first.
    const std::vector<RecentMenuItem>& subItems() const { return subItems_; }
    void setArray(std::vector<RecentMenuItem> items);
    // The menu as shown: newest first. Every entry is always enabled.
    const std::vector<RecentMenuItem>& menuItems() const { return menu_; }
    void updateMenu();

    // Replaces the list by the file's; false (list unchanged) when the file is
    // missing or not a list of entries, which is then moved aside (DamagedFile).
    // Entries of another form are skipped.
    bool loadFromFile();
    bool saveToFile() const;
    const std::string& filePath() const { return path_; }

    // The menu entry at `menuIndex` (as menuItems) was chosen.
    void connect(std::size_t menuIndex);
    void setOpenHandler(OpenHandler handler) { onOpen_ = std::move(handler); }

private:
    std::string path_;
    std::vector<RecentMenuItem> subItems_;
    std::vector<RecentMenuItem> menu_;
    OpenHandler onOpen_;
};

}  // namespace quillon
