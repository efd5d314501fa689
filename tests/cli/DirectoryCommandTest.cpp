// `quillon directory` against `quillon station --directory`, both as a user
// runs them: update with its progress, list with a bit-rate filter, record an
// entry through its playlist, and an update that fails half-way.
#include <signal.h>

#include <nlohmann/json.hpp>

#include "cli/CliTest.h"
#include "platform/AtomicFile.h"
#include "support/Files.h"

namespace quillon::test {
namespace {

class DirectoryCommandTest : public CliTest {
protected:
    // `quillon station --directory` as a child; its first line names its address.
    std::string startStation(std::vector<std::string> extra = {}) {
        std::vector<std::string> argv = {QUILLON_BINARY, "station", "--directory", "--payload", "counter"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        station_ = std::make_unique<CapturedProcess>(argv);
        auto line = station_->readLine();  // "Station listening on http://127.0.0.1:PORT/"
        EXPECT_TRUE(line);
        std::string url = line ? line->substr(line->rfind(' ') + 1) : "";
        while (!url.empty() && url.back() == '/') url.pop_back();
        return url;
    }
    void TearDown() override {
        if (station_) {
            station_->signal(SIGTERM);
            station_->wait();
        }
    }
    std::string directoryFile() const { return file("Library/Application Support/Quillon/kv.qlntuner.tun"); }

    std::unique_ptr<CapturedProcess> station_;
};

TEST_F(DirectoryCommandTest, UpdateListAndRecordAnEntry) {
    const std::string server = startStation({"--directory-version", "4"});
    auto update = quillon({"directory", "update", "--server", server});
    ASSERT_EQ(update.status, 0) << update.err;
    EXPECT_NE(update.out.find("3 genres, version 4"), std::string::npos) << update.out;
    EXPECT_NE(update.err.find("100% Downloading Talk Radio (3/3)"), std::string::npos) << update.err;

    auto again = quillon({"directory", "update", "--server", server});
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.out.find("up to date"), std::string::npos) << again.out;

    auto list = quillon({"directory", "list", "--min-kbps", "95", "--max-kbps", "128", "--json"});
    ASSERT_EQ(list.status, 0) << list.err;
    auto tree = nlohmann::json::parse(list.out);
    EXPECT_EQ(tree["version"], "4");
    std::vector<std::string> names;
    for (const auto& genre : tree["genres"])
        for (const auto& s : genre["streams"]) names.push_back(s["name"]);
    EXPECT_EQ(names, (std::vector<std::string>{"Blue Note Radio", "City News", "Rock and Jazz Talk"}));

    // The update kept its server: the entry's playlist comes from it unasked.
    auto record =
        quillon({"directory", "record", "Jazz/Blue Note Radio", "--for", "2s", "-q", "--to", file("rec")});
    ASSERT_EQ(record.status, 0) << record.err;
    EXPECT_NE(record.err.find("/stream/1001"), std::string::npos) << record.err;
    EXPECT_GT(countEntries(file("rec")), 0u);

    auto unknown = quillon({"directory", "save", "No Such Radio", "--server", server});
    EXPECT_EQ(unknown.status, 2);
}

TEST_F(DirectoryCommandTest, UpdateFailingHalfWayKeepsTheLocalDirectory) {
    std::string first;
    {
        first = startStation();
        ASSERT_EQ(quillon({"directory", "update", "--server", first}).status, 0);
        station_->signal(SIGTERM);
        station_->wait();
    }
    const auto before = readWholeFile(directoryFile());
    ASSERT_TRUE(before);
    const std::string server = startStation({"--directory-version", "2", "--directory-fail-after", "2"});
    auto update = quillon({"directory", "update", "--server", server});
    EXPECT_EQ(update.status, 1);
    EXPECT_NE(update.err.find("Talk%20Radio.tun"), std::string::npos) << update.err;
    EXPECT_EQ(readWholeFile(directoryFile()), before);
    auto version = quillon({"prefs", "get", "tunerVersion"});
    EXPECT_EQ(version.out, "1\n");
    EXPECT_EQ(quillon({"prefs", "get", "tunerServer"}).out, first + "\n");
}

}  // namespace
}  // namespace quillon::test
