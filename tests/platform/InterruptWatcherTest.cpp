#include <gtest/gtest.h>

#include <csignal>

#include "platform/InterruptWatcher.h"
#include "platform/MainLoop.h"

using namespace quillon;

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

}  // namespace
