// The activity controller against the built-in station: starting through
// addRecord and its refusals, one connection per bookmark, relay ports, the
// actions on the selected connection, the recent list and the disk guard.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "AppTestSupport.h"
#include "app/ActivityViewModel.h"
#include "engine/RipperRelay.h"

namespace quillon {
namespace {

using test::FakeInterface;
using test::runUntil;

class ActivityControllerTest : public test::AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        station_ = startStation();
    }
    void TearDown() override {
        controller_.reset();
        station_->stop();
        AppFixture::TearDown();
    }

    ActivityController& controller(FreeSpace::Query query = {}, ConnectionServices services = {}) {
        if (!query) query = [this](const std::string&) { return std::optional<std::uint64_t>(freeBytes_); };
        controller_ = std::make_unique<ActivityController>(ui_, std::move(services), query);
        return *controller_;
    }

    Ripper* record(const std::string& name) {
        return controller_->addRecord(*bookmarkFor(station_->port(), name), nullptr, false, false);
    }

    static bool streams(Ripper* c) {
        return runUntil([c] { return c->isStreaming(); });
    }

    std::vector<std::string> rowNames() const {
        std::vector<std::string> out;
        for (std::size_t r = 0; r < controller_->numberOfRows(); ++r)
            out.push_back(controller_->connectionAt(r).connName());
        return out;
    }

    FakeInterface ui_;
    std::uint64_t freeBytes_ = 10ull << 30;
    std::unique_ptr<Station> station_;
    std::unique_ptr<ActivityController> controller_;
};

TEST_F(ActivityControllerTest, AddRecordListsSelectsAndRemembersTheConnection) {
    controller();
    Ripper* c = record("Morning Show");
    ASSERT_NE(c, nullptr);
    EXPECT_TRUE(streams(c));
    EXPECT_EQ(controller_->numberOfRows(), 1u);
    EXPECT_EQ(controller_->activeConnection(), c);
    EXPECT_EQ(controller_->connectionWithName("Morning Show"), c);
    EXPECT_EQ(controller_->connectionWithName("Evening Show"), nullptr);
    // Records below the stored recordings folder.
    EXPECT_EQ(controller_->downloadPath(), records_);
    EXPECT_TRUE(runUntil([&] { return !c->downloadPath().empty(); }));
    EXPECT_EQ(c->downloadPath().rfind(records_, 0), 0u) << c->downloadPath();
    // The recent list holds a copy of the bookmark.
    ASSERT_EQ(controller_->recentMenu().subItems().size(), 1u);
    EXPECT_EQ(controller_->recentMenu().subItems()[0].title(), "Morning Show");
    EXPECT_EQ(controller_->recentMenu().subItems()[0].filePath(), recentCopy("Morning Show"));
    auto copy = Bookmark::resourceFromPath<Bookmark>(recentCopy("Morning Show"));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->port(), std::to_string(station_->port()));
    // The view was told of the state changes, in order (each told as the main
    // loop delivers it, so a change overtaken by the next one shows as that one),
    // and at least once to render again.
    ASSERT_TRUE(
        runUntil([&] { return !ui_.states.empty() && ui_.states.back() == Ripper::State::Recording; }));
    EXPECT_TRUE(std::is_sorted(ui_.states.begin(), ui_.states.end())) << testing::PrintToString(ui_.states);
    EXPECT_TRUE(runUntil([&] { return ui_.changes > 0; }));
    EXPECT_TRUE(ui_.alerts.empty());
    EXPECT_EQ(ui_.beeps, 0);
}

TEST_F(ActivityControllerTest, ABookmarkIsNeverRecordedTwice) {
    controller();
    Ripper* c = record("Only Once");
    ASSERT_TRUE(streams(c));
    auto clientsBefore = station_->clients().size();

    EXPECT_EQ(record("Only Once"), nullptr);
    EXPECT_EQ(ui_.beeps, 1);
    EXPECT_EQ(controller_->numberOfRows(), 1u);
    EXPECT_TRUE(c->isStreaming());
    EXPECT_EQ(station_->clients().size(), clientsBefore);  // no second connection made
}

