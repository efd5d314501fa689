#include "tuner/RadioBrowser.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Preferences.h"
#include "tuner/Tuner.h"
#include "tuner/TunerDownload.h"

namespace quillon {

namespace {

using Json = nlohmann::json;

// A text field cut to a bounded length; the empty text when absent or null.
// Throws (through nlohmann) when the field holds another kind of value.
std::string textField(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return {};
    const auto& text = it->get_ref<const std::string&>();
    if (!isValidUtf8(text)) return {};
    return std::string(utf8Prefix(text, RadioBrowser::kMaxTextBytes));
}

int numberField(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return 0;
    if (!it->is_number()) throw std::invalid_argument(std::string(key) + " is not a number");
    const double value = it->get<double>();
    return value < 0 ? 0 : value > 1e9 ? 1000000000 : static_cast<int>(value);
}

std::optional<Json> parseArray(std::span<const std::uint8_t> body, std::string& failure) {
    Json value = Json::parse(body.begin(), body.end(), nullptr, false);
    if (value.is_discarded()) {
        failure = "the answer is no JSON";
        return std::nullopt;
    }
    if (!value.is_array()) {
        failure = "the answer is no JSON array";
        return std::nullopt;
    }
    return value;
}

bool isHostName(std::string_view name) {
    if (name.empty() || name.size() > 253 || name.front() == '.' || name.front() == '-') return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-';
    });
}

bool isStreamAddress(std::string_view url) {
    return startsWith(toLowerAscii(url.substr(0, 8)), "http://") ||
           startsWith(toLowerAscii(url.substr(0, 8)), "https://");
}

}  // namespace

std::string RadioBrowser::userAgent() { return std::string("Quillon/") + Preferences::kVersion; }

std::string RadioBrowser::tagsPath() {
    return "/json/tags?order=stationcount&reverse=true&hidebroken=true&limit=" + std::to_string(kTagsAsked);
}

std::string RadioBrowser::stationsPath(std::string_view tag) {
    // Deliberate: the exact tag, so that the genre "rock" does not also hold
    // every "punk rock" station; the most clicked first, broken ones left out.
    return "/json/stations/bytagexact/" + Tuner::percentEncoded(tag) +
           "?hidebroken=true&order=clickcount&reverse=true&limit=" + std::to_string(kMaxStationsPerGenre);
}

std::string RadioBrowser::clickPath(std::string_view stationUuid) {
    return "/json/url/" + Tuner::percentEncoded(stationUuid);
}

std::string RadioBrowser::baseOf(std::string address) {
    while (!address.empty() && address.back() == '/') address.pop_back();
    return address;
}

std::optional<std::vector<RadioBrowser::Tag>> RadioBrowser::parseTags(std::span<const std::uint8_t> body,
                                                                      std::string& failure) {
    auto list = parseArray(body, failure);
    if (!list) return std::nullopt;
    std::vector<Tag> tags;
    std::set<std::string> seen;
    try {
        for (const Json& element : *list) {
            if (!element.is_object()) throw std::invalid_argument("an element is no object");
            Tag tag{textField(element, "name"), numberField(element, "stationcount")};
            if (tag.name.empty() || tag.stationCount < kMinStations || !seen.insert(tag.name).second)
                continue;
            tags.push_back(std::move(tag));
        }
    } catch (const std::exception& e) {
        failure = std::string("the tag list is malformed: ") + e.what();
        return std::nullopt;
    }
    std::stable_sort(tags.begin(), tags.end(), [](const Tag& a, const Tag& b) {
        return a.stationCount != b.stationCount ? a.stationCount > b.stationCount : a.name < b.name;
    });
    if (tags.size() > kMaxGenres) tags.resize(kMaxGenres);
    return tags;
}

