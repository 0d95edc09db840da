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
#include "Quorvane/sessionClose.h"

#include "BrennDll.h"
#include "HostRuntime.h"
#include "Quorvane.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRegistry.h"

using namespace quorvane;

namespace {

constexpr uint32_t kLibraryCloseAttribute = 1;

// Who asks for a close decides what the close may act on (see sessionClose.h).
enum class tCloser {
    host,         // Quorvane_Close: any handle, registered or not
    programStop,  // the cleanup procedure: a registered session only
    deferred,     // a retirement: the marked record, while it is still marked
    lastChild,    // a resource session's close: its parent, while it still waits for it
};

struct tCloseRequest {
    tCloser closer;
    uint64_t serial = 0;  // deferred, lastChild: the record that was marked
};

// Removes every idle FIFO state of the record and reports whether any FIFO has regions out,
// marking the record closePending if so. The mark is set under that FIFO's queueMutex, so the
// retirement of its last region either ran before (queue found empty) or sees the mark.
bool scanFifoStates(tSessionRecord& record) noexcept REQUIRES(gRegistryLock) {
    bool busy = false;
    tExclusiveLock recordGuard(*record.lock);
    auto& states = record.fifoStates().items();
    for (auto it = states.begin(); it != states.end();) {
        FifoRegionState& state = it->second;
        bool outstanding;
        {
            tMutexGuard acquireGuard(*state.acquireMutex);  // waits for an acquisition in progress
            tMutexGuard queueGuard(*state.queueMutex);
            outstanding = !state.regions().empty();
            if (outstanding) record.closePending.store(1);
        }
        if (outstanding) {
            busy = true;
            ++it;
        } else {
            it = states.erase(it);
        }
    }
    return busy;
}

// A parent that waits for its last resource session to close (closeWithLastChild).
struct tParentToClose {
    uint32_t handle = 0;
    uint64_t serial = 0;
};

struct tCloseSteps {
    bool busy = false;
    tParentToClose parent;
};

tCloseSteps runCloseSteps(tSessionRegistry& registry, tSessionRecord& record, uint32_t session) noexcept
    REQUIRES(gRegistryLock) {
    tCloseSteps steps;
    if (scanFifoStates(record)) {
        steps.busy = true;
        return steps;
    }
    if (tSessionRecord* parent = record.parent()) {
        parent->children().removeFirst(session);
        if (parent->closeWithLastChild() && parent->children().empty()) {
            steps.parent = {registry.keyOf(parent), parent->serial};
        }
    }
    auto& children = record.children().items();
    for (auto it = children.begin(); it != children.end();) {
        const uint32_t child = *it;
        tSessionRecord* childRecord = registry.find(child);
        if (childRecord != nullptr && scanFifoStates(*childRecord)) {
            record.closeWithLastChild() = 1;
            steps.busy = true;
            ++it;
            continue;
        }
        it = children.erase(it);
        // A child stands in `children` exactly while it is registered; a handle that is not
        // registered any more is not the library's to close.
        if (childRecord == nullptr) continue;
        BrennDll_Close(child, kLibraryCloseAttribute);
        registry.remove(child);
    }
    if (steps.busy) steps.parent = {};
    return steps;
}

// Whether `request` may act on what is registered under its handle (nullptr: nothing). A
// deferred close takes the record's mark here: of two retirements that found it set, only one
// closes; if the close is refused again, the scan marks the record anew.
bool admits(const tCloseRequest& request, tSessionRecord* record) noexcept REQUIRES(gRegistryLock) {
    switch (request.closer) {
        case tCloser::host:
            return true;
        case tCloser::programStop:
            return record != nullptr;
        case tCloser::deferred:
            return record != nullptr && record->serial == request.serial && record->closePending.exchange(0) != 0;
        case tCloser::lastChild:
            return record != nullptr && record->serial == request.serial && record->closeWithLastChild() != 0 &&
                   record->children().empty();
    }
    return false;
}

void removeCleanup(uint32_t session) noexcept {
    RTSetCleanupProc(SessionCleanupProc, cleanupArgument(session), kHostCleanupRemove);
}

int32_t closeSession(uint32_t session, uint32_t attribute, tCloseRequest request) noexcept EXCLUDES(gRegistryLock) {
    tSessionRegistry& registry = sessionRegistry();
    tCloseSteps steps;
    {
        tExclusiveLock registryGuard(gRegistryLock);
        tSessionRecord* record = registry.find(session);
        if (!admits(request, record)) return kStatusSuccess;
        if (record != nullptr) {
            steps = runCloseSteps(registry, *record, session);
            if (steps.busy) return kStatusRegionsOutstanding;
            registry.remove(session);
        }
    }
    removeCleanup(session);
    const int32_t closed = BrennDll_Close(session, attribute);
    if (steps.parent.handle == 0 || closed < 0) return closed;

    // The parent leaves the registry and loses its cleanup registration like any closed
    // session. Should it have regions out again by now, its close is deferred like any other
    // and this close reports its own result; should the Host have closed it meanwhile, nothing
    // is left to do.
    const int32_t parentClosed =
        closeSession(steps.parent.handle, attribute, {tCloser::lastChild, steps.parent.serial});
    if (parentClosed == kStatusRegionsOutstanding) return closed;
    if (parentClosed < 0) return parentClosed;
    return closed != 0 ? closed : parentClosed;
}

}  // namespace

namespace quorvane {

int32_t SessionCleanupProc(void* session) noexcept {
    closeSession(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(session)), kLibraryCloseAttribute,
                 {tCloser::programStop});
    return 0;
}

int32_t CloseDeferredSession(uint32_t session, uint64_t serial) noexcept {
    return closeSession(session, kLibraryCloseAttribute, {tCloser::deferred, serial});
}

}  // namespace quorvane

extern "C" int32_t Quorvane_Close(uint32_t session, uint32_t attribute) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return closeSession(session, attribute, {tCloser::host});
}

extern "C" int32_t Quorvane_OpenResource(uint32_t session, const char* name, uint32_t attribute,
                                         uint32_t* resourceSession) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (resourceSession == nullptr) return kStatusInvalidArgument;
    const int32_t opened = BrennDll_OpenResource(markedForResourceCall(session), name, attribute, resourceSession);
    if (opened < 0) return opened;
    const int32_t registered = RegisterSession(resourceSession, session);
    if (registered < 0) {
        Quorvane_Close(*resourceSession, kLibraryCloseAttribute);
        return registered;
    }
    return opened != 0 ? opened : registered;
}
