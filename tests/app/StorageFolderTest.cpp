// The module folders kept in the defaults store and their verification, and
// the free-space rule of the recordings volume.
#include <gtest/gtest.h>

#include <filesystem>

#include "AppTestSupport.h"
#include "app/FreeSpace.h"
#include "app/StorageFolder.h"
#include "platform/Log.h"

namespace quillon {
namespace {

using test::FakeInterface;
using Module = StorageFolder::Module;

class StorageFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = test::testFolder("storage-tests");
        for (auto m : {Module::activity, Module::bookmarks, Module::history, Module::base})
            DefaultsStore::standard().removeObject(StorageFolder::forModule(m).storageFolderKey());
    }
    void TearDown() override {
        for (auto m : {Module::activity, Module::bookmarks, Module::history, Module::base})
            DefaultsStore::standard().removeObject(StorageFolder::forModule(m).storageFolderKey());
    }
    std::string root_;
};

TEST_F(StorageFolderTest, EachModuleHasItsKeyDefaultAndMessage) {
    struct Case {
        Module module;
        const char* key;
        std::string folder;
        const char* message;
        bool mayChoose;
    };
    const Case cases[] = {
        {Module::base, "ABSTRACT_STORAGE_FOLDER", "/tmp", "ERROR_INVALID_PATH_DEFAULT", false},
        {Module::activity, "RECORDS_STORAGE_FOLDER", homePath("Music"), "ERROR_RECORDS_FOLDER_INVALID", true},
        {Module::bookmarks, "_BOOKMARKS_PATH", homePath("Documents/QLN Bookmarks/"),
         "ERROR_BOOKMARKS_FOLDER_INVALID", true},
        {Module::history, "HISTORY_STORAGE_FOLDER", homePath("Library/Application Support/Quillon/History"),
         "ERROR_INVALID_PATH_DEFAULT", false},
        {Module::tuner, "ABSTRACT_STORAGE_FOLDER", "/tmp", "ERROR_INVALID_PATH_DEFAULT", false},
        {Module::schedules, "ABSTRACT_STORAGE_FOLDER", "/tmp", "ERROR_INVALID_PATH_DEFAULT", false},
    };
    for (const auto& c : cases) {
        StorageFolder folder = StorageFolder::forModule(c.module);
        SCOPED_TRACE(c.key);
        EXPECT_EQ(folder.storageFolderKey(), c.key);
        EXPECT_EQ(folder.defaultStorageFolder(), c.folder);
        EXPECT_EQ(folder.storageErrorMessage(), c.message);
        EXPECT_EQ(folder.userMayChoose(), c.mayChoose);
        // Read without a stored value: the default, and still nothing stored.
        EXPECT_EQ(folder.storageFolder(), c.folder);
        EXPECT_FALSE(DefaultsStore::standard().stringForKey(c.key).has_value());
    }
}

TEST_F(StorageFolderTest, VerifyingStoresTheDefaultAndChecksIt) {
    StorageFolder records = StorageFolder::records();
    std::filesystem::remove_all(homePath("Music"));
    EXPECT_FALSE(records.verifyStorageFolder(nullptr));
    EXPECT_EQ(DefaultsStore::standard().stringForKey("RECORDS_STORAGE_FOLDER"), homePath("Music"));
    makeFolders(homePath("Music"));
    EXPECT_TRUE(records.verifyStorageFolder(nullptr));
}

TEST_F(StorageFolderTest, OnlyARealDirectoryIsUsable) {
    std::string dir = root_ + "/dir";
    std::string link = root_ + "/link";
    std::string file = root_ + "/file";
    makeFolders(dir);
    std::filesystem::create_directory_symlink(dir, link);
    test::writeText(file, "x");
    struct Case {
        std::string path;
        bool usable;
    };
    const Case cases[] = {
        {dir, true}, {link, false}, {file, false}, {root_ + "/missing", false}, {"", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(StorageFolder::isUsableFolder(c.path), c.usable);
        StorageFolder::records().setStorageFolder(c.path);
        EXPECT_EQ(StorageFolder::records().verifyStorageFolder(nullptr), c.usable);
    }
}

TEST_F(StorageFolderTest, AnInteractiveCheckAsksOnlyWhereTheModuleLetsTheUserChoose) {
    std::string gone = root_ + "/gone";
    std::string picked = root_ + "/picked";
    makeFolders(picked);
    FakeInterface ui;
    ui.isInteractive = true;

    // Recordings: the user picks a folder, which is stored.
    StorageFolder::records().setStorageFolder(gone);
    ui.chosenFolder = picked;
    EXPECT_TRUE(StorageFolder::records().verifyStorageFolder(&ui));
    EXPECT_EQ(ui.chooserKeys, std::vector<std::string>{"ERROR_RECORDS_FOLDER_INVALID"});
    EXPECT_EQ(StorageFolder::records().storageFolder(), picked);

    // The user cancels: nothing stored.
    StorageFolder::records().setStorageFolder(gone);
    ui.chosenFolder.reset();
    EXPECT_FALSE(StorageFolder::records().verifyStorageFolder(&ui));
    EXPECT_EQ(StorageFolder::records().storageFolder(), gone);

    // History: the message only, no chooser.
    StorageFolder history = StorageFolder::forModule(Module::history);
    history.setStorageFolder(gone);
    ui.chooserKeys.clear();
    ui.chosenFolder = picked;
    EXPECT_FALSE(history.verifyStorageFolder(&ui));
    EXPECT_TRUE(ui.chooserKeys.empty());
    EXPECT_EQ(ui.alerts, std::vector<std::string>{"ERROR_INVALID_PATH_DEFAULT"});

    // Not interactive: nothing is shown at all.
    FakeInterface quiet;
    quiet.chosenFolder = picked;
    StorageFolder::records().setStorageFolder(gone);
    EXPECT_FALSE(StorageFolder::records().verifyStorageFolder(&quiet));
    EXPECT_TRUE(quiet.alerts.empty());
    EXPECT_TRUE(quiet.chooserKeys.empty());
}

TEST(FreeSpaceTest, TheBoundaryIsStrictlyMoreThan100MiB) {
    struct Case {
        std::uint64_t free;
        bool enough;
        bool logged;
    };
    const Case cases[] = {
        {0, false, true},
        {104857599, false, true},
        {104857600, false, false},  // exactly the minimum: silent, and still not enough
        {104857601, true, false},
        {0xFFFFFFFFull, true, false},
        {0x100000000ull, true, false},  // beyond 32 bits: always enough
        {5ull << 30, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.free);
        Log::Capture log;
        std::string asked;
        FreeSpace check(
            [&](const std::string& path) {
                asked = path;
                return std::optional<std::uint64_t>(c.free);
            },
            [] { return std::string("/volume/records"); });
        EXPECT_EQ(check.hasEnoughFreeSpace(), c.enough);
        EXPECT_EQ(asked, "/volume/records");
        EXPECT_EQ(log.contains("Free space on destination volume"), c.logged);
    }
}

TEST(FreeSpaceTest, TheLogLineCarriesAReadableSize) {
    Log::Capture log;
    EXPECT_FALSE(FreeSpace::isEnough(52428800));
    EXPECT_TRUE(log.contains("Free space on destination volume 50.0 MB"));
}

TEST(FreeSpaceTest, AnUnknownVolumeDoesNotStopRecording) {
    FreeSpace check([](const std::string&) { return std::optional<std::uint64_t>(); },
                    [] { return std::string("/x"); });
    EXPECT_TRUE(check.hasEnoughFreeSpace());
}

}  // namespace
}  // namespace quillon
