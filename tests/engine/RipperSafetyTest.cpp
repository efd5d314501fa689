// What a connection does with what it received when things go wrong or come
// round again: every received byte reaches a file, no file is ever reopened,
// truncated or shared, and hostile headers end the attempt with a reason.
#include <filesystem>

#include <fmt/format.h>

#include "RipperTestSupport.h"
#include "engine/TinyID3.h"
#include "platform/AtomicFile.h"
#include "platform/Log.h"
#include "station/StationHttp.h"
#include "station/StreamGenerator.h"

namespace quillon::test {
namespace {

class RipperSafetyTest : public RipperFixture {
protected:
    // The audio of a recorded file: what follows its tag.
    Bytes audioOf(const std::string& file) {
        auto bytes = readWholeFile(joinPath(folder_, file));
        EXPECT_TRUE(bytes) << file;
        if (!bytes || bytes->size() < TinyID3::tagSize()) return {};
        return Bytes(bytes->begin() + static_cast<std::ptrdiff_t>(TinyID3::tagSize()), bytes->end());
    }

    // Counter bytes [from, to) of one client's stream.
    static Bytes counterSpan(std::uint64_t from, std::uint64_t to) {
        Bytes out;
        for (std::uint64_t i = from; i < to; ++i) out.push_back(Station::counterByte(i));
        return out;
    }

    // Everything a client of the station receives, header included.
    static std::uint64_t wholeStream(const StationOptions& options) {
        StreamGenerator generator(options, options.metaint > 0);
        Bytes out;
        std::uint64_t total = StationHttp::streamHeader(options, options.metaint).size();
        while (!generator.ended()) {
            out.clear();
            generator.produce(out, 65536);
            total += out.size();
        }
        return total;
    }

    // Whether the bytes run on without a break, as one stream's counter does:
    // two streams written into one file would not.
    static bool oneRun(const Bytes& bytes) {
        for (std::size_t i = 1; i < bytes.size(); ++i)
            if (bytes[i] != (bytes[i - 1] + 1) % 251) return false;
        return true;
    }
};

TEST_F(RipperSafetyTest, EveryEndKeepsEveryByteReceivedUpToIt) {
    // Each time all of it is still held in the delay line.
    enum class End { ServerHangsUp, UserStops, StreamStalls };
    for (End end : {End::ServerHangsUp, End::UserStops, End::StreamStalls}) {
        SCOPED_TRACE(static_cast<int>(end));
        std::filesystem::remove_all(folder_);
        timing().streamReadTimeout = end == End::StreamStalls ? 0.3 : 5;
        StationOptions options = counterStation();
        options.titles = {"Solo - One"};
        options.titleEvery = 0;
        // The stream after the header (audio and 30 metadata blocks, 78 bytes)
        // ends on a read boundary (a first read of 32384, then 16000 each), so
        // the reader's count shows when all of it has arrived.
        options.closeAfter = 16000 * 30 + 306;
        options.holdOpen = end != End::ServerHangsUp;
        Station station(options);
        station.start();
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmarkFor(station.port()), false, false);
            if (end == End::UserStops) {
                ASSERT_TRUE(runUntil([&] { return ripper.bytesRead() == wholeStream(options); }));
                ripper.userClose();
            }
            ASSERT_TRUE(runUntil([&] { return ripper.stoppedForGood(); }));
            const auto expected = end == End::ServerHangsUp ? Ripper::EndReason::ServerEnded
                                  : end == End::UserStops   ? Ripper::EndReason::UserStopped
                                                            : Ripper::EndReason::Lost;
            EXPECT_EQ(ripper.endReason(), expected) << ripper.endReasonText();
        }
        // All of it is on disk, from the stream's first byte.
        EXPECT_EQ(audioOf("Solo - One.mp3"), counterSpan(0, *options.closeAfter));
    }
}

TEST_F(RipperSafetyTest, AFailureRestartsTheConnectionAndTheResumedTitleAppendsToItsFile) {
    prefs().setParam("YES", "reconnect");
    StationOptions options = counterStation();
    options.titles = {"Solo - One"};
    options.titleEvery = 0;
    options.closeAfter = 300000;
    Station station(options);
    station.start();
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmarkFor(station.port()), false, false);
        // A third connection has begun: the first two were dropped by the
        // station and written out.
        ASSERT_TRUE(runUntil([&] { return station.clients().size() >= 3; }));
        ripper.userClose();
    }
    int restarts = 0;
    for (std::size_t i = 1; i < owner.states().size(); ++i)
        restarts += owner.states()[i - 1] == Ripper::State::Stopped &&
                    owner.states()[i] == Ripper::State::WaitingToReconnect;
    EXPECT_GE(restarts, 2);
    ASSERT_EQ(filesUnder(folder_), std::vector<std::string>{"Solo - One.mp3"});
    Bytes audio = audioOf("Solo - One.mp3");
    const Bytes span = counterSpan(0, *options.closeAfter);
    ASSERT_GE(audio.size(), 2 * span.size());
    EXPECT_TRUE(std::equal(span.begin(), span.end(), audio.begin()));
    EXPECT_TRUE(
        std::equal(span.begin(), span.end(), audio.begin() + static_cast<std::ptrdiff_t>(span.size())));
}