std::optional<TunerItem::List> RadioBrowser::parseStations(std::span<const std::uint8_t> body,
                                                           const std::string& tag, bool allCodecs,
                                                           std::string& failure) {
    auto list = parseArray(body, failure);
    if (!list) return std::nullopt;
    TunerItem::List items;
    try {
        for (const Json& element : *list) {
            if (!element.is_object()) throw std::invalid_argument("an element is no object");
            const std::string name = std::string(trimmedBlanks(textField(element, "name")));
            const std::string url = textField(element, "url_resolved");
            const std::string uuid = textField(element, "stationuuid");
            std::string codec = textField(element, "codec");
            const int bitrate = numberField(element, "bitrate");
            const std::string tags = textField(element, "tags");
            const std::string homepage = textField(element, "homepage");
            if (name.empty() || uuid.empty() || !isStreamAddress(url)) continue;
            if (codec.empty()) codec = "unknown";
            const bool mp3 = toLowerAscii(codec) == "mp3";
            if (!mp3 && !allCodecs) continue;
            if (items.size() == kMaxStationsPerGenre) break;
            auto item = TunerItem::tunerItem();
            item->setName(name);
            item->setItemType(static_cast<int>(TunerItem::Type::stream));
            item->setURL(url);
            item->setGenre(tag);
            item->setBitRate(bitrate);
            item->setResourceNum(uuid);
            item->setSource(std::string(kSourceName));
            item->setCodec(codec);
            if (!homepage.empty()) item->setHomepage(homepage);
            if (!tags.empty()) item->setMultiGenres(tags);
            // The codec leads the description, so that the list shows it and a
            // search for "aac" finds those streams.
            item->setDescription(codec + (tags.empty() ? "" : " | " + tags));
            item->cacheTunerData();
            items.push_back(std::move(item));
        }
    } catch (const std::exception& e) {
        failure = std::string("the station list is malformed: ") + e.what();
        return std::nullopt;
    }
    return items;
}

std::optional<std::vector<std::string>> RadioBrowser::parseServerList(std::span<const std::uint8_t> body,
                                                                      std::string& failure) {
    auto list = parseArray(body, failure);
    if (!list) return std::nullopt;
    std::vector<std::string> names;
    try {
        for (const Json& element : *list) {
            if (!element.is_object()) throw std::invalid_argument("an element is no object");
            if (std::string name = textField(element, "name"); !name.empty())
                names.push_back(std::move(name));
        }
    } catch (const std::exception& e) {
        failure = std::string("the server list is malformed: ") + e.what();
        return std::nullopt;
    }
    return names;
}

std::vector<std::string> RadioBrowser::mirrorOrder(const std::vector<std::string>& names,
                                                   std::uint64_t seed) {
    std::vector<std::string> hosts;
    for (const std::string& name : names) {
        std::string host = toLowerAscii(name);
        while (!host.empty() && host.back() == '.') host.pop_back();  // a reverse name's root dot
        if (!isHostName(host) || std::find(hosts.begin(), hosts.end(), host) != hosts.end()) continue;
        hosts.push_back(std::move(host));
    }
    // Sorted first, so that the order depends on the seed alone, not on the
    // order in which the name service answered.
    std::sort(hosts.begin(), hosts.end());
    std::mt19937_64 random(seed);
    std::shuffle(hosts.begin(), hosts.end(), random);
    std::vector<std::string> bases;
    bases.reserve(hosts.size());
    for (const std::string& host : hosts) bases.push_back("https://" + host);
    return bases;
}

std::optional<std::vector<std::string>> RadioBrowser::discoverMirrors(TunerDownload& download,
                                                                      std::string& failure) {
    std::vector<std::string> names;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(kAllServersHost, "443", &hints, &found) == 0) {
        for (addrinfo* a = found; a; a = a->ai_next) {
            char host[NI_MAXHOST];
            if (::getnameinfo(a->ai_addr, a->ai_addrlen, host, sizeof host, nullptr, 0, NI_NAMEREQD) == 0)
                names.emplace_back(host);
        }
        ::freeaddrinfo(found);
    }
    if (!names.empty()) return names;
    auto body =
        download.fetch(kServerListURL, timing().directoryTimeout, kMaxServerListBytes, failure, userAgent());
    if (!body) {
        failure = std::string("no Radio Browser server is known: ") + kAllServersHost +
                  " has no named address, and " + kServerListURL + ": " + failure;
        return std::nullopt;
    }
    auto list = parseServerList(*body, failure);
    if (!list || list->empty()) {
        failure = std::string(kServerListURL) + ": " + (list ? "lists no server" : failure);
        return std::nullopt;
    }
    return list;
}

}  // namespace quillon
