// A connection to a server that answers HTTP/1.1 in chunks: the chunk framing
// is gone before the stream is cut, whatever the chunk boundaries split (audio,
// metadata blocks, their length bytes), and a broken framing ends the
// connection loudly with what came before it kept.
#include <map>

#include "RipperTestSupport.h"
#include "platform/AtomicFile.h"
#include "platform/Log.h"

namespace quillon::test {
namespace {

constexpr std::size_t kTagSize = 714;

class RipperChunkedTest : public RipperFixture {
protected:
    static StationOptions httpStation(bool chunked) {
        StationOptions options = counterStation();
        options.status = StationStatus::http;
        options.chunked = chunked;
        // Many metadata blocks against the station's chunk sizes (1 to 9001 bytes).
        options.metaint = 1000;
        return options;
    }

    // Every file under the recordings folder with its bytes.
    std::map<std::string, Bytes> recorded() const {
        std::map<std::string, Bytes> out;
        for (const auto& file : filesUnder(folder_))
            out[file] = readWholeFile(joinPath(folder_, file)).value();
        return out;
    }
};

TEST_F(RipperChunkedTest, ChunkedAnswersRecordTheSameBytesAsPlainOnes) {
    std::map<std::string, Bytes> files[2];
    for (bool chunked : {false, true}) {
        SCOPED_TRACE(chunked ? "chunked" : "plain");
        std::filesystem::remove_all(folder_);
        StationOptions options = httpStation(chunked);
        options.titles = {"Alpha - One", "Beta - Two", "Gamma - Three"};
        options.titleEvery = 100000;
        options.closeAfter = 290500;
        Station station(options);
        station.start();
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmarkFor(station.port()), false, false);
            ASSERT_TRUE(runUntil([&] { return ripper.stoppedForGood(); }));
            // The last chunk ends a chunked stream as the hang-up ends a plain one.
            EXPECT_EQ(ripper.endReason(), Ripper::EndReason::ServerEnded);
            EXPECT_EQ(ripper.streamHeader().chunked(), chunked);
        }
        station.stop();
        files[chunked] = recorded();
    }
    ASSERT_EQ(files[0].size(), 3u);
    std::uint64_t audio = 0;
    for (const auto& [name, bytes] : files[0]) audio += bytes.size() - kTagSize;
    EXPECT_EQ(audio, 290500u);
    EXPECT_TRUE(files[0] == files[1]) << "the chunked recording differs from the plain one";
}

TEST_F(RipperChunkedTest, ABrokenChunkEndsTheConnectionLoudlyKeepingWhatCameBefore) {
    // Even when reconnecting: a server whose framing breaks is not tried again.
    prefs().setState(true, "reconnect");
    StationOptions options = httpStation(true);
    options.badChunkAt = 150000;
    Station station(options);
    station.start();
    Log::Capture log;
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmarkFor(station.port(), "Chunky FM"), false, false);
        ASSERT_TRUE(runUntil([&] { return ripper.stoppedForGood(); }));
        EXPECT_EQ(ripper.endReason(), Ripper::EndReason::Lost);
        const std::string reason = "Malformed chunked stream: chunk size expected, got 'z'";
        EXPECT_EQ(ripper.endReasonText(), "connection lost: " + reason);
        EXPECT_EQ(ripper.status(), "connection lost: " + reason);
        EXPECT_TRUE(log.contains("Chunky FM: connection lost: " + reason));
    }
    const auto clients = station.clients();
    station.stop();
    ASSERT_EQ(clients.size(), 1u);
    std::uint64_t audio = 0;
    for (const auto& [name, bytes] : recorded()) {
        ASSERT_GE(bytes.size(), kTagSize);
        for (std::size_t i = kTagSize; i < bytes.size(); ++i)
            ASSERT_EQ(bytes[i], Station::counterByte(audio + i - kTagSize)) << name << " byte " << i;
        audio += bytes.size() - kTagSize;
    }
    EXPECT_EQ(audio, clients.front().audioBytesSent);
}

}  // namespace
}  // namespace quillon::test
