// Opening and closing sessions: what reaches the target and the Host, in which order, and
// which status wins.
#include <gmock/gmock.h>

#include <thread>

#include "Quorvane.h"
#include "Quorvane/sessionClose.h"
#include "Quorvane/sessionRegistry.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;

class SessionLifecycle : public SimulatedPlatformTest {
protected:
    uint32_t open(int32_t expected = 0) {
        uint32_t session = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), expected);
        return session;
    }
    static bool cleanupRegistered(uint32_t session) {
        return HostSim_IsRegisteredForProgramStop(SessionCleanupProc, cleanupArgument(session)) != 0;
    }
};

class IrqReserveCount : public SessionLifecycle, public ::testing::WithParamInterface<int> {};

TEST_P(IrqReserveCount, OpenReservesEachContextBeforeRegisteringAndCloseUndoesEverything) {
    for (int i = 0; i < GetParam(); ++i) Quorvane_ReserveIrqContext();
    const uint32_t session = open();

    const auto reserves = callsOf("BrennDll_ReserveIrqContext");
    ASSERT_EQ(reserves.size(), static_cast<size_t>(GetParam()));
    for (const auto& call : reserves) {
        EXPECT_EQ(call.args[0], session);
        EXPECT_EQ(call.args[1], 0u) << "the context pointer is always null";
    }
    EXPECT_TRUE(cleanupRegistered(session));
    EXPECT_EQ(registeredSessionCount(), 1u);

    EXPECT_EQ(Quorvane_Close(session, 7), 0);
    EXPECT_FALSE(cleanupRegistered(session));
    EXPECT_FALSE(BrennSim_IsSessionOpen(session));
    EXPECT_EQ(registeredSessionCount(), 0u);
    const auto closes = callsOf("BrennDll_Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].args[1], 7u) << "the attribute reaches the target unchanged";
}
INSTANTIATE_TEST_SUITE_P(Counts, IrqReserveCount, ::testing::Values(0, 1, 3));

TEST_F(SessionLifecycle, ReservesFollowTheCountAtEachOpenAndANegativeCountReservesNothing) {
    Quorvane_ReserveIrqContext();
    Quorvane_ReserveIrqContext();
    const uint32_t first = open();
    Quorvane_UnreserveIrqContext();
    const uint32_t second = open();
    Quorvane_UnreserveIrqContext();
    Quorvane_UnreserveIrqContext();
    const uint32_t third = open();
    EXPECT_EQ(BrennSim_IrqContextsReserved(first), 2u);
    EXPECT_EQ(BrennSim_IrqContextsReserved(second), 1u);
    EXPECT_EQ(BrennSim_IrqContextsReserved(third), 0u);
}

TEST_F(SessionLifecycle, ReserveCountsFromManyThreadsAreAllCounted) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 250; ++i) Quorvane_ReserveIrqContext();
            for (int i = 0; i < 248; ++i) Quorvane_UnreserveIrqContext();
        });
    }
    for (auto& thread : threads) thread.join();
    open();
    EXPECT_EQ(callsOf("BrennDll_ReserveIrqContext").size(), 8u);
}

TEST_F(SessionLifecycle, WarningOfTheOpenSurvivesSuccessfulReserves) {
    Quorvane_ReserveIrqContext();
    scriptAnswer("BrennDll_Open", 42, {}, kBrennSimAfterReal);
    const uint32_t session = open(42);
    EXPECT_EQ(registeredSessionCount(), 1u);
    EXPECT_TRUE(cleanupRegistered(session));
}

TEST_F(SessionLifecycle, WarningOfAReserveReplacesOnlySuccess) {
    Quorvane_ReserveIrqContext();
    Quorvane_ReserveIrqContext();
    scriptAnswer("BrennDll_ReserveIrqContext", 5, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_ReserveIrqContext", 9, {}, kBrennSimAfterReal);
    open(5);
    EXPECT_EQ(registeredSessionCount(), 1u);
}

TEST_F(SessionLifecycle, TwoOpensThatYieldTheSameHandleLeaveOneRecord) {
    scriptAnswer("BrennDll_Open", 0, {0x77});
    scriptAnswer("BrennDll_Open", 0, {0x77});
    EXPECT_EQ(open(), 0x77u);
    EXPECT_EQ(open(), 0x77u);
    EXPECT_EQ(registeredSessionCount(), 1u);
    scriptAnswer("BrennDll_Close", 0);
    EXPECT_EQ(Quorvane_Close(0x77, 0), 0);
    EXPECT_EQ(registeredSessionCount(), 0u);
}

TEST_F(SessionLifecycle, CloseOfAnUnregisteredHandleRemovesItsCleanupAndReturnsTheTargetsAnswer) {
    scriptAnswer("BrennDll_Close", 17);
    const size_t before = HostSim_CallCount("RTSetCleanupProc");
    EXPECT_EQ(Quorvane_Close(0x123, 3), 17);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), before + 1);
    const auto closes = callsOf("BrennDll_Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].args[0], 0x123u);
    EXPECT_EQ(closes[0].args[1], 3u);
}

TEST_F(SessionLifecycle, RefusedHandleIsRefusedBeforeAnythingElse) {
    const uint32_t session = open();
    BrennSim_Reset();
    const size_t hostCalls = HostSim_CallCount("RTSetCleanupProc");
    EXPECT_EQ(Quorvane_Close(session | kQuorvaneSessionRefusedBit, 0), -61499);
    EXPECT_EQ(BrennSim_CallCount(), 0u);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), hostCalls);
    EXPECT_EQ(registeredSessionCount(), 1u);
}

TEST_F(SessionLifecycle, ProgramStopClosesEverySessionWithAttributeOne) {
    std::vector<uint32_t> sessions{open(), open(), open()};
    EXPECT_EQ(HostSim_RunProgramStop(), 3u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
    for (const auto& call : callsOf("BrennDll_Close")) EXPECT_EQ(call.args[1], 1u);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

TEST_F(SessionLifecycle, CleanupProcedureAnswersZeroAndClosesOnlyARegisteredSession) {
    const uint32_t session = open();
    EXPECT_EQ(SessionCleanupProc(cleanupArgument(session)), 0);
    EXPECT_FALSE(BrennSim_IsSessionOpen(session));
    EXPECT_EQ(SessionCleanupProc(cleanupArgument(session)), 0);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Close"), 1u) << "a handle no longer held never reaches the driver";
}

}  // namespace
}  // namespace quorvane::testing
