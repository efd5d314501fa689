// The test station, as far as the recorder's tests rely on it: the header forms,
// metadata blocks on the title schedule, the counter payload, an mp3 payload
// that real decoders take without complaint, and each staged fault.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "station/Mp3Tones.h"
#include "station/Station.h"
#include "station/StreamGenerator.h"
#include "support/IcyClient.h"

namespace quillon {
namespace {

using test::IcyClient;
using test::IcyStream;
using Change = std::function<void(StationOptions&)>;

StationOptions counter(std::uint64_t titleEvery = 2500) {
    StationOptions options;
    options.payload = StationPayload::counter;
    options.rate = StationRate::max;
    options.metaint = 1000;
    options.titleEvery = titleEvery;
    return options;
}

void expectCounter(const Bytes& audio) {
    for (std::size_t i = 0; i < audio.size(); ++i)
        ASSERT_EQ(audio[i], Station::counterByte(i)) << "byte " << i;
}

// The received titles are the station's schedule, block for block.
void expectSchedule(const Station& station, const IcyStream& stream) {
    std::vector<std::pair<std::uint64_t, std::string>> got, want;
    for (const auto& b : stream.meta)
        if (auto title = test::streamTitle(b.text)) got.emplace_back(b.audioOffset, *title);
    for (const auto& a : station.titleSchedule(stream.audio.size()))
        want.emplace_back(a.audioOffset, a.title);
    ASSERT_FALSE(want.empty());
    EXPECT_EQ(got, want);
}

// `audioBytes` of audio (or less when the stream ends), made in pieces of `piece`.
Bytes generate(StreamGenerator& generator, std::size_t audioBytes, std::size_t piece) {
    Bytes out;
    for (std::size_t made = 0, n = 1; made < audioBytes && n > 0; made += n)
        n = generator.produce(out, std::min(piece, audioBytes - made));
    return out;
}

TEST(Station, HeaderFormsFollowStationAndRequest) {
    struct Case {
        const char* what;
        Change change;
        std::string request;
        std::vector<std::string> starts;  // the header begins with the first, holds the others
        bool metadata;
    };
    const auto get = [](const char* head) { return std::string("GET /live HTTP/1.1\r\n") + head + "\r\n"; };
    const std::vector<Case> cases = {
        {"ICY with metadata",
         [](StationOptions& o) { o.name = "Counter FM"; },
         get("Icy-MetaData: 1\r\n"),
         {"ICY 200 OK\r\n", "icy-metaint:1000\r\n", "icy-name:Counter FM\r\n", "icy-br:128\r\n"},
         true},
        {"lower-case wish", [](StationOptions&) {}, get("icy-metadata:1\r\n"), {"ICY 200 OK\r\n"}, true},
        {"client does not ask",
         [](StationOptions&) {},
         get("Icy-MetaData: 0\r\n"),
         {"ICY 200 OK\r\n"},
         false},
        {"station has none",
         [](StationOptions& o) { o.metaint = 0; },
         get("Icy-MetaData: 1\r\n"),
         {"ICY 200 OK\r\n"},
         false},
        {"HTTP, Icecast by default",
         [](StationOptions& o) { o.status = StationStatus::http; },
         get("Icy-MetaData: 1\r\n"),
         {"HTTP/1.0 200 OK\r\nServer: Icecast 2.4.4\r\n"},
         true},
        {"HTTP, own Server",
         [](StationOptions& o) { o.status = StationStatus::http, o.server = "Nano/2.1"; },
         get("Icy-MetaData: 1\r\n"),
         {"HTTP/1.0 200 OK\r\nServer: Nano/2.1\r\n"},
         true},
        {"HTTP, no Server",
         [](StationOptions& o) { o.status = StationStatus::http, o.server = ""; },
         get("Icy-MetaData: 1\r\n"),
         {"HTTP/1.0 200 OK\r\ncontent-type:"},
         true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto options = counter();
        c.change(options);
        Station station(options);
        station.start();
        EXPECT_EQ(station.url(), "http://127.0.0.1:" + std::to_string(station.port()) + "/");
        IcyClient client(station.port());
        client.send(c.request);
        const std::string header = client.readHeader();
        EXPECT_EQ(header.rfind(c.starts[0], 0), 0u) << header;
        for (const auto& line : c.starts) EXPECT_NE(header.find(line), std::string::npos) << line;
        EXPECT_EQ(header.find("icy-metaint:") != std::string::npos, c.metadata);
        expectCounter(client.readStream(c.metadata ? options.metaint : 0, 5000).audio);
        const StationClient record = station.clients().at(0);
        EXPECT_EQ(record.path, "/live");
        EXPECT_EQ(record.request, c.request);
        EXPECT_EQ(record.metadata, c.metadata);
    }
}

TEST(Station, MetadataBlocksFollowTheTitleSchedule) {
    // Title plan: each title is announced after the block holding its first byte
    // (metaint 100); (audio offset, title index) up to a limit.
    using Offsets = std::vector<std::pair<std::uint64_t, std::uint32_t>>;
    const std::vector<std::tuple<const char*, std::uint64_t, std::uint64_t, Offsets>> plans = {
        {"titles never change", 0, 500, {{100, 0}}},
        {"thresholds inside blocks", 250, 800, {{100, 0}, {300, 1}, {600, 2}, {800, 3}}},
        {"threshold on a block's first byte", 200, 600, {{100, 0}, {300, 1}, {500, 2}}},
        {"several titles per block: only the last", 30, 300, {{100, 3}, {200, 6}, {300, 9}}},
        {"limit between boundaries", 250, 799, {{100, 0}, {300, 1}, {600, 2}}},
        {"no complete block", 250, 99, {}},
    };
    for (const auto& [what, titleEvery, audioBytes, expected] : plans) {
        auto options = counter(titleEvery);
        options.metaint = 100;
        Offsets got;
        for (const auto& a : TitlePlan(options).schedule(audioBytes))
            got.emplace_back(a.audioOffset, a.index);
        EXPECT_EQ(got, expected) << what;
    }
    auto none = counter();
    none.metaint = 0;
    EXPECT_TRUE(TitlePlan(none).schedule(10000).empty()) << "no metadata, no titles";
    EXPECT_EQ(TitlePlan(counter()).title(41), "Artist 42 - Title 42");

    // Blocks: a length byte in 16-byte units, the text zero-padded.
    const std::string text = TitlePlan::metadataText("A - x");
    EXPECT_EQ(text, "StreamTitle='A - x';StreamUrl='';");
    for (const auto& [body, flag, lengthByte] :
         std::vector<std::tuple<std::string, std::uint8_t, std::uint8_t>>{
             {"", 0, 0}, {std::string(16, 'a'), 0, 1}, {std::string(17, 'a'), 0, 2}, {text, 0x80, 0x83}}) {
        const Bytes block = TitlePlan::metadataBlock(body, flag);
        ASSERT_EQ(block[0], lengthByte) << body;
        ASSERT_EQ(block.size(), 1u + lengthByte * 16u) << body;
        EXPECT_EQ(asText(block).substr(1, body.size()), body);
        EXPECT_EQ(std::count(block.begin() + 1 + body.size(), block.end(), 0),
                  block.size() - 1 - body.size());
    }
    auto longest = counter();
    longest.titles = {std::string(TitlePlan::maxMetadataBytes - TitlePlan::metadataText("").size(), 'x')};
    EXPECT_NO_THROW(validate(longest));
    EXPECT_LT(TitlePlan::metadataBlock(TitlePlan::metadataText(longest.titles[0]))[0], 128);
    longest.titles[0] += "x";
    EXPECT_THROW(validate(longest), std::invalid_argument);

    // The generated bytes do not depend on the piece size they are made in.
    auto options = counter(1700);
    StreamGenerator whole(options, true);
    const Bytes reference = generate(whole, 12345, 12345);
    EXPECT_EQ(whole.announcements(), TitlePlan(options).schedule(12345));
    for (std::size_t piece : {1u, 999u, 1000u, 1001u}) {
        StreamGenerator pieces(options, true);
        EXPECT_EQ(generate(pieces, 12345, piece), reference) << "pieces of " << piece;
    }
    // Repeated titles fill every block but are announced once.
    options = counter();
    options.repeatTitle = true;
    StreamGenerator repeating(options, true);
    const TitlePlan plan(options);
    EXPECT_EQ(test::parseIcy(generate(repeating, 6001, 6001), 1000).titles(),
              (std::vector<std::string>{plan.title(0), plan.title(0), plan.title(1), plan.title(1),
                                        plan.title(1), plan.title(2)}));
    EXPECT_EQ(repeating.announcements().size(), 3u);

    // A listed title cycle over a live connection, with counter audio.
    options = counter();
    options.titles = {"A - x", "B - y", "C - z"};
    Station station(options);
    station.start();
    IcyClient client(station.port());
    client.sendRequest();
    client.readHeader();
    const IcyStream stream = client.readStream(options.metaint, 30001);
    expectCounter(stream.audio);
    expectSchedule(station, stream);
    EXPECT_EQ(stream.titles().at(3), "A - x");
    client.close();
    station.stop();
    const StationClient record = station.clients().at(0);
    EXPECT_EQ(record.announcements, station.titleSchedule(record.audioBytesSent - 1))
        << "a block's title is logged once audio after it is sent";
}

struct Capture {
    std::string path;
    std::vector<TitleAnnouncement> announcements;  // within the saved audio
};

Capture captureMp3(std::uint32_t kbps, std::uint64_t audioBytes, std::uint64_t titleEvery) {
    StationOptions options;
    options.rate = StationRate::max;
    options.bitrate = kbps;
    options.metaint = 4000;
    options.titleEvery = titleEvery;
    Station station(options);
    station.start();
    IcyClient client(station.port());
    client.sendRequest();
    client.readHeader();
    const Bytes audio = client.readStream(options.metaint, audioBytes).audio;
    Capture capture{homePath("capture-" + std::to_string(kbps) + ".mp3"), {}};
    EXPECT_TRUE(writeFileAtomically(capture.path, audio));
    client.close();
    station.stop();
    const auto clients = station.clients();  // a copy: the loop must not outlive it
    for (const auto& a : clients.at(0).announcements)  // the station may have sent more
        if (a.audioOffset <= audio.size()) capture.announcements.push_back(a);

    // Whole frames throughout; each title's tone loop starts at the first frame
    // boundary at or after its announcement.
    std::vector<std::size_t> starts;
    std::size_t pos = 0;
    for (std::optional<std::size_t> length; (length = Mp3Tones::frameLength(std::span(audio).subspan(pos)));
         pos += *length)
        starts.push_back(pos);
    EXPECT_GT(pos + 4, audio.size()) << "a frame header is broken at byte " << pos;
    const auto loops = Mp3Tones::loops(kbps);
    for (const auto& a : capture.announcements) {
        if (a.index % Mp3Tones::toneCount == 0) continue;  // tone 0 plays from the start
        const auto first = std::lower_bound(starts.begin(), starts.end(), a.audioOffset);
        const Bytes& expected = (*loops)[a.index % Mp3Tones::toneCount][0];
        if (first == starts.end() || *first + expected.size() > audio.size()) continue;  // cut off at the end
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), audio.begin() + *first)) << a.index;
    }
    return capture;
}

