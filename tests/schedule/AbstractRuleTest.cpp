// Schedule rules tick by tick over an injected "now": the start and stop
// spans, runs past midnight, one-off rules, days when the clock changes, the
// bookmark a rule falls back on, and the link between a rule and its
// connection from both ends.
#include <gtest/gtest.h>

#include "support/Dates.h"

#include "ScheduleTestSupport.h"
#include "platform/Log.h"
#include "schedule/PendingAction.h"

namespace quillon {
namespace {

using test::RuleEvent;
using test::ScopedTimeZone;
using Date = AbstractRule::Date;
using std::chrono::milliseconds;

constexpr int kSunday = 0, kMonday = 1;

Date utc(int year, int month, int day, int hour, int minute, int second) {
    return test::utcDate(year, month, day, hour, minute, second);
}

class AbstractRuleTest : public test::ScheduleFixture {
protected:
    // 2026-11-23 is a Monday.
    static Date monday(int hour, int minute, int second = 0) {
        return test::localDate(2026, 11, 23, hour, minute, second);
    }
    ScopedTimeZone zone_{"Europe/Berlin"};
};

TEST_F(AbstractRuleTest, StartsOnlyWhenTheStartLiesOneToFourteenSecondsAhead) {
    struct Case {
        const char* name;
        Date now;
        bool starts;
    };
    const Case cases[] = {
        {"d = -14", monday(20, 59, 46), true},
        {"d = -1", monday(20, 59, 59), true},
        {"d = -14.9 truncates to -14", monday(20, 59, 45) + milliseconds(100), true},
        {"d = -15", monday(20, 59, 45), false},
        {"d = 0", monday(21, 0, 0), false},
        {"d = +5", monday(21, 0, 5), false},
        {"a day not enabled", test::localDate(2026, 11, 24, 20, 59, 50), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        starter_->calls.clear();
        auto r = weekly({kMonday}, "21:00", "1:30");
        r->shouldStartAtDate(c.now);
        EXPECT_EQ(starter_->calls.size(), c.starts ? 1u : 0u);
        EXPECT_EQ(r->currentConnection() != nullptr, c.starts);
        if (!c.starts) continue;
        // A second tick in the span opens nothing more.
        r->shouldStartAtDate(c.now + milliseconds(500));
        EXPECT_EQ(starter_->calls.size(), 1u);
    }
}

TEST_F(AbstractRuleTest, StopsOnlyOneToFourteenSecondsPastTheStop) {
    struct Case {
        Date now;
        bool stops;
    };
    const Case cases[] = {{monday(22, 30, 0), false},
                          {monday(22, 30, 1), true},
                          {monday(22, 30, 14), true},
                          {monday(22, 30, 14) + milliseconds(900), true},
                          {monday(22, 30, 15), false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(RuleEvent{false, c.now}));
        auto r = weekly({kMonday}, "21:00", "1:30");
        r->shouldStartAtDate(monday(20, 59, 50));
        Ripper* connection = r->currentConnection();
        ASSERT_NE(connection, nullptr);
        EXPECT_EQ(connection->currentEndDate(), std::optional<Date>(monday(22, 30)));
        r->shouldStartAtDate(c.now);
        EXPECT_EQ(r->currentConnection() == nullptr, c.stops);
        EXPECT_EQ(connection->endReason() == Ripper::EndReason::UserStopped, c.stops);
        connection->userClose();
    }
}

TEST_F(AbstractRuleTest, WholeDaysTickByTick) {
    const Date sunday = test::localDate(2026, 11, 22, 0, 0, 3);
    struct Case {
        const char* name;
        std::function<std::shared_ptr<AbstractRule>()> make;
        Date from, to;
        std::vector<RuleEvent> expected;
    };
    const std::vector<Case> cases = {
        {"Monday 21:00 for 1:30",
         [&] { return weekly({kMonday}, "21:00", "1:30"); },
         monday(0, 0, 3),
         monday(23, 59, 53),
         {{true, monday(20, 59, 53)}, {false, monday(22, 30, 3)}}},
        {"12-hour start text",
         [&] { return weekly({kMonday}, "9:00 pm", "0:45"); },
         monday(0, 0, 3),
         monday(23, 59, 53),
         {{true, monday(20, 59, 53)}, {false, monday(21, 45, 3)}}},
        {"run 0:00 stops right after the start",
         [&] { return weekly({kMonday}, "21:00", "0:00"); },
         monday(0, 0, 3),
         monday(23, 59, 53),
         {{true, monday(20, 59, 53)}, {false, monday(21, 0, 3)}}},
        {"past midnight into an enabled day: that day's stop counts",
         [&] {
             auto r = weekly({kSunday}, "23:30", "1:00");
             r->setDay(kMonday, true, "21:00", "1:30");
             return r;
         },
         sunday,
         monday(23, 59, 53),
         {{true, test::localDate(2026, 11, 22, 23, 29, 53)}, {false, monday(22, 30, 3)}}},
        {"past midnight into a day not enabled: stops as planned",
         [&] { return weekly({kSunday}, "23:30", "1:00"); },
         sunday,
         monday(23, 59, 53),
         {{true, test::localDate(2026, 11, 22, 23, 29, 53)}, {false, monday(0, 30, 3)}}},
        {"one-off",
         [&] { return oneOff(monday(10, 0), monday(11, 0)); },
         monday(9, 0, 3),
         monday(12, 0, 3),
         {{true, monday(9, 59, 53)}, {false, monday(11, 0, 3)}}},
        {"one-off whose start passed while not running never fires late",
         [&] { return oneOff(monday(10, 0), monday(11, 0)); },
         monday(10, 0, 1),
         monday(12, 0, 1),
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto r = c.make();
        EXPECT_EQ(simulate(*r, c.from, c.to), c.expected);
    }
}

TEST_F(AbstractRuleTest, OnTheDaysTheClockChangesARuleStartsAndStopsOnce) {
    // Every day enabled; the simulation runs from before the local midnight
    // to after the next, ticking at :03 as a 10-second tick might.
    struct Case {
        const char* zone;
        const char* start;
        Date from;
        std::vector<RuleEvent> expected;
    };
    const Case cases[] = {
        // Clocks skip 02:00-03:00: the start is when the skip ends (01:00 UTC).
        {"Europe/Berlin",
         "02:30",
         utc(2026, 3, 28, 22, 0, 3),
         {{true, utc(2026, 3, 29, 0, 59, 53)}, {false, utc(2026, 3, 29, 2, 0, 3)}}},
        {"America/New_York",
         "02:30",
         utc(2026, 3, 8, 4, 0, 3),
         {{true, utc(2026, 3, 8, 6, 59, 53)}, {false, utc(2026, 3, 8, 8, 0, 3)}}},
        // Clocks go back: 02:30 in Berlin (and 01:30 in New York) shows twice;
        // the first showing starts, the run lasts an hour.
        {"Europe/Berlin",
         "02:30",
         utc(2026, 10, 24, 21, 0, 3),
         {{true, utc(2026, 10, 25, 0, 29, 53)}, {false, utc(2026, 10, 25, 1, 30, 3)}}},
        {"Europe/Berlin",
         "01:30",
         utc(2026, 10, 24, 21, 0, 3),
         {{true, utc(2026, 10, 24, 23, 29, 53)}, {false, utc(2026, 10, 25, 0, 30, 3)}}},
        {"America/New_York",
         "01:30",
         utc(2026, 11, 1, 3, 0, 3),
         {{true, utc(2026, 11, 1, 5, 29, 53)}, {false, utc(2026, 11, 1, 6, 30, 3)}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.zone) + " " + c.start);
        ScopedTimeZone zone(c.zone);
        auto r = weekly({0, 1, 2, 3, 4, 5, 6}, c.start, "1:00");
        EXPECT_EQ(simulate(*r, c.from, c.from + std::chrono::hours(26)), c.expected);
    }
}

TEST_F(AbstractRuleTest, TheBookmarkComesFromItsFileElseFromTheRulesCopy) {
    struct Case {
        const char* name;
        bool file;
        bool data;
        bool starts;
    };
    const Case cases[] = {{"file", true, true, true},
                          {"file deleted", false, true, true},
                          {"file deleted, no copy", false, false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        starter_->calls.clear();
        auto r = weekly({kMonday}, "21:00", "1:30", "Late Show");
        if (!c.file) r->setBookmarkPath(folder_ + "/gone.qlnbk");
        if (!c.data) r->removeObjectForKey("bookmarkData");
        Log::Capture log;
        r->shouldStartAtDate(monday(20, 59, 50));
        EXPECT_EQ(starter_->calls.size(), c.starts ? 1u : 0u);
        EXPECT_EQ(log.contains("Cannot start schedule due to invalid bookmark for Late Show"), !c.starts);
        if (!c.starts) continue;
        // The connection is named after the rule and reaches the station.
        EXPECT_EQ(starter_->calls[0].name, "Late Show");
        Ripper* connection = r->currentConnection();
        EXPECT_TRUE(test::runUntil([&] { return connection->isStreaming(); }));
        connection->userClose();
    }
}

TEST_F(AbstractRuleTest, TwoRulesOfOneBookmarkEachOpenTheirOwnConnection) {
    auto first = weekly({kMonday}, "21:00", "1:30", "First");
    auto second = weekly({kMonday}, "21:00", "0:30", "Second");
    first->shouldStartAtDate(monday(20, 59, 50));
    second->shouldStartAtDate(monday(20, 59, 50));
    ASSERT_TRUE(first->currentConnection() && second->currentConnection());
    EXPECT_NE(first->currentConnection(), second->currentConnection());
    EXPECT_EQ(first->currentConnection()->connName(), "First");
    EXPECT_EQ(second->currentConnection()->connName(), "Second");
    second->shouldStartAtDate(monday(21, 30, 5));
    EXPECT_EQ(second->currentConnection(), nullptr);
    EXPECT_NE(first->currentConnection(), nullptr);
    first->stop();
}

TEST_F(AbstractRuleTest, RuleAndConnectionLetGoOfEachOtherWhicheverGoesFirst) {
    // The user closes the connection: the rule is free and opens a new one at
    // its next start.
    auto r = weekly({kMonday}, "21:00", "1:30");
    r->shouldStartAtDate(monday(20, 59, 50));
    Ripper* first = r->currentConnection();
    ASSERT_NE(first, nullptr);
    first->userClose();
    EXPECT_EQ(r->currentConnection(), nullptr);
    EXPECT_FALSE(first->hasTimer());
    r->shouldStartAtDate(monday(20, 59, 55));
    EXPECT_EQ(starter_->calls.size(), 2u);

    // The connection is destroyed (removed from the list) while the rule holds it.
    Ripper* second = r->currentConnection();
    ASSERT_NE(second, nullptr);
    ASSERT_EQ(starter_->connections.back().get(), second);
    starter_->connections.pop_back();
    EXPECT_EQ(r->currentConnection(), nullptr);
    r->shouldStartAtDate(monday(22, 30, 5));  // its stop span: nothing left to stop

    // The rule is deleted while its connection runs: the connection goes on
    // without one and closes without it.
    r->shouldStartAtDate(test::localDate(2026, 11, 30, 20, 59, 50));
    Ripper* third = r->currentConnection();
    ASSERT_NE(third, nullptr);
    EXPECT_TRUE(third->hasTimer());
    r.reset();
    EXPECT_FALSE(third->hasTimer());
    EXPECT_EQ(third->currentEndDate(), std::nullopt);
    third->userClose();

    // A connection that its own thread closes (refused, reconnecting off)
    // lets go on the main thread.
    auto refused = weekly({kMonday}, "21:00", "1:30", "Refused");
    auto dead = bookmarkFor(1, "Refused");
    refused->setBookmarkPath(dead->pathInFolder(folder_));
    ASSERT_TRUE(dead->saveToFile(folder_));
    refused->shouldStartAtDate(monday(20, 59, 50));
    ASSERT_NE(refused->currentConnection(), nullptr);
    EXPECT_TRUE(test::runUntil([&] { return refused->currentConnection() == nullptr; }));
}

TEST_F(AbstractRuleTest, AConnectionThatEndedByItselfNoLongerHoldsTheRule) {
    station_->stop();
    StationOptions options = counterStation();
    options.closeAfter = 500000;  // the server ends the stream once streaming
    station_ = std::make_unique<Station>(options);
    station_->start();
    auto b = bookmarkFor(station_->port(), "Short");
    ASSERT_TRUE(b->saveToFile(folder_));
    auto r = weekly({kMonday}, "21:00", "1:30", "Short");
    r->setBookmarkPath(b->pathInFolder(folder_));
    r->shouldStartAtDate(monday(20, 59, 50));
    Ripper* connection = r->currentConnection();
    ASSERT_NE(connection, nullptr);
    ASSERT_TRUE(test::runUntil([&] { return connection->stoppedForGood(); }));
    EXPECT_EQ(r->currentConnection(), connection);  // never closed, so still held
    r->shouldStartAtDate(test::localDate(2026, 11, 30, 20, 59, 50));
    EXPECT_EQ(starter_->calls.size(), 2u);
    r->stop();
}

TEST_F(AbstractRuleTest, SortingAndUpcomingTexts) {
    auto a = rule("Alpha");
    auto b = rule("Beta");
    EXPECT_GT(a->compareRules(*b, "name"), 0);  // other against this one: descending
    EXPECT_LT(b->compareRules(*a, "name"), 0);
    EXPECT_EQ(a->compareRules(*b, "description"), 0);  // the same bookmark
    EXPECT_EQ(a->description(), "Station");

    struct Case {
        const char* mode;
        const char* text;
    };
    const Case cases[] = {{"24", "Monday, November 23 2026, 21:05"},
                          {"12", "Monday, November 23 2026, 9:05 pm"}};
    for (const auto& c : cases) {
        prefs().setParam(std::string(c.mode), "timeMode");
        PendingAction action;
        action.setStartDate(monday(21, 5));
        EXPECT_EQ(action.start(), c.text);
    }
    PendingAction early, late;
    early.setName("Zulu");
    early.setStartDate(monday(8, 0));
    early.setStopDate(monday(12, 0));
    late.setName("Alpha");
    late.setStartDate(monday(9, 0));
    late.setStopDate(monday(10, 0));
    EXPECT_LT(early.compare(late), 0);
    EXPECT_LT(early.compareActions(late, "pendingStart", false), 0);
    EXPECT_GT(early.compareActions(late, "pendingStart", true), 0);
    EXPECT_GT(early.compareActions(late, "pendingStop", false), 0);
    EXPECT_GT(early.compareActions(late, "pendingAction", false), 0);
    EXPECT_EQ(early.compareActions(late, "nonsense", false), 0);
}

}  // namespace
}  // namespace quillon
