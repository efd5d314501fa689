// A connection hands its finished tracks to the music library: titled tracks
// once they leave the "Incomplete" folder, size-split chunks after the
// hand-off delay, each to the playlist the preferences name.
#include <mutex>

#include "RipperTestSupport.h"
#include "platform/Log.h"
#include "platform/TimeUtil.h"

namespace quillon::test {
namespace {

class RipperLibraryTest : public RipperFixture {
protected:
    struct HandOff {
        std::string path, playlist;
    };

    ConnectionServices collecting() {
        ConnectionServices services;
        services.handToLibrary = [this](const std::string& path, const std::string& playlist) {
            std::lock_guard lock(mutex_);
            handOffs_.push_back({path, playlist});
        };
        return services;
    }
    std::vector<HandOff> handOffs() {
        std::lock_guard lock(mutex_);
        return handOffs_;
    }

    // Records the titled station until `tracks` files were opened.
    void recordTitled(int tracks) {
        StationOptions options = counterStation();
        options.titleEvery = 100000;
        Station station(options);
        station.start();
        RecordingOwner owner(folder_);
        Ripper ripper(owner, *bookmarkFor(station.port()), false, false, collecting());
        ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= tracks; }));
        ripper.userClose();
    }

    // The date as playlist type 2 names it ("2026-3-5").
    static std::string today() {
        const std::tm t = TimeUtil::localParts(std::chrono::system_clock::now());
        return fmt::format("{}-{}-{}", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
    }

    std::mutex mutex_;
    std::vector<HandOff> handOffs_;
};

TEST_F(RipperLibraryTest, FinishedTitledTracksGoToThePlaylistOfTheirType) {
    struct Case {
        bool feed;
        std::string type;
        std::string expected;  // empty: nothing handed over
        bool warned;
    };
    const Case cases[] = {
        {true, "1", "Jazz", false},    {true, "3", "Test Radio", false},
        {true, "4", "Evening", false}, {true, "7", "", true},
        {true, "", "", true},          {false, "1", "", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("playlistType '" + c.type + "'" + (c.feed ? "" : ", feediTunes off"));
        std::filesystem::remove_all(folder_);
        handOffs_.clear();
        prefs().setState(true, "incomplete");
        prefs().setState(c.feed, "feediTunes");
        prefs().setParam(c.type, "playlistType");
        prefs().setParam("Evening", "playlistname");
        Log::Capture log;
        recordTitled(3);
        auto got = handOffs();
        if (c.expected.empty()) {
            EXPECT_TRUE(got.empty());
        } else {
            // The first track began mid-title and stays incomplete; the second is finished.
            ASSERT_FALSE(got.empty());
            for (const auto& h : got) {
                EXPECT_EQ(h.playlist, c.expected);
                EXPECT_EQ(h.path.find("Incomplete"), std::string::npos) << h.path;
                EXPECT_TRUE(std::filesystem::exists(h.path)) << h.path;
            }
        }
        EXPECT_EQ(log.contains("Warning : null name (null) or trackname " + folder_), c.warned);
    }
}

TEST_F(RipperLibraryTest, AnEmptyNameIsWarnedAboutAndNotHandedOver) {
    prefs().setState(true, "incomplete");
    prefs().setState(true, "feediTunes");
    prefs().setParam("4", "playlistType");  // and no playlist name
    Log::Capture log;
    recordTitled(3);
    EXPECT_TRUE(handOffs().empty());
    EXPECT_TRUE(log.contains("Warning : null name  or trackname " + folder_));
}

TEST_F(RipperLibraryTest, SizeSplitChunksAreHandedOverAfterTheDelay) {
    timing().libraryHandOffDelay = 0.05;
    prefs().setState(true, "split");
    prefs().setParam("1", "chunkSize");
    prefs().setState(true, "feediTunes");
    prefs().setParam("2", "playlistType");
    const std::string before = today();
    StationOptions options = counterStation();
    options.metaint = 0;
    Station station(options);
    station.start();
    RecordingOwner owner(folder_);
    Ripper ripper(owner, *bookmarkFor(station.port()), false, false, collecting());
    // Each chunk is handed over while it is still being written.
    ASSERT_TRUE(runUntil([&] { return handOffs().size() >= 2; }));
    ripper.userClose();
    const auto got = handOffs();
    const std::string after = today();
    for (const auto& h : got) {
        EXPECT_TRUE(h.playlist == before || h.playlist == after) << h.playlist;
        EXPECT_EQ(h.path.rfind(folder_ + "/", 0), 0u) << h.path;
    }
    EXPECT_NE(got[0].path, got[1].path);
}

}  // namespace
}  // namespace quillon::test
