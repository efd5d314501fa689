// `quillon bookmark` and `quillon prefs`, run as a user would.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli/CliTest.h"
#include "platform/PlistCodec.h"
#include "store/BookmarkFolder.h"
#include "store/StoreTestSupport.h"
#include "support/Terminal.h"

namespace quillon::test {
namespace {

class BookmarkCommand : public CliTest {
protected:
    // A playlist file for `bookmark add`.
    std::string playlist(const std::string& title = "Jazz") const {
        std::string path = file(title + ".pls");
        writeText(path, "[playlist]\nFile1=http://streamhost:8000/\nTitle1=" + title + "\n");
        return path;
    }
    nlohmann::json shown(const std::string& name) const {
        auto show = quillon({"bookmark", "show", name, "--json"});
        EXPECT_EQ(show.status, 0) << show.err;
        return nlohmann::json::parse(show.out, nullptr, false);
    }
};

TEST_F(BookmarkCommand, BookmarkLifeCycleFromAPlaylistFile) {
    writeText(file("jazz.pls"), "[playlist]\nFile1=http://streamhost:8000/\nTitle1=Jazz Radio\n");
    auto added = quillon({"bookmark", "add", file("jazz.pls")});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.out, bookmarkFile("Jazz Radio") + "\n");
    auto saved = PlistCodec::readDictionaryFile(bookmarkFile("Jazz Radio"));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("host"), PlistValue("streamhost"));
    EXPECT_EQ(saved->at("port"), PlistValue("8000"));

    auto list = quillon({"bookmark", "list"});
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out, "Jazz Radio\tstreamhost:8000/\n");

    auto show = quillon({"bookmark", "show", "Jazz Radio", "--json"});
    EXPECT_EQ(show.status, 0);
    EXPECT_NE(show.out.find("\"host\": \"streamhost\""), std::string::npos);
    EXPECT_NE(show.out.find("\"separator\": \" - \""), std::string::npos);

    // Adding it again needs --force; --name picks another file.
    EXPECT_EQ(quillon({"bookmark", "add", file("jazz.pls")}).status, 2);
    EXPECT_EQ(quillon({"bookmark", "add", file("jazz.pls"), "--force"}).status, 0);
    auto renamed = quillon({"bookmark", "add", file("jazz.pls"), "--name", "Late:Night"});
    EXPECT_EQ(renamed.out, bookmarkFile("Late Night") + "\n");

    auto removed = quillon({"bookmark", "rm", "Jazz Radio"});
    EXPECT_EQ(removed.status, 0);
    EXPECT_FALSE(std::filesystem::exists(bookmarkFile("Jazz Radio")));
    EXPECT_EQ(quillon({"bookmark", "rm", "Jazz Radio"}).status, 2);
    EXPECT_EQ(quillon({"bookmark", "show", "Jazz Radio"}).status, 2);
    EXPECT_EQ(quillon({"bookmark", "list", "--json"}).out.find("Late Night") != std::string::npos, true);
}

TEST_F(BookmarkCommand, BookmarkFromALiveStreamOrNot) {
    auto icy = station([](StationOptions& o) { o.name = "Loopback FM"; });
    auto added = quillon({"bookmark", "add", icy->url() + "live"});
    ASSERT_EQ(added.status, 0) << added.err;
    auto saved = PlistCodec::readDictionaryFile(bookmarkFile("Loopback FM"));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("host"), PlistValue("127.0.0.1"));
    EXPECT_EQ(saved->at("port"), PlistValue(std::to_string(icy->port())));
    EXPECT_EQ(saved->at("path"), PlistValue("/live"));

    auto icecast = station([](StationOptions& o) { o.status = StationStatus::http, o.name = "Ice Test"; });
    added = quillon({"bookmark", "add", icecast->url() + "mount?x=1", "--json"});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_NE(added.out.find("\"name\": \"Ice Test\""), std::string::npos);
    EXPECT_NE(added.out.find("\"path\": \"/mount?x=1\""), std::string::npos);

    FakeServer page({"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n\r\n" + std::string(5000, 'h')});
    EXPECT_EQ(quillon({"bookmark", "add", page.url("/index.html")}).status, 1);
    EXPECT_EQ(BookmarkFolder::bookmarkNames(file("Documents/QLN Bookmarks")).size(), 2u);
}

