// The Host's layouts and result codes, and where a failed Host call filling strings is recorded.
#include <gmock/gmock.h>

#include <cstring>

#include "MoskSrv/_MoskHostDefs.h"
#include "MoskSrv/tNoReallyCallIntoHostCallbacks.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

TEST(HostLayouts, ResultsMapToStatusesAndTypeCodesToElementSizes) {
    const int32_t results[][2] = {{0, 0}, {2, -52000}, {41, -50405}, {1, -52003}, {-2, -52003}, {42, -52003}};
    for (const auto& [hostResult, status] : results) EXPECT_EQ(HostErrorToStatus(hostResult), status) << hostResult;
    const uint32_t bytes[] = {0, 1, 2, 4, 8, 1, 2, 4, 8, 0};
    for (uint32_t code = 0; code <= 9; ++code) {
        EXPECT_EQ(hostElementBytes(code), bytes[code]) << code;
        EXPECT_EQ(isHostNumericType(code), bytes[code] != 0) << code;
        if (code != 0 && code != 9) {
            EXPECT_EQ(hostFirstElementOffset(code), bytes[code] == 8 ? 8u : 4u) << code;
        }
    }
}

class HostStringArray : public SimulatedPlatformTest, public ::testing::WithParamInterface<int32_t> {};

// The resize's failure, or no handle (0) or a handle without a block (1) for the string.
TEST_P(HostStringArray, FailedHostCallIsRecordedAtItsPlaceAndStoresNothing) {
    tStatus status;
    tNoReallyCallIntoHostCallbacks table{status};
    void** array = HostSim_NewStringArray(nullptr, 0);
    ResizeHostStringArray(table, &array, 1, status);
    void** stored = nullptr;
    std::memcpy(hostBlock(array) + 8, &stored, sizeof stored);
    HostSim_FailNext("DSNewHandle", GetParam());
    StoreHostString(table, {"abc", 3}, &array, 0, status);
    EXPECT_EQ(status.code, -52000);
    EXPECT_STREQ(status.file, "_MoskHostDefs");
    EXPECT_EQ(status.line, 52u);
    std::memcpy(&stored, hostBlock(array) + 8, sizeof stored);
    EXPECT_EQ(stored, nullptr);

    tStatus resized;
    HostSim_FailNext("NumericArrayResize", 41);
    ResizeHostStringArray(table, &array, 4, resized);
    EXPECT_EQ(resized.code, -50405);
    EXPECT_EQ(resized.line, 28u);
    EXPECT_EQ(readHostCount(array), 0);
    HostSim_DisposeStringArray(array);
    EXPECT_EQ(HostSim_LiveHandleCount(), static_cast<size_t>(GetParam())) << "only the handle without a block";
}
INSTANTIATE_TEST_SUITE_P(NewHandleFailures, HostStringArray, ::testing::Values(0, 1));

}  // namespace
}  // namespace quorvane::testing
