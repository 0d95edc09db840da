// The library's synchronisation objects, built on POSIX threads: a recursive
// priority-inheriting mutex, an event, and a reader/writer lock, with scoped guards for each.
//
// None of them throws. Constructors report failures into the caller's tStatus under the merge
// rule and skip every later creation step once it holds an error, so an object may be left
// partly built; each part remembers whether it exists and destruction undoes exactly those.
// An object is usable only when the status it was built with holds no error.
//
// The locks are capabilities for clang's thread-safety analysis (quarks/threadSafety.h). The
// order in which the library takes them is stated where the registry is declared
// (source/Quorvane/sessionRegistry.h).
#pragma once

#include <pthread.h>
#include <time.h>

#include <atomic>
#include <cstdint>

#include "protons/status/stlStatus.h"
#include "quarks/threadSafety.h"

namespace quorvane {

inline constexpr const char kSynchronizationFile[] = "quarks/synchronization";
inline constexpr uint64_t kMutexCreationLine = 655;
inline constexpr uint64_t kConditionCreationLine = 1717;
inline constexpr uint64_t kEventTimedOutLine = 2215;
inline constexpr uint64_t kEventNotSignalledLine = 2248;

// Nanoseconds on CLOCK_MONOTONIC. Time-outs and event deadlines are measured on this clock.
uint64_t MonotonicNow() noexcept;

// Whether a mutex lends its owner the priority of a higher-priority waiter. Inheriting is the
// default; see tReaderWriterLock for the one place that does without.
enum class tPriority { inherit, plain };

// Recursive mutex with the priority-inheritance protocol (plain recursive where the platform
// lacks it, or where asked). Creation failure: -52003 at quarks/synchronization:655. Lock
// results are not checked.
class CAPABILITY("mutex") tMutex {
public:
    explicit tMutex(tStatus& status, tPriority priority = tPriority::inherit) noexcept { create(status, priority); }
    // Not created yet: for owners that must create it later in a fixed order (tEvent).
    tMutex() noexcept = default;
    ~tMutex() { destroy(); }
    tMutex(const tMutex&) = delete;
    tMutex& operator=(const tMutex&) = delete;

    void lock() noexcept ACQUIRE();
    // Locks only when that needs no wait: true with the mutex held, false holding nothing.
    bool tryLock() noexcept TRY_ACQUIRE(true);
    void unlock() noexcept RELEASE();
    bool initialised() const noexcept { return initialised_; }

    // Creates the POSIX mutex unless `status` holds an error.
    void create(tStatus& status, tPriority priority = tPriority::inherit) noexcept;
    // Destroys the POSIX mutex if it exists.
    void destroy() noexcept;

private:
    friend class tEvent;
    pthread_mutex_t mutex_{};
    bool initialised_ = false;
};

// Holds a tMutex from construction until destruction.
class SCOPED_CAPABILITY tMutexGuard {
public:
    explicit tMutexGuard(tMutex& mutex) noexcept ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    // Calls beforeWaiting() first when the mutex cannot be had at once.
    template <class BeforeWaiting>
    tMutexGuard(tMutex& mutex, BeforeWaiting&& beforeWaiting) noexcept ACQUIRE(mutex) : mutex_(mutex) {
        if (!mutex_.tryLock()) {
            beforeWaiting();
            mutex_.lock();
        }
    }
    ~tMutexGuard() RELEASE() { mutex_.unlock(); }
    tMutexGuard(const tMutexGuard&) = delete;
    tMutexGuard& operator=(const tMutexGuard&) = delete;

private:
    tMutex& mutex_;
};

// Event on a condition variable timed on CLOCK_MONOTONIC (default clock where the platform
// refuses that). Auto-reset: a completed wait consumes the signal and set wakes one waiter.
// Manual-reset: stays signalled until reset, and set wakes every waiter.
// Creation failure: -52008 at quarks/synchronization:1717, or the guard's -52003.
class tEvent {
public:
    tEvent(tStatus& status, bool autoReset, bool signalled, tPriority priority = tPriority::inherit) noexcept;
    ~tEvent();
    tEvent(const tEvent&) = delete;
    tEvent& operator=(const tEvent&) = delete;

    void set() noexcept;
    void reset() noexcept;
    // Waits without limit until signalled. A failing condition wait ends the wait as though
    // the event had been signalled.
    void wait() noexcept;

    // True when the event was signalled, consumed then if auto-reset; never waits. What
    // waitFor does when it finds the event signalled, for callers that would otherwise have to
    // compute a time limit or a status record they then do not use.
    bool tryConsume() noexcept;

