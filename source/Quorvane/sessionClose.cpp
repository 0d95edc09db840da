// Closing a session: refused while any FIFO of it, or of one of its resource sessions, has
// regions lent to the Host; resource sessions close with their parent.
//
// A refused close leaves a mark that finishes it later without anyone calling again:
//   closePending        the session's own regions were out; the retirement that empties a
//                       FIFO's queue closes the session again (attribute 1).
//   closeWithLastChild  a resource session was busy; the close of the last resource session
//                       left also closes this one.
// Every step below runs under the registry lock held exclusively; the session's own handle and
// its parent's are closed in the FPGA interface library after that lock is released.
#include "BrennDll.h"
#include "HostRuntime.h"
#include "Quorvane.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRegistry.h"

using namespace quorvane;

namespace {

constexpr uint32_t kResourceCloseAttribute = 1;

// Removes every idle FIFO state of the record and reports whether any FIFO has regions out,
// marking the record closePending if so. The mark is set under that FIFO's queueMutex, so the
// retirement of its last region either ran before (queue found empty) or sees the mark.
bool scanFifoStates(tSessionRecord& record) noexcept {
    bool busy = false;
    tExclusiveLock recordGuard(*record.lock);
    auto& states = record.fifoStates.items();
    for (auto it = states.begin(); it != states.end();) {
        FifoRegionState& state = it->second;
        state.acquireMutex->lock();  // waits for an acquisition in progress
        state.queueMutex->lock();
        const bool outstanding = !state.regions.empty();
        if (outstanding) record.closePending.store(1);
        state.queueMutex->unlock();
        state.acquireMutex->unlock();
        if (outstanding) {
            busy = true;
            ++it;
        } else {
            it = states.erase(it);
        }
    }
    return busy;
}

struct tCloseSteps {
    bool busy = false;
    uint32_t parentToClose = 0;  // a parent waiting for its last resource session
};

tCloseSteps runCloseSteps(tSessionRegistry& registry, tSessionRecord& record, uint32_t session) noexcept {
    tCloseSteps steps;
    if (scanFifoStates(record)) {
        steps.busy = true;
        return steps;
    }
    if (tSessionRecord* parent = record.parent) {
        parent->children.removeFirst(session);
        if (parent->closeWithLastChild && parent->children.empty()) steps.parentToClose = registry.keyOf(parent);
    }
    auto& children = record.children.items();
    for (auto it = children.begin(); it != children.end();) {
        const uint32_t child = *it;
        tSessionRecord* childRecord = registry.find(child);
        if (childRecord != nullptr && scanFifoStates(*childRecord)) {
            record.closeWithLastChild = 1;
            steps.busy = true;
            ++it;
            continue;
        }
        BrennDll_Close(child, kResourceCloseAttribute);
        it = children.erase(it);
        if (childRecord != nullptr) registry.remove(child);
    }
    if (steps.busy) steps.parentToClose = 0;
    return steps;
}

void removeCleanup(uint32_t session) noexcept {
    RTSetCleanupProc(SessionCleanupProc, cleanupArgument(session), kHostCleanupRemove);
}

}  // namespace

extern "C" int32_t Quorvane_Close(uint32_t session, uint32_t attribute) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    tSessionRegistry& registry = sessionRegistry();
    registry.lock().acquireExclusive();
    tSessionRecord* record = registry.find(session);
    tCloseSteps steps;
    if (record != nullptr) {
        steps = runCloseSteps(registry, *record, session);
        if (steps.busy) {
            registry.lock().releaseExclusive();
            return kStatusRegionsOutstanding;
        }
        registry.remove(session);
    }
    registry.lock().releaseExclusive();
    removeCleanup(session);
    const int32_t closed = BrennDll_Close(session, attribute);
    if (steps.parentToClose == 0 || closed < 0) return closed;

    // The parent leaves the registry and loses its cleanup registration like any closed
    // session. Should it have regions out again by now, its close is deferred like any other
    // and this close reports its own result.
    const int32_t parentClosed = Quorvane_Close(steps.parentToClose, attribute);
    if (parentClosed == kStatusRegionsOutstanding) return closed;
    if (parentClosed < 0) return parentClosed;
    return closed != 0 ? closed : parentClosed;
}

extern "C" int32_t Quorvane_OpenResource(uint32_t session, const char* name, uint32_t attribute,
                                         uint32_t* resourceSession) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (resourceSession == nullptr) return kStatusInvalidArgument;
    const int32_t opened = BrennDll_OpenResource(markedForResourceCall(session), name, attribute, resourceSession);
    if (opened < 0) return opened;
    const int32_t registered = RegisterSession(resourceSession, session);
    if (registered < 0) {
        Quorvane_Close(*resourceSession, kResourceCloseAttribute);
        return registered;
    }
    return opened != 0 ? opened : registered;
}
