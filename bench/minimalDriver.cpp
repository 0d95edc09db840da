// A minimal FPGA interface library for the benchmarks: just the calls they time, doing as
// little as a driver can, so that what the library adds is not hidden behind the simulated
// target's work. Linked into a benchmark ahead of the library, its definitions take the place
// of the simulated target's for the library too; everything else (open, start, close) still
// goes to the simulated target.
//
// Each FIFO number has its own buffer and counter on its own cache lines, so two threads
// streaming from two FIFOs share nothing here.
#include <cstddef>
#include <cstdint>

#include "BrennDll.h"

namespace {

constexpr uint32_t kFifos = 8;
constexpr size_t kElements = 1024;

struct alignas(64) FifoBuffer {
    uint64_t outstanding = 0;
    alignas(64) uint64_t elements[kElements] = {};
};

FifoBuffer gFifos[kFifos];
alignas(64) uint64_t gRegister = 0;

}  // namespace

extern "C" {

int32_t BrennDll_ReadU32(uint32_t, uint32_t, uint32_t* value) {
    *value = static_cast<uint32_t>(gRegister);
    return 0;
}

int32_t BrennDll_WriteU64(uint32_t, uint32_t, uint64_t value) {
    gRegister = value;
    return 0;
}

int32_t BrennDll_AcquireFifoReadElementsU64(uint32_t, uint32_t fifo, uint64_t** elements, size_t requested, uint32_t,
                                            size_t* acquired, size_t* remaining) {
    FifoBuffer& buffer = gFifos[fifo % kFifos];
    const size_t count = requested < kElements ? requested : kElements;
    buffer.outstanding += count;
    *elements = buffer.elements;
    *acquired = count;
    if (remaining != nullptr) *remaining = 0;
    return 0;
}

int32_t BrennDll_ReleaseFifoElements(uint32_t, uint32_t fifo, size_t elements) {
    gFifos[fifo % kFifos].outstanding -= elements;
    return 0;
}

}  // extern "C"
