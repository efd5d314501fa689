// The Live365 title source: the station handle in the request, the page URLs,
// what a playlist page yields, and the polling thread against a loopback page
// server, which names files while the connection streams and stops when told.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "net/HttpPages.h"
#include "net/Live365Parser.h"
#include "net/NetTestSupport.h"
#include "platform/Timing.h"
#include "support/MainThread.h"

namespace quillon {
namespace {

std::optional<Live365Parser::Track> trackOf(const std::string& page) {
    return Live365Parser::getTrackName({reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
}

TEST(Live365Parser, ReadsTheTrackBlockOfAPage) {
    struct Case {
        const char* what;
        std::string page;
        std::optional<std::string> name;  // none: no track block
        std::optional<std::int32_t> secondsLeft;
    };
    const std::string tail = "var gSecondsLeft  = 42;";
    const std::vector<Case> cases = {
        {"everything", "x one:{artist:\"Miles\",title:\"So What\",album:\"K\"}, " + tail, "Miles - So What",
         42},
        {"no block", "artist:\"Miles\",title:\"So What\", " + tail, std::nullopt, std::nullopt},
        {"block never closed", "one:{artist:\"Miles\",title:\"So What\",", std::nullopt, std::nullopt},
        {"no seconds marker", "one:{artist:\"A\",title:\"T\",}, ", "A - T", std::nullopt},
        {"seconds marker with one blank", "one:{artist:\"A\",title:\"T\",}, var gSecondsLeft = 9;", "A - T",
         std::nullopt},
        {"seconds not a number", "one:{artist:\"A\",title:\"T\",}, var gSecondsLeft  = soon;", "A - T", 0},
        {"seconds before the block", tail + " one:{artist:\"A\",title:\"T\",},", "A - T", 42},
        {"artist only", "one:{artist:\"A\",title:\"T\"}, " + tail, "A - ", 42},
        {"neither", "one:{album:\"K\"}, " + tail, " - ", 42},
        {"markers outside the block", "one:{album:\"K\"}, artist:\"A\",title:\"T\",", " - ", std::nullopt},
        {"Latin-1 artist", "one:{artist:\"Bj\xf6rk\",title:\"Joga\",}, ", "Bj\xc3\xb6rk - Joga",
         std::nullopt},
        {"empty page", "", std::nullopt, std::nullopt},
    };
    for (const Case& c : cases) {
        auto track = trackOf(c.page);
        ASSERT_EQ(track.has_value(), c.name.has_value()) << c.what;
        if (!track) continue;
        EXPECT_EQ(track->currentName, *c.name) << c.what;
        EXPECT_EQ(track->secondsLeft, c.secondsLeft) << c.what;
    }
}

TEST(Live365Parser, FindsTheHandleAndBuildsThePageURLs) {
    const std::string request =
        "GET /play?session=jazzhandle:8a7b HTTP/1.1\r\nHost: 127.0.0.1:80\r\nIcy-MetaData: 1\r\n\r\n";
    EXPECT_EQ(Live365Parser::stationHandle(request), "jazzhandle");
    EXPECT_EQ(Live365Parser::stationHandle("GET /stream HTTP/1.1\r\nHost: h:80\r\n\r\n"), std::nullopt);
    EXPECT_EQ(Live365Parser::stationHandle("GET /x?session=last"), "last");
    // Without a ":" in the value the handle runs into the next header line.
    EXPECT_EQ(Live365Parser::stationHandle("GET /x?session=abc HTTP/1.1\r\nHost: h"), "abc HTTP/1.1\r\nHost");

    struct Case {
        const char* host;
        const char* handle;
        std::optional<std::string> url;
    };
    const std::vector<Case> cases = {
        {"127.0.0.1:8080", "jazz",
         "http://127.0.0.1:8080/pls/front?handler=playlist&cmd=view&handle=jazz&site=..#bottom"},
        {"", "jazz", "http://www.live365.com/pls/front?handler=playlist&cmd=view&handle=jazz&site=..#bottom"},
        {"h", "a%20b", "http://h/pls/front?handler=playlist&cmd=view&handle=a%20b&site=..#bottom"},
        {"h", "abc HTTP/1.1\r\nHost", std::nullopt},
        {"h", "bad%zz", std::nullopt},
        {"h/evil", "jazz", std::nullopt},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Live365Parser::playlistPageURL(c.host, c.handle), c.url) << c.handle;
    EXPECT_EQ(Live365Parser::stationPageURL("h:81", "jazz"), "http://h:81/stations/jazz");
}

// A connection that records what the title source tells it.
class FakeConnection : public Live365Parser::Connection {
public:
    bool live() const override { return live_; }
    void setFileName(const std::string& name) override {
        std::lock_guard lock(mutex_);
        names_.push_back(name);
        changed_.notify_all();
    }
    void setNoNameFile() override {
        std::lock_guard lock(mutex_);
        names_.push_back("<no name>");
        changed_.notify_all();
    }
    void setStationURL(const std::string& url) override { stationURL_ = url; }

    bool waitForName(const std::string& name) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] {
            return std::find(names_.begin(), names_.end(), name) != names_.end();
        });
    }
    std::vector<std::string> names() {
        std::lock_guard lock(mutex_);
        return names_;
    }

