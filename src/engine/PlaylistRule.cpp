#include "engine/PlaylistRule.h"

#include <fmt/format.h>

#include "platform/TextUtil.h"
#include "store/Preferences.h"

namespace quillon {

PlaylistRule PlaylistRule::fromPreferences(const Preferences& p) {
    PlaylistRule rule;
    rule.feed = p.getState("feediTunes");
    rule.type = intValue(p.getParam("playlistType"));
    rule.playlistName = p.getParam("playlistname");
    return rule;
}

std::optional<std::string> PlaylistRule::playlistFor(const std::string& genre,
                                                     const std::string& bookmarkName,
                                                     const std::tm& today) const {
    switch (type) {
        case 1:
            return genre;
        case 2:
            return fmt::format("{}-{}-{}", today.tm_year + 1900, today.tm_mon + 1, today.tm_mday);
        case 3:
            return bookmarkName;
        case 4:
            return playlistName;
        default:
            return std::nullopt;
    }
}

}  // namespace quillon
