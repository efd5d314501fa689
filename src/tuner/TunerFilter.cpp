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
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || mailbox_.has_value(); });
        if (stopping_) return;
        int runs = 0;
        {
            std::lock_guard tree(tuner_.tunerLock());
            while (mailbox_ && !stopping_) {
                Tuner::Filter request = std::move(*mailbox_);
                mailbox_.reset();
                lock.unlock();
                tuner_.filter(request);
                ++runs;
                lock.lock();
            }
        }
        if (stopping_) return;
        lock.unlock();
        MainLoop::main().invoke(
            [this, runs] {
                if (filtered_) filtered_(runs);
            },
            guard_);
        lock.lock();
    }
}

}  // namespace quillon
