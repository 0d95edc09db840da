// tMutex and tEvent: creation under a status, recursion, auto- and manual-reset semantics and
// the timed wait with its two time-out locations.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "quarks/synchronization.h"
#include "threadSignal.h"

namespace quorvane {
namespace {

using testsupport::eventually;
using testsupport::tSignal;

tStatus statusHolding(int64_t code) {
    tStatus status;
    status.setCode(code, "earlier", 1);
    return status;
}

void expectTimedOutAt(const tStatus& status, uint64_t line) {
    EXPECT_EQ(status.code, kStatusWaitTimedOut);
    EXPECT_STREQ(status.component, "Quorvane");
    EXPECT_STREQ(status.file, "quarks/synchronization");
    EXPECT_EQ(status.line, line);
}

TEST(MonotonicNow, FollowsTheMonotonicClockInNanoseconds) {
    timespec before{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    const uint64_t first = MonotonicNow();
    const uint64_t second = MonotonicNow();
    const uint64_t beforeNs =
        static_cast<uint64_t>(before.tv_sec) * 1000000000u + static_cast<uint64_t>(before.tv_nsec);
    EXPECT_LE(beforeNs, first);
    EXPECT_LT(first - beforeNs, 1000000000u) << "not on the same clock, or not in nanoseconds";
    EXPECT_LE(first, second);
}

// ---- creation under a status --------------------------------------------------------------------

TEST(SynchronizationCreation, StatusHoldingAnErrorCreatesNothing) {
    tStatus status = statusHolding(kStatusMemoryFull);
    tMutex mutex(status);
    tEvent event(status, true, true);
    EXPECT_FALSE(mutex.initialised());
    EXPECT_FALSE(event.conditionInitialised());
    EXPECT_EQ(status.code, kStatusMemoryFull);
    EXPECT_STREQ(status.file, "earlier");
    // Destruction at scope end must leave the never-created POSIX objects alone.
}

TEST(SynchronizationCreation, StatusHoldingAWarningStillCreates) {
    tStatus status = statusHolding(12);
    tMutex mutex(status);
    tEvent event(status, true, false);
    EXPECT_TRUE(mutex.initialised());
    EXPECT_TRUE(event.conditionInitialised());
    EXPECT_EQ(status.code, 12);
    event.set();
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::signalled);
}

TEST(SynchronizationCreation, DeferredMutexIsCreatedAndDestroyedOnRequest) {
    tMutex mutex;
    EXPECT_FALSE(mutex.initialised());
    tStatus status;
    mutex.create(status);
    EXPECT_TRUE(mutex.initialised());
    EXPECT_EQ(status.code, 0);
    mutex.destroy();
    EXPECT_FALSE(mutex.initialised());
    mutex.destroy();
    EXPECT_FALSE(mutex.initialised());
}

// ---- tMutex -------------------------------------------------------------------------------------

TEST(Mutex, IsRecursiveAndExcludesOtherThreadsUntilFullyUnlocked) {
    tStatus status;
    tMutex mutex(status);
    ASSERT_EQ(status.code, 0);
    mutex.lock();
    mutex.lock();
    tSignal entered;
    std::thread other([&] {
        tMutexGuard hold(mutex);
        entered.set();
    });
    mutex.unlock();
    EXPECT_TRUE(entered.staysUnset()) << "one unlock of two released the mutex";
    mutex.unlock();
    EXPECT_TRUE(entered.waitSet());
    other.join();
}

// ---- tEvent, untimed ----------------------------------------------------------------------------

TEST(Event, AutoResetSetTwiceLetsExactlyOneWaitThrough) {
    tStatus status;
    tEvent event(status, true, false);
    ASSERT_EQ(status.code, 0);
    event.set();
    event.set();
    event.wait();
    tSignal secondThrough;
    std::thread waiter([&] {
        event.wait();
        secondThrough.set();
    });
    EXPECT_TRUE(secondThrough.staysUnset());
    event.set();
    EXPECT_TRUE(secondThrough.waitSet());
    waiter.join();
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::timedOut) << "the signal was not consumed";
}

TEST(Event, AutoResetSetWakesOneWaiterAtATime) {
    tStatus status;
    tEvent event(status, true, false);
    ASSERT_EQ(status.code, 0);
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) {
        waiters.emplace_back([&] {
            event.wait();
            ++through;
        });
    }
    event.set();
    ASSERT_TRUE(eventually([&] { return through.load() >= 1; }));
    std::this_thread::sleep_for(testsupport::kStillBlocked);
    EXPECT_EQ(through.load(), 1);
    event.set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(through.load(), 2);
}

