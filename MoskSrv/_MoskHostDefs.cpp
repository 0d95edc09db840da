#include "MoskSrv/_MoskHostDefs.h"

#include <cstring>

#include "HostRuntime.h"
#include "MoskSrv/tNoReallyCallIntoHostCallbacks.h"

namespace quorvane {

uint32_t hostElementBytes(uint32_t typeCode) noexcept {
    switch (typeCode) {
        case kHostTypeI8:
        case kHostTypeU8:
            return 1;
        case kHostTypeI16:
        case kHostTypeU16:
            return 2;
        case kHostTypeI32:
        case kHostTypeU32:
            return 4;
        case kHostTypeI64:
        case kHostTypeU64:
            return 8;
        default:
            return 0;
    }
}

int32_t readHostCount(void** handle) noexcept {
    const uint8_t* block = hostBlock(handle);
    if (block == nullptr) return 0;
    int32_t count;
    std::memcpy(&count, block, sizeof count);
    return count;
}

void writeHostCount(void** handle, int32_t count) noexcept {
    uint8_t* block = hostBlock(handle);
    if (block != nullptr) std::memcpy(block, &count, sizeof count);
}

int32_t HostErrorToStatus(int32_t hostResult) noexcept {
    switch (hostResult) {
        case kHostNoError:
            return kStatusSuccess;
        case kHostOutOfMemory:
            return kStatusMemoryFull;
        case kHostCallAborted:
            return kStatusAborted;
        default:
            return kStatusInternalError;
    }
}

void ResizeHostStringArray(iHostCallbacks& table, void*** handle, uint32_t count, tStatus& status) noexcept {
    if (table.hasNumericArrayResize()) {
        const int32_t result = table.NumericArrayResize(kHostTypeU64, 1, handle, count);
        status.setCode(HostErrorToStatus(result), kHostDefsFile, kHostResizeLine);
    }
    writeHostCount(*handle, status.isError() ? 0 : static_cast<int32_t>(count));
}

void StoreHostString(iHostCallbacks& table, const tHostStringSource& string, void*** handle, uint32_t index,
                     tStatus& status) noexcept {
    if (status.isError()) return;
    uint8_t* array = hostBlock(*handle);
    if (array == nullptr) {  // the caller resizes first; never write through a missing block
        status.setCode(kStatusInvalidArgument, kHostDefsFile, kHostNewHandleLine);
        return;
    }
    void** element = table.hasDSNewHandle() ? table.DSNewHandle(string.length + 5) : nullptr;
    uint8_t* block = hostBlock(element);
    if (block == nullptr) {
        status.setCode(kStatusMemoryFull, kHostDefsFile, kHostNewHandleLine);
        return;
    }
    const int32_t length = static_cast<int32_t>(string.length);
    std::memcpy(block, &length, sizeof length);
    std::memcpy(block + 4, string.characters, string.length);
    block[4 + string.length] = 0;
    std::memcpy(array + 8 + 8 * static_cast<size_t>(index), &element, sizeof element);
}

}  // namespace quorvane
