#include "platform/MainLoop.h"

#include <algorithm>

namespace quillon {

struct InvokeGuard::State {
    std::mutex mutex;
    std::condition_variable changed;
    bool cancelled = false;
};

InvokeGuard::InvokeGuard() : state_(std::make_shared<State>()) {}

void InvokeGuard::cancel() {
    std::lock_guard lock(state_->mutex);
    state_->cancelled = true;
    state_->changed.notify_all();
}

bool InvokeGuard::cancelled() const {
    std::lock_guard lock(state_->mutex);
    return state_->cancelled;
}

MainLoop& MainLoop::main() {
    static MainLoop loop;
    return loop;
}

MainLoop::MainLoop() : mainThread_(std::this_thread::get_id()) {}
MainLoop::~MainLoop() = default;

bool MainLoop::isMainThread() const {
    std::lock_guard lock(mutex_);
    return std::this_thread::get_id() == mainThread_;
}

void MainLoop::post(Task task) {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    wake_.notify_one();
}

void MainLoop::invoke(const Task& task) {
    if (isMainThread()) {
        task();
        return;
    }
    struct Call {
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
    };
    auto call = std::make_shared<Call>();
    post([call, &task] {
        task();
        std::lock_guard lock(call->mutex);
        call->finished = true;
        call->done.notify_all();
    });
    std::unique_lock lock(call->mutex);
    call->done.wait(lock, [&] { return call->finished; });
}

bool MainLoop::invoke(const Task& task, const InvokeGuard& guard) {
    auto state = guard.state_;
    if (isMainThread()) {
        if (guard.cancelled()) return false;
        task();
        return true;
    }
    struct Call {
        bool running = false;
        bool finished = false;
        bool ran = false;
    };
    auto call = std::make_shared<Call>();
    // The task is copied: a cancelled waiter returns while the copy may still sit
    // in the queue, and must not leave it pointing at the waiter's stack.
    post([call, state, task] {
        {
            std::lock_guard lock(state->mutex);
            if (state->cancelled) {
                call->finished = true;
                state->changed.notify_all();
                return;
            }
            call->running = true;
        }
        task();
        std::lock_guard lock(state->mutex);
        call->running = false;
        call->finished = call->ran = true;
        state->changed.notify_all();
    });
    std::unique_lock lock(state->mutex);
    state->changed.wait(lock, [&] { return call->finished || (state->cancelled && !call->running); });
    return call->ran;
}

MainLoop::TimerId MainLoop::addTimer(double seconds, Task task, bool repeating) {
    std::lock_guard lock(mutex_);
    TimerId id = nextTimer_++;
    auto due =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    timers_.emplace(id, Timer{due, seconds, repeating, std::move(task)});
    wake_.notify_one();
    return id;
}

void MainLoop::cancelTimer(TimerId id) {
    std::lock_guard lock(mutex_);
    timers_.erase(id);
}

void MainLoop::runOnce(Clock::time_point limit) {
    std::unique_lock lock(mutex_);
    auto nextDue = [&] {
        auto it = std::min_element(timers_.begin(), timers_.end(),
                                   [](const auto& a, const auto& b) { return a.second.due < b.second.due; });
        return it;
    };
    while (true) {
        if (stopping_) return;
        if (!tasks_.empty()) {
            Task task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
            return;
        }
        auto it = nextDue();
        auto now = Clock::now();
        if (it != timers_.end() && it->second.due <= now) {
            Task task;
            if (it->second.repeating) {
                task = it->second.task;
                auto step = std::chrono::duration_cast<Clock::duration>(
                    std::chrono::duration<double>(it->second.interval));
                it->second.due = std::max(it->second.due + step, now);
            } else {
                task = std::move(it->second.task);
                timers_.erase(it);
            }
            lock.unlock();
            task();
            return;
        }
        if (now >= limit) return;
        auto until = limit;
        if (it != timers_.end()) until = std::min(until, it->second.due);
        wake_.wait_until(lock, until);
    }
}

void MainLoop::run() {
    {
        std::lock_guard lock(mutex_);
        mainThread_ = std::this_thread::get_id();
        stopping_ = false;
    }
    while (true) {
        runOnce(Clock::now() + std::chrono::hours(1));
        std::lock_guard lock(mutex_);
        if (stopping_) {
            stopping_ = false;
            return;
        }
    }
}

bool MainLoop::runUntil(const std::function<bool()>& done, double maxSeconds, double recheckSeconds) {
    {
        std::lock_guard lock(mutex_);
        mainThread_ = std::this_thread::get_id();
        stopping_ = false;
    }
    auto limit =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(maxSeconds));
    const auto recheck =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(recheckSeconds));
    while (!done()) {
        auto now = Clock::now();
        if (now >= limit) return done();
        runOnce(std::min(limit, now + recheck));
        std::lock_guard lock(mutex_);
        if (stopping_) {
            stopping_ = false;
            return done();
        }
    }
    return true;
}

void MainLoop::stop() {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    wake_.notify_all();
}

}  // namespace quillon
