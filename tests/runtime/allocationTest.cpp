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

TEST_F(Allocation, BlocksAreCountedWhileLive) {
    void* first = allocate(64);
    void* second = allocate(0);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(heap::liveBlocks(), liveAtStart_ + 2);
    deallocate(first);
    deallocate(second);
    deallocate(nullptr);
    EXPECT_EQ(heap::liveBlocks(), liveAtStart_);
}

TEST_F(Allocation, WithStatusHoldingAnErrorTouchesNoHeap) {
    tStatus status;
    status.setCode(kStatusInvalidArgument, "earlier", 3);
    const uint64_t requests = testing::allocationRequests();
    EXPECT_EQ(allocateWithStatus(16, status), nullptr);
    EXPECT_EQ(testing::allocationRequests(), requests);
    EXPECT_EQ(status.code, kStatusInvalidArgument);
    EXPECT_STREQ(status.file, "earlier");
}

TEST_F(Allocation, WithStatusHoldingAWarningAllocatesAndKeepsTheWarning) {
    tStatus status;
    status.setCode(63, "earlier", 3);
    void* block = allocateWithStatus(16, status);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(status.code, 63);
    EXPECT_STREQ(status.file, "earlier");
    deallocate(block);
}

TEST_F(Allocation, FailedRequestReportsMemoryFullOverAWarning) {
    tStatus status;
    status.setCode(63, "earlier", 3);
    testing::failAllocation(1);
    EXPECT_EQ(allocateWithStatus(16, status), nullptr);
    expectMemoryFullAtAllocationSite(status);
}

TEST_F(Allocation, OverflowedArraySizeFailsInsteadOfReturningAShortBlock) {
    tStatus status;
    EXPECT_EQ(arrayBytes(UINT64_MAX / 2, 4), UINT64_MAX);
    EXPECT_EQ(arrayBytes(3, 4), 12u);
    EXPECT_EQ(arrayBytes(5, 0), 0u);
    EXPECT_EQ(allocateWithStatus(arrayBytes(UINT64_MAX / 2, 4), status), nullptr);
    expectMemoryFullAtAllocationSite(status);
}

// ---- the failure switch -----------------------------------------------------------------------

struct FailurePlan {
    uint64_t nth;
    bool andAfter;
    int attempts;
};

class FailureSwitch : public Allocation, public ::testing::WithParamInterface<FailurePlan> {};

bool planFails(const FailurePlan& plan, int attempt) {
    const auto n = static_cast<uint64_t>(attempt);
    return plan.nth != 0 && (n == plan.nth || (plan.andAfter && n > plan.nth));
}

TEST_P(FailureSwitch, FailsExactlyThePlannedRequestsThroughAllocate) {
    const FailurePlan plan = GetParam();
    testing::failAllocation(plan.nth, plan.andAfter);
    for (int attempt = 1; attempt <= plan.attempts; ++attempt) {
        const uint64_t requests = testing::allocationRequests();
        void* block = allocate(8);
        EXPECT_EQ(testing::allocationRequests(), requests + 1) << "failed requests count too";
        EXPECT_EQ(block == nullptr, planFails(plan, attempt)) << "attempt " << attempt;
        deallocate(block);
    }
}

TEST_P(FailureSwitch, FailsExactlyThePlannedRequestsThroughAllocateWithStatus) {
    const FailurePlan plan = GetParam();
    testing::failAllocation(plan.nth, plan.andAfter);
    for (int attempt = 1; attempt <= plan.attempts; ++attempt) {
        tStatus status;
        void* block = allocateWithStatus(8, status);
        const bool failed = planFails(plan, attempt);
        EXPECT_EQ(block == nullptr, failed) << "attempt " << attempt;
        EXPECT_EQ(status.code, failed ? kStatusMemoryFull : 0) << "attempt " << attempt;
        deallocate(block);
    }
}

INSTANTIATE_TEST_SUITE_P(Plans, FailureSwitch,
                         ::testing::Values(FailurePlan{0, false, 4}, FailurePlan{1, false, 4}, FailurePlan{3, false, 5},
                                           FailurePlan{2, true, 5}, FailurePlan{1, true, 3}));

TEST_F(Allocation, StopFailingSwitchesAStickyPlanOff) {
    testing::failAllocation(1, true);
    EXPECT_EQ(allocate(8), nullptr);
    EXPECT_EQ(allocate(8), nullptr);
    testing::stopFailingAllocations();
    void* block = allocate(8);
    EXPECT_NE(block, nullptr);
    deallocate(block);
}

TEST_F(Allocation, NthCountsFromWhenThePlanIsMade) {
    void* before = allocate(8);
    testing::failAllocation(2);
    void* first = allocate(8);
    void* second = allocate(8);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    deallocate(before);
    deallocate(first);
}

// ---- objects built in place -------------------------------------------------------------------

struct Tracked {
    explicit Tracked(int* destroyed) noexcept : destroyed_(destroyed) {}
    ~Tracked() { ++*destroyed_; }
    int* destroyed_;
};

TEST_F(Allocation, NewWithStatusBuildsAndDeleteObjectDestroysAndFrees) {
    int destroyed = 0;
    tStatus status;
    Tracked* object = newWithStatus<Tracked>(status, &destroyed);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(heap::liveBlocks(), liveAtStart_ + 1);
    deleteObject(object);
    EXPECT_EQ(destroyed, 1);
    deleteObject<Tracked>(nullptr);
    EXPECT_EQ(destroyed, 1);
}

TEST_F(Allocation, NewWithStatusBuildsNothingWhenMemoryFails) {
    int destroyed = 0;
    tStatus status;
    testing::failAllocation(1);
    EXPECT_EQ(newWithStatus<Tracked>(status, &destroyed), nullptr);
    expectMemoryFullAtAllocationSite(status);
}

}  // namespace
}  // namespace quorvane
