// `quillon record` with several locations: each recorded side by side through
// the activity list, each with its status lines and its own relay, a location
// given twice recorded once, and one failing location failing the run.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "platform/Home.h"
#include "station/Station.h"
#include "store/Preferences.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

class RecordSideBySideTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Relays on ports the system picks, so that nothing else on the
        // machine is in the way.
        Preferences::resetShared();
        Preferences::preferences()->setParam(std::string("0"), "relayPort");
        ASSERT_TRUE(Preferences::preferences()->saveToFile());
    }
    void TearDown() override {
        fs::remove(homePath(Preferences::kRelativePath));
        Preferences::resetShared();
    }

    static std::unique_ptr<Station> station(std::optional<int> refuse = std::nullopt) {
        StationOptions o;
        o.payload = StationPayload::counter;
        o.metaint = 8000;
        o.titleEvery = 16000;
        o.refuse = refuse;
        auto s = std::make_unique<Station>(o);
        s->start();
        return s;
    }

    static ProcessResult record(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {QUILLON_BINARY, "record"};
        argv.insert(argv.end(), args.begin(), args.end());
        return runProcess(argv);
    }

    static std::size_t count(const std::string& text, const std::string& what) {
        std::size_t n = 0;
        for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
        return n;
    }
};

TEST_F(RecordSideBySideTest, EachLocationIsRecordedWithItsOwnRelay) {
    auto server = station();
    std::string base = "http://127.0.0.1:" + std::to_string(server->port());
    fs::path folder = homePath("side-by-side");
    auto run = record({base + "/one", base + "/two", base + "/one", "--to", folder.string(), "--for", "3s"});
    ASSERT_EQ(run.status, 0) << run.err;

    // The repeated location is dropped with a message; the two others are
    // named apart, as both are named after the same host.
    EXPECT_EQ(count(run.err, "is given twice"), 1u) << run.err;
    EXPECT_EQ(count(run.err, "Recording 127 0 0 1 ("), 1u) << run.err;
    EXPECT_EQ(count(run.err, "Recording 127 0 0 1 2 ("), 1u) << run.err;
    std::set<std::string> paths;
    for (const auto& client : server->clients()) paths.insert(client.path);
    EXPECT_EQ(paths, (std::set<std::string>{"/one", "/two"}));
    EXPECT_EQ(server->clients().size(), 2u);

    // One relay per connection, each on a port of its own.
    std::regex relay(R"(Relay: http://127\.0\.0\.1:(\d+)/  \((127 0 0 1(?: 2)?)\))");
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
    // Both went on the recent list.
    EXPECT_TRUE(fs::exists(homePath("Library/Application Support/Quillon/Recents/127 0 0 1 2.qlnbk")));
}

TEST_F(RecordSideBySideTest, OneUnreachableLocationFailsTheRunButNotTheOthers) {
    auto good = station();
    auto refusing = station(404);
    fs::path folder = homePath("one-fails");
    auto run = record({"http://127.0.0.1:" + std::to_string(good->port()) + "/ok",
                       "http://localhost:" + std::to_string(refusing->port()) + "/gone", "--to",
                       folder.string(), "--for", "3s", "-q"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(count(run.err, "could not record"), 1u) << run.err;
    EXPECT_NE(run.err.find("could not record localhost:" + std::to_string(refusing->port()) + "/gone"),
              std::string::npos)
        << run.err;
    bool recorded = false;
    for (auto& e : fs::recursive_directory_iterator(folder))
        recorded = recorded || e.path().extension() == ".mp3";
    EXPECT_TRUE(recorded);
}

}  // namespace
}  // namespace quillon::test
