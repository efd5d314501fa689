// Streams other than MP3, recorded from the built-in station: AAC files are
// named .aac, carry their tag and decode cleanly from every cut; Ogg files are
// named .ogg, carry no tag and decode cleanly from every cut too.
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <filesystem>

#include "RipperTestSupport.h"
#include "engine/OggPages.h"
#include "platform/AtomicFile.h"
#include "station/AssetTones.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

class RipperFormatTest : public RipperFixture {
protected:
    // Records the station until `tracks` files were opened; the files' paths
    // under the recordings folder, in track order (they are numbered).
    std::vector<std::string> record(StationOptions options, int tracks, int recOffset = 0) {
        Station station(options);
        station.start();
        auto bookmark = bookmarkFor(station.port());
        bookmark->setTrackNum(true);
        bookmark->setRecOffset(recOffset);
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmark, false, false);
            EXPECT_TRUE(runUntil([&] { return ripper.trackCount() >= tracks; }));
            ripper.userClose();
        }
        station.stop();
        return filesUnder(folder_);
    }

    static StationOptions tones(StationPayload payload, std::uint32_t kbps) {
        StationOptions o;
        o.payload = payload;
        o.bitrate = kbps;
        o.rate = StationRate::max;
        o.metaint = 8000;
        o.titleEvery = 60000;
        o.titles = {"Alpha - One",  "Beta - Two",     "Gamma - Three",
                    "Delta - Four", "Epsilon - Five", "Zeta - Six"};
        return o;
    }
};

bool haveFfprobe() { return runProcess({"sh", "-c", "command -v ffprobe"}).status == 0; }

TEST_F(RipperFormatTest, AacTracksAreTaggedAndDecodeFromEveryCut) {
    if (!haveFfprobe()) GTEST_SKIP() << "ffprobe is not installed";
    for (int recOffset : {0, 2, -1}) {
        SCOPED_TRACE(recOffset);
        std::filesystem::remove_all(folder_);
        const auto files = record(tones(StationPayload::aac, AssetTones::aacKbps), 5, recOffset);
        ASSERT_GE(files.size(), 4u);
        for (std::size_t k = 0; k < files.size(); ++k) {
            SCOPED_TRACE(files[k]);
            EXPECT_EQ(std::filesystem::path(files[k]).extension(), ".aac");
            const std::string path = joinPath(folder_, files[k]);
            const auto probe = runProcess({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                                           "stream=codec_name", "-of", "default=nw=1", path});
            EXPECT_EQ(probe.status, 0);
            EXPECT_EQ(probe.out, "codec_name=aac\n");
            // The last file ends where the recording stopped, inside a frame
            // (nothing received is dropped); every other one ends at a cut.
            if (k + 1 < files.size()) {
                EXPECT_EQ(probe.err, "");
            }
            // TagLib reads the ID3v2 tag ahead of any audio; its MPEG reader
            // is the one that looks for it.
            TagLib::MPEG::File file(path.c_str(), false);
            TagLib::ID3v2::Tag* tag = file.ID3v2Tag();
            ASSERT_NE(tag, nullptr);
            EXPECT_EQ(tag->genre().to8Bit(true), "Jazz");
            EXPECT_NE(tag->title().to8Bit(true), "");
        }
        const auto second = joinPath(folder_, files[1]);
        TagLib::MPEG::File file(second.c_str(), false);
        ASSERT_NE(file.ID3v2Tag(), nullptr);
        EXPECT_EQ(file.ID3v2Tag()->artist().to8Bit(true), "001 Beta");
        EXPECT_EQ(file.ID3v2Tag()->title().to8Bit(true), "Two");
    }
}

// The station's Ogg payload is one file over and over: a chained stream whose
// every link begins with a BOS page, followed by a second header page (Vorbis
// comment and setup) and audio pages.
TEST_F(RipperFormatTest, OggTracksDecodeFromEveryCutAndHoldTheStreamOnce) {
    if (!haveFfprobe()) GTEST_SKIP() << "ffprobe is not installed";
    const Bytes& link = (*AssetTones::ogg())[0][0];
    const std::size_t headerEnd = 3513;  // the link's two header pages
    ASSERT_EQ(OggPages::read(std::span(link).subspan(headerEnd)).head, OggPages::Head::page);
    for (int recOffset : {0, 2, -1}) {
        SCOPED_TRACE(recOffset);
        std::filesystem::remove_all(folder_);
        const auto files = record(tones(StationPayload::ogg, AssetTones::oggKbps), 5, recOffset);
        ASSERT_GE(files.size(), 4u);
        EXPECT_EQ(files.front(), "000 Alpha - One.ogg");
        std::size_t received = 0;  // stream bytes in the files so far
        for (std::size_t k = 0; k < files.size(); ++k) {
            SCOPED_TRACE(files[k]);
            EXPECT_EQ(std::filesystem::path(files[k]).extension(), ".ogg");
            const std::string path = joinPath(folder_, files[k]);
            const auto probe = runProcess({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                                           "stream=codec_name:format=duration", "-of", "default=nw=1", path});
            EXPECT_EQ(probe.status, 0);
            EXPECT_EQ(probe.out.rfind("codec_name=vorbis\nduration=", 0), 0u) << probe.out;
            EXPECT_EQ(probe.out.find("N/A"), std::string::npos) << probe.out;
            // The last file ends where the recording stopped, inside a page.
            if (k + 1 < files.size()) {
                EXPECT_EQ(probe.err, "");
            }
            // A file begins with the header pages the link showed before its
            // cut, unless it begins with the link's BOS page; the rest is the
            // stream from where the previous file ended.
            const auto bytes = readWholeFile(path).value_or(Bytes{});
            const std::size_t at = received % link.size();
            const std::size_t replay = at == 0 ? 0 : std::min(at, headerEnd);
            ASSERT_GE(bytes.size(), replay);
            ASSERT_TRUE(
                std::equal(link.begin(), link.begin() + static_cast<std::ptrdiff_t>(replay), bytes.begin()));
            for (std::size_t i = replay; i < bytes.size(); ++i, ++received)
                ASSERT_EQ(bytes[i], link[received % link.size()]) << "stream byte " << received;
        }
        EXPECT_GT(received, 4 * 60000u);
    }
}

}  // namespace
}  // namespace quillon::test
