#pragma once
// Clock-time texts (parsing and display in 24-hour or am/pm mode), the mail
// "Date:" value, week numbers and the elapsed-time text. Lives in platform/
// because the engine and the history use it as well as the scheduler.
//
// Every operation is a pure static function, re-entrant and lock-free; dates are
// read in the process's local time zone. threadSleep blocks the calling thread and
// is for worker threads only, never for the main loop.
#include <chrono>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

class TimeUtil {
public:
    using Date = std::chrono::system_clock::time_point;

    // A typed clock time normalised to the display mode (24, or anything else
    // for am/pm); the empty text stays empty.
    static std::string checkTime(std::string_view text, int timeMode);
    static std::string formatTime(int hour, int minute, int timeMode);
    // Hour 0-23 of a text such as "7", "7 pm" or "12 AM".
    static int hourFromString(std::string_view text);
    // A non-negative hour count without upper bound (durations).
    static int hourNumberFromString(std::string_view text);
    // Minute 0-59 from the text behind the first ":".
    static int minutesFromString(std::string_view text);
    static std::string durationFromString(std::string_view text);
    static int durationInMinutesFromString(std::string_view text);
    static void threadSleep(double seconds);

    // "", "Sun", "Mon", ... "Sat": the empty first entry is part of the mail
    // date's weekday rule.
    static const std::vector<std::string>& days();
    // "", "jan", ... "dec".
    static const std::vector<std::string>& months();
    // "+HH00" with the whole hours of the zone offset, always positive.
    static std::string mailTimezone(Date date);
    static std::string maildate(Date date);
    // 1 January of the year at midnight, local time, plus 7 * (week - 1) days.
    static Date firstDateOfWeek(int week, int year);
    // Day of the year (from 1) / 7 + 1.
    static int returnWeekNoFromDate(Date date);
    // "<days>D <hours>:<mm>:<ss>", e.g. "0D 1:02:05".
    static std::string intervalRepresentation(double seconds);

    // The date's calendar fields in the local time zone.
    static std::tm localParts(Date date);
};

}  // namespace quillon
