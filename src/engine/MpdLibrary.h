#pragma once
// The music library as a Music Player Daemon: the track is added to MPD's
// database (an "update" of that one file, waited for), then to the stored
// playlist of that name ("playlistadd", which makes the playlist when missing).
//
// MPD knows files by their path inside its music folder, so the recorder must
// know that folder: the preference "mpdMusicFolder" when set; otherwise MPD is
// asked ("config"), which it answers only over its local socket ("mpdHost" a
// socket path). The recordings must lie inside the music folder.
//
// Thread contract: addTrack from any thread; each call has a connection of its
// own, so calls share nothing. A call blocks for at most the connect time-out
// plus the update wait (both `timeoutSeconds`).
#include <optional>
#include <string>

#include "engine/MusicLibrary.h"

namespace quillon {

class MpdLibrary : public MusicLibrary {
public:
    struct Settings {
        std::string host;         // empty: libmpdclient's default (MPD_HOST, else localhost)
        unsigned port = 0;        // 0: libmpdclient's default (MPD_PORT, else 6600)
        std::string password;     // empty: none
        std::string musicFolder;  // empty: asked from MPD
        double timeoutSeconds = 60;
    };

    explicit MpdLibrary(Settings settings);

    Result addTrack(const std::string& path, const std::string& playlist) override;
    std::string description() const override;

    // `file` as MPD names it: relative to `musicFolder`, with "/" separators;
    // none when the file does not lie inside the folder. Tried as given, then
    // with links resolved (a music folder reached through a link).
    static std::optional<std::string> pathInMusicFolder(const std::string& file,
                                                        const std::string& musicFolder);

private:
    Settings settings_;
};

}  // namespace quillon
