#include "schedule/LocalDate.h"

#include <fmt/format.h>
#include <ctime>

#include "platform/TimeUtil.h"

namespace quillon {

namespace {

using Clock = std::chrono::system_clock;

// The wall clock fields that decide whether an instant shows a given time.
long long wallKey(const std::tm& t) {
    return ((((t.tm_year + 1900LL) * 100 + t.tm_mon) * 100 + t.tm_mday) * 100 + t.tm_hour) * 100 * 100 +
           t.tm_min * 100LL + t.tm_sec;
}

std::tm wallParts(std::time_t t) {
    std::tm out{};
    localtime_r(&t, &out);
    return out;
}

// Fields normalised (2026-02-30 -> 2026-03-02) without a time zone's help.
std::tm normalised(int year, int month, int day, int hour, int minute, int second) {
    std::tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    std::time_t flat = timegm(&t);
    std::tm out{};
    gmtime_r(&flat, &out);
    return out;
}

// Whole decimal digits of a fixed count at `at`.
std::optional<int> digits(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

struct Fields {
    int year, month, day, hour, minute, second;
};

// "YYYY-MM-DD HH:MM[:SS]" at the start of the text; `used` gets its length.
std::optional<Fields> parseFields(std::string_view text, bool secondsRequired, std::size_t& used) {
    auto y = digits(text, 0, 4), mo = digits(text, 5, 2), d = digits(text, 8, 2), h = digits(text, 11, 2),
         mi = digits(text, 14, 2);
    if (!y || !mo || !d || !h || !mi || text[4] != '-' || text[7] != '-' || text[10] != ' ' ||
        text[13] != ':')
        return std::nullopt;
    Fields f{*y, *mo, *d, *h, *mi, 0};
    used = 16;
    if (text.size() > 16 && text[16] == ':') {
        auto s = digits(text, 17, 2);
        if (!s) return std::nullopt;
        f.second = *s;
        used = 19;
    } else if (secondsRequired) {
        return std::nullopt;
    }
    std::tm n = normalised(f.year, f.month, f.day, f.hour, f.minute, f.second);
    bool inRange = n.tm_year + 1900 == f.year && n.tm_mon + 1 == f.month && n.tm_mday == f.day &&
                   n.tm_hour == f.hour && n.tm_min == f.minute && n.tm_sec == f.second;
    if (!inRange) return std::nullopt;
    return f;
}

}  // namespace

LocalDate::Date LocalDate::at(int year, int month, int day, int hour, int minute, int second) {
    const std::tm want = normalised(year, month, day, hour, minute, second);
    const long long wanted = wallKey(want);
    // Deliberate: mktime's choice for a repeated or skipped time depends on
    // the zone offset it last saw, so ticks on either side of a change could
    // see two different start times and fire twice. Both readings are tried and
    // the earliest that really shows the time wins; a skipped time is looked
    // for as the first instant past it.
    std::optional<std::time_t> best;
    for (int dst : {0, 1}) {
        std::tm t = want;
        t.tm_isdst = dst;
        std::time_t made = std::mktime(&t);
        if (made == static_cast<std::time_t>(-1)) continue;
        if (wallKey(wallParts(made)) == wanted && (!best || made < *best)) best = made;
    }
    if (!best) {
        std::tm t = want;
        t.tm_isdst = -1;
        std::time_t guess = std::mktime(&t);
        // The first second whose wall clock lies past the wanted time; the
        // clock only moves forward around a skip, so the search is monotonic.
        std::time_t low = guess - 4 * 3600, high = guess + 4 * 3600;
        while (low < high) {
            std::time_t mid = low + (high - low) / 2;
            if (wallKey(wallParts(mid)) >= wanted)
                high = mid;
            else
                low = mid + 1;
        }
        best = low;
    }
    return Clock::from_time_t(*best);
}

LocalDate::Date LocalDate::dayAfter(Date date, int days, int hour, int minute) {
    std::tm today = TimeUtil::localParts(date);
    return at(today.tm_year + 1900, today.tm_mon + 1, today.tm_mday + days, hour, minute);
}

std::string LocalDate::storedText(Date date) {
    std::time_t t = Clock::to_time_t(date);
    std::tm parts = wallParts(t);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &parts);
    return text;
}

std::optional<LocalDate::Date> LocalDate::fromStoredText(std::string_view text) {
    std::size_t used = 0;
    auto f = parseFields(text, true, used);
    if (!f || text.size() != used + 6 || text[used] != ' ' ||
        (text[used + 1] != '+' && text[used + 1] != '-'))
        return std::nullopt;
    auto hh = digits(text, used + 2, 2), mm = digits(text, used + 4, 2);
    if (!hh || !mm || *mm > 59) return std::nullopt;
    std::tm t{};
    t.tm_year = f->year - 1900;
    t.tm_mon = f->month - 1;
    t.tm_mday = f->day;
    t.tm_hour = f->hour;
    t.tm_min = f->minute;
    t.tm_sec = f->second;
    long offset = (*hh * 3600L + *mm * 60L) * (text[used + 1] == '-' ? -1 : 1);
    return Clock::from_time_t(timegm(&t) - offset);
}

std::string LocalDate::localText(Date date) {
    std::tm parts = TimeUtil::localParts(date);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

std::optional<LocalDate::Date> LocalDate::fromLocalText(std::string_view text) {
    std::size_t used = 0;
    auto f = parseFields(text, false, used);
    if (!f || used != text.size()) return std::nullopt;
    Date made = at(f->year, f->month, f->day, f->hour, f->minute, f->second);
    std::tm back = TimeUtil::localParts(made);
    if (back.tm_hour != f->hour || back.tm_min != f->minute) return std::nullopt;  // skipped that day
    return made;
}

}  // namespace quillon
