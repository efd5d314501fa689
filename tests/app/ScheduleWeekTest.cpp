// A week of schedules against the activity controller and a real station:
// the rules open their connections through addRecord at the ticks the
// injected clock says, and exactly the expected starts and stops happen.
#include <gtest/gtest.h>

#include <map>

#include "AppTestSupport.h"
#include "app/ActivityViewModel.h"
#include "schedule/ScheduleTestSupport.h"
#include "schedule/Schedules.h"

namespace quillon {
namespace {

using test::RuleEvent;
using Date = Schedules::Date;

class ScheduleWeekTest : public test::AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        station_ = startStation();
        bookmark_ = bookmarkFor(station_->port(), "Station");
    }
    void TearDown() override {
        schedules_.reset();
        controller_.reset();
        station_->stop();
        AppFixture::TearDown();
    }

    std::shared_ptr<AbstractRule> rule(const std::string& name) const {
        auto r = std::make_shared<AbstractRule>();
        r->setName(name);
        r->setBookmarkPath(bookmark_->filePath());
        r->setBookmarkData(bookmark_->archivedResource());
        return r;
    }
    static Date at(int day, int hour, int minute, int second) {
        return test::localDate(2026, 11, day, hour, minute, second);  // the 23rd is a Monday
    }

    test::ScopedTimeZone zone_{"Europe/Berlin"};
    test::FakeInterface ui_;
    std::unique_ptr<Station> station_;
    std::shared_ptr<Bookmark> bookmark_;
    std::unique_ptr<ActivityController> controller_;
    std::unique_ptr<Schedules> schedules_;
};

TEST_F(ScheduleWeekTest, AWeekOfRulesStartsAndStopsExactlyAsPlanned) {
    controller_ = std::make_unique<ActivityController>(ui_, ConnectionServices{}, [](const std::string&) {
        return std::optional<std::uint64_t>(10ull << 30);
    });
    Date now = at(23, 0, 0, 3);
    schedules_ = std::make_unique<Schedules>(
        folder_ + "/kv.schedules.qln", controller_->ruleStarter(), [&] { return now; },
        Schedules::Ticking::Off);

    auto evening = rule("Evening");
    evening->setRuleType(AbstractRule::kWeekly);
    evening->setDay(1, true, "21:00", "1:30");
    evening->setDay(3, true, "21:00", "1:30");
    auto late = rule("Late");
    late->setRuleType(AbstractRule::kWeekly);
    late->setDay(0, true, "23:30", "1:00");  // into Monday, on which it is off
    auto once = rule("Once");
    once->setRuleType(AbstractRule::kOneOff);
    once->setStartDate(at(26, 10, 0, 0));
    once->setEndDate(at(26, 10, 5, 0));
    once->setRelayOnly(true);
    auto off = rule("Switched Off");
    off->setRuleType(AbstractRule::kWeekly);
    for (int day = 0; day < 7; ++day) off->setDay(day, true, "12:00", "1:00");
    off->setActive(false);
    for (const auto& r : {evening, late, once, off}) schedules_->addRule(r);

    std::map<std::string, std::vector<RuleEvent>> events;
    std::map<std::string, Ripper*> held;
    const Date end = at(30, 1, 0, 3);
    for (; now <= end; now += std::chrono::seconds(10)) {
        schedules_->launchTimers();
        for (const auto& r : schedules_->schedulesArray()) {
            Ripper* before = held[r->name().value_or("")];
            Ripper* after = r->currentConnection();
            if (before == after) continue;
            held[r->name().value_or("")] = after;
            if (before) {
                events[r->name().value_or("")].push_back({false, now});
                ASSERT_TRUE(test::runUntil([&] { return before->stoppedForGood(); }));
            }
            if (after) {
                events[r->name().value_or("")].push_back({true, now});
                ASSERT_TRUE(test::runUntil([&] { return after->isStreaming(); }));
                EXPECT_EQ(after->relayOnly(), r->isOneOff());
                EXPECT_EQ(after->currentEndDate(), r->isOneOff() ? r->endDate() : r->currentStopDate());
                if (r->name() == "Once") {
                    EXPECT_EQ(ActivityViewModel::make(*controller_)
                                  .rows.at(*controller_->selectedRow())
                                  .scheduleInformation,
                              "Will stop on Thursday, November 26 2026, 10:05 am");
                }
            }
        }
    }

    const std::map<std::string, std::vector<RuleEvent>> expected = {
        {"Evening",
         {{true, at(23, 20, 59, 53)},
          {false, at(23, 22, 30, 3)},
          {true, at(25, 20, 59, 53)},
          {false, at(25, 22, 30, 3)}}},
        {"Once", {{true, at(26, 9, 59, 53)}, {false, at(26, 10, 5, 3)}}},
        {"Late", {{true, at(29, 23, 29, 53)}, {false, at(30, 0, 30, 3)}}},
    };
    EXPECT_EQ(events, expected);
    // One connection per start; Evening's second start restarted its first,
    // which stayed listed, closed, as every stopped one does.
    EXPECT_EQ(station_->clients().size(), 4u);
    EXPECT_EQ(controller_->numberOfRows(), 3u);
    for (std::size_t row = 0; row < controller_->numberOfRows(); ++row) {
        EXPECT_TRUE(controller_->connectionAt(row).stoppedForGood());
        EXPECT_FALSE(controller_->connectionAt(row).hasTimer());
    }
    EXPECT_TRUE(ui_.alerts.empty());
    EXPECT_EQ(ui_.beeps, 0);

    // Clearing a closed connection, then the rules going away, leaves
    // nothing pointing anywhere.
    controller_->selectRow(0);
    controller_->clearConnection();
    schedules_.reset();
    controller_.reset();
}

}  // namespace
}  // namespace quillon
