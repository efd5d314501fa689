// Handing files to programs: which command lines can run at all, and that a
// command runs in the background with the path as its last argument. Only
// harmless tools (touch) are started, never a desktop program.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/Desktop.h"
#include "platform/Home.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "support/Files.h"

namespace quillon {
namespace {

TEST(DesktopTest, OnlyCommandsWhoseProgramExistsCanRun) {
    std::string script = homePath("desktop-test/not-executable");
    makeFolders(homePath("desktop-test"));
    test::writeText(script, "#!/bin/sh\n");
    struct Case {
        std::string command;
        bool exists;
    };
    const Case cases[] = {
        {"sh", true},
        {"  touch -c", true},  // leading blanks and arguments
        {"/bin/sh -c true", true},
        {"no-such-player-for-quillon", false},
        {"/no/such/player", false},
        {script, false},  // a file, but not executable
        {"", false},
        {"   ", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Desktop::commandExists(c.command), c.exists) << "'" << c.command << "'";
}

TEST(DesktopTest, AMissingPlayerIsARefusal) {
    Log::Capture log;
    EXPECT_FALSE(Desktop::openWith("no-such-player-for-quillon --flag", "/tmp/x.pls"));
    EXPECT_TRUE(log.contains("Unable to open /tmp/x.pls with no-such-player-for-quillon --flag"));
}

TEST(DesktopTest, TheCommandGetsThePathAsItsLastArgument) {
    std::string folder = homePath("desktop-test/with space");
    makeFolders(folder);
    std::string marker = folder + "/it's here.txt";
    std::filesystem::remove(marker);
    ASSERT_TRUE(Desktop::openWith("touch", marker));
    // The program runs in the background: wait for its work.
    EXPECT_TRUE(MainLoop::main().runUntil([&] { return std::filesystem::exists(marker); }, 10));
}

}  // namespace
}  // namespace quillon
