#include "cli/ScheduleOperations.h"

#include <memory>

#include "schedule/AbstractRule.h"
#include "schedule/LocalDate.h"
#include "schedule/ScheduleRuleForm.h"
#include "schedule/Schedules.h"

namespace quillon {

namespace {

using Result = ScheduleOperations::Result;

Result failure(Result::Status status, std::string error) {
    Result r;
    r.status = status;
    r.error = std::move(error);
    return r;
}

Result saved(Schedules::Outcome outcome, const Schedules& schedules, nlohmann::json value) {
    if (outcome == Schedules::Outcome::NotSaved)
        return failure(Result::Status::Failed, "cannot write the schedules file " + schedules.path());
    Result r;
    r.value = std::move(value);
    return r;
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
    if (!rule) return failure(Result::Status::BadInput, "no rule with the id " + text);
    nlohmann::json record = ruleRecord(*rule);
    return saved(schedules.deleteRule(*id), schedules, std::move(record));
}

Result ScheduleOperations::setActive(Schedules& schedules, const std::string& text, bool active) {
    auto id = parseId(text);
    if (!id) return failure(Result::Status::BadInput, "not a rule id: '" + text + "'");
    auto rule = schedules.ruleForId(*id);
    if (!rule) return failure(Result::Status::BadInput, "no rule with the id " + text);
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

}  // namespace quillon
