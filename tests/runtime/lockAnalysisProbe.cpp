// Compiled, not run: proves that clang's thread-safety analysis reads the library's annotations.
// With LOCK_HELD it must compile; without, the analysis must reject four guarded fields reached
// without their lock (CMakeLists.txt names the lock each needs) and two locks taken out of order.
#include "Quorvane/sessionRecord.h"

namespace quorvane {

void probeGuardedFields(tSessionRecord& record, FifoRegionState& state, const FifoRegion& region) {
#ifdef LOCK_HELD
    tExclusiveLock registryGuard(gRegistryLock);
    tSharedLock recordGuard(*record.lock);
    tMutexGuard queueGuard(*state.queueMutex);
#endif
    (void)record.fifoStates().size();
    (void)record.children().size();
    (void)state.regions().empty();
    (void)state.isReleased(region);  // a region's flag, guarded by its state's queueMutex
}

void probeLockOrder(tSessionRecord& record, FifoRegionState& state) {
#ifndef LOCK_HELD
    tSharedLock recordGuard(*record.lock);
    tMutexGuard queueGuard(*state.queueMutex);
#endif
    tSharedLock registryGuard(gRegistryLock);
    tMutexGuard acquireGuard(*state.acquireMutex);
}

}  // namespace quorvane
