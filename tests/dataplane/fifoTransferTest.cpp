// Copying FIFO transfers: which typed function a type code picks and where the data pointer
// lies in the Host block, the array count left after a read, and the elements-remaining count
// narrowed to 32 bits with -52005 merged when it does not fit.
#include <gmock/gmock.h>

#include <ostream>
#include <string>

#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

constexpr uint32_t kFifo = 3;
constexpr uint64_t kTooManyRemaining = 0x100000000u;

struct ScalarType {
    uint32_t typeCode;
    const char* read;
    const char* write;
    size_t elementBytes;
    size_t firstElement;
};

std::ostream& operator<<(std::ostream& out, const ScalarType& t) {
    return out << "type " << t.typeCode;
}

const ScalarType kScalarTypes[] = {
    {1, "BrennDll_ReadFifoI8", "BrennDll_WriteFifoI8", 1, 4},
    {2, "BrennDll_ReadFifoI16", "BrennDll_WriteFifoI16", 2, 4},
    {3, "BrennDll_ReadFifoI32", "BrennDll_WriteFifoI32", 4, 4},
    {4, "BrennDll_ReadFifoI64", "BrennDll_WriteFifoI64", 8, 8},
    {5, "BrennDll_ReadFifoU8", "BrennDll_WriteFifoU8", 1, 4},
    {6, "BrennDll_ReadFifoU16", "BrennDll_WriteFifoU16", 2, 4},
    {7, "BrennDll_ReadFifoU32", "BrennDll_WriteFifoU32", 4, 4},
    {8, "BrennDll_ReadFifoU64", "BrennDll_WriteFifoU64", 8, 8},
};

class ScalarFifo : public DataplaneTest, public ::testing::WithParamInterface<ScalarType> {};

TEST_P(ScalarFifo, ReadGrowsTheArrayWithTheTypeCodeAndReadsIntoItsFirstElement) {
    const ScalarType& t = GetParam();
    void** array = newArray(static_cast<int32_t>(t.typeCode), 1);
    scriptAnswer(t.read, 0, {9});
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 3, t.typeCode, 0xFFFF, kAnyTimeout, array, &remaining), 0);

    EXPECT_EQ(HostSim_LastResizeTypeCode(), static_cast<int32_t>(t.typeCode));
    EXPECT_EQ(HostSim_BlockSize(array), t.firstElement + 3 * t.elementBytes);
    EXPECT_EQ(countOf(array), 3);
    EXPECT_EQ(remaining, 9u);
    EXPECT_EQ(callsSinceOpen(), 1u);
    const auto reads = callsOf(t.read);
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].args[0], session_ | 0x4000u);
    EXPECT_EQ(reads[0].args[1], kFifo);
    EXPECT_EQ(reads[0].args[2], addressOf(array, t.firstElement));
    EXPECT_EQ(reads[0].args[3], 3u);
    EXPECT_EQ(reads[0].args[4], kAnyTimeout);
}

TEST_P(ScalarFifo, WriteHandsOverTheArrayFromItsFirstElementAndLeavesItAlone) {
    const ScalarType& t = GetParam();
    void** array = newArray(static_cast<int32_t>(t.typeCode), 4);
    const size_t blockSize = HostSim_BlockSize(array);
    scriptAnswer(t.write, 0, {11});
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_WriteFifoScalar(session_, kFifo, array, t.typeCode, 0xFFFF, kAnyTimeout, &remaining), 0);

    EXPECT_EQ(remaining, 11u);
    EXPECT_EQ(callsSinceOpen(), 1u);
    const auto writes = callsOf(t.write);
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].args[0], session_ | 0x4000u);
    EXPECT_EQ(writes[0].args[2], addressOf(array, t.firstElement));
    EXPECT_EQ(writes[0].args[3], 4u);
    EXPECT_EQ(writes[0].args[4], kAnyTimeout);
    EXPECT_EQ(countOf(array), 4);
    EXPECT_EQ(HostSim_BlockSize(array), blockSize);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, ScalarFifo, ::testing::ValuesIn(kScalarTypes),
                         [](const auto& info) { return "Type" + std::to_string(info.param.typeCode); });