    enum class tWaitResult { signalled, timedOut, failed };
    // Waits at most `milliseconds`. A time-out records -52007 into `status`: at line 2248 when
    // `milliseconds` is 0 and the event is not signalled, at line 2215 when a timed wait ran
    // out. A wait that failed for another reason records nothing and returns failed.
    tWaitResult waitFor(uint32_t milliseconds, tStatus& status) noexcept;

    bool conditionInitialised() const noexcept { return conditionInitialised_; }

private:
    pthread_cond_t condition_{};
    tMutex guard_;
    bool autoReset_ = false;
    bool signalled_ GUARDED_BY(guard_) = false;
    bool conditionInitialised_ = false;
    // The clock the condition measures deadlines on: CLOCK_MONOTONIC unless the platform
    // refused it at creation.
    clockid_t conditionClock_ = CLOCK_MONOTONIC;
};

// The calling thread's reader slot plus 1, 0 until its first shared acquisition (assigned by
// assignReaderSlot). Initial-exec, and a plain __thread rather than thread_local: the readers'
// inline path must not call into the dynamic linker or a thread_local wrapper on every use.
extern __thread uint32_t tReaderSlotPlusOne __attribute__((tls_model("initial-exec")));
// Takes the next slot in turn for the calling thread; returns it plus 1.
uint32_t assignReaderSlot() noexcept;

// Reader/writer lock of two mutexes, two manual-reset events, reader counts spread over
// cache lines and a writer flag.
//
// Readers count themselves in one of kReaderSlots slots, each on a cache line of its own; a
// thread always uses the same slot, and threads take the slots in turn. So readers on different
// cores, such as two Host threads streaming from two sessions, never write the same line: with
// one shared count every acquisition moved that line between the cores, and two streams ran
// barely faster than one (bench/regionCostBench.cpp, bench/lockBench.cpp).
//
// Readers pay one atomic add on their slot and one load of writerActive to enter, one atomic
// subtract and one load to leave; they touch a mutex only while a writer is involved. A writer
// raises writerActive, then waits only for the readers counted before that moment: readers
// arriving later back off (take their count away again under gateMutex and wait for
// writerGone), so a stream of readers cannot starve a writer. Writers are admitted one at a
// time by writerMutex.
//
// Draining: the writer sums the slots after raising writerActive; a reader leaves by its
// subtract and then loads writerActive. Both pairs are sequentially consistent, so either the
// writer's sum sees the reader still counted or the reader sees the writer; a reader that sees
// it takes gateMutex and, if writerActive is still raised and the slots sum to 0, sets
// readersDrained. Made under gateMutex and only while a writer drains, that set never lands
// after a releasing writer has reset the event (which it does under gateMutex, together with
// lowering writerActive) and so cannot let the next writer in on a reader.
//
// What is proved: model/readerWriterLock.pml checks exclusion, freedom from deadlock and that
// a writer which holds writerMutex gets in under weak fairness, for up to four readers sharing
// two slots and two writers looping for ever.
//
// Misuse: the lock is not re-entrant in either mode and has no upgrade. A holder of the shared
// mode that needs the exclusive mode releases first and re-checks afterwards. A shared hold is
// released on the thread that acquired it.
class CAPABILITY("reader/writer lock") tReaderWriterLock {
public:
    static constexpr uint32_t kReaderSlots = 16;

    explicit tReaderWriterLock(tStatus& status) noexcept;
    ~tReaderWriterLock();
    tReaderWriterLock(const tReaderWriterLock&) = delete;
    tReaderWriterLock& operator=(const tReaderWriterLock&) = delete;

    // The readers' paths are inline: without a writer they are a few instructions, and a call
    // into the library for them cost a tenth of their time (bench/lockBench.cpp). Like the
    // rest of the lock's own operations, they are the primitive the analysis trusts.
    void acquireShared() noexcept ACQUIRE_SHARED() NO_THREAD_SAFETY_ANALYSIS {
        while (!tryAcquireShared()) writerGone_.wait();
    }
    // One attempt that never waits: true holding the lock shared, false holding nothing when a
    // writer holds or waits for the lock.
    bool tryAcquireShared() noexcept TRY_ACQUIRE_SHARED(true) NO_THREAD_SAFETY_ANALYSIS {
        std::atomic<int32_t>& slot = mySlot();
        // Sequentially consistent with the writer's store of writerActive and its sum: a reader
        // that sees no writer here is counted before that writer sums.
        slot.fetch_add(1, std::memory_order_seq_cst);
        if (writerActive_.load(std::memory_order_seq_cst) == 0) return true;
        backOff(slot);
        return false;
    }
    // A reader that leaves while no writer drains sees writerActive 0 and takes no mutex.
    void releaseShared() noexcept RELEASE_SHARED() NO_THREAD_SAFETY_ANALYSIS {
        std::atomic<int32_t>& slot = mySlot();
        slot.fetch_sub(1, std::memory_order_seq_cst);
        if (writerActive_.load(std::memory_order_seq_cst) != 0) tellDrainingWriter();
    }
    void acquireExclusive() noexcept ACQUIRE();
    void releaseExclusive() noexcept RELEASE();

