#include "platform/VoTimer.h"

#include <algorithm>

#include "platform/Log.h"

namespace quillon {

VoTimer::~VoTimer() { cancelAll(); }

void VoTimer::cancelAll() {
    for (MainLoop::TimerId id : armed_) MainLoop::main().cancelTimer(id);
    armed_.clear();
    startTimer_.reset();
    stopTimer_.reset();
}

MainLoop::TimerId VoTimer::arm(void (VoTimer::*run)()) {
    double delay = 0;
    if (startDate_)
        delay = std::chrono::duration<double>(*startDate_ - std::chrono::system_clock::now()).count();
    auto id = std::make_shared<MainLoop::TimerId>(0);
    *id = MainLoop::main().addTimer(std::max(delay, 0.0), [this, run, id] {
        std::erase(armed_, *id);
        (this->*run)();
    });
    armed_.push_back(*id);
    return *id;
}

void VoTimer::activateTimer() {
    cancelAll();
    if (activeStart_) startTimer_ = arm(&VoTimer::runStartMethod);
    // The stop call is timed by the start date and its reference replaces the
    // start call's, which still fires.
    if (activeStop_) startTimer_ = arm(&VoTimer::runStopMethod);
}

void VoTimer::runStartMethod() {
    startTimer_.reset();
    if (startMethod_.empty() || !owner_) {
        Log::line("Can't run startMethod : missing target or selector");
        return;
    }
    owner_(startMethod_);
}

void VoTimer::runStopMethod() {
    stopTimer_.reset();
    if (stopMethod_.empty() || !owner_) {
        Log::line("Can't run stopMethod : missing target or selector");
        return;
    }
    owner_(stopMethod_);
}

}  // namespace quillon
