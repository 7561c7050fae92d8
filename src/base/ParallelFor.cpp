#include "base/ParallelFor.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace sonvale {

namespace {

class Pool {
public:
    static Pool& shared() {
        static Pool pool;
        return pool;
    }
    size_t size() const { return workers.size(); }
    void submit(std::function<void()> task) {
        {
            std::lock_guard lock(mutex);
            tasks.push_back(std::move(task));
        }
        available.notify_one();
    }

private:
    Pool() {
        const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
        // A worker the system refuses to start leaves its share to the others.
        try {
            for (unsigned i = 1; i < cores; ++i)
                workers.emplace_back([this] { run(); });
        } catch (const std::system_error&) {
        }
    }
    ~Pool() {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        available.notify_all();
        for (auto& worker : workers)
            worker.join();
    }
    void run() {
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(mutex);
                available.wait(lock, [&] { return stopping || !tasks.empty(); });
                if (tasks.empty()) return;
                task = std::move(tasks.front());
                tasks.pop_front();
            }
            task();
        }
    }

    std::mutex mutex;
    std::condition_variable available;
    std::deque<std::function<void()>> tasks;
    std::vector<std::thread> workers;
    bool stopping = false;
};

// One call's indices, shared by the caller and the helpers it asked for. A helper that
// starts after every index was taken finds nothing to do.
struct Loop {
    Loop(size_t count, const std::function<void(size_t)>& body)
        : count(count)
        , body(&body) {}
    const size_t count;
    const std::function<void(size_t)>* body;
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::mutex mutex;
    std::condition_variable finished;
    size_t done = 0;
    std::exception_ptr failure;

    void runSome() {
        for (size_t i; (i = next++) < count;) {
            if (!failed.load(std::memory_order_relaxed)) {
                try {
                    (*body)(i);
                } catch (...) {
                    std::lock_guard lock(mutex);
                    if (!failure) failure = std::current_exception();
                    failed = true;
                }
            }
            std::lock_guard lock(mutex);
            if (++done == count) finished.notify_all();
        }
    }
};

} // namespace

size_t parallelWidth() { return Pool::shared().size() + 1; }

void parallelFor(size_t count, const std::function<void(size_t)>& body) {
    Pool& pool = Pool::shared();
    if (count <= 1 || pool.size() == 0) {
        for (size_t i = 0; i < count; ++i)
            body(i);
        return;
    }
    auto loop = std::make_shared<Loop>(count, body);
    for (size_t k = 0; k < std::min(count - 1, pool.size()); ++k)
        pool.submit([loop] { loop->runSome(); });
    loop->runSome();
    std::exception_ptr failure;
    {
        std::unique_lock lock(loop->mutex);
        loop->finished.wait(lock, [&] { return loop->done == count; });
        // Taken out of the loop: a helper may drop the last reference to the loop after this
        // returns, and the exception must not go with it on that thread while the caller
        // still reads it.
        failure = std::move(loop->failure);
    }
    if (failure) std::rethrow_exception(failure);
}

} // namespace sonvale