TEST_F(RipperSafetyTest, NoFileIsReopenedOrShared) {
    const std::string longA(300, 'a');
    struct Case {
        const char* what;
        std::vector<std::string> titles;
        int connections;
        std::vector<std::string> files;
    };
    const std::string cutA = longA.substr(0, 251);  // 255 bytes with ".mp3"
    const Case cases[] = {
        {"a title that comes round again",
         {"A - x", "B - y", "A - x", "C - z"},
         1,
         {"A - x (2).mp3", "A - x.mp3", "B - y.mp3"}},
        {"titles equal up to the length cut",
         {longA + "1", longA + "2", "C - z"},
         1,
         {cutA.substr(0, 247) + " (2).mp3", cutA + ".mp3"}},
        {"two connections with the same titles",
         {"A - x", "B - y", "C - z"},
         2,
         {"A - x (2).mp3", "A - x.mp3", "B - y (2).mp3", "B - y.mp3"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove_all(folder_);
        StationOptions options = counterStation();
        options.titles = c.titles;
        options.titleEvery = 200000;
        options.closeAfter = 200000 * (c.titles.size() - 1) + 100000;  // hang up in the last title
        std::vector<std::unique_ptr<Station>> stations;
        std::vector<std::unique_ptr<Ripper>> rippers;
        RecordingOwner owner(folder_);
        for (int i = 0; i < c.connections; ++i) {
            stations.push_back(std::make_unique<Station>(options));
            stations.back()->start();
            rippers.push_back(std::make_unique<Ripper>(
                owner, *bookmarkFor(stations.back()->port(), "Radio " + std::to_string(i)), false, false));
        }
        ASSERT_TRUE(runUntil([&] {
            return std::all_of(rippers.begin(), rippers.end(), [&](auto& r) { return r->stoppedForGood(); });
        }));
        rippers.clear();
        auto files = filesUnder(folder_);
        // The last title's file is there too; the ones named must be among them,
        // each one stream's bytes without a break.
        for (const auto& name : c.files) {
            EXPECT_NE(std::find(files.begin(), files.end(), name), files.end()) << name;
            EXPECT_TRUE(oneRun(audioOf(name))) << name;
        }
        EXPECT_EQ(files.size(), c.files.size() + static_cast<std::size_t>(c.connections))
            << ::testing::PrintToString(files);
    }
}

TEST_F(RipperSafetyTest, MetadataWithoutTitlesFallsBackToDateStampedFiles) {
    StationOptions options = counterStation();
    options.emptyTitles = EmptyTitles::urlOnly;
    options.metaint = 1000;
    Station station(options);
    station.start();
    RecordingOwner owner(folder_);
    {
        Ripper ripper(owner, *bookmarkFor(station.port(), "Radio One"), false, false);
        ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= 1; }));
        ripper.userClose();
    }
    auto files = filesUnder(folder_);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].rfind("Radio One-(", 0), 0u) << files[0];
}

TEST_F(RipperSafetyTest, HostileHeadersEndTheAttemptWithTheirReason) {
    struct Case {
        const char* what;
        std::function<void(StationOptions&)> stage;
        const char* reason;
    };
    const Case cases[] = {
        {"negative meta interval", [](StationOptions& o) { o.metaintText = "-1"; },
         "Invalid meta interval: -1"},
        {"huge meta interval", [](StationOptions& o) { o.metaintText = "2147483648"; },
         "Invalid meta interval: 2147483648"},
        {"just over the limit", [](StationOptions& o) { o.metaintText = "65537"; },
         "Invalid meta interval: 65537"},
        {"not a number", [](StationOptions& o) { o.metaintText = "8k"; }, "Invalid meta interval: 8k"},
        {"a redirect to itself", [](StationOptions& o) { o.redirectToSelf = true; }, "Too many redirections"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        StationOptions options = counterStation();
        c.stage(options);
        Station station(options);
        station.start();
        Log::Capture log;
        RecordingOwner owner(folder_);
        {
            Ripper ripper(owner, *bookmarkFor(station.port()), false, false);
            ASSERT_TRUE(runUntil([&] { return ripper.stoppedForGood(); }));
            EXPECT_EQ(ripper.endReason(), Ripper::EndReason::Refused);
            EXPECT_EQ(ripper.endReasonText(), std::string("refused: ") + c.reason);
        }
        EXPECT_TRUE(log.contains(c.reason));
        // A redirect loop is given up after ten follow-ups, not followed for ever.
        if (options.redirectToSelf) {
            EXPECT_EQ(station.clients().size(), 11u);
        }
    }
    EXPECT_TRUE(filesUnder(folder_).empty());
}

}  // namespace
}  // namespace quillon::test
