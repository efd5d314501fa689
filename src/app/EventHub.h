#pragma once
// The daemon's change feed: every change worth showing (the activity list, one
// connection, an alert, a question, ...) is published once as a JSON event and
// reaches every subscriber (the web page's and `quillon status --watch`'s event
// streams). Each subscriber has a bounded queue: one that reads too slowly loses
// its oldest events and is told to read the lists again ({"type":"resync"}), so
// a stuck client never holds memory or slows the publisher down.
//
// Thread contract: every member may be called from any thread; one mutex
// guards the subscribers. Subscription::next blocks its caller (an HTTP
// worker), never the main loop.
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace quillon {

class EventHub {
public:
    static constexpr std::size_t kQueueLimit = 256;
    static constexpr std::size_t kMaxSubscribers = 128;

    class Subscription {
    public:
        // The next event's JSON text; nothing when none arrived in time or the
        // hub closed (then `closed()` is true).
        std::optional<std::string> next(std::chrono::milliseconds wait);
        bool closed() const;
        ~Subscription();

    private:
        friend class EventHub;
        explicit Subscription(EventHub& hub) : hub_(hub) {}
        EventHub& hub_;
        std::deque<std::string> queue_;  // guarded by the hub's mutex
        bool overflowed_ = false;
    };

    explicit EventHub(std::size_t queueLimit = kQueueLimit, std::size_t maxSubscribers = kMaxSubscribers);
    ~EventHub();
    EventHub(const EventHub&) = delete;
    EventHub& operator=(const EventHub&) = delete;

    // Null when the hub is closed or already serves its maximum.
    std::unique_ptr<Subscription> subscribe();
    void publish(const nlohmann::json& event);
    // Wakes every subscriber for good (the daemon is stopping).
    void close();
    std::size_t subscriberCount() const;

private:
    void unsubscribe(Subscription* subscription);

    const std::size_t queueLimit_;
    const std::size_t maxSubscribers_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Subscription*> subscribers_;
    bool closed_ = false;
};

}  // namespace quillon
