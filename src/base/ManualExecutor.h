#pragma once

#include "base/Executor.h"

#include <deque>
#include <mutex>
#include <vector>

namespace sonvale {

// An executor for tests: nothing runs until the test says so. Main-thread work and
// background work wait in two queues; delayed work waits on a virtual clock that only
// advance() moves. Posting is thread-safe so that real worker threads may post into it.
class ManualExecutor final : public Executor {
public:
    void post(Work work) override;
    DelayedTask postAfter(std::chrono::milliseconds delay, Work work) override;
    void runInBackground(Work work) override;

    // Runs queued main-thread work (including work posted while running) until none is left.
    // Returns how many items ran.
    int runMain();
    // Runs queued background work on the calling thread, one item at a time, until none is left.
    int runBackground();
    // Alternates background and main work until both queues are empty.
    int drain();
    // Moves the virtual clock forward, running delayed work that falls due, in time order,
    // each followed by the main-thread work it posted.
    void advance(std::chrono::milliseconds by);

    std::chrono::milliseconds now() const { return clock; }
    size_t pendingMain() const;
    size_t pendingBackground() const;
    // Delayed work that has not run yet and was not cancelled.
    size_t pendingDelayed() const;

private:
    struct Timed {
        std::chrono::milliseconds due;
        uint64_t order;
        Work work;
        std::shared_ptr<bool> cancelled;
    };
    mutable std::mutex mutex;
    std::deque<Work> mainQueue;
    std::deque<Work> backgroundQueue;
    std::vector<Timed> timed;
    std::chrono::milliseconds clock{0};
    uint64_t nextOrder = 0;
};

} // namespace sonvale
