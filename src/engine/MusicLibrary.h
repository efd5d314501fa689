#pragma once
// The music library as the recorder sees it: one operation, "add this file to
// the playlist of this name, creating the playlist when it is missing". Two
// back-ends implement it: M3uLibrary (playlist files in a folder) and
// MpdLibrary (stored playlists of a Music Player Daemon).
//
// Thread contract: addTrack may run on several hand-off threads at once; each
// back-end locks what its calls share. It blocks (disk, network) and must never
// run on a connection thread or the main thread.
#include <string>
#include <string_view>

namespace quillon {

class MusicLibrary {
public:
    // What one hand-off came to: done, or why not (one line for the log).
    struct Result {
        bool ok = false;
        std::string failure;
        static Result done() { return {true, {}}; }
        static Result failed(std::string why) { return {false, std::move(why)}; }
    };

    virtual ~MusicLibrary() = default;

    // Adds the file at `path` (absolute) to the playlist `playlist`, making the
    // playlist when it does not exist.
    virtual Result addTrack(const std::string& path, const std::string& playlist) = 0;

    // Where the back-end puts playlists, for messages ("M3U playlists in /x").
    virtual std::string description() const = 0;

    // A playlist name that every back-end can store as one file name: no "/",
    // NUL or control characters, no leading dots (no hidden or relative names),
    // short enough for ".m3u8" to follow within 255 bytes. Names that leave
    // nothing become "Quillon".
    static std::string safePlaylistName(std::string_view name);
};

}  // namespace quillon
