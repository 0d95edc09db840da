// Resource enumeration: the names of a session's resources, written into a Host array of
// strings, one string handle per resource index, in the order the FPGA interface library lists
// the indexes.
//
// The registry lock is held shared for the whole enumeration, every call into the FPGA
// interface library and the Host included, so an enumeration never overlaps a registration or
// a close. The registry itself is not consulted: any handle is passed on.
#include <cstring>

#include "BrennDll.h"
#include "ExternalEntryPoints/entryPointLocations.h"
#include "MoskSrv/_MoskHostDefs.h"
#include "MoskSrv/tNoReallyCallIntoHostCallbacks.h"
#include "Quorvane.h"
#include "Quorvane/sessionFlags.h"
#include "Quorvane/sessionRegistry.h"
#include "moskshared/moskshared.h"
#include "protons/cppNewDelete/memoryAllocation.h"
#include "quarks/synchronization.h"

using namespace quorvane;

namespace {

// Above this many indexes the buffer request is made for the largest size, so that it fails
// with -52000 rather than wrapping around to a short block.
constexpr uint64_t kLargestIndexCount = 0x1FC0000000000000ull;

uint64_t indexBufferBytes(uint64_t count) noexcept {
    return count > kLargestIndexCount ? UINT64_MAX : count * sizeof(uint32_t);
}

// Copies the name of every index into the Host's array, stopping at the first error. The
// status holds no error on entry.
void storeNames(const uint32_t* indexes, uint64_t count, iHostCallbacks& table, void*** array,
                tStatus& status) noexcept {
    for (uint64_t i = 0; i < count; ++i) {
        const char* name = nullptr;
        status.setCode(BrennDll_GetResourceName(indexes[i], &name), kEntryPointsFile, kResourceNameLine);
        if (status.isError()) return;
        if (name == nullptr) {
            // A success without a name is treated like a failure of that name.
            status.setCode(kStatusInvalidArgument, kEntryPointsFile, kResourceNameLine);
            return;
        }
        // The name belongs to the FPGA interface library; the Host gets a copy of its own.
        const size_t length = std::strlen(name);
        char* copy = static_cast<char*>(allocate(length + 1));
        if (copy == nullptr) {
            status.setCode(kStatusMemoryFull, kStlStatusFile, kStlStatusLine);
            return;
        }
        std::memcpy(copy, name, length + 1);
        StoreHostString(table, tHostStringSource{copy, length}, array, static_cast<uint32_t>(i), status);
        deallocate(copy);
        if (status.isError()) return;
    }
}

// The enumeration proper, under the registry lock; `session` has its flag bits cleared.
int32_t enumerateResources(uint32_t session, void** stringArray) noexcept {
    tStatus status;
    size_t count = 0;
    status.setCode(BrennDll_GetSessionIndexes(session, nullptr, 0, &count), kEntryPointsFile, kSizeQueryLine);
    // Only the size-query answer goes on; success, a warning or any other error ends here
    // with the Host's array untouched.
    if (status.code != kStatusSizeQueryAnswer) return status.code32();
    status.clear();

    auto* indexes = static_cast<uint32_t*>(allocateWithStatus(indexBufferBytes(count), status));
    if (indexes == nullptr || status.isError()) {
        deallocate(indexes);
        return status.code32();
    }
    status.setCode(BrennDll_GetSessionIndexes(session, indexes, count, nullptr), kEntryPointsFile, kSessionIndexesLine);

    tNoReallyCallIntoHostCallbacks table(status);
    const uint32_t hostCount = narrowToU32(count, status);
    // The resize sees the address of this call's own copy of the handle; the Host keeps its
    // handle across a resize, so the copy stays the Host's handle.
    ResizeHostStringArray(table, &stringArray, hostCount, status);
    if (!status.isError()) storeNames(indexes, count, table, &stringArray, status);

    deallocate(indexes);
    return status.code32();
}

}  // namespace

extern "C" int32_t Quorvane_GetResources(uint32_t session, void** stringArray) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (hostBlock(stringArray) == nullptr) return kStatusInvalidArgument;
    tSharedLock shared(gRegistryLock);
    return enumerateResources(session & ~kQuorvaneSessionFlagNibble, stringArray);
}
