#include "engine/ConnectionSettings.h"

#include "platform/TextUtil.h"
#include "store/Preferences.h"

namespace quillon {

ConnectionSettings ConnectionSettings::fromPreferences(const Preferences& p) {
    ConnectionSettings s;
    s.proxyOn = p.getState("proxyOn");
    s.proxyHost = p.getParam("proxyHost");
    s.proxyPort = p.getParam("proxyPort");
    s.reconnect = p.getParam("reconnect") == "YES";
    s.userAgent = p.getParam("UserAgent name");
    s.split = p.getState("split");
    s.chunkSizeMiB = intValue(p.getParam("chunkSize"));
    s.genreSort = p.getState("genreSort");
    s.subFolders = p.getState("subFolders");
    s.log = p.getState("log");
    s.skip = p.getState("skip");
    s.incomplete = p.getState("incomplete");
    s.timeMode = intValue(p.getParam("timeMode"));
    s.playlist = PlaylistRule::fromPreferences(p);
    return s;
}

}  // namespace quillon
