#pragma once

#include <cstdint>

namespace sonvale::test {

// Counts heap allocations and frees made by the current thread while a scope is alive.
// The test executable replaces the global operator new and delete (every variant) with
// counting versions; counting is thread-local, so other threads do not disturb a count.
//
//   AllocationCounter::Scope scope;
//   processor.process(channels, frames);
//   EXPECT_EQ(scope.allocations(), 0);
class AllocationCounter {
public:
    class Scope {
    public:
        Scope();
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        int64_t allocations() const;
        int64_t frees() const;

    private:
        bool wasCounting;
        int64_t allocationsAtStart, freesAtStart;
    };
};

} // namespace sonvale::test