class BadTypeCode : public DataplaneTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(BadTypeCode, ReadStillResizesWithTheCodeThenReportsInvalidArgumentAndAnEmptyArray) {
    void** array = newArray(3, 2);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 2, GetParam(), 0, kAnyTimeout, array, &remaining), -52005);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), static_cast<int32_t>(GetParam()));
    EXPECT_EQ(countOf(array), 0);
    EXPECT_EQ(remaining, 0u) << "nothing was read, so nothing remains to report";
    EXPECT_EQ(callsSinceOpen(), 0u);
}

TEST_P(BadTypeCode, WriteReportsInvalidArgumentWithoutWriting) {
    void** array = newArray(3, 2);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_WriteFifoScalar(session_, kFifo, array, GetParam(), 0, kAnyTimeout, &remaining), -52005);
    EXPECT_EQ(remaining, 0u);
    EXPECT_EQ(countOf(array), 2);
    EXPECT_EQ(callsSinceOpen(), 0u);
}
INSTANTIATE_TEST_SUITE_P(OutsideOneToEight, BadTypeCode, ::testing::Values(0u, 9u, 0xFFFFFFFFu));

struct ResizeFailure {
    int32_t hostResult;
    int32_t status;
};

class FifoReadResizeFailure : public DataplaneTest, public ::testing::WithParamInterface<ResizeFailure> {};

TEST_P(FifoReadResizeFailure, ScalarReadReportsTheConvertedErrorAndEmptiesTheArray) {
    void** array = newArray(7, 6);
    HostSim_FailNext("NumericArrayResize", GetParam().hostResult);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 2, 7, 0, kAnyTimeout, array, &remaining), GetParam().status);
    EXPECT_EQ(countOf(array), 0);
    EXPECT_EQ(remaining, 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

TEST_P(FifoReadResizeFailure, CompositeReadReturnsAtOnceLeavingArrayAndCountAsTheyWere) {
    void** array = newArray(5, 6);
    HostSim_FailNext("NumericArrayResize", GetParam().hostResult);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 2, 4, kAnyTimeout, array, &remaining), GetParam().status);
    EXPECT_EQ(countOf(array), 6);
    EXPECT_EQ(remaining, kUntouched);
    EXPECT_EQ(callsSinceOpen(), 0u);
}
INSTANTIATE_TEST_SUITE_P(HostResults, FifoReadResizeFailure,
                         ::testing::Values(ResizeFailure{2, -52000}, ResizeFailure{41, -50405},
                                           ResizeFailure{1, -52003}, ResizeFailure{-3, -52003}));

// The four transfers behind one signature: call with a library answer already scripted.
struct Transfer {
    const char* name;
    const char* target;
    bool reads;
    uint32_t expectedCountOnSuccess;  // what a read leaves in the array
    int32_t (*call)(uint32_t session, void** array, uint32_t* remaining);
    int32_t arrayType;
    size_t arrayCount;
};

std::ostream& operator<<(std::ostream& out, const Transfer& t) {
    return out << t.name;
}

const Transfer kTransfers[] = {
    {"ReadFifoScalar", "BrennDll_ReadFifoU16", true, 5,
     [](uint32_t s, void** a, uint32_t* r) { return Quorvane_ReadFifoScalar(s, kFifo, 5, 6, 0, kAnyTimeout, a, r); }, 6,
     1},
    {"WriteFifoScalar", "BrennDll_WriteFifoU16", false, 0,
     [](uint32_t s, void** a, uint32_t* r) { return Quorvane_WriteFifoScalar(s, kFifo, a, 6, 0, kAnyTimeout, r); }, 6,
     5},
    {"ReadFifoComposite", "BrennDll_ReadFifoComposite", true, 15,
     [](uint32_t s, void** a, uint32_t* r) { return Quorvane_ReadFifoComposite(s, kFifo, 5, 3, kAnyTimeout, a, r); }, 5,
     1},
    {"WriteFifoComposite", "BrennDll_WriteFifoComposite", false, 0,
     [](uint32_t s, void** a, uint32_t* r) { return Quorvane_WriteFifoComposite(s, kFifo, a, 3, kAnyTimeout, r); }, 5,
     15},
};

