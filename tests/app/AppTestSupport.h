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
#include "engine/RipperTestSupport.h"
#include "net/RelayPlaylist.h"
#include "platform/DefaultsStore.h"

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
        Ripper::State state = connection.ripperState();
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
    std::vector<Ripper::State> states;  // the state at each telling, repeats folded
};

// A connection fixture with the activity list's surroundings: the recordings
// folder kept as the stored one, an empty recent list, and the relay playlist
// in the test's own folder; all put back afterwards.
class AppFixture : public RipperFixture {
protected:
    void SetUp() override {
        RipperFixture::SetUp();
        records_ = folder_ + "/records";
        makeFolders(records_);
        DefaultsStore::standard().setObject(PlistValue(records_), "RECORDS_STORAGE_FOLDER");
        std::filesystem::remove_all(homePath("Library/Application Support/Quillon/Recents"));
        std::filesystem::remove(homePath("Library/Preferences/kv.recents.qln"));
        RelayPlaylist::setPath(folder_ + "/restream.pls");
    }
    void TearDown() override {
        RelayPlaylist::setPath("");
        DefaultsStore::standard().removeObject("RECORDS_STORAGE_FOLDER");
        RipperFixture::TearDown();
    }

    // A bookmark for the station, saved as a file (connections need one).
    std::shared_ptr<Bookmark> bookmarkFor(std::uint16_t port, const std::string& name) const {
        auto b = RipperFixture::bookmarkFor(port, name);
        std::string folder = folder_ + "/bookmarks";
        makeFolders(folder);
        b->setFilePath(b->pathInFolder(folder));
        EXPECT_TRUE(b->saveToFile(folder));
        return b;
    }

    // A slow station: counter bytes at the announced rate, titles every 16 s.
    static std::unique_ptr<Station> startStation() {
        StationOptions options = counterStation();
        options.rate = StationRate::realtime;
        options.metaint = 8192;
        auto station = std::make_unique<Station>(options);
        station->start();
        return station;
    }

    static std::string recentCopy(const std::string& name) {
        return homePath("Library/Application Support/Quillon/Recents/" + name + ".qlnbk");
    }

    std::string records_;
};

}  // namespace quillon::test
