#pragma once

#include "base/Executor.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace sonvale {

// An executor for programs without a GUI event loop (the command-line tool, benchmarks):
// background work runs on a fixed pool of threads; main-thread work runs on whichever
// thread calls runMainUntil(). Delayed work is kept on the steady clock.
class ThreadPoolExecutor final : public Executor {
public:
    explicit ThreadPoolExecutor(unsigned threadCount = std::thread::hardware_concurrency());
    ~ThreadPoolExecutor() override;

    void post(Work work) override;
    DelayedTask postAfter(std::chrono::milliseconds delay, Work work) override;
    void runInBackground(Work work) override;

    // Runs main-thread work on the calling thread until done() returns true (checked after
    // every item and whenever work arrives).
    void runMainUntil(const std::function<bool()>& done);

private:
    void workerLoop();

    struct Timed {
        std::chrono::steady_clock::time_point due;
        Work work;
        std::shared_ptr<bool> cancelled;
    };
    std::mutex mutex;
    std::condition_variable workAvailable;
    std::condition_variable mainAvailable;
    std::deque<Work> backgroundQueue;
    std::deque<Work> mainQueue;
    std::vector<Timed> timed;
    std::vector<std::thread> workers;
    bool stopping = false;
};

} // namespace sonvale
