// The recent-connections list: at most 16 entries, one per name, newest shown
// first, bookmark copies deleted with their entries, and its stored form read
// by an independent reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "AppTestSupport.h"
#include "app/RecentMenu.h"
#include "platform/AtomicFile.h"
#include "platform/PlistCodec.h"

namespace quillon {
namespace {

class RecentMenuTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = test::testFolder("recent-tests");
        makeFolders(root_ + "/Recents");
        listPath_ = root_ + "/Preferences/kv.recents.qln";
    }

    // Adds an entry the way a connection does: a copy file, then the entry.
    void add(RecentMenu& menu, const std::string& name) {
        std::string copy = root_ + "/Recents/" + name + ".qlnbk";
        test::writeText(copy, name);
        menu.addRecent(copy, name);
    }

    static std::vector<std::string> titles(const std::vector<RecentMenuItem>& items) {
        std::vector<std::string> out;
        for (const auto& i : items) out.push_back(i.title());
        return out;
    }

    std::string root_;
    std::string listPath_;
};

TEST_F(RecentMenuTest, TheSeventeenthNameDropsTheOldestAndItsCopy) {
    RecentMenu menu(listPath_);
    for (int i = 1; i <= 16; ++i) add(menu, "Station " + std::to_string(i));
    ASSERT_EQ(menu.subItems().size(), 16u);
    std::string oldest = menu.subItems().front().filePath();
    ASSERT_TRUE(std::filesystem::exists(oldest));

    add(menu, "Station 17");
    EXPECT_EQ(menu.subItems().size(), 16u);
    EXPECT_EQ(menu.subItems().front().title(), "Station 2");
    EXPECT_EQ(menu.subItems().back().title(), "Station 17");
    EXPECT_FALSE(std::filesystem::exists(oldest));
    // Every remaining entry still has its copy, and no other copy is left.
    EXPECT_EQ(test::countEntries(root_ + "/Recents"), 16u);
    for (const auto& item : menu.subItems())
        EXPECT_TRUE(std::filesystem::exists(item.filePath())) << item.title();
}

TEST_F(RecentMenuTest, AListedNameMovesToTheTopWithoutGrowingTheList) {
    RecentMenu menu(listPath_);
    add(menu, "A");
    add(menu, "B");
    add(menu, "C");
    add(menu, "A");
    EXPECT_EQ(titles(menu.subItems()), (std::vector<std::string>{"B", "C", "A"}));
    // The menu shows the newest first.
    EXPECT_EQ(titles(menu.menuItems()), (std::vector<std::string>{"A", "C", "B"}));
    // The copy of the re-added name is its new copy, not deleted.
    EXPECT_TRUE(std::filesystem::exists(menu.subItems().back().filePath()));
}

TEST_F(RecentMenuTest, RepeatedNamesInALoadedListAllGo) {
    // Two adjacent duplicates must both be removed (no skipping after an erase).
    RecentMenu menu(listPath_);
    menu.setArray({{"X", "/x1"}, {"X", "/x2"}, {"Y", "/y"}, {"X", "/x3"}});
    menu.addRecent("/x4", "X");
    EXPECT_EQ(titles(menu.subItems()), (std::vector<std::string>{"Y", "X"}));
    EXPECT_EQ(menu.subItems().back().filePath(), "/x4");
}

TEST_F(RecentMenuTest, TheListSurvivesARestart) {
    {
        RecentMenu menu(listPath_);
        add(menu, "One");
        add(menu, "Two");
    }
    RecentMenu again(listPath_);
    EXPECT_EQ(titles(again.subItems()), (std::vector<std::string>{"One", "Two"}));
    EXPECT_EQ(again.subItems()[0].filePath(), root_ + "/Recents/One.qlnbk");
}

TEST_F(RecentMenuTest, BadStoredFormsAreSkippedOrRefused) {
    // Entries of the wrong shape are skipped; the good ones kept.
    PlistValue::Array stored{
        PlistValue(PlistValue::Array{"Good", "/good.qlnbk"}),
        PlistValue(PlistValue::Array{"OnlyTitle"}),
        PlistValue(PlistValue::Array{PlistValue::integer(3), "/x"}),
        PlistValue("just a string"),
        PlistValue(PlistValue::Array{"Also good", "/also.qlnbk", "extra"}),
    };
    makeFolders(root_ + "/Preferences");
    ASSERT_TRUE(writeFileAtomically(listPath_, PlistCodec::encodeBinary(PlistValue(stored))));
    RecentMenu menu(listPath_);
    EXPECT_EQ(titles(menu.subItems()), (std::vector<std::string>{"Good", "Also good"}));

    // A file that is no list leaves the list as it was.
    const std::string garbage = "not a property list";
    ASSERT_TRUE(writeFileAtomically(
        listPath_, std::span(reinterpret_cast<const std::uint8_t*>(garbage.data()), garbage.size())));
    EXPECT_FALSE(menu.loadFromFile());
    EXPECT_EQ(menu.subItems().size(), 2u);
}

TEST_F(RecentMenuTest, ChoosingAnEntryHandsOnItsPath) {
    RecentMenu menu(listPath_);
    add(menu, "Old");
    add(menu, "New");
    std::vector<std::string> opened;
    menu.setOpenHandler([&](const std::string& path) { opened.push_back(path); });
    menu.connect(0);  // the top of the menu: the newest
    menu.connect(5);  // no such entry
    EXPECT_EQ(opened, std::vector<std::string>{root_ + "/Recents/New.qlnbk"});
}

TEST_F(RecentMenuTest, PythonReadsTheStoredList) {
    const char* python = "/usr/bin/python3";
    if (!std::filesystem::exists(python)) GTEST_SKIP() << "python3 is not installed";
    {
        RecentMenu menu(listPath_);
        add(menu, "Jazz FM");
        add(menu, "Radio 2");
    }
    // The file must be a binary property list: plistlib is told the format.
    std::string command = std::string(python) +
                          " -c \"import plistlib,sys;"
                          "d=plistlib.load(open(sys.argv[1],'rb'),fmt=plistlib.FMT_BINARY);"
                          "print('|'.join(t+'='+p for t,p in d))\" '" +
                          listPath_ + "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe)) out += buffer;
    ASSERT_EQ(::pclose(pipe), 0) << out;
    EXPECT_EQ(out,
              "Jazz FM=" + root_ + "/Recents/Jazz FM.qlnbk|Radio 2=" + root_ + "/Recents/Radio 2.qlnbk\n");
}

}  // namespace
}  // namespace quillon
