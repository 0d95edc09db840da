// Reset and download are refused while any FIFO of the session has regions lent to the Host:
// the FPGA logic would pull the memory from under them.
#include "BrennDll.h"
#include "Quorvane.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRegistry.h"

using namespace quorvane;

namespace {

// Only the session's own FIFOs count. An acquisition whose region is not queued yet is not
// seen, and the answer may be stale by the time the caller acts on it.
bool SessionHasOutstandingRegions(uint32_t session) noexcept {
    tSessionRegistry& registry = sessionRegistry();
    tSharedLock registryGuard(gRegistryLock);
    tSessionRecord* record = registry.find(session);
    if (record == nullptr) return false;
    tSharedLock recordGuard(*record->lock);
    for (auto& [fifo, state] : record->fifoStates().items()) {
        tMutexGuard queueGuard(*state.queueMutex);
        if (!state.regions().empty()) return true;
    }
    return false;
}

int32_t guarded(uint32_t session, int32_t (*forward)(uint32_t)) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (SessionHasOutstandingRegions(session)) return kStatusRegionsOutstanding;
    return forward(session);
}

}  // namespace

extern "C" int32_t Quorvane_Reset(uint32_t session) noexcept {
    return guarded(session, BrennDll_Reset);
}

extern "C" int32_t Quorvane_Download(uint32_t session) noexcept {
    return guarded(session, BrennDll_Download);
}
