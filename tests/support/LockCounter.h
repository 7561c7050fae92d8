#pragma once

#include <cstdint>

namespace sonvale::test {

// Counts the mutex operations made by the current thread while a scope is alive: blocking
// locks and try-locks separately. The test executable interposes pthread_mutex_lock and
// pthread_mutex_trylock (which std::mutex uses) with counting versions; counting is
// thread-local. Not in ThreadSanitizer builds, which intercept these functions themselves.
class LockCounter {
public:
#ifdef __SANITIZE_THREAD__
    static constexpr bool available = false;
#else
    static constexpr bool available = true;
#endif

    class Scope {
    public:
        Scope();
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        int64_t locks() const;
        int64_t tryLocks() const;

    private:
        bool wasCounting;
        int64_t locksAtStart, tryLocksAtStart;
    };
};

} // namespace sonvale::test
