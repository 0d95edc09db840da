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
constexpr uint64_t kMostAllocationsTried = 500;

// Runs `scenario` with its 1st, 2nd, ... allocation failing until a run meets no failure.
// `scenario` returns whether its container saw a failure. Nothing may stay allocated after
// any run.
template <class Scenario>
void failEachAllocationInTurn(Scenario scenario) {
    bool sawSuccessfulRun = false;
    for (uint64_t nth = 1; nth <= kMostAllocationsTried && !sawSuccessfulRun; ++nth) {
        SCOPED_TRACE(::testing::Message() << "allocation " << nth << " fails");
        const uint64_t liveAtStart = heap::liveBlocks();
        testing::failAllocation(nth);
        sawSuccessfulRun = !scenario();
        testing::stopFailingAllocations();
        EXPECT_EQ(heap::liveBlocks(), liveAtStart) << "blocks leaked";
    }
    EXPECT_TRUE(sawSuccessfulRun) << "the scenario never ran without a failure";
}

// The flag, read back both ways, matches what the operations returned.
void expectFlagMatches(const tAllocationFailureFlag& container, bool anyFailed) {
    EXPECT_EQ(container.allocationFailed(), anyFailed);
    tStatus status;
    EXPECT_EQ(container.reportInto(status), anyFailed);
    if (anyFailed) {
        EXPECT_EQ(status.code, kStatusMemoryFull);
        EXPECT_STREQ(status.component, "Quorvane");
        EXPECT_STREQ(status.file, "protons/status/stlStatus");
        EXPECT_EQ(status.line, 34u);
    } else {
        EXPECT_EQ(status.code, 0);
    }
}

