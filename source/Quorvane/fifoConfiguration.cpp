// Host-side FIFO depth and FIFO stop, forwarded with the resource-call mark. Starting a FIFO
// lives with the region code, since it also creates the FIFO's region state.
#include <cstddef>
#include <cstdint>

#include "BrennDll.h"
#include "Quorvane.h"
#include "Quorvane/sessionFlags.h"
#include "moskshared/moskshared.h"

using namespace quorvane;

extern "C" int32_t Quorvane_ConfigureFifo(uint32_t session, uint32_t fifo, uint32_t depth) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_ConfigureFifo(markedForResourceCall(session), fifo, depth);
}

// The depth the library chose is always handed back, narrowed to 32 bits even when it does not
// fit or the library failed; 0 stands where the library set nothing.
extern "C" int32_t Quorvane_ConfigureFifo2(uint32_t session, uint32_t fifo, uint32_t requestedDepth,
                                           uint32_t* actualDepth) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (actualDepth == nullptr) return kStatusInvalidArgument;
    size_t chosenDepth = 0;
    const int32_t result = BrennDll_ConfigureFifo2(markedForResourceCall(session), fifo, requestedDepth, &chosenDepth);
    tStatus narrowing;
    *actualDepth = narrowToU32(chosenDepth, narrowing);
    // The library's error first, then a depth that did not fit, then the library's warning.
    return mergeStatus(result, narrowing.code32());
}

extern "C" int32_t Quorvane_StopFifo(uint32_t session, uint32_t fifo) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_StopFifo(markedForResourceCall(session), fifo);
}
