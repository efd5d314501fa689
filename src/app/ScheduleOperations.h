#pragma once
// The work of `quillon schedule`, on a Schedules list and independent of where
// the request came from, so that a route of the running application can give
// the same answers as the command line. Each change saves the list.
//
// JSON field names (stable):
//   rule:     id (number), name, type ("weekly" | "oneOff"), active, bookmark
//             (the bookmark file's name), bookmarkPath, days (["mon", ...],
//             weekly), at ("HH:MM"), runFor ("H:MM"), from, to (one-off, local
//             "YYYY-MM-DD HH:MM:SS"), relayOnly, listen, running (a connection
//             of the rule is open)
//   upcoming: id (the rule's), name, start, stop (local "YYYY-MM-DD HH:MM:SS";
//             stop may be null), startText, stopText (as displayed)
//
// Thread contract: as Schedules (the main thread for anything that may tick).
#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>

#include "app/OperationResult.h"
#include "schedule/ScheduleRuleForm.h"

namespace quillon {

class AbstractRule;
class Schedules;

class ScheduleOperations {
public:
    using Date = std::chrono::system_clock::time_point;

    using Result = OperationResult;  // the value: the rule or list

    // Validates the form and adds a new rule; the value is the rule.
    static Result add(Schedules& schedules, const ScheduleRuleForm& form, Date now);
    // `id` as typed; the value is the rule as it was (rm) or is now.
    static Result remove(Schedules& schedules, const std::string& id);
    static Result setActive(Schedules& schedules, const std::string& id, bool active);
    // Changes the given rule fields; the value is the rule as it is now.
    static Result update(Schedules& schedules, const std::string& id, const nlohmann::json& changes,
                         Date now);
    // Every rule, in the list's order.
    static nlohmann::json list(const Schedules& schedules);
    // The upcoming starts, earliest first.
    static nlohmann::json upcoming(Schedules& schedules);

    static nlohmann::json ruleRecord(const AbstractRule& rule);
    // A saved bookmark's file: a .qlnbk file as given, else a name of the
    // bookmarks folder, as an absolute path. Throws BadInput.
    static std::string bookmarkFile(const std::string& argument);
    // "mon,wed" as weekday numbers (0 = Sunday). Throws BadInput.
    static std::set<int> parseDays(const std::string& text);
    // A rule form from the API's JSON (the rule fields above, without id,
    // type and running). Throws BadInput for unknown fields and wrong types.
    static ScheduleRuleForm formFromJson(const nlohmann::json& body);
    // A rule identifier as typed: a whole number from 1 to 4294967295.
    static std::optional<std::uint32_t> parseId(const std::string& text);
};

}  // namespace quillon
