#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/MainLoop.h"

using namespace quillon;

namespace {

TEST(MainLoopTest, PostedTasksRunInOrderOnTheLoopThreadAndStopEndsRun) {
    MainLoop loop;
    std::vector<int> order;
    std::thread::id ranOn;
    std::thread producer([&] {
        for (int i = 0; i < 5; ++i)
            loop.post([&, i] {
                order.push_back(i);
                ranOn = std::this_thread::get_id();
            });
        loop.post([&] { loop.stop(); });
    });
    producer.join();
    loop.run();  // returns only because of the posted stop
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(MainLoopTest, InvokeWaitsForTheTaskAndRunsInlineOnTheMainThread) {
    MainLoop loop;
    loop.runUntil([] { return true; }, 0);  // makes this thread the loop's main thread
    int inlineValue = 0;
    loop.invoke([&] { inlineValue = 1; });
    EXPECT_EQ(inlineValue, 1);

    // From another thread, plain and under a guard that is never cancelled.
    InvokeGuard guard;
    std::atomic<bool> workerSaw{false};
    int value = 0;
    bool guardedRan = false;
    std::thread worker([&] {
        loop.invoke([&] { value = 42; });
        guardedRan = loop.invoke([] {}, guard);
        workerSaw = (value == 42);
    });
    EXPECT_TRUE(loop.runUntil([&] { return workerSaw.load(); }, 5));
    worker.join();
    EXPECT_TRUE(guardedRan);
}

TEST(MainLoopTest, OneShotAndRepeatingTimersFireAndCanBeCancelled) {
    MainLoop loop;
    int once = 0, repeated = 0, cancelled = 0;
    loop.addTimer(0.01, [&] { ++once; });
    auto rep = loop.addTimer(
        0.01, [&] { ++repeated; }, true);
    auto gone = loop.addTimer(0.01, [&] { ++cancelled; });
    loop.cancelTimer(gone);
    EXPECT_TRUE(loop.runUntil([&] { return repeated >= 3; }, 5));
    loop.cancelTimer(rep);
    int seen = repeated;
    loop.runUntil([] { return false; }, 0.05);
    EXPECT_EQ(once, 1);
    EXPECT_EQ(cancelled, 0);
    EXPECT_EQ(repeated, seen);
}

// The hazard a threaded object must design out: the main thread tears the object
// down while the object's thread waits in invoke() for the main thread.
TEST(MainLoopTest, CancellingAGuardReleasesAThreadBlockedInInvoke) {
    MainLoop loop;
    loop.runUntil([] { return true; }, 0);
    InvokeGuard guard;
    std::atomic<bool> entered{false};
    bool taskRan = false;
    bool result = true;
    std::thread worker([&] {
        entered = true;
        result = loop.invoke([&] { taskRan = true; }, guard);
    });
    while (!entered) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    guard.cancel();  // the main thread never ran the queue: without the guard, join would hang
    worker.join();
    EXPECT_FALSE(result);
    loop.runUntil([] { return false; }, 0.05);  // the queued copy runs now and must do nothing
    EXPECT_FALSE(taskRan);
}

}  // namespace
