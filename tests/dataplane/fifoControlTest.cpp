// FIFO depth and stop, waiting on interrupts, and PXI trigger lines through the device service.
#include <gmock/gmock.h>

#include <vector>

#include "MoskSrv.h"
#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

constexpr uint32_t kFifo = 2;

class FifoConfiguration : public DataplaneTest {};

// What the simulated target grants is its own business; the table below covers storing it.
TEST_F(FifoConfiguration, DepthsAreWidenedWithZeros) {
    uint32_t actual = kUntouched;
    EXPECT_EQ(Quorvane_ConfigureFifo(session_, kFifo, 0xFFFFFFFFu), 0);
    EXPECT_EQ(Quorvane_ConfigureFifo2(session_, kFifo, 0x80000000u, &actual), 0);
    EXPECT_EQ(callsOf("BrennDll_ConfigureFifo").at(0).args[2], 0xFFFFFFFFu);
    EXPECT_EQ(callsOf("BrennDll_ConfigureFifo2").at(0).args[2], 0x80000000u);
}

// The chosen depth is always stored narrowed (zero when the library set none); a depth that
// does not fit gives way only to a library error.
struct DepthCase {
    const char* name;
    int32_t libraryAnswer;
    std::vector<uint64_t> chosenDepth;
    int32_t expectedStatus;
    uint32_t expectedStored;
};

class ConfigureFifo2Depth : public FifoConfiguration, public ::testing::WithParamInterface<DepthCase> {};

TEST_P(ConfigureFifo2Depth, ChosenDepthIsAlwaysStoredNarrowed) {
    const DepthCase& c = GetParam();
    scriptAnswer("BrennDll_ConfigureFifo2", c.libraryAnswer, c.chosenDepth);
    uint32_t actual = kUntouched;
    EXPECT_EQ(Quorvane_ConfigureFifo2(session_, kFifo, 5, &actual), c.expectedStatus);
    EXPECT_EQ(actual, c.expectedStored);
}
INSTANTIATE_TEST_SUITE_P(
    Cases, ConfigureFifo2Depth,
    ::testing::Values(DepthCase{"TooDeepAfterSuccess", 0, {0x100000005u}, -52005, 5},
                      DepthCase{"TooDeepAfterWarning", kLibraryWarning, {0x100000005u}, -52005, 5},
                      DepthCase{"TooDeepAfterError", kLibraryError, {0x100000005u}, kLibraryError, 5},
                      DepthCase{"WarningWithFittingDepth", kLibraryWarning, {7}, kLibraryWarning, 7},
                      DepthCase{"LargestFittingDepth", 0, {0xFFFFFFFFu}, 0, 0xFFFFFFFFu},
                      DepthCase{"ErrorWithoutDepth", kLibraryError, {}, kLibraryError, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(FifoConfiguration, NullActualDepthOrContextIsRejectedAfterTheRefusedBit) {
    EXPECT_EQ(Quorvane_ConfigureFifo2(session_ | 0x2000u, kFifo, 5, nullptr), -61499);
    EXPECT_EQ(Quorvane_ConfigureFifo2(session_, kFifo, 5, nullptr), -52005);
    EXPECT_EQ(Quorvane_WaitOnIrqs(session_ | 0x2000u, nullptr, 1, 0, nullptr, nullptr), -61499);
    EXPECT_EQ(Quorvane_WaitOnIrqs(session_, nullptr, 1, 0, nullptr, nullptr), -52005);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

class Interrupts : public DataplaneTest {};

TEST_F(Interrupts, WaitHandsOnTheContextValueAndTheLibraryAnswersReachTheHost) {
    int contextObject = 0;
    void* context = &contextObject;
    uint32_t asserted = 0;
    uint8_t timedOut = 0;
    scriptAnswer("BrennDll_WaitOnIrqs", kLibraryWarning, {0x5, 1});
    EXPECT_EQ(Quorvane_WaitOnIrqs(session_, &context, 0xF, kAnyTimeout, &asserted, &timedOut), kLibraryWarning);
    const auto waits = callsOf("BrennDll_WaitOnIrqs");
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0].args[1], reinterpret_cast<uintptr_t>(&contextObject)) << "the value, not its address";
    EXPECT_EQ(waits[0].args[2], 0xFu);
    EXPECT_EQ(waits[0].args[3], kAnyTimeout);
    EXPECT_EQ(waits[0].args[4], reinterpret_cast<uintptr_t>(&asserted));
    EXPECT_EQ(asserted, 0x5u);
    EXPECT_EQ(timedOut, 1u);
}

class TriggerLines : public DataplaneTest {
protected:
    static uint32_t lastAttribute() {
        uint32_t attribute = 0;
        EXPECT_EQ(MoskSrvSim_LastCall(nullptr, &attribute, nullptr), 1);
        return attribute;
    }
};

// A refused handle never reaches the device service; otherwise the flag nibble is cleared and
// the line goes through unchanged, without the FPGA interface library.
TEST_F(TriggerLines, FlagNibbleIsClearedAndTheLineGoesThroughUnchanged) {
    EXPECT_EQ(Quorvane_ReservePxiTriggerLine(0x3005, 4), -61499);
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(0x3005, 4), -61499);
    EXPECT_EQ(MoskSrvSim_CallCount(), 0u);

    EXPECT_EQ(Quorvane_ReservePxiTriggerLine(0x5005, 0x80000004u), 0);
    uint32_t device = 0;
    uint32_t value = 0;
    ASSERT_EQ(MoskSrvSim_LastCall(&device, nullptr, &value), 1);
    EXPECT_EQ(device, 0x0005u);
    EXPECT_EQ(value, 0x80000004u);
    EXPECT_EQ(lastAttribute(), 31u);
    EXPECT_EQ(MoskSrvSim_IsLineReserved(0x80000004u, &device), 1);
    EXPECT_EQ(device, 0x0005u);

    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(0xD005, 0x80000004u), 0);
    EXPECT_EQ(lastAttribute(), 32u);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

TEST_F(TriggerLines, DeviceServiceVerdictReachesTheHost) {
    EXPECT_EQ(Quorvane_ReservePxiTriggerLine(session_, 1), 0);
    EXPECT_EQ(Quorvane_ReservePxiTriggerLine(session_ + 1, 1), kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(session_ + 1, 1), kMoskSrvStandInLineNotReserved);
    MoskSrvSim_ReportNext(kLibraryWarning);
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(session_, 1), kLibraryWarning);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 1u) << "an injected report changes nothing";
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(session_, 1), 0);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
}

}  // namespace
}  // namespace quorvane::testing
