// `quillon playlist-fetch` as a user runs it: a failed entry ends the run with
// a non-zero status that names the entry and the command that resumes there.
#include <gtest/gtest.h>

#include "cli/CliTest.h"
#include "net/HttpPages.h"

namespace quillon::test {
namespace {

class PlaylistFetchCommandTest : public CliTest {};

TEST_F(PlaylistFetchCommandTest, StopsAtAFailedEntryAndResumesFromIt) {
    HttpPages pages;
    pages.set("/a.mp3", "aaaa");
    pages.set("/c.mp3", "cc");
    const std::string list = file("list.m3u");
    writeText(list, pages.url("/a.mp3") + "\n" + pages.url("/b.mp3") + "\n" + pages.url("/c.mp3") + "\n");

    auto failed = quillon({"playlist-fetch", list});
    EXPECT_EQ(failed.status, 1) << failed.err;
    EXPECT_NE(failed.err.find("entry 2 of 3 failed (" + pages.url("/b.mp3") + ")"), std::string::npos)
        << failed.err;
    EXPECT_NE(failed.err.find("--from 2"), std::string::npos) << failed.err;
    EXPECT_EQ(readText(file("a.mp3")), "aaaa");
    EXPECT_FALSE(std::filesystem::exists(file("b.mp3")));

    pages.set("/b.mp3", "bbb");
    auto resumed = quillon({"playlist-fetch", list, "--from", "2"});
    EXPECT_EQ(resumed.status, 0) << resumed.err;
    EXPECT_EQ(readText(file("b.mp3")), "bbb");
    EXPECT_EQ(readText(file("c.mp3")), "cc");
    EXPECT_FALSE(std::filesystem::exists(file("a (2).mp3")));  // entry 1 was not fetched again
}

TEST_F(PlaylistFetchCommandTest, RefusesWhatItCannotUse) {
    writeText(file("list.m3u"), "http://127.0.0.1:9/a.mp3\n");
    writeText(file("empty.m3u"), "#EXTM3U\n");
    struct Case {
        std::vector<std::string> args;
        int status;
    };
    for (const Case& c :
         {Case{{"playlist-fetch", file("empty.m3u")}, 1}, Case{{"playlist-fetch", file("missing.m3u")}, 1},
          Case{{"playlist-fetch", file("list.m3u"), "--from", "2"}, 2},
          Case{{"playlist-fetch", file("list.m3u"), "--from", "0"}, 2}}) {
        auto result = quillon(c.args);
        EXPECT_EQ(result.status, c.status) << c.args.back() << ": " << result.err;
        EXPECT_FALSE(result.err.empty());
    }
}

}  // namespace
}  // namespace quillon::test