// Each edit changes one setting: the saved bookmark shows that change and
// nothing else, and edit prints what show prints. add takes the same flags.
TEST_F(BookmarkCommand, EveryRecordingOptionRoundTripsThroughEdit) {
    ASSERT_EQ(quillon({"bookmark", "add", playlist()}).status, 0);
    nlohmann::json expected = shown("Jazz");
    struct Case {
        std::vector<std::string> flags;
        const char* key;
        nlohmann::json value;
    };
    // clang-format off
    const Case cases[] = {
        {{"--track-numbers"}, "trackNum", true},     {{"--no-track-numbers"}, "trackNum", false},
        {{"--artist-folders"}, "sortArtists", true}, {{"--no-artist-folders"}, "sortArtists", false},
        {{"--clean"}, "clean", true},                {{"--no-clean"}, "clean", false},
        {{"--no-split"}, "noSplit", true},           {{"--split"}, "noSplit", false},
        {{"--separator= / "}, "separator", " / "},   {{"--separator", ""}, "separator", ""},
        {{"--genre=Bebop"}, "genre", "Bebop"},       {{"--offset", "-30"}, "recOffset", -30},
        {{"--offset=+30"}, "recOffset", 30},         {{"--name", "Café/Jazz"}, "name", "Café Jazz"},
        {{"--title-encoding", "windows-1251"}, "titleEncoding", "CP1251"},
        {{"--title-encoding=AUTO"}, "titleEncoding", "auto"},
        {{"--title-encoding", "latin1"}, "titleEncoding", "ISO-8859-1"},
        {{"--allow-untrusted-certificate"}, "allowUntrusted", true},
        {{"--require-trusted-certificate"}, "allowUntrusted", false},
    };
    // clang-format on
    std::string name = "Jazz";
    for (const Case& c : cases) {
        std::vector<std::string> args = {"bookmark", "edit", name, "--json"};
        args.insert(args.end(), c.flags.begin(), c.flags.end());
        auto edited = quillon(args);
        ASSERT_EQ(edited.status, 0) << c.flags[0] << ": " << edited.err;
        expected[c.key] = c.value;
        name = expected["name"];
        expected["file"] = bookmarkFile(name);
        EXPECT_EQ(shown(name), expected) << c.flags[0];
        EXPECT_EQ(nlohmann::json::parse(edited.out, nullptr, false), expected) << c.flags[0];
    }
    EXPECT_FALSE(std::filesystem::exists(bookmarkFile("Jazz")));
    EXPECT_EQ(shown("Café/Jazz"), expected);  // found by the name as given, too
    // No flags: nothing is written (a save makes a new file: a new inode).
    auto inode = [&] {
        struct stat st {};
        return ::stat(bookmarkFile(name).c_str(), &st) == 0 ? st.st_ino : 0;
    };
    const auto before = inode();
    EXPECT_EQ(nlohmann::json::parse(quillon({"bookmark", "edit", name, "--json"}).out, nullptr, false),
              expected);
    EXPECT_EQ(inode(), before);

    auto added =
        quillon({"bookmark", "add", playlist("Blues"), "--no-split", "--offset", "-7", "--genre", "Delta"});
    ASSERT_EQ(added.status, 0) << added.err;
    auto blues = shown("Blues");
    EXPECT_EQ(blues["noSplit"], true);
    EXPECT_EQ(blues["recOffset"], -7);
    EXPECT_EQ(blues["genre"], "Delta");
}

TEST_F(BookmarkCommand, RenamingOntoAnotherBookmarkNeedsForce) {
    ASSERT_EQ(quillon({"bookmark", "add", playlist("Jazz")}).status, 0);
    ASSERT_EQ(quillon({"bookmark", "add", playlist("Blues"), "--genre", "Blues"}).status, 0);
    EXPECT_EQ(quillon({"bookmark", "edit", "Jazz", "--name", "Blues"}).status, 2);
    EXPECT_EQ(shown("Blues")["genre"], "Blues");
    ASSERT_EQ(quillon({"bookmark", "edit", "Jazz", "--name", "Blues", "--force"}).status, 0);
    EXPECT_EQ(shown("Blues")["genre"], "-");
    EXPECT_EQ(BookmarkFolder::bookmarkNames(file("Documents/QLN Bookmarks")),
              std::vector<std::string>{"Blues"});
}

