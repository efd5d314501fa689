#pragma once
// A rule as the command line and the JSON API give it, checked the same way
// for both: a weekly rule (days, start "HH:MM", run "H:MM") or a one-off rule
// (from/to as local "YYYY-MM-DD HH:MM[:SS]"), the bookmark file it records,
// its name, relay-only and listen. validate() names the first fault in one
// line; applyTo() writes a valid form into a rule's keys, with the bookmark's
// archive as "bookmarkData"; fromRule() reads a rule back.
//
// Thread contract: a plain value; applyTo and validate read the bookmark file.
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace quillon {

class AbstractRule;

struct ScheduleRuleForm {
    using Date = std::chrono::system_clock::time_point;
    enum class Kind { Weekly, OneOff };

    Kind kind = Kind::Weekly;
    std::string bookmark;  // path of the .qlnbk file
    std::string name;      // empty: the bookmark's name
    std::set<int> days;    // 0 = Sunday
    std::string at;        // "21:00"
    std::string runFor;    // "1:30"
    std::string from;      // "2026-12-24 21:00" or with ":SS"
    std::string to;
    bool relayOnly = false;
    bool listen = false;

    // The first fault in one line, or nothing. A one-off rule must start after
    // `now`: one that has passed would never fire.
    std::optional<std::string> validate(Date now = std::chrono::system_clock::now()) const;
    // Writes a valid form into the rule (type, name, bookmark path and archive,
    // days or dates, switches); false when the bookmark cannot be read.
    bool applyTo(AbstractRule& rule) const;
    static ScheduleRuleForm fromRule(const AbstractRule& rule);

    // "sun" ... "sat" (any case, also the full English names), 0 = Sunday.
    static std::optional<int> weekdayFromName(std::string_view name);
    static const char* weekdayName(int day);  // "sun" ... "sat"
    // "H:MM" or "HH:MM" with hours below `maxHours` and minutes below 60, as
    // (hours, minutes).
    static std::optional<std::pair<int, int>> clockText(std::string_view text, int maxHours);
};

}  // namespace quillon
