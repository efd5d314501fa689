#include "schedule/Schedules.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/AtomicFile.h"
#include "platform/DamagedFile.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "platform/PlistCodec.h"
#include "platform/TimeUtil.h"
#include "platform/Timing.h"
#include "schedule/LocalDate.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

// An identifier that no rule of the list has; never 0, which means "none".
std::uint32_t freshId(const std::vector<Schedules::RulePtr>& rules) {
    std::uint32_t id = 0;
    while (id == 0) id = UniqueIDObject::unusedUniqueIdfromArray(rules);
    return id;
}

}  // namespace

Schedules::Schedules(std::string path, AbstractRule::Starter starter, Clock clock, Ticking ticking)
    : path_(path.empty() ? schedulesPath() : std::move(path)),
      starter_(std::move(starter)),
      clock_(clock ? std::move(clock) : Clock([] { return std::chrono::system_clock::now(); })) {
    load();
    updatePendingActions();
    if (ticking == Ticking::On) setSchedulesState(true);
}

Schedules::~Schedules() {
    setSchedulesState(false);
    *alive_ = false;
}

std::string Schedules::schedulesPath() {
    std::string stored = Preferences::preferences()->getParam("schedulesPath");
    return stored.empty() ? homePath(kRelativePath) : stored;
}

void Schedules::load() {
    // A file that exists but is no array is moved aside by the reader.
    auto items = PlistCodec::readStoredArray(path_);
    std::vector<RulePtr> rules;
    std::size_t unreadable = 0;
    if (items) {
        for (const PlistValue& item : *items) {
            auto rule = std::make_shared<AbstractRule>();
            const PlistValue::Data* data = item.asData();
            if (!data || !rule->setResourceFromArchive(*data)) {
                ++unreadable;
                continue;
            }
            // Identifiers must tell the rules apart; a copied or edited file
            // may repeat one.
            std::uint32_t id = rule->uniqueId();
            if (id == 0 || UniqueIDObject::objectIndexForId(id, rules) >= 0)
                rule->setUniqueId(freshId(rules));
            rule->setIndex(static_cast<int>(rules.size()));
            rule->setStarter(starter_);
            rules.push_back(std::move(rule));
        }
    }
    if (unreadable > 0) {
        // Deliberate: the rules that can be read are kept, and the file with
        // the ones that cannot is moved aside before a save could drop them.
        DamagedFile::moveAside(path_, std::to_string(unreadable) + " rule(s) cannot be read");
    }
    std::lock_guard lock(mutex_);
    schedules_ = std::move(rules);
}

std::vector<Schedules::RulePtr> Schedules::schedulesArray() const {
    std::lock_guard lock(mutex_);
    return schedules_;
}

std::vector<PendingAction> Schedules::pendingActions() const {
    std::lock_guard lock(mutex_);
    return pendingActions_;
}

Schedules::RulePtr Schedules::ruleForId(std::uint32_t id) const {
    std::lock_guard lock(mutex_);
    return UniqueIDObject::objectForId(id, schedules_);
}

bool Schedules::save() {
    PlistValue::Array items;
    for (const RulePtr& rule : schedulesArray()) {
        Bytes archive = rule->archivedResource();
        items.emplace_back(PlistValue::Data(archive.begin(), archive.end()));
    }
    Bytes bytes = PlistCodec::encodeBinary(PlistValue(std::move(items)));
    const std::string folder = std::filesystem::path(path_).parent_path().string();
    std::string failure;
    if (bytes.empty()) {
        failure = "the rules cannot be encoded";
    } else if (!folder.empty() && !makeFolders(folder)) {
        failure = "cannot create the folder " + folder;
    } else {
        errno = 0;
        if (!writeFileAtomically(path_, bytes)) failure = std::strerror(errno ? errno : EIO);
    }
    const bool written = failure.empty();
    // Deliberate: a rule that was not saved would be gone at the next start
    // without a word; the failure is said loudly.
    if (!written) Log::warn("Cannot save the schedules to {}: {}", path_, failure);
    updatePendingActions();
    return written;
}

