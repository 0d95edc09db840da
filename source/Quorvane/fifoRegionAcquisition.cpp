// Lending FIFO regions to the Host: Quorvane_StartFifo and the two region acquisitions.
#include <cstring>

#include "BrennDll.h"
#include "HostRuntime.h"
#include "MoskSrv/_MoskHostDefs.h"
#include "Quorvane.h"
#include "Quorvane/fifoRegionState.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRegistry.h"

using namespace quorvane;

namespace {

constexpr uint32_t kInfiniteTimeout = 0xFFFFFFFFu;
// An infinite time-out is served in slices, so that an abort by the Host is noticed.
constexpr uint32_t kInfiniteSliceMs = 3000;

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

// What the Host asked for, as the acquire exports received it.
struct tRegionRequest {
    bool write;
    uint32_t session;
    uint32_t fifo;
    uint32_t* reference;
    size_t requested;
    uint32_t elementType;
    uint32_t timeout;
    size_t* acquired;
    size_t* remaining;
};

// One acquisition of a region: finds the FIFO's state, holds its acquireMutex while it waits
// for room and calls the FPGA interface library, and records the region it got behind a Host
// reference. The code only ever moves under the merge rule; every step leaves it as the status
// the export returns.
class tRegionAcquisition {
public:
    explicit tRegionAcquisition(const tRegionRequest& request) noexcept
        : request_(request), type_(kElementTypes[request.elementType]) {}

    int32_t run() noexcept {
        // One registry lookup serves both the state's creation and the acquisition: the
        // registry lock, held shared from the lookup until acquireMutex is held, keeps the
        // record and its state in place (a close removes them only with it held exclusively).
        // Taking the registry lock and the record's lock twice, as a lookup for the creation
        // followed by one for the acquisition would, costs about a fifth of a region cycle
        // (bench/regionCostBench.cpp).
        tSharedLock registryGuard(gRegistryLock, [this] { startTimeout(); });
        tSessionRecord* record = sessionRegistry().find(request_.session);
        if (record == nullptr) return kStatusSessionNotRegistered;
        const tFoundState found = FindOrBuildFifoRegionState(*record, request_.fifo);
        code_ = found.code;
        if (found.state == nullptr) return code_;
        state_ = found.state;
        merge(HostErrorToStatus(RTSetCleanupProc(AbortFifoAcquire, &abortFlag_, kHostCleanupOnCallAbort)));
        if (code_ < 0) return code_;
        // A second acquirer on this FIFO waits here, still holding the registry lock, for the
        // whole of the first one; a close waits for both.
        tMutexGuard acquireGuard(*state_->acquireMutex, [this] { startTimeout(); });
        registryGuard.unlock();
        acquireElements();
        state_->regionEvent->set();
        RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
        if (request_.requested != 0 && code_ >= 0) recordRegion();
        return code_;
    }

private:
    enum class tPass { leave, retry };

    void merge(int32_t incoming) noexcept { code_ = mergeStatus(code_, incoming); }

    // The time-out counts from its start, read from the clock before the first step that may
    // wait for another thread: the registry lock while a writer holds it, acquireMutex while
    // another acquisition holds it, regionEvent while it is not signalled. Until then the
    // acquisition has only done bookkeeping, its own or, on the record's lock, another thread's
    // creation of a FIFO state: a few hundred nanoseconds, which the time-out's whole
    // milliseconds do not see. So when nothing waited, the library gets the whole time-out
    // without any clock read. Two reads of a clock that costs about 40 ns on a virtual machine
    // were a third of a region cycle (bench/regionCostBench.cpp).
    void startTimeout() noexcept {
        if (started_ || request_.timeout == 0 || request_.timeout == kInfiniteTimeout) return;
        start_ = MonotonicNow();
        started_ = true;
    }

    // Milliseconds of the time-out left; a slice for an infinite time-out.
    uint32_t remainingTimeout() noexcept {
        const uint32_t timeout = request_.timeout;
        if (timeout == 0) return 0;
        if (timeout == kInfiniteTimeout) return kInfiniteSliceMs;
        if (!started_) return timeout;
        const uint64_t elapsed = (MonotonicNow() - start_) / 1000 / 1000;
        return elapsed >= timeout ? 0 : timeout - static_cast<uint32_t>(elapsed);
    }

    // The passes, until one leaves; an abort is noticed before the first and at each retry.
    void acquireElements() noexcept {
        if (abortFlag_.load()) {
            merge(kStatusAborted);
            return;
        }
        while (pass() == tPass::retry) {
            code_ = 0;
            if (abortFlag_.load()) {
                code_ = kStatusAborted;
                return;
            }
        }
    }

