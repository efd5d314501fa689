// The directory's update from the test station's directory (what `quillon
// station --directory` serves): version check, progress, the local file and
// "tunerVersion"; and a server failing half-way, which changes nothing.
#include <gtest/gtest.h>

#include "platform/AtomicFile.h"
#include "station/StationDirectory.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"
#include "support/Files.h"
#include "support/MainThread.h"
#include "tuner/Tuner.h"

namespace quillon {
namespace {

class TunerUpdateTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::becomeMainThread();
        Preferences::resetShared();
        Preferences::preferences()->setParam(std::string("0"), Tuner::kVersionKey);
        path_ = test::testFolder("tuner") + "/kv.qlntuner.tun";
    }
    void TearDown() override { Preferences::resetShared(); }

    // Serves the directory of that version, failing after `failAfter` genres.
    void serve(int version, std::optional<std::size_t> failAfter = std::nullopt) {
        StationOptions o;
        o.payload = StationPayload::counter;
        station_ = std::make_unique<Station>(o);
        station_->start();
        station_->serveFiles(StationDirectory::files(station_->url(), {version, failAfter}));
    }

    struct Run {
        std::optional<Tuner::Outcome> outcome;
        std::string message;
        std::vector<std::pair<std::string, int>> progress;
        std::vector<std::string> alerts;
        int refreshes = 0;
    };
    // One check (and update) through to its end.
    Run update(Tuner& tuner, bool message = true) {
        Run run;
        Tuner::Events events;
        events.progress = [&](const std::string& text, int percent) {
            run.progress.emplace_back(text, percent);
        };
        events.finished = [&](Tuner::Outcome o, const std::string& text) {
            run.outcome = o;
            run.message = text;
        };
        events.alert = [&](const std::string& key, const std::string&) { run.alerts.push_back(key); };
        events.refresh = [&] { ++run.refreshes; };
        tuner.setEvents(std::move(events));
        tuner.setServer(station_->url());
        tuner.beginUpdate(message);
        EXPECT_TRUE(test::runUntil([&] { return run.outcome.has_value(); }));
        tuner.setEvents({});
        return run;
    }

    std::string version() const { return Preferences::preferences()->getParam(Tuner::kVersionKey); }

    std::string path_;
    std::unique_ptr<Station> station_;
};

TEST_F(TunerUpdateTest, NewerVersionDownloadsEveryGenreWithProgress) {
    serve(3);
    Tuner tuner(path_);
    Run run = update(tuner);
    ASSERT_EQ(run.outcome, Tuner::Outcome::updated) << run.message;
    const std::vector<std::pair<std::string, int>> expected = {{"Downloading genres list", 0},
                                                               {"Downloading Jazz (1/3)", 33},
                                                               {"Downloading Rock (2/3)", 66},
                                                               {"Downloading Talk Radio (3/3)", 100}};
    EXPECT_EQ(run.progress, expected);
    EXPECT_EQ(run.refreshes, 1);
    EXPECT_EQ(version(), "3");
    // The version is saved, not only set.
    Preferences::resetShared();
    EXPECT_EQ(version(), "3");

    ASSERT_EQ(tuner.count(), 3u);
    EXPECT_EQ(tuner.itemAtIndex(2)->name(), "Talk Radio");
    EXPECT_EQ(tuner.itemAtIndex(2)->count(), 2u);
    Tuner reread(path_);
    ASSERT_TRUE(reread.loadTunerData());
    ASSERT_EQ(reread.count(), 3u);
    EXPECT_EQ(reread.itemAtIndex(0)->itemAtIndex(0)->container(),
              tuner.itemAtIndex(0)->itemAtIndex(0)->container());

    // A stream entry becomes a bookmark of the station through its playlist.
    std::string failure;
    auto bookmark = tuner.itemAtIndex(0)->itemAtIndex(0)->bookmark(tuner.server(), failure);
    ASSERT_TRUE(bookmark) << failure;
    EXPECT_EQ(bookmark->name(), "Blue Note Radio");
    EXPECT_EQ(bookmark->host(), "127.0.0.1");
    EXPECT_EQ(bookmark->port(), std::to_string(station_->port()));
    EXPECT_EQ(bookmark->path(), "/stream/1001");
    bool agentSent = false;
    for (const auto& client : station_->clients())
        agentSent = agentSent || client.request.find(std::string("User-Agent: ") +
                                                     TunerItem::kPlaylistUserAgent) != std::string::npos;
    EXPECT_TRUE(agentSent);
}

