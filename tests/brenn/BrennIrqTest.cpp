// Interrupts of the simulated target: raised by the IRQ register or by the test, waited for
// with a time-out, cleared by acknowledgement.
#include <chrono>
#include <thread>

#include "BrennSimFixture.h"

namespace {

using namespace std::chrono_literals;
using IrqTest = BrennSimTest;

constexpr uint32_t kNoLimit = 0xFFFFFFFFu;

struct WaitResult {
    int32_t status;
    uint32_t asserted;
    uint8_t timedOut;
};

WaitResult waitOn(uint32_t session, uint32_t irqs, uint32_t timeout) {
    WaitResult result{0, 0xDEAD, 9};
    result.status = BrennDll_WaitOnIrqs(session, nullptr, irqs, timeout, &result.asserted, &result.timedOut);
    return result;
}

TEST_F(IrqTest, NothingAssertedTimesOutAfterTheTimeout) {
    uint32_t session = openSession();
    const auto start = std::chrono::steady_clock::now();
    WaitResult result = waitOn(session, 0x3, 30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.asserted, 0u);
    EXPECT_EQ(result.timedOut, 1u);
}

TEST_F(IrqTest, RegisterWriteAssertsItsValueUntilAcknowledged) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU32(session, kBrennSimIrqRegister, 0x5), 0);
    WaitResult result = waitOn(session, 0x6, 0);
    EXPECT_EQ(result.asserted, 0x4u) << "only requested bits are reported";
    EXPECT_EQ(result.timedOut, 0u);
    EXPECT_EQ(waitOn(session, 0x1, 0).asserted, 0x1u) << "a wait does not clear";
    ASSERT_EQ(BrennDll_AcknowledgeIrqs(session, 0x1), 0);
    EXPECT_EQ(waitOn(session, 0x1, 0).timedOut, 1u);
    EXPECT_EQ(waitOn(session, 0x4, 0).asserted, 0x4u);
    uint32_t stored = 0;
    ASSERT_EQ(BrennDll_ReadU32(session, kBrennSimIrqRegister, &stored), 0);
    EXPECT_EQ(stored, 0x5u);
}

TEST_F(IrqTest, OtherRegistersAndSessionsRaiseNothing) {
    uint32_t session = openSession();
    uint32_t other = openSession();
    ASSERT_EQ(BrennDll_WriteU32(session, kBrennSimIrqRegister + 4, 0xFF), 0);
    ASSERT_EQ(BrennDll_WriteU32(other, kBrennSimIrqRegister, 0xFF), 0);
    EXPECT_EQ(waitOn(session, 0xFF, 0).timedOut, 1u);
}

TEST_F(IrqTest, BlockedWaitWakesWhenRaised) {
    uint32_t session = openSession();
    std::thread raiser([&] {
        std::this_thread::sleep_for(20ms);
        BrennSim_RaiseIrqs(session, 0x1);  // not requested: the wait goes on
        std::this_thread::sleep_for(10ms);
        BrennDll_WriteU32(session, kBrennSimIrqRegister, 0x8);
    });
    WaitResult result = waitOn(session, 0x8, kNoLimit);
    raiser.join();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.asserted, 0x8u);
    EXPECT_EQ(result.timedOut, 0u);
}

TEST_F(IrqTest, ClosingTheSessionEndsAWait) {
    uint32_t session = openSession();
    WaitResult result{};
    std::thread waiter([&] { result = waitOn(session, 0x1, kNoLimit); });
    std::this_thread::sleep_for(20ms);
    ASSERT_EQ(BrennDll_Close(session, 0), 0);
    waiter.join();
    EXPECT_EQ(result.status, kBrennSimInvalidSession);
    EXPECT_EQ(BrennSim_RaiseIrqs(session, 1), 0);
}

TEST_F(IrqTest, ScriptedWaitStillSkipsTheWait) {
    uint32_t session = openSession();
    BrennSimAnswer answer{};
    answer.outputCount = 2;
    answer.outputs[0] = 0x30;
    answer.outputs[1] = 0;
    BrennSim_Script("BrennDll_WaitOnIrqs", &answer);
    WaitResult result = waitOn(session, 0x30, kNoLimit);
    EXPECT_EQ(result.asserted, 0x30u);
    EXPECT_EQ(result.timedOut, 0u);
}

}  // namespace
