// Lending FIFO regions to the Host: Quorvane_StartFifo and the two region acquisitions.
#include <cstring>

#include "BrennDll.h"
#include "HostRuntime.h"
#include "MoskSrv/_MoskHostDefs.h"
#include "Quorvane.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRegistry.h"
#include "moskshared/moskshared.h"

using namespace quorvane;

namespace {

constexpr uint32_t kInfiniteTimeout = 0xFFFFFFFFu;
// An infinite time-out is served in slices, so that an abort by the Host is noticed.
constexpr uint32_t kInfiniteSliceMs = 3000;
constexpr uint64_t kAcquireStatusLine = 96;

using tAcquireElements = int32_t (*)(uint32_t, uint32_t, void**, size_t, uint32_t, size_t*, size_t*);

// Adapts a typed acquire function of the FPGA interface library to an untyped element pointer.
template <class T, int32_t (*Acquire)(uint32_t, uint32_t, T**, size_t, uint32_t, size_t*, size_t*)>
int32_t acquireAs(uint32_t session, uint32_t fifo, void** elements, size_t requested, uint32_t timeout,
                  size_t* acquired, size_t* remaining) noexcept {
    T* typed = static_cast<T*>(*elements);
    const int32_t status = Acquire(session, fifo, &typed, requested, timeout, acquired, remaining);
    *elements = typed;
    return status;
}

struct tElementType {
    uint32_t bytes;
    tAcquireElements read;
    tAcquireElements write;
};

// Indexed by the Host's numeric type code.
constexpr tElementType kElementTypes[9] = {
    {0, nullptr, nullptr},
    {1, acquireAs<int8_t, BrennDll_AcquireFifoReadElementsI8>, acquireAs<int8_t, BrennDll_AcquireFifoWriteElementsI8>},
    {2, acquireAs<int16_t, BrennDll_AcquireFifoReadElementsI16>,
     acquireAs<int16_t, BrennDll_AcquireFifoWriteElementsI16>},
    {4, acquireAs<int32_t, BrennDll_AcquireFifoReadElementsI32>,
     acquireAs<int32_t, BrennDll_AcquireFifoWriteElementsI32>},
    {8, acquireAs<int64_t, BrennDll_AcquireFifoReadElementsI64>,
     acquireAs<int64_t, BrennDll_AcquireFifoWriteElementsI64>},
    {1, acquireAs<uint8_t, BrennDll_AcquireFifoReadElementsU8>,
     acquireAs<uint8_t, BrennDll_AcquireFifoWriteElementsU8>},
    {2, acquireAs<uint16_t, BrennDll_AcquireFifoReadElementsU16>,
     acquireAs<uint16_t, BrennDll_AcquireFifoWriteElementsU16>},
    {4, acquireAs<uint32_t, BrennDll_AcquireFifoReadElementsU32>,
     acquireAs<uint32_t, BrennDll_AcquireFifoWriteElementsU32>},
    {8, acquireAs<uint64_t, BrennDll_AcquireFifoReadElementsU64>,
     acquireAs<uint64_t, BrennDll_AcquireFifoWriteElementsU64>},
};

// The Host's abort procedure for an acquisition in progress: raises the acquirer's flag.
int32_t AbortFifoAcquire(void* abortFlag) noexcept {
    static_cast<std::atomic<bool>*>(abortFlag)->store(true);
    return 0;
}

// Milliseconds of `timeout` left since `start`; a slice for an infinite time-out.
uint32_t RemainingTimeout(uint64_t start, uint32_t timeout) noexcept {
    if (timeout == 0) return 0;
    if (timeout == kInfiniteTimeout) return kInfiniteSliceMs;
    const uint64_t elapsed = (MonotonicNow() - start) / 1000 / 1000;
    return elapsed >= timeout ? 0 : timeout - static_cast<uint32_t>(elapsed);
}

enum class tPass { leave, retry };

// One wait on regionEvent and one call of the library. Updates `code`.
tPass acquisitionPass(const tElementType& type, bool write, uint32_t session, uint32_t fifo, FifoRegionState& state,
                      void*& elements, size_t requested, uint64_t start, uint32_t timeout, size_t* acquired,
                      size_t* remaining, int32_t& code) noexcept {
    tEvent::tWaitResult waited = tEvent::tWaitResult::signalled;
    bool skipped = false;
    {
        tMoskAutoStatus passStatus(&code);
        passStatus.setCode(code, kComponent, "Quorvane", kAcquireStatusLine);
        if (passStatus.isError()) {
            skipped = true;
        } else {
            waited = state.regionEvent->waitFor(RemainingTimeout(start, timeout), passStatus);
        }
    }
    if (skipped) return tPass::leave;
    if (waited == tEvent::tWaitResult::timedOut) {
        if (timeout == kInfiniteTimeout) return tPass::retry;
        code = kStatusMustReleaseFirst;
        return tPass::leave;
    }
    if (waited == tEvent::tWaitResult::failed) {
        // The library is not called in such a pass and no region may come of it.
        code = mergeStatus(code, kStatusInternalError);
        return tPass::leave;
    }
    const tAcquireElements acquire = write ? type.write : type.read;
    code = mergeStatus(code, acquire(markedForResourceCall(session), fifo, &elements, requested,
                                     RemainingTimeout(start, timeout), acquired, remaining));
    if (code == kStatusMustReleaseFirst) return tPass::retry;
    if (code == kStatusDriverTimeout && timeout == kInfiniteTimeout) return tPass::retry;
    return tPass::leave;
}

// Fills the Host's external data value record around a queued region.
void fillReferenceRecord(uint8_t* record, FifoRegion* region, void* elements, uint64_t count, uint64_t bytes) noexcept {
    const int32_t dimensions = 1;
    const HostDeleteCallback onDeleted = OnFifoRegionDeleted;
    std::memcpy(record + 0, &region, sizeof region);
    std::memcpy(record + 8, &dimensions, sizeof dimensions);
    std::memcpy(record + 16, &elements, sizeof elements);
    std::memcpy(record + 24, &count, sizeof count);
    std::memcpy(record + 32, &bytes, sizeof bytes);
    std::memcpy(record + kHostEdvrDeleteCallbackOffset, &onDeleted, sizeof onDeleted);
}

// Queues the region and wraps it in a Host reference. queueMutex is held, so the deletion
// callback never sees a half-made region. Returns the updated code.
int32_t recordRegion(FifoRegionState& state, uint32_t session, uint32_t fifo, void* elements, uint64_t count,
                     uint32_t elementBytes, uint32_t* reference, int32_t code) noexcept {
    tMutexGuard queueGuard(*state.queueMutex);
    FifoRegion* region = state.regions.emplaceBack(FifoRegion{session, fifo, count, &state, false});
    tStatus queued;
    if (state.regions.reportInto(queued)) {
        if (region != nullptr) state.regions.popBack();  // an earlier failure still stands
        return mergeStatus(code, queued.code32());
    }
    void* record = nullptr;
    const int32_t created = HostErrorToStatus(EDVR_CreateReference(reference, &record));
    if (created < 0 || record == nullptr) {
        state.regions.popBack();  // the elements stay acquired in the FPGA interface library
        *reference = 0;
        return mergeStatus(code, created < 0 ? created : kStatusInternalError);
    }
    fillReferenceRecord(static_cast<uint8_t*>(record), region, elements, count, elementBytes);
    return code;
}

// The passes and the recording of the region, with the FIFO's acquireMutex held by the caller.
int32_t acquireWithStateHeld(const tElementType& type, bool write, uint32_t session, uint32_t fifo,
                             FifoRegionState& state, const std::atomic<bool>& abortFlag, uint32_t* reference,
                             size_t requested, uint64_t start, uint32_t timeout, size_t* acquired, size_t* remaining,
                             int32_t code) noexcept {
    void* elements = nullptr;
    if (abortFlag.load()) {
        code = mergeStatus(code, kStatusAborted);
    } else {
        while (acquisitionPass(type, write, session, fifo, state, elements, requested, start, timeout, acquired,
                               remaining, code) == tPass::retry) {
            code = 0;
            if (abortFlag.load()) {
                code = kStatusAborted;
                break;
            }
        }
    }
    state.regionEvent->set();
    RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
    if (requested != 0 && code >= 0) {
        code = recordRegion(state, session, fifo, elements, *acquired, type.bytes, reference, code);
    }
    return code;
}

int32_t AcquireFifoRegion(bool write, uint32_t session, uint32_t fifo, uint32_t* reference, size_t requested,
                          uint32_t elementType, uint32_t timeout, size_t* acquired, size_t* remaining) noexcept {
    const uint64_t start = MonotonicNow();
    if (reference == nullptr) return kStatusInvalidArgument;
    *reference = 0;
    if (!isHostNumericType(elementType) || acquired == nullptr) return kStatusInvalidArgument;
    const tElementType& type = kElementTypes[elementType];

    int32_t code = EnsureFifoRegionState(session, fifo);
    if (code < 0) return code;

    // Finds the state again: EnsureFifoRegionState released its locks, and a concurrent close may
    // have removed the state or the session meanwhile; a missing one is reported, never used.
    tSessionRegistry& registry = sessionRegistry();
    tSharedLock registryGuard(gRegistryLock);
    tSessionRecord* record = registry.find(session);
    if (record == nullptr) return kStatusSessionNotRegistered;
    tSharedLock recordGuard(*record->lock);
    FifoRegionState* state = record->fifoStates.find(fifo);
    if (state == nullptr) return kStatusSessionNotRegistered;
    std::atomic<bool> abortFlag{false};
    code =
        mergeStatus(code, HostErrorToStatus(RTSetCleanupProc(AbortFifoAcquire, &abortFlag, kHostCleanupOnCallAbort)));
    if (code < 0) return code;
    // acquireMutex is taken while both reader locks still keep the state in place (a close, which
    // removes states under the registry lock held exclusively, then waits for this acquisition);
    // only then are the reader locks given back. A second acquirer on this FIFO waits here, still
    // holding both, for the whole of the first one.
    tMutexGuard acquireGuard(*state->acquireMutex);
    recordGuard.unlock();
    registryGuard.unlock();
    return acquireWithStateHeld(type, write, session, fifo, *state, abortFlag, reference, requested, start, timeout,
                                acquired, remaining, code);
}

}  // namespace

extern "C" int32_t Quorvane_StartFifo(uint32_t session, uint32_t fifo) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    const int32_t ensured = EnsureFifoRegionState(session, fifo);
    if (ensured < 0) return ensured;
    return BrennDll_StartFifo(markedForResourceCall(session), fifo);
}

extern "C" int32_t Quorvane_AcquireFifoReadRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                        size_t elementsRequested, uint32_t elementType, uint32_t,
                                                        uint32_t timeout, size_t* elementsAcquired,
                                                        size_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return AcquireFifoRegion(false, session, fifo, reference, elementsRequested, elementType, timeout, elementsAcquired,
                             elementsRemaining);
}

extern "C" int32_t Quorvane_AcquireFifoWriteRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                         size_t elementsRequested, uint32_t elementType, uint32_t,
                                                         uint32_t timeout, size_t* elementsAcquired,
                                                         size_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return AcquireFifoRegion(true, session, fifo, reference, elementsRequested, elementType, timeout, elementsAcquired,
                             elementsRemaining);
}
