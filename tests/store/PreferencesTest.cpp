// The shared preferences: first start, start-up keys, the file, the old file,
// and readers on other threads.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "StoreTestSupport.h"
#include "platform/PlistCodec.h"
#include "store/KtPreferences.h"
#include "store/Preferences.h"

namespace quillon {
namespace {

using test::ScopedHome;

TEST(Preferences, FirstStartReadsEmptyWithDefaultGenres) {
    ScopedHome home;
    auto prefs = Preferences::preferences();
    EXPECT_EQ(prefs, Preferences::preferences());
    EXPECT_EQ(prefs->getParam("proxyHost"), "");
    EXPECT_FALSE(prefs->getState("reconnect"));
    ASSERT_EQ(prefs->genres().size(), 24u);
    EXPECT_EQ(prefs->genres().front(), "Acid Jazz");
    EXPECT_EQ(prefs->genres().back(), "World Music");
    EXPECT_EQ(prefs->getParam("webPort"), "8642");
    EXPECT_FALSE(prefs->getState("webAllInterfaces"));
    EXPECT_TRUE(prefs->objectForKey("versionHost").has_value());
    EXPECT_FALSE(std::filesystem::exists(home.file(Preferences::kRelativePath)));  // nothing saved yet
}

// Stored values win over the defaults, which fill only what the file lacks; the
// old file is read only while there is no current one.
TEST(Preferences, StoredValuesWinOverDefaultsAndTheOldFile) {
    ScopedHome home;
    makeFolders(home.file("Library/Preferences"));
    PlistValue::Dictionary old{{"proxyHost", PlistValue("old-proxy")}};
    ASSERT_TRUE(PlistCodec::writeXmlFile(home.file(Preferences::kOldRelativePath), PlistValue(old)));
    EXPECT_EQ(Preferences::preferences()->getParam("proxyHost"), "old-proxy");

    PlistValue::Dictionary current{{"webPort", PlistValue("9642")}, {"versionHost", PlistValue("h")}};
    ASSERT_TRUE(PlistCodec::writeXmlFile(home.file(Preferences::kRelativePath), PlistValue(current)));
    Preferences::resetShared();
    auto prefs = Preferences::preferences();
    EXPECT_EQ(prefs->getParam("proxyHost"), "");
    EXPECT_EQ(prefs->getParam("webPort"), "9642");
    EXPECT_EQ(prefs->getParam("versionHost"), "h");
    EXPECT_EQ(prefs->getParam("webAllInterfaces"), "NO");
    EXPECT_EQ(prefs->genres().size(), 24u);
}

TEST(Preferences, StartupKeys) {
    struct Case {
        std::optional<std::string> stored;
        std::string expected;
    };
    const Case cases[] = {
        {std::nullopt, "9000"}, {"", "9000"}, {"abc", "9000"}, {"0", "9000"}, {"9100", "9100"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.stored.value_or("(absent)"));
        ScopedHome home;
        auto prefs = Preferences::preferences();
        prefs->setParam(c.stored, "relayPort");
        prefs->writeStartupKeys();
        EXPECT_EQ(prefs->getParam("relayPort"), c.expected);
        EXPECT_EQ(prefs->getParam("version"), "1.7.2");
        EXPECT_EQ(prefs->getParam("configPath"), home.file("Library/Preferences/kv.config.qln"));
        EXPECT_EQ(prefs->getParam("historyPath"), home.file("Library/Preferences/kv.history.qln"));
        EXPECT_EQ(prefs->getParam("schedulesPath"), home.file("Library/Preferences/kv.schedules.qln"));
    }
}

TEST(Preferences, SavedValuesAreStringsAndComeBack) {
    ScopedHome home;
    auto prefs = Preferences::preferences();
    prefs->setState(false, "split");
    prefs->setState(true, "reconnect");
    prefs->setParam(std::string("12"), "chunkSize");
    prefs->setParam(std::nullopt, "chunkSize");
    // An emptied genre list is a choice, not a missing value.
    prefs->setObject(PlistValue(PlistValue::Array{}), Preferences::kGenresKey);
    ASSERT_TRUE(prefs->saveToFile());  // creates Library/Preferences

    auto saved = PlistCodec::readDictionaryFile(home.file(Preferences::kRelativePath));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("split"), PlistValue("NO"));
    EXPECT_EQ(saved->at("chunkSize"), PlistValue("12"));
    Preferences::resetShared();
    auto again = Preferences::preferences();
    EXPECT_EQ(again->getParam("chunkSize"), "12");
    EXPECT_FALSE(again->getState("split"));
    EXPECT_TRUE(again->getState("reconnect"));
    EXPECT_TRUE(again->genres().empty());
}

TEST(Preferences, SupportFoldersAreCreated) {
    ScopedHome home;
    auto recents = Preferences::recentFolderPath();
    auto tuner = Preferences::tunerFolderPath();
    ASSERT_TRUE(recents && tuner);
    EXPECT_EQ(*recents, home.file("Library/Application Support/Quillon/Recents/"));
    EXPECT_EQ(*tuner, home.file("Library/Application Support/Quillon/"));
    EXPECT_TRUE(std::filesystem::is_directory(*recents));

    ScopedHome blocked;
    test::writeText(blocked.file("Library"), "a file where the folder goes");
    EXPECT_FALSE(Preferences::tunerFolderPath().has_value());
}

// Recording threads read while the main thread writes.
TEST(Preferences, ReadersOnOtherThreadsSeeWholeValues) {
    ScopedHome home;
    auto prefs = Preferences::preferences();
    prefs->setParam(std::string("value-0"), "UserAgent name");
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    std::thread reader([&] {
        while (!done) {
            std::string v = prefs->getParam("UserAgent name");
            if (v.rfind("value-", 0) != 0) ++bad;
            prefs->getState("reconnect");
        }
    });
    for (int i = 0; i < 2000; ++i) {
        prefs->setParam("value-" + std::to_string(i), "UserAgent name");
        prefs->setState(i % 2 == 0, "reconnect");
    }
    done = true;
    reader.join();
    EXPECT_EQ(bad, 0);
}

class KtPreferencesTest : public ::testing::Test {
protected:
    void TearDown() override {
        KtPreferences::resetShared();
        KtPreferences::removeAllObservers();
    }
    ScopedHome home_;
};

TEST_F(KtPreferencesTest, LocalSettingsGoToTheStoreGlobalOnesToTheirOwnFile) {
    DefaultsStore store(home_.file("kt-defaults.plist"));
    KtPreferences local(store);
    local.setBool(true, "b");
    local.setFloat(1.5f, "f");
    local.setObject(PlistValue("s"), "o");
    EXPECT_EQ(store.objectForKey("b"), PlistValue::boolean(true));
    EXPECT_FLOAT_EQ(local.floatForKey("f"), 1.5f);
    EXPECT_TRUE(local.container().empty());
    local.removeObjectForKey("o");
    EXPECT_FALSE(store.objectForKey("o").has_value());
    local.registerDefaults({{"d", PlistValue::integer(3)}});
    EXPECT_EQ(local.intForKey("d"), 3);
    EXPECT_FALSE(local.inited());
    local.setInited();
    EXPECT_TRUE(local.inited());

    // A global one saves its file on every write and leaves the store alone.
    DefaultsStore unused(home_.file("kt-unused.plist"));
    KtPreferences global(unused);
    global.setGlobal(true);
    std::string file = home_.file("kt.plist");
    global.setFilePath(file);
    global.setBool(true, "b");
    EXPECT_EQ(PlistCodec::readDictionaryFile(file)->at("b"), PlistValue("YES"));
    global.registerDefaults({{"r", PlistValue("x")}});
    EXPECT_EQ(PlistCodec::readDictionaryFile(file)->count("r"), 1u);
    global.removeObjectForKey("b");
    EXPECT_EQ(PlistCodec::readDictionaryFile(file)->count("b"), 0u);
    EXPECT_FALSE(unused.objectForKey("r").has_value());
}

TEST_F(KtPreferencesTest, SharedInstanceAndChangeNotice) {
    EXPECT_EQ(KtPreferences::sharedPrefs(), nullptr);
    auto shared = KtPreferences::userPrefs();
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(KtPreferences::sharedPrefs(), shared);
    shared->setGlobal(true);
    EXPECT_EQ(KtPreferences::userPrefs(), nullptr);
    shared->setGlobal(false);

    std::vector<std::string> seen;
    KtPreferences::addObserver(
        [&](std::string_view name, KtPreferences& sender, const PlistValue::Dictionary& info) {
            EXPECT_EQ(&sender, shared.get());
            seen.push_back(std::string(name) + ":" + std::to_string(info.size()));
        });
    shared->updateValuesWithDictionary({{"kt-a", PlistValue("1")}, {"kt-b", PlistValue("2")}});
    EXPECT_EQ(seen, (std::vector<std::string>{"_KtPreferencesChanged:2"}));
    auto values = shared->getValuesForKeys({"kt-a", "kt-missing"});
    EXPECT_EQ(values.size(), 1u);
    EXPECT_EQ(values.at("kt-a"), PlistValue("1"));
}

}  // namespace
}  // namespace quillon
