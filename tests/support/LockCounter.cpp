#include "support/LockCounter.h"

#include <dlfcn.h>
#include <pthread.h>

namespace {

thread_local bool counting = false;
thread_local int64_t lockCount = 0;
thread_local int64_t tryLockCount = 0;

} // namespace

namespace sonvale::test {

LockCounter::Scope::Scope()
    : wasCounting(counting)
    , locksAtStart(lockCount)
    , tryLocksAtStart(tryLockCount) {
    counting = true;
}

LockCounter::Scope::~Scope() { counting = wasCounting; }

int64_t LockCounter::Scope::locks() const { return lockCount - locksAtStart; }
int64_t LockCounter::Scope::tryLocks() const { return tryLockCount - tryLocksAtStart; }

} // namespace sonvale::test

// ThreadSanitizer intercepts the same functions and needs them before it is set up, so its
// builds leave them alone (LockCounter::available() is false there).
#ifndef __SANITIZE_THREAD__

namespace {

using MutexFunction = int (*)(pthread_mutex_t*);

// Looked up without a function-local static, whose guard could itself take a lock.
MutexFunction realLock = nullptr;
MutexFunction realTryLock = nullptr;

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (!realLock)
        realLock = reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    if (counting) ++lockCount;
    return realLock(mutex);
}

extern "C" int pthread_mutex_trylock(pthread_mutex_t* mutex) {
    if (!realTryLock)
        realTryLock = reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, "pthread_mutex_trylock"));
    if (counting) ++tryLockCount;
    return realTryLock(mutex);
}
#endif
