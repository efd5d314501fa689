#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "platform/TimeUtil.h"
#include "platform/VoTime.h"
#include "support/Dates.h"

using namespace quillon;
using quillon::test::localDate;

namespace {

// Sets the process's time zone for one test and restores it afterwards.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone) {
        if (const char* old = std::getenv("TZ")) saved_ = old;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ZoneScope() {
        if (saved_)
            ::setenv("TZ", saved_->c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

private:
    std::optional<std::string> saved_;
};

std::tm localParts(TimeUtil::Date date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    ::localtime_r(&t, &parts);
    return parts;
}

}  // namespace

// The last three cases: the colon's position in the typed text is used on the
// filtered text, so "x12:3456" (filtered "12:3456") reads its minutes from "45",
// in "h 9:15" the position lands on the last digit with nothing behind it, and
// with one character behind the colon that one is read.
TEST(TimeUtilClock, CheckTimeNormalisesTypedTimes) {
    struct Case {
        const char* typed;
        int mode;
        const char* shown;
    };
    const Case cases[] = {{"12:30 AM", 24, "0:30"},
                          {"7pm", 12, "7:00 pm"},
                          {"25:70", 24, "23:59"},
                          {"", 24, ""},
                          {"", 12, ""},
                          {"9:5", 24, "9:05"},
                          {"12:00", 12, "12:00 pm"},
                          {"0:15", 12, "12:15 am"},
                          {"12 pm", 24, "12:00"},
                          {"1:45 PM", 24, "13:45"},
                          {"13:10 am", 24, "1:10"},
                          {"0 pm", 24, "12:00"},
                          {"noon", 24, "0:00"},
                          {"21:30", 7, "9:30 pm"},
                          {"x12:3456", 24, "12:45"},
                          {"h 9:15", 24, "9:00"},
                          {"12:3", 24, "12:03"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.typed);
        EXPECT_EQ(TimeUtil::checkTime(c.typed, c.mode), c.shown);
        EXPECT_EQ(VoTime::checkTime(c.typed, c.mode), c.shown);
    }
}

TEST(TimeUtilClock, FormatTimeInBothModes) {
    struct Case {
        int hour, minute, mode;
        const char* shown;
    };
    const Case cases[] = {
        {0, 5, 12, "12:05 am"}, {12, 0, 12, "12:00 pm"}, {9, 5, 24, "9:05"}, {11, 59, 12, "11:59 am"},
        {13, 7, 12, "1:07 pm"}, {23, 30, 0, "11:30 pm"}, {0, 0, 24, "0:00"}, {21, 30, 24, "21:30"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(TimeUtil::formatTime(c.hour, c.minute, c.mode), c.shown);
        EXPECT_EQ(VoTime::formatTime(c.hour, c.minute, c.mode), c.shown);
    }
}

TEST(TimeUtilClock, HoursMinutesAndDurations) {
    struct Case {
        const char* text;
        int hour, hourCount, minutes;
        const char* duration;
        int durationMinutes;
    };
    const Case cases[] = {
        {"12 am", 0, 12, 0, "12:00", 720},  {"11 PM", 23, 11, 0, "11:00", 660},
        {"30", 23, 30, 0, "30:00", 1800},   {"7:45pm", 19, 7, 45, "7:45", 465},
        {"12 pm", 12, 12, 0, "12:00", 720}, {"-3:99", 0, 0, 59, "0:59", 59},
        {"", 0, 0, 0, "0:00", 0},           {"2:5", 2, 2, 5, "2:05", 125},
        {"1:30 Pm", 1, 1, 30, "1:30", 90},  {"x:10", 0, 0, 10, "0:10", 10},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(TimeUtil::hourFromString(c.text), c.hour);
        EXPECT_EQ(TimeUtil::hourNumberFromString(c.text), c.hourCount);
        EXPECT_EQ(TimeUtil::minutesFromString(c.text), c.minutes);
        EXPECT_EQ(TimeUtil::durationFromString(c.text), c.duration);
        EXPECT_EQ(TimeUtil::durationInMinutesFromString(c.text), c.durationMinutes);
        EXPECT_EQ(VoTime::hourFromString(c.text), c.hour);
        EXPECT_EQ(VoTime::durationInMinutesFromString(c.text), c.durationMinutes);
    }
}

TEST(TimeUtilMail, ZoneIsWholeHoursAlwaysPositive) {
    struct Case {
        const char* zone;
        const char* text;
    };
    // POSIX zone strings count west as positive: "EST5" is GMT-5.
    const Case cases[] = {
        {"UTC0", "+0000"}, {"CET-1", "+0100"}, {"EST5", "+0500"}, {"IST-5:30", "+0500"}, {"XXX-14", "+1400"},
    };
    for (const Case& c : cases) {
        ZoneScope zone(c.zone);
        EXPECT_EQ(TimeUtil::mailTimezone(localDate(2008, 3, 4, 9, 7, 5)), c.text) << c.zone;
    }
}

TEST(TimeUtilMail, DateHeaderShiftsWeekdayNames) {
    ZoneScope zone("CET-1");
    // A Tuesday reads "Mon"; a Sunday has no name at all.
    EXPECT_EQ(TimeUtil::maildate(localDate(2008, 3, 4, 9, 7, 5)), "Mon, 04 mar 2008 09:07:05 +0100");
    EXPECT_EQ(TimeUtil::maildate(localDate(2008, 3, 2, 23, 0, 0)), ", 02 mar 2008 23:00:00 +0100");
    EXPECT_EQ(TimeUtil::maildate(localDate(2026, 12, 19, 0, 0, 9)), "Fri, 19 dec 2026 00:00:09 +0100");
}

TEST(TimeUtilWeeks, WeekNumbersAndFirstDays) {
    ZoneScope zone("CET-1CEST,M3.5.0,M10.5.0/3");
    struct Case {
        int month, day, week;
    };
    const Case cases[] = {{1, 1, 1}, {1, 6, 1}, {1, 7, 2}, {1, 13, 2}, {1, 14, 3}, {12, 31, 53}, {7, 1, 27}};
    for (const Case& c : cases) {
        EXPECT_EQ(TimeUtil::returnWeekNoFromDate(localDate(2026, c.month, c.day, 13)), c.week)
            << c.month << "/" << c.day;
    }
    // Week 14 lies beyond the change to summer time and still starts at midnight.
    struct Start {
        int week, month, day;
    };
    const Start starts[] = {{1, 1, 1}, {2, 1, 8}, {14, 4, 2}, {53, 12, 31}};
    for (const Start& s : starts) {
        std::tm parts = localParts(TimeUtil::firstDateOfWeek(s.week, 2026));
        EXPECT_EQ(parts.tm_year + 1900, 2026);
        EXPECT_EQ(parts.tm_mon + 1, s.month) << s.week;
        EXPECT_EQ(parts.tm_mday, s.day) << s.week;
        EXPECT_EQ(parts.tm_hour, 0) << s.week;
        EXPECT_EQ(parts.tm_min, 0);
    }
}

TEST(TimeUtilInterval, ElapsedTimeText) {
    struct Case {
        double seconds;
        const char* text;
    };
    const Case cases[] = {
        {3725, "0D 1:02:05"}, {90061, "1D 1:01:01"},  {0, "0D 0:00:00"},
        {59.9, "0D 0:00:59"}, {86399, "0D 23:59:59"}, {864000, "10D 0:00:00"},
    };
    for (const Case& c : cases) EXPECT_EQ(TimeUtil::intervalRepresentation(c.seconds), c.text) << c.seconds;
}
