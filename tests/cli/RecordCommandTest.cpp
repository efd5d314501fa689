// `quillon record` and `quillon station` as a user runs them: recording until
// the stream ends, for a duration or until interrupted, by a bookmark's name,
// several locations side by side, and a refused stream.
#include <csignal>
#include <filesystem>
#include <regex>
#include <set>

#include "cli/CliTest.h"
#include "platform/PlistCodec.h"
#include "platform/TextUtil.h"
#include "support/IcyClient.h"
#include "support/TestCertificates.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

class RecordCommand : public CliTest {
protected:
    void SetUp() override {
        CliTest::SetUp();
        // Relays on ports the system picks, so that nothing else on the machine is in the way.
        // Deliberate: 0 is no port a user may set, so it is written straight into the file.
        makeFolders(file("Library/Preferences"));
        ASSERT_TRUE(
            PlistCodec::writeXmlFile(file("Library/Preferences/kv.vossen.qln.prf"),
                                     PlistValue(PlistValue::Dictionary{{"relayPort", PlistValue("0")}})));
    }
    std::vector<std::string> mp3Files(const std::string& folder) const {
        std::vector<std::string> out;
        if (!fs::exists(file(folder))) return out;
        for (auto& e : fs::recursive_directory_iterator(file(folder)))
            if (e.path().extension() == ".mp3") out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }
    ProcessResult record(std::vector<std::string> args) const {
        args.insert(args.begin(), "record");
        return quillon(args);
    }
};

