// Opening and closing sessions: what reaches the target and the Host, and which status wins.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "Quorvane.h"
#include "Quorvane/sessionClose.h"
#include "Quorvane/sessionRegistry.h"
#include "quarks/memory.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

class SessionLifecycle : public SimulatedPlatformTest {
protected:
    static uint32_t open(int32_t expected = 0) {
        uint32_t session = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &session), expected);
        return session;
    }
    static bool cleanupRegistered(uint32_t session) {
        return HostSim_IsRegisteredForProgramStop(SessionCleanupProc, cleanupArgument(session)) != 0;
    }
};

// The count is kept from any thread; a negative one reserves nothing.
TEST_F(SessionLifecycle, OpenReservesTheCountedContextsAndCloseUndoesEverything) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 250; ++i) Quorvane_ReserveIrqContext();
            for (int i = 0; i < 249 + t % 2; ++i) Quorvane_UnreserveIrqContext();
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(Quorvane_ReserveIrqContext() | Quorvane_UnreserveIrqContext(), 0) << "both always answer 0";
    const uint32_t session = open();
    Quorvane_UnreserveIrqContext();
    const uint32_t second = open();
    Quorvane_UnreserveIrqContext();
    Quorvane_UnreserveIrqContext();
    const uint32_t third = open();
    EXPECT_EQ(BrennSim_IrqContextsReserved(second), 1u);
    EXPECT_EQ(BrennSim_IrqContextsReserved(third), 0u);
    const auto reserves = callsOf("BrennDll_ReserveIrqContext");
    ASSERT_EQ(reserves.size(), 3u);
    for (size_t i = 0; i < reserves.size(); ++i) {
        EXPECT_EQ(reserves[i].args[0], i < 2 ? session : second);
        EXPECT_EQ(reserves[i].args[1], 0u) << "the context pointer is always null";
    }
    EXPECT_TRUE(cleanupRegistered(session));
    EXPECT_EQ(registeredSessionCount(), 3u);

    EXPECT_EQ(Quorvane_Close(session, 7), 0);
    EXPECT_FALSE(cleanupRegistered(session));
    EXPECT_FALSE(BrennSim_IsSessionOpen(session));
    EXPECT_EQ(registeredSessionCount(), 2u);
    const auto closes = callsOf("BrennDll_Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].args[1], 7u) << "the attribute reaches the target unchanged";
}

// The open's warning survives successful reserves; a reserve's warning replaces only success.
TEST_F(SessionLifecycle, FirstWarningOfTheOpenAndItsReservesIsReturned) {
    Quorvane_ReserveIrqContext();
    scriptAnswer("BrennDll_Open", 42, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_ReserveIrqContext", 0, {}, kBrennSimAfterReal);
    EXPECT_TRUE(cleanupRegistered(open(42)));
    Quorvane_ReserveIrqContext();
    scriptAnswer("BrennDll_ReserveIrqContext", 5, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_ReserveIrqContext", 9, {}, kBrennSimAfterReal);
    EXPECT_TRUE(cleanupRegistered(open(5)));
    EXPECT_EQ(registeredSessionCount(), 2u);
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

// An unregistered handle is forwarded (its cleanup removed); a refused one reaches nobody.
TEST_F(SessionLifecycle, CloseForwardsAnUnregisteredHandleAndRefusesAMarkedOne) {
    const uint32_t session = open();
    BrennSim_Reset();
    const size_t hostCalls = HostSim_CallCount("RTSetCleanupProc");
    EXPECT_EQ(Quorvane_Close(session | kQuorvaneSessionRefusedBit, 0), -61499);
    EXPECT_EQ(BrennSim_CallCount(), 0u);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), hostCalls);
    EXPECT_EQ(registeredSessionCount(), 1u);

    scriptAnswer("BrennDll_Close", 17);
    EXPECT_EQ(Quorvane_Close(0x123, 3), 17);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), hostCalls + 1);
    const auto closes = callsOf("BrennDll_Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].args[0], 0x123u);
    EXPECT_EQ(closes[0].args[1], 3u);
}

TEST_F(SessionLifecycle, ProgramStopClosesEveryRegisteredSessionOnceWithAttributeOne) {
    const uint32_t first = open();
    open();
    open();
    EXPECT_EQ(SessionCleanupProc(cleanupArgument(first)), 0);
    EXPECT_FALSE(BrennSim_IsSessionOpen(first));
    EXPECT_EQ(SessionCleanupProc(cleanupArgument(first)), 0) << "a handle no longer held is left alone";
    EXPECT_EQ(HostSim_RunProgramStop(), 2u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
    const auto closes = callsOf("BrennDll_Close");
    EXPECT_EQ(closes.size(), 3u);
    for (const auto& call : closes) EXPECT_EQ(call.args[1], 1u);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

// The opener synchronises with nothing but the library: ThreadSanitizer checks the flag's order.
TEST_F(SessionLifecycle, AnOpenReadsTheRegistryFlagInOrderWithTheRegistrationThatRaisedIt) {
    std::atomic<bool> raised{false};
    std::thread opener([&] {
        while (!raised.load(std::memory_order_relaxed)) std::this_thread::yield();
        open(-52000);
    });
    std::thread raiser([&] {
        failAllocation(1);
        open(-52000);
        raised.store(true, std::memory_order_relaxed);
    });
    raiser.join();
    opener.join();
    stopFailingAllocations();
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
}

}  // namespace
}  // namespace quorvane::testing
