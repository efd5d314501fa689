#pragma once
// A one-shot start/stop timer that calls operations of an owner by name. The
// owner is a function that performs the operation it is named (the way the
// timer keeps only the operations' names and looks them up when it fires); an
// empty owner function or an empty name is "missing" and only logged.
//
// Thread contract: main thread only. The timers run on the shared MainLoop and
// call back on the main thread; destruction and re-arming cancel every timer
// this object armed, so no callback outlives it.
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/MainLoop.h"

namespace quillon {

class VoTimer {
public:
    using Date = std::chrono::system_clock::time_point;
    using Owner = std::function<void(const std::string& operation)>;

    VoTimer() = default;
    ~VoTimer();
    VoTimer(const VoTimer&) = delete;
    VoTimer& operator=(const VoTimer&) = delete;

    void setOwner(Owner owner) { owner_ = std::move(owner); }
    void setStartMethod(std::string name) { startMethod_ = std::move(name); }
    void setStopMethod(std::string name) { stopMethod_ = std::move(name); }
    const std::string& startMethod() const { return startMethod_; }
    const std::string& stopMethod() const { return stopMethod_; }

    std::optional<Date> startDate() const { return startDate_; }
    void setStartDate(std::optional<Date> date) { startDate_ = date; }
    std::optional<Date> stopDate() const { return stopDate_; }
    void setStopDate(std::optional<Date> date) { stopDate_ = date; }
    bool activeStart() const { return activeStart_; }
    void setActiveStart(bool on) { activeStart_ = on; }
    bool activeStop() const { return activeStop_; }
    void setActiveStop(bool on) { activeStop_ = on; }

    // Cancels what was armed, then arms the start and/or the stop call. Both
    // fire after the start date's distance from now (the stop call too, by
    // design); a missing or past date fires on the next loop pass.
    void activateTimer();
    void runStartMethod();
    void runStopMethod();

    // Whether a start or stop call is still due (tests and the rule editor).
    bool armed() const { return !armed_.empty(); }

private:
    void cancelAll();
    MainLoop::TimerId arm(void (VoTimer::*run)());

    Owner owner_;
    std::string startMethod_;
    std::string stopMethod_;
    std::optional<MainLoop::TimerId> startTimer_;
    std::optional<MainLoop::TimerId> stopTimer_;
    // Every timer still due, including one whose reference startTimer_ lost when
    // the stop call was stored over it.
    std::vector<MainLoop::TimerId> armed_;
    std::optional<Date> startDate_;
    std::optional<Date> stopDate_;
    bool activeStart_ = false;
    bool activeStop_ = false;
};

}  // namespace quillon
