// Handles and blocks of the simulated Host: NumericArrayResize, DSNewHandle and the handle
// helpers of the control interface.
//
// Every block is allocated at exactly its size, and a resize always moves the block, even when
// the size stays the same. A caller that keeps a block pointer across a resize, or writes past
// the element count it asked for, touches freed or unallocated memory, which the address
// sanitizer reports at the faulty access. A block from DSNewHandle holds garbage, as a real
// Host's may, so a caller that forgets a string's NUL is seen; arrays grow with zeros, since
// element handles the caller has not set yet must read as none.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "HostInternal.h"
#include "HostSim.h"

namespace hostsim {
namespace {

// Where the elements of a one-dimensional numeric array start, and how large each one is.
struct ArrayLayout {
    size_t header;
    size_t elementSize;
};

std::optional<ArrayLayout> layoutOf(int32_t typeCode) noexcept {
    switch (typeCode) {
        case 1:
        case 5:
            return ArrayLayout{4, 1};
        case 2:
        case 6:
            return ArrayLayout{4, 2};
        case 3:
        case 7:
            return ArrayLayout{4, 4};
        case 4:
        case 8:
            // 8-byte elements are aligned: four bytes of padding follow the dimension size.
            return ArrayLayout{8, 8};
        default:
            return std::nullopt;
    }
}

// The block size of an array of `count` elements, or none when it cannot be represented (the
// dimension size is an int32, and the product must not wrap).
std::optional<size_t> arrayBlockSize(const ArrayLayout& layout, size_t count) noexcept {
    if (count > static_cast<size_t>(INT32_MAX)) return std::nullopt;
    if (count > (SIZE_MAX - layout.header) / layout.elementSize) return std::nullopt;
    return layout.header + count * layout.elementSize;
}

void writeDimension(void* block, size_t count) noexcept {
    const auto dimension = static_cast<int32_t>(count);
    std::memcpy(block, &dimension, sizeof dimension);
}

// Live handles and the exact size of each one's block (0 for a handle without a block).
struct HandleTable {
    std::mutex mutex;
    std::unordered_map<void**, size_t> blockSizes;
};

HandleTable& handles() {
    static HandleTable* const instance = new HandleTable;
    return *instance;
}

// Takes ownership of `block` (may be null) under a new handle; frees it when no handle can be made.
void** adoptBlock(void* block, size_t blockSize) noexcept {
    auto** handle = static_cast<void**>(std::malloc(sizeof(void*)));
    if (handle == nullptr) {
        std::free(block);
        return nullptr;
    }
    *handle = block;
    try {
        std::lock_guard lock(handles().mutex);
        handles().blockSizes.emplace(handle, blockSize);
    } catch (...) {
        std::free(block);
        std::free(handle);
        return nullptr;
    }
    return handle;
}

void disposeHandle(void** handle) noexcept {
    if (handle == nullptr) return;
    {
        std::lock_guard lock(handles().mutex);
        if (handles().blockSizes.erase(handle) == 0) misuse("disposing a handle that is not live");
    }
    std::free(*handle);
    std::free(handle);
}

int32_t resize(int32_t typeCode, int32_t dimensions, void*** handle, size_t count) noexcept {
    const auto layout = layoutOf(typeCode);
    // The stand-in keeps one-dimensional arrays only; anything else is answered as a Host error.
    if (!layout || dimensions != 1 || handle == nullptr) return 1;
    const auto newSize = arrayBlockSize(*layout, count);
    if (!newSize) return kHostOutOfMemory;
    void* newBlock = std::calloc(1, *newSize);
    if (newBlock == nullptr) return kHostOutOfMemory;

    if (*handle == nullptr) {
        writeDimension(newBlock, count);
        void** made = adoptBlock(newBlock, *newSize);
        if (made == nullptr) return kHostOutOfMemory;
        *handle = made;
        return kHostNoError;
    }

    void* oldBlock = nullptr;
    {
        std::lock_guard lock(handles().mutex);
        const auto found = handles().blockSizes.find(*handle);
        if (found == handles().blockSizes.end()) misuse("NumericArrayResize on a handle that is not live");
        oldBlock = **handle;
        if (oldBlock != nullptr) std::memcpy(newBlock, oldBlock, std::min(found->second, *newSize));
        writeDimension(newBlock, count);
        **handle = newBlock;
        found->second = *newSize;
    }
    std::free(oldBlock);
    return kHostNoError;
}

}  // namespace

void** makeHandle(size_t blockSize, bool withBlock) noexcept {
    void* block = nullptr;
    if (withBlock) {
        block = std::calloc(1, blockSize);
        if (block == nullptr && blockSize != 0) return nullptr;
    }
    return adoptBlock(block, withBlock ? blockSize : 0);
}

}  // namespace hostsim

