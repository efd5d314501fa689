#pragma once
// The music-library back-end the preferences choose, and its settings:
// "libraryBackend" "m3u" (the default, also when empty) or "mpd";
// "libraryFolder" the folder of the M3U playlists (empty: the recordings
// folder); "mpdHost" (a host name or the path of MPD's local socket; empty:
// libmpdclient's default), "mpdPort" (empty: 6600), "mpdPassword",
// "mpdMusicFolder" (MPD's music folder; empty: asked from MPD). A plain value.
#include <memory>
#include <string>

#include "engine/MpdLibrary.h"

namespace quillon {

class MusicLibrary;
class Preferences;

struct LibrarySettings {
    static constexpr const char* kM3u = "m3u";
    static constexpr const char* kMpd = "mpd";

    std::string backend = kM3u;
    std::string folder;
    MpdLibrary::Settings mpd;

    // Reads the preferences (any thread: the preferences lock themselves); the
    // MPD wait is the timing table's libraryTimeout.
    static LibrarySettings fromPreferences(const Preferences& preferences);

    // The back-end; M3U playlists go to `recordsFolder` when no folder is set.
    // Nothing, with the reason, for a back-end name this program does not know.
    std::unique_ptr<MusicLibrary> makeLibrary(const std::string& recordsFolder, std::string& failure) const;
};

}  // namespace quillon
