// `quillon library test` as a user runs it: the M3U back-end gets the file in
// its playlist; an MPD that cannot be reached fails the run with the reason.
#include "cli/CliTest.h"
#include "platform/Home.h"
#include "support/Files.h"
#include "support/Loopback.h"

namespace quillon::test {
namespace {

TEST_F(CliTest, LibraryTestHandsAFileToTheConfiguredBackend) {
    makeFolders(file("Music"));
    writeText(file("Music/Song.mp3"), "not really audio");
    auto added = quillon({"library", "test", file("Music/Song.mp3"), "--playlist", "Evening Jazz"});
    ASSERT_EQ(added.status, 0) << added.err;
    // The recordings folder holds the playlists unless libraryFolder says otherwise.
    const std::string playlist = readText(file("Music/Evening Jazz.m3u8"));
    EXPECT_EQ(playlist.rfind("#EXTM3U\n", 0), 0u) << playlist;
    EXPECT_NE(playlist.find("\n" + file("Music/Song.mp3") + "\n"), std::string::npos) << playlist;

    ASSERT_EQ(quillon({"prefs", "set", "libraryBackend", "mpd"}).status, 0);
    ASSERT_EQ(quillon({"prefs", "set", "mpdPort", std::to_string(unusedPort())}).status, 0);
    auto refused = quillon({"library", "test", file("Music/Song.mp3")});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("cannot reach MPD"), std::string::npos) << refused.err;
}

}  // namespace
}  // namespace quillon::test
