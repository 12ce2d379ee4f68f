#include "log/condlock.h"

CondLock *condLockCreate()
{
    return new CondLock;
}

void condLockDestroy(CondLock *lock)
{
    // The condition variable needs no release of its own; deleting the
    // object releases both halves.
    delete lock;
}

int condLockLock(CondLock *lock)
{
    lock->mutex.lock();
    return 0;
}

int condLockUnlock(CondLock *lock)
{
    lock->mutex.unlock();
    return 0;
}

int condLockSignal(CondLock *lock)
{
    lock->condition.notify_one();
    return 0;
}

int condLockWait(CondLock *lock)
{
    // Releases one level of the lock while waiting and takes it again on
    // wake-up. Spurious wake-ups are possible; callers re-check their state.
    lock->condition.wait(lock->mutex);
    return 0;
}
