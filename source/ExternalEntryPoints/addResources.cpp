// Adding resources: the Host's array of strings handed to the FPGA interface library as
// NUL-terminated names.
//
// The Host's strings carry a length and no terminator, so every one is copied into storage of
// this call, and the FPGA interface library gets pointers to the copies. The copies live only
// until that call returns; the FPGA interface library keeps copies of its own. The Host's array
// is only read. No lock is taken and the handle is passed on exactly as given.
#include <cstring>
#include <utility>

#include "BrennDll.h"
#include "ExternalEntryPoints/entryPointLocations.h"
#include "MoskSrv/_MoskHostDefs.h"
#include "Quorvane.h"
#include "protons/cppNewDelete/memoryAllocation.h"
#include "protons/status/stlContainers.h"

using namespace quorvane;

namespace {

// One name: the Host string's characters followed by a NUL, in storage from `allocate`.
class tNameCopy {
public:
    tNameCopy() noexcept = default;
    tNameCopy(tNameCopy&& other) noexcept : characters_(std::exchange(other.characters_, nullptr)) {}
    tNameCopy& operator=(tNameCopy&& other) noexcept {
        std::swap(characters_, other.characters_);
        return *this;
    }
    ~tNameCopy() { deallocate(characters_); }

    // Copies `length` bytes whatever they are (an embedded NUL included) and appends a NUL.
    // False when no storage could be had.
    bool assign(const uint8_t* bytes, size_t length) noexcept {
        auto* storage = static_cast<char*>(allocate(uint64_t{length} + 1));
        if (storage == nullptr) return false;
        std::memcpy(storage, bytes, length);
        storage[length] = '\0';
        deallocate(std::exchange(characters_, storage));
        return true;
    }
    const char* characters() const noexcept { return characters_; }

private:
    char* characters_ = nullptr;
};

// The block of element `index` of a Host array of strings, or nullptr when the element handle
// or its block pointer is null.
const uint8_t* stringBlockAt(const uint8_t* arrayBlock, uint32_t index) noexcept {
    void** element;
    std::memcpy(&element, arrayBlock + 8 + 8 * static_cast<size_t>(index), sizeof element);
    return hostBlock(element);
}

// Fills `copies` and `pointers` from the Host's strings; stops at the first failure.
void copyNames(const uint8_t* arrayBlock, uint32_t count, tVector<tNameCopy>& copies, const char** pointers,
               tStatus& status) noexcept {
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t* block = stringBlockAt(arrayBlock, i);
        int32_t length = 0;
        if (block != nullptr) std::memcpy(&length, block, sizeof length);
        // A missing string, or a length no string can have, cannot be copied. Only the code
        // reaches the Host; no line of the FPGA interface library's results is involved.
        if (block == nullptr || length < 0) {
            status.setCode(kStatusInvalidArgument, kEntryPointsFile, 0);
            return;
        }
        if (!copies[i].assign(block + 4, static_cast<size_t>(length))) {
            status.setCode(kStatusMemoryFull, kStlStatusFile, kStlStatusLine);
            return;
        }
        pointers[i] = copies[i].characters();
    }
}

}  // namespace

extern "C" int32_t Quorvane_AddResources(uint32_t session, void** stringArray, const void* arg3,
                                         const void* arg4) noexcept {
    const uint8_t* arrayBlock = hostBlock(stringArray);
    if (arrayBlock == nullptr) return kStatusInvalidArgument;

    tStatus status;
    // A negative dimension size is no array a Host can make. Read as an unsigned count it would
    // ask for gigabytes of pointers and then read billions of elements past the Host's block,
    // so it is refused like a negative string length.
    const int32_t dimension = readHostCount(stringArray);
    if (dimension < 0) return kStatusInvalidArgument;
    const auto count = static_cast<uint32_t>(dimension);

    const char** pointers = nullptr;  // stays null for an empty array
    if (count != 0) {
        pointers = static_cast<const char**>(allocate(arrayBytes(count, sizeof(const char*))));
        if (pointers == nullptr) return kStatusMemoryFull;
        for (uint32_t i = 0; i < count; ++i) pointers[i] = nullptr;
    }

    int32_t result = 0;
    bool called = false;
    {
        tVector<tNameCopy> copies;
        if (!copies.resize(count)) copies.reportInto(status);
        if (!status.isError()) copyNames(arrayBlock, count, copies, pointers, status);
        if (!status.isError()) {
            result = BrennDll_AddResources(session, pointers, arg3, arg4, count);
            called = true;
        }
    }  // every copy and the list go here, before the pointers that name them

    deallocate(pointers);
    // The FPGA interface library's result reaches the Host exactly as it was given.
    return called ? result : status.code32();
}
