#include "protons/cppNewDelete/memoryAllocation.h"

#include "quarks/memory.h"

namespace quorvane {

void* allocate(uint64_t size) noexcept {
    return heap::obtain(size);
}

void* allocateWithStatus(uint64_t size, tStatus& status) noexcept {
    if (status.isError()) return nullptr;
    void* block = heap::obtain(size);
    if (block == nullptr) status.setCode(kStatusMemoryFull, kMemoryFile, kMemoryLine);
    return block;
}

void deallocate(void* block) noexcept {
    heap::give(block);
}

}  // namespace quorvane
