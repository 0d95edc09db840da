#include "quarks/synchronization.h"

#include <cerrno>

namespace quorvane {

namespace {

constexpr uint64_t kNanosecondsPerSecond = 1000000000;
constexpr uint64_t kNanosecondsPerMillisecond = 1000000;

// Creates `condition` on CLOCK_MONOTONIC when the platform accepts that, else with default
// attributes (realtime clock), and reports which clock it got. Returns the pthread result.
int createCondition(pthread_cond_t& condition, clockid_t& clock) noexcept {
    pthread_condattr_t attributes;
    if (pthread_condattr_init(&attributes) == 0) {
        if (pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) == 0) {
            const int result = pthread_cond_init(&condition, &attributes);
            pthread_condattr_destroy(&attributes);
            clock = CLOCK_MONOTONIC;
            return result;
        }
        pthread_condattr_destroy(&attributes);
    }
    clock = CLOCK_REALTIME;
    return pthread_cond_init(&condition, nullptr);
}

// `milliseconds` from now on `clock`, nanoseconds carried into seconds.
timespec deadlineAfter(clockid_t clock, uint32_t milliseconds) noexcept {
    timespec now{};
    clock_gettime(clock, &now);
    const uint64_t nanoseconds = static_cast<uint64_t>(now.tv_nsec) + milliseconds % 1000 * kNanosecondsPerMillisecond;
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(milliseconds / 1000 + nanoseconds / kNanosecondsPerSecond);
    deadline.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return deadline;
}

}  // namespace

uint64_t MonotonicNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

// ---- tMutex ---------------------------------------------------------------------------------

void tMutex::create(tStatus& status, tPriority priority) noexcept {
    if (status.isError()) return;
    pthread_mutexattr_t attributes;
    bool created = false;
    if (pthread_mutexattr_init(&attributes) == 0) {
        // Without priority inheritance the mutex is still recursive, which is all that
        // correctness needs; so that result alone is ignored.
        if (pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0) {
            if (priority == tPriority::inherit) (void)pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
            created = pthread_mutex_init(&mutex_, &attributes) == 0;
        }
        pthread_mutexattr_destroy(&attributes);
    }
    if (created) {
        initialised_ = true;
    } else {
        status.setCode(kStatusInternalError, kSynchronizationFile, kMutexCreationLine);
    }
}

void tMutex::destroy() noexcept {
    if (!initialised_) return;
    pthread_mutex_destroy(&mutex_);
    initialised_ = false;
}

// The two primitives the analysis takes on trust: they are what "acquire" and "release" mean.
void tMutex::lock() noexcept NO_THREAD_SAFETY_ANALYSIS {
    pthread_mutex_lock(&mutex_);
}

bool tMutex::tryLock() noexcept NO_THREAD_SAFETY_ANALYSIS {
    return pthread_mutex_trylock(&mutex_) == 0;
}

void tMutex::unlock() noexcept NO_THREAD_SAFETY_ANALYSIS {
    pthread_mutex_unlock(&mutex_);
}

// ---- tEvent ---------------------------------------------------------------------------------

// The condition is created before the guard; a failure of either undoes the condition, so an
// event whose creation failed owns no POSIX object.
tEvent::tEvent(tStatus& status, bool autoReset, bool signalled, tPriority priority) noexcept {
    conditionInitialised_ = false;
    if (status.isError()) return;
    if (createCondition(condition_, conditionClock_) == 0) {
        conditionInitialised_ = true;
    } else {
        status.setCode(kStatusConditionFailed, kSynchronizationFile, kConditionCreationLine);
    }
    guard_.initialised_ = false;
    if (!status.isError()) guard_.create(status, priority);
    if (status.isError()) {
        if (conditionInitialised_) pthread_cond_destroy(&condition_);
        conditionInitialised_ = false;
        return;
    }
    autoReset_ = autoReset;
    signalled_ = signalled;
}

tEvent::~tEvent() {
    if (!conditionInitialised_) return;
    guard_.destroy();
    pthread_cond_destroy(&condition_);
    conditionInitialised_ = false;
}

void tEvent::set() noexcept {
    tMutexGuard hold(guard_);
    signalled_ = true;
    if (autoReset_) {
        pthread_cond_signal(&condition_);
    } else {
        pthread_cond_broadcast(&condition_);
    }
}

void tEvent::reset() noexcept {
    tMutexGuard hold(guard_);
    signalled_ = false;
}

void tEvent::wait() noexcept {
    tMutexGuard hold(guard_);
    while (!signalled_) {
        if (pthread_cond_wait(&condition_, &guard_.mutex_) != 0) break;
    }
    if (autoReset_) signalled_ = false;
}

