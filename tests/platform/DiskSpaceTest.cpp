// Free space of a volume and the readable size of the free-space log line.
#include <gtest/gtest.h>

#include "platform/DiskSpace.h"
#include "platform/Home.h"

namespace quillon {
namespace {

TEST(DiskSpaceTest, AMissingFolderIsMeasuredAtItsParent) {
    auto here = freeBytes(homeFolder());
    ASSERT_TRUE(here.has_value());
    auto below = freeBytes(homePath("not/yet/made"));
    ASSERT_TRUE(below.has_value());
    // Same volume; other processes may write meanwhile, so only roughly equal.
    auto diff = *here > *below ? *here - *below : *below - *here;
    EXPECT_LT(diff, 64ull << 20);
}

TEST(DiskSpaceTest, SizesReadAsPeopleWriteThem) {
    struct Case {
        std::uint64_t bytes;
        const char* text;
    };
    const Case cases[] = {{0, "0 bytes"},        {1023, "1023 bytes"},    {1024, "1.0 KB"},
                          {1536, "1.5 KB"},      {104857599, "100.0 MB"}, {3ull << 30, "3.0 GB"},
                          {5ull << 40, "5.0 TB"}};
    for (const auto& c : cases) EXPECT_EQ(byteSizeText(c.bytes), c.text) << c.bytes;
}

}  // namespace
}  // namespace quillon
