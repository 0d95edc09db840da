// FIFO functions of the simulated target: argument checks and the lookup of the session's FIFO
// here, the ring buffer and the FPGA side in SimFifo. The sixteen scalar transfers and the
// sixteen acquisitions are one template each, stamped out per element type by
// BRENN_FOR_EACH_ELEMENT_TYPE so that the types cannot drift apart.
#include <limits>
#include <type_traits>

#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"
#include "SimFifo.h"

using namespace brenn::sim;

namespace {

// The Host's numeric type code of an element type: 1..4 signed, 5..8 unsigned, by size.
template <typename T>
constexpr uint32_t hostTypeCode() {
    constexpr uint32_t bySize = sizeof(T) == 1 ? 1 : sizeof(T) == 2 ? 2 : sizeof(T) == 4 ? 3 : 4;
    return std::is_signed_v<T> ? bySize : bySize + 4;
}

int32_t checkSession(uint32_t session) {
    return Target::instance().withSession(session, [](Session&) { return int32_t{0}; });
}

// Runs fn(SimFifo&) on the FIFO, made on first use, after the table mutex is let go.
template <typename Fn>
int32_t withFifo(uint32_t session, uint32_t fifo, Fn&& fn) {
    int32_t status = 0;
    std::shared_ptr<SimFifo> found = findFifo(session, fifo, true, status);
    return found ? fn(*found) : status;
}

// A transfer of `count` elements of `elementSize` bytes, whose size in bytes must fit a size_t.
int32_t checkTransfer(uint32_t session, const void* data, size_t elementSize, size_t count) {
    int32_t status = checkSession(session);
    if (status != 0) return status;
    if (elementSize == 0 || count > std::numeric_limits<size_t>::max() / elementSize) {
        return kBrennSimInvalidArgument;
    }
    return !data && count != 0 ? kBrennSimInvalidArgument : 0;
}

int32_t readFifo(uint32_t session, uint32_t fifo, void* data, ElementShape shape, size_t count, uint32_t timeout,
                 size_t* elementsRemaining) {
    int32_t status = checkTransfer(session, data, shape.bytes, count);
    if (status != 0) return status;
    return withFifo(session, fifo, [&](SimFifo& f) { return f.read(data, shape, count, timeout, elementsRemaining); });
}

int32_t writeFifo(uint32_t session, uint32_t fifo, const void* data, ElementShape shape, size_t count, uint32_t timeout,
                  size_t* elementsRemaining) {
    int32_t status = checkTransfer(session, data, shape.bytes, count);
    if (status != 0) return status;
    return withFifo(session, fifo, [&](SimFifo& f) { return f.write(data, shape, count, timeout, elementsRemaining); });
}

template <typename T>
int32_t acquireElements(uint32_t typeCode, FifoDirection direction, uint32_t session, uint32_t fifo, T** elements,
                        size_t requested, uint32_t timeout, size_t* elementsAcquired, size_t* elementsRemaining) {
    int32_t status = checkSession(session);
    if (status != 0) return status;
    if (!elements) return kBrennSimInvalidArgument;
    *elements = nullptr;
    if (elementsAcquired) *elementsAcquired = 0;
    return withFifo(session, fifo, [&](SimFifo& f) {
        void* first = nullptr;
        int32_t result = f.acquire(direction, ElementShape{sizeof(T), typeCode}, &first, requested, timeout,
                                   elementsAcquired, elementsRemaining);
        if (result == 0) *elements = static_cast<T*>(first);
        return result;
    });
}

// Test control has C linkage too: no exception may reach the caller.
template <typename R, typename Fn>
R guarded(R failed, Fn&& fn) noexcept {
    try {
        return fn();
    } catch (...) {
        return failed;
    }
}

std::shared_ptr<SimFifo> existingFifo(uint32_t session, uint32_t fifo) {
    int32_t status = 0;
    return findFifo(session, fifo, false, status);
}

}  // namespace

