// The data pattern of a FIFO: element i holds the little-endian bytes of start + i * step
// (modulo 2^64), cut to the element size. The demo checks what it reads against it and writes
// it, so the target can check what arrives.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorvane::tools {

struct Pattern {
    uint64_t start = 0;
    uint64_t step = 1;

    uint64_t valueAt(uint64_t index) const noexcept { return start + index * step; }
};

// Compares `count` elements of type `typeCode` at `data` with the pattern's elements from
// `index` on; answers how many differ. An unknown type code counts every element as wrong.
uint64_t countMismatches(uint32_t typeCode, const void* data, size_t count, const Pattern& pattern,
                         uint64_t index) noexcept;
// Writes the pattern's elements from `index` on into `count` elements at `data`.
void fillPattern(uint32_t typeCode, void* data, size_t count, const Pattern& pattern, uint64_t index) noexcept;

}  // namespace quorvane::tools
