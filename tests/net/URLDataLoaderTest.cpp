// Downloads into /tmp against loopback peers: the events and states of each
// outcome, the name of the file, and what the file may replace.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "net/NetTestSupport.h"
#include "net/URLDataLoader.h"
#include "support/Files.h"
#include "support/MainThread.h"

namespace quillon {

void PrintTo(URLDataLoader::Status status, std::ostream* out) { *out << static_cast<int>(status); }

namespace {

using Status = URLDataLoader::Status;
using test::LoopbackPeer;

// Answers every request with one canned reply, then closes.
struct Server {
    explicit Server(std::string reply)
        : peer([reply](int fd, LoopbackPeer&) {
              if (!test::receiveRequest(fd)) return;
              test::sendAll(fd, reply);
          }) {}
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(peer.port()) + path;
    }
    LoopbackPeer peer;
};

// Accepts and never answers.
struct SilentServer {
    LoopbackPeer peer{[](int, LoopbackPeer& p) { p.holdUntilStopped(); }};
    std::string url() const { return "http://127.0.0.1:" + std::to_string(peer.port()) + "/"; }
};

// The target: which method was called, in which state.
struct Calls {
    std::vector<std::string> methods;
    std::vector<Status> statuses;
    URLDataLoader::Target target() {
        return [this](const std::string& method, URLDataLoader& loader) {
            methods.push_back(method);
            statuses.push_back(loader.status());
        };
    }
};

std::unique_ptr<URLDataLoader> fiveNameLoader(const std::string& url, Calls& calls, double timeout = 10) {
    return URLDataLoader::dataLoaderWithURL(url, timeout, "done", "data", "failed", "cancelled", "timeout",
                                            calls.target());
}

bool waitForEnd(const URLDataLoader& loader) {
    return test::runUntil([&loader] { return loader.status() != Status::loading; }, 20);
}

// A name in /tmp of this process's own, removed when the test ends.
struct TmpName {
    explicit TmpName(const std::string& what)
        : name("quillon-loader-" + std::to_string(::getpid()) + "-" + what) {}
    ~TmpName() { std::filesystem::remove(path()); }
    std::string path() const { return URLDataLoader::kDestinationFolder + name; }
    std::string name;
};

TEST(URLDataLoader, SuggestedFileNameStaysInTheFolder) {
    struct Case {
        const char* disposition;
        const char* url;
        const char* name;
    };
    const Case cases[] = {
        {"", "http://h.example/dir/list.txt", "list.txt"},
        {"", "http://h.example/a/b.txt?x=1/2#f", "b.txt"},
        {"", "http://h.example/", "index.html"},
        {"", "http://h.example", "index.html"},
        {"", "http://h.example:8123/%2e%2e", "index.html"},
        {"", "http://h.example/a%2Fb", "b"},
        {"attachment; filename=\"given.pls\"", "http://h.example/x", "given.pls"},
        {"attachment; filename=../../etc/passwd", "http://h.example/x", "passwd"},
        {"attachment; filename=\"..\"", "http://h.example/y.txt", "y.txt"},
        {"attachment; filename=\"a\\\\b\"", "http://h.example/x", "b"},
        {"attachment; filename=\"a\x01\x7f"
         "b\"",
         "http://h.example/x", "ab"},
        {"inline; filename*=UTF-8''caf%C3%A9.txt; filename=\"cafe.txt\"", "http://h.example/x",
         "caf\xc3\xa9.txt"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(UrlFetcher::fileNameFor(c.disposition, c.url), c.name) << c.disposition << " " << c.url;
    }
}

TEST(URLDataLoader, FinishedDownloadIsAFileInTmp) {
    test::becomeMainThread();
    TmpName byPath("path.txt"), byHeader("header.txt"), icy("icy.mp3");
    struct Case {
        const char* what;
        std::string reply;
        std::string path;
        const TmpName& file;
        std::string body;
    };
    const Case cases[] = {
        {"found", "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello", "/" + byPath.name, byPath, "hello"},
        {"content disposition",
         "HTTP/1.1 200 OK\r\nContent-Disposition: attachment; filename=\"../" + byHeader.name +
             "\"\r\nContent-Length: 3\r\nConnection: close\r\n\r\nabc",
         "/get?id=1", byHeader, "abc"},
        {"icy reply counts as HTTP", "ICY 200 OK\r\nicy-name:Test\r\n\r\nAUDIO", "/" + icy.name, icy,
         "AUDIO"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Server server(c.reply);
        Calls calls;
        auto loader = fiveNameLoader(server.url(c.path), calls);
        EXPECT_EQ(loader->status(), Status::loading);
        EXPECT_EQ(loader->data(), std::nullopt);  // no file yet
        EXPECT_EQ(loader->eventMask(), 31);
        ASSERT_TRUE(waitForEnd(*loader));
        EXPECT_EQ(loader->status(), Status::finished);
        ASSERT_GE(calls.methods.size(), 2u);
        EXPECT_EQ(calls.methods.front(), "data");
        EXPECT_EQ(calls.methods.back(), "done");
        EXPECT_EQ(calls.statuses.back(), Status::finished);
        EXPECT_EQ(loader->dataFilepath(), c.file.path());
        EXPECT_EQ(test::readText(c.file.path()), c.body);
        ASSERT_TRUE(loader->data().has_value());
        EXPECT_EQ(asText(*loader->data()), c.body);
    }
}

TEST(URLDataLoader, GenericLoaderReportsEachFailureOnce) {
    test::becomeMainThread();
    SilentServer silent;
    Server notFound("HTTP/1.0 404 Not Found\r\nContent-Length: 3\r\n\r\n404");
    Server declaredTooLong("HTTP/1.0 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(1000, 'x'));
    Server tooLong("HTTP/1.0 200 OK\r\n\r\n" + std::string(100000, 'x'));
    struct Case {
        const char* what;
        std::string url;
        double timeout;
        std::uint64_t maxBytes;  // 0: the loader's own bound
    };
    const Case cases[] = {
        {"refused", "http://127.0.0.1:" + std::to_string(test::unusedPort()) + "/v.txt", 10, 0},
        {"time-out", silent.url(), 0.3, 0},
        {"HTTP error", notFound.url("/v.txt"), 10, 0},
        {"declared length over the bound", declaredTooLong.url("/v.txt"), 10, 100},
        {"body over the bound", tooLong.url("/v.txt"), 10, 1000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Calls calls;
        std::unique_ptr<URLDataLoader> loader;
        if (c.maxBytes == 0) {
            loader = URLDataLoader::dataLoaderWithURL(c.url, c.timeout, "versionArrived", calls.target());
        } else {
            loader = std::make_unique<URLDataLoader>();
            loader->setUrlString(c.url);
            for (auto event : {URLDataLoader::Event::complete, URLDataLoader::Event::failed})
                loader->getNotified(calls.target(), event, "versionArrived");
            loader->setMask(5, c.timeout);
            loader->setMaxBytes(c.maxBytes);
            loader->startLoading();
        }
        ASSERT_TRUE(waitForEnd(*loader));
        loader.reset();  // joins the fetch thread: whatever it posted is queued now
        test::drainMainLoop();
        EXPECT_EQ(calls.methods, std::vector<std::string>{"versionArrived"});
        EXPECT_EQ(calls.statuses, std::vector<Status>{Status::failed});
    }
}

TEST(URLDataLoader, StopAndTimeOutEndTheDownload) {
    test::becomeMainThread();
    SilentServer silent;
    Calls stopped, timedOut;
    auto stopping = fiveNameLoader(silent.url(), stopped);
    auto late = fiveNameLoader(silent.url(), timedOut);
    stopping->stopLoading();
    late->URLTimeout();
    late->URLTimeout();  // no longer loading: nothing
    EXPECT_EQ(stopping->status(), Status::cancelled);
    EXPECT_EQ(late->status(), Status::timedOut);
    stopping.reset();
    late.reset();
    test::drainMainLoop();
    EXPECT_EQ(stopped.methods, std::vector<std::string>{"cancelled"});
    EXPECT_EQ(stopped.statuses, std::vector<Status>{Status::cancelled});
    EXPECT_EQ(timedOut.methods, std::vector<std::string>{"timeout"});
}

TEST(URLDataLoader, SameNameReplacesTheFileNotALinkTarget) {
    test::becomeMainThread();
    TmpName shared("same.txt");
    const std::string victim = test::testFolder("loader") + "/victim";
    test::writeText(victim, "mine");
    std::filesystem::create_symlink(victim, shared.path());
    Server first("HTTP/1.0 200 OK\r\n\r\nfirst"), second("HTTP/1.0 200 OK\r\n\r\nsecond");
    Calls calls;
    auto one = fiveNameLoader(first.url("/" + shared.name), calls);
    ASSERT_TRUE(waitForEnd(*one));
    auto two = fiveNameLoader(second.url("/a/" + shared.name), calls);
    ASSERT_TRUE(waitForEnd(*two));
    EXPECT_EQ(two->status(), Status::finished);
    EXPECT_EQ(one->dataFilepath(), two->dataFilepath());
    EXPECT_FALSE(std::filesystem::is_symlink(shared.path()));
    EXPECT_EQ(test::readText(shared.path()), "second");
    EXPECT_EQ(asText(*one->data()), "second");
    EXPECT_EQ(test::readText(victim), "mine");
}

TEST(URLDataLoader, TargetMayDestroyTheLoaderInItsCall) {
    test::becomeMainThread();
    TmpName file("destroyed.txt");
    Server server("HTTP/1.0 200 OK\r\n\r\n" + std::string(200000, 'x'));
    std::unique_ptr<URLDataLoader> loader;
    std::vector<std::string> methods;
    loader = URLDataLoader::dataLoaderWithURL(server.url("/" + file.name), 10, "done", "data", "failed", "",
                                              "", [&](const std::string& method, URLDataLoader&) {
                                                  methods.push_back(method);
                                                  loader.reset();
                                              });
    ASSERT_TRUE(test::runUntil([&] { return !loader; }));
    test::drainMainLoop();
    EXPECT_EQ(methods, std::vector<std::string>{"data"});
}

}  // namespace
}  // namespace quillon
