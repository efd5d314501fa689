#pragma once
// Turns SIGINT and SIGTERM into a task on the main loop. The signal handler only
// writes a byte to a pipe; a thread of this object waits on the pipe and posts
// the task, so nothing has to poll for Ctrl-C.
//
// Thread contract: one watcher at a time in a process (the handler finds its
// pipe through one static descriptor). Made and destroyed on the main thread;
// destruction restores the previous handlers, then ends and joins the thread.
#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

#include "platform/FileHandle.h"

namespace quillon {

class InterruptWatcher {
public:
    // `onInterrupt` runs on the main loop at each signal.
    explicit InterruptWatcher(std::function<void()> onInterrupt);
    ~InterruptWatcher();
    InterruptWatcher(const InterruptWatcher&) = delete;
    InterruptWatcher& operator=(const InterruptWatcher&) = delete;

    // Whether a signal has come since the watcher was made.
    bool interrupted() const { return interrupted_; }

private:
    void watch();

    std::function<void()> onInterrupt_;
    std::atomic<bool> interrupted_{false};
    FileHandle readEnd_;
    FileHandle writeEnd_;
    struct sigaction previousInt_ {};
    struct sigaction previousTerm_ {};
    std::thread thread_;
};

}  // namespace quillon
