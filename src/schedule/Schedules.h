#pragma once
// The owner of every schedule rule: loads them from the schedules file, saves
// them whole after every change, drives them with a repeating tick on the main
// loop (timing().scheduleTick, 10 s), and keeps the derived list of upcoming
// actions (four weeks ahead), rebuilt at load and at every save.
//
// The file (preference "schedulesPath", else home +
// "Library/Preferences/kv.schedules.qln") is a binary property list whose root
// is an array of data, each the archive of one rule. It is written to a
// temporary file and renamed into place; a file that exists but cannot be read
// is moved aside (DamagedFile) and the list starts empty.
//
// Rules are told apart by their uniqueId (unique within the list). "Now" comes
// from the injected clock, fetched afresh for each rule at each tick.
//
// Thread contract: construction, destruction, the tick, setSchedulesState and
// anything that opens or closes connections run on the main thread. `mutex_`
// guards the rule list and the upcoming list; it is held for a whole tick and
// a whole rebuild, and never while the file is written. The getters return
// copies taken under it.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/MainLoop.h"
#include "schedule/AbstractRule.h"
#include "schedule/PendingAction.h"

namespace quillon {

class Schedules {
public:
    using Date = std::chrono::system_clock::time_point;
    using Clock = std::function<Date()>;
    using RulePtr = std::shared_ptr<AbstractRule>;

    static constexpr int kPendingDays = 28;
    static constexpr const char* kRelativePath = "Library/Preferences/kv.schedules.qln";

    enum class Ticking { On, Off };
    // What a change of the list came to.
    enum class Outcome { Saved, NotFound, NotSaved };

    // Loads the file at `path` (empty: schedulesPath()), builds the upcoming
    // list and, with Ticking::On, starts the tick. `starter` opens the rules'
    // connections; an empty clock is the system clock.
    Schedules(std::string path, AbstractRule::Starter starter, Clock clock = {},
              Ticking ticking = Ticking::On);
    // Stops the tick. Running connections stay open.
    ~Schedules();
    Schedules(const Schedules&) = delete;
    Schedules& operator=(const Schedules&) = delete;

    // The preference "schedulesPath", else the default under the home folder.
    static std::string schedulesPath();
    const std::string& path() const { return path_; }
    // The time by the list's clock.
    Date now() const { return clock_(); }

    // Copies of the lists.
    std::vector<RulePtr> schedulesArray() const;
    std::vector<PendingAction> pendingActions() const;
    RulePtr ruleForId(std::uint32_t id) const;

    // Writes the file, then rebuilds the upcoming list. A failed write is
    // logged as a warning and returns false.
    bool save();
    // A rule of the same uniqueId is replaced in place; any other is appended
    // with an identifier unused in the list (the rule's uniqueId). Saves.
    Outcome addRule(RulePtr rule);
    // Removes the rule of that identifier and saves.
    Outcome deleteRule(std::uint32_t id);
    // Switches the rule of that identifier on or off and saves.
    Outcome setRuleActive(std::uint32_t id, bool active);

    // Sorts the rules by the key (kept when none is given) with compareRules.
    void sortByKey(std::optional<std::string> key, bool descending);
    const std::string& sortKey() const { return sortKey_; }
    bool descending() const { return descending_; }
    void sortActionsByKey(std::optional<std::string> key, bool descending);
    const std::string& sortActionKey() const { return sortActionKey_; }
    bool actionsDescending() const { return actionsDescending_; }

    // Switches the repeating tick on or off; on twice keeps one timer.
    void setSchedulesState(bool on);
    bool ticking() const { return timer_.has_value(); }
    // One tick: each active rule is handed "now".
    void launchTimers();
    void updatePendingActions();

private:
    void load();

    std::string path_;
    AbstractRule::Starter starter_;
    Clock clock_;
    mutable std::mutex mutex_;
    std::vector<RulePtr> schedules_;             // guarded by mutex_
    std::vector<PendingAction> pendingActions_;  // guarded by mutex_
    std::string sortKey_ = "name";
    std::string sortActionKey_ = "pendingStart";
    bool descending_ = false;
    bool actionsDescending_ = false;
    std::optional<MainLoop::TimerId> timer_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace quillon
