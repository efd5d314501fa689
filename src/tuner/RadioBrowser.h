#pragma once
// Radio Browser (the community-run station directory, radio-browser.info) as a
// source of the directory's tree: its most used tags become genres, the
// stations under each tag their streams. The parts here are pure (answers in,
// items out; the mirror order from a list and a seed) except discoverMirrors,
// which asks the name service and the network.
//
// Calls, on a mirror's base address: GET /json/tags (name, stationcount),
// GET /json/stations/bytagexact/TAG (name, url_resolved, bitrate, codec,
// stationuuid, tags, homepage), GET /json/url/STATIONUUID (counts a click).
//
// Thread contract: stateless; discoverMirrors blocks (worker threads only).
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tuner/TunerItem.h"

namespace quillon {

class TunerDownload;

class RadioBrowser {
public:
    // The name whose addresses are the mirrors, and the list served by all of them.
    static constexpr const char* kAllServersHost = "all.api.radio-browser.info";
    static constexpr const char* kServerListURL = "https://all.api.radio-browser.info/json/servers";
    // Preferences: a fixed base address (empty: a mirror chosen at random).
    static constexpr const char* kServerKey = "radioBrowserServer";
    // What the item's "src" holds for entries of this source.
    static constexpr const char* kSourceName = "radio-browser";

    // The genres: the kMaxGenres tags with the most stations, each with at
    // least kMinStations; at most kMaxStationsPerGenre streams each.
    static constexpr std::size_t kMaxGenres = 40;
    static constexpr int kMinStations = 10;
    static constexpr std::size_t kMaxStationsPerGenre = 500;
    // Mirrors tried in turn before an automatic update gives up.
    static constexpr std::size_t kMaxMirrorsTried = 3;
    // Every answer is bounded; a tag list asked for 200 tags, a tag's 500
    // stations (about 1.5 KiB each), a server list and a click's answer.
    static constexpr std::size_t kTagsAsked = 200;
    static constexpr std::uint64_t kMaxTagsBytes = 1 << 20;
    static constexpr std::uint64_t kMaxStationsBytes = 4u << 20;
    static constexpr std::uint64_t kMaxServerListBytes = 256 * 1024;
    static constexpr std::uint64_t kMaxClickBytes = 64 * 1024;
    // Longer texts in an answer are cut at this many bytes (whole characters).
    static constexpr std::size_t kMaxTextBytes = 1024;

    struct Tag {
        std::string name;
        int stationCount = 0;
        bool operator==(const Tag&) const = default;
    };

    // "Quillon/<version>", sent with every call.
    static std::string userAgent();

    // The paths (with query) of the calls, on a base address without a trailing slash.
    static std::string tagsPath();
    static std::string stationsPath(std::string_view tag);
    static std::string clickPath(std::string_view stationUuid);

    // The genres of a /json/tags answer: by station count, most first (ties by
    // name), bounded as above. None, with the reason, when it is no JSON array
    // of objects of that shape.
    static std::optional<std::vector<Tag>> parseTags(std::span<const std::uint8_t> body,
                                                     std::string& failure);
    // The streams of a /json/stations answer for genre `tag`: MP3 only unless
    // `allCodecs`; entries without a name or an http(s) address are left out.
    // None, with the reason, when it is no JSON array of station objects.
    static std::optional<TunerItem::List> parseStations(std::span<const std::uint8_t> body,
                                                        const std::string& tag, bool allCodecs,
                                                        std::string& failure);
    // The mirror names of a /json/servers answer ([{"name": ...}]).
    static std::optional<std::vector<std::string>> parseServerList(std::span<const std::uint8_t> body,
                                                                   std::string& failure);

    // The base addresses to try, in turn: every distinct plausible host name
    // of `names` as "https://NAME", in an order drawn from `seed` (a random
    // pick, then the others as fallbacks). Empty when no name is usable.
    static std::vector<std::string> mirrorOrder(const std::vector<std::string>& names, std::uint64_t seed);

    // The mirrors' names: the reverse names of kAllServersHost's addresses,
    // else the server list. Blocking; none, with the reason, when neither works.
    static std::optional<std::vector<std::string>> discoverMirrors(TunerDownload& download,
                                                                   std::string& failure);

    // The base address without trailing slashes.
    static std::string baseOf(std::string address);
};

}  // namespace quillon
