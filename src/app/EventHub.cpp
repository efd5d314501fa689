#include "app/EventHub.h"

#include <algorithm>

namespace quillon {

EventHub::EventHub(std::size_t queueLimit, std::size_t maxSubscribers)
    : queueLimit_(queueLimit), maxSubscribers_(maxSubscribers) {}

EventHub::~EventHub() { close(); }

std::unique_ptr<EventHub::Subscription> EventHub::subscribe() {
    std::lock_guard lock(mutex_);
    if (closed_ || subscribers_.size() >= maxSubscribers_) return nullptr;
    std::unique_ptr<Subscription> s(new Subscription(*this));
    subscribers_.push_back(s.get());
    return s;
}

void EventHub::unsubscribe(Subscription* subscription) {
    std::lock_guard lock(mutex_);
    std::erase(subscribers_, subscription);
}

void EventHub::publish(const nlohmann::json& event) {
    // Serialised once, outside the lock; replace invalid UTF-8 from stream
    // titles rather than throwing.
    std::string text = event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    {
        std::lock_guard lock(mutex_);
        if (closed_) return;
        for (Subscription* s : subscribers_) {
            if (s->queue_.size() >= queueLimit_) {
                s->queue_.pop_front();
                s->overflowed_ = true;
            }
            s->queue_.push_back(text);
        }
    }
    changed_.notify_all();
}

void EventHub::close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

std::size_t EventHub::subscriberCount() const {
    std::lock_guard lock(mutex_);
    return subscribers_.size();
}

EventHub::Subscription::~Subscription() { hub_.unsubscribe(this); }

bool EventHub::Subscription::closed() const {
    std::lock_guard lock(hub_.mutex_);
    return hub_.closed_;
}

std::optional<std::string> EventHub::Subscription::next(std::chrono::milliseconds wait) {
    std::unique_lock lock(hub_.mutex_);
    hub_.changed_.wait_for(lock, wait, [&] { return hub_.closed_ || overflowed_ || !queue_.empty(); });
    if (hub_.closed_) return std::nullopt;
    if (overflowed_) {
        // What was lost cannot be told event by event: the client reads the
        // lists again and goes on from the newest events.
        overflowed_ = false;
        queue_.clear();
        return std::string(R"({"type":"resync"})");
    }
    if (queue_.empty()) return std::nullopt;
    std::string text = std::move(queue_.front());
    queue_.pop_front();
    return text;
}

}  // namespace quillon
