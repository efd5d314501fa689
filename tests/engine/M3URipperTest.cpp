// Downloading a playlist's files from a loopback server into the home folder:
// a failed entry pauses the sequence and startDownload resumes it there; no
// file already in the home folder is ever replaced.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "engine/M3URipper.h"
#include "net/HttpPages.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "support/Files.h"
#include "support/MainThread.h"

namespace quillon::test {
namespace {

class M3URipperTest : public ::testing::Test {
protected:
    // Downloads go to the home folder: each test gets one of its own.
    void SetUp() override {
        savedHome_ = homeFolder();
        home_ = testFolder("m3u");
        ::setenv("QUILLON_HOME", home_.c_str(), 1);
        becomeMainThread();
    }
    void TearDown() override { ::setenv("QUILLON_HOME", savedHome_.c_str(), 1); }

    std::string playlist(const std::string& text) {
        const std::string path = home_ + "/list.m3u";
        writeText(path, text);
        return path;
    }
    // Runs the main loop until the ripper has no download running.
    static bool settle(M3URipper& ripper) {
        return runUntil([&] { return !ripper.downloading(); });
    }
    // Every entry of the home folder but the playlist, hidden ones included.
    std::vector<std::string> homeFiles() const {
        std::vector<std::string> out;
        for (auto& e : std::filesystem::directory_iterator(home_))
            if (e.path().filename() != "list.m3u") out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }

    HttpPages pages_;
    std::string home_;
    std::string savedHome_;
};

TEST_F(M3URipperTest, PausesAtAFailedEntryAndResumesThere) {
    const std::string big(300000, 'a');
    pages_.set("/a.mp3", big);
    pages_.set("/c.mp3", "ccc");
    M3URipper ripper;
    ASSERT_TRUE(ripper.parseFile(playlist(pages_.url("/a.mp3?x=1") + "\n" + pages_.url("/b.mp3") + "\n" +
                                          pages_.url("/c.mp3") + "\n")));
    EXPECT_EQ(ripper.intForKey(M3URipper::kMaxFilesKey), 3);
    int steps = 0;
    ripper.setChangeHandler([&] { ++steps; });

    ripper.startDownload();
    ASSERT_TRUE(settle(ripper));
    EXPECT_EQ(ripper.intForKey(M3URipper::kCurrentFileKey), 1);
    EXPECT_FALSE(ripper.done());
    EXPECT_FALSE(ripper.lastFailure().empty());
    // The failed entry leaves nothing behind, not even its partial file.
    EXPECT_EQ(homeFiles(), std::vector<std::string>{"a.mp3"});
    EXPECT_EQ(readText(home_ + "/a.mp3"), big);

    pages_.set("/b.mp3", "bb");
    ripper.startDownload();
    ASSERT_TRUE(settle(ripper));
    EXPECT_TRUE(ripper.done());
    EXPECT_EQ(ripper.intForKey(M3URipper::kCurrentFileKey), -1);
    EXPECT_TRUE(ripper.lastFailure().empty());
    EXPECT_EQ(homeFiles(), (std::vector<std::string>{"a.mp3", "b.mp3", "c.mp3"}));
    EXPECT_EQ(readText(home_ + "/b.mp3"), "bb");
    EXPECT_EQ(readText(home_ + "/c.mp3"), "ccc");
    // a started, finished; b started, failed; b started, finished; c started, finished.
    EXPECT_EQ(steps, 8);

    // Once done, starting again does nothing.
    ripper.startDownload();
    EXPECT_FALSE(ripper.downloading());
}

TEST_F(M3URipperTest, NeverReplacesAFileThatIsThere) {
    writeText(home_ + "/a.mp3", "mine");
    pages_.set("/a.mp3", "first");
    pages_.set("/x/a.mp3", "second");
    M3URipper ripper;
    ASSERT_TRUE(ripper.parseFile(playlist(pages_.url("/a.mp3") + "\n" + pages_.url("/x/a.mp3") + "\n")));
    ripper.startDownload();
    ASSERT_TRUE(settle(ripper));
    ASSERT_TRUE(ripper.done()) << ripper.lastFailure();
    EXPECT_EQ(homeFiles(), (std::vector<std::string>{"a (2).mp3", "a (3).mp3", "a.mp3"}));
    EXPECT_EQ(readText(home_ + "/a.mp3"), "mine");
    EXPECT_EQ(readText(home_ + "/a (2).mp3"), "first");
    EXPECT_EQ(readText(home_ + "/a (3).mp3"), "second");
}

TEST_F(M3URipperTest, ALastLineWithoutLineEndIsNotFetched) {
    pages_.set("/a.mp3", "aa");
    pages_.set("/b.mp3", "bb");
    Log::Capture log;
    auto ripper = M3URipper::ripperWithFile(playlist(pages_.url("/a.mp3") + "\n" + pages_.url("/b.mp3")));
    ASSERT_TRUE(ripper->downloading());
    ASSERT_TRUE(settle(*ripper));
    EXPECT_TRUE(ripper->done());
    EXPECT_EQ(ripper->pendingFiles(), std::vector<std::string>{pages_.url("/a.mp3")});
    EXPECT_TRUE(log.contains("Error parsing file returning partial results."));
    EXPECT_EQ(homeFiles(), std::vector<std::string>{"a.mp3"});
    EXPECT_EQ(pages_.requests(), 1);
}

TEST_F(M3URipperTest, UnusablePlaylistsStartNothing) {
    for (const std::string& text : {std::string(), std::string("#EXTM3U\nsongs/a.mp3\n"),
                                    std::string(M3URipper::kMaxPlaylistBytes + 1, '\n')}) {
        auto ripper = M3URipper::ripperWithFile(playlist(text));
        EXPECT_FALSE(ripper->downloading());
        EXPECT_TRUE(ripper->pendingFiles().empty());
    }
    EXPECT_FALSE(M3URipper().parseFile(home_ + "/missing.m3u"));
}

}  // namespace
}  // namespace quillon::test
