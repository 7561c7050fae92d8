#include "base/ManualExecutor.h"
#include "base/ThreadPoolExecutor.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>

using namespace sonvale;
using namespace std::chrono_literals;

TEST(ManualExecutor, RunsNothingUntilAsked) {
    ManualExecutor executor;
    int ran = 0;
    executor.post([&] { ++ran; });
    executor.runInBackground([&] { ++ran; });
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(executor.pendingMain(), 1u);
    EXPECT_EQ(executor.pendingBackground(), 1u);
    EXPECT_EQ(executor.drain(), 2);
    EXPECT_EQ(ran, 2);
}

TEST(ManualExecutor, BackgroundResultsPostedToMainRunInOrderOnDrain) {
    ManualExecutor executor;
    std::string trace;
    executor.runInBackground([&] {
        trace += "b1";
        executor.post([&] { trace += "m1"; });
    });
    executor.runInBackground([&] {
        trace += "b2";
        executor.post([&] { trace += "m2"; });
    });
    executor.drain();
    EXPECT_EQ(trace, "b1b2m1m2");
}

TEST(ManualExecutor, DelayedWorkRunsWhenTheVirtualClockReachesIt) {
    ManualExecutor executor;
    std::string trace;
    executor.postAfter(1000ms, [&] { trace += "late"; });
    executor.postAfter(500ms, [&] { trace += "early,"; });
    executor.advance(499ms);
    EXPECT_EQ(trace, "");
    executor.advance(1ms);
    EXPECT_EQ(trace, "early,");
    executor.advance(500ms);
    EXPECT_EQ(trace, "early,late");
    EXPECT_EQ(executor.now(), 1000ms);
}

// The debounce pattern the session store uses: each change cancels the pending save and
// schedules a new one a second later, so ten changes make one save.
TEST(ManualExecutor, CancelledDelayedWorkNeverRunsSoDebouncingSavesOnce) {
    ManualExecutor executor;
    int saves = 0;
    DelayedTask pending;
    for (int change = 0; change < 10; ++change) {
        pending.cancel();
        pending = executor.postAfter(1000ms, [&] { ++saves; });
        executor.advance(100ms);
    }
    EXPECT_EQ(saves, 0);
    EXPECT_EQ(executor.pendingDelayed(), 1u);
    executor.advance(899ms);
    EXPECT_EQ(saves, 0);
    executor.advance(1ms);
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(executor.pendingDelayed(), 0u);
}

TEST(ManualExecutor, DelayedWorkThatSchedulesMoreWorkWithinTheSameAdvanceRunsItToo) {
    ManualExecutor executor;
    int ticks = 0;
    std::function<void()> tick = [&] {
        if (++ticks < 5) executor.postAfter(100ms, tick);
    };
    executor.postAfter(100ms, tick);
    executor.advance(1s);
    EXPECT_EQ(ticks, 5);
}

TEST(ThreadPoolExecutor, BackgroundWorkPostsBackToTheMainLoop) {
    ThreadPoolExecutor executor(2);
    std::atomic<int> background{0};
    int onMain = 0;
    for (int i = 0; i < 20; ++i)
        executor.runInBackground([&] {
            ++background;
            executor.post([&] { ++onMain; });
        });
    executor.runMainUntil([&] { return onMain == 20; });
    EXPECT_EQ(background.load(), 20);
    EXPECT_EQ(onMain, 20);
}

TEST(ThreadPoolExecutor, CancelledDelayedWorkDoesNotRun) {
    ThreadPoolExecutor executor(1);
    bool cancelledRan = false, laterRan = false;
    auto task = executor.postAfter(5ms, [&] { cancelledRan = true; });
    task.cancel();
    executor.postAfter(20ms, [&] { laterRan = true; });
    executor.runMainUntil([&] { return laterRan; });
    EXPECT_FALSE(cancelledRan);
}
