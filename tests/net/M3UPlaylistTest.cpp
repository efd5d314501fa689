// The playlist text as URLs: which lines count, the partial-results rule, and
// the file name each URL is saved under.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/M3UPlaylist.h"

namespace quillon {
namespace {

std::optional<M3UPlaylist::Parsed> parseText(const std::string& text) {
    return M3UPlaylist::parse({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

TEST(M3UPlaylist, ParsesLinesUpToTheLastLineEnd) {
    struct Case {
        const char* what;
        std::string text;
        std::vector<std::string> urls;  // empty: no result at all
        bool partial;
    };
    const std::vector<Case> cases = {
        {"two lines", "http://h/a.mp3\nhttp://h/b.mp3\n", {"http://h/a.mp3", "http://h/b.mp3"}, false},
        {"last line without its line end is dropped",
         "http://h/a.mp3\nhttp://h/b.mp3",
         {"http://h/a.mp3"},
         true},
        {"only a line without line end", "http://h/a.mp3", {}, true},
        {"empty", "", {}, false},
        {"query dropped", "http://h/x/a.mp3?session=1&u=2\n", {"http://h/x/a.mp3"}, false},
        {"CR LF line ends",
         "http://h/a.mp3\r\nhttp://h/b.mp3\r\n",
         {"http://h/a.mp3", "http://h/b.mp3"},
         false},
        {"comments and blank lines skipped",
         "#EXTM3U\n#EXTINF:120,A - song.mp3\n\nhttps://h/a.mp3\n",
         {"https://h/a.mp3"},
         false},
        {"blanks around a line", "  http://h/a.mp3  \n", {"http://h/a.mp3"}, false},
        {"not an mp3", "http://h/a.ogg\nhttp://h/b.mp3\n", {"http://h/b.mp3"}, false},
        {"relative entry", "songs/a.mp3\n", {}, false},
        {"other scheme", "ftp://h/a.mp3\nfile:///etc/a.mp3\n", {}, false},
        {"blank inside the URL", "http://h/my song.mp3\n", {}, false},
        {"no host", "http:///a.mp3\n", {}, false},
        {"slash inside the query", "http://h/a.mp3?from=/list/\n", {"http://h/a.mp3"}, false},
        {"name too long", "http://h/" + std::string(300, 'x') + ".mp3\n", {}, false},
        {"binary junk", std::string("\x00\xff\x01\n", 4), {}, false},
    };
    for (const Case& c : cases) {
        auto parsed = parseText(c.text);
        if (c.urls.empty()) {
            EXPECT_FALSE(parsed.has_value()) << c.what;
            continue;
        }
        ASSERT_TRUE(parsed.has_value()) << c.what;
        EXPECT_EQ(parsed->urls, c.urls) << c.what;
        EXPECT_EQ(parsed->partial, c.partial) << c.what;
    }
}

TEST(M3UPlaylist, NamesFilesAfterTheLastComponentCutAtMp3) {
    struct Case {
        const char* url;
        std::optional<std::string> name;
        std::optional<std::string> clean;
    };
    const std::vector<Case> cases = {
        {"http://h/a/song.mp3", "song.mp3", "http://h/a/song.mp3"},
        {"http://h/a/song.mp3?x=1", "song.mp3", "http://h/a/song.mp3"},
        {"http://h/a/song.mp3\r\n", "song.mp3", "http://h/a/song.mp3"},
        {"http://h/a/song.mp3.mp3", "song.mp3", "http://h/a/song.mp3"},
        {"http://h/a/song.mp3#frag", "song.mp3", "http://h/a/song.mp3"},
        {"http://h/a.mp3/song", std::nullopt, std::nullopt},
        {"http://h/a/song.MP3", std::nullopt, std::nullopt},
        {"http://h/a/", std::nullopt, std::nullopt},
        {"song.mp3", "song.mp3", "song.mp3"},
        {"http://h/a/My%20Song.mp3", "My%20Song.mp3", "http://h/a/My%20Song.mp3"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(M3UPlaylist::fileNameFromURL(c.url), c.name) << c.url;
        EXPECT_EQ(M3UPlaylist::cleanURL(c.url), c.clean) << c.url;
    }
}

}  // namespace
}  // namespace quillon
