#pragma once
// The main thread's loop: a task queue plus one-shot and repeating timers.
// Threads hand work to the main thread with post() (queue and go on) or invoke()
// (run there and wait). The thread that calls run() is the main thread while it
// runs; before that, the thread that first asked for the shared instance is.
//
// Thread contract: every member may be called from any thread. Tasks and timer
// callbacks run on the main thread only.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace quillon {

// Lets a threaded object abandon invoke() calls its thread is blocked in, so that
// the main thread can destroy the object without waiting for itself.
class InvokeGuard {
public:
    InvokeGuard();
    ~InvokeGuard() { cancel(); }
    InvokeGuard(const InvokeGuard&) = delete;
    InvokeGuard& operator=(const InvokeGuard&) = delete;

    // After this, pending and future invokes through the guard return false
    // without running their task.
    void cancel();
    bool cancelled() const;

private:
    friend class MainLoop;
    struct State;
    std::shared_ptr<State> state_;
};

class MainLoop {
public:
    using Task = std::function<void()>;
    using TimerId = std::uint64_t;
    using Clock = std::chrono::steady_clock;

    // The process's shared main loop.
    static MainLoop& main();

    MainLoop();
    ~MainLoop();
    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;

    void post(Task task);
    // Runs the task on the main thread and waits for it; inline on the main thread.
    void invoke(const Task& task);
    // As invoke, but gives up (returning false) once the guard is cancelled.
    bool invoke(const Task& task, const InvokeGuard& guard);

    TimerId addTimer(double seconds, Task task, bool repeating = false);
    void cancelTimer(TimerId id);

    // Runs tasks and timers until stop().
    void run();
    // Runs tasks and timers until the predicate holds or the time passes;
    // returns the predicate's last value (tests and short foreground jobs). The
    // predicate is checked after every task and at least every `recheckSeconds`,
    // since it may watch state that worker threads change without posting.
    bool runUntil(const std::function<bool()>& done, double maxSeconds, double recheckSeconds = 0.02);
    void stop();

    bool isMainThread() const;

private:
    struct Timer {
        Clock::time_point due;
        double interval;
        bool repeating;
        Task task;
    };
    // Runs one due timer or queued task, waiting at most until `limit`.
    void runOnce(Clock::time_point limit);

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    std::map<TimerId, Timer> timers_;
    TimerId nextTimer_ = 1;
    bool stopping_ = false;
    std::thread::id mainThread_;
};

}  // namespace quillon
