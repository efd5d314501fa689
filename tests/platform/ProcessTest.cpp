// The process and its neighbours: signals become main-loop tasks, the
// descriptor limit is raised, and files are handed to other programs. Only
// harmless tools (touch) are started, never a desktop program.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "platform/DescriptorLimit.h"
#include "platform/Desktop.h"
#include "platform/Home.h"
#include "platform/InterruptWatcher.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "support/Files.h"

namespace quillon {
namespace {

std::sig_atomic_t earlierHandlerRan = 0;
extern "C" void earlierHandler(int) { earlierHandlerRan = 1; }

TEST(InterruptWatcherTest, SignalsBecomeTasksOnTheMainLoopAndTheEarlierHandlersReturn) {
    MainLoop& loop = MainLoop::main();
    loop.runUntil([] { return true; }, 0);  // this thread is the main thread
    auto previous = std::signal(SIGINT, earlierHandler);
    {
        int calls = 0;
        InterruptWatcher watcher([&] { ++calls; });
        EXPECT_FALSE(watcher.interrupted());
        for (int signal : {SIGINT, SIGTERM}) {
            const int before = calls;
            std::raise(signal);
            // The loop re-checks only when a task arrives: the signal must post one.
            EXPECT_TRUE(loop.runUntil([&] { return calls > before; }, 10, 60)) << signal;
        }
        EXPECT_TRUE(watcher.interrupted());
        EXPECT_EQ(earlierHandlerRan, 0);
    }
    std::raise(SIGINT);
    EXPECT_EQ(earlierHandlerRan, 1);
    std::signal(SIGINT, previous);
}

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

TEST(DesktopTest, OnlyCommandsWhoseProgramExistsCanRun) {
    const std::string script = test::testFolder("desktop") + "/not-executable";
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

    Log::Capture log;  // a missing player is a refusal
    EXPECT_FALSE(Desktop::openWith("no-such-player-for-quillon --flag", "/tmp/x.pls"));
    EXPECT_TRUE(log.contains("Unable to open /tmp/x.pls with no-such-player-for-quillon --flag"));
}

TEST(DesktopTest, TheCommandGetsThePathAsItsLastArgument) {
    const std::string folder = test::testFolder("desktop") + "/with space";
    makeFolders(folder);
    const std::string marker = folder + "/it's here.txt";
    ASSERT_TRUE(Desktop::openWith("touch", marker));
    // The program runs in the background: wait for its work.
    EXPECT_TRUE(MainLoop::main().runUntil([&] { return std::filesystem::exists(marker); }, 10));
}

}  // namespace
}  // namespace quillon
