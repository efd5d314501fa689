// `quillon bookmark` and `quillon prefs`, run as a user would, each with a
// fresh home folder.
#include <gtest/gtest.h>

#include <filesystem>

#include "StoreTestSupport.h"
#include "platform/PlistCodec.h"
#include "store/BookmarkFolder.h"
#include "support/Process.h"
#include "support/Terminal.h"

namespace quillon {
namespace {

using test::FakeServer;
using test::ScopedHome;

class CommandLine : public ::testing::Test {
protected:
    test::ProcessResult quillon(std::vector<std::string> args) {
        args.insert(args.begin(), QUILLON_BINARY);
        return test::runProcess(args, {.environment = {{"QUILLON_HOME", home_.path()}}});
    }
    std::string bookmarkFile(const std::string& name) const {
        return home_.file("Documents/QLN Bookmarks/" + name + ".qlnbk");
    }
    ScopedHome home_;
};

TEST_F(CommandLine, BookmarkLifeCycleFromAPlaylistFile) {
    test::writeText(home_.file("jazz.pls"), "[playlist]\nFile1=http://streamhost:8000/\nTitle1=Jazz Radio\n");
    auto added = quillon({"bookmark", "add", home_.file("jazz.pls")});
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
    EXPECT_EQ(quillon({"bookmark", "add", home_.file("jazz.pls")}).status, 1);
    EXPECT_EQ(quillon({"bookmark", "add", home_.file("jazz.pls"), "--force"}).status, 0);
    auto renamed = quillon({"bookmark", "add", home_.file("jazz.pls"), "--name", "Late:Night"});
    EXPECT_EQ(renamed.out, bookmarkFile("Late Night") + "\n");

    auto removed = quillon({"bookmark", "rm", "Jazz Radio"});
    EXPECT_EQ(removed.status, 0);
    EXPECT_FALSE(std::filesystem::exists(bookmarkFile("Jazz Radio")));
    EXPECT_EQ(quillon({"bookmark", "rm", "Jazz Radio"}).status, 1);
    EXPECT_EQ(quillon({"bookmark", "show", "Jazz Radio"}).status, 1);
    EXPECT_EQ(quillon({"bookmark", "list", "--json"}).out.find("Late Night") != std::string::npos, true);
}

TEST_F(CommandLine, BookmarkFromALiveStream) {
    FakeServer station({"ICY 200 OK\r\nicy-name:Loopback FM\r\nicy-genre:Test\r\n\r\n", true});
    auto added = quillon({"bookmark", "add", station.url("/live")});
    ASSERT_EQ(added.status, 0) << added.err;
    auto saved = PlistCodec::readDictionaryFile(bookmarkFile("Loopback FM"));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("host"), PlistValue("127.0.0.1"));
    EXPECT_EQ(saved->at("port"), PlistValue(std::to_string(station.port())));
    EXPECT_EQ(saved->at("path"), PlistValue("/live"));
}

TEST_F(CommandLine, BookmarkFromAnHttpStreamOrNot) {
    FakeServer icecast({"HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nicy-name: Ice Test\r\n\r\n", true});
    auto added = quillon({"bookmark", "add", icecast.url("/mount?x=1"), "--json"});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_NE(added.out.find("\"name\": \"Ice Test\""), std::string::npos);
    EXPECT_NE(added.out.find("\"path\": \"/mount?x=1\""), std::string::npos);

    FakeServer page({"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n\r\n" + std::string(5000, 'h')});
    auto refused = quillon({"bookmark", "add", page.url("/index.html")});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(BookmarkFolder::bookmarkNames(home_.file("Documents/QLN Bookmarks")).size(), 1u);
}

TEST_F(CommandLine, BookmarkBadInput) {
    struct Case {
        std::vector<std::string> args;
        int status;
    };
    const Case cases[] = {
        {{"bookmark", "add", "/no/such/file.pls"}, 2},
        {{"bookmark", "add", ""}, 2},
        {{"bookmark", "show", "../escape"}, 2},
        {{"bookmark", "rm", "/etc/passwd"}, 2},
        {{"bookmark"}, 2},
        {{"bookmark", "add"}, 2},
    };
    for (const Case& c : cases) {
        auto result = quillon(c.args);
        EXPECT_EQ(result.status, c.status) << c.args.back();
        EXPECT_FALSE(result.err.empty());
    }
    test::writeText(home_.file("empty.pls"), "[playlist]\nNumberOfEntries=0\n");
    auto nothing = quillon({"bookmark", "add", home_.file("empty.pls")});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_NE(nothing.err.find("No stream location found"), std::string::npos);
}

TEST_F(CommandLine, PrefsGetSetList) {
    auto initial = quillon({"prefs", "get", "reconnect"});
    EXPECT_EQ(initial.status, 0);
    EXPECT_EQ(initial.out, "\n");

    EXPECT_EQ(quillon({"prefs", "set", "reconnect", "yes"}).out, "reconnect = YES\n");
    EXPECT_EQ(quillon({"prefs", "get", "reconnect"}).out, "YES\n");
    EXPECT_EQ(quillon({"prefs", "set", "relayPort", "9100"}).status, 0);
    auto saved = PlistCodec::readDictionaryFile(home_.file("Library/Preferences/kv.vossen.qln.prf"));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("reconnect"), PlistValue("YES"));
    EXPECT_EQ(saved->at("relayPort"), PlistValue("9100"));

