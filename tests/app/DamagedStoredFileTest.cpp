// Stored files that exist but cannot be read (settings, a history day, the
// defaults store, the recent list) go aside with their bytes intact and a
// warning naming both paths before a fresh file is written; a missing file
// starts afresh without a word.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "app/RecentMenu.h"
#include "history/History.h"
#include "platform/AtomicFile.h"
#include "platform/DefaultsStore.h"
#include "platform/Log.h"
#include "platform/PlistCodec.h"
#include "store/Preferences.h"
#include "support/Dates.h"
#include "support/Files.h"

namespace quillon::test {
namespace {

struct StoredFile {
    const char* name;
    std::string path;
    std::function<void()> loadAndSave;  // as the product does: read, then write back
};

std::vector<StoredFile> storedFiles(const std::string& folder) {
    auto addTrack = [folder] {
        History history(folder);
        history.loadFromPath(folder);
        auto item = HistoryItem::newItem("Track", "Jazz FM", 1);
        item->setRecDate(localDate(2008, 7, 5, 9));
        history.addObjectToHistory(item);
    };
    std::string defaults = folder + "/defaults.plist", recents = folder + "/kv.recents.qln";
    return {
        {"preferences", homePath(Preferences::kRelativePath),
         [] {
             Preferences::resetShared();
             ASSERT_TRUE(Preferences::preferences()->saveToFile());
         }},
        {"history day", folder + "/2008_07_05.historyDB", addTrack},
        {"defaults store", defaults, [defaults] { DefaultsStore(defaults).setInt(4, "_ToolbarColorIndex"); }},
        {"recent list", recents, [recents] { RecentMenu(recents).addRecent("/a.qlnbk", "Jazz FM"); }},
    };
}

std::vector<std::string> asideFiles(const std::string& path) {
    std::vector<std::string> out;
    std::string prefix = std::filesystem::path(path).filename().string() + ".damaged-";
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path()))
        if (entry.path().filename().string().rfind(prefix, 0) == 0) out.push_back(entry.path().string());
    return out;
}

class DamagedStoredFile : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = testFolder("damaged");
        makeFolders(homePath("Library/Preferences"));
    }
    void TearDown() override {
        Preferences::resetShared();
        std::filesystem::remove_all(homePath("Library/Preferences"));
    }
    std::string folder_;
};

TEST_F(DamagedStoredFile, IsMovedAsideWithItsBytesBeforeAFreshOneIsWritten) {
    const std::pair<const char*, std::function<Bytes(Bytes)>> damages[] = {
        {"one byte",
         [](Bytes b) {
             b[0] ^= 0x20;
             return b;
         }},
        {"cut short",
         [](Bytes b) {
             b.resize(b.size() / 2);
             return b;
         }},
        {"wrong root", [](Bytes) { return PlistCodec::encodeXml(PlistValue("just text")); }},
    };
    for (const auto& [damage, apply] : damages) {
        for (const StoredFile& file : storedFiles(folder_)) {
            SCOPED_TRACE(std::string(file.name) + ", " + damage);
            for (const auto& old : asideFiles(file.path)) std::filesystem::remove(old);
            file.loadAndSave();  // a good file, written by the product
            auto good = readWholeFile(file.path);
            ASSERT_TRUE(good.has_value());
            Bytes damaged = apply(*good);
            ASSERT_TRUE(writeFileAtomically(file.path, damaged));

            Log::Capture log;
            file.loadAndSave();
            auto aside = asideFiles(file.path);
            ASSERT_EQ(aside.size(), 1u);
            EXPECT_EQ(readWholeFile(aside[0]), damaged);  // nothing lost
            EXPECT_TRUE(log.contains(file.path + " cannot be read"));
            EXPECT_TRUE(log.contains(aside[0]));
            auto fresh = PlistCodec::readFile(file.path);
            ASSERT_TRUE(fresh.has_value());
            EXPECT_EQ(fresh->kind(), PlistCodec::decode(*good)->kind());
        }
    }
}

TEST_F(DamagedStoredFile, AMissingFileStartsAfreshWithoutAWord) {
    for (const StoredFile& file : storedFiles(folder_)) {
        SCOPED_TRACE(file.name);
        Log::Capture log;
        file.loadAndSave();
        EXPECT_TRUE(asideFiles(file.path).empty());
        EXPECT_FALSE(log.contains("cannot be read"));
        EXPECT_TRUE(PlistCodec::readFile(file.path).has_value());
    }
}

}  // namespace
}  // namespace quillon::test