TEST_F(TunerUpdateTest, EqualVersionDownloadsNothing) {
    serve(3);
    Preferences::preferences()->setParam(std::string("3"), Tuner::kVersionKey);
    Tuner tuner(path_);
    Run asked = update(tuner, true);
    EXPECT_EQ(asked.outcome, Tuner::Outcome::upToDate);
    EXPECT_EQ(asked.alerts, std::vector<std::string>{"MSG_TUNER_UPTODATE"});
    EXPECT_TRUE(asked.progress.empty());
    EXPECT_FALSE(readWholeFile(path_));
    Run quiet = update(tuner, false);
    EXPECT_EQ(quiet.outcome, Tuner::Outcome::upToDate);
    EXPECT_TRUE(quiet.alerts.empty());
}

TEST_F(TunerUpdateTest, ServerFailingHalfWayChangesNothing) {
    serve(1);
    {
        Tuner first(path_);
        ASSERT_EQ(update(first).outcome, Tuner::Outcome::updated);
    }
    const auto before = readWholeFile(path_);
    ASSERT_TRUE(before);

    serve(2, 1);  // Jazz arrives, then the server hangs up
    Tuner tuner(path_);
    ASSERT_TRUE(tuner.loadTunerData());
    Run run = update(tuner);
    EXPECT_EQ(run.outcome, Tuner::Outcome::updateFailed);
    EXPECT_NE(run.message.find("Rock.tun"), std::string::npos) << run.message;
    EXPECT_EQ(run.progress.back(), (std::pair<std::string, int>{"Downloading Rock (2/3)", 66}));
    EXPECT_EQ(readWholeFile(path_), before);
    EXPECT_EQ(version(), "1");
    EXPECT_EQ(tuner.count(), 3u) << "the directory in view stays";
}

TEST_F(TunerUpdateTest, VersionThatIsNoNumberCountsAsZero) {
    serve(1);
    auto files = StationDirectory::files(station_->url(), {});
    files[Tuner::kVersionFile].body = "new\n";
    station_->serveFiles(files);
    Tuner tuner(path_);
    EXPECT_EQ(update(tuner).outcome, Tuner::Outcome::upToDate);
    EXPECT_EQ(version(), "0");
}

TEST_F(TunerUpdateTest, UnreachableServerFailsTheCheck) {
    serve(1);
    const std::string url = station_->url();
    station_.reset();
    Tuner tuner(path_);
    Run run;
    Tuner::Events events;
    events.finished = [&](Tuner::Outcome o, const std::string&) { run.outcome = o; };
    events.alert = [&](const std::string& key, const std::string&) { run.alerts.push_back(key); };
    tuner.setEvents(events);
    tuner.setServer(url);
    tuner.beginUpdate(true);
    ASSERT_TRUE(test::runUntil([&] { return run.outcome.has_value(); }));
    EXPECT_EQ(run.outcome, Tuner::Outcome::checkFailed);
    EXPECT_EQ(run.alerts, std::vector<std::string>{"ERROR_CANNOT_CHECK_TUNER_VERSION"});
}

TEST_F(TunerUpdateTest, DestroyedWhileUpdatingStopsCleanly) {
    serve(2);
    auto tuner = std::make_unique<Tuner>(path_);
    bool progressed = false;
    Tuner::Events events;
    events.progress = [&](const std::string&, int) { progressed = true; };
    tuner->setEvents(events);
    tuner->setServer(station_->url());
    tuner->update();
    ASSERT_TRUE(test::runUntil([&] { return progressed; }));
    tuner.reset();  // the worker may be waiting for the main thread: it is released
    test::drainMainLoop();
}

}  // namespace
}  // namespace quillon
