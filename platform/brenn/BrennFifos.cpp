// FIFOs of the simulated target. For now no FIFO holds data: a read delivers zeros, a write is
// taken whole, an acquisition lends nothing, and every "elements remaining" is 0. The sixteen
// scalar transfers and the sixteen acquisitions are one template each, stamped out per
// element type by BRENN_FOR_EACH_ELEMENT_TYPE so that the types cannot drift apart.
#include <algorithm>
#include <cstring>
#include <limits>

#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"

using namespace brenn::sim;

namespace {

int32_t checkSession(uint32_t session) {
    return Target::instance().withSession(session, [](Session&) { return int32_t{0}; });
}

void setRemaining(size_t* elementsRemaining) {
    if (elementsRemaining) *elementsRemaining = 0;
}

template <typename T>
int32_t readFifo(uint32_t session, T* data, size_t count, size_t* elementsRemaining) {
    int32_t status = checkSession(session);
    if (status != 0) return status;
    if (!data && count != 0) return kBrennSimInvalidArgument;
    std::fill_n(data, count, T{});
    setRemaining(elementsRemaining);
    return 0;
}

template <typename T>
int32_t writeFifo(uint32_t session, const T* data, size_t count, size_t* elementsRemaining) {
    int32_t status = checkSession(session);
    if (status != 0) return status;
    if (!data && count != 0) return kBrennSimInvalidArgument;
    setRemaining(elementsRemaining);
    return 0;
}

template <typename T>
int32_t acquireElements(uint32_t session, T** elements, size_t* elementsAcquired, size_t* elementsRemaining) {
    int32_t status = checkSession(session);
    if (status != 0) return status;
    if (!elements) return kBrennSimInvalidArgument;
    *elements = nullptr;
    if (elementsAcquired) *elementsAcquired = 0;
    setRemaining(elementsRemaining);
    return 0;
}

// Composite elements are opaque blocks of bytesPerElement bytes; `bytes` receives the size of
// the whole transfer.
int32_t checkComposite(uint32_t session, const void* data, uint32_t bytesPerElement, size_t count, size_t& bytes) {
    int32_t status = checkSession(session);
    if (status != 0) return status;
    if (bytesPerElement == 0 || count > std::numeric_limits<size_t>::max() / bytesPerElement) {
        return kBrennSimInvalidArgument;
    }
    bytes = count * bytesPerElement;
    return !data && bytes != 0 ? kBrennSimInvalidArgument : 0;
}

}  // namespace

extern "C" {

int32_t BrennDll_ConfigureFifo(uint32_t session, uint32_t fifo, size_t depth) {
    return call(__func__, args(session, fifo, depth), outs(), [&] { return checkSession(session); });
}

int32_t BrennDll_ConfigureFifo2(uint32_t session, uint32_t fifo, size_t requestedDepth, size_t* actualDepth) {
    return call(__func__, args(session, fifo, requestedDepth, actualDepth), outs(actualDepth), [&] {
        int32_t status = checkSession(session);
        if (status != 0) return status;
        // Every depth is granted exactly until the target models its memory.
        if (actualDepth) *actualDepth = requestedDepth;
        return int32_t{0};
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
                    [&] { return readFifo(session, data, count, elementsRemaining); });                                \
    }                                                                                                                  \
    int32_t BrennDll_WriteFifo##T(uint32_t session, uint32_t fifo, const t* data, size_t count, uint32_t timeout,      \
                                  size_t* elementsRemaining) {                                                         \
        return call(__func__, args(session, fifo, data, count, timeout, elementsRemaining), outs(elementsRemaining),   \
                    [&] { return writeFifo(session, data, count, elementsRemaining); });                               \
    }                                                                                                                  \
    int32_t BrennDll_AcquireFifoReadElements##T(uint32_t session, uint32_t fifo, t** elements,                         \
                                                size_t elementsRequested, uint32_t timeout, size_t* elementsAcquired,  \
                                                size_t* elementsRemaining) {                                           \
        return call(__func__,                                                                                          \
                    args(session, fifo, elements, elementsRequested, timeout, elementsAcquired, elementsRemaining),    \
                    outs(elementsAcquired, elementsRemaining),                                                         \
                    [&] { return acquireElements(session, elements, elementsAcquired, elementsRemaining); });          \
    }                                                                                                                  \
    int32_t BrennDll_AcquireFifoWriteElements##T(uint32_t session, uint32_t fifo, t** elements,                        \
                                                 size_t elementsRequested, uint32_t timeout, size_t* elementsAcquired, \
                                                 size_t* elementsRemaining) {                                          \
        return call(__func__,                                                                                          \
                    args(session, fifo, elements, elementsRequested, timeout, elementsAcquired, elementsRemaining),    \
                    outs(elementsAcquired, elementsRemaining),                                                         \
                    [&] { return acquireElements(session, elements, elementsAcquired, elementsRemaining); });          \
    }
BRENN_FOR_EACH_ELEMENT_TYPE(BRENN_DEFINE_FIFO_FUNCTIONS)
#undef BRENN_DEFINE_FIFO_FUNCTIONS

int32_t BrennDll_ReadFifoComposite(uint32_t session, uint32_t fifo, void* data, uint32_t bytesPerElement, size_t count,
                                   uint32_t timeout, size_t* elementsRemaining) {
    return call(__func__, args(session, fifo, data, bytesPerElement, count, timeout, elementsRemaining),
                outs(elementsRemaining), [&] {
                    size_t bytes = 0;
                    int32_t status = checkComposite(session, data, bytesPerElement, count, bytes);
                    if (status != 0) return status;
                    if (bytes != 0) std::memset(data, 0, bytes);
                    setRemaining(elementsRemaining);
                    return int32_t{0};
                });
}

int32_t BrennDll_WriteFifoComposite(uint32_t session, uint32_t fifo, const void* data, uint32_t bytesPerElement,
                                    size_t count, uint32_t timeout, size_t* elementsRemaining) {
    return call(__func__, args(session, fifo, data, bytesPerElement, count, timeout, elementsRemaining),
                outs(elementsRemaining), [&] {
                    size_t bytes = 0;
                    int32_t status = checkComposite(session, data, bytesPerElement, count, bytes);
                    if (status != 0) return status;
                    setRemaining(elementsRemaining);
                    return int32_t{0};
                });
}

int32_t BrennDll_ReleaseFifoElements(uint32_t session, uint32_t fifo, size_t elements) {
    return call(__func__, args(session, fifo, elements), outs(), [&] { return checkSession(session); });
}

}  // extern "C"
