#pragma once
// Dates as tests write them: a moment of the local calendar.
#include <chrono>
#include <ctime>

namespace quillon::test {

// A local date and time (the time zone's daylight saving as it falls that day).
inline std::chrono::system_clock::time_point localDate(int year, int month, int day, int hour = 12,
                                                       int minute = 0, int second = 0) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

}  // namespace quillon::test