    std::atomic<bool> live_{true};
    std::string stationURL_;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> names_;
};

const std::string kPage = "/pls/front";

TEST(Live365Parser, StaysInactiveWithoutASession) {
    test::HttpPages pages;
    FakeConnection connection;
    {
        Live365Parser parser(connection, "GET /stream HTTP/1.1\r\nHost: h\r\n\r\n", pages.host());
        EXPECT_FALSE(parser.enabled());
    }
    EXPECT_TRUE(connection.stationURL_.empty());
    EXPECT_TRUE(connection.names().empty());
    EXPECT_EQ(pages.requests(), 0);
}

TEST(Live365Parser, NamesFilesFromThePageWhileLive) {
    test::HttpPages pages;
    // No pause between looks: the page says the track ends now.
    pages.set(kPage, "one:{artist:\"Miles\",title:\"So What\",}, var gSecondsLeft  = 0;");
    FakeConnection connection;
    Live365Parser parser(connection, "GET /play?session=jazz:1 HTTP/1.1\r\n\r\n", pages.host());
    ASSERT_TRUE(parser.enabled());
    EXPECT_EQ(connection.stationURL_, "http://" + pages.host() + "/stations/jazz");
    ASSERT_TRUE(connection.waitForName("Miles - So What"));

    // A nameless block asks for the no-name file once, however often it is seen.
    pages.set(kPage, "one:{album:\"K\"}, var gSecondsLeft  = 0;");
    const int seen = pages.requests();
    ASSERT_TRUE(pages.waitForRequests(seen + 3));
    pages.set(kPage, "one:{artist:\"Bill\",title:\"Blue\",}, var gSecondsLeft  = 0;");
    ASSERT_TRUE(connection.waitForName("Bill - Blue"));
    auto names = connection.names();
    names.erase(std::unique(names.begin(), names.end()), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"Miles - So What", "<no name>", "Bill - Blue"}));
}

TEST(Live365Parser, PollsOnlyWhileTheConnectionStreams) {
    test::HttpPages pages;
    pages.set(kPage, "one:{artist:\"A\",title:\"T\",}, var gSecondsLeft  = 0;");
    FakeConnection connection;
    connection.live_ = false;
    { Live365Parser parser(connection, "GET /play?session=jazz:1 HTTP/1.1\r\n\r\n", pages.host()); }
    EXPECT_EQ(pages.requests(), 0);
    EXPECT_TRUE(connection.names().empty());
}

TEST(Live365Parser, DestructionEndsAFetchUnderWay) {
    test::ScopedTiming timing;
    quillon::timing().urlFetchTimeout = 600;
    std::promise<void> asked;
    test::LoopbackPeer silent([&asked](int, test::LoopbackPeer& p) {
        asked.set_value();
        p.holdUntilStopped();
    });
    FakeConnection connection;
    test::Watchdog watchdog("parser destruction during a fetch", 60);
    {
        Live365Parser parser(connection, "GET /play?session=jazz:1 HTTP/1.1\r\n\r\n",
                             "127.0.0.1:" + std::to_string(silent.port()));
        ASSERT_TRUE(parser.enabled());
        // The page server has the request and will never answer it.
        asked.get_future().wait();
    }
    EXPECT_TRUE(connection.names().empty());
}

}  // namespace
}  // namespace quillon
