// The Host callback table and the two Host handle operations that fill an array of strings.
#include <gmock/gmock.h>

#include <cstring>
#include <string>

#include "MoskSrv/_MoskHostDefs.h"
#include "MoskSrv/tNoReallyCallIntoHostCallbacks.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

struct HostResultCase {
    int32_t hostResult;
    int32_t status;
};

void PrintTo(const HostResultCase& c, std::ostream* os) {
    *os << "host" << c.hostResult;
}
TEST(HostLayouts, ResultsMapToStatusesAndTypeCodesToElementSizes) {
    const HostResultCase results[] = {{0, 0}, {2, -52000}, {41, -50405}, {1, -52003}, {-2, -52003}, {42, -52003}};
    for (const HostResultCase& c : results) EXPECT_EQ(HostErrorToStatus(c.hostResult), c.status) << c.hostResult;
    const uint32_t bytes[] = {0, 1, 2, 4, 8, 1, 2, 4, 8, 0};
    for (uint32_t code = 0; code <= 9; ++code) {
        EXPECT_EQ(hostElementBytes(code), bytes[code]) << code;
        EXPECT_EQ(isHostNumericType(code), bytes[code] != 0) << code;
    }
    EXPECT_EQ(hostFirstElementOffset(4), 8u);
    EXPECT_EQ(hostFirstElementOffset(8), 8u);
    EXPECT_EQ(hostFirstElementOffset(7), 4u);
    EXPECT_EQ(hostFirstElementOffset(1), 4u);
}

class HostStringArray : public SimulatedPlatformTest {
protected:
    void TearDown() override {
        HostSim_DisposeStringArray(array);
        EXPECT_EQ(HostSim_LiveHandleCount(), strayHandles) << "every handle made was disposed";
    }
    std::string element(uint32_t index) {
        void** string;
        std::memcpy(&string, hostBlock(array) + 8 + 8 * index, sizeof string);
        const int32_t length = readHostCount(string);
        const char* characters = reinterpret_cast<const char*>(hostBlock(string) + 4);
        EXPECT_EQ(characters[length], '\0') << "a NUL follows the characters";
        return std::string(characters, static_cast<size_t>(length));
    }

    tStatus status;
    tNoReallyCallIntoHostCallbacks table{status};
    void** array = HostSim_NewStringArray(nullptr, 0);
    // Handles the Host made that the library rightly refused and cannot dispose of.
    size_t strayHandles = 0;
};

TEST_F(HostStringArray, ResizeThenStoreFillsEveryElementWithItsString) {
    ResizeHostStringArray(table, &array, 3, status);
    ASSERT_EQ(readHostCount(array), 3);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 8);
    const std::string hundred(100, 'x');
    const tHostStringSource strings[] = {{"ab", 2}, {"", 0}, {hundred.c_str(), 100}};
    for (uint32_t i = 0; i < 3; ++i) StoreHostString(table, strings[i], &array, i, status);
    EXPECT_EQ(status.code, 0);
    EXPECT_EQ(element(0), "ab");
    EXPECT_EQ(element(1), "");
    EXPECT_EQ(element(2), hundred);
}

class FailingResize : public HostStringArray, public ::testing::WithParamInterface<HostResultCase> {};

TEST_P(FailingResize, RecordsTheMappedCodeAndLeavesZeroElements) {
    HostSim_FailNext("NumericArrayResize", GetParam().hostResult);
    ResizeHostStringArray(table, &array, 4, status);
    EXPECT_EQ(status.code, GetParam().status);
    EXPECT_STREQ(status.file, "_MoskHostDefs");
    EXPECT_EQ(status.line, 28u);
    EXPECT_EQ(readHostCount(array), 0);
}
INSTANTIATE_TEST_SUITE_P(Results, FailingResize,
                         ::testing::Values(HostResultCase{2, -52000}, HostResultCase{41, -50405},
                                           HostResultCase{7, -52003}));

class FailingNewHandle : public HostStringArray, public ::testing::WithParamInterface<int32_t> {};

TEST_P(FailingNewHandle, NoHandleOrNoBlockIsOutOfMemoryAndTheElementKeepsItsValue) {
    ResizeHostStringArray(table, &array, 1, status);
    void** sentinel = nullptr;
    std::memcpy(hostBlock(array) + 8, &sentinel, sizeof sentinel);
    HostSim_FailNext("DSNewHandle", GetParam());
    strayHandles = GetParam() != 0 ? 1 : 0;  // the handle whose block is null
    StoreHostString(table, {"abc", 3}, &array, 0, status);
    EXPECT_EQ(status.code, -52000);
    EXPECT_EQ(status.line, 52u);
    void** stored;
    std::memcpy(&stored, hostBlock(array) + 8, sizeof stored);
    EXPECT_EQ(stored, nullptr);
}
INSTANTIATE_TEST_SUITE_P(Kinds, FailingNewHandle, ::testing::Values(0, 1));

}  // namespace
}  // namespace quorvane::testing
