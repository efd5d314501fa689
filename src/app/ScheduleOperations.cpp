#include "app/ScheduleOperations.h"

#include <memory>

#include <filesystem>

#include "app/BadInput.h"
#include "platform/Home.h"
#include "platform/TextUtil.h"
#include "schedule/AbstractRule.h"
#include "schedule/LocalDate.h"
#include "schedule/ScheduleRuleForm.h"
#include "schedule/Schedules.h"
#include "store/Bookmark.h"
#include "store/BookmarkFolder.h"

namespace quillon {

namespace {

using Result = ScheduleOperations::Result;

constexpr auto failure = &OperationResult::failure;

Result saved(Schedules::Outcome outcome, const Schedules& schedules, nlohmann::json value) {
    if (outcome == Schedules::Outcome::NotSaved)
        return failure(Result::Status::Failed, "cannot write the schedules file " + schedules.path());
    return Result::done(std::move(value));
}

}  // namespace

std::optional<std::uint32_t> ScheduleOperations::parseId(const std::string& text) {
    if (text.empty() || text.size() > 10) return std::nullopt;
    std::uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<std::uint64_t>(c - '0');
    }
    if (value == 0 || value > 0xFFFFFFFFull) return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

nlohmann::json ScheduleOperations::ruleRecord(const AbstractRule& rule) {
    ScheduleRuleForm form = ScheduleRuleForm::fromRule(rule);
    nlohmann::json j;
    j["id"] = rule.uniqueId();
    j["name"] = form.name;
    j["type"] = form.kind == ScheduleRuleForm::Kind::OneOff ? "oneOff" : "weekly";
    j["active"] = rule.active();
    j["bookmark"] = rule.description();
    j["bookmarkPath"] = form.bookmark;
    if (form.kind == ScheduleRuleForm::Kind::Weekly) {
        nlohmann::json days = nlohmann::json::array();
        for (int day : form.days) days.push_back(ScheduleRuleForm::weekdayName(day));
        j["days"] = days;
        j["at"] = form.at;
        j["runFor"] = form.runFor;
    } else {
        j["from"] = form.from;
        j["to"] = form.to;
    }
    j["relayOnly"] = form.relayOnly;
    j["listen"] = form.listen;
    j["running"] = rule.currentConnection() != nullptr;
    return j;
}

Result ScheduleOperations::add(Schedules& schedules, const ScheduleRuleForm& form, Date now) {
    if (auto fault = form.validate(now)) return failure(Result::Status::BadInput, *fault);
    auto rule = std::make_shared<AbstractRule>();
    if (!form.applyTo(*rule))
        return failure(Result::Status::BadInput, "not a bookmark file: " + form.bookmark);
    Schedules::Outcome outcome = schedules.addRule(rule);
    return saved(outcome, schedules, ruleRecord(*rule));
}

Result ScheduleOperations::remove(Schedules& schedules, const std::string& text) {
    auto id = parseId(text);
    if (!id) return failure(Result::Status::BadInput, "not a rule id: '" + text + "'");
    auto rule = schedules.ruleForId(*id);
    if (!rule) return failure(Result::Status::NotFound, "no rule with the id " + text);
    nlohmann::json record = ruleRecord(*rule);
    return saved(schedules.deleteRule(*id), schedules, std::move(record));
}

Result ScheduleOperations::setActive(Schedules& schedules, const std::string& text, bool active) {
    auto id = parseId(text);
    if (!id) return failure(Result::Status::BadInput, "not a rule id: '" + text + "'");
    auto rule = schedules.ruleForId(*id);
    if (!rule) return failure(Result::Status::NotFound, "no rule with the id " + text);
    Schedules::Outcome outcome = schedules.setRuleActive(*id, active);
    return saved(outcome, schedules, ruleRecord(*rule));
}

nlohmann::json ScheduleOperations::list(const Schedules& schedules) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& rule : schedules.schedulesArray()) out.push_back(ruleRecord(*rule));
    return out;
}

nlohmann::json ScheduleOperations::upcoming(Schedules& schedules) {
    schedules.sortActionsByKey(std::string("pendingStart"), false);
    nlohmann::json out = nlohmann::json::array();
    for (const PendingAction& action : schedules.pendingActions()) {
        nlohmann::json j;
        j["id"] = action.ruleId();
        j["name"] = action.name();
        j["start"] = LocalDate::localText(action.startDate());
        j["stop"] = action.hasStopDate() ? nlohmann::json(LocalDate::localText(action.stopDate())) : nullptr;
        j["startText"] = action.start();
        j["stopText"] = action.stop();
        out.push_back(j);
    }
    return out;
}

