#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "platform/VoTimer.h"

using namespace quillon;

namespace {

using Clock = std::chrono::system_clock;

// Runs the main loop until a timer added now has fired, so that every timer due
// before it (all those armed for "now") has had its turn.
void drainDueTimers() {
    bool done = false;
    MainLoop::main().addTimer(0, [&] { done = true; });
    ASSERT_TRUE(MainLoop::main().runUntil([&] { return done; }, 10));
}

struct Recorder {
    std::vector<std::string> calls;
    VoTimer::Owner owner() {
        return [this](const std::string& operation) { calls.push_back(operation); };
    }
};

// Arms `timer` to call "begin" and "end" now.
void armNow(VoTimer& timer, Recorder& recorder) {
    timer.setOwner(recorder.owner());
    timer.setStartMethod("begin");
    timer.setStopMethod("end");
    timer.setStartDate(Clock::now());
    timer.setActiveStart(true);
    timer.setActiveStop(true);
    timer.activateTimer();
}

}  // namespace

TEST(VoTimer, StartAndStopBothFireAtTheStartDate) {
    Recorder recorder;
    VoTimer timer;
    // The stop date lies an hour ahead, yet the stop call is timed by the start date.
    timer.setStopDate(Clock::now() + std::chrono::hours(1));
    armNow(timer, recorder);
    ASSERT_TRUE(MainLoop::main().runUntil([&] { return recorder.calls.size() == 2; }, 10));
    EXPECT_EQ(recorder.calls, (std::vector<std::string>{"begin", "end"}));
    EXPECT_FALSE(timer.armed());
}

TEST(VoTimer, MissingTargetOrOperationIsOnlyLogged) {
    struct Case {
        bool withOwner;
        std::string start, stop;
        bool startLogged, stopLogged;
    };
    const Case cases[] = {
        {false, "begin", "end", true, true},
        {true, "", "end", true, false},
        {true, "begin", "", false, true},
    };
    for (const Case& c : cases) {
        Recorder recorder;
        Log::Capture log;
        VoTimer timer;
        if (c.withOwner) timer.setOwner(recorder.owner());
        timer.setStartMethod(c.start);
        timer.setStopMethod(c.stop);
        timer.runStartMethod();
        timer.runStopMethod();
        EXPECT_EQ(log.contains("Can't run startMethod : missing target or selector"), c.startLogged);
        EXPECT_EQ(log.contains("Can't run stopMethod : missing target or selector"), c.stopLogged);
        EXPECT_EQ(recorder.calls.size(), (c.startLogged ? 0u : 1u) + (c.stopLogged ? 0u : 1u));
    }
}

TEST(VoTimer, RearmingAndDestructionCancelEveryArmedCall) {
    Recorder recorder;
    {
        VoTimer timer;
        armNow(timer, recorder);
        EXPECT_TRUE(timer.armed());
        // Re-arming with nothing active cancels both calls, including the start
        // call whose reference the stop call replaced.
        timer.setActiveStart(false);
        timer.setActiveStop(false);
        timer.activateTimer();
        EXPECT_FALSE(timer.armed());
        timer.setActiveStart(true);
        timer.activateTimer();
        EXPECT_TRUE(timer.armed());
    }
    // The destroyed timer's call must not run (or touch freed memory).
    drainDueTimers();
    EXPECT_TRUE(recorder.calls.empty());
}