extern "C" {

int32_t BrennDll_ConfigureFifo(uint32_t session, uint32_t fifo, size_t depth) {
    return call(__func__, args(session, fifo, depth), outs(),
                [&] { return withFifo(session, fifo, [&](SimFifo& f) { return f.configure(depth, nullptr); }); });
}

int32_t BrennDll_ConfigureFifo2(uint32_t session, uint32_t fifo, size_t requestedDepth, size_t* actualDepth) {
    return call(__func__, args(session, fifo, requestedDepth, actualDepth), outs(actualDepth), [&] {
        return withFifo(session, fifo, [&](SimFifo& f) { return f.configure(requestedDepth, actualDepth); });
    });
}

int32_t BrennDll_StartFifo(uint32_t session, uint32_t fifo) {
    return call(__func__, args(session, fifo), outs(), [&] { return checkSession(session); });
}

int32_t BrennDll_StopFifo(uint32_t session, uint32_t fifo) {
    return call(__func__, args(session, fifo), outs(), [&] { return checkSession(session); });
}

#define BRENN_DEFINE_FIFO_FUNCTIONS(T, t)                                                                              \
    int32_t BrennDll_ReadFifo##T(uint32_t session, uint32_t fifo, t* data, size_t count, uint32_t timeout,             \
                                 size_t* elementsRemaining) {                                                          \
        return call(__func__, args(session, fifo, data, count, timeout, elementsRemaining), outs(elementsRemaining),   \
                    [&] {                                                                                              \
                        return readFifo(session, fifo, data, ElementShape{sizeof(t), hostTypeCode<t>()}, count,        \
                                        timeout, elementsRemaining);                                                   \
                    });                                                                                                \
    }                                                                                                                  \
    int32_t BrennDll_WriteFifo##T(uint32_t session, uint32_t fifo, const t* data, size_t count, uint32_t timeout,      \
                                  size_t* elementsRemaining) {                                                         \
        return call(__func__, args(session, fifo, data, count, timeout, elementsRemaining), outs(elementsRemaining),   \
                    [&] {                                                                                              \
                        return writeFifo(session, fifo, data, ElementShape{sizeof(t), hostTypeCode<t>()}, count,       \
                                         timeout, elementsRemaining);                                                  \
                    });                                                                                                \
    }                                                                                                                  \
    int32_t BrennDll_AcquireFifoReadElements##T(uint32_t session, uint32_t fifo, t** elements,                         \
                                                size_t elementsRequested, uint32_t timeout, size_t* elementsAcquired,  \
                                                size_t* elementsRemaining) {                                           \
        return call(                                                                                                   \
            __func__, args(session, fifo, elements, elementsRequested, timeout, elementsAcquired, elementsRemaining),  \
            outs(elementsAcquired, elementsRemaining), [&] {                                                           \
                return acquireElements(hostTypeCode<t>(), FifoDirection::TargetToHost, session, fifo, elements,        \
                                       elementsRequested, timeout, elementsAcquired, elementsRemaining);               \
            });                                                                                                        \
    }                                                                                                                  \
    int32_t BrennDll_AcquireFifoWriteElements##T(uint32_t session, uint32_t fifo, t** elements,                        \
                                                 size_t elementsRequested, uint32_t timeout, size_t* elementsAcquired, \
                                                 size_t* elementsRemaining) {                                          \
        return call(                                                                                                   \
            __func__, args(session, fifo, elements, elementsRequested, timeout, elementsAcquired, elementsRemaining),  \
            outs(elementsAcquired, elementsRemaining), [&] {                                                           \
                return acquireElements(hostTypeCode<t>(), FifoDirection::HostToTarget, session, fifo, elements,        \
                                       elementsRequested, timeout, elementsAcquired, elementsRemaining);               \
            });                                                                                                        \
    }
BRENN_FOR_EACH_ELEMENT_TYPE(BRENN_DEFINE_FIFO_FUNCTIONS)
#undef BRENN_DEFINE_FIFO_FUNCTIONS

int32_t BrennDll_ReadFifoComposite(uint32_t session, uint32_t fifo, void* data, uint32_t bytesPerElement, size_t count,
                                   uint32_t timeout, size_t* elementsRemaining) {
    return call(
        __func__, args(session, fifo, data, bytesPerElement, count, timeout, elementsRemaining),
        outs(elementsRemaining), [&] {
            return readFifo(session, fifo, data, ElementShape{bytesPerElement, 0}, count, timeout, elementsRemaining);
        });
}

int32_t BrennDll_WriteFifoComposite(uint32_t session, uint32_t fifo, const void* data, uint32_t bytesPerElement,
                                    size_t count, uint32_t timeout, size_t* elementsRemaining) {
    return call(
        __func__, args(session, fifo, data, bytesPerElement, count, timeout, elementsRemaining),
        outs(elementsRemaining), [&] {
            return writeFifo(session, fifo, data, ElementShape{bytesPerElement, 0}, count, timeout, elementsRemaining);
        });
}

int32_t BrennDll_ReleaseFifoElements(uint32_t session, uint32_t fifo, size_t elements) {
    return call(__func__, args(session, fifo, elements), outs(), [&] {
        int32_t status = 0;
        std::shared_ptr<SimFifo> found = findFifo(session, fifo, false, status);
        if (status != 0) return status;
        if (found) return found->release(elements);
        // Nothing was ever lent from a FIFO that does not exist.
        countStrayRelease(elements);
        return elements == 0 ? int32_t{0} : int32_t{kBrennSimInvalidArgument};
    });
}

// ---- test control ------------------------------------------------------------------------

int BrennSim_SetFifoFpgaRunning(uint32_t session, uint32_t fifo, int running) {
    return guarded(0, [&] {
        int32_t status = 0;
        std::shared_ptr<SimFifo> found = findFifo(session, fifo, true, status);
        if (!found) return 0;
        found->setFpgaRunning(running != 0);
        return 1;
    });
}

size_t BrennSim_FeedFifo(uint32_t session, uint32_t fifo, size_t count) {
    return guarded(size_t{0}, [&] {
        std::shared_ptr<SimFifo> found = existingFifo(session, fifo);
        return found ? found->feed(count) : size_t{0};
    });
}

size_t BrennSim_DrainFifo(uint32_t session, uint32_t fifo, size_t count) {
    return guarded(size_t{0}, [&] {
        std::shared_ptr<SimFifo> found = existingFifo(session, fifo);
        return found ? found->drain(count) : size_t{0};
    });
}

int BrennSim_GetFifoStats(uint32_t session, uint32_t fifo, BrennSimFifoStats* stats) {
    if (!stats) return 0;
    *stats = BrennSimFifoStats{};
    return guarded(0, [&] {
        std::shared_ptr<SimFifo> found = existingFifo(session, fifo);
        if (!found) return 0;
        *stats = found->stats();
        return 1;
    });
}

void BrennSim_GetTotalFifoStats(BrennSimFifoStats* stats) {
    if (stats) *stats = totalFifoStats();
}

}  // extern "C"
