// tMutex, tEvent and tReaderWriterLock with real threads, which coordinate through atomics,
// never through the objects under test.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "quarks/synchronization.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using tResult = tEvent::tWaitResult;
constexpr auto kStillBlocked = 50ms;  // only ever used to show that something has not happened

// Whether `condition` came to hold within 20 s; if not, the code under test hangs.
template <class Condition>
bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return condition();
}

void expectTimedOutAt(const tStatus& status, uint64_t line) {
    EXPECT_EQ(std::to_string(status.code) + " " + status.file + ":" + std::to_string(status.line),
              std::to_string(kStatusWaitTimedOut) + " quarks/synchronization:" + std::to_string(line));
}

// Created only when the status holds no error. Recursive: the holder locks again without
// waiting; another thread waits, announcing it first, until the holder's last unlock.
TEST(Mutex, IsRecursiveAndExcludesOtherThreadsUntilTheLastUnlock) {
    tStatus failed;
    failed.setCode(kStatusMemoryFull, "earlier", 1);
    EXPECT_FALSE(tMutex(failed).initialised());
    tStatus status;
    tMutex mutex(status);
    std::atomic<bool> announced{false}, entered{false};
    mutex.lock();
    EXPECT_TRUE(mutex.tryLock());
    std::thread other([&] {
        tMutexGuard hold(mutex, [&] { announced = true; });
        entered = true;
    });
    EXPECT_TRUE(eventually([&] { return announced.load(); }));
    mutex.unlock();
    std::this_thread::sleep_for(kStillBlocked);
    EXPECT_FALSE(entered) << "one unlock of two released the mutex";
    mutex.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

struct EventCase {
    const char* name;
    bool autoReset, createdSignalled;
    int setsBefore, waiters, timeoutMs;  // sets made before the waiters start; time-out 0: wait()
    bool setWhileWaiting;
    int passing;          // waits that get through
    bool signalledAfter;  // still signalled once the waiters are done
};

class Event : public ::testing::TestWithParam<EventCase> {};

// Auto-reset: a signal lets one wait through and is consumed by it; sets do not accumulate.
// Manual-reset: a signal lets every wait through and stays until reset. A waiter not served
// waits out its whole time-out, which reports -52007 at line 2215; a zero time-out at 2248.
TEST_P(Event, LetsThroughTheWaitersItShouldAndKeepsOrConsumesItsSignal) {
    const EventCase& c = GetParam();
    tStatus status;
    tEvent event(status, c.autoReset, c.createdSignalled);
    for (int i = 0; i < c.setsBefore; ++i) event.set();
    std::atomic<int> passed{0}, done{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < c.waiters; ++i) {
        waiters.emplace_back([&] {
            tStatus waited;
            const uint64_t start = MonotonicNow();
            if (c.timeoutMs == 0) event.wait();
            if (c.timeoutMs == 0 || event.waitFor(c.timeoutMs, waited) == tResult::signalled) {
                ++passed;
                EXPECT_EQ(waited.code, 0);
            } else {
                EXPECT_GE(MonotonicNow() - start, c.timeoutMs * 1000000u) << "timed out early";
                expectTimedOutAt(waited, 2215);
            }
            ++done;
        });
    }
    std::this_thread::sleep_for(kStillBlocked);  // for the waiters to reach the wait
    if (c.setWhileWaiting) event.set();
    // Waiters without limit that the event fails to let through are let go, to end the test.
    EXPECT_TRUE(c.timeoutMs != 0 || eventually([&] { return done == c.waiters; })) << "waiters not let through";
    while (c.timeoutMs == 0 && done < c.waiters) event.set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(passed.load(), c.passing);

    tStatus after;
    EXPECT_EQ(event.tryConsume(), c.signalledAfter);
    EXPECT_EQ(event.waitFor(0, after), c.signalledAfter && !c.autoReset ? tResult::signalled : tResult::timedOut);
    event.reset();
    EXPECT_EQ(event.waitFor(0, after), tResult::timedOut);
    expectTimedOutAt(after, 2248);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Event,
    ::testing::Values(EventCase{"AutoSetsDoNotAccumulate", true, false, 2, 2, 200, false, 1, false},
                      EventCase{"AutoOneSetServesOneOfTwoWaiting", true, false, 0, 2, 200, true, 1, false},
                      EventCase{"AutoWaitConsumes", true, false, 0, 1, 0, true, 1, false},
                      EventCase{"AutoSignalKeptWithoutWaiters", true, false, 1, 0, 0, false, 0, true},
                      EventCase{"ManualSetWakesEveryWaiter", false, false, 0, 3, 0, true, 3, true},
                      EventCase{"ManualCreatedSignalledServesAll", false, true, 0, 2, 200, false, 2, true}),
    [](const auto& info) { return std::string(info.param.name); });

class ReaderWriterLock : public ::testing::Test {
protected:
    tStatus status_;
    tReaderWriterLock lock_{status_};
};

// A writer waits only for the readers counted before it. A reader arriving meanwhile is turned
// away, takes its count back, and waits (announcing it first) until the writer has been in.
TEST_F(ReaderWriterLock, AWaitingWriterGoesBeforeLaterReaders) {
    std::atomic<bool> writerInside{false}, readerAnnounced{false};
    lock_.acquireShared();
    std::thread writer([&] {
        tExclusiveLock hold(lock_);
        writerInside = true;
    });
    EXPECT_TRUE(eventually([&] { return lock_.writerActiveForTesting() == 1; }));
    std::thread reader([&] {
        EXPECT_FALSE(lock_.tryAcquireShared()) << "a reader got in while a writer waited";
        tSharedLock hold(lock_, [&] { readerAnnounced = true; });
        EXPECT_TRUE(writerInside) << "a later reader went before the waiting writer";
    });
    EXPECT_TRUE(eventually([&] { return readerAnnounced.load(); }));
    std::this_thread::sleep_for(kStillBlocked);
    EXPECT_FALSE(writerInside) << "the writer did not wait for the reader counted before it";
    EXPECT_TRUE(eventually([&] { return lock_.readerCountForTesting() == 1; }))
        << "a reader turned away kept its count";
    lock_.releaseShared();
    writer.join();
    reader.join();
}

// Writers and readers in loops, one reader giving its holds back early: a writer is always
// alone inside, and the plain data it changes in two steps is never seen half changed or lost.
TEST_F(ReaderWriterLock, ExcludesUnderLoad) {
    constexpr int kWriters = 2, kReaders = 3, kWrites = 300;
    std::atomic<int> readersInside{0}, writersInside{0}, writersDone{0}, violations{0}, reads{0};
    uint64_t data[2] = {0, 0};  // plain: only the lock keeps it whole
    std::vector<std::thread> threads;
    for (int i = 0; i < kWriters; ++i)
        threads.emplace_back([&] {
            // Each write waits for a read after the one before, so that readers keep coming.
            for (int write = 0; write < kWrites && eventually([&] { return reads > write; }); ++write) {
                tExclusiveLock hold(lock_);
                violations += writersInside.fetch_add(1) != 0 || readersInside.load() != 0;
                ++data[0];
                std::this_thread::yield();
                ++data[1];
                writersInside.fetch_sub(1);
            }
            ++writersDone;
        });
    for (int i = 0; i < kReaders; ++i)
        threads.emplace_back([&, i] {
            for (; writersDone < kWriters; ++reads) {
                tSharedLock hold(lock_);
                readersInside.fetch_add(1);
                violations += writersInside.load() != 0 || data[0] != data[1];
                readersInside.fetch_sub(1);
                if (i == 0) hold.unlock();  // the hold must then not be released again
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(data[0], uint64_t{kWriters * kWrites});
    EXPECT_EQ(lock_.readerCountForTesting(), 1) << "not free: 1 plus the readers counted";
    EXPECT_EQ(lock_.writerActiveForTesting(), 0);
}

}  // namespace
}  // namespace quorvane
