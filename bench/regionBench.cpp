// Zero-copy regions against their baselines, in one run:
//   - one acquire + delete cycle through the library against the simulated target's own
//     acquire + release called directly (what the library's bookkeeping costs);
//   - consuming 1 MiB through one region against reading the same 1 MiB with
//     Quorvane_ReadFifoScalar (what zero copy saves).
// Both sides of each pair touch every element, so the comparison is of delivery, not of work.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <numeric>

#include "BrennDll.h"
#include "BrennSim.h"
#include "HostSim.h"
#include "Quorvane.h"

namespace {

constexpr uint32_t kFifo = 0;
constexpr uint32_t kTypeU32 = 7;
constexpr size_t kSmallRegion = 256;
constexpr size_t kMiBElements = (1u << 20) / sizeof(uint32_t);

struct Session {
    explicit Session(uint32_t depth) {
        BrennSim_Reset();
        BrennSim_EnableLog(0);
        Quorvane_Open("", "", "RIO0", 0, &handle);
        Quorvane_ConfigureFifo(handle, kFifo, depth);
        Quorvane_StartFifo(handle, kFifo);
    }
    ~Session() { Quorvane_Close(handle, 0); }
    uint32_t handle = 0;
};

uint64_t sum(const uint32_t* elements, size_t count) {
    return std::accumulate(elements, elements + count, uint64_t{0});
}

void TargetAcquireRelease(benchmark::State& state) {
    Session session(4096);
    const uint32_t marked = session.handle | kQuorvaneResourceCallBit;
    for (auto _ : state) {
        uint32_t* elements = nullptr;
        size_t acquired = 0, remaining = 0;
        BrennDll_AcquireFifoReadElementsU32(marked, kFifo, &elements, kSmallRegion, 1000, &acquired, &remaining);
        benchmark::DoNotOptimize(elements);
        BrennDll_ReleaseFifoElements(marked, kFifo, acquired);
    }
}
BENCHMARK(TargetAcquireRelease);

void RegionAcquireDelete(benchmark::State& state) {
    Session session(4096);
    for (auto _ : state) {
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        Quorvane_AcquireFifoReadRegionScalar(session.handle, kFifo, &reference, kSmallRegion, kTypeU32, 0, 1000,
                                             &acquired, &remaining);
        benchmark::DoNotOptimize(reference);
        HostSim_DeleteReference(reference);
    }
}
BENCHMARK(RegionAcquireDelete);

void CopyOneMiB(benchmark::State& state) {
    Session session(2 * kMiBElements);
    void** array = HostSim_NewNumericArray(kTypeU32, 0);
    for (auto _ : state) {
        uint32_t remaining = 0;
        Quorvane_ReadFifoScalar(session.handle, kFifo, kMiBElements, kTypeU32, 0, 1000, array, &remaining);
        const auto* elements = reinterpret_cast<const uint32_t*>(static_cast<uint8_t*>(*array) + 4);
        benchmark::DoNotOptimize(sum(elements, kMiBElements));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (1 << 20));
    HostSim_DisposeHandle(array);
}
BENCHMARK(CopyOneMiB)->Unit(benchmark::kMicrosecond);

void RegionOneMiB(benchmark::State& state) {
    Session session(2 * kMiBElements);
    uint64_t bytes = 0;  // a region stops at the end of the ring, so count what was lent
    for (auto _ : state) {
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        Quorvane_AcquireFifoReadRegionScalar(session.handle, kFifo, &reference, kMiBElements, kTypeU32, 0, 1000,
                                             &acquired, &remaining);
        const uint32_t* elements = nullptr;
        std::memcpy(&elements, static_cast<uint8_t*>(HostSim_ReferenceRecord(reference)) + 16, sizeof elements);
        benchmark::DoNotOptimize(sum(elements, acquired));
        HostSim_DeleteReference(reference);
        bytes += acquired * sizeof(uint32_t);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(RegionOneMiB)->Unit(benchmark::kMicrosecond);

}  // namespace
