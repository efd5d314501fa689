#pragma once
// The schedule rule that started a connection, as the connection sees it (its
// "timer"): the connection tells it when it closes, so that the rule is free to
// open another, and asks it when it will be stopped, to show that time.
//
// The connection holds the rule weakly: a rule deleted while its connection
// runs simply leaves the connection without one, and a connection that closes
// or is destroyed tells a live rule at once, so neither side keeps a pointer to
// the other past its life.
//
// Thread contract: both calls on the main thread only.
#include <chrono>
#include <optional>

namespace quillon {

class Ripper;

class ConnectionTimer {
public:
    using Date = std::chrono::system_clock::time_point;

    virtual ~ConnectionTimer() = default;
    // The connection closed (by anyone) or is being destroyed: the rule lets go
    // of it when it is the one it holds.
    virtual void connectionClosed(const Ripper& connection) = 0;
    // When the rule will stop the connection; nothing when it does not know.
    virtual std::optional<Date> currentEndDate() const = 0;
};

}  // namespace quillon