struct RemainingCase {
    int32_t libraryAnswer;
    uint64_t remaining;
    int32_t expectedStatus;
    uint32_t expectedStored;
};

class ElementsRemaining : public DataplaneTest,
                          public ::testing::WithParamInterface<std::tuple<Transfer, RemainingCase>> {};

TEST_P(ElementsRemaining, CountIsNarrowedAndAnOverflowGivesWayOnlyToALibraryError) {
    const auto& [t, c] = GetParam();
    void** array = newArray(t.arrayType, t.arrayCount);
    scriptAnswer(t.target, c.libraryAnswer, {c.remaining});
    uint32_t remaining = kUntouched;
    EXPECT_EQ(t.call(session_, array, &remaining), c.expectedStatus);
    EXPECT_EQ(remaining, c.expectedStored) << "the low 32 bits are stored whatever the status";
    if (t.reads) {
        EXPECT_EQ(countOf(array), c.expectedStatus < 0 ? 0 : static_cast<int32_t>(t.expectedCountOnSuccess));
    } else {
        EXPECT_EQ(countOf(array), static_cast<int32_t>(t.arrayCount)) << "a write never changes the array";
    }
}

TEST_P(ElementsRemaining, NullDestinationSkipsTheReportAndItsCheck) {
    const auto& [t, c] = GetParam();
    void** array = newArray(t.arrayType, t.arrayCount);
    scriptAnswer(t.target, c.libraryAnswer, {c.remaining});
    EXPECT_EQ(t.call(session_, array, nullptr), c.libraryAnswer);
}

INSTANTIATE_TEST_SUITE_P(
    AllTransfers, ElementsRemaining,
    ::testing::Combine(::testing::ValuesIn(kTransfers),
                       ::testing::Values(RemainingCase{0, 0xFFFFFFFFu, 0, 0xFFFFFFFFu},
                                         RemainingCase{0, kTooManyRemaining, -52005, 0},
                                         RemainingCase{kLibraryWarning, kTooManyRemaining + 7, -52005, 7},
                                         RemainingCase{kLibraryWarning, 2, kLibraryWarning, 2},
                                         RemainingCase{kLibraryError, kTooManyRemaining, kLibraryError, 0})),
    [](const auto& info) { return std::string(std::get<0>(info.param).name) + "_" + std::to_string(info.index % 5); });

class FifoTransfer : public DataplaneTest {};

TEST_F(FifoTransfer, ScalarReadOfNoElementsStillAsksTheLibrary) {
    void** array = newArray(4, 3);
    scriptAnswer("BrennDll_ReadFifoI64", kLibraryWarning);
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 0, 4, 0, kAnyTimeout, array, nullptr), kLibraryWarning);
    EXPECT_EQ(countOf(array), 0);
    const auto reads = callsOf("BrennDll_ReadFifoI64");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].args[3], 0u);
}

TEST_F(FifoTransfer, CompositeReadGrowsAByteArrayToCountTimesElementSize) {
    void** array = newArray(5, 0);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 3, 4, kAnyTimeout, array, &remaining), 0);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 5);
    EXPECT_EQ(HostSim_BlockSize(array), 4u + 12);
    EXPECT_EQ(countOf(array), 12);
    EXPECT_EQ(remaining, 0u);
    const auto reads = callsOf("BrennDll_ReadFifoComposite");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].args[0], session_ | 0x4000u);
    EXPECT_EQ(reads[0].args[2], addressOf(array, 4));
    EXPECT_EQ(reads[0].args[3], 4u) << "bytes per element";
    EXPECT_EQ(reads[0].args[4], 3u) << "elements";
    EXPECT_EQ(reads[0].args[5], kAnyTimeout);
}

