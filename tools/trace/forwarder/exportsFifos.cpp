// FIFO control and the zero-copy regions. A region's record gets its deletion callback wrapped
// here, once the real acquisition has returned it to this thread.
#include "forwarding.h"
#include "hostCallbacks.h"

using namespace quorvane::trace;

namespace {

template <class Call>
int32_t fifoCall(const char* name, uint32_t session, uint32_t fifo, Call&& call) noexcept {
    return traced(name, call, [&](LineWriter& line, int32_t) {
        line.argument("session").session(session);
        line.argument("fifo").decimal(fifo);
    });
}

using Acquire = decltype(&Quorvane_AcquireFifoReadRegionScalar);

int32_t acquireRegion(const char* name, Acquire acquire, uint32_t session, uint32_t fifo, uint32_t* reference,
                      size_t requested, uint32_t elementType, uint32_t unused, uint32_t timeout, size_t* acquired,
                      size_t* remaining) noexcept {
    void* record = nullptr;
    return traced(
        name,
        [&] {
            AcquisitionScope scope;
            const int32_t status =
                acquire(session, fifo, reference, requested, elementType, unused, timeout, acquired, remaining);
            record = scope.record();
            if (wroteResults(status) && record != nullptr) wrapRegionDeletion(record);
            return status;
        },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            line.argument("elements").decimal(requested);
            line.argument("type").elementType(elementType);
            line.argument("timeout").timeout(timeout);
            if (!wroteResults(status)) return;
            if (reference != nullptr) line.result("reference").decimal(*reference);
            if (record != nullptr) line.result("record").pointer(record);
            if (acquired != nullptr) line.result("acquired").decimal(*acquired);
            if (remaining != nullptr) line.result("remaining").decimal(*remaining);
        });
}

}  // namespace

extern "C" int32_t Quorvane_StartFifo(uint32_t session, uint32_t fifo) noexcept {
    return fifoCall(__func__, session, fifo, [&] { return realLibrary().StartFifo(session, fifo); });
}

extern "C" int32_t Quorvane_StopFifo(uint32_t session, uint32_t fifo) noexcept {
    return fifoCall(__func__, session, fifo, [&] { return realLibrary().StopFifo(session, fifo); });
}

extern "C" int32_t Quorvane_ConfigureFifo(uint32_t session, uint32_t fifo, uint32_t depth) noexcept {
    return traced(
        __func__, [&] { return realLibrary().ConfigureFifo(session, fifo, depth); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            line.argument("depth").decimal(depth);
        });
}

extern "C" int32_t Quorvane_ConfigureFifo2(uint32_t session, uint32_t fifo, uint32_t requestedDepth,
                                           uint32_t* actualDepth) noexcept {
    return traced(
        __func__, [&] { return realLibrary().ConfigureFifo2(session, fifo, requestedDepth, actualDepth); },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            line.argument("depth").decimal(requestedDepth);
            if (wroteResults(status) && actualDepth != nullptr) line.result("depth").decimal(*actualDepth);
        });
}

extern "C" int32_t Quorvane_AcquireFifoReadRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                        size_t elementsRequested, uint32_t elementType, uint32_t unused,
                                                        uint32_t timeout, size_t* elementsAcquired,
                                                        size_t* elementsRemaining) noexcept {
    return acquireRegion(__func__, realLibrary().AcquireFifoReadRegionScalar, session, fifo, reference,
                         elementsRequested, elementType, unused, timeout, elementsAcquired, elementsRemaining);
}

extern "C" int32_t Quorvane_AcquireFifoWriteRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                         size_t elementsRequested, uint32_t elementType,
                                                         uint32_t unused, uint32_t timeout, size_t* elementsAcquired,
                                                         size_t* elementsRemaining) noexcept {
    return acquireRegion(__func__, realLibrary().AcquireFifoWriteRegionScalar, session, fifo, reference,
                         elementsRequested, elementType, unused, timeout, elementsAcquired, elementsRemaining);
}
