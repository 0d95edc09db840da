// The heap underneath the library's allocation functions, with a switch for tests that makes
// chosen allocations fail. The switch is process-wide and off by default; when off it costs
// one relaxed atomic load per allocation.
#pragma once

#include <cstdint>

namespace quorvane::heap {

void* obtain(uint64_t size) noexcept;
void give(void* block) noexcept;

// Blocks obtained and not yet given back (all threads).
uint64_t liveBlocks() noexcept;

}  // namespace quorvane::heap

namespace quorvane::testing {

// Makes the `nth` allocation from now fail (1 = the very next one); when `andAfter` is true,
// every later one fails too. 0 switches failures off.
void failAllocation(uint64_t nth, bool andAfter = false) noexcept;
// Switches failures off.
void stopFailingAllocations() noexcept;
// Allocation requests made since the process started (successful or not).
uint64_t allocationRequests() noexcept;

}  // namespace quorvane::testing
