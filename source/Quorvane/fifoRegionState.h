// Zero-copy FIFO regions: what a session keeps per FIFO, and per region lent to the Host.
//
// Design. The Host deletes region references in any order, but the FPGA interface library
// must get elements back strictly in acquisition order. Each FIFO therefore keeps its lent
// regions in a queue, oldest first. Deleting the front region hands it back together with every
// region behind it that was already deleted; deleting any other region only marks it. Marking,
// the front test and removal all happen under queueMutex, so an out-of-turn deletion and the
// retirement in front of it can never miss each other. Acquisitions on one FIFO are serialised
// by acquireMutex, held for a whole acquisition; a close takes acquireMutex before queueMutex
// and so waits for an acquisition in progress. regionEvent (auto-reset) is set after every
// acquisition attempt and every retirement; an acquirer that the library told to wait for room
// (-61219) sleeps on it.
//
// Lifetime. A state lives from the first start or acquisition on its FIFO until a close finds
// its queue empty; a state is never removed while its queue holds a region, so a region's
// state and session record outlive the region.
#pragma once

#include <atomic>
#include <cstdint>

#include "protons/status/stlContainers.h"
#include "protons/status/stlStatus.h"
#include "quarks/synchronization.h"

namespace quorvane {

struct tSessionRecord;
extern tReaderWriterLock& gRegistryLock;
class FifoRegionState;

// One region lent to the Host. Never moves while queued: the Host's reference holds its address.
struct FifoRegion {
    FifoRegion(uint32_t session, uint32_t fifo, uint64_t elementCount, FifoRegionState* state) noexcept
        : session(session), fifo(fifo), elementCount(elementCount), state(state) {}

    uint32_t session;  // as the Host passed it, without the resource-call bit
    uint32_t fifo;
    uint64_t elementCount;
    FifoRegionState* state;

private:
    friend class FifoRegionState;
    // The Host deleted it before every older region came back. Guarded by its state's
    // queueMutex, like the queue that holds it: read and written only through
    // FifoRegionState::isReleased / markReleased, which require that mutex.
    bool released_ = false;
};

class FifoRegionState {
public:
    // Builds the queue, then queueMutex, acquireMutex and regionEvent (auto-reset, signalled),
    // each only while creationStatus holds no error. A state whose creationStatus holds an
    // error is never left in a record's fifoStates.
    explicit FifoRegionState(tSessionRecord* owner) noexcept;
    ~FifoRegionState();
    FifoRegionState(const FifoRegionState&) = delete;
    FifoRegionState& operator=(const FifoRegionState&) = delete;

    tSessionRecord* const session;
    tStatus creationStatus;
    // Guards the queue and the released flags of its regions; taken after acquireMutex.
    tMutex* queueMutex ACQUIRED_AFTER(acquireMutex) = nullptr;
    // Serialises acquisitions on the FIFO; a close takes it to wait for one in progress.
    tMutex* acquireMutex = nullptr;
    tEvent* regionEvent = nullptr;

    // The queue and the released flags are reached only through these accessors, which require
    // queueMutex: the analysis checks every read and write of them against it, including the
    // released flag of a region, which it could not tie to this mutex as a field of the region.
    // Inline and trivial: nothing is added at run time.
    //
    // The regions lent and not yet handed back, oldest first.
    tDeque<FifoRegion>& regions() noexcept REQUIRES(queueMutex) { return regions_; }
    // Whether the Host deleted `region`, one of this state's regions, out of turn.
    bool isReleased(const FifoRegion& region) const noexcept REQUIRES(queueMutex) { return region.released_; }
    void markReleased(FifoRegion& region) noexcept REQUIRES(queueMutex) { region.released_ = true; }

private:
    tDeque<FifoRegion> regions_ GUARDED_BY(queueMutex);
};

// The state of a FIFO as FindOrBuildFifoRegionState found it: null whenever `code` is an error.
struct tFoundState {
    FifoRegionState* state;
    int32_t code;
};

// Finds the state of `fifo` in `record`, building it when there is none: under the record's lock
// held shared to look, exclusively to build. Codes as EnsureFifoRegionState's, but for -63195.
// The registry lock, held shared by the caller, keeps the record and the state found in place:
// only a close removes them, and it holds that lock exclusively.
tFoundState FindOrBuildFifoRegionState(tSessionRecord& record, uint32_t fifo) noexcept REQUIRES_SHARED(gRegistryLock);

// Makes sure the session's fifoStates holds a state for `fifo`: 0, -63195 when the session is
// not registered, -52000 / -52003 / -52008 when the state could not be built.
int32_t EnsureFifoRegionState(uint32_t session, uint32_t fifo) noexcept;

// The Host's deletion callback of a region reference (the record's address is passed).
int32_t OnFifoRegionDeleted(void* record) noexcept;

}  // namespace quorvane
