#include "schedule/ScheduleRuleForm.h"

#include <fmt/format.h>

#include "platform/TextUtil.h"
#include "platform/TimeUtil.h"
#include "schedule/AbstractRule.h"
#include "schedule/LocalDate.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

constexpr const char* kShortNames[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
constexpr const char* kLongNames[] = {"sunday",   "monday", "tuesday", "wednesday",
                                      "thursday", "friday", "saturday"};
// A run of a week or more would overlap the rule's own next start.
constexpr int kMaxRunHours = 168;

std::shared_ptr<Bookmark> loadBookmark(const std::string& path) {
    auto b = Bookmark::bookmark();
    if (path.empty() || !b->loadFromFile(path)) return nullptr;
    return b;
}

}  // namespace

std::optional<int> ScheduleRuleForm::weekdayFromName(std::string_view name) {
    std::string lower = toLowerAscii(std::string(name));
    for (int day = 0; day < 7; ++day)
        if (lower == kShortNames[day] || lower == kLongNames[day]) return day;
    return std::nullopt;
}

const char* ScheduleRuleForm::weekdayName(int day) { return kShortNames[day]; }

std::optional<std::pair<int, int>> ScheduleRuleForm::clockText(std::string_view text, int maxHours) {
    auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon > 3 || text.size() != colon + 3)
        return std::nullopt;
    int hours = 0, minutes = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i == colon) continue;
        if (text[i] < '0' || text[i] > '9') return std::nullopt;
        int& field = i < colon ? hours : minutes;
        field = field * 10 + (text[i] - '0');
    }
    if (hours >= maxHours || minutes > 59) return std::nullopt;
    return std::pair{hours, minutes};
}

std::optional<std::string> ScheduleRuleForm::validate(Date now) const {
    auto b = loadBookmark(bookmark);
    if (!b) return "not a bookmark file: " + bookmark;
    if (b->host().value_or("").empty() || intValue(b->port().value_or("")) <= 0)
        return "the bookmark " + bookmark + " has no stream address (host and port)";
    if (!Bookmark::isLatin1(name)) return "rule names are limited to Latin-1 characters: \"" + name + "\"";
    if (kind == Kind::Weekly) {
        if (!from.empty() || !to.empty())
            return "a weekly rule takes --days, --at and --for, not --from/--to";
        if (days.empty()) return "give the days of a weekly rule (e.g. mon,wed)";
        for (int day : days)
            if (day < 0 || day > 6) return "not a day of the week: " + std::to_string(day);
        if (!clockText(at, 24)) return "not a time of day: '" + at + "' (expected HH:MM, 00:00 to 23:59)";
        auto run = clockText(runFor, kMaxRunHours);
        if (!run) return "not a run time: '" + runFor + "' (expected H:MM, less than 168:00)";
        if (run->first == 0 && run->second == 0) return "the run time must be more than 0:00";
        return std::nullopt;
    }
    if (!days.empty() || !at.empty() || !runFor.empty())
        return "a one-off rule takes --from and --to, not --days/--at/--for";
    auto start = LocalDate::fromLocalText(from);
    if (!start) return "not a local date and time: '" + from + "' (expected YYYY-MM-DD HH:MM[:SS])";
    auto stop = LocalDate::fromLocalText(to);
    if (!stop) return "not a local date and time: '" + to + "' (expected YYYY-MM-DD HH:MM[:SS])";
    if (*stop <= *start) return "the stop must come after the start";
    if (*start <= now) return "the start has passed: " + from;
    return std::nullopt;
}

bool ScheduleRuleForm::applyTo(AbstractRule& rule) const {
    auto b = loadBookmark(bookmark);
    if (!b) return false;
    rule.setName(name.empty() ? b->name().value_or("") : name);
    rule.setBookmarkPath(bookmark);
    rule.setBookmarkData(b->archivedResource());
    if (kind == Kind::Weekly) {
        rule.setRuleType(AbstractRule::kWeekly);
        auto time = clockText(at, 24).value_or(std::pair{0, 0});
        auto run = clockText(runFor, kMaxRunHours).value_or(std::pair{0, 0});
        // Stored in the editor's 24-hour form.
        const std::string start = TimeUtil::formatTime(time.first, time.second, 24);
        const std::string length = fmt::format("{}:{:02}", run.first, run.second);
        for (int day = 0; day < 7; ++day)
            rule.setDay(day, days.count(day) > 0, start, length, listen, relayOnly);
        return true;
    }
    rule.setRuleType(AbstractRule::kOneOff);
    if (auto start = LocalDate::fromLocalText(from)) rule.setStartDate(*start);
    if (auto stop = LocalDate::fromLocalText(to)) rule.setEndDate(*stop);
    rule.setAutoListen(listen);
    rule.setRelayOnly(relayOnly);
    return true;
}

ScheduleRuleForm ScheduleRuleForm::fromRule(const AbstractRule& rule) {
    ScheduleRuleForm form;
    form.bookmark = rule.bookmarkPath();
    form.name = rule.name().value_or("");
    if (rule.isOneOff()) {
        form.kind = Kind::OneOff;
        if (auto start = rule.startDate()) form.from = LocalDate::localText(*start);
        if (auto stop = rule.endDate()) form.to = LocalDate::localText(*stop);
        form.relayOnly = rule.relayOnly();
        form.listen = rule.autoListen();
        return form;
    }
    form.kind = Kind::Weekly;
    for (int day = 0; day < 7; ++day) {
        if (!rule.dayEnabled(day)) continue;
        if (form.days.empty()) {
            // Each day may have times of its own; the first enabled day's stand
            // for the rule.
            const std::string start = rule.dayStart(day), run = rule.dayRun(day);
            form.at = fmt::format("{:02}:{:02}", TimeUtil::hourFromString(start),
                                  TimeUtil::minutesFromString(start));
            form.runFor = fmt::format("{}:{:02}", TimeUtil::hourNumberFromString(run),
                                      TimeUtil::minutesFromString(run));
            form.listen = rule.dayListen(day);
            form.relayOnly = rule.dayRelay(day);
        }
        form.days.insert(day);
    }
    return form;
}

}  // namespace quillon
