// Bookmarks: name cleaning, defaults, files, playlist text and the redirect.
#include <gtest/gtest.h>

#include <filesystem>

#include "StoreTestSupport.h"
#include "platform/DefaultsStore.h"
#include "platform/PlistCodec.h"
#include "platform/TextUtil.h"
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"

namespace quillon {
namespace {

using test::FakeServer;
using test::ScopedHome;
using test::ScopedTiming;

std::size_t utf16Length(const std::string& text) {
    std::size_t n = 0;
    for (char32_t c : toUtf32(text)) n += c > 0xFFFF ? 2 : 1;
    return n;
}

TEST(Bookmark, CheckNameKeepsOnlyLettersAndDigits) {
    struct Case {
        std::optional<std::string> in;
        std::string out;
    };
    const Case cases[] = {
        {"a/b:c_d-e.f", "a b c d e f"},
        {"Radio-X: Rock/Pop", "Radio X  Rock Pop"},
        {std::nullopt, ""},
        {"", ""},
        {"Line\r\nEnd", "Line  End"},
        {"  99 FM ", "  99 FM "},
        // Latin-1 letters and digits are kept as they are, its other
        // characters blanked: é, Ç, À, µ, ² stay; «, ×, the no-break space and
        // the control U+0080 go.
        {"Caf\xC3\xA9 \xC3\x87"
         "a \xC3\x80 \xC2\xB5\xC2\xB2",
         "Caf\xC3\xA9 \xC3\x87"
         "a \xC3\x80 \xC2\xB5\xC2\xB2"},
        {"\xC2\xAB"
         "a\xC3\x97"
         "b\xC2\xA0\xC2\x80",
         " a b  "},
        {"\xC5\x82\xC3\xB3"
         "d\xC5\xBA",
         " \xC3\xB3"
         "d "},                                // beyond Latin-1: blank
        {"\xF0\x9F\x8E\xB5 Hits", "   Hits"},  // one emoji is two UTF-16 units
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in.value_or("(nil)"));
        std::string cleaned =
            Bookmark::checkName(c.in ? std::optional<std::string_view>(*c.in) : std::nullopt);
        EXPECT_EQ(cleaned, c.out);
        EXPECT_EQ(utf16Length(cleaned), utf16Length(c.in.value_or("")));
    }
    Bookmark b;
    b.setName(std::string("My/Radio"));
    EXPECT_EQ(b.name(), "My Radio");
    EXPECT_EQ(b.connName(), "My Radio");
}

TEST(Bookmark, DefaultsAndStoredForms) {
    Bookmark b;
    EXPECT_EQ(b.genre(), "-");
    EXPECT_EQ(b.separator(), " - ");
    EXPECT_FALSE(b.clean() || b.noSplit() || b.sortArtists() || b.trackNum());
    EXPECT_EQ(b.recOffset(), 0);
    EXPECT_EQ(b.titleEncoding(), "auto");
    EXPECT_EQ(b.container().size(), 1u);  // only the separator
    EXPECT_EQ(b.description(), "Bookmark (null) Host (null) Port (null) Path /");
    b.setNoSplit(true);
    b.setRecOffset(-250);
    EXPECT_EQ(b.objectForKey("nosplit"), PlistValue("YES"));
    EXPECT_EQ(b.objectForKey("recOffset"), PlistValue("-250"));
    EXPECT_EQ(b.recOffset(), -250);

    // A path loses one carriage return; an empty one reads as the root.
    const std::pair<const char*, const char*> paths[] = {
        {"/stream\r", "/stream"}, {"/stream\r\r", "/stream\r"}, {"", "/"}};
    for (const auto& [set, read] : paths) {
        b.setPath(std::string(set));
        EXPECT_EQ(b.path(), read) << set;
    }
    // Stored only when chosen, so a bookmark that never chose stays as it was.
    b.setTitleEncoding("CP1251");
    EXPECT_EQ(b.objectForKey("titleEncoding"), PlistValue("CP1251"));
    EXPECT_EQ(b.titleEncoding(), "CP1251");
    for (const char* none : {"auto", ""}) {
        b.setTitleEncoding("CP1251");
        b.setTitleEncoding(none);
        EXPECT_FALSE(b.objectForKey("titleEncoding").has_value()) << none;
        EXPECT_EQ(b.titleEncoding(), "auto");
    }
}

TEST(Bookmark, AuthenticationNeedsBothParts) {
    struct Case {
        std::optional<std::string> user, pass, expected;
    };
    const Case cases[] = {
        {"bob", "secret", "bob:secret"},     {"bob", "", std::nullopt},
        {"", "secret", std::nullopt},        {std::nullopt, "secret", std::nullopt},
        {"bob", std::nullopt, std::nullopt},
    };
    for (const Case& c : cases) {
        Bookmark b;
        b.setUser(c.user);
        b.setPass(c.pass);
        EXPECT_EQ(b.authentication(), c.expected);
    }
}

TEST(Bookmark, SavesAsNameDotQlnbkAndLoadsBack) {
    ScopedHome home;
    Bookmark b;
    b.setName(std::string("My Radio"));
    b.setHost(std::string("example.org"));
    b.setPort(std::string("8000"));
    b.setTrackNum(true);
    b.setUniqueId(12);
    EXPECT_TRUE(b.saveToFile(home.path()));
    EXPECT_TRUE(b.filePath().empty());  // saving does not record a path
    std::string file = home.file("My Radio.qlnbk");
    ASSERT_TRUE(std::filesystem::exists(file));

    Bookmark back;
    ASSERT_TRUE(back.loadFromFile(file));
    EXPECT_EQ(back.filePath(), file);
    // The file's dictionary replaces everything, the type recorded from the
    // path included.
    EXPECT_EQ(back.container(), b.container());
    EXPECT_EQ(back.fileType(), "");

    Bookmark keep;
    keep.setHost(std::string("kept"));
    EXPECT_FALSE(keep.loadFromFile(home.file("nothing.qlnbk")));
    EXPECT_EQ(keep.host(), "kept");
    EXPECT_FALSE(b.saveToFile(home.file("no/such/folder")));
}

TEST(Bookmark, ParseDataFindsTheTextBetweenMarkers) {
    const std::string data = "a=1\nTitle1=Jazz\nb=2\n";
    EXPECT_EQ(Bookmark::parseData(asBytes(data), "Title1=", "\n"), "Jazz");
    EXPECT_EQ(Bookmark::parseData(asBytes(data), "Title2=", "\n"), "");
    EXPECT_EQ(Bookmark::parseData(asBytes(data), "b=", "\r"), "");
}

TEST(Bookmark, FillsItselfFromPlaylistText) {
    struct Case {
        const char* what;
        std::string data;
        std::optional<std::string> name, port;  // set before
        bool ok;
        std::optional<std::string> expName, expHost, expPort;
        std::string expPath;
    };
    const std::vector<Case> cases = {
        {"pls", "[playlist]\nFile1=http://streamhost:8000/\nTitle1=Jazz\n", std::nullopt, std::nullopt, true,
         "Jazz", "streamhost", "8000", "/"},
        {"no port gives 80", "File1=http://streamhost/live\n", std::nullopt, std::nullopt, true,
         "Untitled Stream", "streamhost", "80", "/live"},
        {"empty name is replaced", "File1=http://h:1/\n", std::string(""), std::nullopt, true,
         "Untitled Stream", "h", "1", "/"},
        {"existing name stays", "File1=http://h:1/\nTitle1=Other\n", std::string("Mine"), std::nullopt, true,
         "Mine", "h", "1", "/"},
        {"bare URL line (m3u)", "#EXTM3U\n#EXTINF:-1,X\nhttp://m3u.example:9000/a.mp3\n", std::nullopt,
         std::nullopt, true, "Untitled Stream", "m3u.example", "9000", "/a.mp3"},
        {"port read from the text", "File1=http://h:8010xyz/\n", std::nullopt, std::nullopt, true,
         "Untitled Stream", "h", "8010", "/"},
        {"stored port kept", "File1=http://h/\n", std::nullopt, std::string("9100"), true, "Untitled Stream",
         "h", "9100", "/"},
        {"port zero falls back to 80", "File1=http://h:0/\n", std::nullopt, std::nullopt, true,
         "Untitled Stream", "h", "80", "/"},
        {"CRLF lines", "File1=http://h:8002/;\r\nTitle1=Win\r\n", std::nullopt, std::nullopt, true, "Win ",
         "h", "8002", "/;"},
        {"no location", "[playlist]\nNumberOfEntries=0\n", std::nullopt, std::nullopt, false,
         "Untitled Stream", std::nullopt, std::nullopt, "/"},
        {"location without line end", "File1=http://h:1/", std::nullopt, std::nullopt, false,
         "Untitled Stream", std::nullopt, std::nullopt, "/"},
        {"not a URL", "File1=http://bad host/\n", std::nullopt, std::nullopt, false, "Untitled Stream",
         std::nullopt, std::nullopt, "/"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bookmark b;
        if (c.name) b.setName(*c.name);
        b.setPort(c.port);
        EXPECT_EQ(b.getUrlFromData(c.data), c.ok);
        EXPECT_EQ(b.name(), c.expName);
        EXPECT_EQ(b.host(), c.expHost);
        EXPECT_EQ(b.port(), c.expPort);
        EXPECT_EQ(b.path(), c.expPath);
    }
}

TEST(Bookmark, PlaylistUserAndPassword) {
    Bookmark b;
    ASSERT_TRUE(b.getUrlFromData(std::string_view("File1=http://bob:s%40cret@h:8000/\n")));
    EXPECT_EQ(b.user(), "bob");
    EXPECT_EQ(b.pass(), "s@cret");
    EXPECT_EQ(b.authentication(), "bob:s@cret");
}

class BookmarkRedirect : public ::testing::Test {
protected:
    void SetUp() override { timing().redirectTimeout = 2.0; }
    ScopedTiming savedTiming_;
};

TEST_F(BookmarkRedirect, FollowsTheLocationHeaderOnce) {
    struct Case {
        const char* location;
        bool ok;
        std::string host;
        std::optional<std::string> port, path;
    };
    const Case cases[] = {
        {"http://127.0.0.1:8123/live?sid=2", true, "127.0.0.1", "8123", "/live?sid=2"},
        {"http://10.1.2.3:8000/stream", true, "10.1.2.3", "8000",
         "/stream?(null)"},  // no query: the null text
        {"http://radio.example/stream?a=b", false, "radio.example", std::nullopt, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.location);
        FakeServer script(
            {std::string("HTTP/1.0 302 Found\r\nLocation: ") + c.location + "\r\nServer: x\r\n\r\n"});
        Bookmark b;
        EXPECT_EQ(b.getUrlFromData("File1=" + script.url("/tune.pls?id=5") + "\nTitle1=Station\n"), c.ok);
        EXPECT_EQ(script.requests(), std::vector<std::string>{"GET /tune.pls?id=5 HTTP/1.0\r\n\r\n"});
        EXPECT_EQ(b.host(), c.host);
        EXPECT_EQ(b.port(), c.port);
        if (c.path) {
            EXPECT_EQ(b.path(), *c.path);
        }
        EXPECT_EQ(b.name(), "Station");
    }
}

TEST_F(BookmarkRedirect, WithoutARedirectTheQueryUrlStays) {
    FakeServer plain({"HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n"});
    FakeServer silent({"", false, true});
    int closedPort = 0;
    {
        FakeServer gone({""});
        closedPort = gone.port();
    }
    const std::pair<const char*, int> servers[] = {{"no Location header", plain.port()},
                                                   {"no answer in time", silent.port()},
                                                   {"nobody listening", closedPort}};
    for (const auto& [what, port] : servers) {
        SCOPED_TRACE(what);
        Bookmark b;
        std::string location = "http://127.0.0.1:" + std::to_string(port) + "/s.cgi?id=7";
        EXPECT_TRUE(b.getUrlFromData("File1=" + location + "\n"));
        EXPECT_EQ(b.host(), "127.0.0.1");
        EXPECT_EQ(b.port(), std::to_string(port));
        EXPECT_EQ(b.path(), "/s.cgi?id=7");
    }
}

TEST(BookmarkFolder, DefaultFolderIsCreatedAndRecorded) {
    ScopedHome home;
    DefaultsStore::standard().removeObject(BookmarkFolder::kDefaultsKey);
    auto folder = BookmarkFolder::folder();
    ASSERT_TRUE(folder.has_value());
    EXPECT_EQ(*folder, home.file("Documents/QLN Bookmarks/"));
    EXPECT_TRUE(std::filesystem::is_directory(*folder));
    EXPECT_EQ(BookmarkFolder::storedFolder(), *folder);

    // A stored folder that has gone is reported, not recreated.
    BookmarkFolder::setFolder(home.file("gone"));
    EXPECT_FALSE(BookmarkFolder::folder().has_value());
    EXPECT_FALSE(std::filesystem::exists(home.file("gone")));
}

TEST(BookmarkFolder, ListsBookmarksInGroups) {
    ScopedHome home;
    std::filesystem::create_directories(home.file("b/Talk"));
    for (const char* name : {"b/Jazz.qlnbk", "b/Talk/News.qlnbk", "b/notes.txt"})
        test::writeText(home.file(name), "x");
    EXPECT_EQ(BookmarkFolder::bookmarkNames(home.file("b")), (std::vector<std::string>{"Jazz", "Talk/News"}));
    EXPECT_EQ(BookmarkFolder::pathForName(home.file("b"), "Talk/News"), home.file("b/Talk/News.qlnbk"));
    EXPECT_TRUE(BookmarkFolder::bookmarkNames(home.file("none")).empty());
}

// The scheme of a playlist's or a line's address is kept, with its own default
// port; only https is stored, so a plain bookmark's file has no key for it,
// nor for the untrusted-certificate switch while that is off.
TEST(Bookmark, SchemesAreKeptAndOnlyHttpsIsStored) {
    struct Case {
        const char* what;
        const char* data;
        const char* scheme;
        const char* host;
        const char* port;
    };
    const Case cases[] = {
        {"https without a port", "File1=https://secure.example/live\n", "https", "secure.example", "443"},
        {"https with a port", "File1=https://secure.example:8443/live\n", "https", "secure.example", "8443"},
        {"scheme in capitals", "File1=HTTPS://secure.example/\n", "https", "secure.example", "443"},
        {"bare https line", "#EXTM3U\nhttps://m3u.example/a.mp3\n", "https", "m3u.example", "443"},
        {"the first line counts", "http://a.example/x\nhttps://b.example/y\n", "http", "a.example", "80"},
        {"plain http", "File1=http://plain.example/\n", "http", "plain.example", "80"},
    };
    ScopedHome home;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bookmark b;
        b.setName(std::string("Station"));
        b.setAllowUntrustedCertificate(true);
        b.setAllowUntrustedCertificate(false);
        ASSERT_TRUE(b.getUrlFromData(std::string_view(c.data)));
        EXPECT_EQ(b.scheme(), c.scheme);
        EXPECT_EQ(b.host(), c.host);
        EXPECT_EQ(b.port(), c.port);
        ASSERT_TRUE(b.saveToFile(home.path()));
        auto stored = PlistCodec::readDictionaryFile(home.file("Station.qlnbk"));
        ASSERT_TRUE(stored.has_value());
        EXPECT_EQ(stored->count("scheme"), std::string(c.scheme) == "https" ? 1u : 0u);
        EXPECT_EQ(stored->count("allowUntrustedCertificate"), 0u);
        Bookmark back;
        ASSERT_TRUE(back.loadFromFile(home.file("Station.qlnbk")));
        EXPECT_EQ(back.scheme(), c.scheme);
        EXPECT_FALSE(back.allowUntrustedCertificate());
    }
}

}  // namespace
}  // namespace quillon
