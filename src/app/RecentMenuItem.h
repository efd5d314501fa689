#pragma once
// One entry of the recent-connections list: the bookmark's name as its title
// and the path of the bookmark's copy in the recent-connections folder. In the
// stored list an entry is a two-element array: title, then file path.
//
// Thread contract: a plain value; main thread, as its list.
#include <optional>
#include <string>

#include "platform/PlistValue.h"

namespace quillon {

class RecentMenuItem {
public:
    RecentMenuItem() = default;
    RecentMenuItem(std::string title, std::string filePath)
        : title_(std::move(title)), recentFilePath_(std::move(filePath)) {}

    const std::string& title() const { return title_; }
    void setTitle(std::string title) { title_ = std::move(title); }
    const std::string& filePath() const { return recentFilePath_; }
    void setFilePath(std::string path) { recentFilePath_ = std::move(path); }

    // [title, filePath]
    PlistValue archived() const;
    // An entry from its stored form; nothing unless it is an array that starts
    // with two strings.
    static std::optional<RecentMenuItem> fromArchive(const PlistValue& value);

    bool operator==(const RecentMenuItem&) const = default;

private:
    std::string title_;
    std::string recentFilePath_;
};

}  // namespace quillon
