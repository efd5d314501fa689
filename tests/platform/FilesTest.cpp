// Files the product keeps: whole replacement without temporary leftovers, new
// files that never replace one that is there, damaged files moved aside under
// names of their own, the home folder, and free space.
#include <gtest/gtest.h>

#include "platform/AtomicFile.h"
#include "platform/DamagedFile.h"
#include "platform/DiskSpace.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "support/Dates.h"
#include "support/Files.h"

namespace quillon {
namespace {

TEST(AtomicFileTest, ReplacesWholeAndLeavesNoTemporaryFiles) {
    const std::string folder = test::testFolder("atomic");
    const std::string path = joinPath(folder, "f.txt");
    ASSERT_TRUE(writeFileAtomically(path, asBytes("first version, longer")));
    ASSERT_TRUE(writeFileAtomically(path, asBytes("second")));
    EXPECT_EQ(test::readText(path), "second");
    EXPECT_EQ(test::countEntries(folder), 1u);
    EXPECT_FALSE(writeFileAtomically(homePath("no/such/folder/x"), asBytes("x")));
    EXPECT_FALSE(readWholeFile(homePath("no/such/file")));
}

TEST(AtomicFileTest, ANewFileNeverReplacesOneThatIsThere) {
    const std::string folder = test::testFolder("atomic");
    const std::string path = joinPath(folder, "f.txt");
    EXPECT_EQ(writeNewFileAtomically(path, asBytes("mine")), WriteResult::Written);
    EXPECT_EQ(writeNewFileAtomically(path, asBytes("theirs")), WriteResult::Exists);
    EXPECT_EQ(test::readText(path), "mine");
    EXPECT_EQ(test::countEntries(folder), 1u);  // no temporary left
    EXPECT_EQ(writeNewFileAtomically(homePath("no/such/folder/x"), asBytes("x")), WriteResult::Failed);
}

TEST(DamagedFileTest, ThreeInOneSecondGetThreeNamesAndNoneIsReplaced) {
    const std::string path = test::testFolder("damaged-file") + "/kv.vossen.qln.prf";
    const auto when = test::localDate(2024, 3, 9, 7, 5, 4);
    const std::string stamped = path + ".damaged-20240309-070504";
    for (const char* name : {"", "-2", "-3"}) {
        test::writeText(path, name);
        Log::Capture log;
        EXPECT_EQ(DamagedFile::moveAside(path, "not a property list", when), stamped + name);
        EXPECT_TRUE(log.contains(path + " cannot be read (not a property list)"));
        EXPECT_TRUE(log.contains(stamped + name));
    }
    for (const char* name : {"", "-2", "-3"}) EXPECT_EQ(test::readText(stamped + name), name);

    Log::Capture log;  // no file: nothing to keep, nothing to say
    EXPECT_EQ(DamagedFile::moveAside(path, "gone", when), std::nullopt);
    EXPECT_TRUE(log.lines().empty());
}

TEST(HomeTest, HomeComesFromQuillonHomeAndPathsJoinCleanly) {
    EXPECT_EQ(homeFolder(), std::string(std::getenv("QUILLON_HOME")));
    EXPECT_EQ(joinPath("/a/", "/b"), "/a/b");
    EXPECT_EQ(joinPath("/", "b"), "/b");
    EXPECT_EQ(joinPath("a", ""), "a");
}

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
