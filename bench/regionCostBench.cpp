// The cost of a region and how region streams scale with Host threads, against the minimal
// driver and Host:
//   - one region of 64 elements acquired through Quorvane_AcquireFifoReadRegionScalar and its
//     reference deleted, against the driver's own acquire and release called directly, in U;
//   - region cycles per second of two threads, each on its own session and FIFO, against one
//     thread, next to the same measure for the driver and Host alone (acquire, reference,
//     release), which is what the library could at best reach on this machine.
#include <time.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "BrennDll.h"
#include "HostRuntime.h"
#include "benchSession.h"
#include "measure.h"
#include "minimalHost.h"

using namespace quorvane::bench;

namespace {

constexpr size_t kRegionElements = 64;
constexpr uint32_t kTypeU64 = 8;
constexpr uint32_t kTimeoutMs = 1000;
constexpr uint64_t kIterations = 300'000;
constexpr int kRepetitions = 11;
constexpr uint64_t kScalingRunNs = 200'000'000;
constexpr int kScalingRepetitions = 9;

void libraryCycle(uint32_t handle, uint32_t fifo) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    Quorvane_AcquireFifoReadRegionScalar(handle, fifo, &reference, kRegionElements, kTypeU64, 0, kTimeoutMs, &acquired,
                                         &remaining);
    MinimalHost_DeleteReference();
}

void driverCycle(uint32_t handle, uint32_t fifo) {
    const uint32_t marked = handle | kQuorvaneResourceCallBit;
    uint64_t* elements = nullptr;
    size_t acquired = 0, remaining = 0;
    BrennDll_AcquireFifoReadElementsU64(marked, fifo, &elements, kRegionElements, kTimeoutMs, &acquired, &remaining);
    asm volatile("" : : "r"(elements) : "memory");
    BrennDll_ReleaseFifoElements(marked, fifo, acquired);
}

// The driver and Host alone doing what one region cycle asks of them.
void driverAndHostCycle(uint32_t handle, uint32_t fifo) {
    uint32_t reference = 0;
    void* record = nullptr;
    const uint32_t marked = handle | kQuorvaneResourceCallBit;
    uint64_t* elements = nullptr;
    size_t acquired = 0, remaining = 0;
    RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
    BrennDll_AcquireFifoReadElementsU64(marked, fifo, &elements, kRegionElements, kTimeoutMs, &acquired, &remaining);
    EDVR_CreateReference(&reference, &record);
    asm volatile("" : : "r"(record) : "memory");
    BrennDll_ReleaseFifoElements(marked, fifo, acquired);
}

// What the threads of one run did: cycles completed, and the CPU time they were given.
struct RunResult {
    uint64_t cycles;
    uint64_t cpuNs;
};

uint64_t threadCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

// Cycles completed by `threads` threads, each on its own session, in one run of fixed length.
RunResult cyclesIn(void (*cycle)(uint32_t, uint32_t), BenchSession* const* sessions, int threads) {
    std::atomic<uint64_t> total{0};
    std::atomic<uint64_t> cpu{0};
    std::atomic<bool> go{false};
    std::thread workers[2];
    for (int t = 0; t < threads; ++t) {
        workers[t] = std::thread([&, t] {
            while (!go.load()) {
            }
            uint64_t done = 0;
            const uint64_t cpuStart = threadCpuNs();
            const uint64_t end = nowNs() + kScalingRunNs;
            while (nowNs() < end) {
                for (int i = 0; i < 64; ++i) cycle(sessions[t]->handle(), sessions[t]->fifo());
                done += 64;
            }
            cpu += threadCpuNs() - cpuStart;
            total += done;
        });
    }
    go = true;
    for (int t = 0; t < threads; ++t) workers[t].join();
    return {total.load(), cpu.load()};
}

// Two threads against one: cycles per second of wall-clock time, and cycles per second of the
// CPU time the threads were given, times two (what two threads would reach with a core each; on
// a machine whose cores are busy with other work, the only figure that shows contention).
struct Scaling {
    double wall;
    double perCpu;
};

// Medians over repetitions.
Scaling scaling(void (*cycle)(uint32_t, uint32_t), BenchSession* const* sessions) {
    std::vector<double> wall;
    std::vector<double> perCpu;
    for (int r = 0; r < kScalingRepetitions; ++r) {
        const RunResult one = cyclesIn(cycle, sessions, 1);
        const RunResult two = cyclesIn(cycle, sessions, 2);
        wall.push_back(static_cast<double>(two.cycles) / static_cast<double>(one.cycles));
        const double oneRate = static_cast<double>(one.cycles) / static_cast<double>(one.cpuNs);
        const double twoRate = static_cast<double>(two.cycles) / static_cast<double>(two.cpuNs);
        perCpu.push_back(2 * twoRate / oneRate);
    }
    return {median(wall), median(perCpu)};
}

}  // namespace

int main(int argc, char** argv) {
    quietTarget();
    BenchSession first(0);
    BenchSession second(1);
    BenchSession* const sessions[2] = {&first, &second};

    registerRow("region/cost", [&] {
        const auto cost =
            sampleInterleaved([&] { driverCycle(first.handle(), first.fifo()); },
                              [&] { libraryCycle(first.handle(), first.fifo()); }, kIterations, kRepetitions);
        char reached[64];
        char detail[200];
        std::snprintf(reached, sizeof reached, "%.1f U added", medianAddedUnits(cost));
        std::snprintf(detail, sizeof detail, "U = %.1f ns; region %.1f ns, driver %.1f ns (medians of %d)",
                      medianOf(cost, &Sample::unit), medianOf(cost, &Sample::subject),
                      medianOf(cost, &Sample::baseline), kRepetitions);
        printRow("region of 64 elements acquired and deleted vs the driver's acquire and release", reached,
                 "15 U added or less", detail);
    });
    registerRow("region/scaling", [&] {
        const Scaling library = scaling(libraryCycle, sessions);
        const Scaling alone = scaling(driverAndHostCycle, sessions);
        char reached[64];
        char detail[200];
        std::snprintf(reached, sizeof reached, "%.2fx", library.wall);
        std::snprintf(detail, sizeof detail,
                      "driver and Host alone %.2fx in the same run; per CPU-second %.2fx, alone %.2fx; medians of "
                      "%d runs of %llu ms",
                      alone.wall, library.perCpu, alone.perCpu, kScalingRepetitions,
                      static_cast<unsigned long long>(kScalingRunNs / 1'000'000));
        printRow("region cycles per second, two threads on two sessions vs one thread", reached, "1.6x or more",
                 detail);
    });
    return runRows(argc, argv);
}