TEST(ContainerAllocation, MapStaysConsistentWhenAnyInsertFails) {
    failEachAllocationInTurn([] {
        tMap<int, int> map;
        std::vector<int> present;
        for (int key = 0; key < kElements; ++key) {
            auto [value, inserted] = map.tryEmplace(key, key * 10);
            EXPECT_EQ(value != nullptr, inserted);
            if (value != nullptr) present.push_back(key);
        }
        const bool anyFailed = static_cast<int>(present.size()) < kElements;
        EXPECT_EQ(map.size(), present.size());
        for (int key : present) {
            int* value = map.find(key);
            EXPECT_TRUE(value != nullptr && *value == key * 10) << key;
        }
        // The flag is sticky: later successful inserts do not lower it.
        expectFlagMatches(map, anyFailed);
        return anyFailed;
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
    failEachAllocationInTurn([] {
        tDeque<Item> queue;
        std::vector<int> appended;
        for (int i = 0; i < kElements; ++i) {
            Item* item = queue.emplaceBack(Item{i, {}});
            if (item != nullptr) {
                EXPECT_EQ(item->sequence, i);
                appended.push_back(i);
            }
        }
        const bool anyFailed = static_cast<int>(appended.size()) < kElements;
        expectFlagMatches(queue, anyFailed);
        EXPECT_EQ(queue.size(), appended.size());
        for (int expected : appended) {
            EXPECT_EQ(queue.front().sequence, expected);
            queue.popFront();
        }
        EXPECT_TRUE(queue.empty());
        return anyFailed;
    });
}

TEST(ContainerAllocation, DequeAllocatesNothingUntilTheFirstAppend) {
    const uint64_t liveAtStart = heap::liveBlocks();
    testing::failAllocation(1, true);
    {
        tDeque<Item> queue;
        EXPECT_TRUE(queue.empty());
        EXPECT_EQ(queue.size(), 0u);
        EXPECT_EQ(heap::liveBlocks(), liveAtStart);
        EXPECT_EQ(queue.emplaceBack(Item{1, {}}), nullptr);
        EXPECT_TRUE(queue.allocationFailed());
        EXPECT_TRUE(queue.empty());
    }
    testing::stopFailingAllocations();
    EXPECT_EQ(heap::liveBlocks(), liveAtStart);
}

TEST(ContainerAllocation, DequeTakesElementsOffBothEnds) {
    tDeque<Item> queue;
    for (int i = 0; i < 3; ++i) ASSERT_NE(queue.emplaceBack(Item{i, {}}), nullptr);
    queue.popBack();
    EXPECT_EQ(queue.back().sequence, 1);
    queue.popFront();
    EXPECT_EQ(queue.front().sequence, 1);
    EXPECT_EQ(queue.size(), 1u);
}

TEST(ContainerAllocation, ListKeepsInsertionOrderWhenAnyPushFails) {
    failEachAllocationInTurn([] {
        tList<int> list;
        std::vector<int> pushed;
        for (int i = 0; i < kElements; ++i) {
            if (list.pushBack(i)) pushed.push_back(i);
        }
        const bool anyFailed = static_cast<int>(pushed.size()) < kElements;
        expectFlagMatches(list, anyFailed);
        EXPECT_EQ(std::vector<int>(list.items().begin(), list.items().end()), pushed);
        if (!pushed.empty()) {
            EXPECT_TRUE(list.removeFirst(pushed.front()));
            EXPECT_FALSE(list.removeFirst(pushed.front()));
        }
        return anyFailed;
    });
}

TEST(ContainerAllocation, VectorKeepsItsElementsWhenGrowingFails) {
    failEachAllocationInTurn([] {
        tVector<uint64_t> vector;
        std::vector<uint64_t> pushed;
        for (int i = 0; i < kElements; ++i) {
            if (vector.pushBack(static_cast<uint64_t>(i) * 3)) pushed.push_back(static_cast<uint64_t>(i) * 3);
        }
        const bool anyFailed = static_cast<int>(pushed.size()) < kElements;
        expectFlagMatches(vector, anyFailed);
        EXPECT_EQ(vector.size(), pushed.size());
        for (std::size_t i = 0; i < pushed.size() && i < vector.size(); ++i) EXPECT_EQ(vector[i], pushed[i]);
        return anyFailed;
    });
}

TEST(ContainerAllocation, ImpossibleVectorSizesRaiseTheFlagInsteadOfThrowing) {
    const uint64_t liveAtStart = heap::liveBlocks();
    {
        tVector<uint64_t> vector;
        ASSERT_TRUE(vector.resize(4));
        // Beyond the container's maximum: the standard container throws length_error.
        EXPECT_FALSE(vector.resize(SIZE_MAX));
        EXPECT_TRUE(vector.allocationFailed());
        // Within the maximum but beyond any heap: the heap refuses.
        tVector<uint64_t> other;
        EXPECT_FALSE(other.resize(other.items().max_size()));
        EXPECT_TRUE(other.allocationFailed());
        EXPECT_EQ(vector.size(), 4u);
        EXPECT_EQ(other.size(), 0u);
    }
    EXPECT_EQ(heap::liveBlocks(), liveAtStart);
}

TEST(ContainerAllocation, EveryLaterOperationFailsUnderAStickyPlan) {
    const uint64_t liveAtStart = heap::liveBlocks();
    {
        tList<int> list;
        ASSERT_TRUE(list.pushBack(1));
        testing::failAllocation(2, true);
        EXPECT_TRUE(list.pushBack(2));
        EXPECT_FALSE(list.pushBack(3));
        EXPECT_FALSE(list.pushBack(4));
        testing::stopFailingAllocations();
        EXPECT_EQ(list.size(), 2u);
        EXPECT_TRUE(list.allocationFailed());
    }
    EXPECT_EQ(heap::liveBlocks(), liveAtStart);
}

TEST(ContainerAllocation, AllocatorRefusesOverflowingElementCounts) {
    tStlAllocator<uint64_t> allocator;
    EXPECT_THROW((void)allocator.allocate(SIZE_MAX / 2), std::bad_alloc);
    uint64_t* block = allocator.allocate(3);
    ASSERT_NE(block, nullptr);
    allocator.deallocate(block, 3);
    EXPECT_TRUE(allocator == tStlAllocator<int>());
}

}  // namespace
}  // namespace quorvane
