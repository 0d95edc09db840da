// The library's containers under allocation failure: every allocation is made to fail in
// turn; the container must raise its sticky flag, stay consistent, and leak nothing.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "protons/status/stlContainers.h"
#include "quarks/memory.h"

namespace quorvane {
namespace {

constexpr int kElements = 40;

// Runs `fill` with its 1st, 2nd, ... allocation failing until a run meets no failure. `fill`
// adds kElements and returns how many went in; the flag must say whether any did not, even
// after later additions succeeded. Nothing may stay allocated after any run.
template <class Container, class Fill>
void failEachAllocationInTurn(Fill fill) {
    bool sawSuccessfulRun = false;
    for (uint64_t nth = 1; nth <= 500 && !sawSuccessfulRun; ++nth) {
        SCOPED_TRACE(::testing::Message() << "allocation " << nth << " fails");
        const uint64_t liveAtStart = heap::liveBlocks();
        testing::failAllocation(nth);
        {
            Container container;
            const bool anyFailed = fill(container) < kElements;
            testing::stopFailingAllocations();
            EXPECT_EQ(container.allocationFailed(), anyFailed);
            tStatus status;
            EXPECT_EQ(container.reportInto(status), anyFailed);
            EXPECT_EQ(status.code, anyFailed ? kStatusMemoryFull : 0);
            if (anyFailed) {
                EXPECT_STREQ(status.file, "protons/status/stlStatus");
                EXPECT_EQ(status.line, 34u);
            }
            sawSuccessfulRun = !anyFailed;
        }
        EXPECT_EQ(heap::liveBlocks(), liveAtStart) << "blocks leaked";
    }
    EXPECT_TRUE(sawSuccessfulRun) << "the scenario never ran without a failure";
}

TEST(ContainerAllocation, MapKeepsEveryInsertedKeyWhenAnyInsertFails) {
    failEachAllocationInTurn<tMap<int, int>>([](tMap<int, int>& map) {
        std::vector<int> present;
        for (int key = 0; key < kElements; ++key) {
            auto [value, inserted] = map.tryEmplace(key, key * 10);
            EXPECT_EQ(value != nullptr, inserted);
            if (value != nullptr) present.push_back(key);
        }
        EXPECT_EQ(map.size(), present.size());
        for (int key : present) {
            int* value = map.find(key);
            EXPECT_TRUE(value != nullptr && *value == key * 10) << key;
        }
        return static_cast<int>(present.size());
    });
}

TEST(ContainerAllocation, MapFindsAnExistingKeyWithoutAllocating) {
    tMap<int, int> map;
    ASSERT_TRUE(map.tryEmplace(1, 5).second);
    testing::failAllocation(1, true);
    auto [value, inserted] = map.tryEmplace(1, 6);
    testing::stopFailingAllocations();
    ASSERT_NE(value, nullptr);
    EXPECT_FALSE(inserted);
    EXPECT_EQ(*value, 5);
    EXPECT_FALSE(map.allocationFailed());
    EXPECT_TRUE(map.erase(1));
    EXPECT_FALSE(map.erase(1));
    EXPECT_TRUE(map.empty());
}

struct Item {
    int sequence;
    char payload[60];
};

TEST(ContainerAllocation, DequeKeepsOrderWhenAnyAppendFails) {
    failEachAllocationInTurn<tDeque<Item>>([](tDeque<Item>& queue) {
        std::vector<int> appended;
        for (int i = 0; i < kElements; ++i) {
            Item* item = queue.emplaceBack(Item{i, {}});
            if (item == nullptr) continue;
            EXPECT_EQ(item->sequence, i);
            appended.push_back(i);
        }
        EXPECT_EQ(queue.size(), appended.size());
        for (int expected : appended) {
            EXPECT_EQ(queue.front().sequence, expected);
            queue.popFront();
        }
        EXPECT_TRUE(queue.empty());
        return static_cast<int>(appended.size());
    });
}

TEST(ContainerAllocation, DequeAllocatesNothingUntilTheFirstAppendAndPopsBothEnds) {
    const uint64_t liveAtStart = heap::liveBlocks();
    testing::failAllocation(1, true);
    {
        tDeque<Item> queue;
        EXPECT_EQ(heap::liveBlocks(), liveAtStart);
        EXPECT_EQ(queue.emplaceBack(Item{1, {}}), nullptr);
        EXPECT_TRUE(queue.allocationFailed());
        EXPECT_TRUE(queue.empty());
        testing::stopFailingAllocations();
        for (int i = 0; i < 3; ++i) ASSERT_NE(queue.emplaceBack(Item{i, {}}), nullptr);
        queue.popBack();
        EXPECT_EQ(queue.back().sequence, 1);
        queue.popFront();
        EXPECT_EQ(queue.front().sequence, 1);
        EXPECT_EQ(queue.size(), 1u);
    }
    EXPECT_EQ(heap::liveBlocks(), liveAtStart);
}

TEST(ContainerAllocation, ListKeepsInsertionOrderWhenAnyPushFails) {
    failEachAllocationInTurn<tList<int>>([](tList<int>& list) {
        std::vector<int> pushed;
        for (int i = 0; i < kElements; ++i) {
            if (list.pushBack(i)) pushed.push_back(i);
        }
        EXPECT_EQ(std::vector<int>(list.items().begin(), list.items().end()), pushed);
        if (!pushed.empty()) {
            EXPECT_TRUE(list.removeFirst(pushed.front()));
            EXPECT_FALSE(list.removeFirst(pushed.front()));
        }
        return static_cast<int>(pushed.size());
    });
}

TEST(ContainerAllocation, VectorKeepsItsElementsWhenGrowingFails) {
    failEachAllocationInTurn<tVector<uint64_t>>([](tVector<uint64_t>& vector) {
        std::vector<uint64_t> pushed;
        for (uint64_t i = 0; i < kElements; ++i) {
            if (vector.pushBack(i * 3)) pushed.push_back(i * 3);
        }
        EXPECT_EQ(std::vector<uint64_t>(vector.items().begin(), vector.items().end()), pushed);
        return static_cast<int>(pushed.size());
    });
}

TEST(ContainerAllocation, ImpossibleSizesRaiseTheFlagInsteadOfThrowing) {
    const uint64_t liveAtStart = heap::liveBlocks();
    {
        tVector<uint64_t> vector;
        ASSERT_TRUE(vector.resize(4));
        // Beyond the container's maximum: the standard container throws length_error.
        EXPECT_FALSE(vector.resize(SIZE_MAX));
        EXPECT_TRUE(vector.allocationFailed());
        EXPECT_EQ(vector.size(), 4u);
        // Within the maximum but beyond any heap: the heap refuses.
        tVector<uint64_t> other;
        EXPECT_FALSE(other.resize(other.items().max_size()));
        EXPECT_TRUE(other.allocationFailed());
        EXPECT_EQ(other.size(), 0u);
    }
    EXPECT_EQ(heap::liveBlocks(), liveAtStart);

    tStlAllocator<uint64_t> allocator;
    EXPECT_THROW((void)allocator.allocate(SIZE_MAX / 2), std::bad_alloc);
    uint64_t* block = allocator.allocate(3);
    ASSERT_NE(block, nullptr);
    allocator.deallocate(block, 3);
    EXPECT_TRUE(allocator == tStlAllocator<int>());
}

}  // namespace
}  // namespace quorvane
