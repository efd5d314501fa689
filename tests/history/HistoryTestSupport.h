#pragma once
// Helpers of the history tests: a fresh history folder per test and an item
// maker.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "history/History.h"
#include "history/HistoryItem.h"
#include "store/Preferences.h"
#include "support/Dates.h"
#include "support/Files.h"

namespace quillon::test {

inline std::shared_ptr<HistoryItem> makeItem(const std::string& track, const std::string& radio,
                                             std::chrono::system_clock::time_point when, bool complete,
                                             bool skipped = false, const std::string& path = "") {
    auto item = HistoryItem::newItem(track, radio, 3);
    item->setRecDate(when);
    item->setComplete(complete);
    item->setSkipped(skipped);
    if (!path.empty()) item->setPath(path);
    return item;
}

// A folder of its own for each test, under the test binary's home; the shared
// history and preferences are forgotten before and after.
class HistoryFixture : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = testFolder("history-tests");
        History::resetShared();
        Preferences::resetShared();
    }
    void TearDown() override {
        History::resetShared();
        Preferences::resetShared();
        std::error_code ec;
        std::filesystem::remove_all(folder_, ec);
    }

    std::string dayFile(const std::string& key) const { return folder_ + "/" + key + ".historyDB"; }

    std::string folder_;
};

}  // namespace quillon::test