TEST_F(ActivityControllerTest, ConnectingAStoppedBookmarkRestartsThatConnection) {
    controller();
    Ripper* c = record("Again");
    ASSERT_TRUE(streams(c));
    c->userClose();
    ASSERT_TRUE(runUntil([&] { return c->stoppedForGood(); }));

    EXPECT_EQ(record("Again"), c);
    EXPECT_EQ(controller_->numberOfRows(), 1u);
    EXPECT_TRUE(streams(c));
    EXPECT_EQ(ui_.beeps, 0);
    EXPECT_EQ(station_->clients().size(), 2u);
}

TEST_F(ActivityControllerTest, RefusalsShowTheirSheetAndStartNothing) {
    struct Case {
        const char* name;
        std::uint64_t freeBytes;
        bool folderExists;
        bool hasFile;
        const char* alert;
    };
    const Case cases[] = {
        {"FullDisk", 104857600, true, true, "ERROR_DISK_ALMOST_FULL"},
        {"NoFolder", 10ull << 30, false, true, "ERROR_CANNOT_START_RECORD"},
        {"NoFile", 10ull << 30, true, false, "ERROR_CANNOT_START_RECORD"},
        {"JustEnough", 104857601, true, true, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ui_ = FakeInterface();
        freeBytes_ = c.freeBytes;
        controller();
        std::string folder = c.folderExists ? records_ : records_ + "/missing";
        DefaultsStore::standard().setObject(PlistValue(folder), "RECORDS_STORAGE_FOLDER");
        auto b = bookmarkFor(station_->port(), c.name);
        if (!c.hasFile) b->setFilePath("");
        Ripper* made = controller_->addRecord(*b, nullptr, false, false);
        if (c.alert) {
            EXPECT_EQ(made, nullptr);
            EXPECT_EQ(ui_.alerts, std::vector<std::string>{c.alert});
            EXPECT_EQ(controller_->numberOfRows(), 0u);
            EXPECT_TRUE(controller_->recentMenu().subItems().empty());
        } else {
            EXPECT_NE(made, nullptr);
            EXPECT_TRUE(ui_.alerts.empty());
        }
        controller_.reset();
    }
}

TEST_F(ActivityControllerTest, RelayPortsAreHandedOutFromTheConfiguredOneUpwards) {
    controller();
    prefs().setParam(std::string("9000"), "relayPort");
    Ripper* a = record("A");
    Ripper* b = record("B");
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->servePort(), 9000);
    EXPECT_EQ(b->servePort(), 9001);
    a->userClose();  // a stopped connection serves nothing
    EXPECT_EQ(a->servePort(), 0);
    Ripper* c = record("C");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->servePort(), 9000);
    EXPECT_EQ(controller_->firstFreeRelay(), 9002);

    struct Case {
        const char* setting;
        std::uint16_t first;
    };
    const Case cases[] = {{"0", 0}, {"-4", 0}, {"65534", 65534}, {"65535", 0}, {"70000", 0}, {"9001", 9002}};
    for (const auto& k : cases) {
        prefs().setParam(std::string(k.setting), "relayPort");
        EXPECT_EQ(controller_->firstFreeRelay(), k.first) << k.setting;
    }
}

TEST_F(ActivityControllerTest, TheLastFreePortIs65534AndZeroMeansAnyPort) {
    for (const auto& [setting, second] : {std::pair{"65534", 65534}, std::pair{"0", 0}}) {
        controller();
        prefs().setParam(std::string(setting), "relayPort");
        Ripper* a = record("A");
        Ripper* b = record("B");
        ASSERT_TRUE(a && b);
        EXPECT_EQ(a->servePort(), second) << setting;
        EXPECT_EQ(b->servePort(), 0) << setting << ": nothing left, or none asked for: any port";
    }
}

TEST_F(ActivityControllerTest, TheListIsSortedByTitle) {
    controller();
    for (const char* name : {"Zulu", "Alpha", "Mike"}) ASSERT_NE(record(name), nullptr);
    EXPECT_EQ(rowNames(), (std::vector<std::string>{"Alpha", "Mike", "Zulu"}));
    EXPECT_EQ(controller_->activeConnection()->connName(), "Mike");  // the newest is selected
    EXPECT_EQ(controller_->selectedRow(), std::optional<std::size_t>(1));

    controller_->sortConnections("title", false);
    EXPECT_EQ(rowNames(), (std::vector<std::string>{"Zulu", "Mike", "Alpha"}));
    EXPECT_EQ(controller_->selectedRow(), std::optional<std::size_t>(1));
    controller_->sortConnections("nonsense", true);
    EXPECT_EQ(controller_->sortKey(), "title");
    EXPECT_FALSE(controller_->sortAscending());
    EXPECT_EQ(controller_->objectValue("title", 0), "Zulu");
}

