// Opens that fail part-way: whatever failed, nothing stays open, registered or allocated.
#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>

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
        EXPECT_EQ(registeredSessionCount(), 0u);
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
    {
        tSharedLock guard(gRegistryLock);
        EXPECT_TRUE(sessionRegistry().allocationFailed());
    }
    BrennSim_Reset();
    EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), -52000);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Open"), 0u) << "refused before the target is asked";
}

// Once a container's allocation-failure flag is up, every later insertion reports -52000. An
// entry whose own creation failed as well must still not stay behind: the next close, reset
// or acquisition would use the parts it lacks. Allocation 1 raises the flag; the second
// failure hits one part of the next entry (a FIFO state's queueMutex, acquireMutex or
// regionEvent; a resource session record's lock).
struct SecondFailure {
    const char* name;
    bool resourceSession;
    uint64_t failingAllocation;
};

void PrintTo(const SecondFailure& c, std::ostream* os) {
    *os << c.name;
}

class SecondFailureWhileTheFlagIsUp : public SessionFailure, public ::testing::WithParamInterface<SecondFailure> {};

TEST_P(SecondFailureWhileTheFlagIsUp, LeavesNoHalfBuiltEntryBehind) {
    const uint64_t blocksBefore = heap::liveBlocks();
    uint32_t session = 0, other = 0;
    ASSERT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), 0);
    if (GetParam().resourceSession) {
        failAllocation(1);
        EXPECT_EQ(Quorvane_Open("", "", "RIO1", 0, &other), -52000);
        failAllocation(GetParam().failingAllocation);
        EXPECT_EQ(Quorvane_OpenResource(session, "a", 0, &other), -52000);
        EXPECT_FALSE(BrennSim_IsSessionOpen(other)) << "the resource session is closed again";
    } else {
        failAllocation(1);
        EXPECT_EQ(Quorvane_StartFifo(session, 1), -52000);
        failAllocation(GetParam().failingAllocation);
        EXPECT_EQ(Quorvane_StartFifo(session, 2), -52000);
        stopFailingAllocations();
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        EXPECT_EQ(Quorvane_AcquireFifoReadRegionScalar(session, 2, &reference, 4, 7, 0, 0, &acquired, &remaining),
                  -52000)
            << "the state is built anew and stays, but the map still reports its failure";
        EXPECT_EQ(Quorvane_Reset(session), 0);
    }
    stopFailingAllocations();
    EXPECT_EQ(HostSim_RunProgramStop(), 1u);
    expectNothingLeft();
    EXPECT_EQ(heap::liveBlocks(), blocksBefore);
}

INSTANTIATE_TEST_SUITE_P(Parts, SecondFailureWhileTheFlagIsUp,
                         ::testing::Values(SecondFailure{"queueMutex", false, 2},
                                           SecondFailure{"acquireMutex", false, 3},
                                           SecondFailure{"regionEvent", false, 4},
                                           SecondFailure{"recordLock", true, 2}),
                         [](const auto& info) { return std::string(info.param.name); });

// The registry's flag is raised by a registration under the registry lock, and read by every
// later open. The opener below synchronises with nothing but the library (a Host's threads
// need not), so ThreadSanitizer reports the read unless the library orders it with the write.
TEST_F(SessionFailure, AnOpenReadsTheRegistryFlagInOrderWithTheRegistrationThatRaisedIt) {
    std::atomic<bool> raised{false};
    std::thread opener([&] {
        while (!raised.load(std::memory_order_relaxed)) std::this_thread::yield();
        uint32_t handle = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &handle), -52000);
    });
    std::thread raiser([&] {
        failAllocation(1);
        uint32_t handle = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &handle), -52000);
        raised.store(true, std::memory_order_relaxed);
    });
    raiser.join();
    opener.join();
    stopFailingAllocations();
    expectNothingLeft();
}

}  // namespace
}  // namespace quorvane::testing
