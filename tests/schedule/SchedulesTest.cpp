// The schedule list: the upcoming actions over four weeks and their sorting,
// the tick (active rules only, one timer, exceptions), the rule form, and the
// schedules file: its round trip (read by python3's plistlib), a restart, a
// damaged file and a failed save.
#include <gtest/gtest.h>

#include <filesystem>

#include "ScheduleTestSupport.h"
#include "platform/Log.h"
#include "schedule/LocalDate.h"
#include "schedule/ScheduleRuleForm.h"
#include "schedule/Schedules.h"
#include "support/Process.h"

namespace quillon {
namespace {

using test::ScopedTimeZone;
using Date = Schedules::Date;

class SchedulesTest : public test::ScheduleFixture {
protected:
    void SetUp() override {
        ScheduleFixture::SetUp();
        path_ = folder_ + "/prefs/kv.schedules.qln";
    }

    std::unique_ptr<Schedules> schedules(Schedules::Ticking ticking = Schedules::Ticking::Off) {
        return std::make_unique<Schedules>(
            path_, starter_->starter(), [this] { return now_; }, ticking);
    }
    static Date monday(int hour, int minute, int second = 0) {
        return test::localDate(2026, 11, 23, hour, minute, second);
    }

    ScopedTimeZone zone_{"Europe/Berlin"};
    std::string path_;
    Date now_ = monday(12, 0);
};

TEST_F(SchedulesTest, UpcomingActionsOverFourWeeks) {
    struct Case {
        const char* name;
        Date now;
        std::size_t weekly;  // actions of the Mon/Wed/Fri rule
    };
    const Case cases[] = {{"before today's start", monday(20, 0), 12}, {"after it", monday(22, 0), 11}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(path_);
        now_ = c.now;
        auto list = schedules();
        auto weekly = this->weekly({1, 3, 5}, "21:00", "1:30", "Weekly");
        auto inactive = this->weekly({1, 2, 3, 4, 5}, "21:00", "1:30", "Inactive");
        inactive->setActive(false);
        auto future = oneOff(monday(23, 0), monday(23, 30));
        future->setName("Once");
        auto past = oneOff(monday(1, 0), monday(2, 0));
        for (const auto& r : {weekly, inactive, future, past})
            ASSERT_EQ(list->addRule(r), Schedules::Outcome::Saved);

        auto actions = list->pendingActions();
        std::size_t weeklies = 0;
        for (const auto& a : actions) {
            EXPECT_NE(a.name(), "Inactive");
            EXPECT_GE(a.startDate(), c.now);
            if (a.name() == "Weekly") {
                ++weeklies;
                EXPECT_EQ(a.stopDate() - a.startDate(), std::chrono::minutes(90));
                EXPECT_EQ(a.ruleId(), weekly->uniqueId());
            }
        }
        EXPECT_EQ(weeklies, c.weekly);
        EXPECT_EQ(actions.size(), c.weekly + 1);

        list->sortActionsByKey(std::string("pendingStart"), false);
        actions = list->pendingActions();
        EXPECT_TRUE(std::is_sorted(actions.begin(), actions.end(),
                                   [](const auto& a, const auto& b) { return a.compare(b) < 0; }));
        EXPECT_EQ(actions.back().startDate(), LocalDate::at(2026, 12, 18, 21, 0));  // the fourth Friday
        list->sortActionsByKey(std::string("pendingAction"), true);
        EXPECT_EQ(list->pendingActions().front().name(), "Weekly");
        EXPECT_EQ(list->pendingActions().back().name(), "Once");
        // An unknown key leaves the order as it is.
        auto before = list->pendingActions();
        list->sortActionsByKey(std::string("nonsense"), false);
        auto after = list->pendingActions();
        for (std::size_t i = 0; i < before.size(); ++i)
            EXPECT_EQ(after[i].startDate(), before[i].startDate());
    }
}

TEST_F(SchedulesTest, TheTickHandsNowToActiveRulesOnly) {
    auto list = schedules();
    auto on = weekly({1}, "21:00", "1:30", "On");
    auto off = weekly({1}, "21:00", "1:30", "Off");
    off->setActive(false);
    list->addRule(on);
    list->addRule(off);
    now_ = monday(20, 59, 50);
    list->launchTimers();
    ASSERT_EQ(starter_->calls.size(), 1u);
    EXPECT_EQ(starter_->calls[0].name, "On");
    EXPECT_TRUE(starter_->calls[0].withRule);

    // Switching a rule off stops its ticks, not its connection.
    ASSERT_EQ(list->setRuleActive(on->uniqueId(), false), Schedules::Outcome::Saved);
    now_ = monday(22, 30, 5);
    list->launchTimers();
    EXPECT_NE(on->currentConnection(), nullptr);
    EXPECT_EQ(list->setRuleActive(4242, true), Schedules::Outcome::NotFound);
    on->stop();

    // An exception ends the tick, logged; the next tick starts again.
    starter_->calls.clear();
    list->setRuleActive(on->uniqueId(), true);
    auto throwing = [this](const Bookmark&, const std::shared_ptr<ConnectionTimer>&, bool, bool) -> Ripper* {
        starter_->calls.push_back({});
        throw std::runtime_error("boom");
    };
    on->setStarter(throwing);
    now_ = test::localDate(2026, 11, 30, 20, 59, 50);
    Log::Capture log;
    list->launchTimers();
    list->launchTimers();
    EXPECT_TRUE(log.contains("Exception during launchTimers"));
    EXPECT_EQ(starter_->calls.size(), 2u);
}

TEST_F(SchedulesTest, TheTickRunsOnTheMainLoopWithOneTimer) {
    timing().scheduleTick = 0.01;
    int ticks = 0;
    Schedules list(path_, starter_->starter(), [&] {
        ++ticks;
        return now_;
    });
    list.addRule(weekly({1}, "21:00", "1:30"));
    ticks = 0;
    list.setSchedulesState(true);  // on already: still one timer
    EXPECT_TRUE(test::runUntil([&] { return ticks >= 3; }));
    list.setSchedulesState(false);
    ticks = 0;
    test::drainMainLoop(0.1);
    EXPECT_EQ(ticks, 0) << "a second timer kept ticking";
    EXPECT_FALSE(list.ticking());
}

TEST_F(SchedulesTest, TheFileIsABinaryPlistOfRuleArchivesThatARestartReads) {
    // No file: an empty list; saving creates the file (and its folder).
    auto list = schedules();
    EXPECT_TRUE(list->schedulesArray().empty());
    auto w = weekly({1, 3}, "21:00", "1:30", "Weekly \xC3\xA9t\xC3\xA9");
    w->setDay(3, true, "9:30 pm", "2:00", true, true);
    auto o = oneOff(monday(23, 0), monday(23, 30, 15));
    list->addRule(w);
    list->addRule(o);
    ASSERT_TRUE(std::filesystem::exists(path_));

    const std::string script =
        "import plistlib,sys\n"
        "rules = plistlib.load(open(sys.argv[1], 'rb'))\n"
        "for data in rules:\n"
        "    r = plistlib.loads(data)\n"
        "    print(r['_type'], r['_active'], r['_AbstractResourceUniqueID'], r['name'], r.get('MON start', "
        "'-'),\n"
        "          r.get('WED Relay', '-'), r.get('startDate', '-'), r.get('stopDate', '-'))\n";
    auto result = test::runProcess({"python3", "-c", script, path_});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "DayRule YES " + std::to_string(w->uniqueId()) +
                              " Weekly \xC3\xA9t\xC3\xA9 21:00 YES - -\n"
                              "DateRule YES " +
                              std::to_string(o->uniqueId()) +
                              " Jazz Night - - 2026-11-23 23:00:00 +0100 2026-11-23 23:30:15 +0100\n");