TEST_F(ActivityControllerTest, TheStopButtonStopsAndRestarts) {
    controller();
    Ripper* c = record("Toggle");
    ASSERT_TRUE(streams(c));
    controller_->stopButton();
    EXPECT_FALSE(c->isStreaming());
    ASSERT_TRUE(runUntil([&] { return c->stoppedForGood(); }));
    controller_->stopButton();
    EXPECT_TRUE(streams(c));
    EXPECT_EQ(controller_->numberOfRows(), 1u);

    // Without a selection nothing happens.
    controller_->selectRow(std::nullopt);
    controller_->stopButton();
    EXPECT_TRUE(c->isStreaming());
}

TEST_F(ActivityControllerTest, RemovingAsksFirstWhenFromTheList) {
    controller();
    Ripper* c = record("Remove Me");
    ASSERT_TRUE(streams(c));
    ui_.confirmAnswer = false;
    controller_->deleteItems();
    EXPECT_EQ(ui_.confirmations.size(), 1u);
    EXPECT_EQ(controller_->numberOfRows(), 1u);
    EXPECT_TRUE(c->isStreaming());

    ui_.confirmAnswer = true;
    controller_->deleteItems();
    EXPECT_EQ(controller_->numberOfRows(), 0u);
    EXPECT_EQ(controller_->activeConnection(), nullptr);
    EXPECT_TRUE(runUntil([&] { return station_->clientCount() == 0; }));

    // Clearing removes without asking; with nothing selected it does nothing.
    Ripper* d = record("Clear Me");
    ASSERT_NE(d, nullptr);
    controller_->clearConnection();
    EXPECT_EQ(controller_->numberOfRows(), 0u);
    EXPECT_EQ(ui_.confirmations.size(), 2u);
    controller_->clearConnection();
    controller_->deleteItems();
    EXPECT_EQ(ui_.confirmations.size(), 2u);
}

TEST_F(ActivityControllerTest, RemovingAnUnlistedConnectionChangesNothing) {
    controller();
    Ripper* c = record("Listed");
    ASSERT_NE(c, nullptr);
    FakeInterface otherUi;
    ActivityController other(otherUi);
    other.removeRecord(*c);  // not in that list
    EXPECT_EQ(controller_->numberOfRows(), 1u);
    controller_->ripperDidStop(*c);
    EXPECT_EQ(controller_->numberOfRows(), 0u);
}

TEST_F(ActivityControllerTest, StopAfterThisTrackBeepsWithoutTracks) {
    controller();
    Ripper* c = record("No Tracks Yet");
    ASSERT_TRUE(streams(c));
    ASSERT_FALSE(c->trackSeparationOn());
    controller_->stopAfterThisTrack();
    EXPECT_EQ(ui_.beeps, 1);
    EXPECT_FALSE(c->closeAfterThisTrack());
}

TEST_F(ActivityControllerTest, ListenPointsThePlaylistAtTheRelayAndReportsARefusal) {
    // relayPort "0": the relay listens where the system says, not on port 0.
    prefs().setParam(std::string("0"), "relayPort");
    ConnectionServices services;
    services.makeRelay = RipperRelay::factory();
    controller({}, std::move(services));
    controller_->doubleClick();  // nothing selected: nothing happens
    EXPECT_TRUE(ui_.opened.empty());

    Ripper* c = record("Listen Here");
    ASSERT_TRUE(streams(c));
    ASSERT_TRUE(runUntil([&] { return c->relayPort() != 0; }));
    controller_->listen();
    ASSERT_EQ(ui_.opened, std::vector<std::string>{RelayPlaylist::path()});
    EXPECT_EQ(test::readText(RelayPlaylist::path()),
              "[playlist]\nNumberOfEntries=1\nFile1=http://localhost:" + std::to_string(c->relayPort()) +
                  "\nTitle1=Listen Here");
    EXPECT_TRUE(ui_.alerts.empty());

    ui_.playerAccepts = false;
    controller_->listen();
    EXPECT_EQ(ui_.alerts, std::vector<std::string>{"ERROR_UNABLE_TO_LOAD_ITUNES"});
}

