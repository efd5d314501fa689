#include "tuner/TunerFilter.h"

namespace quillon {

TunerFilter::TunerFilter(Tuner& tuner, std::function<void(int)> filtered)
    : tuner_(tuner), filtered_(std::move(filtered)), worker_([this] { run(); }) {}

TunerFilter::~TunerFilter() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    guard_.cancel();
    worker_.join();
}

void TunerFilter::post(Tuner::Filter request) {
    {
        std::lock_guard lock(mutex_);
        mailbox_ = std::move(request);
    }
    wake_.notify_all();
}

void TunerFilter::run() {
    // Lock order: the directory's lock before the mailbox's mutex, so that a
    // request can be posted while the tree is locked.
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || mailbox_.has_value(); });
            if (stopping_) return;
        }
        int runs = 0;
        {
            std::lock_guard tree(tuner_.tunerLock());
            for (;;) {
                std::optional<Tuner::Filter> request;
                {
                    std::lock_guard lock(mutex_);
                    if (stopping_) return;
                    request.swap(mailbox_);
                }
                if (!request) break;
                tuner_.filter(*request);
                ++runs;
            }
        }
        MainLoop::main().invoke(
            [this, runs] {
                if (filtered_) filtered_(runs);
            },
            guard_);
    }
}

}  // namespace quillon
