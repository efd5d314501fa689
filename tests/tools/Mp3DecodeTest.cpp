// The mp3 payload as real decoders hear it: captured from a station and fed to
// mpg123 and ffprobe, which must take it without a single complaint.
#include <gtest/gtest.h>

#include <cstring>

#include "StationTestSupport.h"
#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "station/Mp3Tones.h"
#include "station/Station.h"

namespace quillon {
namespace {

struct Capture {
    std::string path;                              // the audio, saved
    std::vector<TitleAnnouncement> announcements;  // those within the saved audio
};

Capture captureMp3(std::uint32_t kbps, std::uint64_t audioBytes, std::uint64_t titleEvery) {
    StationOptions options;
    options.rate = StationRate::max;
    options.bitrate = kbps;
    options.metaint = 4000;
    options.titleEvery = titleEvery;
    Station station(options);
    station.start();
    test::IcyClient client(station.port());
    client.sendRequest();
    client.readHeader();
    const Bytes audio = client.readStream(options.metaint, audioBytes).audio;
    Capture capture{homePath("capture-" + std::to_string(kbps) + ".mp3"), {}};
    EXPECT_TRUE(writeFileAtomically(capture.path, audio));
    client.close();
    station.stop();
    // The station may have sent more than the client read.
    const auto clients = station.clients();
    for (const auto& a : clients.at(0).announcements) {
        if (a.audioOffset <= audio.size()) capture.announcements.push_back(a);
    }
    return capture;
}

TEST(Mp3Payload, DecodesCleanlyAcrossTitleChangesAtSeveralBitRates) {
    for (std::uint32_t kbps : {64u, 128u, 320u}) {
        // Three seconds, a title (and tone) change every half second.
        const Capture capture = captureMp3(kbps, kbps * 125 * 3, kbps * 125 / 2);
        ASSERT_GE(capture.announcements.size(), 4u);
        const auto mpg123 = test::runProcess({"mpg123", "-q", "-t", capture.path});
        EXPECT_EQ(mpg123.status, 0) << kbps;
        EXPECT_EQ(mpg123.err, "") << kbps;
        const auto probe =
            test::runProcess({"ffprobe", "-v", "error", "-show_entries",
                              "stream=codec_name,sample_rate,bit_rate", "-of", "default=nw=1", capture.path});
        EXPECT_EQ(probe.status, 0) << kbps;
        EXPECT_EQ(probe.err, "") << kbps;
        EXPECT_EQ(probe.out,
                  "codec_name=mp3\nsample_rate=44100\nbit_rate=" + std::to_string(kbps * 1000) + "\n");
    }
}

TEST(Mp3Payload, EachTitleHasItsOwnTone) {
    const Capture capture = captureMp3(128, 160000, 32000);  // two seconds per title
    ASSERT_GE(capture.announcements.size(), 4u);
    const auto decoded = test::runProcess({"mpg123", "-q", "-s", capture.path});  // raw 16-bit mono
    ASSERT_EQ(decoded.status, 0);
    std::vector<std::int16_t> samples(decoded.out.size() / 2);
    std::memcpy(samples.data(), decoded.out.data(), samples.size() * 2);

    // Count zero crossings over the middle half-second of each title, away from the switches.
    const double samplesPerByte = Mp3Tones::sampleRate / (128 * 125.0);
    const std::size_t window = Mp3Tones::sampleRate / 2;
    const auto& list = capture.announcements;
    for (std::size_t a = 0; a + 1 < list.size(); ++a) {
        const double middle = (list[a].audioOffset + list[a + 1].audioOffset) / 2.0 * samplesPerByte;
        const auto from = static_cast<std::size_t>(middle) - window / 2;
        ASSERT_LE(from + window, samples.size());
        std::size_t crossings = 0;
        for (std::size_t i = from + 1; i < from + window; ++i)
            crossings += (samples[i - 1] < 0) != (samples[i] < 0);
        const double heard = crossings / 2.0 * Mp3Tones::sampleRate / window;
        const double expected = Mp3Tones::frequency(list[a].index);
        EXPECT_NEAR(heard, expected, expected * 0.03) << "title " << list[a].index;
    }
}

}  // namespace
}  // namespace quillon
