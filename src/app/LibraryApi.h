#pragma once
// The music-library settings over the daemon's API: which tracks go to which
// playlist ("feediTunes", "playlistType", "playlistname") and where the
// playlists live ("libraryBackend", "libraryFolder", "mpdHost", "mpdPort",
// "mpdPassword", "mpdMusicFolder"). Read, and changed as one checked set that
// is saved at once and published as a "prefs" event. The password is never
// sent back, only whether one is set.
//
// Thread contract: construct before the server starts, destroy on the main
// thread after it stopped; handlers run on the main loop.
#include <functional>
#include <string>

namespace quillon {

class ApiServer;
class EventHub;

class LibraryApi {
public:
    LibraryApi(ApiServer& server, EventHub& events);
    LibraryApi(const LibraryApi&) = delete;
    LibraryApi& operator=(const LibraryApi&) = delete;

    // The connections' hand-off service of the application: the back-end of
    // the current preferences, M3U playlists defaulting to the recordings folder.
    static std::function<void(const std::string&, const std::string&)> handOffService();
};

}  // namespace quillon