TEST_F(ActivityControllerTest, RevealShowsTheFileOrElseTheRecordingsFolder) {
    controller();
    controller_->revealInFinder();
    EXPECT_EQ(ui_.revealed, std::vector<std::string>{records_});

    Ripper* c = record("Reveal");
    ASSERT_TRUE(runUntil([&] { return !c->downloadPath().empty(); }));
    controller_->revealInFinder();
    ASSERT_EQ(ui_.revealed.size(), 2u);
    EXPECT_EQ(ui_.revealed[1], c->downloadPath());
}

TEST_F(ActivityControllerTest, TheRecentListStartsAConnectionAndBeepsOnABadFile) {
    controller();
    Ripper* c = record("From Recents");
    ASSERT_NE(c, nullptr);
    controller_->clearConnection();
    ASSERT_EQ(controller_->numberOfRows(), 0u);

    controller_->recentMenu().connect(0);
    ASSERT_EQ(controller_->numberOfRows(), 1u);
    EXPECT_EQ(controller_->connectionAt(0).connName(), "From Recents");
    EXPECT_EQ(controller_->recentMenu().subItems().size(), 1u);

    controller_->connectFromRecentMenu(folder_ + "/no-such.qlnbk");
    controller_->connectWithBookmark(nullptr);
    EXPECT_EQ(ui_.beeps, 2);
    EXPECT_EQ(controller_->numberOfRows(), 1u);
}

TEST_F(ActivityControllerTest, SeventeenBookmarksKeepSixteenRecentCopies) {
    controller();
    for (int i = 1; i <= 17; ++i) {
        Ripper* c = record("Station " + std::to_string(i));
        ASSERT_NE(c, nullptr) << i;
        controller_->clearConnection();  // keep the station's load small
    }
    EXPECT_EQ(controller_->recentMenu().subItems().size(), 16u);
    EXPECT_FALSE(std::filesystem::exists(recentCopy("Station 1")));
    EXPECT_TRUE(std::filesystem::exists(recentCopy("Station 2")));
    EXPECT_TRUE(std::filesystem::exists(recentCopy("Station 17")));
    EXPECT_EQ(controller_->recentMenu().menuItems().front().title(), "Station 17");
}

TEST_F(ActivityControllerTest, TheDiskGuardStopsEverythingOnlyWhenSomethingRuns) {
    controller();
    freeBytes_ = 1000;
    controller_->checkDiskSpace();
    EXPECT_TRUE(ui_.alerts.empty());  // nothing running: nothing shown

    freeBytes_ = 10ull << 30;
    Ripper* a = record("A");
    Ripper* b = record("B");
    ASSERT_TRUE(streams(a) && streams(b));
    controller_->checkDiskSpace();
    EXPECT_TRUE(a->isStreaming() && b->isStreaming());

    // The watch fires on its own once the disk fills.
    timing().freeSpaceCheck = 0.05;
    controller_->startDiskSpaceWatch();
    freeBytes_ = 104857600;
    EXPECT_TRUE(runUntil([&] { return !ui_.alerts.empty(); }));
    controller_->stopDiskSpaceWatch();
    EXPECT_EQ(ui_.alerts.front(), "ERROR_DISK_ALMOST_FULL");
    EXPECT_FALSE(a->isStreaming());
    EXPECT_FALSE(b->isStreaming());
    EXPECT_TRUE(runUntil([&] { return a->stoppedForGood() && b->stoppedForGood(); }));
    EXPECT_EQ(controller_->numberOfRows(), 2u);  // stopped connections stay listed
}

TEST_F(ActivityControllerTest, AFolderForThisRunIsUsedInsteadOfTheStoredOne) {
    controller();
    std::string run = folder_ + "/this-run";
    controller_->setRecordsFolder(run);
    EXPECT_EQ(record("Elsewhere"), nullptr);  // not made yet
    EXPECT_EQ(ui_.alerts, std::vector<std::string>{"ERROR_CANNOT_START_RECORD"});
    makeFolders(run);
    Ripper* c = record("Elsewhere");
    ASSERT_NE(c, nullptr);
    EXPECT_TRUE(runUntil([&] { return !c->downloadPath().empty(); }));
    EXPECT_EQ(c->downloadPath().rfind(run, 0), 0u) << c->downloadPath();
}

}  // namespace
}  // namespace quillon
