#pragma once
// Shared pieces of the schedule tests: a time zone set for the scope, a starter
// that opens real connections to a test station and notes each call, rules
// over a saved bookmark, and a tick-by-tick simulation that reports when the
// rule opened and closed its connection.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/RipperTestSupport.h"
#include "schedule/AbstractRule.h"
#include "support/Dates.h"

namespace quillon::test {

// TZ for the scope (setenv + tzset), restored afterwards.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) saved_ = old;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ScopedTimeZone() {
        if (saved_)
            ::setenv("TZ", saved_->c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::optional<std::string> saved_;
};

// Opens each asked-for connection as a real one to the station, owned here.
class FakeStarter {
public:
    struct Call {
        std::string name;
        bool relayOnly;
        bool autoListen;
        bool withRule;
    };

    explicit FakeStarter(std::string folder) : owner_(std::move(folder)) {}

    AbstractRule::Starter starter() {
        return [this](const Bookmark& b, const std::shared_ptr<ConnectionTimer>& rule, bool relay,
                      bool listen) -> Ripper* {
            calls.push_back({b.name().value_or(""), relay, listen, rule != nullptr});
            if (refuse) return nullptr;
            connections.push_back(std::make_unique<Ripper>(owner_, b, relay, listen));
            return connections.back().get();
        };
    }

    std::vector<Call> calls;
    std::vector<std::unique_ptr<Ripper>> connections;
    bool refuse = false;

private:
    RecordingOwner owner_;
};

struct RuleEvent {
    bool start;  // else a stop
    AbstractRule::Date at;
    bool operator==(const RuleEvent&) const = default;
};

inline void PrintTo(const RuleEvent& e, std::ostream* os) {
    std::time_t t = std::chrono::system_clock::to_time_t(e.at);
    char text[32];
    std::strftime(text, sizeof text, "%a %F %T", std::localtime(&t));
    *os << (e.start ? "start " : "stop ") << text;
}

// A station and a saved bookmark for it; rules of both kinds over that bookmark.
class ScheduleFixture : public RipperFixture {
protected:
    void SetUp() override {
        RipperFixture::SetUp();
        StationOptions options = counterStation();
        options.rate = StationRate::realtime;
        station_ = std::make_unique<Station>(options);
        station_->start();
        bookmark_ = bookmarkFor(station_->port(), "Station");
        bookmarkFile_ = bookmark_->pathInFolder(folder_);
        ASSERT_TRUE(bookmark_->saveToFile(folder_));
        starter_ = std::make_unique<FakeStarter>(folder_ + "/records");
    }
    void TearDown() override {
        starter_.reset();
        station_->stop();
        RipperFixture::TearDown();
    }

    std::shared_ptr<AbstractRule> rule(const std::string& name = "Jazz Night") const {
        auto r = std::make_shared<AbstractRule>();
        r->setName(name);
        r->setBookmarkPath(bookmarkFile_);
        r->setBookmarkData(bookmark_->archivedResource());
        r->setStarter(starter_->starter());
        return r;
    }
    // A weekly rule on the given days (0 = Sunday), all at the same times.
    std::shared_ptr<AbstractRule> weekly(std::initializer_list<int> days, const std::string& start,
                                         const std::string& run,
                                         const std::string& name = "Jazz Night") const {
        auto r = rule(name);
        r->setRuleType(AbstractRule::kWeekly);
        for (int day : days) r->setDay(day, true, start, run);
        return r;
    }
    std::shared_ptr<AbstractRule> oneOff(AbstractRule::Date start, AbstractRule::Date stop) const {
        auto r = rule();
        r->setRuleType(AbstractRule::kOneOff);
        r->setStartDate(start);
        r->setEndDate(stop);
        return r;
    }

    // Ticks every `step` seconds from `from` up to `to`, noting each time the
    // rule took or let go of a connection.
    static std::vector<RuleEvent> simulate(AbstractRule& rule, AbstractRule::Date from, AbstractRule::Date to,
                                           std::chrono::seconds step = std::chrono::seconds(10)) {
        std::vector<RuleEvent> events;
        for (auto now = from; now <= to; now += step) {
            Ripper* before = rule.currentConnection();
            rule.shouldStartAtDate(now);
            Ripper* after = rule.currentConnection();
            if (before && after != before) events.push_back({false, now});
            if (after && after != before) events.push_back({true, now});
        }
        return events;
    }

    std::unique_ptr<Station> station_;
    std::shared_ptr<Bookmark> bookmark_;
    std::string bookmarkFile_;
    std::unique_ptr<FakeStarter> starter_;
};

}  // namespace quillon::test
