// Moving a damaged stored file aside: its name, names already taken, and a
// file that is not there.
#include <gtest/gtest.h>

#include "platform/DamagedFile.h"
#include "platform/Log.h"
#include "support/Dates.h"
#include "support/Files.h"

namespace quillon {
namespace {

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

}  // namespace
}  // namespace quillon
