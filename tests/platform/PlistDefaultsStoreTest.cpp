// The per-user defaults store: persistence, registered defaults, the value
// readings, following the home folder, and corrupt files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/DefaultsStore.h"
#include "platform/PlistCodec.h"
#include "support/Files.h"

namespace quillon {
namespace {

class DefaultsStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = test::testFolder("defaults");
        file_ = (folder_ / "store.plist").string();
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }
    std::filesystem::path folder_;
    std::string file_;
};

TEST_F(DefaultsStoreTest, WritesAreSavedWithTheirKinds) {
    {
        DefaultsStore store(file_);
        EXPECT_TRUE(store.setObject(PlistValue("/music"), "RECORDS_STORAGE_FOLDER"));
        EXPECT_TRUE(store.setInt(3, "_ToolbarColorIndex"));
        EXPECT_TRUE(store.setBool(true, "flag"));
        EXPECT_TRUE(store.setFloat(0.5f, "ratio"));
    }
    auto saved = PlistCodec::readDictionaryFile(file_);
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("RECORDS_STORAGE_FOLDER"), PlistValue("/music"));
    EXPECT_EQ(saved->at("_ToolbarColorIndex"), PlistValue::integer(3));
    EXPECT_EQ(saved->at("flag"), PlistValue::boolean(true));
    EXPECT_EQ(saved->at("ratio"), PlistValue::real(0.5));

    DefaultsStore again(file_);
    EXPECT_EQ(again.stringForKey("RECORDS_STORAGE_FOLDER"), "/music");
    EXPECT_EQ(again.intForKey("_ToolbarColorIndex"), 3);
    EXPECT_TRUE(again.boolForKey("flag"));
    EXPECT_FLOAT_EQ(again.floatForKey("ratio"), 0.5f);
    EXPECT_TRUE(again.removeObject("flag"));
    EXPECT_FALSE(DefaultsStore(file_).objectForKey("flag").has_value());

    // Registered defaults are fallbacks, never written.
    again.registerDefaults({{"a", PlistValue("default")}, {"ratio", PlistValue("default")}});
    EXPECT_EQ(again.stringForKey("a"), "default");
    EXPECT_FLOAT_EQ(again.floatForKey("ratio"), 0.5f);
    EXPECT_EQ(PlistCodec::readDictionaryFile(file_)->count("a"), 0u);

    // What another process writes is seen at the next read.
    ASSERT_TRUE(
        PlistCodec::writeXmlFile(file_, PlistValue(PlistValue::Dictionary{{"a", PlistValue("theirs")}})));
    EXPECT_EQ(again.stringForKey("a"), "theirs");
}

TEST_F(DefaultsStoreTest, BooleanAndNumberReadings) {
    DefaultsStore store(file_);
    struct Case {
        PlistValue value;
        bool asBool;
        int asInt;
    };
    const Case cases[] = {
        {PlistValue("YES"), true, 0},         {PlistValue("true"), true, 0},
        {PlistValue("no"), false, 0},         {PlistValue("12"), true, 12},
        {PlistValue("0"), false, 0},          {PlistValue::integer(0), false, 0},
        {PlistValue::integer(7), true, 7},    {PlistValue::real(2.9), true, 2},
        {PlistValue::boolean(true), true, 1}, {PlistValue(PlistValue::Array{}), false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value.text());
        store.setObject(c.value, "k");
        EXPECT_EQ(store.boolForKey("k"), c.asBool);
        EXPECT_EQ(store.intForKey("k"), c.asInt);
    }
    EXPECT_FALSE(store.stringForKey("k").has_value());  // an array is no string
}

TEST_F(DefaultsStoreTest, CorruptFileGoesAsideAndMemoryStays) {
    DefaultsStore store(file_);
    store.setObject(PlistValue("kept"), "k");
    const std::string garbage = "<?xml version=\"1.0\"?><plist><dict><key>k</key><string>tru";
    test::writeText(file_, garbage);
    EXPECT_EQ(store.stringForKey("k"), "kept");
    EXPECT_FALSE(std::filesystem::exists(file_));
    EXPECT_EQ(test::countEntries(folder_), 1u);  // the damaged file, under another name

    // A file whose root is an array is no store either.
    ASSERT_TRUE(PlistCodec::writeXmlFile(file_, PlistValue(PlistValue::Array{PlistValue("x")})));
    EXPECT_EQ(store.stringForKey("k"), "kept");
    EXPECT_EQ(test::countEntries(folder_), 2u);
    EXPECT_TRUE(store.setObject(PlistValue("new"), "n"));
    EXPECT_EQ(PlistCodec::readDictionaryFile(file_)->size(), 2u);
}

TEST_F(DefaultsStoreTest, SharedStoreFollowsTheHomeFolder) {
    std::string previous = std::getenv("QUILLON_HOME");
    std::string homeA = (folder_ / "a").string();
    std::string homeB = (folder_ / "b").string();
    ::setenv("QUILLON_HOME", homeA.c_str(), 1);
    DefaultsStore::standard().setObject(PlistValue("in a"), "where");
    EXPECT_EQ(DefaultsStore::standard().path(), homeA + "/" + DefaultsStore::kRelativePath);
    EXPECT_TRUE(std::filesystem::exists(homeA + "/Library/Preferences/quillon.defaults.plist"));
    ::setenv("QUILLON_HOME", homeB.c_str(), 1);
    EXPECT_FALSE(DefaultsStore::standard().objectForKey("where").has_value());
    ::setenv("QUILLON_HOME", homeA.c_str(), 1);
    EXPECT_EQ(DefaultsStore::standard().stringForKey("where"), "in a");
    ::setenv("QUILLON_HOME", previous.c_str(), 1);
}

}  // namespace
}  // namespace quillon