extern "C" int32_t NumericArrayResize(int32_t typeCode, int32_t dimensions, void*** handle, size_t count) {
    hostsim::countCall(hostsim::HostFunction::kNumericArrayResize);
    hostsim::noteResizeTypeCode(typeCode);
    if (const auto injected = hostsim::takeInjectedAnswer(hostsim::HostFunction::kNumericArrayResize)) {
        return *injected;
    }
    return hostsim::resize(typeCode, dimensions, handle, count);
}

#ifndef HOST_RUNTIME_WITHOUT_DSNEWHANDLE
// Left out of the variant that plays a Host whose process lacks this function.
extern "C" void** DSNewHandle(size_t size) {
    hostsim::countCall(hostsim::HostFunction::kDSNewHandle);
    if (const auto injected = hostsim::takeInjectedAnswer(hostsim::HostFunction::kDSNewHandle)) {
        return *injected == 0 ? nullptr : hostsim::makeHandle(0, false);
    }
    void** made = hostsim::makeHandle(size, true);
    if (made != nullptr && *made != nullptr) std::memset(*made, 0xA5, size);  // garbage, see above
    return made;
}
#endif

extern "C" void** HostSim_NewNumericArray(int32_t typeCode, size_t count) {
    const auto layout = hostsim::layoutOf(typeCode);
    if (!layout) return nullptr;
    const auto size = hostsim::arrayBlockSize(*layout, count);
    if (!size) return nullptr;
    void** handle = hostsim::makeHandle(*size, true);
    if (handle != nullptr) hostsim::writeDimension(*handle, count);
    return handle;
}

extern "C" void** HostSim_NewString(const char* characters, size_t length) {
    if (length > static_cast<size_t>(INT32_MAX) || (characters == nullptr && length != 0)) return nullptr;
    // Length, characters, and a NUL after them.
    void** handle = hostsim::makeHandle(length + 5, true);
    if (handle == nullptr) return nullptr;
    auto* block = static_cast<char*>(*handle);
    hostsim::writeDimension(block, length);
    if (length != 0) std::memcpy(block + 4, characters, length);
    return handle;
}

extern "C" void** HostSim_NewStringArray(const char* const* strings, size_t count) {
    if (strings == nullptr && count != 0) return nullptr;
    void** array = HostSim_NewNumericArray(8, count);
    if (array == nullptr) return nullptr;
    for (size_t i = 0; i < count; ++i) {
        if (strings[i] == nullptr) continue;  // the element stays a null handle
        void** element = HostSim_NewString(strings[i], std::strlen(strings[i]));
        if (element == nullptr) {
            HostSim_DisposeStringArray(array);
            return nullptr;
        }
        std::memcpy(static_cast<char*>(*array) + 8 + 8 * i, &element, sizeof element);
    }
    return array;
}

extern "C" void HostSim_DisposeHandle(void** handle) {
    hostsim::disposeHandle(handle);
}

extern "C" void HostSim_DisposeStringArray(void** handle) {
    if (handle == nullptr) return;
    const size_t blockSize = HostSim_BlockSize(handle);
    if (blockSize == SIZE_MAX) hostsim::misuse("disposing a string array that is not live");
    const auto* block = static_cast<const char*>(*handle);
    if (block != nullptr && blockSize >= 8) {
        // The dimension size says how many elements the array holds; the block bounds it, in
        // case a caller left a larger count than it resized for.
        int32_t dimension = 0;
        std::memcpy(&dimension, block, sizeof dimension);
        const size_t capacity = (blockSize - 8) / 8;
        const size_t count = dimension < 0 ? 0 : std::min(static_cast<size_t>(dimension), capacity);
        for (size_t i = 0; i < count; ++i) {
            void** element = nullptr;
            std::memcpy(&element, block + 8 + 8 * i, sizeof element);
            hostsim::disposeHandle(element);
        }
    }
    hostsim::disposeHandle(handle);
}

extern "C" size_t HostSim_LiveHandleCount(void) {
    std::lock_guard lock(hostsim::handles().mutex);
    return hostsim::handles().blockSizes.size();
}

extern "C" size_t HostSim_BlockSize(void** handle) {
    std::lock_guard lock(hostsim::handles().mutex);
    const auto found = hostsim::handles().blockSizes.find(handle);
    return found == hostsim::handles().blockSizes.end() ? SIZE_MAX : found->second;
}
