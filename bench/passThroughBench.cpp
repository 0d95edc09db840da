// What a pass-through export adds to the driver function it forwards to: Quorvane_Read32 and
// Quorvane_WriteDbl against BrennDll_ReadU32 and BrennDll_WriteU64 of the minimal driver
// called directly, in U (one uncontended pthread mutex lock and unlock) from the same run.
#include <bit>
#include <cstdio>

#include "BrennDll.h"
#include "benchSession.h"
#include "measure.h"

using namespace quorvane::bench;

namespace {

constexpr uint64_t kIterations = 4'000'000;
constexpr int kRepetitions = 15;
constexpr uint32_t kRegister = 0x10;

void row(const char* measure, const std::vector<Sample>& samples) {
    char reached[64];
    char detail[160];
    std::snprintf(reached, sizeof reached, "%.2f U added", medianAddedUnits(samples));
    std::snprintf(detail, sizeof detail, "U = %.1f ns; export %.1f ns, driver %.1f ns (medians of %d)",
                  medianOf(samples, &Sample::unit), medianOf(samples, &Sample::subject),
                  medianOf(samples, &Sample::baseline), kRepetitions);
    printRow(measure, reached, "0.2 U added or less", detail);
}

}  // namespace

int main(int argc, char** argv) {
    quietTarget();
    BenchSession session(0);
    const uint32_t handle = session.handle();
    const uint32_t marked = handle | kQuorvaneResourceCallBit;
    uint32_t value = 0;
    double number = 1.5;

    registerRow("passThrough/Read32", [&] {
        row("pass-through `Quorvane_Read32` vs `BrennDll_ReadU32`",
            sampleInterleaved([&] { BrennDll_ReadU32(marked, kRegister, &value); },
                              [&] { Quorvane_Read32(handle, kRegister, &value); }, kIterations, kRepetitions));
    });
    registerRow("passThrough/WriteDbl", [&] {
        row("pass-through `Quorvane_WriteDbl` vs `BrennDll_WriteU64`",
            sampleInterleaved([&] { BrennDll_WriteU64(marked, kRegister, std::bit_cast<uint64_t>(number)); },
                              [&] { Quorvane_WriteDbl(handle, kRegister, number); }, kIterations, kRepetitions));
    });
    return runRows(argc, argv);
}