TEST(Station, Mp3PayloadDecodesCleanlyWithATonePerTitle) {
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

    // Zero crossings over the middle half-second of each two-second title.
    const Capture capture = captureMp3(128, 160000, 32000);
    ASSERT_GE(capture.announcements.size(), 4u);
    const auto decoded = test::runProcess({"mpg123", "-q", "-s", capture.path});  // raw 16-bit mono
    ASSERT_EQ(decoded.status, 0);
    std::vector<std::int16_t> samples(decoded.out.size() / 2);
    std::memcpy(samples.data(), decoded.out.data(), samples.size() * 2);
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
        const double expected = Mp3Tones::frequency(list[a].index);
        EXPECT_NEAR(crossings / 2.0 * Mp3Tones::sampleRate / window, expected, expected * 0.03)
            << list[a].index;
    }
}

TEST(Station, StagesFaultsOnDemand) {
    using Check = std::function<void(Station&, IcyClient&)>;
    struct Case {
        const char* what;
        Change change;
        Check check;
        std::string request = "";  // a raw request instead of the usual one
    };
    const auto refusal = [](std::string expected) {
        return [expected](Station&, IcyClient& client) {
            EXPECT_EQ(client.readHeader(), expected);
            EXPECT_TRUE(client.read(1).empty()) << "nothing after the reply";
            EXPECT_TRUE(client.peerClosed());
        };
    };
    const auto withheld = [](std::uint8_t length) {
        return [length](Station& station, IcyClient& client) {
            client.readHeader();
            const IcyStream stream = client.readStream(1000, 40000);
            ASSERT_GE(stream.meta.size(), 35u);  // the recorder gives up on titles after 31
            for (const auto& block : stream.meta) {
                ASSERT_EQ(block.length, length);
                ASSERT_EQ(test::streamTitle(block.text).value_or(""), "");
            }
            EXPECT_TRUE(station.titleSchedule(40000).empty());
        };
    };
    const std::vector<Case> cases = {
        {"close after 4321 audio bytes", [](StationOptions& o) { o.closeAfter = 4321; },
         [](Station& station, IcyClient& client) {
             client.readHeader();
             const IcyStream stream = client.readStream(1000, 1 << 20);
             EXPECT_TRUE(client.peerClosed());
             EXPECT_EQ(stream.audio.size(), 4321u);
             expectCounter(stream.audio);
             station.stop();
             EXPECT_EQ(station.clients().at(0).audioBytesSent, 4321u);
         }},
        {"close on a block boundary: before its metadata", [](StationOptions& o) { o.closeAfter = 5000; },
         [](Station&, IcyClient& client) {
             client.readHeader();
             const IcyStream stream = client.readStream(1000, 1 << 20);
             EXPECT_EQ(stream.audio.size(), 5000u);
             EXPECT_EQ(stream.meta.size(), 4u);
         }},
        {"bad metadata length at title 2", [](StationOptions& o) { o.badMetaAt = 2; },
         [](Station& station, IcyClient& client) {
             client.readHeader();
             std::vector<std::uint64_t> bad;
             for (const auto& b : client.readStream(1000, 8000).meta) {
                 if (b.length < 128) continue;
                 bad.push_back(b.audioOffset);
                 EXPECT_TRUE(test::streamTitle(b.text)) << "long enough for what it claims";
             }
             EXPECT_EQ(bad, std::vector<std::uint64_t>{station.titleSchedule(8000).at(2).audioOffset});
         }},
        {"redirect", [](StationOptions& o) { o.redirectTo = "http://127.0.0.1:9/stream"; },
         refusal("HTTP/1.0 302 Found\r\nLocation: http://127.0.0.1:9/stream\r\nContent-Length: 0\r\n\r\n")},
        {"refuse 401", [](StationOptions& o) { o.refuse = 401; }, refusal("ICY 401 Unauthorized\r\n\r\n")},
        {"refuse 404 over HTTP", [](StationOptions& o) { o.refuse = 404, o.status = StationStatus::http; },
         refusal("HTTP/1.0 404 Not Found\r\n\r\n")},
        {"malformed request", [](StationOptions&) {}, refusal("HTTP/1.0 400 Bad Request\r\n\r\n"),
         "HELLO\r\n\r\n"},
        {"not a GET", [](StationOptions&) {}, refusal("HTTP/1.0 400 Bad Request\r\n\r\n"),
         "POST / HTTP/1.1\r\n\r\n"},
        {"no version", [](StationOptions&) {}, refusal("HTTP/1.0 400 Bad Request\r\n\r\n"), "GET /\r\n\r\n"},
        {"silent after header", [](StationOptions& o) { o.silentAfterHeader = true; },
         [](Station& station, IcyClient& client) {
             EXPECT_EQ(client.readHeader().rfind("ICY 200 OK\r\n", 0), 0u);
             EXPECT_FALSE(client.peerClosed(300));
             EXPECT_TRUE(client.read(0).empty());
             EXPECT_EQ(station.clientCount(), 1u);
         }},
        {"empty titles", [](StationOptions& o) { o.emptyTitles = EmptyTitles::zeroLength; }, withheld(0)},
        {"blank titles", [](StationOptions& o) { o.emptyTitles = EmptyTitles::blank; }, withheld(2)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto options = counter();
        c.change(options);
        Station station(options);
        station.start();
        IcyClient client(station.port());
        c.request.empty() ? client.sendRequest() : client.send(c.request);
        c.check(station, client);
    }

    // Options that cannot describe a working station are refused up front.
    const std::vector<std::pair<const char*, Change>> bad = {
        {"mp3 at a non-MPEG rate",
         [](StationOptions& o) { o.payload = StationPayload::mp3, o.bitrate = 100; }},
        {"bad metadata without metadata", [](StationOptions& o) { o.metaint = 0, o.badMetaAt = 1; }},
        {"bad metadata, titles withheld",
         [](StationOptions& o) { o.emptyTitles = EmptyTitles::blank, o.badMetaAt = 1; }},
        {"close after nothing", [](StationOptions& o) { o.closeAfter = 0; }},
        {"refusal with a success code", [](StationOptions& o) { o.refuse = 200; }},
        {"redirect to nothing", [](StationOptions& o) { o.redirectTo = "http://"; }},
        {"redirect and refusal",
         [](StationOptions& o) { o.redirectTo = "http://127.0.0.1:1/", o.refuse = 404; }},
        {"line break in a header text", [](StationOptions& o) { o.name = "a\r\nicy-metaint:1"; }},
    };
    for (const auto& [what, change] : bad) {
        auto options = counter();
        change(options);
        EXPECT_THROW(validate(options), std::invalid_argument) << what;
    }
}

TEST(Station, ServesManyClientsThenStopsAndFreesThePort) {
    auto options = counter();
    auto station = std::make_unique<Station>(options);
    station->start();
    const std::uint16_t port = station->port();
    constexpr std::size_t count = 24;
    std::vector<std::unique_ptr<IcyClient>> clients;
    for (std::size_t i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<IcyClient>(port));
        clients.back()->sendRequest("/c" + std::to_string(i));
    }
    std::vector<IcyStream> streams(count);
    std::vector<std::thread> readers;
    for (std::size_t i = 0; i < count; ++i) {
        readers.emplace_back([&, i] {
            clients[i]->readHeader();
            streams[i] = clients[i]->readStream(options.metaint, 60000);
        });
    }
    for (auto& reader : readers) reader.join();
    for (const auto& stream : streams) {
        ASSERT_GE(stream.audio.size(), 60000u);
        expectCounter(stream.audio);
        expectSchedule(*station, stream);
    }
    IcyClient mute(port);  // connected, no request ever sent

    options.port = port;
    Station rival(options);
    EXPECT_THROW(rival.start(), std::runtime_error) << "the port is taken";
    EXPECT_THROW(station->start(), std::logic_error);
    station->stop();
    station->stop();
    for (auto& client : clients) EXPECT_TRUE(client->peerClosed());
    EXPECT_TRUE(mute.peerClosed());
    EXPECT_EQ(station->clientCount(), 0u);
    station.reset();
    EXPECT_THROW(IcyClient{port}, std::runtime_error) << "nothing listens any more";
    Station again(options);
    EXPECT_NO_THROW(again.start()) << "the port is free again";
    IcyClient late(port);
    late.sendRequest();
    EXPECT_EQ(late.readHeader().rfind("ICY 200 OK", 0), 0u);
}  // `again` stops in its destructor with `late` still connected

}  // namespace
}  // namespace quillon
