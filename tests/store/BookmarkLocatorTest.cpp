// Background fetches and making bookmarks from locations, against loopback
// fake servers.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "StoreTestSupport.h"
#include "net/UrlFetcher.h"
#include "store/BookmarkLocator.h"

namespace quillon {
namespace {

using test::FakeServer;
using test::ScopedHome;
using test::ScopedTiming;

// Collects one fetch's events and waits for its end.
struct FetchLog {
    std::mutex mutex;
    std::condition_variable changed;
    std::string data;
    int finished = 0;
    std::vector<std::string> failures;

    UrlFetcher::Callbacks callbacks(std::function<bool(const std::string&)> keepGoing = {}) {
        UrlFetcher::Callbacks c;
        c.onData = [this, keepGoing](std::span<const std::uint8_t> chunk) {
            std::lock_guard lock(mutex);
            data.append(asText(chunk));
            return keepGoing ? keepGoing(data) : true;
        };
        c.onFinished = [this] {
            std::lock_guard lock(mutex);
            ++finished;
            changed.notify_all();
        };
        c.onFailed = [this](const std::string& reason) {
            std::lock_guard lock(mutex);
            failures.push_back(reason);
            changed.notify_all();
        };
        return c;
    }
    // Until an end event, or the fetch thread ended without one (cancelled).
    void waitForEnd(UrlFetcher& fetcher) {
        std::unique_lock lock(mutex);
        auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (finished == 0 && failures.empty() && !fetcher.done() &&
               std::chrono::steady_clock::now() < limit) {
            changed.wait_for(lock, std::chrono::milliseconds(10));
        }
    }
};

TEST(UrlFetcher, DeliversAnHttpBody) {
    FakeServer server(
        {"HTTP/1.0 200 OK\r\nContent-Type: audio/x-scpls\r\n\r\n[playlist]\nFile1=http://x:1/\n"});
    FetchLog log;
    std::string header;
    auto callbacks = log.callbacks();
    callbacks.onHeader = [&header](std::string_view line) { header += line; };
    UrlFetcher fetcher(server.url("/list.pls"), 5, callbacks);
    fetcher.setUserAgent("QuillonTest/1");
    fetcher.start();
    log.waitForEnd(fetcher);
    EXPECT_EQ(log.finished, 1);
    EXPECT_TRUE(log.failures.empty());
    EXPECT_EQ(log.data, "[playlist]\nFile1=http://x:1/\n");
    EXPECT_EQ(header, "HTTP/1.0 200 OK\r\nContent-Type: audio/x-scpls\r\n\r\n");
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_NE(server.requests()[0].find("GET /list.pls HTTP/1.1\r\n"), std::string::npos);
    EXPECT_NE(server.requests()[0].find("User-Agent: QuillonTest/1\r\n"), std::string::npos);
}

TEST(UrlFetcher, ReportsFailures) {
    ScopedTiming savedTiming;
    timing().redirectTimeout = 1;
    int closedPort = 0;
    {
        FakeServer gone({""});
        closedPort = gone.port();
    }
    FakeServer silent({"", false, true});
    const std::pair<const char*, std::string> cases[] = {
        {"refused", "http://127.0.0.1:" + std::to_string(closedPort) + "/"},
        {"silent", silent.url("/")},
        {"bad url", "nonsense://x"},
    };
    for (const auto& [what, url] : cases) {
        SCOPED_TRACE(what);
        FetchLog log;
        UrlFetcher fetcher(url, 0.5, log.callbacks());
        fetcher.start();
        log.waitForEnd(fetcher);
        EXPECT_EQ(log.finished, 0);
        EXPECT_EQ(log.failures.size(), 1u);
    }
}

TEST(UrlFetcher, DestroyingStopsAnEndlessStream) {
    FakeServer server({"HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\n\r\n", true});
    FetchLog log;
    std::atomic<int> chunks{0};
    {
        UrlFetcher fetcher(server.url("/"), 5, log.callbacks([&](const std::string&) {
            ++chunks;
            return true;
        }));
        fetcher.start();
        while (chunks < 3) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }  // joins here
    EXPECT_EQ(log.finished, 0);
    EXPECT_TRUE(log.failures.empty());
}

// Runs a locator until its search ends, collecting what it hands out.
struct LocatorRun {
    std::vector<std::shared_ptr<Bookmark>> editors;
    std::vector<std::string> alerts;
    std::vector<std::string> headers;
    std::vector<bool> searching;
    BookmarkLocator locator{callbacks()};

