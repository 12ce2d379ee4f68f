// The lock-and-condition object: return values, waiting for a signal from
// another thread, one waiter per signal, and re-entry by the owner.

#include "log/condlock.h"

#include <QElapsedTimer>
#include <QtTest>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace
{

// Whether another thread could take the lock right now (it lets go at once).
bool lockFreeForOthers(CondLock *lock)
{
    return std::async(std::launch::async,
                      [lock] {
                          if (!lock->mutex.try_lock())
                              return false;
                          lock->mutex.unlock();
                          return true;
                      })
        .get();
}

} // namespace

class TestCondLock : public QObject
{
    Q_OBJECT

private slots:
    void operationsReturnZero();
    void waitReturnsAfterSignal();
    void signalWakesOneWaiter();
    void ownerMayLockAgain();
};

void TestCondLock::operationsReturnZero()
{
    CondLock *lock = condLockCreate();
    QVERIFY(lock != nullptr);
    QVERIFY(lockFreeForOthers(lock));
    QCOMPARE(condLockLock(lock), 0);
    QVERIFY(!lockFreeForOthers(lock));
    QCOMPARE(condLockSignal(lock), 0); // nobody waits: nothing happens
    QCOMPARE(condLockUnlock(lock), 0);
    QVERIFY(lockFreeForOthers(lock));
    condLockDestroy(lock);
}

void TestCondLock::waitReturnsAfterSignal()
{
    CondLock *lock = condLockCreate();
    bool ready = false; // guarded by the lock
    QElapsedTimer timer;

    QCOMPARE(condLockLock(lock), 0);
    timer.start();
    // The helper can take the lock only while this thread waits on it.
    std::thread helper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        condLockLock(lock);
        ready = true;
        condLockSignal(lock);
        condLockUnlock(lock);
    });
    int waits = 0;
    int result = -1;
    while (!ready && waits < 100) {
        result = condLockWait(lock);
        ++waits;
    }
    const qint64 waited = timer.elapsed();
    // Back from the wait, this thread holds the lock again.
    const bool heldAfterWait = !lockFreeForOthers(lock);
    QCOMPARE(condLockUnlock(lock), 0);
    helper.join();

    QCOMPARE(result, 0);
    QVERIFY(ready);
    QVERIFY2(waits <= 3, qPrintable(QString::number(waits)));
    QVERIFY2(waited >= 90, qPrintable(QString::number(waited)));
    QVERIFY(heldAfterWait);
    condLockDestroy(lock);
}

void TestCondLock::signalWakesOneWaiter()
{
    CondLock *lock = condLockCreate();
    int waiting = 0; // guarded by the lock
    std::atomic<int> woken{0};

    auto waiter = [&] {
        condLockLock(lock);
        ++waiting;
        condLockWait(lock);
        ++woken;
        condLockUnlock(lock);
    };
    std::thread first(waiter);
    std::thread second(waiter);

    // Both are inside the wait once the count shows two: each counted
    // itself under the lock and the wait gave the lock up.
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            condLockLock(lock);
            const bool both = waiting == 2;
            condLockUnlock(lock);
            return both;
        }(),
        5000);

    condLockLock(lock);
    QCOMPARE(condLockSignal(lock), 0);
    condLockUnlock(lock);
    QTRY_COMPARE_WITH_TIMEOUT(woken.load(), 1, 5000);
    QTest::qWait(200);
    QCOMPARE(woken.load(), 1);

    condLockLock(lock);
    QCOMPARE(condLockSignal(lock), 0);
    condLockUnlock(lock);
    QTRY_COMPARE_WITH_TIMEOUT(woken.load(), 2, 5000);

    first.join();
    second.join();
    condLockDestroy(lock);
}

void TestCondLock::ownerMayLockAgain()
{
    CondLock *lock = condLockCreate();
    QCOMPARE(condLockLock(lock), 0);
    QCOMPARE(condLockLock(lock), 0); // the owner again: no deadlock
    QVERIFY(!lockFreeForOthers(lock));
    QCOMPARE(condLockUnlock(lock), 0);
    QVERIFY(!lockFreeForOthers(lock)); // still held once
    QCOMPARE(condLockUnlock(lock), 0);
    QVERIFY(lockFreeForOthers(lock));
    condLockDestroy(lock);
}

QTEST_GUILESS_MAIN(TestCondLock)
#include "tst_condlock.moc"
