#pragma once

#include <condition_variable>
#include <mutex>

// A lock and a condition variable kept together in one heap object. Owners
// allocate it with condLockCreate() and release it with condLockDestroy().
// The lock is recursive for its owning thread.
struct CondLock {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
};

CondLock *condLockCreate();
void condLockDestroy(CondLock *lock);
int condLockLock(CondLock *lock);
int condLockUnlock(CondLock *lock);
// Wakes at most one waiter.
int condLockSignal(CondLock *lock);
// Waits (no time-out) for a signal; the caller must hold the lock. It may
// return without a signal, so callers re-check their own state.
int condLockWait(CondLock *lock);
