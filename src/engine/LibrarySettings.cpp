#include "engine/LibrarySettings.h"

#include "engine/M3uLibrary.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Preferences.h"

namespace quillon {

LibrarySettings LibrarySettings::fromPreferences(const Preferences& p) {
    LibrarySettings s;
    const std::string backend = p.getParam("libraryBackend");
    if (!backend.empty()) s.backend = backend;
    s.folder = p.getParam("libraryFolder");
    s.mpd.host = p.getParam("mpdHost");
    const int port = intValue(p.getParam("mpdPort"));
    s.mpd.port = port > 0 && port <= 65535 ? static_cast<unsigned>(port) : 0;
    s.mpd.password = p.getParam("mpdPassword");
    s.mpd.musicFolder = p.getParam("mpdMusicFolder");
    s.mpd.timeoutSeconds = timing().libraryTimeout;
    return s;
}

std::unique_ptr<MusicLibrary> LibrarySettings::makeLibrary(const std::string& recordsFolder,
                                                           std::string& failure) const {
    if (backend == kM3u) return std::make_unique<M3uLibrary>(folder.empty() ? recordsFolder : folder);
    if (backend == kMpd) return std::make_unique<MpdLibrary>(mpd);
    failure = "unknown music-library back-end '" + printable(backend) + "' (libraryBackend: m3u or mpd)";
    return nullptr;
}

}  // namespace quillon
