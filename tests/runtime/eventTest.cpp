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
using tResult = tEvent::tWaitResult;

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
    const uint64_t beforeNs =
        static_cast<uint64_t>(before.tv_sec) * 1000000000u + static_cast<uint64_t>(before.tv_nsec);
    EXPECT_LE(beforeNs, first);
    EXPECT_LT(first - beforeNs, 1000000000u) << "not on the same clock, or not in nanoseconds";
    EXPECT_LE(first, MonotonicNow());
}

TEST(SynchronizationCreation, AnEarlierErrorCreatesNothingAndAWarningStillCreates) {
    tStatus error = statusHolding(kStatusMemoryFull);
    tMutex failedMutex(error);
    tEvent failedEvent(error, true, true);
    EXPECT_FALSE(failedMutex.initialised());
    EXPECT_FALSE(failedEvent.conditionInitialised());
    EXPECT_EQ(error.code, kStatusMemoryFull);
    EXPECT_STREQ(error.file, "earlier");

    tStatus warning = statusHolding(12);
    tMutex mutex(warning);
    tEvent event(warning, true, false);
    EXPECT_TRUE(mutex.initialised());
    EXPECT_TRUE(event.conditionInitialised());
    EXPECT_EQ(warning.code, 12);
    event.set();
    EXPECT_EQ(event.waitFor(0, warning), tResult::signalled);

    tMutex deferred;
    EXPECT_FALSE(deferred.initialised());
    tStatus status;
    deferred.create(status);
    EXPECT_TRUE(deferred.initialised());
    EXPECT_EQ(status.code, 0);
    deferred.destroy();
    deferred.destroy();
    EXPECT_FALSE(deferred.initialised());
}

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

class Event : public ::testing::Test {
protected:
    void expectCreated() { ASSERT_EQ(status_.code, 0); }
    // Starts `count` threads that each wait once and count themselves through.
    void startWaiters(tEvent& event, int count) {
        for (int i = 0; i < count; ++i) {
            waiters_.emplace_back([&] {
                event.wait();
                ++through_;
            });
        }
    }
    void joinWaiters() {
        for (auto& waiter : waiters_) waiter.join();
    }
    tStatus status_;
    std::atomic<int> through_{0};
    std::vector<std::thread> waiters_;
};

TEST_F(Event, AutoResetLetsOneWaitThroughPerSetAndSetsDoNotAccumulate) {
    tEvent event(status_, true, false);
    expectCreated();
    event.set();
    event.set();
    event.wait();
    startWaiters(event, 2);
    EXPECT_FALSE(eventually([&] { return through_.load() != 0; }, testsupport::kStillBlocked))
        << "two sets before any wait must count as one";
    event.set();
    ASSERT_TRUE(eventually([&] { return through_.load() >= 1; }));
    std::this_thread::sleep_for(testsupport::kStillBlocked);
    EXPECT_EQ(through_.load(), 1);
    event.set();
    joinWaiters();
    EXPECT_EQ(through_.load(), 2);
    EXPECT_EQ(event.waitFor(0, status_), tResult::timedOut) << "the signal was not consumed";
}

TEST_F(Event, ManualResetWakesEveryWaiterAndStaysSignalledUntilReset) {
    tEvent event(status_, false, false);
    expectCreated();
    startWaiters(event, 4);
    event.set();
    joinWaiters();
    EXPECT_EQ(through_.load(), 4);
    event.wait();
    EXPECT_EQ(event.waitFor(0, status_), tResult::signalled);
    EXPECT_EQ(status_.code, 0);
    event.reset();
    EXPECT_EQ(event.waitFor(0, status_), tResult::timedOut);
}

TEST_F(Event, CreatedSignalledPassesTheFirstWaitAndManualResetKeepsIt) {
    tEvent autoReset(status_, true, true);
    tEvent manual(status_, false, true);
    expectCreated();
    autoReset.wait();
    EXPECT_EQ(manual.waitFor(0, status_), tResult::signalled);
    EXPECT_EQ(manual.waitFor(0, status_), tResult::signalled);
    EXPECT_EQ(status_.code, 0);
    EXPECT_EQ(autoReset.waitFor(0, status_), tResult::timedOut);
}

// A zero timeout reports "not signalled"; running out of a real timeout reports its own line.
TEST_F(Event, TimedWaitReportsItsTwoTimeOutLocations) {
    tEvent event(status_, true, false);
    expectCreated();
    EXPECT_EQ(event.waitFor(0, status_), tResult::timedOut);
    expectTimedOutAt(status_, kEventNotSignalledLine);
    EXPECT_EQ(kEventNotSignalledLine, 2248u);

    tStatus status;
    const uint64_t start = MonotonicNow();
    EXPECT_EQ(event.waitFor(30, status), tResult::timedOut);
    EXPECT_GE(MonotonicNow() - start, 30u * 1000000u);
    expectTimedOutAt(status, kEventTimedOutLine);
    EXPECT_EQ(kEventTimedOutLine, 2215u);
}

TEST_F(Event, ATimeOutReplacesAWarningButNotAnEarlierError) {
    tEvent event(status_, false, false);
    expectCreated();
    tStatus error = statusHolding(kStatusMemoryFull);
    EXPECT_EQ(event.waitFor(0, error), tResult::timedOut);
    EXPECT_EQ(error.code, kStatusMemoryFull);
    tStatus warned = statusHolding(5);
    EXPECT_EQ(event.waitFor(1, warned), tResult::timedOut);
    expectTimedOutAt(warned, kEventTimedOutLine);
}

// One signal, two timed waiters on an auto-reset event: whichever gets it consumes it, and the
// other, woken or not, waits again until its deadline.
TEST_F(Event, OneSignalServesExactlyOneOfTwoTimedWaiters) {
    tEvent event(status_, true, false);
    expectCreated();
    tStatus statuses[2];
    tResult results[2] = {tResult::failed, tResult::failed};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) waiters.emplace_back([&, i] { results[i] = event.waitFor(300, statuses[i]); });
    event.set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ((results[0] == tResult::signalled) + (results[1] == tResult::signalled), 1);
    const int loser = results[0] == tResult::signalled ? 1 : 0;
    EXPECT_EQ(results[loser], tResult::timedOut);
    expectTimedOutAt(statuses[loser], kEventTimedOutLine);
    EXPECT_EQ(statuses[1 - loser].code, 0);
    EXPECT_EQ(event.waitFor(0, status_), tResult::timedOut) << "the signal was not consumed";
}

}  // namespace
}  // namespace quorvane
