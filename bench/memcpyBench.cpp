// memcpy bandwidth on this machine, in MiB/s: copies between two buffers far larger than the
// caches, the median of several repetitions. The baseline of the demo's region path, which
// scripts/bench compares against it.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "measure.h"

using namespace quorvane::bench;

int main(int argc, char** argv) {
    constexpr size_t kBytes = size_t{64} << 20;
    constexpr int kRepetitions = 9;
    std::vector<unsigned char> from(kBytes, 1);
    std::vector<unsigned char> to(kBytes, 2);
    registerRow("memcpy/bandwidth", [&] {
        std::vector<double> rates;
        for (int r = 0; r < kRepetitions; ++r) {
            const uint64_t start = nowNs();
            std::memcpy(to.data(), from.data(), kBytes);
            asm volatile("" : : "r"(to.data()) : "memory");
            rates.push_back(static_cast<double>(kBytes >> 20) / (static_cast<double>(nowNs() - start) / 1e9));
        }
        lastRow() = std::to_string(static_cast<long long>(median(rates)));  // MiB/s, for scripts/bench
    });
    return runRows(argc, argv);
}
