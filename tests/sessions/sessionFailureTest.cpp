// Opens that fail part-way: whatever failed, nothing stays open, registered or allocated.
#include <gmock/gmock.h>

#include "Quorvane.h"
#include "Quorvane/sessionRegistry.h"
#include "quarks/memory.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

class SessionFailure : public SimulatedPlatformTest {
protected:
    void TearDown() override { stopFailingAllocations(); }

    // Nothing of a failed open may remain anywhere.
    static void expectNothingLeft() {
        EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
        EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
        EXPECT_EQ(sessionRegistry().recordCount(), 0u);
    }
};

TEST_F(SessionFailure, FailedTargetOpenReturnsItsCodeAndCallsNothingElse) {
    scriptAnswer("BrennDll_Open", -12345);
    Quorvane_ReserveIrqContext();
    uint32_t session = 0;
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -12345);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), 0u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_ReserveIrqContext"), 0u);
    expectNothingLeft();
}

TEST_F(SessionFailure, FailingReserveStopsTheRestRegistersAndClosesAgain) {
    for (int i = 0; i < 3; ++i) Quorvane_ReserveIrqContext();
    scriptAnswer("BrennDll_ReserveIrqContext", 0, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_ReserveIrqContext", -777);
    uint32_t session = 0;
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -777);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_ReserveIrqContext"), 2u);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), 2u) << "registered, then removed by the close";
    const auto closes = callsOf("BrennDll_Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].args[0], session);
    EXPECT_EQ(closes[0].args[1], 1u);
    expectNothingLeft();
}

TEST_F(SessionFailure, RefusedCleanupRegistrationGivesInternalErrorAndClosesTheHandle) {
    Quorvane_ReserveIrqContext();
    HostSim_RefuseNextProgramStopRegistration();
    uint32_t session = 0;
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -52003);
    const auto closes = callsOf("BrennDll_Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].args[1], 1u);
    expectNothingLeft();
}

TEST_F(SessionFailure, RefusedRegistrationKeepsAnEarlierReserveError) {
    Quorvane_ReserveIrqContext();
    scriptAnswer("BrennDll_ReserveIrqContext", -31);
    HostSim_RefuseNextProgramStopRegistration();
    uint32_t session = 0;
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -31);
    expectNothingLeft();
}

// The record's lock is the second allocation of a registration (the map node is the first):
// its failure drops the record, and the registry stays usable.
TEST_F(SessionFailure, RecordThatCannotBeBuiltIsDroppedAndTheSessionClosed) {
    const uint64_t blocksBefore = heap::liveBlocks();
    failAllocation(2);
    uint32_t session = 0;
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -52000);
    expectNothingLeft();
    EXPECT_EQ(heap::liveBlocks(), blocksBefore);

    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), 0);
    EXPECT_EQ(Quorvane_Close(session, 0), 0);
    EXPECT_EQ(heap::liveBlocks(), blocksBefore);
}

// A registry whose map once ran out of memory refuses every later open with -52000.
TEST_F(SessionFailure, MapAllocationFailureIsStickyAndLeavesNothingOpen) {
    failAllocation(1);
    uint32_t session = 0;
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -52000);
    expectNothingLeft();
    EXPECT_TRUE(sessionRegistry().allocationFailed());
    BrennSim_Reset();
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -52000);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Open"), 0u) << "refused before the target is asked";
}

}  // namespace
}  // namespace quorvane::testing
