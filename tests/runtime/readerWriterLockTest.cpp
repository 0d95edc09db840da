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

void expectFree(tReaderWriterLock& lock) {
    EXPECT_EQ(lock.readerCountForTesting(), 1);
    EXPECT_EQ(lock.writerActiveForTesting(), 0);
}

// Creation under an earlier error builds no OS objects but must still set the counters;
// under a warning the lock is fully usable. The counts move by one per reader, and a writer
// takes the free count's 1 away.
TEST(ReaderWriterLockCounts, FollowReadersAndWritersWhateverTheCreationStatus) {
    for (int64_t earlier : {int64_t{0}, int64_t{3}, int64_t{kStatusMemoryFull}}) {
        SCOPED_TRACE(earlier);
        tStatus status;
        if (earlier != 0) status.setCode(earlier, "earlier", 1);
        tReaderWriterLock lock(status);
        EXPECT_EQ(status.code, earlier);
        expectFree(lock);
        if (earlier < 0) continue;
        lock.acquireShared();
        lock.acquireShared();
        EXPECT_EQ(lock.readerCountForTesting(), 3);
        lock.releaseShared();
        lock.releaseShared();
        expectFree(lock);
        lock.acquireExclusive();
        EXPECT_EQ(lock.readerCountForTesting(), 0);
        EXPECT_EQ(lock.writerActiveForTesting(), 1);
        lock.releaseExclusive();
        { tSharedLock shared(lock); }
        { tExclusiveLock exclusive(lock); }
        expectFree(lock);
    }
}

// A thread that takes the lock in one mode, reports it, and leaves on request.
class tHolder {
public:
    tHolder(tReaderWriterLock& lock, bool exclusive)
        : thread_([this, &lock, exclusive] {
              exclusive ? lock.acquireExclusive() : lock.acquireShared();
              entered.set();
              leave_.waitSet();
              exclusive ? lock.releaseExclusive() : lock.releaseShared();
              left.set();
          }) {}
    ~tHolder() {
        leave();
        thread_.join();
    }
    void leave() { leave_.set(); }

    tSignal entered;
    tSignal left;

private:
    tSignal leave_;
    std::thread thread_;
};

class ReaderWriterLock : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(status_.code, 0); }
    tStatus status_;
    tReaderWriterLock lock_{status_};
};

TEST_F(ReaderWriterLock, WriterWaitsForCountedReadersAndLateReaderBacksOffUntilItLeaves) {
    tHolder first(lock_, false);
    tHolder second(lock_, false);
    ASSERT_TRUE(first.entered.waitSet());
    ASSERT_TRUE(second.entered.waitSet());

    tHolder writer(lock_, true);
    ASSERT_TRUE(eventually([&] { return lock_.writerActiveForTesting() == 1; }));
    ASSERT_TRUE(eventually([&] { return lock_.readerCountForTesting() == 2; }));
    EXPECT_TRUE(writer.entered.staysUnset());

    tHolder late(lock_, false);
    // Should a check fail midway, let everyone go before the holders are joined in reverse.
    struct tReleaseAll {
        tHolder* holders[4];
        ~tReleaseAll() {
            for (tHolder* holder : holders) holder->leave();
        }
    } releaseAll{{&first, &second, &writer, &late}};
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
    expectFree(lock_);
}

class HeldByAWriter : public ReaderWriterLock, public ::testing::WithParamInterface<bool> {};

TEST_P(HeldByAWriter, SecondComerWaitsUntilTheWriterReleases) {
    tHolder writer(lock_, true);
    ASSERT_TRUE(writer.entered.waitSet());
    tHolder next(lock_, GetParam());
    EXPECT_TRUE(next.entered.staysUnset());
    writer.leave();
    EXPECT_TRUE(next.entered.waitSet());
}

INSTANTIATE_TEST_SUITE_P(ReaderOrWriter, HeldByAWriter, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Writer" : "Reader"; });

}  // namespace
}  // namespace quorvane
