// The rules of the settings: what each key may hold, the switches that govern
// other keys, and a set of changes applied whole or not at all.
#include <gtest/gtest.h>

#include "store/PreferenceRules.h"
#include "store/Preferences.h"

namespace quillon {
namespace {

using Dict = PlistValue::Dictionary;
using Unknown = PreferenceRules::UnknownKeys;

PlistValue genres(std::vector<PlistValue> items) { return PlistValue(PlistValue::Array(std::move(items))); }

TEST(PreferenceRules, ChangesApplyWholeOrNotAtAll) {
    struct Case {
        const char* what;
        Dict current;
        Dict changes;
        Dict written{};        // expected when accepted
        std::string reason{};  // a part of the expected reason when refused
        Unknown unknown = Unknown::store;
    };
    const Dict logOn = {{"log", "YES"}, {"skip", "YES"}};
    const Case cases[] = {
        {"state words",
         {},
         {{"reconnect", "on"}, {"split", "False"}},
         {{"reconnect", "YES"}, {"split", "NO"}}},
        {"state booleans", {}, {{"proxyOn", PlistValue::boolean(true)}}, {{"proxyOn", "YES"}}},
        {"state nonsense", {}, {{"reconnect", "maybe"}}, {}, "reconnect is an on/off setting"},
        {"port",
         {},
         {{"relayPort", "9100"}, {"webPort", PlistValue::integer(8643)}},
         {{"relayPort", "9100"}, {"webPort", "8643"}}},
        {"port too high",
         {},
         {{"relayPort", "70000"}},
         {},
         "relayPort must be a port number from 1 to 65535"},
        {"port zero", {}, {{"webPort", "0"}}, {}, "webPort must be a port"},
        {"port empty", {}, {{"webPort", ""}}, {}, "webPort must be a port"},
        {"port as a real",
         {},
         {{"relayPort", PlistValue::real(9000.5)}},
         {},
         "relayPort must be a whole number"},
        {"proxy port may be empty", {}, {{"proxyPort", ""}}, {{"proxyPort", ""}}},
        {"negative piece size", {}, {{"chunkSize", "-1"}}, {}, "chunkSize must be a whole number, not '-1'"},
        {"ten digits", {}, {{"relayMaxPlayers", "1234567890"}}, {}, "relayMaxPlayers must be a whole number"},
        {"request header injection", {}, {{"UserAgent name", "QLN\r\nX-Evil: 1"}}, {}, "one line of text"},
        {"not UTF-8", {}, {{"playlistname", "\xff\xfe"}}, {}, "one line of text"},
        {"version host",
         {},
         {{"versionHost", "updates.example.org:8080"}},
         {{"versionHost", "updates.example.org:8080"}}},
        {"version host with a path",
         {},
         {{"versionHost", "evil.example/x"}},
         {},
         "versionHost must be a host"},
        {"mail settings",
         {},
         {{"mailServer", "smtp.example.org:587"}, {"mailOnGiveUp", "on"}, {"mailTo", "me@example.org"}},
         {{"mailServer", "smtp.example.org:587"}, {"mailOnGiveUp", "YES"}, {"mailTo", "me@example.org"}},
         {},
         Unknown::refuse},
        {"mail address with a command", {}, {{"mailFrom", "a@b\r\nRCPT TO: <x@y>"}}, {}, "one line of text"},
        {"mail server with a path",
         {},
         {{"mailServer", "smtp.example.org/x"}},
         {},
         "mailServer must be a host"},
        {"genres", {}, {{"_genres", genres({"Jazz", "Rock"})}}, {{"_genres", genres({"Jazz", "Rock"})}}},
        {"genres as text", {}, {{"_genres", "Jazz"}}, {}, "_genres must be a list of genres"},
        {"a genre that is no text",
         {},
         {{"_genres", genres({"Jazz", PlistValue::integer(3)})}},
         {},
         "_genres"},
        {"own key kept", {}, {{"myKey", "x"}}, {{"myKey", "x"}}},
        {"own key refused", {}, {{"myKey", "x"}}, {}, "unknown setting 'myKey'", Unknown::refuse},
        {"empty key", {}, {{"", "x"}}, {}, "a setting needs a key"},
        {"one bad value refuses the set",
         {},
         {{"relayPort", "9100"}, {"reconnect", "maybe"}},
         {},
         "reconnect"},
        // "skip" follows "log".
        {"skip without log", {}, {{"skip", "YES"}}, {}, "skip can only be turned on while log is YES"},
        {"skip with log in the same set",
         {},
         {{"log", "YES"}, {"skip", "YES"}},
         {{"log", "YES"}, {"skip", "YES"}}},
        {"log off takes skip with it", logOn, {{"log", "NO"}}, {{"log", "NO"}, {"skip", "NO"}}},
        {"log off with skip on", logOn, {{"log", "NO"}, {"skip", "YES"}}, {}, "skip can only be turned on"},
        {"skip off alone", logOn, {{"skip", "NO"}}, {{"skip", "NO"}}},
        {"other changes leave skip", logOn, {{"reconnect", "YES"}}, {{"reconnect", "YES"}}},
        // A disabled key takes its value for when its switch goes on.
        {"piece size while split is off", {}, {{"chunkSize", "12"}}, {{"chunkSize", "12"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Preferences prefs;
        prefs.setContainer(c.current);
        auto applied = PreferenceRules::apply(prefs, c.changes, c.unknown);
        Dict expected = c.current;
        if (c.reason.empty()) {
            EXPECT_EQ(applied.reason, "");
            EXPECT_EQ(applied.written, c.written);
            for (const auto& [key, value] : c.written) expected.insert_or_assign(key, value);
        } else {
            EXPECT_NE(applied.reason.find(c.reason), std::string::npos) << applied.reason;
            EXPECT_EQ(applied.reason.find('\n'), std::string::npos);
            EXPECT_TRUE(applied.written.empty());
        }
        EXPECT_EQ(prefs.container(), expected);
    }
}

TEST(PreferenceRules, SwitchesEnableTheKeysTheyGovern) {
    struct Case {
        Dict settings;
        std::vector<std::string> enabled;  // of the keys below
    };
    const std::vector<std::string> governed = {"proxyHost", "proxyPort",    "chunkSize",
                                               "skip",      "playlistType", "playlistname"};
    const Case cases[] = {
        {{}, {}},
        {{{"proxyOn", "YES"}}, {"proxyHost", "proxyPort"}},
        {{{"proxyOn", "yes"}}, {}},  // only "YES" is on, as the settings read it
        {{{"split", "YES"}, {"log", "YES"}}, {"chunkSize", "skip"}},
        {{{"feediTunes", "YES"}}, {"playlistType"}},
        {{{"feediTunes", "YES"}, {"playlistType", "3"}}, {"playlistType"}},
        {{{"feediTunes", "YES"}, {"playlistType", "4"}}, {"playlistType", "playlistname"}},
        {{{"feediTunes", "NO"}, {"playlistType", "4"}}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(PlistValue(c.settings).text());
        auto enabled = PreferenceRules::enabledKeys(c.settings);
        for (const std::string& key : governed) {
            bool expected = std::find(c.enabled.begin(), c.enabled.end(), key) != c.enabled.end();
            EXPECT_EQ(enabled.at(key), expected) << key;
        }
        EXPECT_TRUE(enabled.at("relayPort"));
        EXPECT_TRUE(enabled.at("webPort"));
    }
}

}  // namespace
}  // namespace quillon