    // For tests: the count as one counter would hold it: while no writer holds or waits, 1 plus
    // the readers counted; otherwise the readers still counted.
    int32_t readerCountForTesting() const noexcept { return readersCounted() + (writerActive_.load() == 0 ? 1 : 0); }
    int32_t writerActiveForTesting() const noexcept { return writerActive_.load(); }

private:
    // One reader count on a cache line of its own. Padded rather than aligned, so that the lock
    // needs no more than the allocator's alignment: the padding comes first, so the first count
    // lies a whole line after writerActive, which every reader loads, and every count a line
    // after the one before.
    struct tReaderSlot {
        char padding[64 - sizeof(std::atomic<int32_t>)];
        std::atomic<int32_t> count{0};
    };

    // The slot of the calling thread.
    std::atomic<int32_t>& mySlot() noexcept {
        uint32_t slot = tReaderSlotPlusOne;
        if (slot == 0) [[unlikely]]
            slot = assignReaderSlot();
        return slots_[slot - 1].count;
    }
    int32_t readersCounted() const noexcept;
    // Under gateMutex: sets readersDrained when a writer drains and no reader is counted.
    void setDrainedIfEmpty() noexcept;
    // A reader that met a writer takes its count away again, under gateMutex.
    void backOff(std::atomic<int32_t>& slot) noexcept;
    // A reader that left while a writer drains: sets readersDrained if it was the last.
    void tellDrainingWriter() noexcept;

    // The lock's own mutexes and events do without priority inheritance. An inheriting mutex is
    // handed straight to the thread that waits for it, running or not; with more busy threads
    // than cores, readers backing off and a releasing writer then queued behind a waiter that
    // had no core, and a writer's wait while two threads flood the lock with readers reached
    // 3 ms at the 99th percentile and 7 ms at worst on two cores, against 0.03 ms and (mostly)
    // below 1 ms without (bench/lockBench.cpp). They are held for a few instructions each.
    // Held by a writer from the start of acquireExclusive to the end of releaseExclusive.
    tMutex writerMutex_;
    tMutex gateMutex_ ACQUIRED_AFTER(writerMutex_);
    tEvent readersDrained_;
    tEvent writerGone_;
    std::atomic<int32_t> writerActive_{0};
    tReaderSlot slots_[kReaderSlots];
    // Keeps whatever follows the lock off the last count's line.
    [[maybe_unused]] char trailingPadding_[64 - sizeof(std::atomic<int32_t>)];
};

// Holds a reader/writer lock shared from construction until destruction, or until unlock()
// gives it back early (to hand over to a lock taken meanwhile, as region acquisition does).
class SCOPED_CAPABILITY tSharedLock {
public:
    explicit tSharedLock(tReaderWriterLock& lock) noexcept ACQUIRE_SHARED(lock) : lock_(&lock) {
        lock_->acquireShared();
    }
    // Calls beforeWaiting() first when the lock cannot be had at once.
    template <class BeforeWaiting>
    tSharedLock(tReaderWriterLock& lock, BeforeWaiting&& beforeWaiting) noexcept ACQUIRE_SHARED(lock) : lock_(&lock) {
        if (!lock_->tryAcquireShared()) {
            beforeWaiting();
            lock_->acquireShared();
        }
    }
    ~tSharedLock() RELEASE() {
        if (lock_ != nullptr) lock_->releaseShared();
    }
    void unlock() noexcept RELEASE() {
        lock_->releaseShared();
        lock_ = nullptr;
    }
    tSharedLock(const tSharedLock&) = delete;
    tSharedLock& operator=(const tSharedLock&) = delete;

private:
    tReaderWriterLock* lock_;
};

// Holds a reader/writer lock exclusively from construction until destruction.
class SCOPED_CAPABILITY tExclusiveLock {
public:
    explicit tExclusiveLock(tReaderWriterLock& lock) noexcept ACQUIRE(lock) : lock_(lock) { lock_.acquireExclusive(); }
    ~tExclusiveLock() RELEASE() { lock_.releaseExclusive(); }
    tExclusiveLock(const tExclusiveLock&) = delete;
    tExclusiveLock& operator=(const tExclusiveLock&) = delete;

private:
    tReaderWriterLock& lock_;
};

}  // namespace quorvane
