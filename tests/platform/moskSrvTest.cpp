// The simulated device service: PXI trigger-line reservations and the merge into *status.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "MoskSrv.h"
#include "MoskSrvSim.h"

namespace {

class MoskSrvTest : public ::testing::Test {
protected:
    void SetUp() override { MoskSrvSim_Reset(); }
    void TearDown() override { MoskSrvSim_Reset(); }

    static int32_t reserve(uint32_t device, uint32_t line, int32_t* status) {
        return MoskSrv_device_set32(device, kMoskSrvReservePxiTriggerLine, line, status);
    }
    static int32_t release(uint32_t device, uint32_t line, int32_t* status) {
        return MoskSrv_device_set32(device, kMoskSrvReleasePxiTriggerLine, line, status);
    }
};

// A line belongs to the first device that reserves it until that device releases it; anyone
// else reserving it or releasing it is refused.
TEST_F(MoskSrvTest, ALineIsHeldByOneDeviceUntilThatDeviceReleasesIt) {
    int32_t status = 0;
    EXPECT_EQ(release(5, 3, &status), kMoskSrvStandInLineNotReserved);
    EXPECT_EQ(status, kMoskSrvStandInLineNotReserved);
    status = 0;
    EXPECT_EQ(reserve(5, 3, &status), 0);
    EXPECT_EQ(status, 0);
    for (uint32_t device : {5u, 6u}) {
        EXPECT_EQ(reserve(device, 3, &status), kMoskSrvStandInLineAlreadyReserved) << device;
        EXPECT_EQ(status, kMoskSrvStandInLineAlreadyReserved);
        status = 0;
    }
    EXPECT_EQ(release(6, 3, &status), kMoskSrvStandInLineNotReserved);
    status = 0;
    uint32_t owner = 0;
    EXPECT_EQ(MoskSrvSim_IsLineReserved(3, &owner), 1);
    EXPECT_EQ(owner, 5u);
    EXPECT_EQ(reserve(6, 4, &status), 0) << "other lines stay free";
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 2u);

    EXPECT_EQ(release(5, 3, &status), 0);
    EXPECT_EQ(MoskSrvSim_IsLineReserved(3, nullptr), 0);
    EXPECT_EQ(reserve(6, 3, &status), 0) << "free again for anyone";
    EXPECT_EQ(status, 0);
}

struct MergeCase {
    int32_t before;
    int32_t reported;
    int32_t after;
};

class MergeTest : public MoskSrvTest, public ::testing::WithParamInterface<MergeCase> {};

// An injected report is the call's outcome, is merged into *status and changes nothing.
TEST_P(MergeTest, InjectedOutcomeIsMergedIntoStatus) {
    const MergeCase c = GetParam();
    MoskSrvSim_ReportNext(c.reported);
    int32_t status = c.before;
    EXPECT_EQ(reserve(5, 3, &status), c.reported);
    EXPECT_EQ(status, c.after);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(MergeRule, MergeTest,
                         ::testing::Values(MergeCase{0, 0, 0}, MergeCase{0, 7, 7}, MergeCase{0, -5, -5},
                                           MergeCase{3, 0, 3}, MergeCase{3, 7, 3}, MergeCase{3, -5, -5},
                                           MergeCase{-9, 0, -9}, MergeCase{-9, 7, -9}, MergeCase{-9, -5, -9}));

TEST_F(MoskSrvTest, RealOutcomesFollowTheMergeRuleAndANullStatusOnlyLosesTheMerge) {
    int32_t status = -9;
    EXPECT_EQ(reserve(5, 3, &status), 0);
    EXPECT_EQ(reserve(5, 3, &status), kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(status, -9);
    status = 4;
    EXPECT_EQ(reserve(5, 3, &status), kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(status, kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(reserve(6, 7, nullptr), 0);
    EXPECT_EQ(reserve(6, 7, nullptr), kMoskSrvStandInLineAlreadyReserved);
}

TEST_F(MoskSrvTest, RecordsTheCallsArgumentsAndRefusesUnknownAttributes) {
    uint32_t device = 0, attribute = 0, value = 0;
    EXPECT_EQ(MoskSrvSim_LastCall(&device, &attribute, &value), 0);
    int32_t status = 0;
    for (uint32_t unknown : {0u, 30u, 33u, 0xFFFFFFFFu}) {
        EXPECT_EQ(MoskSrv_device_set32(5, unknown, 3, &status), kMoskSrvStandInUnknownAttribute) << unknown;
        EXPECT_EQ(status, kMoskSrvStandInUnknownAttribute);
        status = 0;
    }
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
    release(0x0005, 0xFFFFFFFFu, &status);
    EXPECT_EQ(MoskSrvSim_CallCount(), 5u);
    EXPECT_EQ(MoskSrvSim_LastCall(&device, &attribute, &value), 1);
    EXPECT_EQ(device, 0x0005u);
    EXPECT_EQ(attribute, static_cast<uint32_t>(kMoskSrvReleasePxiTriggerLine));
    EXPECT_EQ(value, 0xFFFFFFFFu);
    MoskSrvSim_Reset();
    EXPECT_EQ(MoskSrvSim_CallCount(), 0u);
}

TEST_F(MoskSrvTest, ConcurrentReservationsOfOneLineLetExactlyOneWin) {
    constexpr uint32_t kThreads = 8;
    std::atomic<int> winners{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (uint32_t device = 1; device <= kThreads; ++device) {
        threads.emplace_back([&, device] {
            int32_t status = 0;
            const int32_t outcome = reserve(device, 17, &status);
            if (outcome == 0) ++winners;
            if (outcome == kMoskSrvStandInLineAlreadyReserved) ++refused;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(winners.load(), 1);
    EXPECT_EQ(refused.load(), static_cast<int>(kThreads) - 1);
}

}  // namespace
