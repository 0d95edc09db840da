// Handing regions back when the Host deletes their references, strictly in acquisition order.
#include "BrennDll.h"
#include "Quorvane.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRecord.h"

namespace quorvane {

namespace {
constexpr uint32_t kDeferredCloseAttribute = 1;
}  // namespace

int32_t OnFifoRegionDeleted(void* record) noexcept {
    FifoRegion* region = *static_cast<FifoRegion**>(record);
    FifoRegionState& state = *region->state;
    const uint32_t session = region->session;

    state.queueMutex->lock();
    if (state.regions.empty() || &state.regions.front() != region) {
        region->released = true;  // an older region is still out: this one waits for it
        state.queueMutex->unlock();
        return 0;
    }
    bool more;
    do {
        const FifoRegion& front = state.regions.front();
        BrennDll_ReleaseFifoElements(markedForResourceCall(front.session), front.fifo, front.elementCount);
        state.regions.popFront();
        more = !state.regions.empty() && state.regions.front().released;
    } while (more);
    state.regionEvent->set();
    if (!state.regions.empty()) {
        state.queueMutex->unlock();
        return 0;
    }
    // Taken, not just read: when two FIFOs empty at once, only one retirement may finish the
    // close. If the close it runs finds another FIFO still busy, that close marks the session
    // again under the busy FIFO's queueMutex, so the mark is never lost.
    const bool closePending = state.session->closePending.exchange(0) != 0;
    state.queueMutex->unlock();
    // From here on the state may be gone: the close below may remove it.
    return closePending ? Quorvane_Close(session, kDeferredCloseAttribute) : 0;
}

}  // namespace quorvane
