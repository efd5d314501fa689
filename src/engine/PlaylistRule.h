#pragma once
// Which music-library playlist a finished track goes to, by the preferences
// "feediTunes" (hand tracks over at all), "playlistType" and "playlistname":
// 1 the bookmark's genre, 2 today's date as "year-month-day" without zero
// padding, 3 the bookmark's name, 4 the preference "playlistname"; any other
// type names none. A plain value, read once per connection start.
#include <ctime>
#include <optional>
#include <string>

namespace quillon {

class Preferences;

struct PlaylistRule {
    bool feed = false;         // "feediTunes"
    int type = 0;              // "playlistType"
    std::string playlistName;  // "playlistname"

    static PlaylistRule fromPreferences(const Preferences& preferences);

    // The playlist for a track of the bookmark with `genre` and `bookmarkName`,
    // handed over on the local day `today`; none for a type that names none.
    // An empty text is returned as it is: the caller treats it as no name.
    std::optional<std::string> playlistFor(const std::string& genre, const std::string& bookmarkName,
                                           const std::tm& today) const;
};

}  // namespace quillon
