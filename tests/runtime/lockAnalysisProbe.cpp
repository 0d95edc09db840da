// Compiled, not run: proves that clang's thread-safety analysis reads the library's annotations.
// Built with LOCK_HELD it must compile; without, the analysis must reject each access below,
// which touches a guarded field without its lock.
#include "Quorvane/sessionRecord.h"

namespace quorvane {

size_t probeFifoStates(tSessionRecord& record) {
#ifdef LOCK_HELD
    tSharedLock guard(*record.lock);
#endif
    return record.fifoStates.size();
}

size_t probeChildren(tSessionRecord& record) {
#ifdef LOCK_HELD
    tExclusiveLock guard(registryLock());
#endif
    return record.children.size();
}

bool probeRegions(FifoRegionState& state) {
#ifdef LOCK_HELD
    tMutexGuard guard(*state.queueMutex);
#endif
    return state.regions.empty();
}

}  // namespace quorvane
