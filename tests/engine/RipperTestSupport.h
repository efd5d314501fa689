#pragma once
// Shared pieces of the recording-connection tests: an owner that records every
// state the connection shows, a station on loopback, a bookmark for it, and
// shortened time-outs restored after each test.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/Ripper.h"
#include "engine/RipperOwner.h"
#include "platform/Home.h"
#include "station/Station.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"
#include "support/Files.h"
#include "support/MainThread.h"

namespace quillon::test {

class RecordingOwner : public RipperOwner {
public:
    explicit RecordingOwner(std::string folder) : folder_(std::move(folder)) { makeFolders(folder_); }
    std::uint16_t firstFreeRelay() override { return 9000; }
    std::string downloadPath() override { return folder_; }
    void refreshDetails(Ripper& changed) override {
        Ripper::State state = changed.ripperState();
        if (states_.empty() || states_.back() != state) states_.push_back(state);
    }
    // Each state the connection entered, repeats folded.
    const std::vector<Ripper::State>& states() const { return states_; }
    const std::string& folder() const { return folder_; }

private:
    std::string folder_;
    std::vector<Ripper::State> states_;
};

// A recordings folder of its own, fresh preferences and short time-outs for
// each test; the timing table and the shared preferences are put back afterwards.
class RipperFixture : public ::testing::Test {
protected:
    void SetUp() override {
        timing().streamReadTimeout = 2;
        timing().connectRetryDelay = 0.05;
        timing().restartDelay = 0.1;
        folder_ = testFolder("recordings");
        Preferences::resetShared();
        becomeMainThread();
    }
    void TearDown() override { Preferences::resetShared(); }

    Preferences& prefs() { return *Preferences::preferences(); }

    static std::shared_ptr<Bookmark> bookmarkFor(std::uint16_t port, const std::string& name = "Test Radio") {
        auto b = std::make_shared<Bookmark>();
        b->setName(name);
        b->setHost(std::string("127.0.0.1"));
        b->setPort(std::to_string(port));
        b->setPath(std::string("/stream"));
        b->setGenre(std::string("Jazz"));
        return b;
    }

    static StationOptions counterStation() {
        StationOptions o;
        o.payload = StationPayload::counter;
        o.rate = StationRate::max;
        o.metaint = 16000;
        o.bitrate = 128;
        return o;
    }

    std::vector<std::string> filesUnder(const std::string& folder) const {
        std::vector<std::string> out;
        if (!std::filesystem::exists(folder)) return out;
        for (auto& e : std::filesystem::recursive_directory_iterator(folder))
            if (e.is_regular_file()) out.push_back(std::filesystem::relative(e.path(), folder).string());
        std::sort(out.begin(), out.end());
        return out;
    }

    ScopedTiming savedTiming_;
    std::string folder_;
};

}  // namespace quillon::test
