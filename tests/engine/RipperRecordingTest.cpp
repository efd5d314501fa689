// A connection recording the built-in station's counter payload: every byte of
// the stream can be traced, so each file must hold exactly the span that the
// title changes and the record offset give it.
#include <filesystem>

#include <fmt/format.h>

#include "RipperTestSupport.h"
#include "engine/Id3Text.h"
#include "platform/AtomicFile.h"

namespace quillon::test {
namespace {

constexpr std::size_t kTagSize = 714;
constexpr std::uint64_t kBytesPerSecond = 16000;  // 128 kbit/s

class RipperRecordingTest : public RipperFixture {
protected:
    // Records until `tracks` files were opened and some 200 kB more arrived (so
    // that cuts shifted by a positive offset are reached), then stops; returns
    // the station's title announcements.
    std::vector<TitleAnnouncement> record(StationOptions options, std::shared_ptr<Bookmark> bookmark,
                                          int tracks, std::uint64_t extraBytes = 200000) {
        Station station(options);
        station.start();
        bookmark->setPort(std::to_string(station.port()));
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmark, false, false);
            EXPECT_TRUE(runUntil([&] { return ripper.trackCount() >= tracks; }));
            const std::uint64_t reached = ripper.bytesRead();
            EXPECT_TRUE(runUntil([&] { return ripper.bytesRead() > reached + extraBytes; }));
            ripper.userClose();
        }
        station.stop();
        auto clients = station.clients();
        EXPECT_FALSE(clients.empty());
        return clients.empty() ? std::vector<TitleAnnouncement>{} : clients.front().announcements;
    }

    // Checks that a file is our tag followed by exactly the counter bytes
    // [from, to) of the stream.
    void expectSpan(const std::string& file, std::uint64_t from, std::uint64_t to) {
        SCOPED_TRACE(file);
        auto bytes = readWholeFile(joinPath(folder_, file));
        ASSERT_TRUE(bytes) << "missing";
        ASSERT_GE(bytes->size(), kTagSize);
        EXPECT_EQ(std::string(bytes->begin(), bytes->begin() + 3), "ID3");
        ASSERT_EQ(bytes->size() - kTagSize, to - from) << "audio bytes";
        for (std::uint64_t i = 0; i < to - from; ++i) {
            if ((*bytes)[kTagSize + i] != Station::counterByte(from + i)) {
                FAIL() << "byte " << i << " differs from stream offset " << from + i;
            }
        }
    }
};

// The audio block ahead of a new title's metadata block is the first of the new
// track; the record offset moves the cut by that many seconds of audio.
std::uint64_t cutFor(const TitleAnnouncement& a, std::uint32_t metaint, int recOffset) {
    return a.audioOffset - metaint + static_cast<std::int64_t>(recOffset) * kBytesPerSecond;
}

TEST_F(RipperRecordingTest, EachFileHoldsExactlyItsSpanForEveryRecordOffset) {
    for (int offset : {0, 3, -3}) {
        SCOPED_TRACE("recOffset " + std::to_string(offset));
        std::filesystem::remove_all(folder_);
        StationOptions options = counterStation();
        options.titles = {"Alpha - One", "Beta - Two", "Gamma - Three", "Delta - Four", "Epsilon - Five"};
        options.titleEvery = 600000;
        // At full speed the reader may outrun the stop; hang up before the
        // titles come round again and reopen the first file.
        options.closeAfter = options.titles.size() * options.titleEvery - 100000;
        auto bookmark = bookmarkFor(0);
        bookmark->setRecOffset(offset);
        auto announced = record(options, bookmark, 4);
        ASSERT_GE(announced.size(), 4u);
        // The first file starts with the stream's first byte.
        expectSpan("Alpha - One.mp3", 0, cutFor(announced[1], options.metaint, offset));
        expectSpan("Beta - Two.mp3", cutFor(announced[1], options.metaint, offset),
                   cutFor(announced[2], options.metaint, offset));
        expectSpan("Gamma - Three.mp3", cutFor(announced[2], options.metaint, offset),
                   cutFor(announced[3], options.metaint, offset));
    }
}

