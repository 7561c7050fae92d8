#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace sonvale {

// A delayed task's handle. Cancelling is idempotent and safe after the task ran;
// a cancelled task never runs. Main thread only.
class DelayedTask {
public:
    DelayedTask() = default;
    explicit DelayedTask(std::shared_ptr<bool> cancelled)
        : cancelled(std::move(cancelled)) {}
    void cancel() {
        if (cancelled) *cancelled = true;
    }
    bool isCancelled() const { return cancelled && *cancelled; }

private:
    std::shared_ptr<bool> cancelled;
};

// How models reach the main thread and the background pool. The desktop program
// implements it over Qt's event loop; tests use ManualExecutor with a virtual clock.
//
// post() and runInBackground() may be called from any thread; postAfter() and
// DelayedTask::cancel() from the main thread only.
class Executor {
public:
    using Work = std::function<void()>;
    virtual ~Executor() = default;

    virtual void post(Work work) = 0;
    virtual DelayedTask postAfter(std::chrono::milliseconds delay, Work work) = 0;
    virtual void runInBackground(Work work) = 0;
};

} // namespace sonvale
