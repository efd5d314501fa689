#include "app/LibraryApi.h"

#include <array>
#include <string_view>

#include "app/ApiServer.h"
#include "app/EventHub.h"
#include "app/SettingsApi.h"
#include "app/StorageFolder.h"
#include "engine/LibraryHandOff.h"
#include "engine/LibrarySettings.h"
#include "store/PreferenceRules.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

constexpr std::array<std::string_view, 9> kKeys = {
    "feediTunes", "playlistType", "playlistname", "libraryBackend", "libraryFolder",
    "mpdHost",    "mpdPort",      "mpdPassword",  "mpdMusicFolder",
};
constexpr std::string_view kPassword = "mpdPassword";

bool isLibraryKey(std::string_view key) {
    for (auto k : kKeys)
        if (k == key) return true;
    return false;
}

nlohmann::json libraryJson() {
    auto prefs = Preferences::preferences();
    nlohmann::json out = nlohmann::json::object();
    for (auto key : kKeys) {
        const std::string k(key);
        if (key == kPassword) continue;
        if (PreferenceRules::isState(key)) {
            out[k] = prefs->getState(k);
        } else {
            out[k] = prefs->getParam(k);
        }
    }
    out["mpdPasswordSet"] = !prefs->getParam(std::string(kPassword)).empty();
    // Where M3U playlists go when no folder is set.
    LibrarySettings settings = LibrarySettings::fromPreferences(*prefs);
    out["playlistFolder"] =
        settings.folder.empty() ? StorageFolder::records().storageFolder() : settings.folder;
    return out;
}

}  // namespace

LibraryApi::LibraryApi(ApiServer& server, EventHub& events) {
    server.route("GET", "/api/library", [](const ApiRequest&) { return ApiReply{200, libraryJson()}; });
    server.route("PUT", "/api/library", [&events](const ApiRequest& req) {
        if (!req.body().is_object()) throw ApiError(400, "give an object of library settings");
        PreferenceChanges changes;
        for (const auto& [key, value] : req.body().items()) {
            if (!isLibraryKey(key)) throw ApiError(400, key + ": not a library setting");
            auto converted = jsonToPlist(value);
            if (!converted || value.is_array())
                throw ApiError(400, key + ": give text, a number or true/false");
            changes[key] = *converted;
        }
        applyPreferenceChanges(changes, events);
        return ApiReply{200, libraryJson()};
    });
}

std::function<void(const std::string&, const std::string&)> LibraryApi::handOffService() {
    return LibraryHandOff::service([](std::string& failure) {
        return LibrarySettings::fromPreferences(*Preferences::preferences())
            .makeLibrary(StorageFolder::records().storageFolder(), failure);
    });
}

}  // namespace quillon
