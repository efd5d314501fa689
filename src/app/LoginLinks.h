#pragma once
// One-time login codes for the web page: `quillon ui` (which holds the token)
// asks for a code and opens /login?code=...; the daemon trades the code, once
// and within a minute, for the token as a same-origin cookie. So the token is
// never written into a page, an address or a browser's history.
//
// Thread contract: any thread; one mutex guards the codes.
#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace quillon {

class LoginLinks {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kLifetime{60};
    static constexpr std::size_t kMaxPending = 32;

    // A new code; the oldest pending code is dropped beyond kMaxPending.
    std::string create(Clock::time_point now = Clock::now());
    // True exactly once for a code that was made less than kLifetime ago.
    bool redeem(const std::string& code, Clock::time_point now = Clock::now());

private:
    std::mutex mutex_;
    std::map<std::string, Clock::time_point> pending_;  // code -> made at
};

}  // namespace quillon