    // A restart reads the same rules, in order, with their ids and keys.
    list.reset();
    auto again = schedules();
    auto rules = again->schedulesArray();
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0]->container(), w->container());
    EXPECT_EQ(rules[1]->container(), o->container());
    EXPECT_EQ(rules[1]->endDate(), std::optional<Date>(monday(23, 30, 15)));
    // And its rules run: the restored one-off starts.
    now_ = monday(22, 59, 50);
    again->launchTimers();
    EXPECT_EQ(starter_->calls.size(), 1u);
    rules[1]->stop();
    EXPECT_EQ(again->deleteRule(w->uniqueId()), Schedules::Outcome::Saved);
    EXPECT_EQ(again->deleteRule(w->uniqueId()), Schedules::Outcome::NotFound);
    EXPECT_EQ(schedules()->schedulesArray().size(), 1u);
}

TEST_F(SchedulesTest, AnUnreadableFileIsMovedAsideAndASaveFailureIsLoud) {
    struct Case {
        const char* name;
        std::string bytes;
        std::size_t kept;
    };
    auto good = rule("Good")->archivedResource();
    const Case cases[] = {
        {"not a property list", "garbage", 0},
        {"a dictionary", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>", 0},
        {"one entry is no rule",
         "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(folder_ + "/prefs");
        makeFolders(folder_ + "/prefs");
        test::writeText(path_, c.bytes);
        auto list = schedules();
        EXPECT_EQ(list->schedulesArray().size(), c.kept);
        std::vector<std::string> aside;
        for (const auto& e : std::filesystem::directory_iterator(folder_ + "/prefs"))
            if (e.path().filename().string().find(".damaged-") != std::string::npos)
                aside.push_back(e.path());
        ASSERT_EQ(aside.size(), 1u);
        EXPECT_EQ(test::readText(aside[0]), c.bytes);
        EXPECT_FALSE(std::filesystem::exists(path_));
    }

    // The folder is a file: nothing can be written, and that is said.
    path_ = folder_ + "/blocker/kv.schedules.qln";
    test::writeText(folder_ + "/blocker", "a file");
    auto list = schedules();
    Log::Capture log;
    EXPECT_EQ(list->addRule(rule("Lost")), Schedules::Outcome::NotSaved);
    EXPECT_TRUE(log.contains("Cannot save the schedules to " + path_));
}

TEST_F(SchedulesTest, TheRuleFormValidatesAndRoundTrips) {
    const Date now = monday(12, 0);
    auto form = [&](auto change) {
        ScheduleRuleForm f;
        f.bookmark = bookmarkFile_;
        f.days = {1, 3};
        f.at = "21:00";
        f.runFor = "1:30";
        change(f);
        return f;
    };
    using F = ScheduleRuleForm;
    struct Case {
        const char* name;
        F form;
        const char* fault;  // the reason's start; null: valid
    };
    const Case cases[] = {
        {"weekly", form([](F&) {}), nullptr},
        {"no such bookmark", form([](F& f) { f.bookmark = "/no/such.qlnbk"; }), "not a bookmark file"},
        {"no days", form([](F& f) { f.days.clear(); }), "give the days"},
        {"25:00", form([](F& f) { f.at = "25:00"; }), "not a time of day"},
        {"9pm", form([](F& f) { f.at = "9pm"; }), "not a time of day"},
        {"21:5", form([](F& f) { f.at = "21:5"; }), "not a time of day"},
        {"run 0:00", form([](F& f) { f.runFor = "0:00"; }), "the run time must be more"},
        {"run 1:60", form([](F& f) { f.runFor = "1:60"; }), "not a run time"},
        {"run 168:00", form([](F& f) { f.runFor = "168:00"; }), "not a run time"},
        {"weekly with --from", form([](F& f) { f.from = "2026-12-24 21:00"; }), "a weekly rule takes"},
        {"one-off", form([](F& f) {
             f.kind = F::Kind::OneOff, f.days.clear(), f.at = f.runFor = "", f.from = "2026-12-24 21:00",
             f.to = "2026-12-24 23:00:30";
         }),
         nullptr},
        {"one-off with --days",
         form([](F& f) { f.kind = F::Kind::OneOff, f.from = "2026-12-24 21:00", f.to = "2026-12-24 23:00"; }),
         "a one-off rule takes"},
        {"one-off passed", form([](F& f) {
             f.kind = F::Kind::OneOff, f.days.clear(), f.at = f.runFor = "", f.from = "2026-11-23 11:00",
             f.to = "2026-11-23 13:00";
         }),
         "the start has passed"},
        {"stop before start", form([](F& f) {
             f.kind = F::Kind::OneOff, f.days.clear(), f.at = f.runFor = "", f.from = "2026-12-24 21:00",
             f.to = "2026-12-24 20:00";
         }),
         "the stop must come after"},
        {"February 30", form([](F& f) {
             f.kind = F::Kind::OneOff, f.days.clear(), f.at = f.runFor = "", f.from = "2027-02-30 21:00",
             f.to = "2027-03-01 20:00";
         }),
         "not a local date"},
        {"a time the clock skips", form([](F& f) {
             f.kind = F::Kind::OneOff, f.days.clear(), f.at = f.runFor = "", f.from = "2027-03-28 02:30",
             f.to = "2027-03-28 04:00";
         }),
         "not a local date"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto fault = c.form.validate(now);
        if (!c.fault) {
            EXPECT_EQ(fault, std::nullopt);
            AbstractRule r;
            ASSERT_TRUE(c.form.applyTo(r));
            EXPECT_EQ(r.name(), "Station");  // the bookmark's
            auto back = F::fromRule(r);
            EXPECT_EQ(back.kind, c.form.kind);
            EXPECT_EQ(back.days, c.form.days);
            EXPECT_EQ(back.at, c.form.at);
            EXPECT_EQ(back.runFor, c.form.runFor);
            EXPECT_EQ(back.from.substr(0, 16), c.form.from.substr(0, 16));
            EXPECT_EQ(back.bookmark, bookmarkFile_);
            ASSERT_TRUE(r.bookmarkData());
            EXPECT_EQ(*r.bookmarkData(), bookmark_->archivedResource());
        } else {
            ASSERT_TRUE(fault.has_value());
            EXPECT_EQ(fault->rfind(c.fault, 0), 0u) << *fault;
            EXPECT_EQ(fault->find('\n'), std::string::npos);
        }
    }
}

}  // namespace
}  // namespace quillon
