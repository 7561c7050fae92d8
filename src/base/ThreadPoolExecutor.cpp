#include "base/ThreadPoolExecutor.h"

#include <algorithm>

namespace sonvale {

ThreadPoolExecutor::ThreadPoolExecutor(unsigned threadCount) {
    threadCount = std::max(1u, threadCount);
    for (unsigned i = 0; i < threadCount; ++i)
        workers.emplace_back([this] { workerLoop(); });
}

ThreadPoolExecutor::~ThreadPoolExecutor() {
    {
        std::lock_guard lock(mutex);
        stopping = true;
    }
    workAvailable.notify_all();
    for (auto& worker : workers)
        worker.join();
}

void ThreadPoolExecutor::post(Work work) {
    {
        std::lock_guard lock(mutex);
        mainQueue.push_back(std::move(work));
    }
    mainAvailable.notify_all();
}

DelayedTask ThreadPoolExecutor::postAfter(std::chrono::milliseconds delay, Work work) {
    auto cancelled = std::make_shared<bool>(false);
    {
        std::lock_guard lock(mutex);
        timed.push_back({std::chrono::steady_clock::now() + delay, std::move(work), cancelled});
    }
    mainAvailable.notify_all();
    return DelayedTask(cancelled);
}

void ThreadPoolExecutor::runInBackground(Work work) {
    {
        std::lock_guard lock(mutex);
        backgroundQueue.push_back(std::move(work));
    }
    workAvailable.notify_one();
}

void ThreadPoolExecutor::workerLoop() {
    for (;;) {
        Work work;
        {
            std::unique_lock lock(mutex);
            workAvailable.wait(lock, [this] { return stopping || !backgroundQueue.empty(); });
            if (backgroundQueue.empty()) return;
            work = std::move(backgroundQueue.front());
            backgroundQueue.pop_front();
        }
        work();
    }
}

void ThreadPoolExecutor::runMainUntil(const std::function<bool()>& done) {
    while (!done()) {
        Work work;
        std::shared_ptr<bool> cancelled;
        {
            std::unique_lock lock(mutex);
            for (;;) {
                if (!mainQueue.empty()) {
                    work = std::move(mainQueue.front());
                    mainQueue.pop_front();
                    break;
                }
                auto due = std::min_element(timed.begin(), timed.end(),
                                            [](auto& a, auto& b) { return a.due < b.due; });
                if (due != timed.end() && due->due <= std::chrono::steady_clock::now()) {
                    work = std::move(due->work);
                    cancelled = due->cancelled;
                    timed.erase(due);
                    break;
                }
                if (due != timed.end())
                    mainAvailable.wait_until(lock, due->due);
                else
                    mainAvailable.wait_for(lock, std::chrono::milliseconds(50));
                if (mainQueue.empty() && done()) return;
            }
        }
        if (!cancelled || !*cancelled) work();
    }
}

} // namespace sonvale