TEST_F(BookmarkCommand, PrefsGetSetList) {
    auto initial = quillon({"prefs", "get", "reconnect"});
    EXPECT_EQ(initial.status, 0);
    EXPECT_EQ(initial.out, "\n");

    EXPECT_EQ(quillon({"prefs", "set", "reconnect", "yes"}).out, "reconnect = YES\n");
    EXPECT_EQ(quillon({"prefs", "get", "reconnect"}).out, "YES\n");
    EXPECT_EQ(quillon({"prefs", "set", "relayPort", "9100"}).status, 0);
    auto saved = PlistCodec::readDictionaryFile(file("Library/Preferences/kv.vossen.qln.prf"));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("reconnect"), PlistValue("YES"));
    EXPECT_EQ(saved->at("relayPort"), PlistValue("9100"));

    // The history switch governs skipping.
    EXPECT_EQ(quillon({"prefs", "set", "skip", "YES"}).status, 2);
    EXPECT_EQ(quillon({"prefs", "set", "log", "YES"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "set", "skip", "YES"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "set", "log", "NO"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "get", "skip"}).out, "NO\n");

    EXPECT_EQ(quillon({"prefs", "set", "relayPort", "70000"}).status, 2);
    EXPECT_EQ(quillon({"prefs", "get", "relayPort"}).out, "9100\n");

    EXPECT_EQ(quillon({"prefs", "set", "_genres", "Jazz, Blues ,Rock"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "get", "_genres"}).out, "Jazz\nBlues\nRock\n");
    auto json = quillon({"prefs", "list", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_NE(json.out.find("\"_genres\": [\n    \"Jazz\",\n    \"Blues\",\n    \"Rock\"\n  ]"),
              std::string::npos);
    EXPECT_NE(quillon({"prefs", "list"}).out.find("reconnect = YES\n"), std::string::npos);
}

TEST_F(BookmarkCommand, ADamagedSettingsFileIsKeptAndTheUserWarned) {
    const std::string prefsFile = file("Library/Preferences/kv.vossen.qln.prf");
    makeFolders(file("Library/Preferences"));
    const std::string damaged = "<?xml version=\"1.0\"?><plist><dict><key>relayPort</key><string>91";
    writeText(prefsFile, damaged);
    auto list = quillon({"prefs", "list"});
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_NE(list.out.find("_genres = Acid Jazz"), std::string::npos);  // the defaults
    EXPECT_NE(list.err.find("Warning: " + prefsFile + " cannot be read"), std::string::npos) << list.err;
    auto aside = list.err.find(prefsFile + ".damaged-");
    ASSERT_NE(aside, std::string::npos);
    EXPECT_EQ(readText(list.err.substr(aside, list.err.find(' ', aside) - aside)), damaged);
}

TEST_F(BookmarkCommand, StoredTextsReachTheTerminalWithoutControlCharacters) {
    const PlistValue hostile{std::string(kHostileTitle)};
    makeFolders(file("Documents/QLN Bookmarks"));
    makeFolders(file("Library/Preferences"));
    ASSERT_TRUE(PlistCodec::writeXmlFile(
        bookmarkFile("Evil"),
        PlistValue(PlistValue::Dictionary{
            {"name", hostile}, {"host", PlistValue("h\x1b[2J")}, {"path", PlistValue("/\x07")}})));
    ASSERT_TRUE(PlistCodec::writeXmlFile(
        file("Library/Preferences/kv.vossen.qln.prf"),
        PlistValue(PlistValue::Dictionary{{"UserAgent name", hostile},
                                          {"_genres", PlistValue(PlistValue::Array{hostile})}})));
    const std::vector<std::string> commands[] = {{"bookmark", "list"},
                                                 {"bookmark", "show", "Evil"},
                                                 {"prefs", "list"},
                                                 {"prefs", "get", "UserAgent name"},
                                                 {"prefs", "get", "_genres"}};
    for (const auto& args : commands) {
        auto result = quillon(args);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_NE(result.out.find("Evil"), std::string::npos) << args[1];
        EXPECT_FALSE(holdsControlCharacter(result.out)) << args[1] << ": " << result.out;
    }
    EXPECT_EQ(PlistCodec::readDictionaryFile(bookmarkFile("Evil"))->at("name"), hostile);  // stored as is
}

}  // namespace
}  // namespace quillon::test
