// The daemon's API over real HTTP on loopback: every call's happy path and its
// refusals as one table, the guards (token, Host, Origin, JSON bodies, a
// cross-site form), the one-time login, and a hundred event streams watching
// connections start and stop.
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <future>
#include <thread>

#include "AppTestSupport.h"
#include "app/ApiServer.h"
#include "app/ApiToken.h"
#include "app/Daemon.h"
#include "app/EventHub.h"
#include "app/HistoryFileApi.h"
#include "history/HistoryTestSupport.h"
#include "schedule/ScheduleTestSupport.h"
#include "schedule/Schedules.h"
#include "store/BookmarkFolder.h"
#include "store/Preferences.h"
#include "support/IcyClient.h"
#include "support/Loopback.h"
#include "support/RadioBrowserPeer.h"
#include "tuner/Tuner.h"

namespace quillon::test {
namespace {

class DaemonApiTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        becomeMainThread();
        History::resetShared();
        std::filesystem::remove_all(History::defaultFolder());
        std::filesystem::remove(Schedules::schedulesPath());
        port_ = unusedPort();
        restart({});
        token_ = ApiToken::read(ApiToken::path()).value_or("");
        ASSERT_EQ(token_.size(), ApiToken::kLength);
    }
    // Stops the running daemon, if any, and starts another on the same port
    // and home folder.
    void restart(Daemon::Options options) {
        if (daemon_) daemon_->stop();
        daemon_.reset();
        options.port = port_;
        daemon_ = std::make_unique<Daemon>(std::move(options));
        std::string failure;
        ASSERT_TRUE(daemon_->start(failure)) << failure;
    }
    void TearDown() override {
        daemon_->stop();
        daemon_.reset();
        History::resetShared();
        AppFixture::TearDown();
    }

