// The scoped status that hands its code to a caller's 32-bit status, and checked narrowing.
#include <gtest/gtest.h>

#include <string>

#include "moskshared/moskshared.h"

namespace quorvane {
namespace {

struct AutoStatusCase {
    const char* name;
    int32_t callerHeld;
    int64_t ownCode;
    int32_t callerAfter;
};

void PrintTo(const AutoStatusCase& c, std::ostream* out) {
    *out << c.name;
}

class AutoStatusHandBack : public ::testing::TestWithParam<AutoStatusCase> {};

TEST_P(AutoStatusHandBack, MergesItsCodeIntoTheCallerOnDestruction) {
    const AutoStatusCase& c = GetParam();
    int32_t caller = c.callerHeld;
    {
        tMoskAutoStatus status(&caller);
        // Set directly, bypassing the merge rule, so the destructor alone decides.
        status.code = c.ownCode;
        EXPECT_EQ(caller, c.callerHeld) << "nothing is written before the scope ends";
    }
    EXPECT_EQ(caller, c.callerAfter);
}

INSTANTIATE_TEST_SUITE_P(Table, AutoStatusHandBack,
                         ::testing::Values(AutoStatusCase{"SuccessTakesWarning", 0, 63, 63},
                                           AutoStatusCase{"SuccessTakesError", 0, -52005, -52005},
                                           AutoStatusCase{"WarningStaysOverSuccess", 7, 0, 7},
                                           AutoStatusCase{"WarningStaysOverWarning", 7, 63, 7},
                                           AutoStatusCase{"WarningGivesWayToError", 7, -52005, -52005},
                                           AutoStatusCase{"ErrorStaysOverWarning", -61499, 63, -61499},
                                           AutoStatusCase{"ErrorStaysOverError", -61499, -52005, -61499},
                                           // Only the low 32 bits travel: 0x1'FFFF'FFFE reads as -2.
                                           AutoStatusCase{"LowHalfOfTheCodeTravels", 0, 0x1FFFFFFFELL, -2},
                                           AutoStatusCase{"LowHalfZeroAfterWarning", 7, 0x100000000LL, 7}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(AutoStatus, NullTargetIsNeverWrittenAndHeapInstancesHandBackOnDelete) {
    auto scope = [] {
        tMoskAutoStatus status(nullptr);
        status.setCode(kStatusInvalidArgument, "f", 1);
        return status.code32();
    };
    EXPECT_EQ(scope(), kStatusInvalidArgument);

    int32_t caller = 0;
    tMoskAutoStatus* status = new tMoskAutoStatus(&caller);
    status->setCode(-1, "f", 1);
    delete status;
    EXPECT_EQ(caller, -1);
}

// Functions first record the caller's code, so the first error wins and a caller's warning
// still gives way to it.
TEST(AutoStatus, UsagePatternRecordsCallerCodeFirstThenKeepsTheFirstError) {
    int32_t caller = 0;
    {
        tMoskAutoStatus status(&caller);
        status.setCode(caller, "Quorvane", 96);
        status.setCode(-52007, "quarks/synchronization", 2215);
        status.setCode(-50400, "elsewhere", 1);
        EXPECT_EQ(status.line, 2215u);
    }
    EXPECT_EQ(caller, -52007);

    int32_t callerWithWarning = 9;
    {
        tMoskAutoStatus status(&callerWithWarning);
        status.setCode(callerWithWarning, "Quorvane", 96);
        EXPECT_EQ(status.line, 96u);
        status.setCode(-52000, "quarks/memory", 416);
    }
    EXPECT_EQ(callerWithWarning, -52000);
}

struct NarrowCase {
    uint64_t value;
    uint32_t narrowed;
    bool fits;
};

class NarrowToU32 : public ::testing::TestWithParam<NarrowCase> {};

TEST_P(NarrowToU32, KeepsLowBitsAndReportsWhatDoesNotFit) {
    const NarrowCase& c = GetParam();
    tStatus status;
    EXPECT_EQ(narrowToU32(c.value, status), c.narrowed);
    if (c.fits) {
        EXPECT_EQ(status.code, 0);
    } else {
        EXPECT_EQ(status.code, kStatusInvalidArgument);
        EXPECT_STREQ(status.component, "Quorvane");
        EXPECT_STREQ(status.file, "moskshared");
        EXPECT_EQ(status.line, 453u);
    }
    tStatus earlier;
    earlier.setCode(kStatusMemoryFull, "first", 1);
    EXPECT_EQ(narrowToU32(c.value, earlier), c.narrowed);
    EXPECT_EQ(earlier.code, kStatusMemoryFull) << "an earlier error stays";
    EXPECT_STREQ(earlier.file, "first");
}

INSTANTIATE_TEST_SUITE_P(Values, NarrowToU32,
                         ::testing::Values(NarrowCase{0, 0, true}, NarrowCase{0xFFFFFFFFull, 0xFFFFFFFFu, true},
                                           NarrowCase{0x100000000ull, 0, false}, NarrowCase{0x100000005ull, 5, false},
                                           NarrowCase{UINT64_MAX, 0xFFFFFFFFu, false}));

}  // namespace
}  // namespace quorvane
