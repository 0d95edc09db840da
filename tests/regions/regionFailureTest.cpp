// Acquisitions that fail part-way leave no region half-made and nothing leaked.
#include "quarks/memory.h"
#include "regionTestSupport.h"

namespace quorvane::testing {
namespace {

struct HostFailure {
    int32_t hostResult;
    int32_t status;
};

void PrintTo(const HostFailure& c, std::ostream* os) {
    *os << "host" << c.hostResult;
}

class RegionHostFailure : public RegionTest, public ::testing::WithParamInterface<HostFailure> {};

TEST_P(RegionHostFailure, FailedReferenceLeavesNoRegionQueued) {
    HostSim_FailNext("EDVR_CreateReference", GetParam().hostResult);
    const uint32_t reference = acquire(session, 1, 4, GetParam().status);
    EXPECT_EQ(reference, 0u);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_ReleaseFifoElements"), 0u) << "the elements stay acquired";
    EXPECT_EQ(Quorvane_Close(session, 0), 0) << "nothing is outstanding";
}

TEST_P(RegionHostFailure, RefusedAbortRegistrationCallsNoLibraryFunction) {
    HostSim_FailNext("RTSetCleanupProc", GetParam().hostResult);
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    EXPECT_EQ(Quorvane_AcquireFifoReadRegionScalar(session, 1, &reference, 4, kU32, 0, 0, &acquired, &remaining),
              GetParam().status);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_AcquireFifoReadElementsU32"), 0u);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u);
    EXPECT_EQ(Quorvane_Close(session, 0), 0) << "the acquire mutex was not left locked";
}

INSTANTIATE_TEST_SUITE_P(Results, RegionHostFailure,
                         ::testing::Values(HostFailure{2, -52000}, HostFailure{41, -50405}, HostFailure{9, -52003}));

class RegionAllocationFailure : public RegionTest {
protected:
    void TearDown() override { stopFailingAllocations(); }
};

// Fails each allocation of a first acquisition on a new FIFO in turn, until one succeeds;
// after every failure the session still closes and every block is given back.
TEST_F(RegionAllocationFailure, EveryAllocationOfAFirstAcquisitionCanFailCleanly) {
    ASSERT_EQ(Quorvane_Close(session, 0), 0);
    const uint64_t blocksBefore = heap::liveBlocks();
    session = openSession();
    bool succeeded = false;
    for (uint64_t nth = 1; nth < 50 && !succeeded; ++nth) {
        failAllocation(nth);
        scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {4, 0});
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        const int32_t status = Quorvane_AcquireFifoReadRegionScalar(session, static_cast<uint32_t>(nth), &reference, 4,
                                                                    kU32, 0, 0, &acquired, &remaining);
        stopFailingAllocations();
        if (status == 0) {
            succeeded = true;
            HostSim_DeleteReference(reference);
        } else {
            EXPECT_EQ(status, -52000) << "allocation " << nth;
            EXPECT_EQ(reference, 0u);
        }
        // A session whose FIFO map once ran out of memory stays refused: start afresh.
        EXPECT_EQ(Quorvane_Close(session, 0), 0);
        session = openSession();
    }
    EXPECT_TRUE(succeeded);
    HostSim_RunProgramStop();
    EXPECT_EQ(registeredSessionCount(), 0u);
    EXPECT_EQ(heap::liveBlocks(), blocksBefore);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
}

}  // namespace
}  // namespace quorvane::testing
