#include "base/ParallelFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

using namespace sonvale;

TEST(ParallelFor, RunsEveryIndexOnceAlsoWhenNestedInsideItself) {
    for (size_t count : {0, 1, 2, 7, 1000}) {
        std::vector<std::atomic<int>> runs(count * 3);
        parallelFor(count, [&](size_t i) {
            // Three inner loops per outer index: a call from a pool thread must finish too.
            parallelFor(3, [&](size_t j) { ++runs[i * 3 + j]; });
        });
        for (const auto& r : runs)
            ASSERT_EQ(r.load(), 1) << count;
    }
}

TEST(ParallelFor, TheFirstExceptionReachesTheCallerAndTheLoopStillEnds) {
    std::atomic<int> ran{0};
    try {
        parallelFor(64, [&](size_t i) {
            ++ran;
            if (i % 8 == 3) throw std::runtime_error("index " + std::to_string(i));
        });
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()).rfind("index ", 0), 0u);
    }
    EXPECT_GE(ran.load(), 1);
    // The pool is still there for the next loop.
    std::atomic<int> after{0};
    parallelFor(16, [&](size_t) { ++after; });
    EXPECT_EQ(after.load(), 16);
}
