#pragma once
// Dates as tests write them: a moment of the local calendar, or of UTC.
#include <chrono>
#include <ctime>

namespace quillon::test {

inline std::tm calendarParts(int year, int month, int day, int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return parts;
}

// A local date and time (the time zone's daylight saving as it falls that day).
inline std::chrono::system_clock::time_point localDate(int year, int month, int day, int hour = 12,
                                                       int minute = 0, int second = 0) {
    std::tm parts = calendarParts(year, month, day, hour, minute, second);
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

// A date and time in UTC, whatever the local time zone.
inline std::chrono::system_clock::time_point utcDate(int year, int month, int day, int hour, int minute,
                                                     int second) {
    std::tm parts = calendarParts(year, month, day, hour, minute, second);
    return std::chrono::system_clock::from_time_t(timegm(&parts));
}

}  // namespace quillon::test