    // One call from another thread while this one runs the main loop.
    httplib::Result call(const std::string& method, const std::string& path, const std::string& body = "",
                         httplib::Headers headers = {}, bool withToken = true,
                         const std::string& type = "application/json") {
        if (withToken) headers.emplace(ApiServer::kTokenHeader, token_);
        auto pending = std::async(std::launch::async, [&] {
            httplib::Client client("127.0.0.1", port_);
            if (method == "GET") return client.Get(path, headers);
            if (method == "PUT") return client.Put(path, headers, body, type);
            if (method == "DELETE") return client.Delete(path, headers, body, type);
            return client.Post(path, headers, body, type);
        });
        runUntil([&] { return pending.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
        return pending.get();
    }
    // One call and the status it must answer with; each failing answer is
    // one line of JSON: {"error": ...}.
    struct Row {
        const char* method;
        std::string path;
        std::string body;
        int status;
    };
    void expectAnswers(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            auto r = call(row.method, row.path, row.body);
            ASSERT_TRUE(r) << row.method << " " << row.path;
            EXPECT_EQ(r->status, row.status)
                << row.method << " " << row.path << " " << row.body << " -> " << r->body;
            auto body = nlohmann::json::parse(r->body, nullptr, false);
            ASSERT_TRUE(body.is_object()) << r->body;
            if (row.status >= 400) {
                EXPECT_TRUE(body["error"].is_string()) << r->body;
            }
        }
    }

    // A daemon whose schedules run by `now`, which the test moves.
    static Daemon::Options clockedAt(const Schedules::Date& now) {
        Daemon::Options options;
        options.controller.clock = [&now] { return now; };
        return options;
    }
    nlohmann::json json(const httplib::Result& r) { return nlohmann::json::parse(r->body); }

    std::uint16_t port_ = 0;
    std::unique_ptr<Daemon> daemon_;
    std::string token_;
};

TEST_F(DaemonApiTest, EveryCallAnswersOrRefusesWithOneLine) {
    std::string missing = folder_ + "/no-such-folder";
    const std::vector<Row> rows = {
        {"GET", "/api/status", "", 200},
        {"GET", "/api/activity", "", 200},
        {"GET", "/api/recent", "", 200},
        {"GET", "/api/window", "", 200},
        {"PUT", "/api/window", R"({"MainWinPos":"{{10, 20}, {800, 600}}"})", 200},
        {"PUT", "/api/window", R"({"MainWinPos":"big"})", 400},
        {"GET", "/api/questions", "", 200},
        {"POST", "/api/questions/99", R"({"answer":"/tmp"})", 404},
        {"GET", "/api/storage-folders", "", 200},
        {"PUT", "/api/storage-folders/activity", R"({"path":")" + missing + R"("})", 400},
        {"PUT", "/api/storage-folders/history", R"({"path":"/tmp"})", 403},
        {"PUT", "/api/storage-folders/kitchen", R"({"path":"/tmp"})", 404},
        {"POST", "/api/activity", "{not json", 400},
        {"POST", "/api/activity", "[1,2]", 400},
        {"POST", "/api/activity", R"({"url":"http://127.0.0.1:1/","colour":"red"})", 400},
        {"POST", "/api/activity", R"({"url":"http://127.0.0.1:1/","relayOnly":"yes"})", 400},
        {"POST", "/api/activity", R"({"url":"http://127.0.0.1:1/","bookmark":"x"})", 400},
        {"POST", "/api/activity", R"({"bookmark":"Nobody"})", 404},
        {"POST", "/api/activity", R"({"url":"http://127.0.0.1:1/list.pls"})", 400},
        {"POST", "/api/activity", R"({"url":"ftp://x/"})", 400},
        {"POST", "/api/activity", R"({"url":"http://127.0.0.1:1/","titleEncoding":"koi8-r"})", 400},
        {"POST", "/api/open", R"({"path":")" + missing + R"(.qlnbk"})", 404},
        {"POST", "/api/activity/999/stop", "{}", 404},
        {"POST", "/api/activity/999/reveal", "{}", 404},
        {"POST", "/api/activity/abc/stop", "{}", 404},
        {"DELETE", "/api/activity/999", "", 404},
        {"POST", "/api/activity/clear", "{}", 200},
        {"GET", "/api/no-such-thing", "", 404},
        {"GET", "/api/prefs", "", 200},
        {"PUT", "/api/prefs", R"({"reconnect":true,"chunkSize":"0"})", 200},
        {"PUT", "/api/prefs", R"({"split":true,"relayPort":"99999"})", 400},
        {"PUT", "/api/prefs", R"({"noSuchSetting":"x"})", 400},
        {"PUT", "/api/prefs", R"({"log":{"a":1}})", 400},
        {"GET", "/api/version", "", 200},
        {"POST", "/api/version/check", "{}", 409},
        {"GET", "/api/schedules", "", 200},
        {"GET", "/api/schedules/upcoming", "", 200},
        {"POST", "/api/schedules", R"({"bookmark":"Nobody","days":["mon"],"at":"21:00","runFor":"1:30"})",
         400},
        {"PUT", "/api/schedules/12345", R"({"at":"20:00"})", 404},
        {"POST", "/api/schedules/12345/enable", "{}", 404},
        {"DELETE", "/api/schedules/12345", "", 404},
        {"GET", "/api/history/days", "", 200},
        {"GET", "/api/history/days/2020_13_45", "", 400},
        {"GET", "/api/history/days/1999_01_01", "", 404},
        {"GET", "/api/history/search", "", 400},
        {"POST", "/api/history/delete", R"({"targets":["1999_01_01"],"confirm":true})", 404},
        {"POST", "/api/history/delete", R"({"targets":["1999_01_01:x"],"confirm":true})", 400},
        {"POST", "/api/history/files", R"({"paths":["music"]})", 400},
        {"POST", "/api/history/files", R"({"paths":[")" + missing + R"("]})", 400},
    };
    expectAnswers(rows);
    EXPECT_EQ(json(call("GET", "/api/window"))["MainWinPos"], "{{10, 20}, {800, 600}}");
    // A call that was refused changed nothing.
    EXPECT_EQ(json(call("GET", "/api/activity"))["rows"].size(), 0u);
    auto prefs = json(call("GET", "/api/prefs"));
    EXPECT_EQ(prefs["reconnect"], "YES");
    EXPECT_NE(prefs.value("split", ""), "YES");
}

TEST_F(DaemonApiTest, MailSettingsAreShownAndChangedAsOneSet) {
    expectAnswers({
        {"GET", "/api/mail", "", 200},
        {"PUT", "/api/mail", R"({"server":"smtp.example.org:587","from":"a@example.org","onGiveUp":true})",
         200},
        {"PUT", "/api/mail", R"({"to":"b@example.org","password":"secret"})", 400},
        {"PUT", "/api/mail", R"({"to":"b@example.org","onDiskFull":"yes"})", 400},
        {"PUT", "/api/mail", R"({"to":"b@example.org","server":"smtp.example.org/x"})", 400},
        {"PUT", "/api/mail", R"({"to":"b@example.org\r\nRCPT TO: <c@example.org>"})", 400},
        {"PUT", "/api/mail", "[1]", 400},
    });
    // Only the accepted set was stored, and the file has it.
    auto mail = json(call("GET", "/api/mail"));
    EXPECT_EQ(mail["server"], "smtp.example.org:587");
    EXPECT_EQ(mail["from"], "a@example.org");
    EXPECT_EQ(mail["to"], "");
    EXPECT_EQ(mail["onGiveUp"], true);
    EXPECT_EQ(mail["onDiskFull"], false);
    EXPECT_EQ(mail["problem"], "no recipient address is set (mailTo)");
    auto stored = Preferences::resourceFromPath<Preferences>(homePath(Preferences::kRelativePath));
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->getParam("mailServer"), "smtp.example.org:587");
}

TEST_F(DaemonApiTest, LibrarySettingsAreChangedAsOneSetAndTheMpdPasswordIsNeverSent) {
    expectAnswers({
        {"GET", "/api/library", "", 200},
        {"PUT", "/api/library", R"({"libraryBackend":"mpd","mpdPort":6601,"mpdPassword":"secret"})", 200},
        {"PUT", "/api/library", R"({"libraryBackend":"itunes"})", 400},
        {"PUT", "/api/library", R"({"mpdPort":"99999","libraryFolder":"/elsewhere"})", 400},
        {"PUT", "/api/library", R"({"reconnect":true})", 400},
        {"PUT", "/api/library", R"({"mpdHost":["a"]})", 400},
    });
    auto library = json(call("GET", "/api/library"));
    EXPECT_EQ(library["libraryBackend"], "mpd");
    EXPECT_EQ(library["mpdPort"], "6601");
    EXPECT_EQ(library["libraryFolder"], "");  // the refused set changed nothing
    EXPECT_EQ(library["mpdPasswordSet"], true);
    EXPECT_FALSE(library.contains("mpdPassword"));
}

TEST_F(DaemonApiTest, SchedulesAreMadeChangedAndRemoved) {
    // A Monday noon, so that four weeks hold exactly eight starts.
    auto now = test::localDate(2026, 11, 23, 12, 0, 0);
    restart(clockedAt(now));
    std::string file = bookmarkFor(1, "Night Jazz")->filePath();
    std::string weekly =
        R"({"bookmark":")" + file + R"(","days":["mon","fri"],"at":"21:00","runFor":"1:30"})";
    auto made = call("POST", "/api/schedules", weekly);
    ASSERT_EQ(made->status, 201) << made->body;
    std::string id = std::to_string(json(made)["id"].get<std::uint32_t>());
    const std::vector<Row> rows = {
        {"POST", "/api/schedules",
         R"({"bookmark":")" + file + R"(","days":"mon","at":"21:00","runFor":"1:30"})", 400},
        {"POST", "/api/schedules",
         R"({"bookmark":")" + file + R"(","days":["funday"],"at":"21:00","runFor":"1:30"})", 400},
        {"POST", "/api/schedules",
         R"({"bookmark":")" + file + R"(","from":"2001-01-01 10:00","to":"2001-01-01 11:00"})", 400},
        {"PUT", "/api/schedules/" + id, R"({"at":"25:00"})", 400},
        {"PUT", "/api/schedules/" + id, R"({"at":"20:15","colour":"red"})", 400},
        {"PUT", "/api/schedules/" + id, R"({"at":"20:15"})", 200},
        {"POST", "/api/schedules/" + id + "/disable", "{}", 200},
    };
    expectAnswers(rows);
    auto rules = json(call("GET", "/api/schedules"))["rules"];
    ASSERT_EQ(rules.size(), 1u);
    EXPECT_EQ(rules[0]["at"], "20:15");
    EXPECT_EQ(rules[0]["runFor"], "1:30");
    EXPECT_EQ(rules[0]["active"], false);
    EXPECT_EQ(json(call("GET", "/api/schedules/upcoming"))["actions"].size(), 0u);  // disabled
    call("POST", "/api/schedules/" + id + "/enable", "{}");
    EXPECT_EQ(json(call("GET", "/api/schedules/upcoming"))["actions"].size(),
              8u);  // two days over four weeks
    EXPECT_EQ(call("DELETE", "/api/schedules/" + id)->status, 200);
    EXPECT_EQ(json(call("GET", "/api/schedules"))["rules"].size(), 0u);
}

TEST_F(DaemonApiTest, HistoryIsListedSearchedDeletedAndAddedTo) {
    // The daemon's own history, in memory: what the calls change is what it writes.
    auto history = History::history();
    history->addObjectToHistory(makeItem("Miles Davis - So What", "Jazz FM", localDate(2008, 7, 5, 9), true));
    history->addObjectToHistory(
        makeItem("Nina Simone - Feeling Good", "Jazz FM", localDate(2008, 7, 5, 10), true));
    history->addObjectToHistory(makeItem("Metallica - One", "Rock FM", localDate(2008, 7, 6, 22), true));
    ASSERT_TRUE(history->flush());

    auto days = json(call("GET", "/api/history/days"))["days"];
    ASSERT_EQ(days.size(), 2u);
    EXPECT_EQ(days[0]["day"], "2008_07_05");
    EXPECT_EQ(days[0]["items"], 2);
    auto day = json(call("GET", "/api/history/days/2008_7_5"));
    ASSERT_EQ(day["tracks"].size(), 2u);
    EXPECT_EQ(day["tracks"][1]["trackname"], "Nina Simone - Feeling Good");
    auto found = json(call("GET", "/api/history/search?q=FEELING%20good"))["days"];
    ASSERT_EQ(found.size(), 1u);
    ASSERT_EQ(found[0]["tracks"].size(), 1u);
    EXPECT_EQ(found[0]["tracks"][0]["number"], 2);  // as the day lists it
    EXPECT_FALSE(history->filtered());

    // Nothing goes without the confirmation.
    const std::string both = R"({"targets":["2008_07_05:1","2008_07_06"])";
    EXPECT_EQ(call("POST", "/api/history/delete", both + "}")->status, 409);
    EXPECT_EQ(json(call("GET", "/api/history/days"))["days"].size(), 2u);
    auto removed = json(call("POST", "/api/history/delete", both + R"(,"confirm":true})"));
    EXPECT_EQ(removed["removedDays"], nlohmann::json::array({"2008_07_06"}));
    EXPECT_EQ(removed["removedItems"], 1);
    ASSERT_TRUE(history->flush());
    EXPECT_FALSE(std::filesystem::exists(history->folder() + "/2008_07_06.historyDB"));
    // The day that lost a track is written at once: a fresh load agrees.
    auto reread =
        HistoryDatabase::databaseAtPath(history->folder() + "/2008_07_05.historyDB", localDate(2008, 7, 5));
    ASSERT_NE(reread, nullptr);
    ASSERT_EQ(reread->count(), 1u);
    EXPECT_EQ(reread->objectAtIndex(0)->trackName(), "Nina Simone - Feeling Good");

    std::string music = folder_ + "/music";
    makeFolders(music);
    writeText(music + "/Alpha - One.mp3", "a");
    auto added = call("POST", "/api/history/files", R"({"paths":[")" + music + R"("]})");
    ASSERT_EQ(added->status, 201) << added->body;
    EXPECT_EQ(json(added)["tracks"][0]["trackname"], "Alpha - One");
    EXPECT_NE(history->existsInDatabase("Alpha - One"), nullptr);
}

// The page plays a recorded track from the daemon: only a file the history
// lists, by its exact path, never another file a caller names.
TEST_F(DaemonApiTest, RecordedFilesAreServedOnlyWhenTheHistoryListsThem) {
    const std::string music = folder_ + "/music";
    makeFolders(music);
    const std::string track = music + "/Alpha - One.mp3";
    const std::string audio(3 * HistoryFileApi::kReadBytes / 2, '\xff');  // more than one read
    writeText(track, audio);
    writeText(music + "/secret.mp3", "not in the history");
    History::history()->addObjectToHistory(
        makeItem("Alpha - One", "Jazz FM", localDate(2008, 7, 5, 9), true, false, track));
    auto file = [](const std::string& path) {
        return "/api/history/file?path=" + httplib::detail::encode_query_param(path);
    };

    auto served = call("GET", file(track));
    ASSERT_TRUE(served);
    ASSERT_EQ(served->status, 200) << served->body;
    EXPECT_EQ(served->get_header_value("Content-Type"), "audio/mpeg");
    EXPECT_EQ(served->body, audio);

    expectAnswers({
        {"GET", "/api/history/file", "", 400},
        {"GET", file(music + "/secret.mp3"), "", 404},
        {"GET", file(music + "/../music/Alpha - One.mp3"), "", 404},
        {"GET", file("/etc/passwd"), "", 404},
    });
    EXPECT_EQ(call("GET", file(track), "", {}, false)->status, 401);

    // A track whose file is gone is refused in words, not as an empty stream.
    std::filesystem::remove(track);
    expectAnswers({{"GET", file(track), "", 404}});

    for (auto [path, type] : std::vector<std::pair<const char*, const char*>>{
             {"a.mp3", "audio/mpeg"}, {"a.AAC", "audio/aac"}, {"a.ogg", "audio/ogg"}, {"a", "audio/mpeg"}})
        EXPECT_EQ(HistoryFileApi::audioTypeFor(path), type) << path;
}

TEST_F(DaemonApiTest, BookmarksAreMadeFromLocationsAndPlaylistsChangedAndDeleted) {
    auto station = startStation();
    std::filesystem::remove_all(BookmarkFolder::defaultFolder());
    makeFolders(BookmarkFolder::defaultFolder());
    const std::string url = "http://127.0.0.1:" + std::to_string(station->port()) + "/stream";
    auto made =
        call("POST", "/api/bookmarks", R"({"location":")" + url + R"(","name":"Jazz","genre":"Bop"})");
    ASSERT_EQ(made->status, 201) << made->body;
    const std::string file = json(made)["file"];
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(json(made)["genre"], "Bop");
    const std::string pls = "[playlist]\\nFile1=" + url + "\\nTitle1=Dropped\\n";
    const std::vector<Row> rows = {
        // A name that is taken stays with its bookmark.
        {"POST", "/api/bookmarks", R"({"location":")" + url + R"(","name":"Jazz"})", 409},
        {"POST", "/api/bookmarks", R"({"playlist":")" + pls + R"("})", 201},
        {"POST", "/api/bookmarks", R"({"location":"http://127.0.0.1:1/list.pls"})", 502},
        {"POST", "/api/bookmarks", R"({"location":"list.pls"})", 400},
        {"POST", "/api/bookmarks", R"({"location":")" + url + R"(","playlist":"x"})", 400},
        {"POST", "/api/bookmarks", R"({"location":")" + url + R"(","recOffset":99})", 400},
        {"POST", "/api/bookmarks", R"({"location":")" + url + R"(","name":"Кино"})", 400},
        {"GET", "/api/bookmarks/Jazz", "", 200},
        {"GET", "/api/bookmarks/Nobody", "", 404},
        {"GET", "/api/bookmarks/../secret", "", 400},
        {"PUT", "/api/bookmarks/Jazz", R"({"colour":"red"})", 400},
        {"PUT", "/api/bookmarks/Jazz", R"({"name":"Dropped"})", 409},
        {"PUT", "/api/bookmarks/Jazz", R"({"name":"Smooth Jazz","trackNum":true})", 200},
        {"DELETE", "/api/bookmarks/Dropped", "", 200},
        {"DELETE", "/api/bookmarks/Dropped", "", 404},
    };
    expectAnswers(rows);
    auto list = json(call("GET", "/api/bookmarks"))["bookmarks"];
    ASSERT_EQ(list.size(), 1u) << list.dump();
    EXPECT_EQ(list[0]["entry"], "Smooth Jazz");
    EXPECT_EQ(list[0]["trackNum"], true);
    EXPECT_EQ(list[0]["port"], std::to_string(station->port()));
    EXPECT_FALSE(std::filesystem::exists(file)) << "renamed, not copied";
}

TEST_F(DaemonApiTest, RulesOutliveARestartAndAStartMissedMeanwhileStaysMissed) {
    auto station = startStation();
    const std::string bookmark = bookmarkFor(station->port(), "Station")->filePath();
    test::ScopedTimeZone zone("Europe/Berlin");
    auto now = test::localDate(2026, 11, 23, 20, 0, 0);  // a Monday
    restart(clockedAt(now));
    const std::string weekly =
        R"({"bookmark":")" + bookmark + R"(","days":["mon"],"at":"21:00","runFor":"1:00"})";
    const std::string once =
        R"({"bookmark":")" + bookmark + R"(","from":"2026-11-23 20:30","to":"2026-11-23 20:45"})";
    ASSERT_EQ(call("POST", "/api/schedules", weekly)->status, 201);
    ASSERT_EQ(call("POST", "/api/schedules", once)->status, 201);

    // Down from 20:00 to 20:31: the one-off start passes meanwhile.
    now = test::localDate(2026, 11, 23, 20, 31, 0);
    restart(clockedAt(now));
    EXPECT_EQ(json(call("GET", "/api/schedules"))["rules"].size(), 2u);
    daemon_->controller().schedules().launchTimers();
    EXPECT_EQ(json(call("GET", "/api/activity"))["rows"].size(), 0u) << "a missed start never fires late";
    auto upcoming = json(call("GET", "/api/schedules/upcoming"))["actions"];
    ASSERT_FALSE(upcoming.empty());
    EXPECT_EQ(upcoming[0]["start"], "2026-11-23 21:00:00");

    // The weekly rule still starts on time after the restart.
    now = test::localDate(2026, 11, 23, 20, 59, 55);
    daemon_->controller().schedules().launchTimers();
    EXPECT_EQ(json(call("GET", "/api/activity"))["rows"].size(), 1u);
}

TEST_F(DaemonApiTest, CallsWithoutTheTokenOrFromElsewhereAreRefused) {
    const std::string port = std::to_string(port_);
    struct Row {
        const char* what;
        httplib::Headers headers;
        bool token;
        const char* type;
        int status;
    };
    const std::vector<Row> rows = {
        {"no token", {}, false, "application/json", 401},
        {"wrong token", {{ApiServer::kTokenHeader, std::string(64, 'a')}}, false, "application/json", 401},
        {"token as cookie", {{"Cookie", "x=1; quillon_token=" + token_}}, false, "application/json", 201},
        {"foreign Origin", {{"Origin", "http://evil.example"}}, true, "application/json", 403},
        {"rebound Host", {{"Host", "evil.example:" + port}}, true, "application/json", 403},
        // What a cross-site form can send: a simple content type, the cookie,
        // its own Origin.
        {"cross-site form",
         {{"Cookie", "quillon_token=" + token_}, {"Origin", "http://evil.example"}},
         false,
         "text/plain",
         403},
        {"not JSON", {}, true, "text/plain", 415},
    };
    for (const Row& row : rows) {
        auto r = call("POST", "/api/login-links", "{}", row.headers, row.token, row.type);
        ASSERT_TRUE(r) << row.what;
        EXPECT_EQ(r->status, row.status) << row.what << ": " << r->body;
    }
}

TEST_F(DaemonApiTest, LoginLinkSetsTheCookieOnce) {
    std::string url = json(call("POST", "/api/login-links", "{}"))["url"];
    std::string path = url.substr(url.find("/login"));
    auto first = call("GET", path, "", {}, false);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 303);
    std::string cookie = first->get_header_value("Set-Cookie");
    EXPECT_NE(cookie.find("quillon_token=" + token_), std::string::npos);
    EXPECT_NE(cookie.find("HttpOnly"), std::string::npos);
    EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos);
    EXPECT_EQ(call("GET", path, "", {}, false)->status, 403);
    EXPECT_EQ(call("GET", "/", "", {}, false)->status, 200);
}

TEST_F(DaemonApiTest, TheDaemonsConnectionsRelayToPlayers) {
    auto station = startStation();
    auto started = call("POST", "/api/activity",
                        R"({"url":"http://127.0.0.1:)" + std::to_string(station->port()) + R"(/"})");
    ASSERT_EQ(started->status, 201) << started->body;
    Ripper* c = daemon_->controller().activity().connectionWithName(json(started)["connName"]);
    ASSERT_TRUE(c);
    ASSERT_TRUE(runUntil([&] { return c->relayPort() != 0; }));
    EXPECT_EQ(json(call("GET", "/api/activity"))["rows"][0]["relayPort"], c->relayPort());
    // The player's side runs apart: the relay announces it on the main loop.
    auto header = std::async(std::launch::async, [port = c->relayPort()] {
        IcyClient player(port);
        player.sendRequest();
        return player.readHeader();
    });
    ASSERT_TRUE(
        runUntil([&] { return header.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_NE(header.get().find("icy-metaint:"), std::string::npos);
}

TEST_F(DaemonApiTest, HundredEventStreamsSeeConnectionsStartAndStop) {
    constexpr int kClients = 100;
    std::atomic<int> sawStop{0};
    std::atomic<bool> quit{false};
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&] {
            httplib::Client client("127.0.0.1", port_);
            client.set_read_timeout(30, 0);
            std::string buffer;
            bool counted = false;
            client.Get("/api/events", {{ApiServer::kTokenHeader, token_}},
                       [&](const char* data, std::size_t n) {
                           buffer.append(data, n);
                           for (std::size_t end; (end = buffer.find("\n\n")) != std::string::npos;
                                buffer.erase(0, end + 2)) {
                               if (buffer.rfind("data: ", 0) != 0) continue;
                               auto event = nlohmann::json::parse(buffer.substr(6, end - 6));
                               if (!counted && event["type"] == "connection" && event["state"] == 1) {
                                   counted = true;
                                   ++sawStop;
                               }
                           }
                           return !quit;
                       });
        });
    }
    ASSERT_TRUE(runUntil([&] { return daemon_->events().subscriberCount() == kClients; }));

    auto station = startStation();
    std::string url = "http://127.0.0.1:" + std::to_string(station->port()) + "/";
    for (int round = 0; round < 2; ++round) {
        auto started = call("POST", "/api/activity", R"({"url":")" + url + R"("})");
        ASSERT_EQ(started->status, 201) << started->body;
        std::uint64_t id = json(started)["id"];
        Ripper* c = daemon_->controller().activity().connectionWithName(json(started)["connName"]);
        ASSERT_TRUE(c);
        ASSERT_TRUE(runUntil([&] { return c->isStreaming(); }));
        EXPECT_EQ(json(call("POST", "/api/activity/" + std::to_string(id) + "/stop", "{}"))["state"], 1);
        ASSERT_TRUE(runUntil([&] { return round == 1 || sawStop == kClients; }));
        EXPECT_EQ(call("DELETE", "/api/activity/" + std::to_string(id))->status, 200);
    }
    EXPECT_EQ(sawStop, kClients);
    quit = true;
    daemon_->stop();  // ends every stream
    for (auto& t : clients) t.join();
}

TEST_F(DaemonApiTest, PageFilesComeWithTheirTypesAndCaching) {
    auto page = call("GET", "/", "", {}, false);
    ASSERT_TRUE(page);
    ASSERT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(page->get_header_value("Cache-Control"), "no-cache");
    EXPECT_NE(page->get_header_value("Content-Security-Policy").find("default-src 'self'"),
              std::string::npos);
    // Every file the page names is built in, under a hashed name cached for good.
    std::vector<std::pair<std::string, std::string>> named;  // path, expected type
    for (const char* extension : {".js", ".css"}) {
        std::size_t end = page->body.find(extension);
        ASSERT_NE(end, std::string::npos) << page->body;
        std::size_t start = page->body.rfind("/assets/", end);
        ASSERT_NE(start, std::string::npos) << page->body;
        named.emplace_back(
            page->body.substr(start, end + std::strlen(extension) - start),
            extension == std::string(".js") ? "text/javascript; charset=utf-8" : "text/css; charset=utf-8");
    }
    for (const auto& [path, type] : named) {
        auto file = call("GET", path, "", {}, false);
        ASSERT_TRUE(file) << path;
        EXPECT_EQ(file->status, 200) << path;
        EXPECT_EQ(file->get_header_value("Content-Type"), type) << path;
        EXPECT_EQ(file->get_header_value("Cache-Control"), "public, max-age=31536000, immutable") << path;
        EXPECT_FALSE(file->body.empty()) << path;
    }
    for (const char* missing : {"/assets/none.js", "/assets/..%2Findex.html", "/favicon.ico"})
        EXPECT_EQ(call("GET", missing, "", {}, false)->status, 404) << missing;
}

// The page's audio element gets the relay's audio, without the metadata
// blocks the relay puts between them: the station's counter bytes arrive
// unbroken across several meta intervals.
TEST_F(DaemonApiTest, RelayAudioReachesThePageWithoutMetadata) {
    auto station = startStation();                    // a meta interval of 8192
    prefs().setParam(std::string("0"), "relayPort");  // any free port: 9000 may be taken here
    auto started = call("POST", "/api/activity",
                        R"({"url":"http://127.0.0.1:)" + std::to_string(station->port()) + R"(/"})");
    ASSERT_EQ(started->status, 201) << started->body;
    const std::string audio =
        "/api/activity/" + std::to_string(json(started)["id"].get<std::uint64_t>()) + "/audio";
    Ripper* c = daemon_->controller().activity().connectionWithName(json(started)["connName"]);
    ASSERT_TRUE(c);
    EXPECT_EQ(call("GET", audio)->status, 409);  // not streaming yet
    // The relay listens once the connection streams.
    ASSERT_TRUE(runUntil([&] { return c->relayPort() != 0; }));

    constexpr std::size_t kWanted = 3 * 8192;
    int status = 0;
    std::string contentType;
    std::string received;
    auto reading = std::async(std::launch::async, [&] {
        httplib::Client client("127.0.0.1", port_);
        client.set_read_timeout(30, 0);
        return client.Get(
            // What an audio element asks for: the whole of a live stream is 200, not 206.
            audio, {{ApiServer::kTokenHeader, token_}, {"Range", "bytes=0-"}},
            [&](const httplib::Response& r) {
                status = r.status;
                contentType = r.get_header_value("Content-Type");
                return true;
            },
            [&](const char* data, std::size_t n) {
                received.append(data, n);
                return received.size() < kWanted;
            });
    });
    ASSERT_TRUE(
        runUntil([&] { return reading.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    reading.get();
    EXPECT_EQ(status, 200);
    ASSERT_EQ(contentType, "audio/mpeg") << received;
    ASSERT_GE(received.size(), kWanted);
    for (std::size_t i = 1; i < received.size(); ++i)
        ASSERT_EQ(static_cast<std::uint8_t>(received[i]),
                  (static_cast<std::uint8_t>(received[i - 1]) + 1) % 251)
            << "at byte " << i;

    const std::vector<Row> refusals = {
        {"GET", "/api/activity/999/audio", "", 404},
    };
    expectAnswers(refusals);
    EXPECT_EQ(call("GET", audio, "", {}, false)->status, 401);
    EXPECT_EQ(call("GET", audio, "", {{"Origin", "http://evil.example"}})->status, 403);
}

TEST_F(DaemonApiTest, RecentConnectionsAreListedNewestFirstAndRecordedByTheirFile) {
    EXPECT_EQ(json(call("GET", "/api/recent"))["items"].size(), 0u);
    auto station = startStation();
    const std::vector<std::string> names = {"Alpha", "Beta"};
    for (const std::string& name : names) {
        const std::string body =
            R"({"bookmark":")" + bookmarkFor(station->port(), name)->filePath() + R"("})";
        auto started = call("POST", "/api/activity", body);
        ASSERT_EQ(started->status, 201) << started->body;
    }
    auto items = json(call("GET", "/api/recent"))["items"];
    ASSERT_EQ(items.size(), 2u) << items.dump();
    EXPECT_EQ(items[0]["name"], names[1]);
    EXPECT_EQ(items[1]["name"], names[0]);
    EXPECT_EQ(items[1]["location"], "http://127.0.0.1:" + std::to_string(station->port()) + "/stream");
    EXPECT_EQ(items[1]["available"], true);

    // A stopped connection would only start again: the list is cleared first.
    auto removeAll = [this] {
        ActivityController& list = daemon_->controller().activity();
        while (list.numberOfRows() > 0) list.removeRecord(list.connectionAt(0));
    };
    // The older one again, from its copy: it is newest now.
    removeAll();
    const std::string file = items[1]["file"];
    const std::string again = R"({"bookmark":")" + file + R"("})";
    expectAnswers({{"POST", "/api/activity", again, 201}});
    EXPECT_EQ(json(call("GET", "/api/recent"))["items"][0]["name"], names[0]);

    // A copy deleted behind the daemon's back: listed as unavailable, refused.
    removeAll();
    ASSERT_TRUE(std::filesystem::remove(file));
    items = json(call("GET", "/api/recent"))["items"];
    EXPECT_EQ(items[0]["available"], false);
    EXPECT_EQ(items[0]["location"], "");
    expectAnswers({{"POST", "/api/activity", again, 404}});
}

TEST_F(DaemonApiTest, DirectoryUpdatesFromRadioBrowserAndSavesItsEntries) {
    RadioBrowserPeer peer;
    peer.setTags(RadioBrowserPeer::tagsJson({{"jazz", 120}}));
    peer.setStations("jazz", RadioBrowserPeer::stationsJson(
                                 {{"Smooth", "https://127.0.0.1:9/smooth.mp3", "MP3", "u-smooth", "jazz"}}));
    ASSERT_EQ(call("PUT", "/api/prefs", R"({"radioBrowserServer":")" + peer.base() + R"("})")->status, 200);
    std::filesystem::remove_all(BookmarkFolder::defaultFolder());
    makeFolders(BookmarkFolder::defaultFolder());

    expectAnswers({{"POST", "/api/directory/update", R"({"source":"nowhere"})", 400}});
    ASSERT_EQ(call("POST", "/api/directory/update", R"({"source":"radio-browser"})")->status, 202);
    // The update ends on the main loop, which runUntil runs.
    ASSERT_TRUE(runUntil([] { return !Tuner::tuner()->updating(); }));
    auto tree = json(call("GET", "/api/directory"));
    EXPECT_EQ(tree["source"], "radio-browser");
    ASSERT_EQ(tree["count"], 1) << tree.dump();
    EXPECT_EQ(tree["genres"][0]["streams"][0]["homepage"], "https://example.org/");

    // No directory server is set, yet the entry names its stream.
    auto saved = call("POST", "/api/directory/bookmark", R"({"entry":"u-smooth"})");
    ASSERT_EQ(saved->status, 201) << saved->body;
    EXPECT_EQ(json(saved)["host"], "127.0.0.1");
    EXPECT_EQ(json(saved)["port"], "9");

    // Cleared for the other tests, which expect the directory server as the source.
    std::filesystem::remove(Tuner::tuner()->tunerPath());
    ASSERT_EQ(call("PUT", "/api/prefs", R"({"tunerSource":"server","radioBrowserServer":""})")->status, 200);
}

}  // namespace
}  // namespace quillon::test