    BookmarkLocator::Callbacks callbacks() {
        BookmarkLocator::Callbacks c;
        c.openEditor = [this](std::shared_ptr<Bookmark> b) { editors.push_back(b); };
        c.alert = [this](const std::string& title, const std::string& message) {
            alerts.push_back(title + "|" + message);
        };
        c.liveStream = [this](const std::string& header) { headers.push_back(header); };
        c.searching = [this](bool on) { searching.push_back(on); };
        return c;
    }
    void get(const std::string& location, const std::string& name) {
        locator.getUrl(location, name);
        test::runUntil([this] { return !locator.searching(); }, 30);
    }
};

TEST(BookmarkLocator, LiveStreamHeaderGivesNameAndStreamUrl) {
    struct Case {
        std::string header;
        std::string name, host, port, path;  // of the editor opened; none when host is empty
    };
    const Case cases[] = {
        {"icy-name:Jazz Cafe\r\nicy-url:http://127.0.0.1:8765/live", "Jazz Cafe", "127.0.0.1", "8765",
         "/live"},
        {"icy-name:X\r\nicy-url:http://www.station.example", "X", "www.station.example", "0", "/"},
        {"icy-name:Only A Name", "", "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.header);
        FakeServer server({"ICY 200 OK\r\n" + c.header + "\r\n\r\n", true});
        LocatorRun run;
        run.get(server.url("/"), "Pending");
        ASSERT_EQ(run.headers.size(), 1u);
        EXPECT_NE(run.headers[0].find(c.header), std::string::npos);
        EXPECT_EQ(run.searching, (std::vector<bool>{true, false}));
        ASSERT_EQ(run.editors.size(), c.host.empty() ? 0u : 1u);
        if (c.host.empty()) continue;
        const Bookmark& b = *run.editors[0];
        EXPECT_EQ(b.name(), c.name);
        EXPECT_EQ(b.host(), c.host);
        EXPECT_EQ(b.port(), c.port);
        EXPECT_EQ(b.path(), c.path);
        EXPECT_EQ(b.separator(), " - ");
    }
}

TEST(BookmarkLocator, PlaylistUrlUsesThePendingName) {
    FakeServer server({"HTTP/1.0 200 OK\r\n\r\n[playlist]\nFile1=http://10.0.0.9:8000/\nTitle1=From List\n"});
    for (const auto& [pending, expected] :
         {std::pair<std::string, std::string>{"Chosen", "Chosen"}, {"", "From List"}}) {
        LocatorRun run;
        run.get(server.url("/x.pls"), pending);
        ASSERT_EQ(run.editors.size(), 1u);
        EXPECT_EQ(run.editors[0]->name(), expected);
        EXPECT_EQ(run.editors[0]->host(), "10.0.0.9");
        EXPECT_EQ(run.editors[0]->port(), "8000");
    }
}

TEST(BookmarkLocator, EndlessBodyWithoutHeaderIsGivenUp) {
    FakeServer server({"HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\n\r\n", true});
    LocatorRun run;
    std::vector<std::string> httpHeaders;
    BookmarkLocator::Callbacks callbacks = run.callbacks();
    callbacks.httpHeader = [&httpHeaders](const std::string& h) { httpHeaders.push_back(h); };
    BookmarkLocator locator(callbacks);
    locator.getUrl(server.url("/"), "");
    test::runUntil([&locator] { return !locator.searching(); }, 30);
    EXPECT_FALSE(locator.searching());
    EXPECT_TRUE(run.editors.empty());
    EXPECT_TRUE(run.alerts.empty());
    EXPECT_TRUE(run.headers.empty());
    EXPECT_EQ(httpHeaders, (std::vector<std::string>{"HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\n\r\n"}));
}

TEST(BookmarkLocator, FailedFetchShowsTheAlert) {
    ScopedTiming savedTiming;
    timing().redirectTimeout = 0.5;
    FakeServer silent({"", false, true});
    LocatorRun run;
    run.get(silent.url("/"), "");
    ASSERT_EQ(run.alerts.size(), 1u);
    EXPECT_EQ(run.alerts[0], "URL Failed to load|Sorry, but this URL Failed to load.");
    EXPECT_TRUE(run.editors.empty());
}

TEST(BookmarkLocator, CancelledSearchDeliversNothing) {
    FakeServer server({"", false, true});
    LocatorRun run;
    run.locator.getUrl(server.url("/"), "");
    EXPECT_TRUE(run.locator.searching());
    run.locator.cancel();
    EXPECT_FALSE(run.locator.searching());
    test::drainMainLoop(0.1);
    EXPECT_TRUE(run.editors.empty());
    EXPECT_TRUE(run.alerts.empty());
}

TEST(BookmarkLocator, LocalFilesLive365AndDirectUrls) {
    ScopedHome home;
    test::writeText(home.file("list.pls"), "[playlist]\nFile1=http://h.example:8002/\nTitle1=Local\n");
    LocatorRun run;
    run.get(home.file("list.pls"), "");
    run.get(home.file("missing.pls"), "");
    run.get("http://www.live365.com/play/station", "Live Name");
    ASSERT_EQ(run.editors.size(), 2u);
    EXPECT_EQ(run.editors[0]->name(), "Local");
    EXPECT_EQ(run.editors[0]->port(), "8002");
    EXPECT_EQ(run.editors[1]->host(), "www.live365.com");
    EXPECT_EQ(run.editors[1]->port(), "80");
    EXPECT_EQ(run.editors[1]->path(), "/play/station");
    EXPECT_EQ(run.editors[1]->name(), "Live Name");
    EXPECT_TRUE(run.searching.empty());  // none of these fetches

    EXPECT_FALSE(run.locator.directURL("http://dir.example/stream", "No Port"));
    EXPECT_FALSE(run.locator.directURL("http://dir.example:0/stream", "Zero"));
    EXPECT_TRUE(run.locator.directURL("http://dir.example:8080/stream", "Dir"));
    ASSERT_EQ(run.editors.size(), 3u);
    EXPECT_EQ(run.editors[2]->description(), "Bookmark Dir Host dir.example Port 8080 Path /stream");
}

}  // namespace
}  // namespace quillon
