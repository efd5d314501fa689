#include "store/PreferenceRules.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/TextUtil.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

enum class Kind {
    state,         // "YES" / "NO"
    text,          // one line of UTF-8
    port,          // 1..65535
    optionalPort,  // a port, or empty
    number,        // a whole number, or empty
    host,          // a host name with an optional :port, or empty
    genres,        // an array of texts
    backend,       // a music-library back-end name, or empty
};

struct KeyRule {
    std::string_view key;
    Kind kind;
};

// Every setting the program reads or shows. Other keys are kept as text.
constexpr std::array kKeys = {
    KeyRule{"configPath", Kind::text},
    KeyRule{"historyPath", Kind::text},
    KeyRule{"schedulesPath", Kind::text},
    KeyRule{"version", Kind::text},
    KeyRule{"relayPort", Kind::port},
    KeyRule{"MainWinPos", Kind::text},
    KeyRule{"checkUpdates", Kind::state},
    KeyRule{"proxyOn", Kind::state},
    KeyRule{"proxyHost", Kind::text},
    KeyRule{"proxyPort", Kind::optionalPort},  // empty, as the settings window leaves it
    KeyRule{"reconnect", Kind::state},
    KeyRule{"split", Kind::state},
    KeyRule{"chunkSize", Kind::number},
    KeyRule{"timeMode", Kind::text},
    KeyRule{"genreSort", Kind::state},
    KeyRule{"subFolders", Kind::state},
    KeyRule{"incomplete", Kind::state},
    KeyRule{"skip", Kind::state},
    KeyRule{"log", Kind::state},
    KeyRule{"UserAgent", Kind::text},
    KeyRule{"UserAgent name", Kind::text},
    KeyRule{"feediTunes", Kind::state},
    KeyRule{"playlistname", Kind::text},
    KeyRule{"playlistType", Kind::number},
    KeyRule{Preferences::kGenresKey, Kind::genres},
    KeyRule{"tunerVersion", Kind::text},
    KeyRule{"HistoryWinPos", Kind::text},
    KeyRule{"ShowHistory", Kind::state},
    KeyRule{"relayAllInterfaces", Kind::state},
    KeyRule{"relayMaxPlayers", Kind::number},
    KeyRule{"playerCommand", Kind::text},
    KeyRule{"webPort", Kind::port},
    KeyRule{"webAllInterfaces", Kind::state},
    KeyRule{"versionHost", Kind::host},
    KeyRule{"libraryBackend", Kind::backend},
    KeyRule{"libraryFolder", Kind::text},
    KeyRule{"mpdHost", Kind::text},  // a host name, or the path of MPD's local socket
    KeyRule{"mpdPort", Kind::optionalPort},
    KeyRule{"mpdPassword", Kind::text},
    KeyRule{"mpdMusicFolder", Kind::text},
    KeyRule{"live365Host", Kind::host},
    // Mail notices: the server as host:port, the addresses, and a password
    // file's path (never the password itself); each notice off by default.
    KeyRule{"mailServer", Kind::host},
    KeyRule{"mailFrom", Kind::text},
    KeyRule{"mailTo", Kind::text},
    KeyRule{"mailUser", Kind::text},
    KeyRule{"mailPasswordFile", Kind::text},
    KeyRule{"mailOnScheduleEnd", Kind::state},
    KeyRule{"mailOnDiskFull", Kind::state},
    KeyRule{"mailOnGiveUp", Kind::state},
    KeyRule{"tunerServer", Kind::text},  // the directory server's base address
    KeyRule{"tunerSource", Kind::text},  // the last update's source: "server" or "radio-browser"
    KeyRule{"radioBrowserServer", Kind::text},  // Radio Browser's base address; empty: a mirror
};

// A key the editor greys out unless `governor` is on (and, for the playlist
// name, the playlist type is 4 as well).
struct Dependency {
    std::string_view key;
    std::string_view governor;
};
constexpr std::array kDependencies = {
    Dependency{"proxyHost", "proxyOn"},       Dependency{"proxyPort", "proxyOn"},
    Dependency{"chunkSize", "split"},         Dependency{"skip", "log"},
    Dependency{"playlistType", "feediTunes"}, Dependency{"playlistname", "feediTunes"},
};
constexpr int kPlaylistTypeWithName = 4;

std::optional<Kind> kindOf(std::string_view key) {
    for (const KeyRule& rule : kKeys) {
        if (rule.key == key) return rule.kind;
    }
    return std::nullopt;
}

// The value as the user gave it, short and safe for one line of a terminal.
std::string shown(std::string_view text) {
    constexpr std::size_t kMax = 64;
    if (text.size() <= kMax) return printable(text);
    return printable(utf8Prefix(text, kMax)) + "...";
}

bool isDigits(std::string_view text) {
    return !text.empty() && text.size() <= 9 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isOneLine(std::string_view text) {
    return isValidUtf8(text) && std::none_of(text.begin(), text.end(), [](char c) {
               auto byte = static_cast<unsigned char>(c);
               return byte < 0x20 || byte == 0x7f;
           });
}

bool isHost(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == ':' || c == '[' || c == ']';
    });
}

bool isOn(const PlistValue::Dictionary& settings, std::string_view key) {
    auto it = settings.find(key);
    return it != settings.end() && it->second == PlistValue("YES");
}

PreferenceRules::Checked refused(std::string reason) { return {std::nullopt, std::move(reason)}; }