TEST_F(RecordCommand, RecordsUntilTheStationHangsUpAndFilesEveryTitle) {
    auto server = station([](StationOptions& o) {
        o.rate = StationRate::max, o.metaint = 16000,
        o.titles = {"One - A", "Two - B", "Three - C", "Four - D"};
        o.titleEvery = 600000, o.closeAfter = 3000000;
    });
    const auto run = record({server->url() + "stream", "--to", file("rec"), "--verbose"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE((run.out + run.err).find("Stream lost sync"), std::string::npos) << "--verbose shows the log";
    // The first title comes round again before the hang-up: it takes a name of
    // its own instead of reopening the first file.
    EXPECT_EQ(mp3Files("rec"), (std::vector<std::string>{"Four - D.mp3", "One - A (2).mp3", "One - A.mp3",
                                                         "Three - C.mp3", "Two - B.mp3"}));
}

TEST_F(RecordCommand, StopsAfterTheGivenDurationOrOnInterrupt) {
    auto server = station();
    const auto run = record({server->url(), "--to", file("for"), "--for", "2s", "-q"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(mp3Files("for").empty());

    for (int signal : {SIGINT, SIGTERM}) {
        CapturedProcess recording({QUILLON_BINARY, "record", server->url(), "--to", file("int")},
                                  {.environment = {{"QUILLON_HOME", home_}}});
        // A status line with a title: the session runs, and with it its signal
        // handling, and a file is open.
        std::optional<std::string> line;
        while ((line = recording.readErrorLine()) &&
               !(line->rfind("Recording : ", 0) == 0 && line->size() > 12)) {
        }
        ASSERT_TRUE(line.has_value());
        recording.signal(signal);
        const auto result = recording.wait();
        EXPECT_EQ(result.status, 0) << signal << ": " << result.err;
    }
    EXPECT_FALSE(mp3Files("int").empty());
}

// A bookmark is found by the name it was given, cleaned or not: Latin-1 letters stay.
TEST_F(RecordCommand, RecordsABookmarkByTheNameItWasGiven) {
    auto server = station();
    for (const auto& [given, saved] :
         {std::pair{"Café Jazz", "Café Jazz"}, std::pair{"Rock/Pop", "Rock Pop"}}) {
        const auto added = quillon({"bookmark", "add", server->url(), "--name", given});
        ASSERT_EQ(added.status, 0) << added.err;
        const std::string folder = std::string("named-") + saved;
        const auto run = record({given, "--to", file(folder), "--for", "2s", "-q"});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_NE(run.err.find(std::string("Recording ") + saved + " (127.0.0.1:"), std::string::npos)
            << run.err;
        EXPECT_FALSE(mp3Files(folder).empty()) << given;
    }
}

TEST_F(RecordCommand, RecordsEachLocationSideBySideWithItsOwnRelay) {
    auto server = station();
    const std::string base = server->url();
    const auto run = record({base + "one", base + "two", base + "one", "--to", file("both"), "--for", "3s"});
    ASSERT_EQ(run.status, 0) << run.err;
    // The repeated location is dropped with a message; the two others are named
    // apart, as both are named after the same host.
    EXPECT_EQ(count(run.err, "is given twice"), 1u) << run.err;
    EXPECT_EQ(count(run.err, "Recording 127 0 0 1 ("), 1u) << run.err;
    EXPECT_EQ(count(run.err, "Recording 127 0 0 1 2 ("), 1u) << run.err;
    std::set<std::string> paths;
    for (const auto& client : server->clients()) paths.insert(client.path);
    EXPECT_EQ(paths, (std::set<std::string>{"/one", "/two"}));
    EXPECT_EQ(server->clients().size(), 2u);
    // One relay per connection, each on a port of its own.
    const std::regex relay(R"(Relay: http://127\.0\.0\.1:(\d+)/  \((127 0 0 1(?: 2)?)\))");
    std::set<std::string> ports, names;
    for (std::sregex_iterator it(run.err.begin(), run.err.end(), relay), end; it != end; ++it) {
        ports.insert((*it)[1].str());
        names.insert((*it)[2].str());
    }
    EXPECT_EQ(ports.size(), 2u) << run.err;
    EXPECT_EQ(names, (std::set<std::string>{"127 0 0 1", "127 0 0 1 2"})) << run.err;
    // Without a terminal: status lines prefixed by each connection's name.
    EXPECT_GE(count(run.err, "127 0 0 1: Recording : "), 1u) << run.err;
    EXPECT_GE(count(run.err, "127 0 0 1 2: Recording : "), 1u) << run.err;
    EXPECT_TRUE(fs::exists(file("Library/Application Support/Quillon/Recents/127 0 0 1 2.qlnbk")));
}

TEST_F(RecordCommand, ARefusedLocationFailsTheRunButNotTheOthers) {
    auto good = station();
    auto refusing = station([](StationOptions& o) { o.refuse = 404; });
    const std::string gone = "localhost:" + std::to_string(refusing->port()) + "/gone";
    const auto alone = record({"http://" + gone, "--to", file("refused")});
    EXPECT_EQ(alone.status, 1);
    EXPECT_NE(alone.err.find("could not record " + gone), std::string::npos) << alone.err;
    EXPECT_NE(alone.err.find("could not record " + gone + ": refused: Not found"), std::string::npos)
        << alone.err;

    const auto run =
        record({good->url() + "ok", "http://" + gone, "--to", file("one-fails"), "--for", "3s", "-q"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(count(run.err, "could not record"), 1u) << run.err;
    EXPECT_NE(run.err.find("could not record " + gone), std::string::npos) << run.err;
    EXPECT_FALSE(mp3Files("one-fails").empty());
}

TEST_F(RecordCommand, AnUntrustedCertificateRecordsOnlyWhenThisRunAllowsIt) {
    makeFolders(file("certificates"));
    TestCertificates certificates(file("certificates"));
    const auto self = certificates.selfSignedServer("self");
    auto server =
        station([&](StationOptions& o) { o.tlsCertificate = self.certificate, o.tlsKey = self.key; });
    const std::string url = "https://127.0.0.1:" + std::to_string(server->port()) + "/";
    const auto refused = record({url, "--to", file("refused"), "--for", "2s", "-q"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("certificate not trusted: "), std::string::npos) << refused.err;
    EXPECT_TRUE(mp3Files("refused").empty());

    const auto allowed =
        record({url, "--allow-untrusted-certificate", "--to", file("allowed"), "--for", "2s", "-q"});
    EXPECT_EQ(allowed.status, 0) << allowed.err;
    EXPECT_FALSE(mp3Files("allowed").empty());
}

TEST_F(CliTest, StationServesUntilInterruptedOrTerminated) {
    for (int signal : {SIGINT, SIGTERM}) {
        CapturedProcess station({QUILLON_BINARY, "station", "--port", "0", "--rate", "max", "--payload",
                                 "counter", "--metaint", "500", "--titles", "A - x, B - y", "--title-every",
                                 "1000", "--name", "CLI FM"});
        const std::string line = station.readLine().value_or("");
        const std::string prefix = "Station listening on http://127.0.0.1:";
        ASSERT_EQ(line.rfind(prefix, 0), 0u) << line;
        ASSERT_TRUE(endsWith(line, "/")) << line;
        IcyClient client(static_cast<std::uint16_t>(intValue(line.substr(prefix.size()))));
        client.sendRequest();
        EXPECT_NE(client.readHeader().find("icy-name:CLI FM\r\n"), std::string::npos);
        const auto titles = client.readStream(500, 2600).titles();
        ASSERT_GE(titles.size(), 3u);
        EXPECT_EQ(std::vector(titles.begin(), titles.begin() + 3),
                  (std::vector<std::string>{"A - x", "B - y", "A - x"}));
        station.signal(signal);
        const auto result = station.wait();
        EXPECT_EQ(result.status, 0) << "signal " << signal << ": " << result.err;
        EXPECT_TRUE(client.peerClosed());
    }
}

}  // namespace
}  // namespace quillon::test
