#pragma once
// The preferences a recording connection works by, read once each time it
// starts (and restarts), so that the engine never looks a setting up by its
// key while it streams. A plain value.
#include <string>

#include "engine/PlaylistRule.h"

namespace quillon {

class Preferences;

struct ConnectionSettings {
    bool proxyOn = false;
    std::string proxyHost;
    std::string proxyPort;
    bool reconnect = false;  // "reconnect" is "YES"
    std::string userAgent;
    bool split = false;       // cut untitled streams by size...
    int chunkSizeMiB = 0;     // ...every this many MiB
    bool genreSort = false;   // a folder per genre
    bool subFolders = false;  // a folder per station
    bool log = false;         // keep a history of recorded tracks
    bool skip = false;        // record tracks already in the history to nowhere
    bool incomplete = false;  // first tracks go to the "Incomplete" folder
    int timeMode = 0;         // 24: 24-hour clock texts
    PlaylistRule playlist;    // which finished tracks go to which library playlist

    static ConnectionSettings fromPreferences(const Preferences& preferences);

    // Deliberate: a chunk size of 0 (or none) means no size split; taken
    // literally it would cut a file at every block.
    bool sizeSplit() const { return split && chunkSizeMiB > 0; }
};

}  // namespace quillon