TEST_F(RipperRecordingTest, TitleChangesQueuedCloseTogetherEachGetTheirOwnSpan) {
    // Five seconds of offset and a title every two blocks: several cuts wait in
    // the writer at once.
    StationOptions options = counterStation();
    for (int i = 0; i < 40; ++i) options.titles.push_back(fmt::format("T{:02} - x", i));
    options.titleEvery = 32000;
    auto bookmark = bookmarkFor(0);
    bookmark->setRecOffset(5);
    auto announced = record(options, bookmark, 8);
    ASSERT_GE(announced.size(), 8u);
    for (int k = 1; k + 1 < 8; ++k) {
        expectSpan(options.titles[k] + ".mp3", cutFor(announced[k], options.metaint, 5),
                   cutFor(announced[k + 1], options.metaint, 5));
    }
}

TEST_F(RipperRecordingTest, TracksAreFiledInIncompleteArtistAndNumberedFolders) {
    prefs().setState(true, "incomplete");
    prefs().setState(true, "genreSort");
    StationOptions options = counterStation();
    options.titles = {"AC/DC: Live - Intro", "Miles Davis - So What", "Nina Simone - Sinnerman"};
    for (int i = 0; i < 20; ++i) options.titles.push_back(fmt::format("Other{} - Song", i));
    options.titleEvery = 200000;
    auto bookmark = bookmarkFor(0);
    bookmark->setSortArtists(true);
    bookmark->setTrackNum(true);
    record(options, bookmark, 4, 0);
    auto files = filesUnder(folder_);
    // The first, partial track stays in Incomplete; finished ones move up into
    // their artist folder (the track number is part of the artist, as named).
    std::vector<std::string> expected = {
        "Jazz/001 Miles Davis/001 Miles Davis - So What.mp3",
        "Jazz/002 Nina Simone/002 Nina Simone - Sinnerman.mp3",
        "Jazz/Incomplete/000 AC_DC  Live - Intro.mp3",
    };
    for (const auto& e : expected) EXPECT_NE(std::find(files.begin(), files.end(), e), files.end()) << e;
    // The track being recorded when the connection stopped is still incomplete.
    EXPECT_EQ(files.back().rfind("Jazz/Incomplete/", 0), 0u) << files.back();
    EXPECT_NE(files.back(), expected[2]);
    auto bytes = readWholeFile(joinPath(folder_, expected[0]));
    ASSERT_TRUE(bytes);
    auto tags = readId3Text(*bytes);
    EXPECT_EQ(tags["TPE1"], "001 Miles Davis");
    EXPECT_EQ(tags["TIT2"], "So What");
    EXPECT_EQ(tags["TCON"], "Jazz");
    EXPECT_EQ(tags["COMM"], "Recorded by Quillon for Mac OS X");
}

TEST_F(RipperRecordingTest, StreamsWithoutTitlesGetDateStampedChunks) {
    prefs().setState(true, "split");
    prefs().setParam("1", "chunkSize");
    prefs().setParam("24", "timeMode");
    StationOptions options = counterStation();
    options.metaint = 0;
    auto bookmark = bookmarkFor(0, "Radio One");
    Station station(options);
    station.start();
    bookmark->setPort(std::to_string(station.port()));
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmark, false, false);
        ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= 4; }));
        ripper.userClose();
    }
    auto files = filesUnder(folder_);
    ASSERT_GE(files.size(), 3u);
    // "001 Radio One-(d-m-yyyy@h mm).mp3": numbered from 001, the time's colon filtered.
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(files[i].substr(0, 15), fmt::format("{:03} Radio One-(", i + 1)) << files[i];
        EXPECT_NE(files[i].find('@'), std::string::npos);
        EXPECT_EQ(files[i].find(':'), std::string::npos);
    }
    // A finished chunk holds just over one MiB of audio after its tag.
    auto first = std::filesystem::file_size(joinPath(folder_, files[1]));
    EXPECT_GT(first, 1048576u + kTagSize);
    EXPECT_LT(first, 1048576u + kTagSize + 2 * 16384);
}

TEST_F(RipperRecordingTest, RelayOnlyWritesNoFile) {
    StationOptions options = counterStation();
    options.titleEvery = 100000;
    Station station(options);
    station.start();
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), true, false);
        ASSERT_TRUE(runUntil(
            [&] { return ripper.ripperState() == Ripper::State::Relaying && ripper.bytesRead() > 1000000; }));
        EXPECT_EQ(ripper.status().rfind("Relay (no record) : ", 0), 0u);
        ripper.userClose();
    }
    EXPECT_TRUE(filesUnder(folder_).empty());
}

}  // namespace
}  // namespace quillon::test
