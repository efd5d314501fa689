#pragma once
// The music library as a folder of playlist files: one "NAME.m3u8" (UTF-8,
// "#EXTM3U" first) per playlist, each track an "#EXTINF" line and its absolute
// path. A playlist that exists is appended to and rewritten whole through a
// temporary file, so a player reading it meanwhile sees the old list or the
// new one; a track already listed is not listed twice.
//
// Thread contract: addTrack from any thread. Hand-offs to one folder, from
// this process or another recorder, take turns on an exclusive lock of the
// folder itself (flock), so no two of them rewrite a playlist from the same
// old copy and lose an entry.
#include <string>

#include "engine/MusicLibrary.h"

namespace quillon {

class M3uLibrary : public MusicLibrary {
public:
    explicit M3uLibrary(std::string folder);

    Result addTrack(const std::string& path, const std::string& playlist) override;
    std::string description() const override;

    // The playlist file that holds `playlist` (its name made safe).
    std::string playlistPath(const std::string& playlist) const;

private:
    std::string folder_;
};

}  // namespace quillon
