// The library's reader/writer lock:
//   - one shared acquire and release on one thread, against pthread_rwlock_t in the same run;
//   - how long a writer waits to get in while two threads flood the lock with readers: the
//     worst of many acquisitions, and the 99th percentile.
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "measure.h"
#include "quarks/synchronization.h"

using namespace quorvane::bench;

namespace {

constexpr uint64_t kIterations = 4'000'000;
constexpr int kRepetitions = 15;
constexpr int kWriterAcquisitions = 2000;
constexpr uint64_t kWriterPauseNs = 200'000;

void sharedRow(quorvane::tReaderWriterLock& lock) {
    pthread_rwlock_t baseline = PTHREAD_RWLOCK_INITIALIZER;
    const auto samples = sampleInterleaved(
        [&] {
            pthread_rwlock_rdlock(&baseline);
            asm volatile("" ::: "memory");
            pthread_rwlock_unlock(&baseline);
        },
        [&] {
            lock.acquireShared();
            asm volatile("" ::: "memory");
            lock.releaseShared();
        },
        kIterations, kRepetitions);
    char reached[64];
    char detail[160];
    std::snprintf(reached, sizeof reached, "%.2fx", medianRatio(samples));
    std::snprintf(detail, sizeof detail, "tReaderWriterLock %.1f ns, pthread_rwlock_t %.1f ns (medians of %d)",
                  medianOf(samples, &Sample::subject), medianOf(samples, &Sample::baseline), kRepetitions);
    printRow("`tReaderWriterLock` shared acquire and release, one thread, vs `pthread_rwlock_t`", reached,
             "0.6x or less", detail);
    pthread_rwlock_destroy(&baseline);
}

void writerRow(quorvane::tReaderWriterLock& lock) {
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> reads{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&] {
            uint64_t done = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                lock.acquireShared();
                asm volatile("" ::: "memory");
                lock.releaseShared();
                ++done;
            }
            reads += done;
        });
    }
    std::vector<double> waits;
    for (int i = 0; i < kWriterAcquisitions; ++i) {
        const uint64_t pauseEnd = nowNs() + kWriterPauseNs;
        while (nowNs() < pauseEnd) {
        }
        const uint64_t start = nowNs();
        lock.acquireExclusive();
        waits.push_back(static_cast<double>(nowNs() - start) / 1e6);
        lock.releaseExclusive();
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    std::sort(waits.begin(), waits.end());
    char reached[64];
    char detail[200];
    std::snprintf(reached, sizeof reached, "%.3f ms worst", waits.back());
    std::snprintf(detail, sizeof detail, "99th percentile %.3f ms, median %.4f ms over %d acquisitions; %llu reads",
                  waits[waits.size() * 99 / 100], waits[waits.size() / 2], kWriterAcquisitions,
                  static_cast<unsigned long long>(reads.load()));
    printRow("a writer's wait while two threads flood the lock with readers", reached, "1 ms at most", detail);
}

}  // namespace

int main(int argc, char** argv) {
    quorvane::tStatus status;
    quorvane::tReaderWriterLock lock(status);
    if (status.isError()) {
        std::fprintf(stderr, "the lock could not be created\n");
        return 1;
    }
    registerRow("readerWriterLock/shared", [&] { sharedRow(lock); });
    registerRow("readerWriterLock/writerWait", [&] { writerRow(lock); });
    return runRows(argc, argv);
}
