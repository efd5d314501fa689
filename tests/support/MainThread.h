#pragma once
// The test's thread as the application's main thread: it claims the main loop,
// runs it until a condition holds, and shortens time-outs in a timing table
// that is put back when the test is done.
#include <functional>

#include "platform/MainLoop.h"
#include "platform/Timing.h"

namespace quillon::test {

// Makes the calling thread the main loop's main thread, as it is in the application.
inline void becomeMainThread() {
    MainLoop::main().runUntil([] { return true; }, 0);
}

// Runs the main loop until `done` holds; false when `seconds` passed first.
inline bool runUntil(const std::function<bool()>& done, double seconds = 20) {
    return MainLoop::main().runUntil(done, seconds);
}

// Runs what is queued on the main loop for a moment (hand-offs that objects
// stopped meanwhile left behind).
inline void drainMainLoop(double seconds = 0.05) {
    MainLoop::main().runUntil([] { return false; }, seconds);
}

// Keeps the timing table for the scope: the test changes it freely meanwhile.
class ScopedTiming {
public:
    ScopedTiming() : saved_(timing()) {}
    ~ScopedTiming() { timing() = saved_; }
    ScopedTiming(const ScopedTiming&) = delete;
    ScopedTiming& operator=(const ScopedTiming&) = delete;

private:
    Timing saved_;
};

}  // namespace quillon::test
