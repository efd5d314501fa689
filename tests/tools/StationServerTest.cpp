// The station over loopback sockets: what clients receive, each staged fault,
// many clients at once, and a clean stop.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "StationTestSupport.h"
#include "station/Station.h"

namespace quillon {
namespace {

using test::eventually;
using test::IcyClient;
using test::IcyStream;

StationOptions fastCounter() {
    StationOptions options;
    options.payload = StationPayload::counter;
    options.rate = StationRate::max;
    options.metaint = 1000;
    options.titleEvery = 2500;
    return options;
}

void expectCounterPattern(const Bytes& audio) {
    for (std::size_t i = 0; i < audio.size(); ++i)
        ASSERT_EQ(audio[i], Station::counterByte(i)) << "byte " << i;
}

// (audio offset, title) of every block that carries a title.
std::vector<std::pair<std::uint64_t, std::string>> titlesIn(const IcyStream& stream) {
    std::vector<std::pair<std::uint64_t, std::string>> out;
    for (const auto& b : stream.meta) {
        if (auto title = test::streamTitle(b.text)) out.emplace_back(b.audioOffset, *title);
    }
    return out;
}

void expectScheduleReceived(const Station& station, const IcyStream& stream) {
    const auto schedule = station.titleSchedule(stream.audio.size());
    const auto received = titlesIn(stream);
    ASSERT_FALSE(schedule.empty());
    ASSERT_EQ(received.size(), schedule.size());
    for (std::size_t i = 0; i < schedule.size(); ++i) {
        EXPECT_EQ(received[i], std::make_pair(schedule[i].audioOffset, schedule[i].title)) << i;
    }
}

TEST(Station, ServesHeaderCounterAudioAndScheduledTitles) {
    auto options = fastCounter();
    options.name = "Counter FM";
    options.titles = {"A - x", "B - y", "C - z"};
    Station station(options);
    station.start();
    EXPECT_EQ(station.url(), "http://127.0.0.1:" + std::to_string(station.port()) + "/");
    IcyClient client(station.port());
    client.sendRequest("/live");
    const std::string header = client.readHeader();
    EXPECT_EQ(header.rfind("ICY 200 OK\r\n", 0), 0u);
    for (const char* line : {"icy-metaint:1000\r\n", "icy-name:Counter FM\r\n", "icy-br:128\r\n"}) {
        EXPECT_NE(header.find(line), std::string::npos) << line;
    }
    const IcyStream stream = client.readStream(options.metaint, 30001);
    expectCounterPattern(stream.audio);
    expectScheduleReceived(station, stream);

    const StationClient record = station.clients().at(0);
    EXPECT_EQ(record.path, "/live");
    EXPECT_TRUE(record.metadata);
    EXPECT_NE(record.request.find("Icy-MetaData: 1\r\n"), std::string::npos);
    // A block's title is logged once audio after it is sent.
    EXPECT_EQ(record.announcements, station.titleSchedule(record.audioBytesSent - 1));
    EXPECT_EQ(station.clientCount(), 1u);
    client.close();
    EXPECT_TRUE(eventually([&] { return station.clientCount() == 0; }));
}

TEST(Station, HeaderAndMetadataFollowStationAndRequest) {
    struct Case {
        const char* what;
        std::function<void(StationOptions&)> change;
        bool ask;
        std::string statusLine;
        bool metadata;
    };
    const std::vector<Case> cases = {
        {"client does not ask", [](StationOptions&) {}, false, "ICY 200 OK\r\n", false},
        {"station has none", [](StationOptions& o) { o.metaint = 0; }, true, "ICY 200 OK\r\n", false},
        {"HTTP status with Server",
         [](StationOptions& o) { o.status = StationStatus::http, o.server = "Icecast 2.4.0"; }, true,
         "HTTP/1.0 200 OK\r\nServer: Icecast 2.4.0\r\n", true},
    };
    for (const auto& c : cases) {
        auto options = fastCounter();
        c.change(options);
        Station station(options);
        station.start();
        IcyClient client(station.port());
        client.sendRequest("/", c.ask);
        const std::string header = client.readHeader();
        EXPECT_EQ(header.rfind(c.statusLine, 0), 0u) << c.what;
        EXPECT_EQ(header.find("icy-metaint:") != std::string::npos, c.metadata) << c.what;
        const IcyStream stream = client.readStream(c.metadata ? options.metaint : 0, 5000);
        expectCounterPattern(stream.audio);
        EXPECT_EQ(station.clients().at(0).metadata, c.metadata) << c.what;
    }
}

TEST(Station, StagesFaultsOnDemand) {
    using Check = std::function<void(Station&, IcyClient&)>;
    struct Case {
        const char* what;
        std::function<void(StationOptions&)> change;
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
    const std::vector<Case> cases = {
        {"close after 4321 audio bytes", [](StationOptions& o) { o.closeAfter = 4321; },
         [](Station& station, IcyClient& client) {
             client.readHeader();
             const IcyStream stream = client.readStream(1000, 1 << 20);
             EXPECT_TRUE(client.peerClosed());
             EXPECT_EQ(stream.audio.size(), 4321u);
             expectCounterPattern(stream.audio);
             EXPECT_TRUE(eventually([&] { return station.clientCount() == 0; }));
             EXPECT_EQ(station.clients().at(0).audioBytesSent, 4321u);
         }},
        {"bad metadata length at title 2", [](StationOptions& o) { o.badMetaAt = 2; },
         [](Station& station, IcyClient& client) {
             client.readHeader();
             const IcyStream stream = client.readStream(1000, 8000);
             std::vector<std::uint64_t> bad;
             for (const auto& b : stream.meta) {
                 if (b.length >= 128) bad.push_back(b.audioOffset);
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
        {"silent after header", [](StationOptions& o) { o.silentAfterHeader = true; },
         [](Station& station, IcyClient& client) {
             EXPECT_EQ(client.readHeader().rfind("ICY 200 OK\r\n", 0), 0u);
             EXPECT_FALSE(client.peerClosed(300));
             EXPECT_TRUE(client.read(0).empty());
             EXPECT_EQ(station.clientCount(), 1u);
             client.close();
             EXPECT_TRUE(eventually([&] { return station.clientCount() == 0; }));
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        auto options = fastCounter();
        c.change(options);
        Station station(options);
        station.start();
        IcyClient client(station.port());
        c.request.empty() ? client.sendRequest() : client.send(c.request);
        c.check(station, client);
    }
}

TEST(Station, WithheldTitlesSendEmptyBlocksPastTheRecordersPatience) {
    for (const auto& [mode, length] :
         {std::pair{EmptyTitles::zeroLength, 0}, std::pair{EmptyTitles::blank, 2}}) {
        auto options = fastCounter();
        options.emptyTitles = mode;
        Station station(options);
        station.start();
        IcyClient client(station.port());
        client.sendRequest();
        client.readHeader();
        const IcyStream stream = client.readStream(options.metaint, 40000);
        ASSERT_GE(stream.meta.size(), 35u);  // the recorder gives up on titles after 31
        for (const auto& block : stream.meta) {
            ASSERT_EQ(block.length, length);
            ASSERT_EQ(test::streamTitle(block.text).value_or(""), "");
        }
        EXPECT_TRUE(station.titleSchedule(40000).empty());
    }
}

TEST(Station, ServesManyClientsAtOnce) {
    const auto options = fastCounter();
    Station station(options);
    station.start();
    constexpr std::size_t count = 24;
    std::vector<std::unique_ptr<IcyClient>> clients;
    for (std::size_t i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<IcyClient>(station.port()));
        clients.back()->sendRequest("/c" + std::to_string(i));
    }
    ASSERT_TRUE(eventually([&] { return station.clientCount() == count; }));
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
        expectCounterPattern(stream.audio);
        expectScheduleReceived(station, stream);
    }
    clients.clear();
    EXPECT_TRUE(eventually([&] { return station.clientCount() == 0; }));
    EXPECT_EQ(station.clients().size(), count);
}

TEST(Station, StopEndsEveryConnectionAndFreesThePort) {
    auto options = fastCounter();
    options.rate = StationRate::realtime;
    options.bitrate = 320;  // 40000 bytes/s: a few kilobytes take a fraction of a second
    auto station = std::make_unique<Station>(options);
    station->start();
    const std::uint16_t port = station->port();
    IcyClient streaming(port);
    streaming.sendRequest();
    streaming.readHeader();
    EXPECT_GE(streaming.readStream(options.metaint, 4000).audio.size(), 4000u);
    IcyClient mute(port);  // connected, no request ever sent
    ASSERT_TRUE(eventually([&] { return station->clientCount() == 2; }));

    options.port = port;
    Station rival(options);
    EXPECT_THROW(rival.start(), std::runtime_error) << "the port is taken";
    EXPECT_THROW(station->start(), std::logic_error);

    station->stop();
    station->stop();
    EXPECT_TRUE(streaming.peerClosed());
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