Schedules::Outcome Schedules::addRule(RulePtr rule) {
    {
        std::lock_guard lock(mutex_);
        rule->setStarter(starter_);
        int at = rule->uniqueId() == 0 ? -1 : UniqueIDObject::objectIndexForId(rule->uniqueId(), schedules_);
        if (at >= 0) {
            rule->setIndex(at);
            schedules_[static_cast<std::size_t>(at)] = rule;
        } else {
            rule->setUniqueId(freshId(schedules_));
            rule->setIndex(static_cast<int>(schedules_.size()));
            schedules_.push_back(rule);
        }
    }
    return save() ? Outcome::Saved : Outcome::NotSaved;
}

Schedules::Outcome Schedules::deleteRule(std::uint32_t id) {
    {
        std::lock_guard lock(mutex_);
        int at = UniqueIDObject::objectIndexForId(id, schedules_);
        if (at < 0) return Outcome::NotFound;
        schedules_.erase(schedules_.begin() + at);
        for (std::size_t i = 0; i < schedules_.size(); ++i) schedules_[i]->setIndex(static_cast<int>(i));
    }
    return save() ? Outcome::Saved : Outcome::NotSaved;
}

Schedules::Outcome Schedules::setRuleActive(std::uint32_t id, bool active) {
    RulePtr rule = ruleForId(id);
    if (!rule) return Outcome::NotFound;
    rule->setActive(active);
    return save() ? Outcome::Saved : Outcome::NotSaved;
}

void Schedules::sortByKey(std::optional<std::string> key, bool descending) {
    if (key) sortKey_ = *key;
    descending_ = descending;
    std::lock_guard lock(mutex_);
    // compareRules orders other against this one: descending whatever the flag.
    std::stable_sort(schedules_.begin(), schedules_.end(), [this](const RulePtr& a, const RulePtr& b) {
        return a->compareRules(*b, sortKey_) < 0;
    });
    for (std::size_t i = 0; i < schedules_.size(); ++i) schedules_[i]->setIndex(static_cast<int>(i));
}

void Schedules::sortActionsByKey(std::optional<std::string> key, bool descending) {
    if (key) sortActionKey_ = *key;
    actionsDescending_ = descending;
    std::lock_guard lock(mutex_);
    std::stable_sort(pendingActions_.begin(), pendingActions_.end(),
                     [this](const PendingAction& a, const PendingAction& b) {
                         return a.compareActions(b, sortActionKey_, actionsDescending_) < 0;
                     });
}

void Schedules::setSchedulesState(bool on) {
    if (on && !timer_) {
        std::weak_ptr<bool> alive = alive_;
        timer_ = MainLoop::main().addTimer(
            timing().scheduleTick,
            [this, alive] {
                if (auto a = alive.lock(); a && *a) launchTimers();
            },
            true);
    } else if (!on && timer_) {
        MainLoop::main().cancelTimer(*timer_);
        timer_.reset();
    }
}

void Schedules::launchTimers() {
    std::lock_guard lock(mutex_);
    // A rule that opens or closes a connection must not change the list under
    // the walk: the walk goes over a snapshot.
    const std::vector<RulePtr> rules = schedules_;
    try {
        for (const RulePtr& rule : rules) {
            if (rule->active()) rule->shouldStartAtDate(now());
        }
    } catch (const std::exception& e) {
        Log::info("Exception during launchTimers: {}", e.what());
    } catch (...) {
        Log::line("Exception during launchTimers");
    }
}

void Schedules::updatePendingActions() {
    const Date at = now();
    std::lock_guard lock(mutex_);
    pendingActions_.clear();
    auto add = [&](const AbstractRule& rule, Date start, std::optional<Date> stop) {
        PendingAction action(at);
        action.setName(rule.name().value_or(""));
        action.setRuleId(rule.uniqueId());
        action.setStartDate(start);
        if (stop) action.setStopDate(*stop);
        pendingActions_.push_back(std::move(action));
    };
    for (const RulePtr& rule : schedules_) {
        if (!rule->active()) continue;
        const std::string type = rule->ruleType();
        if (type == AbstractRule::kWeekly) {
            for (int k = 0; k < kPendingDays; ++k) {
                // Only the calendar day counts; noon is on every day's clock.
                Date day = LocalDate::dayAfter(at, k, 12, 0);
                auto start = rule->startDateForDate(day);
                if (start && *start >= at) add(*rule, *start, rule->stopDateForDate(day));
            }
        } else if (type == AbstractRule::kOneOff) {
            auto start = rule->startDate();
            if (start && *start >= at) add(*rule, *start, rule->endDate());
        }
    }
}

}  // namespace quillon
