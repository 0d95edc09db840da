// Copying FIFO transfers between Host arrays and FIFOs.
#include "forwarding.h"

using namespace quorvane::trace;

namespace {

void remainingResult(LineWriter& line, int32_t status, const uint32_t* remaining) noexcept {
    if (wroteResults(status) && remaining != nullptr) line.result("remaining").decimal(*remaining);
}

}  // namespace

extern "C" int32_t Quorvane_ReadFifoScalar(uint32_t session, uint32_t fifo, uint32_t count, uint32_t typeCode,
                                           uint32_t unused, uint32_t timeout, void** array,
                                           uint32_t* elementsRemaining) noexcept {
    return traced(
        __func__,
        [&] {
            return realLibrary().ReadFifoScalar(session, fifo, count, typeCode, unused, timeout, array,
                                                elementsRemaining);
        },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            line.argument("count").decimal(count);
            line.argument("type").elementType(typeCode);
            line.argument("timeout").timeout(timeout);
            if (array == nullptr) line.argument("array").put("null");
            if (array != nullptr) hostArray(line, "array", array, true);
            remainingResult(line, status, elementsRemaining);
        });
}

extern "C" int32_t Quorvane_WriteFifoScalar(uint32_t session, uint32_t fifo, void** array, uint32_t typeCode,
                                            uint32_t unused, uint32_t timeout, uint32_t* elementsRemaining) noexcept {
    return traced(
        __func__,
        [&] {
            return realLibrary().WriteFifoScalar(session, fifo, array, typeCode, unused, timeout, elementsRemaining);
        },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            hostArray(line, "array", array);
            line.argument("type").elementType(typeCode);
            line.argument("timeout").timeout(timeout);
            remainingResult(line, status, elementsRemaining);
        });
}

extern "C" int32_t Quorvane_ReadFifoComposite(uint32_t session, uint32_t fifo, uint32_t count, uint32_t bytesPerElement,
                                              uint32_t timeout, void** array, uint32_t* elementsRemaining) noexcept {
    return traced(
        __func__,
        [&] {
            return realLibrary().ReadFifoComposite(session, fifo, count, bytesPerElement, timeout, array,
                                                   elementsRemaining);
        },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            line.argument("count").decimal(count);
            line.argument("bytes each").decimal(bytesPerElement);
            line.argument("timeout").timeout(timeout);
            if (array == nullptr) line.argument("array").put("null");
            if (array != nullptr) hostArray(line, "array", array, true);
            remainingResult(line, status, elementsRemaining);
        });
}

extern "C" int32_t Quorvane_WriteFifoComposite(uint32_t session, uint32_t fifo, void** array, uint32_t bytesPerElement,
                                               uint32_t timeout, uint32_t* elementsRemaining) noexcept {
    return traced(
        __func__,
        [&] {
            return realLibrary().WriteFifoComposite(session, fifo, array, bytesPerElement, timeout, elementsRemaining);
        },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            hostArray(line, "array", array);
            line.argument("bytes each").decimal(bytesPerElement);
            line.argument("timeout").timeout(timeout);
            remainingResult(line, status, elementsRemaining);
        });
}
