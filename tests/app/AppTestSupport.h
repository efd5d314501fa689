#pragma once
// Shared pieces of the activity tests: a user interface that records what it is
// asked to show and answers as the test says, a clean recordings folder and
// recent list per test, shortened time-outs, and bookmarks saved to files.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/ActivityController.h"
#include "app/UserInterface.h"
#include "engine/Ripper.h"
#include "net/RelayPlaylist.h"
#include "platform/DefaultsStore.h"
#include "platform/Home.h"
#include "platform/MainLoop.h"
#include "platform/Timing.h"
#include "station/Station.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"

namespace quillon::test {

class FakeInterface : public UserInterface {
public:
    void alert(const std::string& key, const std::string& text) override {
        alerts.push_back(key);
        alertTexts.push_back(text);
    }
    void beep() override { ++beeps; }
    bool confirm(const std::string& title, const std::string& message, const std::string&,
                 const std::string&) override {
        confirmations.push_back(title + ": " + message);
        return confirmAnswer;
    }
    std::optional<std::string> chooseFolder(const std::string& key, const std::string&) override {
        chooserKeys.push_back(key);
        return chosenFolder;
    }
    bool reveal(const std::string& path) override {
        revealed.push_back(path);
        return true;
    }
    bool openWithPlayer(const std::string& path) override {
        opened.push_back(path);
        return playerAccepts;
    }
    bool interactive() const override { return isInteractive; }
    void activityChanged() override { ++changes; }
    void connectionChanged(const Ripper& connection) override {
        int state = connection.ripperState();
        if (states.empty() || states.back() != state) states.push_back(state);
    }

    // Answers.
    bool confirmAnswer = false;
    std::optional<std::string> chosenFolder;
    bool playerAccepts = true;
    bool isInteractive = false;
    // What was asked.
    std::vector<std::string> alerts, alertTexts, confirmations, chooserKeys, revealed, opened;
    int beeps = 0;
    int changes = 0;
    std::vector<int> states;  // each state told at once, repeats folded
};

// A fresh recordings folder, recent list and preferences for every test, the
// relay playlist in the test's own folder, and short time-outs; all put back
// afterwards.
class AppFixture : public ::testing::Test {
protected:
    void SetUp() override {
        saved_ = timing();
        timing().streamReadTimeout = 2;
        timing().connectRetryDelay = 0.05;
        timing().restartDelay = 0.1;
        std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        root_ = homePath("app-tests/" + name);
        std::filesystem::remove_all(root_);
        records_ = root_ + "/records";
        makeFolders(records_);
        Preferences::resetShared();
        DefaultsStore::standard().setObject(PlistValue(records_), "RECORDS_STORAGE_FOLDER");
        std::filesystem::remove_all(homePath("Library/Application Support/Quillon/Recents"));
        std::filesystem::remove(homePath("Library/Preferences/kv.recents.qln"));
        RelayPlaylist::setPath(root_ + "/restream.pls");
        MainLoop::main().runUntil([] { return true; }, 0);  // the test thread is the main thread
    }
    void TearDown() override {
        timing() = saved_;
        RelayPlaylist::setPath("");
        DefaultsStore::standard().removeObject("RECORDS_STORAGE_FOLDER");
        Preferences::resetShared();
    }

    Preferences& prefs() { return *Preferences::preferences(); }

    // A bookmark for the station, saved as a file (connections need one).
    std::shared_ptr<Bookmark> bookmarkFor(std::uint16_t port, const std::string& name) const {
        auto b = std::make_shared<Bookmark>();
        b->setName(name);
        b->setHost(std::string("127.0.0.1"));
        b->setPort(std::to_string(port));
        b->setPath(std::string("/stream"));
        std::string folder = root_ + "/bookmarks";
        makeFolders(folder);
        b->setFilePath(b->pathInFolder(folder));
        EXPECT_TRUE(b->saveToFile(folder));
        return b;
    }

    // A slow station: counter bytes at the announced rate, titles every 16 s.
    static std::unique_ptr<Station> startStation() {
        StationOptions o;
        o.payload = StationPayload::counter;
        o.rate = StationRate::realtime;
        o.metaint = 8192;
        o.bitrate = 128;
        auto station = std::make_unique<Station>(o);
        station->start();
        return station;
    }

    static bool runUntil(const std::function<bool()>& done, double seconds = 20) {
        return MainLoop::main().runUntil(done, seconds);
    }

    static std::string recentCopy(const std::string& name) {
        return homePath("Library/Application Support/Quillon/Recents/" + name + ".qlnbk");
    }

    Timing saved_;
    std::string root_;
    std::string records_;
};

}  // namespace quillon::test