    // The history switch governs skipping.
    EXPECT_EQ(quillon({"prefs", "set", "skip", "YES"}).status, 2);
    EXPECT_EQ(quillon({"prefs", "set", "log", "YES"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "set", "skip", "YES"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "set", "log", "NO"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "get", "skip"}).out, "NO\n");

    for (const auto& args : std::vector<std::vector<std::string>>{{"prefs", "set", "reconnect", "maybe"},
                                                                  {"prefs", "set", "relayPort", "abc"},
                                                                  {"prefs", "set", "relayPort", "70000"},
                                                                  {"prefs", "set", "chunkSize", "-1"},
                                                                  {"prefs", "get"}}) {
        EXPECT_EQ(quillon(args).status, 2) << args.back();
    }
    EXPECT_EQ(quillon({"prefs", "get", "relayPort"}).out, "9100\n");

    EXPECT_EQ(quillon({"prefs", "set", "_genres", "Jazz, Blues ,Rock"}).status, 0);
    EXPECT_EQ(quillon({"prefs", "get", "_genres"}).out, "Jazz\nBlues\nRock\n");
    auto json = quillon({"prefs", "list", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_NE(json.out.find("\"_genres\": [\n    \"Jazz\",\n    \"Blues\",\n    \"Rock\"\n  ]"),
              std::string::npos);
    EXPECT_NE(quillon({"prefs", "list"}).out.find("reconnect = YES\n"), std::string::npos);
}

TEST_F(CommandLine, ADamagedSettingsFileIsKeptAndTheUserWarned) {
    const std::string prefsFile = home_.file("Library/Preferences/kv.vossen.qln.prf");
    makeFolders(home_.file("Library/Preferences"));
    const std::string damaged = "<?xml version=\"1.0\"?><plist><dict><key>relayPort</key><string>91";
    test::writeText(prefsFile, damaged);
    auto list = quillon({"prefs", "list"});
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_NE(list.out.find("_genres = Acid Jazz"), std::string::npos);  // the defaults
    EXPECT_NE(list.err.find("Warning: " + prefsFile + " cannot be read"), std::string::npos) << list.err;
    auto aside = list.err.find(prefsFile + ".damaged-");
    ASSERT_NE(aside, std::string::npos);
    EXPECT_EQ(test::readText(list.err.substr(aside, list.err.find(' ', aside) - aside)), damaged);
}

TEST_F(CommandLine, StoredTextsReachTheTerminalWithoutControlCharacters) {
    const PlistValue hostile{std::string(test::kHostileTitle)};
    makeFolders(home_.file("Documents/QLN Bookmarks"));
    makeFolders(home_.file("Library/Preferences"));
    ASSERT_TRUE(PlistCodec::writeXmlFile(
        bookmarkFile("Evil"),
        PlistValue(PlistValue::Dictionary{
            {"name", hostile}, {"host", PlistValue("h\x1b[2J")}, {"path", PlistValue("/\x07")}})));
    ASSERT_TRUE(PlistCodec::writeXmlFile(
        home_.file("Library/Preferences/kv.vossen.qln.prf"),
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
        EXPECT_FALSE(test::holdsControlCharacter(result.out)) << args[1] << ": " << result.out;
    }
    EXPECT_EQ(PlistCodec::readDictionaryFile(bookmarkFile("Evil"))->at("name"), hostile);  // stored as is
}

}  // namespace
}  // namespace quillon
