// Compiled, not run: proves that clang's thread-safety analysis reads the library's annotations.
// Built with LOCK_HELD it must compile; without, the analysis must reject each function below:
// four reach a guarded field without its lock, two take locks against the library's order.
#include "Quorvane/sessionRecord.h"

namespace quorvane {

size_t probeFifoStates(tSessionRecord& record) {
#ifdef LOCK_HELD
    tSharedLock guard(*record.lock);
#endif
    return record.fifoStates().size();
}

size_t probeChildren(tSessionRecord& record) {
#ifdef LOCK_HELD
    tExclusiveLock guard(gRegistryLock);
#endif
    return record.children().size();
}

bool probeRegions(FifoRegionState& state) {
#ifdef LOCK_HELD
    tMutexGuard guard(*state.queueMutex);
#endif
    return state.regions().empty();
}

// The released flag belongs to a region but is guarded by its state's queueMutex.
bool probeReleased(FifoRegionState& state, const FifoRegion& region) {
#ifdef LOCK_HELD
    tMutexGuard guard(*state.queueMutex);
#endif
    return state.isReleased(region);
}

void probeRecordBeforeRegistry(tSessionRecord& record) {
#ifndef LOCK_HELD
    tSharedLock recordGuard(*record.lock);
#endif
    tSharedLock registryGuard(gRegistryLock);
}

void probeQueueBeforeAcquire(FifoRegionState& state) {
#ifndef LOCK_HELD
    tMutexGuard queueGuard(*state.queueMutex);
#endif
    tMutexGuard acquireGuard(*state.acquireMutex);
}

}  // namespace quorvane
