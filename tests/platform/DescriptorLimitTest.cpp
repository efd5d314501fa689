#include "platform/DescriptorLimit.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace quillon {
namespace {

TEST(DescriptorLimit, SoftLimitIsRaisedToTheHardOne) {
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    if (saved.rlim_max == RLIM_INFINITY || saved.rlim_max < 128)
        GTEST_SKIP() << "no finite hard limit to reach";
    rlimit lowered = saved;
    lowered.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);

    const bool raised = raiseDescriptorLimit();
    rlimit now{};
    ::getrlimit(RLIMIT_NOFILE, &now);
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_TRUE(raised);
    EXPECT_EQ(now.rlim_cur, saved.rlim_max);
    EXPECT_EQ(now.rlim_max, saved.rlim_max);
}

}  // namespace
}  // namespace quillon
