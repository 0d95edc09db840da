// Copying FIFO transfers between Host arrays and FIFOs: scalar FIFOs of the eight Host numeric
// types and composite FIFOs of opaque records carried in a Host byte array.
//
// Each export folds everything that went wrong into its one 32-bit result under the merge rule.
// The elements-remaining count comes back from the library as 64 bits and reaches the Host as
// 32; a count that does not fit adds -52005 (its low 32 bits are still stored).
#include <cstddef>
#include <cstdint>

#include "BrennDll.h"
#include "HostRuntime.h"
#include "MoskSrv/_MoskHostDefs.h"
#include "Quorvane.h"
#include "Quorvane/sessionFlags.h"
#include "moskshared/moskshared.h"

using namespace quorvane;

namespace {

using tReadFifo = int32_t (*)(uint32_t session, uint32_t fifo, void* data, size_t count, uint32_t timeout,
                              size_t* elementsRemaining);
using tWriteFifo = int32_t (*)(uint32_t session, uint32_t fifo, const void* data, size_t count, uint32_t timeout,
                               size_t* elementsRemaining);

// Adapters from the typed library functions to one untyped signature, so that a type code
// picks a table entry instead of a branch per type.
template <typename T, int32_t (*Read)(uint32_t, uint32_t, T*, size_t, uint32_t, size_t*)>
int32_t readAs(uint32_t session, uint32_t fifo, void* data, size_t count, uint32_t timeout, size_t* elementsRemaining) {
    return Read(session, fifo, static_cast<T*>(data), count, timeout, elementsRemaining);
}

template <typename T, int32_t (*Write)(uint32_t, uint32_t, const T*, size_t, uint32_t, size_t*)>
int32_t writeAs(uint32_t session, uint32_t fifo, const void* data, size_t count, uint32_t timeout,
                size_t* elementsRemaining) {
    return Write(session, fifo, static_cast<const T*>(data), count, timeout, elementsRemaining);
}

struct tScalarFifoFunctions {
    tReadFifo read;
    tWriteFifo write;
};

#define QUORVANE_FIFO_ENTRY(T, t) \
    { &readAs<t, BrennDll_ReadFifo##T>, &writeAs<t, BrennDll_WriteFifo##T> }
// Indexed by Host type code; entry 0 stands for every code outside 1..8.
constexpr tScalarFifoFunctions kScalarFifoFunctions[] = {
    {nullptr, nullptr},
    QUORVANE_FIFO_ENTRY(I8, int8_t),
    QUORVANE_FIFO_ENTRY(I16, int16_t),
    QUORVANE_FIFO_ENTRY(I32, int32_t),
    QUORVANE_FIFO_ENTRY(I64, int64_t),
    QUORVANE_FIFO_ENTRY(U8, uint8_t),
    QUORVANE_FIFO_ENTRY(U16, uint16_t),
    QUORVANE_FIFO_ENTRY(U32, uint32_t),
    QUORVANE_FIFO_ENTRY(U64, uint64_t),
};
#undef QUORVANE_FIFO_ENTRY

const tScalarFifoFunctions& scalarFifoFunctions(uint32_t typeCode) noexcept {
    return kScalarFifoFunctions[isHostNumericType(typeCode) ? typeCode : 0];
}

// Source lines recorded with the code each export had when it reported the count.
constexpr uint64_t kReadScalarLine = 1571;
constexpr uint64_t kReadCompositeLine = 1652;
constexpr uint64_t kWriteScalarLine = 1739;
constexpr uint64_t kWriteCompositeLine = 1801;

constexpr const char kTransferFile[] = "Quorvane";
constexpr size_t kCompositeFirstElement = hostFirstElementOffset(kHostTypeU8);

// The data of an array block, or null when the handle or its block is missing.
uint8_t* elementData(void** array, size_t firstElementOffset) noexcept {
    uint8_t* block = hostBlock(array);
    return block == nullptr ? nullptr : block + firstElementOffset;
}

// Stores the count for the Host (when it asked) and merges -52005 into `status` when the count
// does not fit 32 bits.
void reportElementsRemaining(int32_t& status, size_t remaining, uint32_t* elementsRemaining, uint64_t line) noexcept {
    if (elementsRemaining == nullptr) return;
    tMoskAutoStatus report(&status);
    report.setCode(status, kTransferFile, line);
    *elementsRemaining = narrowToU32(remaining, report);
}

// A read leaves the array holding what it asked for, or nothing when the read failed.
void storeReadCount(void** array, int32_t status, uint32_t count) noexcept {
    writeHostCount(array, status < 0 ? 0 : static_cast<int32_t>(count));
}

// A Host array's element count, widened with its sign as the Host's own size type would be.
size_t widenedHostCount(void** array) noexcept {
    return static_cast<size_t>(static_cast<int64_t>(readHostCount(array)));
}

}  // namespace

// The resize is made with the type code as given, before the code is checked, so a bad code
// still reaches the Host; the read itself needs a good code and a resized array.
extern "C" int32_t Quorvane_ReadFifoScalar(uint32_t session, uint32_t fifo, uint32_t count, uint32_t typeCode,
                                           uint32_t /*unused*/, uint32_t timeout, void** array,
                                           uint32_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (array == nullptr) return kStatusInvalidArgument;
    int32_t status = HostErrorToStatus(NumericArrayResize(static_cast<int32_t>(typeCode), 1, &array, count));
    void* data = elementData(array, hostFirstElementOffset(typeCode));
    size_t remaining = 0;
    const tReadFifo read = scalarFifoFunctions(typeCode).read;
    if (read == nullptr || (status == 0 && data == nullptr)) {
        status = kStatusInvalidArgument;
    } else if (status == 0) {
        status = read(markedForResourceCall(session), fifo, data, count, timeout, &remaining);
    }
    reportElementsRemaining(status, remaining, elementsRemaining, kReadScalarLine);
    storeReadCount(array, status, count);
    return status;
}

extern "C" int32_t Quorvane_WriteFifoScalar(uint32_t session, uint32_t fifo, void** array, uint32_t typeCode,
                                            uint32_t /*unused*/, uint32_t timeout,
                                            uint32_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    const void* data = elementData(array, hostFirstElementOffset(typeCode));
    if (data == nullptr) return kStatusInvalidArgument;
    int32_t status = kStatusInvalidArgument;
    size_t remaining = 0;
    if (const tWriteFifo write = scalarFifoFunctions(typeCode).write; write != nullptr) {
        status = write(markedForResourceCall(session), fifo, data, widenedHostCount(array), timeout, &remaining);
    }
    reportElementsRemaining(status, remaining, elementsRemaining, kWriteScalarLine);
    return status;
}

// A composite array holds count * bytesPerElement bytes; a product beyond 32 bits could not be
// held by the Host's array, so it is refused before anything is resized or read. Elements of 0
// bytes make an empty array, and the read is still handed to the library, which judges it.
extern "C" int32_t Quorvane_ReadFifoComposite(uint32_t session, uint32_t fifo, uint32_t count, uint32_t bytesPerElement,
                                              uint32_t timeout, void** array, uint32_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    const uint64_t total = uint64_t{count} * bytesPerElement;
    if (array == nullptr || total > UINT32_MAX) return kStatusInvalidArgument;
    const int32_t resized = HostErrorToStatus(NumericArrayResize(kHostTypeU8, 1, &array, total));
    if (resized != 0) return resized;
    void* data = elementData(array, kCompositeFirstElement);
    if (data == nullptr) return kStatusInvalidArgument;
    size_t remaining = 0;
    int32_t status = BrennDll_ReadFifoComposite(markedForResourceCall(session), fifo, data, bytesPerElement, count,
                                                timeout, &remaining);
    reportElementsRemaining(status, remaining, elementsRemaining, kReadCompositeLine);
    storeReadCount(array, status, static_cast<uint32_t>(total));
    return status;
}

// Trailing bytes that do not make a whole element are not written.
extern "C" int32_t Quorvane_WriteFifoComposite(uint32_t session, uint32_t fifo, void** array, uint32_t bytesPerElement,
                                               uint32_t timeout, uint32_t* elementsRemaining) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    const void* data = elementData(array, kCompositeFirstElement);
    if (data == nullptr || bytesPerElement == 0) return kStatusInvalidArgument;
    const size_t elements = widenedHostCount(array) / bytesPerElement;
    size_t remaining = 0;
    int32_t status = BrennDll_WriteFifoComposite(markedForResourceCall(session), fifo, data, bytesPerElement, elements,
                                                 timeout, &remaining);
    reportElementsRemaining(status, remaining, elementsRemaining, kWriteCompositeLine);
    return status;
}
