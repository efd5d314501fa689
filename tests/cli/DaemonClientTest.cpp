// The command line's client of quillon serve, against a stand-in daemon on
// loopback: when it counts a daemon as running, what its calls carry, and how
// each failure reads.
#include <httplib.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "cli/CliTest.h"
#include "cli/DaemonClient.h"
#include "store/Preferences.h"
#include "support/Loopback.h"

namespace quillon::test {
namespace {

const std::string kToken(64, 'a');

// A socket bound on loopback that does not listen: a connection to its port is
// refused, as after the daemon ended.
FileHandle refusingSocket() {
    FileHandle fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in any = loopback(0);
    if (::bind(fd.fd(), reinterpret_cast<sockaddr*>(&any), sizeof any) != 0) fd.close();
    return fd;
}

// An HTTP server on 127.0.0.1 answering like the daemon: /api/status only with
// the token, the rest as each test needs. Stopped and joined by the destructor.
class StandInDaemon {
public:
    StandInDaemon() {
        server_.Get("/api/status", [](const httplib::Request& req, httplib::Response& res) {
            if (req.get_header_value("X-Quillon-Token") != kToken) {
                res.status = 401;
                res.set_content(R"({"error":"no token"})", "application/json");
                return;
            }
            res.set_content(R"({"version":"1.7.2","pid":1,"webPort":1,"connections":0})", "application/json");
        });
        server_.Post("/api/echo", [](const httplib::Request& req, httplib::Response& res) {
            nlohmann::json echo = {{"token", req.get_header_value("X-Quillon-Token")},
                                   {"host", req.get_header_value("Host")},
                                   {"type", req.get_header_value("Content-Type")},
                                   {"body", nlohmann::json::parse(req.body, nullptr, false)}};
            res.status = 201;
            res.set_content(echo.dump(), "application/json");
        });
        server_.Post("/api/busy", [](const httplib::Request&, httplib::Response& res) {
            res.status = 409;
            res.set_content("{\"error\":\"a check runs\\u001b[2J\"}", "application/json");
        });
        server_.Get("/api/page", [](const httplib::Request&, httplib::Response& res) {
            res.set_content("<html>not the daemon</html>", "text/html");
        });
        server_.Get("/api/events", [](const httplib::Request&, httplib::Response& res) {
            // Events split across writes, one of two data lines, and a comment.
            res.set_chunked_content_provider("text/event-stream", [](std::size_t, httplib::DataSink& sink) {
                for (const char* part : {"data: {\"n\":1}\n", "\n: keep-alive\n\ndata: {\"n\":", "2}\n\n",
                                         "data: [3,\ndata: 4]\n\n", "data: {\"n\":5}\n\n"}) {
                    if (!sink.write(part, std::strlen(part))) return false;
                }
                sink.done();
                return true;
            });
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        // Bound, so a connection waits in the backlog until the loop accepts it.
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~StandInDaemon() {
        server_.stop();
        thread_.join();
    }
    int port() const { return port_; }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

class DaemonClientTest : public CliTest {
protected:
    void SetUp() override {
        CliTest::SetUp();
        const char* previous = std::getenv("QUILLON_HOME");
        previousHome_ = previous ? previous : "";
        ::setenv("QUILLON_HOME", home_.c_str(), 1);
        Preferences::resetShared();
        makeFolders(file("Library/Preferences"));
    }
    void TearDown() override {
        ::setenv("QUILLON_HOME", previousHome_.c_str(), 1);
        Preferences::resetShared();
    }
    void usePort(int port) { Preferences::preferences()->setParam(std::to_string(port), "webPort"); }
    DaemonClient connected(const StandInDaemon& daemon) {
        writeText(file(DaemonClient::kTokenRelativePath), kToken + "\n");
        usePort(daemon.port());
        auto found = DaemonClient::find();
        EXPECT_EQ(found.problem, "");
        return found.client.value_or(DaemonClient("", daemon.port()));
    }

    std::string previousHome_;
};

TEST_F(DaemonClientTest, FindsTheDaemonOfThisHomeOrNone) {
    StandInDaemon daemon;
    FileHandle closed = refusingSocket();
    ASSERT_TRUE(closed.isOpen());
    const int refusing = boundPort(closed.fd());

    struct Case {
        const char* what;
        std::optional<std::string> token;  // the token file, none: absent
        int port;
        bool found;
        std::string problem;  // a part of it; "" for none
    };
    const Case cases[] = {
        {"no token file", std::nullopt, daemon.port(), false, ""},
        {"a token left behind", kToken, refusing, false, ""},
        {"a damaged token left behind", "garbage", refusing, false, ""},
        {"running", kToken + "\n", daemon.port(), true, ""},
        {"another home's daemon", std::string(64, 'b'), daemon.port(), false, "refuses the token"},
        {"a token that cannot be read", "garbage", daemon.port(), false, "cannot be read: it holds no token"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::filesystem::remove(file(DaemonClient::kTokenRelativePath));
        if (c.token) writeText(file(DaemonClient::kTokenRelativePath), *c.token);
        usePort(c.port);
        auto found = DaemonClient::find();
        EXPECT_EQ(found.client.has_value(), c.found);
        if (c.problem.empty()) {
            EXPECT_EQ(found.problem, "");
        } else {
            EXPECT_NE(found.problem.find(c.problem), std::string::npos) << found.problem;
        }
        if (found.client) {
            EXPECT_EQ(found.client->port(), c.port);
        }
    }
}

TEST_F(DaemonClientTest, CallsCarryTheTokenAndReportFailuresInOneLine) {
    StandInDaemon daemon;
    DaemonClient client = connected(daemon);

    auto echo = client.request("POST", "/api/echo", {{"url", "http://host/"}});
    EXPECT_EQ(echo.error, "");
    EXPECT_EQ(echo.status, 201);
    EXPECT_EQ(echo.body["token"], kToken);
    EXPECT_EQ(echo.body["host"], "127.0.0.1:" + std::to_string(daemon.port()));
    EXPECT_EQ(echo.body["type"], "application/json");
    EXPECT_EQ(echo.body["body"], nlohmann::json({{"url", "http://host/"}}));

    struct Case {
        const char* method;
        const char* path;
        int status;
        std::string error;
    };
    const Case cases[] = {
        {"POST", "/api/busy", 409, "a check runs\xEF\xBF\xBD[2J"},  // the daemon's reason, printable
        {"GET", "/api/page", 200, "quillon serve answered /api/page with HTTP 200 and no JSON"},
        {"GET", "/api/none", 404, "quillon serve answered HTTP 404"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        auto reply = client.request(c.method, c.path);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_EQ(reply.error, c.error);
    }

    FileHandle closed = refusingSocket();
    DaemonClient gone("", boundPort(closed.fd()));
    auto reply = gone.request("GET", "/api/status");
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.error, "quillon serve does not answer on 127.0.0.1:" + std::to_string(gone.port()));
}

TEST_F(DaemonClientTest, EventsArriveWholeUntilTheReaderStops) {
    StandInDaemon daemon;
    DaemonClient client = connected(daemon);
    std::vector<std::string> events;
    auto reply = client.stream(
        "/api/events",
        [&](const std::string& data) {
            events.push_back(data);
            return events.size() < 3;
        },
        5);
    EXPECT_EQ(reply.error, "");
    EXPECT_EQ(events, (std::vector<std::string>{"{\"n\":1}", "{\"n\":2}", "[3,\n4]"}));

    events.clear();
    reply = client.stream(
        "/api/events",
        [&](const std::string& data) {
            events.push_back(data);
            return true;
        },
        5);
    EXPECT_EQ(reply.error, "");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(events.size(), 4u);
}

}  // namespace
}  // namespace quillon::test
