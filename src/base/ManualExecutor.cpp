#include "base/ManualExecutor.h"

#include <algorithm>

namespace sonvale {

void ManualExecutor::post(Work work) {
    std::lock_guard lock(mutex);
    mainQueue.push_back(std::move(work));
}

DelayedTask ManualExecutor::postAfter(std::chrono::milliseconds delay, Work work) {
    auto cancelled = std::make_shared<bool>(false);
    std::lock_guard lock(mutex);
    timed.push_back({clock + std::max(delay, std::chrono::milliseconds(0)), nextOrder++,
                     std::move(work), cancelled});
    return DelayedTask(cancelled);
}

void ManualExecutor::runInBackground(Work work) {
    std::lock_guard lock(mutex);
    backgroundQueue.push_back(std::move(work));
}

namespace {
template <typename Queue> int runQueue(std::mutex& mutex, Queue& queue) {
    int ran = 0;
    for (;;) {
        Executor::Work work;
        {
            std::lock_guard lock(mutex);
            if (queue.empty()) return ran;
            work = std::move(queue.front());
            queue.pop_front();
        }
        work();
        ++ran;
    }
}
} // namespace

int ManualExecutor::runMain() { return runQueue(mutex, mainQueue); }

int ManualExecutor::runBackground() { return runQueue(mutex, backgroundQueue); }

int ManualExecutor::drain() {
    int total = 0;
    for (;;) {
        int ran = runBackground() + runMain();
        if (ran == 0) return total;
        total += ran;
    }
}

void ManualExecutor::advance(std::chrono::milliseconds by) {
    const auto target = clock + by;
    for (;;) {
        Timed next;
        {
            std::lock_guard lock(mutex);
            auto due = std::min_element(timed.begin(), timed.end(), [](auto& a, auto& b) {
                return a.due != b.due ? a.due < b.due : a.order < b.order;
            });
            if (due == timed.end() || due->due > target) break;
            next = std::move(*due);
            timed.erase(due);
            clock = next.due;
        }
        if (!*next.cancelled) next.work();
        runMain();
    }
    std::lock_guard lock(mutex);
    clock = target;
}

size_t ManualExecutor::pendingMain() const {
    std::lock_guard lock(mutex);
    return mainQueue.size();
}

size_t ManualExecutor::pendingBackground() const {
    std::lock_guard lock(mutex);
    return backgroundQueue.size();
}

size_t ManualExecutor::pendingDelayed() const {
    std::lock_guard lock(mutex);
    return std::count_if(timed.begin(), timed.end(), [](auto& t) { return !*t.cancelled; });
}

} // namespace sonvale
