// A Live365 station end to end on loopback: the built-in station streams
// without titles, its request carries "session=", and a page server plays the
// station's playlist page; the page's titles must name the track files.
#include <filesystem>

#include "RipperTestSupport.h"
#include "engine/Live365TitleSource.h"
#include "net/HttpPages.h"

namespace quillon::test {
namespace {

class Live365RipperTest : public RipperFixture {};

bool hasFileNamed(const std::vector<std::string>& files, const std::string& name) {
    return std::any_of(files.begin(), files.end(),
                       [&](const std::string& f) { return std::filesystem::path(f).filename() == name; });
}

TEST_F(Live365RipperTest, PageTitlesNameTheTracks) {
    HttpPages pages;
    pages.set("/pls/front", "one:{artist:\"Miles\",title:\"So What\",}, var gSecondsLeft  = 0;");
    prefs().setParam(pages.host(), Preferences::kLive365HostKey);

    StationOptions options = counterStation();
    options.metaint = 0;  // no titles in the stream
    Station station(options);
    station.start();
    auto bookmark = bookmarkFor(station.port());
    bookmark->setPath(std::string("/play?session=jazzhandle:77"));
    ConnectionServices services;
    services.makeTitleSource = Live365TitleSource::factory();
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmark, false, false, services);
        ASSERT_TRUE(runUntil([&] { return ripper.currentTrack() == "Miles - So What"; }));
        EXPECT_EQ(ripper.streamHeader().url(), "http://" + pages.host() + "/stations/jazzhandle");
        pages.set("/pls/front", "one:{artist:\"Bill\",title:\"Blue\",}, var gSecondsLeft  = 0;");
        ASSERT_TRUE(runUntil([&] { return ripper.currentTrack() == "Bill - Blue"; }));
        ripper.userClose();
    }
    station.stop();
    const auto files = filesUnder(folder_);
    EXPECT_TRUE(hasFileNamed(files, "Miles - So What.mp3")) << ::testing::PrintToString(files);
    EXPECT_TRUE(hasFileNamed(files, "Bill - Blue.mp3")) << ::testing::PrintToString(files);
    ASSERT_FALSE(station.clients().empty());
    EXPECT_NE(station.clients().front().request.find("session=jazzhandle:77"), std::string::npos);
}

TEST_F(Live365RipperTest, AStationWithoutSessionRecordsAsBefore) {
    HttpPages pages;
    prefs().setParam(pages.host(), Preferences::kLive365HostKey);
    StationOptions options = counterStation();
    options.metaint = 0;
    Station station(options);
    station.start();
    ConnectionServices services;
    services.makeTitleSource = Live365TitleSource::factory();
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), false, false, services);
        ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= 1 && ripper.bytesRead() > 100000; }));
        ripper.userClose();
    }
    station.stop();
    EXPECT_EQ(pages.requests(), 0);
    EXPECT_EQ(filesUnder(folder_).size(), 1u);
}

}  // namespace
}  // namespace quillon::test
