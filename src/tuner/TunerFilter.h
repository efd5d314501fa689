#pragma once
// The directory's filter thread: the filter bar hands over every change of its
// fields, and the thread filters with the latest one. The requests pass through
// a one-slot mailbox: a newer request replaces one not yet taken, so a burst of
// keystrokes costs one or two filter runs, not one per key. The thread filters
// under the directory's lock, repeats while requests keep coming, then asks the
// main thread to refresh the tree (`filtered`, run on the main loop).
//
// Thread contract: post() and the destructor on the main thread; the worker
// takes the mailbox's mutex for each hand-over and the directory's lock for
// each filter run. Destruction stops the worker and joins it; a refresh it
// waits for on the main loop is abandoned first, so the main thread never
// waits for itself.
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/MainLoop.h"
#include "tuner/Tuner.h"

namespace quillon {

class TunerFilter {
public:
    // `filtered` runs on the main loop after each batch of requests, with the
    // number of filter runs the batch took.
    TunerFilter(Tuner& tuner, std::function<void(int runs)> filtered);
    ~TunerFilter();
    TunerFilter(const TunerFilter&) = delete;
    TunerFilter& operator=(const TunerFilter&) = delete;

    // Replaces the request waiting in the mailbox, if any.
    void post(Tuner::Filter request);

private:
    void run();

    Tuner& tuner_;
    std::function<void(int)> filtered_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::optional<Tuner::Filter> mailbox_;  // guarded by mutex_
    bool stopping_ = false;                 // guarded by mutex_
    InvokeGuard guard_;
    std::thread worker_;  // last: started once the rest is ready
};

}  // namespace quillon
