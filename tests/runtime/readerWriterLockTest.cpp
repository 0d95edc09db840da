// tReaderWriterLock with real threads: writers drain only the readers counted before them,
// late readers back off until the writer leaves, writers serialise, and a mixed stress keeps
// a plain (non-atomic) shared state consistent.
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

class ReaderWriterLock : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(status_.code, 0); }
    tStatus status_;
    tReaderWriterLock lock_{status_};
};

TEST_F(ReaderWriterLock, StartsFree) {
    EXPECT_EQ(lock_.readerCountForTesting(), 1);
    EXPECT_EQ(lock_.writerActiveForTesting(), 0);
}

TEST_F(ReaderWriterLock, ReadersAreCountedAndUncounted) {
    lock_.acquireShared();
    lock_.acquireShared();
    EXPECT_EQ(lock_.readerCountForTesting(), 3);
    lock_.releaseShared();
    lock_.releaseShared();
    EXPECT_EQ(lock_.readerCountForTesting(), 1);
}

TEST_F(ReaderWriterLock, ExclusiveOnAFreeLockReturnsAtOnceAndRestoresTheCountOnRelease) {
    lock_.acquireExclusive();
    EXPECT_EQ(lock_.readerCountForTesting(), 0);
    EXPECT_EQ(lock_.writerActiveForTesting(), 1);
    lock_.releaseExclusive();
    EXPECT_EQ(lock_.readerCountForTesting(), 1);
    EXPECT_EQ(lock_.writerActiveForTesting(), 0);
    // Usable again in both modes.
    { tSharedLock shared(lock_); }
    { tExclusiveLock exclusive(lock_); }
    EXPECT_EQ(lock_.readerCountForTesting(), 1);
}

template <class F>
class tScopeExit {
public:
    explicit tScopeExit(F action) : action_(action) {}
    ~tScopeExit() { action_(); }
    tScopeExit(const tScopeExit&) = delete;
    tScopeExit& operator=(const tScopeExit&) = delete;

private:
    F action_;
};

// A reader thread that enters, reports it, and leaves on request.
class tReaderThread {
public:
    explicit tReaderThread(tReaderWriterLock& lock)
        : thread_([this, &lock] {
              lock.acquireShared();
              entered.set();
              leave_.waitSet();
              lock.releaseShared();
              left.set();
          }) {}
    ~tReaderThread() {
        leave_.set();
        thread_.join();
    }
    void leave() { leave_.set(); }

    tSignal entered;
    tSignal left;

private:
    tSignal leave_;
    std::thread thread_;
};

class tWriterThread {
public:
    explicit tWriterThread(tReaderWriterLock& lock)
        : thread_([this, &lock] {
              lock.acquireExclusive();
              entered.set();
              leave_.waitSet();
              lock.releaseExclusive();
          }) {}
    ~tWriterThread() {
        leave_.set();
        thread_.join();
    }
    void leave() { leave_.set(); }

    tSignal entered;

private:
    tSignal leave_;
    std::thread thread_;
};

TEST_F(ReaderWriterLock, WriterWaitsForCountedReadersAndLateReaderBacksOffUntilItLeaves) {
    tReaderThread first(lock_);
    tReaderThread second(lock_);
    ASSERT_TRUE(first.entered.waitSet());
    ASSERT_TRUE(second.entered.waitSet());

    tWriterThread writer(lock_);
    ASSERT_TRUE(eventually([&] { return lock_.writerActiveForTesting() == 1; }));
    // The writer took the count's initial 1 away; exactly the two readers remain counted.
    ASSERT_TRUE(eventually([&] { return lock_.readerCountForTesting() == 2; }));
    EXPECT_TRUE(writer.entered.staysUnset());

    tReaderThread late(lock_);
    // Should a check fail midway, let everyone go before the threads are joined in reverse.
    tScopeExit releaseAll([&] {
        first.leave();
        second.leave();
        writer.leave();
        late.leave();
    });
    EXPECT_TRUE(late.entered.staysUnset()) << "a reader got in while a writer was draining";
    EXPECT_EQ(lock_.readerCountForTesting(), 2) << "a backing-off reader must take its count away";

    first.leave();
    ASSERT_TRUE(first.left.waitSet());
    EXPECT_TRUE(writer.entered.staysUnset()) << "the writer did not wait for the second reader";

    second.leave();
    ASSERT_TRUE(writer.entered.waitSet());
    EXPECT_EQ(lock_.readerCountForTesting(), 0);
    EXPECT_TRUE(late.entered.staysUnset()) << "a reader got in while a writer held the lock";

    writer.leave();
    ASSERT_TRUE(late.entered.waitSet());
    late.leave();
    ASSERT_TRUE(late.left.waitSet());
    EXPECT_EQ(lock_.readerCountForTesting(), 1);
    EXPECT_EQ(lock_.writerActiveForTesting(), 0);
}

