#include <gtest/gtest.h>

#include <filesystem>

#include "platform/AtomicFile.h"
#include "platform/Home.h"

using namespace quillon;

namespace {

TEST(AtomicFileTest, ReplacesWholeAndLeavesNoTemporaryFiles) {
    std::string folder = homePath("atomic");
    ASSERT_TRUE(makeFolders(folder));
    std::string path = joinPath(folder, "f.txt");
    ASSERT_TRUE(writeFileAtomically(path, asBytes("first version, longer")));
    ASSERT_TRUE(writeFileAtomically(path, asBytes("second")));
    auto read = readWholeFile(path);
    ASSERT_TRUE(read);
    EXPECT_EQ(asText(*read), "second");
    int entries = 0;
    for (auto& e : std::filesystem::directory_iterator(folder)) {
        (void)e;
        ++entries;
    }
    EXPECT_EQ(entries, 1);
}

TEST(AtomicFileTest, FailsCleanlyWhereTheFolderIsMissing) {
    EXPECT_FALSE(writeFileAtomically(homePath("no/such/folder/x"), asBytes("x")));
    EXPECT_FALSE(readWholeFile(homePath("no/such/file")));
}

TEST(AtomicFileTest, ANewFileNeverReplacesOneThatIsThere) {
    std::string folder = homePath("atomic-new");
    ASSERT_TRUE(makeFolders(folder));
    std::string path = joinPath(folder, "f.txt");
    EXPECT_EQ(writeNewFileAtomically(path, asBytes("mine")), WriteResult::Written);
    EXPECT_EQ(writeNewFileAtomically(path, asBytes("theirs")), WriteResult::Exists);
    EXPECT_EQ(asText(readWholeFile(path).value_or(Bytes{})), "mine");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);  // no temporary left
    EXPECT_EQ(writeNewFileAtomically(homePath("no/such/folder/x"), asBytes("x")), WriteResult::Failed);
}

TEST(HomeTest, HomeComesFromQuillonHomeAndPathsJoinCleanly) {
    EXPECT_EQ(homeFolder(), std::string(std::getenv("QUILLON_HOME")));
    EXPECT_EQ(joinPath("/a/", "/b"), "/a/b");
    EXPECT_EQ(joinPath("/", "b"), "/b");
    EXPECT_EQ(joinPath("a", ""), "a");
}

}  // namespace
