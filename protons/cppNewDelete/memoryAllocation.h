// The library's own memory: every record, container node, lock and buffer it keeps comes from
// here. Host memory never does (it comes from the Host's functions).
//
// None of these functions keeps state or throws; all may be called from any thread.
#pragma once

#include <cstdint>
#include <new>
#include <utility>

#include "protons/status/stlStatus.h"

namespace quorvane {

// Source location of a failed allocateWithStatus.
inline constexpr const char kMemoryFile[] = "quarks/memory";
inline constexpr uint64_t kMemoryLine = 416;

// `size` uninitialised bytes from the heap, or nullptr. Reports nothing. (alloc_size tells the
// compiler the block's size, so that copies into it are checked in fortified builds.)
void* allocate(uint64_t size) noexcept __attribute__((alloc_size(1)));
// Nothing (nullptr) when `status` already holds an error; otherwise `size` bytes, or nullptr
// with -52000 at quarks/memory:416 merged into `status`. Callers test the pointer.
void* allocateWithStatus(uint64_t size, tStatus& status) noexcept __attribute__((alloc_size(1)));
// Returns a block from either allocation function; nullptr is ignored.
void deallocate(void* block) noexcept;

// Array requests: count × elementSize, or the largest size when the product overflows, so
// that the request fails instead of returning a short block.
constexpr uint64_t arrayBytes(uint64_t count, uint64_t elementSize) noexcept {
    return elementSize != 0 && count > UINT64_MAX / elementSize ? UINT64_MAX : count * elementSize;
}

// Allocates with status and builds a T in place from `args` (T's constructor must not throw).
template <class T, class... Args>
T* newWithStatus(tStatus& status, Args&&... args) noexcept {
    void* block = allocateWithStatus(sizeof(T), status);
    return block == nullptr ? nullptr : new (block) T(std::forward<Args>(args)...);
}

// Destroys and frees an object made by newWithStatus; nullptr is ignored.
template <class T>
void deleteObject(T* object) noexcept {
    if (object == nullptr) return;
    object->~T();
    deallocate(object);
}

}  // namespace quorvane
