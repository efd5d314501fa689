#pragma once
// A small station directory in the directory server's format, whose every
// stream is the test station itself: the version file, the location file,
// "genres.tun", one archive per genre (as Tuner::serverFiles writes them) and
// the playlist of each station identifier. `quillon station --directory`
// serves it, so that a directory can be browsed and recorded offline.
//
// Thread contract: pure functions.
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "station/Station.h"
#include "tuner/TunerItem.h"

namespace quillon {

struct StationDirectoryOptions {
    int version = 1;
    // Hang up on every genre file after the first this many (sorted by name):
    // a server that fails half-way through an update.
    std::optional<std::size_t> failAfter;
};

class StationDirectory {
public:
    // The genres with their streams.
    static TunerItem::List genres();
    // Every file by request target, for a station at `stationUrl`
    // ("http://127.0.0.1:PORT/").
    static std::map<std::string, StationFile> files(const std::string& stationUrl,
                                                    const StationDirectoryOptions& options);
};

}  // namespace quillon