    // One wait on regionEvent and one call of the library.
    tPass pass() noexcept {
        if (code_ < 0) return tPass::leave;
        // The event is signalled in the usual case: consumed at once, without reading the clock
        // or building a status record (bench/regionCostBench.cpp).
        if (!state_->regionEvent->tryConsume()) {
            startTimeout();
            tStatus waitStatus;
            const tEvent::tWaitResult waited = state_->regionEvent->waitFor(remainingTimeout(), waitStatus);
            if (waited == tEvent::tWaitResult::timedOut) {
                if (request_.timeout == kInfiniteTimeout) return tPass::retry;
                code_ = kStatusMustReleaseFirst;
                return tPass::leave;
            }
            if (waited == tEvent::tWaitResult::failed) {
                // The library is not called in such a pass and no region may come of it.
                merge(kStatusInternalError);
                return tPass::leave;
            }
        }
        const tAcquireElements acquire = request_.write ? type_.write : type_.read;
        merge(acquire(markedForResourceCall(request_.session), request_.fifo, &elements_, request_.requested,
                      remainingTimeout(), request_.acquired, request_.remaining));
        if (code_ == kStatusMustReleaseFirst) return tPass::retry;
        if (code_ == kStatusDriverTimeout && request_.timeout == kInfiniteTimeout) return tPass::retry;
        return tPass::leave;
    }

    // Fills the Host's external data value record around a queued region.
    void fillReferenceRecord(uint8_t* record, FifoRegion* region) const noexcept {
        const int32_t dimensions = 1;
        const uint64_t count = *request_.acquired;
        const uint64_t bytes = type_.bytes;
        const HostDeleteCallback onDeleted = OnFifoRegionDeleted;
        std::memcpy(record + 0, &region, sizeof region);
        std::memcpy(record + 8, &dimensions, sizeof dimensions);
        std::memcpy(record + 16, &elements_, sizeof elements_);
        std::memcpy(record + 24, &count, sizeof count);
        std::memcpy(record + 32, &bytes, sizeof bytes);
        std::memcpy(record + kHostEdvrDeleteCallbackOffset, &onDeleted, sizeof onDeleted);
    }

    // Queues the region and wraps it in a Host reference. queueMutex is held, so the deletion
    // callback never sees a half-made region.
    void recordRegion() noexcept {
        tMutexGuard queueGuard(*state_->queueMutex);
        FifoRegion* region = state_->regions().emplaceBack(request_.session, request_.fifo, *request_.acquired, state_);
        if (state_->regions().allocationFailed()) {
            if (region != nullptr) state_->regions().popBack();  // an earlier failure still stands
            tStatus queued;
            state_->regions().reportInto(queued);
            merge(queued.code32());
            return;
        }
        void* record = nullptr;
        const int32_t created = HostErrorToStatus(EDVR_CreateReference(request_.reference, &record));
        if (created < 0 || record == nullptr) {
            state_->regions().popBack();  // the elements stay acquired in the FPGA interface library
            *request_.reference = 0;
            merge(created < 0 ? created : kStatusInternalError);
            return;
        }
        fillReferenceRecord(static_cast<uint8_t*>(record), region);
    }

    const tRegionRequest request_;
    const tElementType& type_;
    // The start of the time-out (startTimeout).
    bool started_ = false;
    uint64_t start_ = 0;
    int32_t code_ = 0;
    // Found under the registry lock; used with its acquireMutex held.
    FifoRegionState* state_ = nullptr;
    void* elements_ = nullptr;
    // Raised by the Host's abort procedure while the acquisition is registered with it.
    std::atomic<bool> abortFlag_{false};
};

int32_t AcquireFifoRegion(const tRegionRequest& request) noexcept {
    if (request.reference == nullptr) return kStatusInvalidArgument;
    *request.reference = 0;
    if (!isHostNumericType(request.elementType) || request.acquired == nullptr) return kStatusInvalidArgument;
    return tRegionAcquisition(request).run();
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
    return AcquireFifoRegion({false, session, fifo, reference, elementsRequested, elementType, timeout,
                              elementsAcquired, elementsRemaining});
}

extern "C" int32_t Quorvane_AcquireFifoWriteRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                         size_t elementsRequested, uint32_t elementType, uint32_t,
                                                         uint32_t timeout, size_t* elementsAcquired,
                                                         size_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return AcquireFifoRegion(
        {true, session, fifo, reference, elementsRequested, elementType, timeout, elementsAcquired, elementsRemaining});
}
