#include "app/LoginLinks.h"

#include <algorithm>

#include "app/ApiToken.h"

namespace quillon {

std::string LoginLinks::create(Clock::time_point now) {
    std::string code = ApiToken::randomHex(16);
    std::lock_guard lock(mutex_);
    std::erase_if(pending_, [&](const auto& entry) { return now - entry.second >= kLifetime; });
    if (pending_.size() >= kMaxPending) {
        auto oldest = std::min_element(pending_.begin(), pending_.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
        pending_.erase(oldest);
    }
    pending_[code] = now;
    return code;
}

bool LoginLinks::redeem(const std::string& code, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    auto it = pending_.find(code);
    if (it == pending_.end()) return false;
    bool fresh = now - it->second < kLifetime;
    pending_.erase(it);
    return fresh;
}

}  // namespace quillon
