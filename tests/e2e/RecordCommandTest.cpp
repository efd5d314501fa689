// `quillon record` as a user runs it: against `quillon station` in another
// process, stopping after a duration, on Ctrl-C, or when the stream ends, and
// refusing bad input with a one-line reason.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <thread>

#include "platform/Home.h"
#include "support/Files.h"
#include "support/Process.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

// A `quillon station` process; its port is read from the line it prints.
class StationProcess {
public:
    explicit StationProcess(std::vector<std::string> options)
        : log_(homePath("station-" + std::to_string(++count_))) {
        std::vector<std::string> argv = {QUILLON_BINARY, "station", "--port", "0"};
        argv.insert(argv.end(), options.begin(), options.end());
        process_ = std::make_unique<ServerProcess>(argv, log_);
        std::smatch m;
        for (int i = 0; i < 200; ++i) {
            std::string out = readText(log_);
            if (std::regex_search(out, m, std::regex("127\\.0\\.0\\.1:(\\d+)/"))) {
                url_ = "http://127.0.0.1:" + m[1].str() + "/stream";
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
        }
    }
    const std::string& url() const { return url_; }

private:
    static inline int count_ = 0;
    std::string log_;
    std::unique_ptr<ServerProcess> process_;
    std::string url_;
};

struct CommandRun {
    int status;
    std::string output;
};

CommandRun record(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {QUILLON_BINARY, "record"};
    argv.insert(argv.end(), args.begin(), args.end());
    auto result = runProcess(argv);
    return {result.status, result.out + result.err};
}

std::vector<std::string> mp3Files(const fs::path& folder) {
    std::vector<std::string> out;
    if (!fs::exists(folder)) return out;
    for (auto& e : fs::recursive_directory_iterator(folder))
        if (e.path().extension() == ".mp3") out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

TEST(RecordCommandTest, RecordsUntilTheStationHangsUpAndFilesEveryTitle) {
    StationProcess station({"--payload", "counter", "--rate", "max", "--metaint", "16000", "--titles",
                            "One - A,Two - B,Three - C,Four - D", "--title-every", "600000", "--close-after",
                            "3000000"});
    ASSERT_FALSE(station.url().empty());
    fs::path folder = homePath("rec-hangup");
    CommandRun run = record({station.url(), "--to", folder.string(), "--verbose"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("Stream lost sync"), std::string::npos)
        << run.output;  // --verbose shows the log
    // The first title comes round again before the hang-up: it takes a name
    // of its own instead of reopening the first file.
    auto files = mp3Files(folder);
    EXPECT_EQ(files, (std::vector<std::string>{"Four - D.mp3", "One - A (2).mp3", "One - A.mp3", "Three - C.mp3",
                                               "Two - B.mp3"}));
}

TEST(RecordCommandTest, StopsAfterTheGivenDurationOrOnInterrupt) {
    StationProcess station({"--payload", "counter", "--metaint", "8000", "--title-every", "16000"});
    ASSERT_FALSE(station.url().empty());
    fs::path folder = homePath("rec-duration");
    CommandRun run = record({station.url(), "--to", folder.string(), "--for", "2s", "-q"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_FALSE(mp3Files(folder).empty());

    fs::path log = homePath("rec-interrupt.log");
    ServerProcess recording({QUILLON_BINARY, "record", station.url(), "--to", (folder / "int").string()},
                            log.string());
    for (int i = 0; i < 200 && mp3Files(folder / "int").empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    ::kill(recording.pid(), SIGINT);
    EXPECT_EQ(recording.wait(), 0) << readText(log);
}

TEST(RecordCommandTest, ARefusedStreamExitsWithItsReason) {
    StationProcess station({"--refuse", "404"});
    ASSERT_FALSE(station.url().empty());
    CommandRun run = record({station.url(), "--to", homePath("rec-refused").c_str()});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("could not record"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("refused: Not found"), std::string::npos) << run.output;
}

// A bookmark is found by the name it was given, cleaned or not: Latin-1
// letters stay as they are.
TEST(RecordCommandTest, RecordsABookmarkByTheNameItWasGiven) {
    StationProcess station({"--payload", "counter", "--metaint", "8000", "--title-every", "16000"});
    ASSERT_FALSE(station.url().empty());
    struct Case {
        std::string given, saved;
    };
    const Case cases[] = {{"Café Jazz", "Café Jazz"}, {"Rock/Pop", "Rock Pop"}};
    for (const Case& c : cases) {
        auto added = runProcess({QUILLON_BINARY, "bookmark", "add", station.url(), "--name", c.given});
        ASSERT_EQ(added.status, 0) << added.err;
        fs::path folder = homePath("rec-named-" + c.saved);
        CommandRun run = record({c.given, "--to", folder.string(), "--for", "2s", "-q"});
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_NE(run.output.find("Recording " + c.saved + " (127.0.0.1:"), std::string::npos) << run.output;
        EXPECT_FALSE(mp3Files(folder).empty()) << c.given;
    }
}

TEST(RecordCommandTest, BadInputIsRefusedWithOneLine) {
    writeText(homePath("broken.qlnbk"), "not a property list");
    writeText(homePath("hostless.qlnbk"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>name</key>"
              "<string>Hostless</string></dict></plist>\n");
    const std::vector<std::vector<std::string>> cases = {{"http://127.0.0.1:9/x", "--for", "soon"},
                                                         {"no-such-bookmark-or-file"},
                                                         {},
                                                         {"http://127.0.0.1:99999/"},
                                                         {homePath("broken.qlnbk")},
                                                         {homePath("hostless.qlnbk")}};
    for (const auto& args : cases) {
        CommandRun run = record(args);
        EXPECT_EQ(run.status, 2) << run.output;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
    }
}

}  // namespace
}  // namespace quillon::test
