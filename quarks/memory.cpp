#include "quarks/memory.h"

#include <atomic>
#include <cstdlib>

namespace quorvane::heap {

namespace {

constexpr std::size_t kCacheLine = 64;

// No block the library needs comes near this size; larger requests only come from overflowed
// size computations (arrayBytes saturates to UINT64_MAX on purpose). They are refused here
// because some allocators, sanitizer runtimes among them, abort on such a request instead of
// returning null.
constexpr uint64_t kLargestBlock = uint64_t{1} << 39;

std::atomic<uint64_t> gRequests{0};
std::atomic<uint64_t> gLiveBlocks{0};

// The failure switch in one word so that readers never see half of an update: the request
// number that fails first, shifted left by one, with bit 0 set when every later request fails
// too. 0 means off.
std::atomic<uint64_t> gFailure{0};

bool injectedFailure(uint64_t requestNumber) noexcept {
    const uint64_t failure = gFailure.load(std::memory_order_relaxed);
    if (failure == 0) return false;
    const uint64_t first = failure >> 1;
    const bool andAfter = (failure & 1) != 0;
    return requestNumber == first || (andAfter && requestNumber > first);
}

}  // namespace

void* obtain(uint64_t size) noexcept {
    const uint64_t requestNumber = gRequests.fetch_add(1, std::memory_order_relaxed) + 1;
    if (injectedFailure(requestNumber) || size > kLargestBlock) return nullptr;
    // Every block starts a cache line: the library's blocks are few (records, FIFO states, their
    // mutexes and events, queue storage), and blocks made one after another for different
    // sessions shared lines that two streaming threads both wrote. Two threads on two sessions
    // reached 1.35x the region cycles of one, and 1.8x to 2.0x with this
    // (bench/regionCostBench.cpp; the driver and Host alone reach 1.9x to 2.0x). The size stays
    // exact, so the sanitizers still see an access past the end. A size of 0 asks for 1: such a
    // request may answer null, which callers read as "no memory".
    void* block = nullptr;
    if (posix_memalign(&block, kCacheLine, size == 0 ? 1 : static_cast<std::size_t>(size)) != 0) block = nullptr;
    if (block != nullptr) gLiveBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void give(void* block) noexcept {
    if (block == nullptr) return;
    gLiveBlocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
}

uint64_t liveBlocks() noexcept {
    return gLiveBlocks.load(std::memory_order_relaxed);
}

}  // namespace quorvane::heap

namespace quorvane::testing {

void failAllocation(uint64_t nth, bool andAfter) noexcept {
    if (nth == 0) {
        stopFailingAllocations();
        return;
    }
    const uint64_t first = heap::gRequests.load(std::memory_order_relaxed) + nth;
    heap::gFailure.store((first << 1) | (andAfter ? 1 : 0), std::memory_order_relaxed);
}

void stopFailingAllocations() noexcept {
    heap::gFailure.store(0, std::memory_order_relaxed);
}

uint64_t allocationRequests() noexcept {
    return heap::gRequests.load(std::memory_order_relaxed);
}

}  // namespace quorvane::testing
