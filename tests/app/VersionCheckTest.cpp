// The version check against a loopback web server: what each version file,
// failure and repeated check shows, logs and opens.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "AppTestSupport.h"
#include "app/VersionCheck.h"
#include "net/NetTestSupport.h"
#include "platform/Log.h"
#include "store/Preferences.h"
#include "support/MainThread.h"

namespace quillon {

void PrintTo(VersionCheck::Outcome outcome, std::ostream* out) { *out << static_cast<int>(outcome); }
void PrintTo(const VersionCheck::State& state, std::ostream* out) {
    *out << static_cast<int>(state.outcome) << "/" << state.newVersion;
}

namespace {

using Outcome = VersionCheck::Outcome;
using test::LoopbackPeer;

// The maker's web server: answers with the version file, or stays silent.
class VersionServer {
public:
    VersionServer(std::string body, bool silent)
        : peer_([this, body = std::move(body), silent](int fd, LoopbackPeer& peer) {
              auto received = test::receiveRequest(fd);
              if (!received) return;
              const std::string& request = *received;
              {
                  std::lock_guard lock(mutex_);
                  requestLines_.push_back(request.substr(0, request.find("\r\n")));
              }
              if (silent) return peer.holdUntilStopped();
              // The file gets a name of this process's own in /tmp.
              test::sendAll(fd, "HTTP/1.0 200 OK\r\nContent-Disposition: attachment; filename=\"" +
                                    fileName() + "\"\r\n\r\n" + body);
          }) {}
    ~VersionServer() { std::filesystem::remove(URLDataLoader::kDestinationFolder + fileName()); }

    std::string host() const { return "127.0.0.1:" + std::to_string(peer_.port()); }
    std::vector<std::string> requestLines() {
        std::lock_guard lock(mutex_);
        return requestLines_;
    }
    static std::string fileName() { return "quillon-qlnv-" + std::to_string(::getpid()) + ".txt"; }

private:
    std::mutex mutex_;
    std::vector<std::string> requestLines_;
    LoopbackPeer peer_;
};

// Sets the maker's host for the test and clears it afterwards.
class VersionCheckTest : public ::testing::Test {
protected:
    void SetUp() override { test::becomeMainThread(); }
    void TearDown() override { setHost(""); }
    static void setHost(const std::string& host) {
        Preferences::preferences()->setParam(host, Preferences::kVersionHostKey);
    }
    test::ScopedTiming timing_;
};

TEST_F(VersionCheckTest, EachVersionFileAndFailure) {
    struct Case {
        const char* what;
        std::string body;
        enum { answers, silent, refused } server;
        bool report;
        bool openSite;  // the answer to the new-version offer
        VersionCheck::State outcome;
        std::vector<std::string> alerts;
        int offers;
        bool siteOpened;
    };
    const Case cases[] = {
        {"this version",
         "172",
         Case::answers,
         true,
         false,
         {Outcome::upToDate},
         {"MSG_VERSION_UPTODATE"},
         0,
         false},
        {"this version, unasked", "172\n", Case::answers, false, false, {Outcome::upToDate}, {}, 0, false},
        {"newer, site opened", "173abc", Case::answers, false, true, {Outcome::newVersion, 173}, {}, 1, true},
        {"newer, declined", " 200\n", Case::answers, true, false, {Outcome::newVersion, 200}, {}, 1, false},
        {"older", "171", Case::answers, true, false, {Outcome::upToDate}, {"MSG_VERSION_UPTODATE"}, 0, false},
        {"empty file",
         "",
         Case::answers,
         true,
         false,
         {Outcome::upToDate},
         {"MSG_VERSION_UPTODATE"},
         0,
         false},
        {"garbage", "<html>v999</html>", Case::answers, false, false, {Outcome::upToDate}, {}, 0, false},
        {"refused", "", Case::refused, true, false, {Outcome::failed}, {"ERROR_VERSION_CHECK"}, 0, false},
        {"refused, unasked", "", Case::refused, false, false, {Outcome::failed}, {}, 0, false},
        {"time-out", "", Case::silent, true, false, {Outcome::failed}, {"ERROR_VERSION_CHECK"}, 0, false},
    };
    timing().versionCheckTimeout = 0.3;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        VersionServer server(c.body, c.server == Case::silent);
        setHost(c.server == Case::refused ? "127.0.0.1:" + std::to_string(test::unusedPort())
                                          : server.host());
        test::FakeInterface ui;
        ui.confirmAnswer = c.openSite;
        std::vector<std::string> opened;
        VersionCheck check(ui, [&opened](const std::string& url) {
            opened.push_back(url);
            return true;
        });
        std::vector<Outcome> changes;
        check.setChangeCallback([&changes](const VersionCheck::State& s) { changes.push_back(s.outcome); });
        Log::Capture log;

        check.checkNewVersion(c.report);
        ASSERT_TRUE(test::runUntil([&check] { return !check.running(); }));

        EXPECT_EQ(check.state(), c.outcome);
        EXPECT_EQ(changes, (std::vector<Outcome>{Outcome::running, c.outcome.outcome}));
        EXPECT_EQ(ui.alerts, c.alerts);
        EXPECT_EQ(ui.confirmations.size(), static_cast<std::size_t>(c.offers));
        EXPECT_EQ(opened, c.siteOpened ? std::vector<std::string>{"http://" + server.host() + "/"}
                                       : std::vector<std::string>{});
        EXPECT_EQ(log.contains("Unable to check version of QLN"), c.outcome.outcome == Outcome::failed);
        if (c.server != Case::refused) {
            EXPECT_EQ(server.requestLines(), std::vector<std::string>{"GET /qlnv.txt HTTP/1.1"});
        }
    }
}

TEST_F(VersionCheckTest, OneCheckAtATimeAndNoneWithoutAHost) {
    VersionServer silent("", true);
    test::FakeInterface ui;
    VersionCheck check(ui, [](const std::string&) { return true; });

    check.checkNewVersion(false);  // no host: nothing asked, nothing changes
    EXPECT_FALSE(check.running());
    EXPECT_EQ(check.state().outcome, Outcome::none);
    EXPECT_EQ(ui.beeps, 0);
    check.checkNewVersion(true);  // asked for: a beep
    EXPECT_EQ(ui.beeps, 1);

    setHost(silent.host());
    check.checkNewVersion(false);
    EXPECT_TRUE(check.running());
    check.checkNewVersion(true);
    EXPECT_EQ(ui.beeps, 2);
    EXPECT_EQ(check.state().outcome, Outcome::running);
    EXPECT_TRUE(ui.alerts.empty());
    EXPECT_TRUE(ui.confirmations.empty());
}

}  // namespace
}  // namespace quillon
