#pragma once
// Calendar dates of the rules in the process's local time zone (TZ): a wall
// clock time of a given day as an instant, even on the days the clock skips or
// repeats an hour, and the two texts the rules use: the stored one-off date
// ("2008-03-01 21:30:00 +0100") and the local text typed on the command line
// ("2026-12-24 21:00" or "2026-12-24 21:00:30").
//
// Thread contract: stateless; any thread (localtime_r and mktime only).
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quillon {

class LocalDate {
public:
    using Date = std::chrono::system_clock::time_point;

    // The instant the local clock shows that time on that day. A time the
    // clock shows twice (the hour repeated when daylight saving ends) is its
    // first showing; a time the clock skips (the hour lost when it begins) is
    // the moment the skip ends. Fields out of range roll over as mktime does.
    static Date at(int year, int month, int day, int hour, int minute, int second = 0);
    // The same day `days` later (or earlier), at the given time.
    static Date dayAfter(Date date, int days, int hour, int minute);

    // "YYYY-MM-DD HH:MM:SS +HHMM", the local time and its offset.
    static std::string storedText(Date date);
    // A stored text back; any offset is honoured. Nothing for other text.
    static std::optional<Date> fromStoredText(std::string_view text);

    // "YYYY-MM-DD HH:MM:SS" in local time.
    static std::string localText(Date date);
    // "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS" as local time; nothing for
    // other text, for fields out of range (2026-02-30) and for a time the clock
    // skips that day.
    static std::optional<Date> fromLocalText(std::string_view text);
};

}  // namespace quillon
