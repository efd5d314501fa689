#pragma once
// One planned start and stop of a rule, for the list of upcoming actions: the
// rule's name and identifier, the two dates, and their display texts
// ("Monday, March 03 2008, 9:30 pm": the localised "dateFormat", then the
// time in the preference "timeMode").
//
// Thread contract: a plain value; the setters read the shared preferences.
#include <chrono>
#include <cstdint>
#include <string>

namespace quillon {

class PendingAction {
public:
    using Date = std::chrono::system_clock::time_point;

    // Empty texts, both dates `now`.
    explicit PendingAction(Date now = std::chrono::system_clock::now()) : startDate_(now), stopDate_(now) {}

    const std::string& name() const { return name_; }
    void setName(std::string name) { name_ = std::move(name); }
    const std::string& pendingAction() const { return name_; }
    std::uint32_t ruleId() const { return ruleId_; }
    void setRuleId(std::uint32_t id) { ruleId_ = id; }

    const std::string& start() const { return start_; }
    const std::string& stop() const { return stop_; }
    const std::string& pendingStart() const { return start_; }
    const std::string& pendingStop() const { return stop_; }
    void setStart(std::string text) { start_ = std::move(text); }
    void setStop(std::string text) { stop_ = std::move(text); }

    Date startDate() const { return startDate_; }
    Date stopDate() const { return stopDate_; }
    bool hasStopDate() const { return hasStopDate_; }
    // Store the date and rebuild its display text.
    void setStartDate(Date date);
    void setStopDate(Date date);

    // The display text of a date: day text, ", ", time text.
    static std::string displayText(Date date);

    // By start date, ascending: negative, 0 or positive.
    int compare(const PendingAction& other) const;
    // By "pendingStart", "pendingStop" or "pendingAction" (the name); any
    // other key compares equal. `descending` compares other with this one.
    int compareActions(const PendingAction& other, const std::string& key, bool descending) const;

private:
    std::string name_;
    std::uint32_t ruleId_ = 0;
    std::string start_;
    std::string stop_;
    Date startDate_;
    Date stopDate_;
    bool hasStopDate_ = false;
};

}  // namespace quillon
