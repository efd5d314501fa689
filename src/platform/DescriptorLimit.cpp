#include "platform/DescriptorLimit.h"

#include <sys/resource.h>

namespace quillon {

namespace {
// The kernel's usual ceiling (fs.nr_open), taken when the hard limit is unlimited.
constexpr rlim_t kCeiling = 1 << 20;
}  // namespace

bool raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
    const rlim_t wanted = limit.rlim_max == RLIM_INFINITY ? kCeiling : limit.rlim_max;
    if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= wanted) return true;
    limit.rlim_cur = wanted;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

}  // namespace quillon