TEST(Event, ManualResetWakesEveryWaiterAndStaysSignalledUntilReset) {
    tStatus status;
    tEvent event(status, false, false);
    ASSERT_EQ(status.code, 0);
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            event.wait();
            ++through;
        });
    }
    event.set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(through.load(), 4);
    event.wait();
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::signalled);
    EXPECT_EQ(status.code, 0);
    event.reset();
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::timedOut);
}

TEST(Event, CreatedSignalledLetsTheFirstWaitThrough) {
    tStatus status;
    tEvent event(status, true, true);
    ASSERT_EQ(status.code, 0);
    event.wait();
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::timedOut);
}

// ---- tEvent, timed ------------------------------------------------------------------------------

TEST(EventTimedWait, ZeroTimeoutOnAnUnsignalledEventReportsLine2248) {
    tStatus status;
    tEvent event(status, true, false);
    ASSERT_EQ(status.code, 0);
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::timedOut);
    expectTimedOutAt(status, kEventNotSignalledLine);
    EXPECT_EQ(kEventNotSignalledLine, 2248u);
}

TEST(EventTimedWait, RunningOutReportsLine2215AfterTheWholeTimeout) {
    tStatus status;
    tEvent event(status, true, false);
    ASSERT_EQ(status.code, 0);
    const uint64_t start = MonotonicNow();
    EXPECT_EQ(event.waitFor(30, status), tEvent::tWaitResult::timedOut);
    EXPECT_GE(MonotonicNow() - start, 30u * 1000000u);
    expectTimedOutAt(status, kEventTimedOutLine);
    EXPECT_EQ(kEventTimedOutLine, 2215u);
}

TEST(EventTimedWait, ATimeOutDoesNotReplaceAnEarlierError) {
    tStatus status = statusHolding(kStatusMemoryFull);
    tStatus created;
    tEvent event(created, false, false);
    ASSERT_EQ(created.code, 0);
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::timedOut);
    EXPECT_EQ(status.code, kStatusMemoryFull);
    tStatus warned = statusHolding(5);
    EXPECT_EQ(event.waitFor(1, warned), tEvent::tWaitResult::timedOut);
    expectTimedOutAt(warned, kEventTimedOutLine);
}

TEST(EventTimedWait, ASetFromAnotherThreadEndsTheWaitAndIsConsumed) {
    tStatus status;
    tEvent event(status, true, false);
    ASSERT_EQ(status.code, 0);
    tStatus waitStatus;
    tEvent::tWaitResult result = tEvent::tWaitResult::failed;
    std::thread waiter([&] { result = event.waitFor(20000, waitStatus); });
    event.set();
    waiter.join();
    EXPECT_EQ(result, tEvent::tWaitResult::signalled);
    EXPECT_EQ(waitStatus.code, 0);
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::timedOut);
}

// One signal, two timed waiters on an auto-reset event: whichever gets it consumes it, and the
// other, woken or not, waits again until its deadline.
TEST(EventTimedWait, OneSignalServesOneOfTwoTimedWaiters) {
    tStatus status;
    tEvent event(status, true, false);
    ASSERT_EQ(status.code, 0);
    tStatus statuses[2];
    tEvent::tWaitResult results[2] = {tEvent::tWaitResult::failed, tEvent::tWaitResult::failed};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) waiters.emplace_back([&, i] { results[i] = event.waitFor(300, statuses[i]); });
    event.set();
    for (auto& waiter : waiters) waiter.join();
    const int served = (results[0] == tEvent::tWaitResult::signalled) + (results[1] == tEvent::tWaitResult::signalled);
    EXPECT_EQ(served, 1);
    const int loser = results[0] == tEvent::tWaitResult::signalled ? 1 : 0;
    EXPECT_EQ(results[loser], tEvent::tWaitResult::timedOut);
    expectTimedOutAt(statuses[loser], kEventTimedOutLine);
    EXPECT_EQ(statuses[1 - loser].code, 0);
}

TEST(EventTimedWait, SignalledEventPassesAZeroTimeout) {
    tStatus status;
    tEvent event(status, false, true);
    ASSERT_EQ(status.code, 0);
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::signalled);
    EXPECT_EQ(event.waitFor(0, status), tEvent::tWaitResult::signalled) << "manual reset keeps the signal";
    EXPECT_EQ(status.code, 0);
}

}  // namespace
}  // namespace quorvane
