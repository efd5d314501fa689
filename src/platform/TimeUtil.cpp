#include "platform/TimeUtil.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>
#include <thread>

#include <fmt/format.h>

#include "platform/TextUtil.h"

namespace quillon {

namespace {

std::string twoDigits(long long value) { return padLeft(std::to_string(value), 2); }

}  // namespace

std::string TimeUtil::formatTime(int hour, int minute, int timeMode) {
    std::string m = twoDigits(minute);
    if (timeMode == 24) return fmt::format("{}:{}", hour, m);
    if (hour == 0) return fmt::format("12:{} am", m);
    if (hour < 12) return fmt::format("{}:{} am", hour, m);
    if (hour == 12) return fmt::format("12:{} pm", m);
    return fmt::format("{}:{} pm", hour - 12, m);
}

std::string TimeUtil::checkTime(std::string_view text, int timeMode) {
    if (text.empty()) return {};
    std::u32string typed = toUtf32(text);
    std::size_t colon = typed.find(U':');
    std::string filtered;
    for (char32_t c : typed) {
        if (c >= 'A' && c <= 'Z') c += 'a' - 'A';
        if ((c >= '0' && c <= '9') || c == ':' || c == 'a' || c == 'm' || c == 'p')
            filtered += static_cast<char>(c);
    }
    int minute = 0;
    if (colon != std::u32string::npos) {
        // The colon's position in the typed text is applied to the filtered text
        // unchanged, even when characters ahead of it were removed.
        std::string_view digits;
        if (colon + 1 < filtered.size()) digits = std::string_view(filtered).substr(colon + 1, 2);
        minute = std::clamp(intValue(digits), 0, 59);
    }
    int hour = std::clamp(intValue(filtered), 0, 23);
    if (endsWith(filtered, "am")) {
        if (hour == 12) hour = 0;
        if (hour > 12) hour -= 12;
    } else if (endsWith(filtered, "pm")) {
        if (hour == 0)
            hour = 12;
        else if (hour < 12)
            hour += 12;
    }
    return formatTime(hour, minute, timeMode);
}

int TimeUtil::hourFromString(std::string_view text) {
    int hour = intValue(text);
    if ((endsWith(text, "pm") || endsWith(text, "PM")) && hour < 12) hour += 12;
    if ((endsWith(text, "am") || endsWith(text, "AM")) && hour == 12) hour = 0;
    return std::clamp(hour, 0, 23);
}

int TimeUtil::hourNumberFromString(std::string_view text) { return std::max(intValue(text), 0); }

int TimeUtil::minutesFromString(std::string_view text) {
    std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return 0;
    return std::clamp(intValue(text.substr(colon + 1)), 0, 59);
}

std::string TimeUtil::durationFromString(std::string_view text) {
    return fmt::format("{}:{}", hourNumberFromString(text), twoDigits(minutesFromString(text)));
}

int TimeUtil::durationInMinutesFromString(std::string_view text) {
    long long minutes = static_cast<long long>(hourNumberFromString(text)) * 60 + minutesFromString(text);
    return static_cast<int>(std::min<long long>(minutes, std::numeric_limits<int>::max()));
}

void TimeUtil::threadSleep(double seconds) {
    if (!(seconds > 0)) return;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

const std::vector<std::string>& TimeUtil::days() {
    static const std::vector<std::string> names{"", "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    return names;
}

const std::vector<std::string>& TimeUtil::months() {
    static const std::vector<std::string> names{"",    "jan", "feb", "mar", "apr", "may", "jun",
                                                "jul", "aug", "sep", "oct", "nov", "dec"};
    return names;
}

std::string TimeUtil::mailTimezone(Date date) {
    long offset = localParts(date).tm_gmtoff;
    // Whole hours only and always "+": zones west of GMT and half-hour zones
    // come out as their whole-hour distance.
    long hours = std::labs(offset / 3600);
    return fmt::format("+{}00", twoDigits(hours));
}

std::string TimeUtil::maildate(Date date) {
    std::tm parts = localParts(date);
    // The weekday index counts from Sunday = 0 into a list whose first entry is
    // empty, so Sunday has no name and Monday reads "Sun".
    return fmt::format("{}, {} {} {} {}:{}:{} {}", days()[static_cast<std::size_t>(parts.tm_wday)],
                       twoDigits(parts.tm_mday), months()[static_cast<std::size_t>(parts.tm_mon + 1)],
                       parts.tm_year + 1900, twoDigits(parts.tm_hour), twoDigits(parts.tm_min),
                       twoDigits(parts.tm_sec), mailTimezone(date));
}

TimeUtil::Date TimeUtil::firstDateOfWeek(int week, int year) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = 0;
    // Calendar days, so that a daylight-saving change keeps the result at midnight.
    parts.tm_mday = 1 + 7 * week - 7;
    parts.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

std::tm TimeUtil::localParts(Date date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    ::localtime_r(&t, &parts);
    return parts;
}

int TimeUtil::returnWeekNoFromDate(Date date) { return (localParts(date).tm_yday + 1) / 7 + 1; }

std::string TimeUtil::intervalRepresentation(double seconds) {
    // Out-of-range values are pinned rather than converted undefinedly.
    constexpr double limit = 1e15;
    double whole = std::isnan(seconds) ? 0 : std::clamp(std::trunc(seconds), -limit, limit);
    long long n = static_cast<long long>(whole);
    auto lastTwo = [](long long v) {
        std::string s = fmt::format("0{}", v);
        return s.substr(s.size() - 2);
    };
    return fmt::format("{}D {}:{}:{}", n / 86400, (n % 86400) / 3600, lastTwo((n % 3600) / 60),
                       lastTwo(n % 60));
}

}  // namespace quillon
