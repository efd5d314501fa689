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
    EXPECT_EQ(prefs->getParam("anything"), "");
    EXPECT_FALSE(prefs->getState("reconnect"));
    ASSERT_EQ(prefs->genres().size(), 24u);
    EXPECT_EQ(prefs->genres().front(), "Acid Jazz");
    EXPECT_EQ(prefs->genres()[2], "Blues/R&B");
    EXPECT_EQ(prefs->genres().back(), "World Music");
    EXPECT_EQ(prefs->fileType(), "prf");
    EXPECT_EQ(prefs->getParam("webPort"), "8642");
    EXPECT_FALSE(prefs->getState("webAllInterfaces"));
    EXPECT_TRUE(prefs->objectForKey("versionHost").has_value());
    EXPECT_FALSE(std::filesystem::exists(home.file(Preferences::kRelativePath)));  // nothing saved yet
}

TEST(Preferences, DefaultsLeaveStoredValues) {
    ScopedHome home;
    makeFolders(home.file("Library/Preferences"));
    ASSERT_TRUE(
        PlistCodec::writeXmlFile(home.file(Preferences::kRelativePath),
                                 PlistValue(PlistValue::Dictionary{{"webPort", PlistValue("9642")},
                                                                   {"versionHost", PlistValue("h")}})));
    auto prefs = Preferences::preferences();
    EXPECT_EQ(prefs->getParam("webPort"), "9642");
    EXPECT_EQ(prefs->getParam("versionHost"), "h");
    EXPECT_EQ(prefs->getParam("webAllInterfaces"), "NO");
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

TEST(Preferences, StatesAndParamsAreStringsInTheFile) {
    ScopedHome home;
    auto prefs = Preferences::preferences();
    prefs->setState(false, "split");
    prefs->setState(true, "reconnect");
    prefs->setParam(std::string("12"), "chunkSize");
    prefs->setParam(std::nullopt, "chunkSize");
    EXPECT_EQ(prefs->objectForKey("split"), PlistValue("NO"));
    EXPECT_FALSE(prefs->getState("split"));
    EXPECT_TRUE(prefs->getState("reconnect"));
    ASSERT_TRUE(prefs->saveToFile());  // creates Library/Preferences

    auto saved = PlistCodec::readDictionaryFile(home.file(Preferences::kRelativePath));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("split"), PlistValue("NO"));
    EXPECT_EQ(saved->at("chunkSize"), PlistValue("12"));
    Preferences::resetShared();
    EXPECT_EQ(Preferences::preferences()->getParam("chunkSize"), "12");
}

TEST(Preferences, AnEmptiedGenreListStaysEmpty) {
    ScopedHome home;
    auto prefs = Preferences::preferences();
    prefs->setObject(PlistValue(PlistValue::Array{}), Preferences::kGenresKey);
    ASSERT_TRUE(prefs->saveToFile());
    Preferences::resetShared();
    auto again = Preferences::preferences();
    EXPECT_TRUE(again->objectForKey(Preferences::kGenresKey).has_value());
    EXPECT_TRUE(again->genres().empty());
}

TEST(Preferences, OldSettingsOnlyWhenThereIsNoFile) {
    ScopedHome home;
    std::filesystem::create_directories(home.file("Library/Preferences"));
    PlistValue::Dictionary old{{"proxyHost", PlistValue("old-proxy")}};
    ASSERT_TRUE(PlistCodec::writeXmlFile(home.file(Preferences::kOldRelativePath), PlistValue(old)));
    EXPECT_EQ(Preferences::preferences()->getParam("proxyHost"), "old-proxy");

    PlistValue::Dictionary current{{"relayPort", PlistValue("9300")}};
    ASSERT_TRUE(PlistCodec::writeXmlFile(home.file(Preferences::kRelativePath), PlistValue(current)));
    Preferences::resetShared();
    auto prefs = Preferences::preferences();
    EXPECT_EQ(prefs->getParam("proxyHost"), "");
    EXPECT_EQ(prefs->getParam("relayPort"), "9300");
    EXPECT_EQ(prefs->genres().size(), 24u);  // defaults fill what the file lacks
}

TEST(Preferences, CorruptFileIsMovedAsideNotOverwritten) {
    ScopedHome home;
    std::filesystem::create_directories(home.file("Library/Preferences"));
    const std::string garbage = "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict><key>relayPort";
    test::writeText(home.file(Preferences::kRelativePath), garbage);
    auto prefs = Preferences::preferences();
    EXPECT_EQ(prefs->getParam("relayPort"), "");
    EXPECT_EQ(prefs->genres().size(), 24u);
    EXPECT_FALSE(std::filesystem::exists(home.file(Preferences::kRelativePath)));
    ASSERT_TRUE(prefs->saveToFile());
    std::vector<std::string> aside;
    for (const auto& entry : std::filesystem::directory_iterator(home.file("Library/Preferences"))) {
        if (entry.path().filename() != "kv.vossen.qln.prf") aside.push_back(entry.path().string());
    }
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(test::readText(aside[0]), garbage);
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

TEST_F(KtPreferencesTest, LocalSettingsGoToTheDefaultsStore) {
    DefaultsStore store(home_.file("kt-defaults.plist"));
    KtPreferences prefs(store);
    prefs.setBool(true, "b");
    prefs.setInt(5, "i");
    prefs.setFloat(1.5f, "f");
    prefs.setObject(PlistValue("s"), "o");
    EXPECT_EQ(store.objectForKey("b"), PlistValue::boolean(true));
    EXPECT_EQ(store.intForKey("i"), 5);
    EXPECT_TRUE(prefs.boolForKey("b"));
    EXPECT_FLOAT_EQ(prefs.floatForKey("f"), 1.5f);
    EXPECT_TRUE(prefs.container().empty());
    prefs.removeObjectForKey("o");
    EXPECT_FALSE(store.objectForKey("o").has_value());
    prefs.registerDefaults({{"d", PlistValue::integer(3)}});
    EXPECT_EQ(prefs.intForKey("d"), 3);
    EXPECT_FALSE(prefs.inited());
    prefs.setInited();
    EXPECT_TRUE(prefs.inited());
}

TEST_F(KtPreferencesTest, GlobalSettingsSaveTheirOwnFileOnEveryWrite) {
    DefaultsStore store(home_.file("kt-unused.plist"));
    KtPreferences prefs(store);
    prefs.setGlobal(true);
    std::string file = home_.file("kt.plist");
    prefs.setFilePath(file);
    prefs.setBool(true, "b");
    auto saved = PlistCodec::readDictionaryFile(file);
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->at("b"), PlistValue("YES"));
    prefs.registerDefaults({{"r", PlistValue("x")}});
    EXPECT_EQ(PlistCodec::readDictionaryFile(file)->count("r"), 1u);
    prefs.removeObjectForKey("b");
    EXPECT_EQ(PlistCodec::readDictionaryFile(file)->count("b"), 0u);
    EXPECT_FALSE(store.objectForKey("r").has_value());
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
