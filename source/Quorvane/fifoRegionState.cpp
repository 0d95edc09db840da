#include "Quorvane/fifoRegionState.h"

#include "Quorvane/sessionRegistry.h"
#include "protons/cppNewDelete/memoryAllocation.h"

namespace quorvane {

FifoRegionState::FifoRegionState(tSessionRecord* owner) noexcept : session(owner) {
    regions_.reportInto(creationStatus);
    queueMutex = newWithStatus<tMutex>(creationStatus, creationStatus);
    acquireMutex = newWithStatus<tMutex>(creationStatus, creationStatus);
    regionEvent = newWithStatus<tEvent>(creationStatus, creationStatus, true, true);
}

FifoRegionState::~FifoRegionState() {
    deleteObject(regionEvent);
    deleteObject(acquireMutex);
    deleteObject(queueMutex);
}

tFoundState FindOrBuildFifoRegionState(tSessionRecord& record, uint32_t fifo) noexcept {
    {
        tSharedLock recordGuard(*record.lock);
        if (FifoRegionState* state = record.fifoStates().find(fifo)) return {state, kStatusSuccess};
    }

    // No upgrade: the shared hold is given up first, so look again once exclusive.
    tExclusiveLock recordGuard(*record.lock);
    tStatus result;
    if (FifoRegionState* state = record.fifoStates().find(fifo)) {
        record.fifoStates().reportInto(result);
        return {result.isError() ? nullptr : state, result.code32()};
    }
    FifoRegionState* state = record.fifoStates().tryEmplace(fifo, &record).first;
    // A map that once ran out of memory reports -52000 for every insertion, and a state that
    // was built whole stays. A state whose own creation failed never stays, flag or no flag:
    // the next close, reset or acquisition would use the parts it lacks.
    record.fifoStates().reportInto(result);
    if (state != nullptr && state->creationStatus.isError()) {
        result.mergeFrom(state->creationStatus);
        record.fifoStates().erase(fifo);
        state = nullptr;
    }
    return {result.isError() ? nullptr : state, result.code32()};
}

int32_t EnsureFifoRegionState(uint32_t session, uint32_t fifo) noexcept {
    tSharedLock registryGuard(gRegistryLock);
    tSessionRecord* record = sessionRegistry().find(session);
    if (record == nullptr) return kStatusSessionNotRegistered;
    return FindOrBuildFifoRegionState(*record, fifo).code;
}

}  // namespace quorvane
