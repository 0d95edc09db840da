// Allocation with status, the failure switch of the heap, and nothing leaking when it fires.
#include <gtest/gtest.h>

#include "protons/cppNewDelete/memoryAllocation.h"
#include "quarks/memory.h"

namespace quorvane {
namespace {

// Every test starts and ends with failures off, and checks that what it made was given back.
class Allocation : public ::testing::Test {
protected:
    void SetUp() override {
        testing::stopFailingAllocations();
        liveAtStart_ = heap::liveBlocks();
    }
    void TearDown() override {
        testing::stopFailingAllocations();
        EXPECT_EQ(heap::liveBlocks(), liveAtStart_) << "blocks leaked";
    }
    uint64_t liveAtStart_ = 0;
};

void expectMemoryFullAtAllocationSite(const tStatus& status) {
    EXPECT_EQ(status.code, kStatusMemoryFull);
    EXPECT_STREQ(status.component, "Quorvane");
    EXPECT_STREQ(status.file, "quarks/memory");
    EXPECT_EQ(status.line, 416u);
}

TEST_F(Allocation, EarlierErrorTouchesNoHeapWhileAWarningAllocatesAndIsKept) {
    tStatus error;
    error.setCode(kStatusInvalidArgument, "earlier", 3);
    const uint64_t requests = testing::allocationRequests();
    EXPECT_EQ(allocateWithStatus(16, error), nullptr);
    EXPECT_EQ(testing::allocationRequests(), requests);
    EXPECT_EQ(error.code, kStatusInvalidArgument);

    tStatus warning;
    warning.setCode(63, "earlier", 3);
    void* block = allocateWithStatus(0, warning);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(heap::liveBlocks(), liveAtStart_ + 1);
    EXPECT_EQ(warning.code, 63);
    EXPECT_STREQ(warning.file, "earlier");
    deallocate(block);
    deallocate(nullptr);

    testing::failAllocation(1);
    EXPECT_EQ(allocateWithStatus(16, warning), nullptr);
    expectMemoryFullAtAllocationSite(warning);
}

TEST_F(Allocation, OverflowedArraySizeFailsInsteadOfReturningAShortBlock) {
    tStatus status;
    EXPECT_EQ(arrayBytes(UINT64_MAX / 2, 4), UINT64_MAX);
    EXPECT_EQ(arrayBytes(3, 4), 12u);
    EXPECT_EQ(arrayBytes(5, 0), 0u);
    // Not a constant: in the library such a count comes from the Host or the driver at run time.
    volatile uint64_t hugeCount = UINT64_MAX / 2;
    EXPECT_EQ(allocateWithStatus(arrayBytes(hugeCount, 4), status), nullptr);
    expectMemoryFullAtAllocationSite(status);
}

struct FailurePlan {
    uint64_t nth;
    bool andAfter;
    int attempts;
};

class FailureSwitch : public Allocation, public ::testing::WithParamInterface<FailurePlan> {};

// Alternates between the two entry points so both see planned and unplanned requests.
TEST_P(FailureSwitch, FailsExactlyThePlannedRequests) {
    const FailurePlan plan = GetParam();
    testing::failAllocation(plan.nth, plan.andAfter);
    for (int attempt = 1; attempt <= plan.attempts; ++attempt) {
        const auto n = static_cast<uint64_t>(attempt);
        const bool fails = plan.nth != 0 && (n == plan.nth || (plan.andAfter && n > plan.nth));
        const uint64_t requests = testing::allocationRequests();
        tStatus status;
        void* block = attempt % 2 != 0 ? allocate(8) : allocateWithStatus(8, status);
        EXPECT_EQ(testing::allocationRequests(), requests + 1) << "failed requests count too";
        EXPECT_EQ(block == nullptr, fails) << "attempt " << attempt;
        EXPECT_EQ(status.code, attempt % 2 == 0 && fails ? kStatusMemoryFull : 0) << "attempt " << attempt;
        deallocate(block);
    }
}

INSTANTIATE_TEST_SUITE_P(Plans, FailureSwitch,
                         ::testing::Values(FailurePlan{0, false, 4}, FailurePlan{1, false, 4}, FailurePlan{2, false, 4},
                                           FailurePlan{3, false, 5}, FailurePlan{2, true, 5}, FailurePlan{1, true, 3}));

TEST_F(Allocation, NthCountsFromThePlanAndStopFailingEndsAStickyPlan) {
    void* before = allocate(8);
    testing::failAllocation(2, true);
    void* first = allocate(8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(allocate(8), nullptr);
    EXPECT_EQ(allocate(8), nullptr);
    testing::stopFailingAllocations();
    void* after = allocate(8);
    EXPECT_NE(after, nullptr);
    deallocate(before);
    deallocate(first);
    deallocate(after);
}

struct Tracked {
    explicit Tracked(int* destroyed) noexcept : destroyed_(destroyed) {}
    ~Tracked() { ++*destroyed_; }
    int* destroyed_;
};

TEST_F(Allocation, NewWithStatusBuildsOnlyWhenMemoryIsThereAndDeleteObjectDestroys) {
    int destroyed = 0;
    tStatus status;
    Tracked* object = newWithStatus<Tracked>(status, &destroyed);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(heap::liveBlocks(), liveAtStart_ + 1);
    deleteObject(object);
    deleteObject<Tracked>(nullptr);
    EXPECT_EQ(destroyed, 1);

    testing::failAllocation(1);
    EXPECT_EQ(newWithStatus<Tracked>(status, &destroyed), nullptr);
    expectMemoryFullAtAllocationSite(status);
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace quorvane
