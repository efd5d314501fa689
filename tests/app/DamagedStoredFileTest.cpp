// Stored files that exist but cannot be read: the settings, a history day, the
// defaults store and the recent list are each moved aside with their bytes
// intact, with a warning naming both paths, before a fresh file is written; a
// missing file starts afresh without a word.
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
    std::function<void()> writeGood;    // the product writes a good file
    std::function<void()> loadAndSave;  // the product reads it, then saves
};

// The files in `folder` whose names start with `name` + ".damaged-".
std::vector<std::string> asideFiles(const std::string& path) {
    std::vector<std::string> out;
    std::string prefix = std::filesystem::path(path).filename().string() + ".damaged-";
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
        if (entry.path().filename().string().rfind(prefix, 0) == 0) out.push_back(entry.path().string());
    }
    return out;
}

class DamagedStoredFile : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = testFolder("damaged");
        Preferences::resetShared();
    }
    void TearDown() override {
        Preferences::resetShared();
        std::filesystem::remove_all(homePath("Library/Preferences"));
    }

    std::vector<StoredFile> files() const {
        std::string historyFolder = folder_ + "/History";
        makeFolders(historyFolder);
        auto addTrack = [historyFolder](const std::string& title) {
            History history(historyFolder);
            history.loadFromPath(historyFolder);
            auto item = HistoryItem::newItem(title, "Jazz FM", 1);
            item->setRecDate(localDate(2008, 7, 5, 9));
            history.addObjectToHistory(item);
        };
        std::string defaults = folder_ + "/defaults.plist";
        std::string recents = folder_ + "/kv.recents.qln";
        return {
            {"preferences", homePath(Preferences::kRelativePath),
             [] {
                 auto prefs = Preferences::preferences();
                 prefs->setParam(std::string("9100"), "relayPort");
                 ASSERT_TRUE(prefs->saveToFile());
                 Preferences::resetShared();
             },
             [] {
                 ASSERT_TRUE(Preferences::preferences()->saveToFile());
                 Preferences::resetShared();
             }},
            {"history day", historyFolder + "/2008_07_05.historyDB", [addTrack] { addTrack("Earlier"); },
             [addTrack] { addTrack("Later"); }},
            {"defaults store", defaults,
             [defaults] { DefaultsStore(defaults).setInt(3, "_ToolbarColorIndex"); },
             [defaults] {
                 DefaultsStore store(defaults);
                 store.intForKey("_ToolbarColorIndex");
                 store.setInt(4, "_ToolbarColorIndex");
             }},
            {"recent list", recents, [recents] { RecentMenu(recents).addRecent("/a.qlnbk", "Jazz FM"); },
             [recents] { RecentMenu menu(recents); }},
        };
    }

    std::string folder_;
};

// Damage done to a good file: one byte, a lost end, or a good property list of
// the wrong shape.
struct Damage {
    const char* name;
    std::function<Bytes(Bytes)> apply;
};

void expectMovedAside(const StoredFile& file, const Damage& damage) {
    std::filesystem::remove_all(std::filesystem::path(file.path).parent_path());
    makeFolders(std::filesystem::path(file.path).parent_path().string());
    file.writeGood();
    auto good = readWholeFile(file.path);
    ASSERT_TRUE(good.has_value());
    Bytes damaged = damage.apply(*good);
    ASSERT_TRUE(writeFileAtomically(file.path, damaged));

    Log::Capture log;
    file.loadAndSave();

    auto aside = asideFiles(file.path);
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(readWholeFile(aside[0]), damaged);  // nothing lost
    EXPECT_TRUE(log.contains(file.path + " cannot be read"));
    EXPECT_TRUE(log.contains(aside[0]));
    auto fresh = PlistCodec::readFile(file.path);
    ASSERT_TRUE(fresh.has_value()) << "no fresh file was written";
    EXPECT_EQ(fresh->kind(), PlistCodec::decode(*good)->kind());
}

TEST_F(DamagedStoredFile, IsMovedAsideWithItsBytesBeforeAFreshOneIsWritten) {
    const Damage damages[] = {
        {"first byte",
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
    for (const Damage& damage : damages) {
        for (const StoredFile& file : files()) {
            SCOPED_TRACE(std::string(file.name) + ", " + damage.name);
            expectMovedAside(file, damage);
        }
    }
}

TEST_F(DamagedStoredFile, AMissingFileStartsAfreshWithoutAWord) {
    for (const StoredFile& file : files()) {
        SCOPED_TRACE(file.name);
        std::filesystem::remove(file.path);
        Log::Capture log;
        file.loadAndSave();
        EXPECT_TRUE(asideFiles(file.path).empty());
        EXPECT_FALSE(log.contains("cannot be read"));
        EXPECT_TRUE(PlistCodec::readFile(file.path).has_value());
    }
}

}  // namespace
}  // namespace quillon::test
