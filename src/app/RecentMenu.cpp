#include "app/RecentMenu.h"

#include <algorithm>
#include <filesystem>

#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "platform/PlistCodec.h"

namespace quillon {

RecentMenu::RecentMenu(std::string path) : path_(path.empty() ? homePath(kRelativePath) : std::move(path)) {
    loadFromFile();
    updateMenu();
}

RecentMenu::~RecentMenu() { saveToFile(); }

void RecentMenu::addRecent(const std::string& path, const std::string& name) {
    std::erase_if(subItems_, [&](const RecentMenuItem& item) { return item.title() == name; });
    if (subItems_.size() >= kMaxItems) {
        std::error_code ec;
        std::filesystem::remove(subItems_.front().filePath(), ec);
        subItems_.erase(subItems_.begin());
    }
    subItems_.emplace_back(name, path);
    saveToFile();
    updateMenu();
}

void RecentMenu::setArray(std::vector<RecentMenuItem> items) {
    subItems_ = std::move(items);
    updateMenu();
}

void RecentMenu::updateMenu() { menu_.assign(subItems_.rbegin(), subItems_.rend()); }

bool RecentMenu::loadFromFile() {
    // A list that cannot be read goes aside: the save at the end would replace it.
    auto stored = PlistCodec::readStoredArray(path_);
    if (!stored) return false;
    std::vector<RecentMenuItem> items;
    for (const auto& value : *stored)
        if (auto item = RecentMenuItem::fromArchive(value)) items.push_back(std::move(*item));
    subItems_ = std::move(items);
    return true;
}

bool RecentMenu::saveToFile() const {
    PlistValue::Array archive;
    archive.reserve(subItems_.size());
    for (const auto& item : subItems_) archive.push_back(item.archived());
    makeFolders(std::filesystem::path(path_).parent_path().string());
    Bytes bytes = PlistCodec::encodeBinary(PlistValue(std::move(archive)));
    if (writeFileAtomically(path_, bytes)) return true;
    Log::info("Unable to save the recent connections to {}", path_);
    return false;
}

void RecentMenu::connect(std::size_t menuIndex) {
    if (menuIndex >= menu_.size() || !onOpen_) return;
    // A copy: the handler may add to the list, which rebuilds the menu.
    std::string path = menu_[menuIndex].filePath();
    onOpen_(path);
}

}  // namespace quillon
