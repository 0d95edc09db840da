// Handing regions back when the Host deletes their references, strictly in acquisition order.
#include "BrennDll.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionClose.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRecord.h"

namespace quorvane {

namespace {

// What a deletion found once it had done its part under the FIFO's queueMutex.
struct tRetirement {
    bool emptied = false;       // this deletion handed back the FIFO's last outstanding region
    bool closePending = false;  // ... and the session's close had been refused meanwhile
    uint64_t serial = 0;        // the session record that carries the mark
};

// Hands back, strictly in acquisition order, the deleted region and every region behind it that
// was deleted out of turn; or only marks the region when an older one is still out.
tRetirement retireFromFront(FifoRegionState& state, FifoRegion* region) noexcept {
    tMutexGuard queueGuard(*state.queueMutex);
    if (state.regions().empty() || &state.regions().front() != region) {
        state.markReleased(*region);  // an older region is still out: this one waits for it
        return {};
    }
    do {
        const FifoRegion& front = state.regions().front();
        BrennDll_ReleaseFifoElements(markedForResourceCall(front.session), front.fifo, front.elementCount);
        state.regions().popFront();
    } while (!state.regions().empty() && state.isReleased(state.regions().front()));
    state.regionEvent->set();
    if (!state.regions().empty()) return {};
    // The record outlives its states, and this state holds queueMutex: both are still there.
    // The mark is only read here; the deferred close takes it under the registry lock.
    return {true, state.session->closePending.load() != 0, state.session->serial};
}

}  // namespace

int32_t OnFifoRegionDeleted(void* record) noexcept {
    FifoRegion* region = *static_cast<FifoRegion**>(record);
    const uint32_t session = region->session;
    const tRetirement retired = retireFromFront(*region->state, region);
    // From here on the region, its state and its record may be gone: the close below, or any
    // other close, may remove them. Only values are used.
    if (!retired.emptied || !retired.closePending) return 0;
    return CloseDeferredSession(session, retired.serial);
}

}  // namespace quorvane
