// History items and day databases: day keys, the day file format and its
// failures, and the lookups that the "skip" rule and the filter rely on.
#include "HistoryTestSupport.h"
#include "history/HistoryDatabase.h"
#include "platform/Log.h"
#include "platform/PlistCodec.h"

namespace quillon::test {
namespace {

using Database = HistoryDatabase;

TEST(HistoryKeys, KeysOfADate) {
    struct Case {
        int year, month, day;
        const char* key;
        const char* oldKey;
    };
    const Case cases[] = {{2008, 7, 5, "2008_07_05", "2008/07/05"},
                          {1999, 12, 31, "1999_12_31", "1999/12/31"},
                          {1700, 1, 1, "1700_01_01", "1700/01/01"}};
    for (const Case& c : cases) {
        for (int hour : {0, 23}) {  // any time of the day gives the day's key
            auto when = localDate(c.year, c.month, c.day, hour, hour == 23 ? 59 : 0);
            EXPECT_EQ(Database::keyFromDate(when), c.key);
            EXPECT_EQ(Database::oldKeyFromDate(when), c.oldKey);
        }
    }
}

TEST(HistoryKeys, DatesOfAKey) {
    const std::pair<const char*, bool> cases[] = {
        {"2008_07_05", true},
        {"2008_7_5", true},
        {"2008_07", false},
        {"2008_07_05_01", false},
        {"2008_00_05", false},
        {"0_07_05", false},
        {"2008__05", false},
        {"notes", false},
        {"", false},
        {"2008/07/05", false},
        {"2008_-7_05", false},  // a negative product
        {"987_01_01", false},
        {"9999_01_01", false},                        // outside the clock's range
        {"2147483647_2147483647_2147483647", false},  // a product beyond 64 bits
    };
    for (const auto& [key, valid] : cases) {
        auto date = Database::dateFromKey(key);
        ASSERT_EQ(date.has_value(), valid) << key;
        if (valid) {
            EXPECT_EQ(*date, localDate(2008, 7, 5, 0, 0, 1)) << key;
        }
    }
    EXPECT_EQ(Database::dateFromOldKey("2008/7/5"), localDate(2008, 7, 5, 0, 0, 1));
    EXPECT_FALSE(Database::dateFromOldKey("2008_07_05"));
}

TEST(HistoryKeys, DayTitlesUseTheLocalisedNames) {
    EXPECT_EQ(Database(localDate(2008, 7, 5)).title(), "Saturday, July 05 2008");
    // August is looked up under "AOU".
    EXPECT_EQ(Database::formatDate(localDate(2011, 8, 1, 9, 5, 7), "%a %b %e %m/%y %H:%M:%S %% %q"),
              "Mon Aug 1 08/11 09:05:07 % %q");
}

TEST(HistoryItems, NewItemsAndTheirTexts) {
    Preferences::resetShared();
    auto item = HistoryItem::newItem("Miles Davis - So What", "Jazz FM", 7);
    EXPECT_FALSE(item->complete());
    EXPECT_LE(std::chrono::system_clock::now() - *item->calDate(), std::chrono::minutes(1));
    // The stored values are of the documented kinds.
    EXPECT_EQ(item->objectForKey("complete"), PlistValue("NO"));
    EXPECT_EQ(item->objectForKey("tracknum"), PlistValue::integer(7));
    EXPECT_TRUE(item->objectForKey("recorddate")->isDate());

    item->setRecDate(localDate(2008, 7, 5, 18, 3, 9));
    EXPECT_EQ(item->date().substr(0, 19), "2008-07-05 18:03:09");
    EXPECT_EQ(item->date().size(), 25u);  // and the zone offset, " +hhmm"
    Preferences::preferences()->setParam("24", "timeMode");
    EXPECT_EQ(item->description(), "18:03 on Jazz FM");
    Preferences::preferences()->setParam("12", "timeMode");
    EXPECT_EQ(item->time(), "6:03 pm");
    Preferences::resetShared();
}

TEST(HistoryItems, KeywordsMatchTheLowerCasedDescription) {
    auto item = HistoryItem::newItem("Édith PIAF - Non, Je Ne Regrette Rien", "Radio ÅLAND", 1);
    const std::pair<const char*, bool> cases[] = {
        {"piaf", true},  {"PIAF", false},  {"rien radio", true},  // across track and station
        {"édith", true}, {"Édith", false}, {"åland", true},      {"regrette  rien", false},
    };
    for (const auto& [keyword, matches] : cases)
        EXPECT_EQ(item->containsKeyword(keyword), matches) << keyword;
    // The description is kept from its first use.
    item->setTrackName("Other");
    EXPECT_TRUE(item->containsKeyword("piaf"));
    EXPECT_EQ(lowerCaseText("ΑΒΓ ЖЯЁ Ŀŀ ŸĲ ÀÞ×"), "αβγ жяё ŀŀ ÿĳ àþ×");
}

TEST(HistoryItems, SortingByDateAndByDescriptors) {
    Database day(localDate(2008, 7, 5));
    auto a = makeItem("Beta", "Radio B", localDate(2008, 7, 5, 10), true);
    auto b = makeItem("Alpha", "Radio B", localDate(2008, 7, 5, 11), false);
    auto c = makeItem("Gamma", "Radio A", localDate(2008, 7, 5, 9), true);
    a->setTracknum(10);
    b->setTracknum(9);
    c->setTracknum(100);
    for (const auto& item : {a, b, c}) day.addObject(item);
    auto order = [&] {
        std::string names;
        for (const auto& item : day.logItems()) names += item->trackName().substr(0, 1);
        return names;
    };
    EXPECT_LT(c->compare(*a), 0);
    day.sortItems();
    EXPECT_EQ(order(), "GBA");
    day.sortWithDescriptors({{"tracknum", true}});  // numerically, not as text
    EXPECT_EQ(order(), "ABG");
    day.sortWithDescriptors({{"radioname", true}, {"trackname", false}});
    EXPECT_EQ(order(), "GBA");
    day.sortWithDescriptors({{"complete", true}, {"recorddate", true}});
    EXPECT_EQ(order(), "AGB");
}

TEST(HistoryItems, CompleteTracksDeletionAndConfirmation) {
    Database day(localDate(2008, 7, 5));
    auto partial = makeItem("Song", "r", localDate(2008, 7, 5, 8), false);  // never matches
    auto skipped = makeItem("Tune", "r", localDate(2008, 7, 5, 9), true, true);
    auto first = makeItem("Song", "r", localDate(2008, 7, 5, 10), true, false, "/music/Song.mp3");
    auto second = makeItem("Song", "r", localDate(2008, 7, 5, 11), true, false, "/music/Song 2.mp3");
    for (const auto& item : {partial, skipped, first, second}) day.addObject(item);
    EXPECT_EQ(day.numberOfTracks(), 2);  // complete and not skipped
    EXPECT_EQ(day.containsTrack("Song"), first);
    EXPECT_EQ(day.containsTrack("song"), nullptr);  // exact case only
    EXPECT_EQ(day.containsTrack("Tune"), skipped);

    partial->markForDelete();
    first->markForDelete();
    EXPECT_EQ(day.deleteObject(), 2u);
    EXPECT_EQ(day.logItems(), (std::vector<std::shared_ptr<HistoryItem>>{skipped, second}));

    // A whole day goes only when the question is answered with OK.
    EXPECT_FALSE(day.askDelete(nullptr));
    EXPECT_FALSE(day.askDelete([](const DeleteAlert&) { return false; }));
    EXPECT_TRUE(day.askDelete([&](const DeleteAlert& alert) { return alert.day == day.title(); }));
}

class DayFiles : public HistoryFixture {};

TEST_F(DayFiles, SaveAndLoadKeepEveryItemInOrder) {
    Database day(localDate(2008, 7, 5));
    day.addObject(makeItem("Nina Simone - Sinnerman", "Jazz FM", localDate(2008, 7, 5, 23, 59, 1), true,
                           false, "/music/Nina Simone - Sinnerman.mp3"));
    day.addObject(makeItem("Ünïcödé & <xml> \"quotes\"", "Radio", localDate(2008, 7, 5, 8), false, true));
    ASSERT_TRUE(day.saveAtPath(folder_, "2008_07_05"));
    EXPECT_EQ(readText(dayFile("2008_07_05")).rfind("<?xml", 0), 0u);

    auto loaded = Database::databaseAtPath(dayFile("2008_07_05"), localDate(2008, 7, 5, 0, 0, 1));
    ASSERT_NE(loaded, nullptr);
    ASSERT_EQ(loaded->count(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(loaded->objectAtIndex(i)->container(), day.objectAtIndex(i)->container());
    }
    EXPECT_EQ(loaded->date(), localDate(2008, 7, 5, 0, 0, 1));

    // A missing file is an empty day.
    auto missing = Database::databaseAtPath(dayFile("2008_07_04"), localDate(2008, 7, 4));
    ASSERT_NE(missing, nullptr);
    EXPECT_EQ(missing->count(), 0u);
}

TEST_F(DayFiles, BadFilesAreLoggedAndFail) {
    auto archive = makeItem("Fine", "r", localDate(2008, 7, 5), true)->archivedResource();
    auto xml = [](const PlistValue& root) {
        auto bytes = PlistCodec::encodeXml(root);
        return std::string(bytes.begin(), bytes.end());
    };
    const std::pair<std::string, const char*> cases[] = {
        {"this is no property list", "not a property list"},
        {xml(PlistValue(PlistValue::Array{PlistValue(archive)})).substr(0, 120), "not a property list"},
        {"", "not a property list"},
        {xml(PlistValue(PlistValue::Dictionary{{"a", PlistValue("b")}})), "not an array"},
        {xml(PlistValue(PlistValue::Array{PlistValue(archive), PlistValue("text")})), "element 1 is a"},
    };
    for (const auto& [content, reason] : cases) {
        SCOPED_TRACE(reason);
        writeText(dayFile("2008_07_05"), content);
        Log::Capture log;
        EXPECT_EQ(Database::databaseAtPath(dayFile("2008_07_05"), localDate(2008, 7, 5)), nullptr);
        auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].rfind("Unable to load history db at path " + dayFile("2008_07_05") + " : ", 0),
                  0u);
        EXPECT_NE(lines[0].find(reason), std::string::npos) << lines[0];
        EXPECT_EQ(readText(dayFile("2008_07_05")), content);  // left as it was
    }
}

TEST_F(DayFiles, ArchivesThatDoNotUnarchiveGiveEmptyItems) {
    auto good = makeItem("Fine", "r", localDate(2008, 7, 5), true)->archivedResource();
    PlistValue::Array elements{PlistValue(good), PlistValue(PlistValue::Data{1, 2, 3}), PlistValue(good)};
    ASSERT_TRUE(PlistCodec::writeXmlFile(dayFile("2008_07_05"), PlistValue(elements)));
    Log::Capture log;
    auto day = Database::databaseAtPath(dayFile("2008_07_05"), localDate(2008, 7, 5));
    ASSERT_NE(day, nullptr);
    ASSERT_EQ(day->count(), 3u);
    EXPECT_EQ(day->objectAtIndex(0)->trackName(), "Fine");
    EXPECT_TRUE(day->objectAtIndex(1)->container().empty());
    EXPECT_EQ(day->objectAtIndex(1)->date(), "");
    EXPECT_EQ(day->objectAtIndex(2)->trackName(), "Fine");
    EXPECT_TRUE(log.lines().empty());
    // A record date that the clock cannot hold reads as none.
    day->objectAtIndex(2)->setObject(PlistValue(PlistDate{1e12}), "recorddate");
    EXPECT_FALSE(day->objectAtIndex(2)->calDate());
}

}  // namespace
}  // namespace quillon::test