template <typename T>
PreferenceRules::Checked accepted(T&& value) {
    PreferenceRules::Checked checked;
    checked.stored.emplace(std::forward<T>(value));
    return checked;
}

// Numbers may come as integers (JSON); they are stored as decimal text.
std::optional<std::string> numberText(const PlistValue& value) {
    if (const std::string* s = value.asString()) return *s;
    if (const std::int64_t* n = value.asInteger()) return std::to_string(*n);
    return std::nullopt;
}

PreferenceRules::Checked checkNumber(std::string_view key, Kind kind, const PlistValue& value) {
    const std::string name(key);
    std::optional<std::string> text = numberText(value);
    if (!text) return refused(name + " must be a whole number, not " + PlistValue::kindName(value.kind()));
    if (kind == Kind::port || (kind == Kind::optionalPort && !text->empty())) {
        if (!isDigits(*text) || intValue(*text) < 1 || intValue(*text) > 65535)
            return refused(name + " must be a port number from 1 to 65535, not '" + shown(*text) + "'");
    } else if (!text->empty() && !isDigits(*text)) {
        return refused(name + " must be a whole number, not '" + shown(*text) + "'");
    }
    return accepted(std::move(*text));
}

}  // namespace

bool PreferenceRules::isKnown(std::string_view key) { return kindOf(key).has_value(); }

bool PreferenceRules::isState(std::string_view key) { return kindOf(key) == Kind::state; }

std::optional<bool> PreferenceRules::parseState(std::string_view text) {
    std::string v = toLowerAscii(text);
    if (v == "yes" || v == "true" || v == "on" || v == "1") return true;
    if (v == "no" || v == "false" || v == "off" || v == "0") return false;
    return std::nullopt;
}

PreferenceRules::Checked PreferenceRules::check(std::string_view key, const PlistValue& value) {
    const std::string name(key);
    const Kind kind = kindOf(key).value_or(Kind::text);
    switch (kind) {
        case Kind::state: {
            std::optional<bool> on;
            if (const bool* b = value.asBoolean()) on = *b;
            if (const std::string* s = value.asString()) on = parseState(*s);
            if (!on) {
                return refused(name + " is an on/off setting: give YES or NO, not '" + shown(value.text()) +
                               "'");
            }
            return accepted(*on ? "YES" : "NO");
        }
        case Kind::port:
        case Kind::optionalPort:
        case Kind::number:
            return checkNumber(key, kind, value);
        case Kind::genres: {
            const PlistValue::Array* items = value.asArray();
            if (!items) return refused(name + " must be a list of genres");
            for (const PlistValue& item : *items) {
                const std::string* genre = item.asString();
                if (!genre || genre->empty() || !isOneLine(*genre))
                    return refused(name + " must be a list of genres, each one line of text");
            }
            return accepted(value);
        }
        case Kind::text:
        case Kind::host: {
            const std::string* text = value.asString();
            if (!text || !isOneLine(*text))
                return refused(name + " must be one line of text without control characters");
            if (kind == Kind::host && !isHost(*text)) {
                return refused(name + " must be a host name with an optional :port, not '" + shown(*text) +
                               "'");
            }
            return accepted(value);
        }
        case Kind::backend: {
            const std::string* text = value.asString();
            if (!text || (!text->empty() && *text != "m3u" && *text != "mpd"))
                return refused(name + " must be m3u or mpd, not '" + shown(value.text()) + "'");
            return accepted(value);
        }
    }
    return refused(name + " cannot be set");
}

std::map<std::string, bool, std::less<>> PreferenceRules::enabledKeys(
    const PlistValue::Dictionary& settings) {
    std::map<std::string, bool, std::less<>> enabled;
    for (const KeyRule& rule : kKeys) enabled.emplace(rule.key, true);
    for (const Dependency& d : kDependencies) enabled[std::string(d.key)] = isOn(settings, d.governor);
    auto type = settings.find("playlistType");
    if (type == settings.end() || intValue(type->second.text()) != kPlaylistTypeWithName)
        enabled["playlistname"] = false;
    return enabled;
}

PreferenceRules::Applied PreferenceRules::resolve(const PlistValue::Dictionary& current,
                                                  const PreferenceChanges& changes, UnknownKeys unknown) {
    Applied out;
    for (const auto& [key, value] : changes) {
        if (key.empty()) return {{}, "a setting needs a key"};
        if (unknown == UnknownKeys::refuse && !isKnown(key))
            return {{}, "unknown setting '" + shown(key) + "'"};
        Checked checked = check(key, value);
        if (!checked.stored) return {{}, std::move(checked.reason)};
        out.written.insert_or_assign(key, std::move(*checked.stored));
    }
    // Switching "log" off switches "skip" off, so "skip" cannot be turned on
    // while "log" stays off.
    PlistValue::Dictionary after = current;
    for (const auto& [key, value] : out.written) after.insert_or_assign(key, value);
    if (!isOn(after, "log")) {
        if (isOn(out.written, "skip")) return {{}, "skip can only be turned on while log is YES"};
        if (out.written.count("log")) out.written.insert_or_assign("skip", PlistValue("NO"));
    }
    return out;
}

PreferenceRules::Applied PreferenceRules::apply(Preferences& prefs, const PreferenceChanges& changes,
                                                UnknownKeys unknown) {
    Applied applied = resolve(prefs.container(), changes, unknown);
    if (applied.ok()) prefs.addEntries(applied.written);
    return applied;
}

}  // namespace quillon
