// Filtering the directory: the boundary table of keywords and bit rates, and
// the filter thread's one-slot mailbox, which coalesces requests.
#include <gtest/gtest.h>

#include "support/MainThread.h"
#include "tuner/TunerFilter.h"

namespace quillon {
namespace {

// Jazz: a 0, b 31, c 32; Rock: d 95, e 96, f 320, g 321.
std::unique_ptr<Tuner> directory() {
    auto tuner = std::make_unique<Tuner>("/dev/null");
    const std::tuple<const char*, const char*, const char*, int> entries[] = {
        {"Jazz", "a", "cool jazz", 0},   {"Jazz", "b", "rock jazz", 31}, {"Jazz", "c", "jazz rock", 32},
        {"Rock", "d", "hard rock", 95},  {"Rock", "e", "soft rock", 96}, {"Rock", "f", "rock jazz", 320},
        {"Rock", "g", "rock, jazz", 321}};
    for (auto [genre, name, description, kbps] : entries) {
        auto item = TunerItem::tunerItem();
        item->setName(std::string(name));
        item->setDescription(std::string(description));
        item->setBitRate(kbps);
        item->setGenre(std::string(genre));
        tuner->addItemWithGenre(item);
    }
    return tuner;
}

std::string shown(const Tuner& tuner) {
    std::string out;
    for (std::size_t i = 0; i < tuner.count(); ++i) {
        auto genre = tuner.itemAtIndex(i);
        out += genre->name().value_or("") + ":";
        for (const auto& s : genre->streams()) out += s->name().value_or("");
        out += " ";
    }
    return out;
}

TEST(TunerFilterTest, KeywordAndBitRateBoundaries) {
    struct Case {
        const char* keywords;
        std::uint16_t min, max;
        bool filtered;
        const char* rows;
        int count;
    } cases[] = {
        {"", 0, 320, false, "Jazz:abc Rock:defg ", 0},  // neutral: filtering off, all shown
        {"", 0, 319, true, "Jazz:abc Rock:de ", 5},     // one below: on
        {"", 0, 0, true, "Jazz:a ", 1},                 // a stream of bit rate 0 passes min 0
        {"", 31, 32, true, "Jazz:bc ", 2},              // both bounds inclusive
        {"", 33, 95, true, "Rock:d ", 1},               // a genre left empty is not shown
        {"", 322, 400, true, "", 0},
        {"rock jazz", 0, 320, true, "Jazz:b Rock:f ", 2},  // one text, not two words
        {"rock jazz", 0, 65535, true, "Jazz:b Rock:f ", 2},
        {"Rock", 0, 320, true, "", 0},  // upper case never matches
        {"jazz", 32, 320, true, "Jazz:c Rock:f ", 2},
    };
    auto tuner = directory();
    for (const Case& c : cases) {
        tuner->filter({c.keywords, c.min, c.max});
        EXPECT_EQ(tuner->filtered(), c.filtered) << c.keywords << " " << c.min << ".." << c.max;
        EXPECT_EQ(shown(*tuner), c.rows) << c.keywords << " " << c.min << ".." << c.max;
        if (c.filtered) {
            EXPECT_EQ(tuner->filterCount(), c.count);
        }
    }
}

TEST(TunerFilterTest, FilterFromTheFilterBarsDictionary) {
    auto f = Tuner::Filter::fromDictionary({{"FilterKeywords", PlistValue("jazz")},
                                            {"FilterMin", PlistValue::integer(32)},
                                            {"FilterMax", PlistValue::integer(96)}});
    EXPECT_EQ(f.keywords, "jazz");
    EXPECT_EQ(f.min, 32);
    EXPECT_EQ(f.max, 96);
    EXPECT_TRUE(Tuner::Filter::fromDictionary({}).neutral());
}

TEST(TunerFilterTest, SortingReachesFilteredAndFullGenres) {
    auto tuner = directory();
    tuner->filter({"rock", 0, 400});
    tuner->sortWithDescriptors({{TunerItem::SortKey::bitRate, false}});
    EXPECT_EQ(shown(*tuner), "Jazz:cb Rock:gfed ");
    tuner->filter({});
    EXPECT_EQ(shown(*tuner), "Jazz:cba Rock:gfed ");
}

TEST(TunerFilterTest, MailboxKeepsOnlyTheLatestRequest) {
    test::becomeMainThread();
    auto tuner = directory();
    int runs = 0;
    std::string last;
    TunerFilter filter(*tuner, [&](int n) {
        runs += n;
        last = shown(*tuner);  // the worker waits for this call: the tree holds still
    });
    {
        // While the tree is locked the worker cannot filter: requests pile up
        // in the one slot, each replacing the last.
        std::lock_guard lock(tuner->tunerLock());
        filter.post({"cool", 0, 320});
        filter.post({"hard", 0, 320});
        filter.post({"soft", 0, 320});
    }
    ASSERT_TRUE(test::runUntil([&] { return runs > 0; }));
    EXPECT_EQ(last, "Rock:e ");
    EXPECT_EQ(runs, 1);
}

}  // namespace
}  // namespace quillon