bool tEvent::tryConsume() noexcept {
    tMutexGuard hold(guard_);
    if (!signalled_) return false;
    if (autoReset_) signalled_ = false;
    return true;
}

tEvent::tWaitResult tEvent::waitFor(uint32_t milliseconds, tStatus& status) noexcept {
    tMutexGuard hold(guard_);
    if (!signalled_) {
        if (milliseconds == 0) {
            status.setCode(kStatusWaitTimedOut, kSynchronizationFile, kEventNotSignalledLine);
            return tWaitResult::timedOut;
        }
        const timespec deadline = deadlineAfter(conditionClock_, milliseconds);
        while (!signalled_) {
            const int result = pthread_cond_timedwait(&condition_, &guard_.mutex_, &deadline);
            if (signalled_) break;
            if (result == ETIMEDOUT) {
                status.setCode(kStatusWaitTimedOut, kSynchronizationFile, kEventTimedOutLine);
                return tWaitResult::timedOut;
            }
            if (result != 0) return tWaitResult::failed;
            // A wake-up without the signal (spurious, or another waiter consumed it) waits again
            // for the rest of the same deadline.
        }
    }
    if (autoReset_) signalled_ = false;
    return tWaitResult::signalled;
}

// ---- tReaderWriterLock ------------------------------------------------------------------------

__thread uint32_t tReaderSlotPlusOne __attribute__((tls_model("initial-exec"))) = 0;

namespace {
std::atomic<uint32_t> gNextReaderSlot{0};
}  // namespace

uint32_t assignReaderSlot() noexcept {
    tReaderSlotPlusOne = gNextReaderSlot.fetch_add(1, std::memory_order_relaxed) % tReaderWriterLock::kReaderSlots + 1;
    return tReaderSlotPlusOne;
}

// Members are built in declaration order: writerMutex, gateMutex, readersDrained (manual, not
// signalled), writerGone (manual, signalled), all without priority inheritance (see the header);
// the counters are set whatever the status holds.
// The implicit member destruction runs in reverse, which is the order the parts must go.
tReaderWriterLock::tReaderWriterLock(tStatus& status) noexcept
    : writerMutex_(status, tPriority::plain),
      gateMutex_(status, tPriority::plain),
      readersDrained_(status, false, false, tPriority::plain),
      writerGone_(status, false, true, tPriority::plain) {}

tReaderWriterLock::~tReaderWriterLock() = default;

int32_t tReaderWriterLock::readersCounted() const noexcept {
    int32_t counted = 0;
    for (const tReaderSlot& slot : slots_) counted += slot.count.load(std::memory_order_seq_cst);
    return counted;
}

// Two readers can both find the slots empty during one drain: the first leaves, and a second
// arrives and backs off before the writer goes in. Whichever sets readersDrained first lets the
// writer in; the other's set might come late, after that writer has released and reset the
// event, and a later writer would then find it set and walk in on a reader. So the set is made
// under gateMutex, which a releasing writer holds while it lowers writerActive and resets the
// event, and only while writerActive is raised and no reader is counted: then a writer drains
// and every reader counted before it has left. (A model check of the lock found the late set;
// model/readerWriterLock.pml.)
void tReaderWriterLock::setDrainedIfEmpty() noexcept NO_THREAD_SAFETY_ANALYSIS {
    if (writerActive_.load(std::memory_order_seq_cst) != 0 && readersCounted() == 0) readersDrained_.set();
}

void tReaderWriterLock::backOff(std::atomic<int32_t>& slot) noexcept NO_THREAD_SAFETY_ANALYSIS {
    tMutexGuard gate(gateMutex_);
    slot.fetch_sub(1, std::memory_order_seq_cst);
    setDrainedIfEmpty();
}

void tReaderWriterLock::tellDrainingWriter() noexcept NO_THREAD_SAFETY_ANALYSIS {
    tMutexGuard gate(gateMutex_);
    setDrainedIfEmpty();
}

void tReaderWriterLock::acquireExclusive() noexcept NO_THREAD_SAFETY_ANALYSIS {
    writerMutex_.lock();
    writerGone_.reset();
    writerActive_.store(1, std::memory_order_seq_cst);
    if (readersCounted() == 0) {
        readersDrained_.set();
        return;
    }
    readersDrained_.wait();
}

void tReaderWriterLock::releaseExclusive() noexcept NO_THREAD_SAFETY_ANALYSIS {
    {
        tMutexGuard gate(gateMutex_);
        readersDrained_.reset();
        writerActive_.store(0, std::memory_order_seq_cst);
        writerGone_.set();
    }
    writerMutex_.unlock();
}

}  // namespace quorvane
