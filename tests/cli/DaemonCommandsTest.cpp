// status, ui, stop, open, record, bookmark and history changes against a real `quillon serve` child of a
// home folder of its own, and the same commands without a daemon.
#include <csignal>

#include <nlohmann/json.hpp>

#include "cli/CliTest.h"
#include "support/Loopback.h"

namespace quillon::test {
namespace {

const std::string kNoDaemon = "quillon: no daemon is running (start it with: quillon serve)\n";

class DaemonCommandsTest : public CliTest {
protected:
    // The commands that need the daemon: each says so and exits 1.
    void expectNoDaemon(const char* when) {
        for (const auto& args : std::vector<std::vector<std::string>>{{"status"},
                                                                      {"status", "--json"},
                                                                      {"ui", "--print-only"},
                                                                      {"stop", "--all"},
                                                                      {"stop", "1"}}) {
            auto result = quillon(args);
            EXPECT_EQ(result.status, 1) << when << ": " << args[0];
            EXPECT_EQ(result.err, kNoDaemon) << when << ": " << args[0];
            EXPECT_EQ(result.out, "") << when << ": " << args[0];
        }
    }
    // The id of "Started ID: NAME".
    static std::string startedId(const ProcessResult& r, const std::string& name) {
        EXPECT_EQ(r.status, 0) << r.err;
        auto colon = r.out.find(": ");
        EXPECT_TRUE(r.out.starts_with("Started ") && colon != std::string::npos) << r.out;
        EXPECT_EQ(r.out.substr(colon == std::string::npos ? 0 : colon + 2), name + "\n");
        return colon == std::string::npos ? "" : r.out.substr(8, colon - 8);
    }
};

TEST_F(DaemonCommandsTest, CommandsReachTheRunningDaemonAndSayWhenThereIsNone) {
    auto radio = station();
    const std::string port = std::to_string(unusedPort());
    makeFolders(file("Music"));
    ASSERT_EQ(quillon({"prefs", "set", "webPort", port}).status, 0);
    ASSERT_EQ(quillon({"bookmark", "add", radio->url(), "--name", "Saved"}).status, 0);
    expectNoDaemon("before the daemon");

    CapturedProcess daemon({QUILLON_BINARY, "serve", "--port", port},
                           {.environment = {{"QUILLON_HOME", home_}}});
    auto first = daemon.readLine();
    ASSERT_EQ(first, "Quillon is running.");

    auto empty = quillon({"status"});
    EXPECT_EQ(empty.status, 0) << empty.err;
    EXPECT_EQ(empty.out, "No connections.\n");

    const std::string id = startedId(quillon({"record", radio->url()}), "127 0 0 1");
    auto json = quillon({"status", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    auto rows = nlohmann::json::parse(json.out)["rows"];
    ASSERT_EQ(rows.size(), 1u) << json.out;
    EXPECT_EQ(std::to_string(rows[0]["id"].get<std::uint64_t>()), id);
    auto table = lines(quillon({"status"}).out);
    ASSERT_EQ(table.size(), 2u);
    EXPECT_TRUE(table[1].starts_with(id + " ")) << table[1];
    EXPECT_NE(table[1].find("MiB"), std::string::npos) << table[1];

    auto stopped = quillon({"stop", id});
    EXPECT_EQ(stopped.status, 0) << stopped.err;
    EXPECT_EQ(stopped.out, "Stopped " + id + ": 127 0 0 1\n");
    auto unknown = quillon({"stop", "Nobody"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.err.find("no connection is named Nobody"), std::string::npos) << unknown.err;

    auto ui = quillon({"ui", "--print-only"});
    EXPECT_EQ(ui.status, 0) << ui.err;
    EXPECT_TRUE(ui.out.starts_with("http://127.0.0.1:" + port + "/login?code=")) << ui.out;

    const std::string opened = startedId(quillon({"open", bookmarkFile("Saved")}), "Saved");
    EXPECT_NE(opened, id);
    // By name, as status lists it.
    EXPECT_EQ(quillon({"stop", "Saved"}).out, "Stopped " + opened + ": Saved\n");
    EXPECT_EQ(quillon({"record", "Unsaved"}).status, 2);  // an unknown bookmark is bad input

    // Bookmark changes: the daemon fetches the location and writes the file.
    auto other = quillon({"bookmark", "add", radio->url(), "--name", "Other", "--json"});
    ASSERT_EQ(other.status, 0) << other.err;
    EXPECT_EQ(nlohmann::json::parse(other.out)["file"], bookmarkFile("Other"));
    EXPECT_EQ(quillon({"bookmark", "add", radio->url(), "--name", "Other"}).status, 2);  // taken
    auto edited = quillon({"bookmark", "edit", "Other", "--genre", "Talk", "--json"});
    ASSERT_EQ(edited.status, 0) << edited.err;
    EXPECT_EQ(nlohmann::json::parse(edited.out)["genre"], "Talk");
    EXPECT_EQ(quillon({"bookmark", "rm", "Other"}).out, "Removed " + bookmarkFile("Other") + "\n");
    EXPECT_EQ(quillon({"bookmark", "rm", "Other"}).status, 2);

    // History changes go to the daemon's history: the track it entered is the
    // one it then deletes, and its day file says so once it has stopped.
    makeFolders(file("music"));
    writeText(file("music/Alpha - One.mp3"), "a");
    auto added = quillon({"history", "add", file("music"), "--json"});
    ASSERT_EQ(added.status, 0) << added.err;
    const std::string day = nlohmann::json::parse(added.out)[0]["day"];
    auto removed = quillon({"history", "rm", day + ":1", "--yes"});
    EXPECT_EQ(removed.status, 0) << removed.err;
    EXPECT_EQ(removed.out, "Removed 1 track(s)\n");

    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait().status, 0);
    auto days = nlohmann::json::parse(quillon({"history", "list", "--json"}).out);
    ASSERT_EQ(days.size(), 1u);
    EXPECT_EQ(days[0]["items"], 0);
    // The token stays behind; nothing answers on the port any more.
    expectNoDaemon("after the daemon");
}

}  // namespace
}  // namespace quillon::test
