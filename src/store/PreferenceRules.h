#pragma once
// What each setting may hold, which settings the settings editor lets the user
// change, and how one set of changes is applied: the rules behind
// `quillon prefs set` and the daemon's settings calls, kept in one place so that
// both refuse the same values with the same reasons.
//
// A refusal is one line of text naming the key and what it needs.
//
// Thread contract: everything but apply() is a pure function and may run on any
// thread. apply() writes one Preferences instance in a single step under the
// resource's mutex, so a recording thread that reads meanwhile sees either none
// or all of the changes; call it on the thread that writes settings (the main
// thread), as nothing else must write between its read and its write.
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PlistValue.h"

namespace quillon {

class Preferences;

// The changes of one save, by key: on/off settings as text ("YES"/"NO", also
// yes/no, true/false, on/off, 1/0 in any case) or booleans, "_genres" as an
// array of strings, numbers as decimal text or integers, everything else as text.
using PreferenceChanges = PlistValue::Dictionary;

class PreferenceRules {
public:
    PreferenceRules() = delete;

    // One value checked: its stored form, or why it cannot be stored.
    struct Checked {
        std::optional<PlistValue> stored;  // "YES"/"NO" for on/off settings, numbers as decimal text
        std::string reason;                // one line; empty when accepted
    };

    // The outcome of apply(): every entry written (the changes in their stored
    // form and what the dependencies changed with them), or the reason nothing was.
    struct Applied {
        PlistValue::Dictionary written;
        std::string reason;
        bool ok() const { return reason.empty(); }
    };

    // Whether apply() stores keys it does not know as text (the command line lets
    // the user keep settings of their own) or refuses them (the web settings).
    enum class UnknownKeys { store, refuse };

    // The settings this program reads or shows.
    static bool isKnown(std::string_view key);
    // Settings that are on or off, stored as "YES"/"NO".
    static bool isState(std::string_view key);
    // yes/true/on/1 and no/false/off/0, in any case; nothing for other texts.
    static std::optional<bool> parseState(std::string_view text);

    static Checked check(std::string_view key, const PlistValue& value);

    // Whether the settings editor lets the user change each known key, given the
    // stored `settings`: the proxy host and port only while "proxyOn", the piece
    // size only while "split", "skip" only while "log", the playlist type only
    // while "feediTunes" and the playlist name only when, besides, the playlist
    // type is 4. Every other known key is always enabled.
    //
    // Deliberate: apply() still takes a change to a disabled key (it takes effect
    // once its switch is on), as the command line always did and as a form that
    // sends every field at once needs. Only "skip" is refused while "log" stays
    // off, since switching "log" off switches "skip" off: the two never hold
    // together.
    static std::map<std::string, bool, std::less<>> enabledKeys(const PlistValue::Dictionary& settings);

    // Checks every change against `current`; when all pass, what to write: the
    // stored forms, and "skip" NO when the changes switch "log" off. The first
    // failing key (in key order) gives the reason.
    static Applied resolve(const PlistValue::Dictionary& current, const PreferenceChanges& changes,
                           UnknownKeys unknown);
    // resolve() against the preferences, then every entry written at once; on a
    // refusal nothing is written. Does not save the file.
    static Applied apply(Preferences& prefs, const PreferenceChanges& changes, UnknownKeys unknown);
};

}  // namespace quillon
