// Moving a damaged stored file aside: the name it gets, a name already taken,
// and a file that is not there.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/DamagedFile.h"
#include "platform/Log.h"
#include "support/Dates.h"
#include "support/Files.h"

namespace quillon {
namespace {

TEST(DamagedFileTest, MovesAsideUnderAFreeNameAndSaysWhere) {
    const std::string folder = test::testFolder("damaged-file");
    const std::string path = folder + "/kv.vossen.qln.prf";
    const auto when = test::localDate(2024, 3, 9, 7, 5, 4);
    const std::string stamped = path + ".damaged-20240309-070504";
    EXPECT_EQ(DamagedFile::asideName(path, when, 1), stamped);
    EXPECT_EQ(DamagedFile::asideName(path, when, 3), stamped + "-3");

    // Three damaged files in one second: none replaces another.
    for (const char* bytes : {"first", "second", "third"}) {
        test::writeText(path, bytes);
        Log::Capture log;
        auto aside = DamagedFile::moveAside(path, "not a property list", when);
        ASSERT_TRUE(aside.has_value());
        EXPECT_TRUE(log.contains(path + " cannot be read (not a property list)"));
        EXPECT_TRUE(log.contains(*aside));
        EXPECT_FALSE(std::filesystem::exists(path));
    }
    EXPECT_EQ(test::readText(stamped), "first");
    EXPECT_EQ(test::readText(stamped + "-2"), "second");
    EXPECT_EQ(test::readText(stamped + "-3"), "third");

    // No file, nothing to keep and nothing to say.
    Log::Capture log;
    EXPECT_FALSE(DamagedFile::moveAside(path, "gone", when).has_value());
    EXPECT_TRUE(log.lines().empty());
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace quillon
