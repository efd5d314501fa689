// `quillon station` as a user runs it: option checks and a serve-until-signal run.
#include <gtest/gtest.h>

#include <csignal>

#include "support/IcyClient.h"
#include "platform/TextUtil.h"

namespace quillon {
namespace {

std::vector<std::string> stationCommand(const std::vector<std::string>& extra) {
    std::vector<std::string> argv{QUILLON_BINARY, "station"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    return argv;
}

TEST(StationCommand, BadValuesGiveAOneLineReason) {
    const std::vector<std::vector<std::string>> cases = {
        {"--rate", "fast"},
        {"--payload", "wav"},
        {"--status", "shout"},
        {"--port", "70000"},
        {"--metaint", "lots"},
        {"--bitrate", "100"},
        {"--refuse", "200"},
        {"--redirect-to", "ftp://x"},
        {"--metaint", "0", "--bad-meta-at", "1"},
        {"--empty-titles", "--blank-titles"},
        {"--titles", " , "},
        {"--close-after", "0"},
    };
    for (const auto& extra : cases) {
        const auto result = test::runProcess(stationCommand(extra));
        EXPECT_EQ(result.status, 2) << extra[0];
        EXPECT_TRUE(result.err.size() > 1 && result.err.find('\n') == result.err.size() - 1) << result.err;
        EXPECT_EQ(result.out, "") << extra[0];
    }
}

TEST(StationCommand, ServesUntilInterruptedOrTerminated) {
    for (int signal : {SIGINT, SIGTERM}) {
        test::CapturedProcess station(
            stationCommand({"--port", "0", "--rate", "max", "--payload", "counter", "--metaint", "500",
                            "--titles", "A - x, B - y", "--title-every", "1000", "--name", "CLI FM"}));
        const std::string line = station.readLine().value_or("");
        const std::string prefix = "Station listening on http://127.0.0.1:";
        ASSERT_EQ(line.rfind(prefix, 0), 0u) << line;
        ASSERT_TRUE(endsWith(line, "/")) << line;

        test::IcyClient client(static_cast<std::uint16_t>(intValue(line.substr(prefix.size()))));
        client.sendRequest();
        EXPECT_NE(client.readHeader().find("icy-name:CLI FM\r\n"), std::string::npos);
        std::vector<std::string> titles;
        for (const auto& block : client.readStream(500, 2600).meta) titles.push_back(block.text);
        ASSERT_GE(titles.size(), 5u);
        EXPECT_EQ(test::streamTitle(titles[0]), "A - x");
        EXPECT_EQ(test::streamTitle(titles[2]), "B - y");
        EXPECT_EQ(test::streamTitle(titles[4]), "A - x");

        station.signal(signal);
        const auto result = station.wait();
        EXPECT_EQ(result.status, 0) << "signal " << signal << ": " << result.err;
        EXPECT_TRUE(client.peerClosed());
    }
}

}  // namespace
}  // namespace quillon
