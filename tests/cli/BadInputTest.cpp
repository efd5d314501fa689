// Bad input on any command line: a usage error exits 2 with exactly one line on
// stderr; a valid request that cannot be met exits 1 with its reason. Neither
// changes what is stored.
#include "cli/CliTest.h"
#include "history/HistoryTestSupport.h"
#include "store/BookmarkFolder.h"

namespace quillon::test {

void seedHistory(const std::string& folder);  // HistoryCommandTest.cpp

namespace {

TEST_F(CliTest, BadInputExitsWithOneLine) {
    writeText(file("jazz.pls"), "[playlist]\nFile1=http://streamhost:8000/\nTitle1=Jazz\n");
    ASSERT_EQ(quillon({"bookmark", "add", file("jazz.pls")}).status, 0);
    writeText(file("blues.pls"), "[playlist]\nFile1=http://streamhost:8000/\nTitle1=Blues\n");
    writeText(file("empty.pls"), "[playlist]\nNumberOfEntries=0\n");
    writeText(bookmarkFile("Broken"), "not a property list");
    writeText(file("broken.qlnbk"), "not a property list");
    writeText(file("hostless.qlnbk"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>name</key>"
              "<string>Hostless</string></dict></plist>\n");
    seedHistory(file("Library/Application Support/Quillon/History"));
    const std::string pls = file("blues.pls");
    const std::vector<std::pair<std::vector<std::string>, int>> cases = {
        {{"bookmark", "add", "/no/such/file.pls"}, 2},
        {{"bookmark", "add", ""}, 2},
        {{"bookmark", "add", file("empty.pls")}, 2},
        {{"bookmark", "add", "/proc/self/mem"}, 2},  // opens, but reading fails even for root
        {{"bookmark", "add", "http://"}, 2},
        {{"bookmark", "add", "http://host:99999/"}, 2},
        {{"bookmark", "add", file("jazz.pls")}, 2},  // exists already
        {{"bookmark", "add", pls, "--offset", "31"}, 2},
        {{"bookmark", "add", pls, "--offset", "1.5"}, 2},
        {{"bookmark", "add", pls, "--clean", "--no-clean"}, 2},
        {{"bookmark", "add", pls, "--name", "-/-"}, 2},
        {{"bookmark", "add", pls, "--name", "Радио"}, 2},
        {{"bookmark", "edit", "Jazz", "--name", "Jazz \xF0\x9F\x8E\xB5"}, 2},
        {{"bookmark", "edit", "Jazz", "--offset", "-31"}, 2},
        {{"bookmark", "edit", "Jazz", "--title-encoding", "koi8-r"}, 2},
        {{"record", "Jazz", "--title-encoding", "utf16"}, 2},
        {{"bookmark", "edit", "Nothing", "--clean"}, 2},
        {{"bookmark", "edit", "Broken", "--clean"}, 2},
        {{"bookmark", "show", "Nothing"}, 2},
        {{"bookmark", "show", "../escape"}, 2},
        {{"bookmark", "rm", "Nothing"}, 2},
        {{"bookmark", "rm", "/etc/passwd"}, 2},
        {{"bookmark"}, 2},
        {{"prefs", "set", "reconnect", "maybe"}, 2},
        {{"prefs", "set", "relayPort", "abc"}, 2},
        {{"prefs", "set", "relayPort", "70000"}, 2},
        {{"prefs", "set", "chunkSize", "-1"}, 2},
        {{"prefs", "set", "skip", "YES"}, 2},  // only with the history on
        {{"prefs", "get"}, 2},
        {{"history"}, 2},
        {{"history", "search"}, 2},
        {{"history", "list", "--day", "yesterday"}, 2},
        {{"history", "list", "--day", "2008_07"}, 2},
        {{"history", "list", "--day", "2020_13_45"}, 2},
        {{"history", "list", "--day", "2009_01_01"}, 1},
        {{"history", "rm", "2008_07_06"}, 2},  // no terminal to ask on
        {{"history", "rm", "2008_07_05:0", "--yes"}, 2},
        {{"history", "rm", "2008_07_05:x", "--yes"}, 2},
        {{"history", "rm", "05:1", "--yes"}, 2},
        {{"history", "rm", "2008_07_05:3", "--yes"}, 1},
        {{"history", "rm", "2009_01_01", "--yes"}, 1},
        {{"history", "add", file("none.mp3")}, 2},
        {{"history", "add", file("jazz.pls")}, 1},
        {{"record"}, 2},
        {{"record", "http://127.0.0.1:9/x", "--for", "soon"}, 2},
        {{"record", "no-such-bookmark-or-file"}, 2},
        {{"record", "http://127.0.0.1:99999/"}, 2},
        {{"record", file("broken.qlnbk")}, 2},
        {{"record", file("hostless.qlnbk")}, 2},
        {{"station", "--rate", "fast"}, 2},
        {{"station", "--payload", "wav"}, 2},
        {{"station", "--status", "shout"}, 2},
        {{"station", "--port", "70000"}, 2},
        {{"station", "--metaint", "lots"}, 2},
        {{"station", "--bitrate", "100"}, 2},
        {{"station", "--refuse", "200"}, 2},
        {{"station", "--redirect-to", "ftp://x"}, 2},
        {{"station", "--metaint", "0", "--bad-meta-at", "1"}, 2},
        {{"station", "--empty-titles", "--blank-titles"}, 2},
        {{"station", "--titles", " , "}, 2},
        {{"station", "--close-after", "0"}, 2},
    };
    for (const auto& [args, status] : cases) {
        const auto result = quillon(args);
        std::string shown;
        for (const auto& a : args) shown += " " + a;
        EXPECT_EQ(result.status, status) << shown << ": " << result.err;
        EXPECT_EQ(result.out, "") << shown;
        if (status == 2) {
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1)
                << shown << ": " << result.err;
            EXPECT_EQ(result.err.rfind("quillon: ", 0), 0u) << shown << ": " << result.err;
        } else {
            EXPECT_FALSE(result.err.empty()) << shown;
        }
    }
    EXPECT_EQ(quillon({"bookmark", "add", pls, "--name", "Радио"}).err,
              "quillon: bookmark names are limited to Latin-1 characters: \"Радио\"\n");
    EXPECT_EQ(BookmarkFolder::bookmarkNames(file("Documents/QLN Bookmarks")),
              (std::vector<std::string>{"Broken", "Jazz"}));
    EXPECT_EQ(lines(quillon({"bookmark", "show", "Jazz"}).out).empty(), false);
    EXPECT_NE(quillon({"bookmark", "show", "Jazz", "--json"}).out.find("\"recOffset\": 0"),
              std::string::npos);
    EXPECT_EQ(lines(quillon({"history", "list"}).out).size(), 2u) << "no day deleted";
    EXPECT_EQ(lines(quillon({"history", "list", "--day", "2008_07_05"}).out).size(), 3u)
        << "no track deleted";
}

}  // namespace
}  // namespace quillon::test
