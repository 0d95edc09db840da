// Uncontended and two-thread cost of one acquire+release pair, in shared and in exclusive mode,
// for the library's tReaderWriterLock next to pthread_rwlock_t and std::shared_mutex.
//
// Every benchmark of one lock type uses one process-wide instance, so the threads of a
// multi-threaded run really meet on the same lock.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <shared_mutex>

#include "quarks/synchronization.h"

namespace {

class QuorvaneRw {
public:
    QuorvaneRw() : lock_(status_) {}
    void lockShared() { lock_.acquireShared(); }
    void unlockShared() { lock_.releaseShared(); }
    void lock() { lock_.acquireExclusive(); }
    void unlock() { lock_.releaseExclusive(); }
    bool usable() const { return !status_.isError(); }

private:
    quorvane::tStatus status_;
    quorvane::tReaderWriterLock lock_;
};

class PthreadRw {
public:
    PthreadRw() { usable_ = pthread_rwlock_init(&lock_, nullptr) == 0; }
    ~PthreadRw() { pthread_rwlock_destroy(&lock_); }
    void lockShared() { pthread_rwlock_rdlock(&lock_); }
    void unlockShared() { pthread_rwlock_unlock(&lock_); }
    void lock() { pthread_rwlock_wrlock(&lock_); }
    void unlock() { pthread_rwlock_unlock(&lock_); }
    bool usable() const { return usable_; }

private:
    pthread_rwlock_t lock_;
    bool usable_ = false;
};

class StdSharedMutex {
public:
    void lockShared() { mutex_.lock_shared(); }
    void unlockShared() { mutex_.unlock_shared(); }
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    bool usable() const { return true; }

private:
    std::shared_mutex mutex_;
};

template <class Lock>
Lock& sharedInstance() {
    static Lock lock;
    return lock;
}

template <class Lock>
void SharedAcquireRelease(benchmark::State& state) {
    Lock& lock = sharedInstance<Lock>();
    if (!lock.usable()) state.SkipWithError("lock could not be created");
    for (auto _ : state) {
        lock.lockShared();
        benchmark::ClobberMemory();
        lock.unlockShared();
    }
}

template <class Lock>
void ExclusiveAcquireRelease(benchmark::State& state) {
    Lock& lock = sharedInstance<Lock>();
    if (!lock.usable()) state.SkipWithError("lock could not be created");
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

}  // namespace

BENCHMARK_TEMPLATE(SharedAcquireRelease, QuorvaneRw)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(SharedAcquireRelease, PthreadRw)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(SharedAcquireRelease, StdSharedMutex)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(ExclusiveAcquireRelease, QuorvaneRw)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(ExclusiveAcquireRelease, PthreadRw)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(ExclusiveAcquireRelease, StdSharedMutex)->Threads(1)->Threads(2)->UseRealTime();
