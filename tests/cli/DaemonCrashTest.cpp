// A daemon killed with SIGKILL while it saves the preferences, the schedules
// and the history leaves every one of those files either as it was or as it
// became, never partial (python3's plistlib reads each), and the next start
// loads them.
#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <mutex>
#include <thread>

#include <nlohmann/json.hpp>

#include "cli/CliTest.h"
#include "support/Loopback.h"

namespace quillon::test {
namespace {

// Loads every settings, schedules and history file of the home with plistlib;
// prints one line per file that does not load.
const char* kCheckFiles = R"(
import glob, plistlib, sys
bad = 0
files = glob.glob(sys.argv[1] + '/Library/Preferences/*.q*') + \
        glob.glob(sys.argv[1] + '/Library/Application Support/Quillon/History/*.historyDB')
for name in files:
    try:
        with open(name, 'rb') as f:
            plistlib.load(f)
    except Exception as e:
        bad += 1
        print(name, e)
print(len(files) if not bad else 'bad')
)";

class DaemonCrashTest : public CliTest {
protected:
    // Changes through the API, one after another, until the daemon stops
    // answering; `calls` counts the answered ones.
    void keepChanging(int port, const std::string& bookmark, const std::string& music) {
        httplib::Client client("127.0.0.1", port);
        client.set_default_headers({{"X-Quillon-Token", token()}});
        for (int i = 0;; ++i) {
            nlohmann::json prefs = {{"reconnect", i % 2 == 0}};
            nlohmann::json rule = {{"bookmark", bookmark},
                                   {"days", nlohmann::json::array({"mon"})},
                                   {"at", "21:00"},
                                   {"runFor", "1:00"}};
            nlohmann::json files = {{"paths", nlohmann::json::array({music})}};
            auto a = client.Put("/api/prefs", prefs.dump(), "application/json");
            auto b = client.Post("/api/schedules", rule.dump(), "application/json");
            auto c = client.Post("/api/history/files", files.dump(), "application/json");
            if (!a || !b || !c) break;  // killed
            EXPECT_EQ(a->status, 200) << a->body;
            EXPECT_EQ(b->status, 201) << b->body;
            EXPECT_EQ(c->status, 201) << c->body;
            {
                std::lock_guard lock(mutex_);
                ++calls_;
            }
            answered_.notify_all();
        }
        {
            std::lock_guard lock(mutex_);
            stopped_ = true;
        }
        answered_.notify_all();
    }
    void waitForCalls(int count) {
        std::unique_lock lock(mutex_);
        answered_.wait(lock, [&] { return calls_ >= count || stopped_; });
    }
    std::string token() const {
        std::string text = readText(file("Library/Preferences/quillon.token"));
        return text.substr(0, text.find_first_of("\r\n"));
    }

    std::mutex mutex_;
    std::condition_variable answered_;
    int calls_ = 0;         // guarded by mutex_
    bool stopped_ = false;  // guarded by mutex_
};

TEST_F(DaemonCrashTest, KilledWhileSavingLeavesEveryFileWholeAndTheNextStartLoadsThem) {
    auto radio = station();
    const std::string port = std::to_string(unusedPort());
    ASSERT_EQ(quillon({"prefs", "set", "webPort", port}).status, 0);
    ASSERT_EQ(quillon({"bookmark", "add", radio->url(), "--name", "Saved"}).status, 0);
    makeFolders(file("music"));

    // Killed after more and more rounds of changes, so at different points of
    // the saves. What the daemon confirmed must be there after the kill.
    int confirmed = 0, daysWithTracks = 0;
    for (int kill : {1, 4, 9, 16}) {
        const std::string track = file("music/Round " + std::to_string(kill) + ".mp3");
        writeText(track, "a");
        calls_ = 0;
        stopped_ = false;
        CapturedProcess daemon({QUILLON_BINARY, "serve", "--port", port},
                               {.environment = {{"QUILLON_HOME", home_}}});
        ASSERT_EQ(daemon.readLine(), "Quillon is running.");
        std::thread changer([&] { keepChanging(std::stoi(port), bookmarkFile("Saved"), track); });
        waitForCalls(kill);
        daemon.signal(SIGKILL);
        EXPECT_NE(daemon.wait().status, 0);
        changer.join();
        confirmed += calls_;
        daysWithTracks += calls_ > 0;

        auto check = runProcess({"python3", "-c", kCheckFiles, home_});
        ASSERT_EQ(check.status, 0) << check.err;
        EXPECT_NE(check.out, "bad\n") << "after " << kill << " rounds:\n" << check.out;
    }
    auto listed = quillon({"schedule", "list", "--json"});
    ASSERT_EQ(listed.status, 0) << listed.err;
    EXPECT_GE(nlohmann::json::parse(listed.out).size(), static_cast<std::size_t>(confirmed));
    auto found = nlohmann::json::parse(quillon({"history", "search", "Round", "--json"}).out);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_GE(found[0]["tracks"].size(), static_cast<std::size_t>(daysWithTracks));
}

}  // namespace
}  // namespace quillon::test