TEST_F(FifoTransfer, CompositeWriteDropsTrailingBytesThatMakeNoWholeElement) {
    void** array = newArray(5, 10);
    EXPECT_EQ(Quorvane_WriteFifoComposite(session_, kFifo, array, 4, kAnyTimeout, nullptr), 0);
    const auto writes = callsOf("BrennDll_WriteFifoComposite");
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].args[2], addressOf(array, 4));
    EXPECT_EQ(writes[0].args[3], 4u);
    EXPECT_EQ(writes[0].args[4], 2u);
    EXPECT_EQ(countOf(array), 10);
}

TEST_F(FifoTransfer, CompositeReadThatCannotFitAHostArrayIsRefusedBeforeAnythingHappens) {
    void** array = newArray(5, 6);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 0x10000, 0x10000, 0, array, &remaining), -52005);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
    EXPECT_EQ(countOf(array), 6);
    EXPECT_EQ(remaining, kUntouched);
    // The largest product that fits goes ahead (answered by script so no 4 GiB array is made).
    HostSim_FailNext("NumericArrayResize", 2);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 0xFFFFFFFFu, 1, 0, array, &remaining), -52000);
}

TEST_F(FifoTransfer, ZeroBytesPerElementIsAnInvalidArgumentForBothCompositeTransfers) {
    void** array = newArray(5, 8);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 2, 0, 0, array, &remaining), -52005);
    EXPECT_EQ(Quorvane_WriteFifoComposite(session_, kFifo, array, 0, 0, &remaining), -52005);
    EXPECT_EQ(remaining, kUntouched);
    EXPECT_EQ(countOf(array), 8);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

TEST_F(FifoTransfer, MissingArrayIsAnInvalidArgumentButRefusalComesFirst) {
    void* noBlock = nullptr;
    uint32_t remaining = kUntouched;
    for (void** array : {static_cast<void**>(nullptr), &noBlock}) {
        EXPECT_EQ(Quorvane_WriteFifoScalar(session_, kFifo, array, 3, 0, 0, &remaining), -52005);
        EXPECT_EQ(Quorvane_WriteFifoComposite(session_, kFifo, array, 4, 0, &remaining), -52005);
        EXPECT_EQ(Quorvane_WriteFifoComposite(session_ | 0x2000u, kFifo, array, 4, 0, &remaining), -61499);
        EXPECT_EQ(Quorvane_WriteFifoScalar(session_ | 0x2000u, kFifo, array, 3, 0, 0, &remaining), -61499);
    }
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 2, 3, 0, 0, nullptr, &remaining), -52005);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 2, 4, 0, nullptr, &remaining), -52005);
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_ | 0x2000u, kFifo, 2, 3, 0, 0, nullptr, &remaining), -61499);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_ | 0x2000u, kFifo, 2, 4, 0, nullptr, &remaining), -61499);
    EXPECT_EQ(remaining, kUntouched);
    EXPECT_EQ(noBlock, nullptr);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

TEST_F(FifoTransfer, RefusedReadTouchesNeitherArrayNorRemainingCount) {
    void** scalar = newArray(3, 2);
    void** bytes = newArray(5, 2);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoScalar(0x2005, kFifo, 4, 3, 0, 0, scalar, &remaining), -61499);
    EXPECT_EQ(Quorvane_ReadFifoComposite(0x2005, kFifo, 4, 1, 0, bytes, &remaining), -61499);
    EXPECT_EQ(countOf(scalar), 2);
    EXPECT_EQ(countOf(bytes), 2);
    EXPECT_EQ(remaining, kUntouched);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
}

}  // namespace
}  // namespace quorvane::testing