// A saved bookmark's file: a .qlnbk file as given, else a name of the
// bookmarks folder. Stored as an absolute path, which the rule keeps.
std::string ScheduleOperations::bookmarkFile(const std::string& argument) {
    const std::string extension = std::string(".") + Bookmark::kFileExtension;
    if (argument.empty()) throw BadInput("the bookmark is empty");
    if (endsWith(argument, extension) && fileExists(argument))
        return std::filesystem::absolute(argument).lexically_normal().string();
    if (auto folder = BookmarkFolder::folder()) {
        std::string name =
            endsWith(argument, extension) ? argument.substr(0, argument.size() - extension.size()) : argument;
        if (name.find("..") == std::string::npos && !std::filesystem::path(name).is_absolute()) {
            if (auto file = BookmarkFolder::fileForName(*folder, name)) return *file;
        }
    }
    throw BadInput("no bookmark named \"" + printable(argument) +
                   "\" (a name as `quillon bookmark list` "
                   "shows it, or a .qlnbk file)");
}

std::set<int> ScheduleOperations::parseDays(const std::string& text) {
    std::set<int> days;
    std::size_t at = 0;
    while (at <= text.size() && !text.empty()) {
        std::size_t end = std::min(text.find(',', at), text.size());
        std::string word = text.substr(at, end - at);
        auto day = ScheduleRuleForm::weekdayFromName(word);
        if (!day) throw BadInput("not a day of the week: '" + printable(word) + "' (expected mon, tue, ...)");
        days.insert(*day);
        at = end + 1;
    }
    return days;
}

Result ScheduleOperations::update(Schedules& schedules, const std::string& text,
                                  const nlohmann::json& changes, Date now) {
    auto id = parseId(text);
    if (!id) return failure(Result::Status::BadInput, "not a rule id: '" + text + "'");
    auto rule = schedules.ruleForId(*id);
    if (!rule) return failure(Result::Status::NotFound, "no rule with the id " + text);
    // The rule as a form, with the given fields over it: a change names only
    // what changes, and a weekly rule becomes a one-off one by giving dates.
    nlohmann::json merged = ruleRecord(*rule);
    merged["bookmark"] = merged["bookmarkPath"];
    for (const char* key : {"id", "type", "active", "running", "bookmarkPath"}) merged.erase(key);
    if (changes.contains("from") || changes.contains("to")) {
        for (const char* key : {"days", "at", "runFor"}) merged.erase(key);
    } else if (changes.contains("days") || changes.contains("at") || changes.contains("runFor")) {
        for (const char* key : {"from", "to"}) merged.erase(key);
    }
    for (auto it = merged.begin(); it != merged.end();) it = it->is_null() ? merged.erase(it) : std::next(it);
    for (const auto& [key, value] : changes.items()) merged[key] = value;
    ScheduleRuleForm form;
    try {
        form = formFromJson(merged);
    } catch (const BadInput& e) {
        return failure(Result::Status::BadInput, e.what());
    }
    if (auto fault = form.validate(now)) return failure(Result::Status::BadInput, *fault);
    // Checked on a copy first, so that a bookmark that cannot be read leaves
    // the rule as it was.
    auto trial = std::make_shared<AbstractRule>();
    if (!form.applyTo(*trial))
        return failure(Result::Status::BadInput, "not a bookmark file: " + form.bookmark);
    bool active = rule->active();
    form.applyTo(*rule);
    rule->setActive(active);
    return saved(schedules.save() ? Schedules::Outcome::Saved : Schedules::Outcome::NotSaved, schedules,
                 ruleRecord(*rule));
}

ScheduleRuleForm ScheduleOperations::formFromJson(const nlohmann::json& body) {
    static const char* const known[] = {"bookmark", "name", "days",      "at",    "runFor",
                                        "from",     "to",   "relayOnly", "listen"};
    for (const auto& [key, value] : body.items()) {
        if (std::find(std::begin(known), std::end(known), key) == std::end(known))
            throw BadInput("unknown field: " + key);
    }
    auto text = [&](const char* key) -> std::string {
        if (!body.contains(key)) return {};
        if (!body[key].is_string()) throw BadInput(std::string(key) + " must be a text");
        return body[key].get<std::string>();
    };
    auto flag = [&](const char* key) {
        if (!body.contains(key)) return false;
        if (!body[key].is_boolean()) throw BadInput(std::string(key) + " must be true or false");
        return body[key].get<bool>();
    };
    ScheduleRuleForm form;
    form.bookmark = bookmarkFile(text("bookmark"));
    form.name = text("name");
    form.from = text("from");
    form.to = text("to");
    form.kind = form.from.empty() && form.to.empty() ? ScheduleRuleForm::Kind::Weekly
                                                     : ScheduleRuleForm::Kind::OneOff;
    if (body.contains("days")) {
        if (!body["days"].is_array()) throw BadInput("days must be a list such as [\"mon\", \"wed\"]");
        std::string joined;
        for (const auto& d : body["days"]) {
            if (!d.is_string()) throw BadInput("days must be a list such as [\"mon\", \"wed\"]");
            joined += (joined.empty() ? "" : ",") + d.get<std::string>();
        }
        form.days = parseDays(joined);
    }
    form.at = text("at");
    form.runFor = text("runFor");
    form.relayOnly = flag("relayOnly");
    form.listen = flag("listen");
    return form;
}

}  // namespace quillon