TEST_F(ReaderWriterLock, SecondWriterWaitsUntilTheFirstReleases) {
    tWriterThread first(lock_);
    ASSERT_TRUE(first.entered.waitSet());
    tWriterThread second(lock_);
    EXPECT_TRUE(second.entered.staysUnset());
    first.leave();
    EXPECT_TRUE(second.entered.waitSet());
    second.leave();
}

TEST_F(ReaderWriterLock, ReaderWaitsForAHoldingWriter) {
    tWriterThread writer(lock_);
    ASSERT_TRUE(writer.entered.waitSet());
    tReaderThread reader(lock_);
    EXPECT_TRUE(reader.entered.staysUnset());
    writer.leave();
    EXPECT_TRUE(reader.entered.waitSet());
}

TEST(ReaderWriterLockCreation, StatusHoldingAnErrorCreatesNothingButSetsTheCounters) {
    tStatus status;
    status.setCode(kStatusMemoryFull, "earlier", 1);
    tReaderWriterLock lock(status);
    EXPECT_EQ(lock.readerCountForTesting(), 1);
    EXPECT_EQ(lock.writerActiveForTesting(), 0);
    EXPECT_EQ(status.code, kStatusMemoryFull);
    EXPECT_STREQ(status.file, "earlier");
    // Destruction at scope end must not touch the never-created parts.
}

TEST(ReaderWriterLockCreation, StatusHoldingAWarningStillBuildsAUsableLock) {
    tStatus status;
    status.setCode(3, "earlier", 1);
    tReaderWriterLock lock(status);
    EXPECT_EQ(status.code, 3);
    lock.acquireExclusive();
    EXPECT_EQ(lock.writerActiveForTesting(), 1);
    lock.releaseExclusive();
    lock.acquireShared();
    EXPECT_EQ(lock.readerCountForTesting(), 2);
    lock.releaseShared();
}

// ---- stress -------------------------------------------------------------------------------------

// Writers move a plain pair of counters together; readers must never see them apart. Any
// reader inside together with a writer is a data race for the thread sanitizer as well.
TEST(ReaderWriterLockStress, ReadersNeverSeeAHalfDoneWrite) {
    constexpr int kReaders = 3;
    constexpr int kWriters = 2;
    constexpr int kWritesEach = 1500;
    constexpr int kReadsEach = 4000;

    tStatus status;
    tReaderWriterLock lock(status);
    ASSERT_EQ(status.code, 0);
    struct {
        long first = 0;
        long second = 0;
    } shared;
    std::atomic<int> writersInside{0};
    std::atomic<int> readersInside{0};
    std::atomic<int> tornReads{0};
    std::atomic<int> overlaps{0};

    std::vector<std::thread> threads;
    for (int w = 0; w < kWriters; ++w) {
        threads.emplace_back([&] {
            for (int i = 0; i < kWritesEach; ++i) {
                tExclusiveLock hold(lock);
                if (writersInside.fetch_add(1) != 0 || readersInside.load() != 0) ++overlaps;
                ++shared.first;
                std::this_thread::yield();
                ++shared.second;
                writersInside.fetch_sub(1);
            }
        });
    }
    for (int r = 0; r < kReaders; ++r) {
        threads.emplace_back([&] {
            for (int i = 0; i < kReadsEach; ++i) {
                tSharedLock hold(lock);
                readersInside.fetch_add(1);
                if (writersInside.load() != 0) ++overlaps;
                if (shared.first != shared.second) ++tornReads;
                readersInside.fetch_sub(1);
            }
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_EQ(tornReads.load(), 0);
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_EQ(shared.first, long{kWriters} * kWritesEach);
    EXPECT_EQ(shared.second, shared.first);
    EXPECT_EQ(lock.readerCountForTesting(), 1);
    EXPECT_EQ(lock.writerActiveForTesting(), 0);
}

}  // namespace
}  // namespace quorvane
