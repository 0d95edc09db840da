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

// A read grows the array with the type code and reads into its first element; a write hands
// the array over from its first element and leaves it alone.
TEST_P(ScalarFifo, TypeCodePicksTheFunctionAndTheFirstElementIsPassed) {
    const ScalarType& t = GetParam();
    const auto type = static_cast<int32_t>(t.typeCode);
    void** readInto = newArray(type, 1);
    void** written = newArray(type, 4);
    const size_t writtenSize = HostSim_BlockSize(written);
    scriptAnswer(t.read, 0, {9});
    scriptAnswer(t.write, 0, {11});
    uint32_t remaining[2] = {kUntouched, kUntouched};
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 3, t.typeCode, 0xFFFF, kAnyTimeout, readInto, &remaining[0]), 0);
    EXPECT_EQ(Quorvane_WriteFifoScalar(session_, kFifo, written, t.typeCode, 0xFFFF, kAnyTimeout, &remaining[1]), 0);

    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), type);
    EXPECT_EQ(HostSim_BlockSize(readInto), t.firstElement + 3 * t.elementBytes);
    EXPECT_EQ(countOf(readInto), 3);
    EXPECT_EQ(countOf(written), 4);
    EXPECT_EQ(HostSim_BlockSize(written), writtenSize);
    EXPECT_EQ(remaining[0], 9u);
    EXPECT_EQ(remaining[1], 11u);
    EXPECT_EQ(callsSinceOpen(), 2u);
    const auto read = callsOf(t.read).at(0);
    const auto write = callsOf(t.write).at(0);
    EXPECT_EQ(read.args[0], session_ | 0x4000u);
    EXPECT_EQ(read.args[1], kFifo);
    EXPECT_EQ(read.args[2], addressOf(readInto, t.firstElement));
    EXPECT_EQ(read.args[3], 3u);
    EXPECT_EQ(read.args[4], kAnyTimeout);
    EXPECT_EQ(write.args[0], session_ | 0x4000u);
    EXPECT_EQ(write.args[2], addressOf(written, t.firstElement));
    EXPECT_EQ(write.args[3], 4u);
    EXPECT_EQ(write.args[4], kAnyTimeout);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, ScalarFifo, ::testing::ValuesIn(kScalarTypes),
                         [](const auto& info) { return "Type" + std::to_string(info.param.typeCode); });

class BadTypeCode : public DataplaneTest, public ::testing::WithParamInterface<uint32_t> {};

// A read still resizes with the code, then reports the invalid argument with an empty array;
// a write reports it without writing. Nothing was moved, so nothing remains to report.
TEST_P(BadTypeCode, IsAnInvalidArgumentAndNothingIsTransferred) {
    void** readInto = newArray(3, 2);
    void** written = newArray(3, 2);
    uint32_t remaining[2] = {kUntouched, kUntouched};
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 2, GetParam(), 0, kAnyTimeout, readInto, &remaining[0]), -52005);
    EXPECT_EQ(Quorvane_WriteFifoScalar(session_, kFifo, written, GetParam(), 0, kAnyTimeout, &remaining[1]), -52005);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), static_cast<int32_t>(GetParam()));
    EXPECT_EQ(countOf(readInto), 0);
    EXPECT_EQ(countOf(written), 2);
    EXPECT_EQ(remaining[0], 0u);
    EXPECT_EQ(remaining[1], 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}
INSTANTIATE_TEST_SUITE_P(OutsideOneToEight, BadTypeCode, ::testing::Values(0u, 9u, 0xFFFFFFFFu));

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

// The low 32 bits are stored whatever the status; an overflow gives way only to a library
// error, and a null destination skips the report and its check.
TEST_P(ElementsRemaining, CountIsNarrowedAndAnOverflowGivesWayOnlyToALibraryError) {
    const auto& [t, c] = GetParam();
    void** array = newArray(t.arrayType, t.arrayCount);
    scriptAnswer(t.target, c.libraryAnswer, {c.remaining});
    uint32_t remaining = kUntouched;
    EXPECT_EQ(t.call(session_, array, &remaining), c.expectedStatus);
    EXPECT_EQ(remaining, c.expectedStored);
    if (t.reads) {
        EXPECT_EQ(countOf(array), c.expectedStatus < 0 ? 0 : static_cast<int32_t>(t.expectedCountOnSuccess));
    } else {
        EXPECT_EQ(countOf(array), static_cast<int32_t>(t.arrayCount)) << "a write never changes the array";
    }
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

// A composite read grows a byte array to count × element size; a composite write drops
// trailing bytes that make no whole element; a scalar read of nothing still asks the library.
TEST_F(FifoTransfer, CompositeTransfersCountWholeElementsAndAnEmptyReadStillAsks) {
    void** readInto = newArray(5, 0);
    void** written = newArray(5, 10);
    void** none = newArray(4, 3);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 3, 4, kAnyTimeout, readInto, nullptr), 0);
    // The FIFO just read from cannot be written, so the target's answer is scripted.
    scriptAnswer("BrennDll_WriteFifoComposite", 0);
    EXPECT_EQ(Quorvane_WriteFifoComposite(session_, kFifo, written, 4, kAnyTimeout, nullptr), 0);
    scriptAnswer("BrennDll_ReadFifoI64", kLibraryWarning);
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kFifo, 0, 4, 0, kAnyTimeout, none, nullptr), kLibraryWarning);

    EXPECT_EQ(HostSim_BlockSize(readInto), 4u + 12);
    EXPECT_EQ(countOf(readInto), 12);
    const auto read = callsOf("BrennDll_ReadFifoComposite").at(0);
    EXPECT_EQ(read.args[2], addressOf(readInto, 4));
    EXPECT_EQ(read.args[3], 4u) << "bytes per element";
    EXPECT_EQ(read.args[4], 3u) << "elements";
    EXPECT_EQ(read.args[5], kAnyTimeout);
    const auto write = callsOf("BrennDll_WriteFifoComposite").at(0);
    EXPECT_EQ(write.args[2], addressOf(written, 4));
    EXPECT_EQ(write.args[3], 4u);
    EXPECT_EQ(write.args[4], 2u);
    EXPECT_EQ(countOf(written), 10);
    EXPECT_EQ(countOf(none), 0);
    EXPECT_EQ(callsOf("BrennDll_ReadFifoI64").at(0).args[3], 0u);
}

// A composite read of elements of 0 bytes empties the array and still asks the library, whose
// answer is the result.
TEST_F(FifoTransfer, CompositeReadOfZeroByteElementsEmptiesTheArrayAndAsksTheLibrary) {
    void** array = newArray(5, 6);
    uint32_t remaining = kUntouched;
    scriptAnswer("BrennDll_ReadFifoComposite", kLibraryWarning, {9});
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 2, 0, kAnyTimeout, array, &remaining), kLibraryWarning);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 5);
    EXPECT_EQ(HostSim_BlockSize(array), 4u);
    EXPECT_EQ(countOf(array), 0);
    EXPECT_EQ(remaining, 9u);
    ASSERT_EQ(callsSinceOpen(), 1u);
    const auto read = callsOf("BrennDll_ReadFifoComposite").at(0);
    EXPECT_EQ(read.args[2], addressOf(array, 4));
    EXPECT_EQ(read.args[3], 0u) << "bytes per element";
    EXPECT_EQ(read.args[4], 2u) << "elements";
}

// A composite read whose size cannot fit a Host array, or a composite write of elements of 0
// bytes, is refused before anything happens.
TEST_F(FifoTransfer, ImpossibleCompositeSizesAreInvalidArgumentsBeforeAnythingHappens) {
    void** array = newArray(5, 6);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 0x10000, 0x10000, 0, array, &remaining), -52005);
    EXPECT_EQ(Quorvane_WriteFifoComposite(session_, kFifo, array, 0, 0, &remaining), -52005);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
    EXPECT_EQ(countOf(array), 6);
    EXPECT_EQ(remaining, kUntouched);
    // The largest product that fits goes ahead (its resize fails so no 4 GiB array is made).
    HostSim_FailNext("NumericArrayResize", 2);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kFifo, 0xFFFFFFFFu, 1, 0, array, &remaining), -52000);
}

// A refusal comes before the missing-array check, and touches neither array nor count.
TEST_F(FifoTransfer, MissingArrayIsAnInvalidArgumentButRefusalComesFirst) {
    void* noBlock = nullptr;
    void** scalar = newArray(3, 2);
    void** bytes = newArray(5, 2);
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
    EXPECT_EQ(Quorvane_ReadFifoScalar(0x2005, kFifo, 4, 3, 0, 0, scalar, &remaining), -61499);
    EXPECT_EQ(Quorvane_ReadFifoComposite(0x2005, kFifo, 4, 1, 0, bytes, &remaining), -61499);
    EXPECT_EQ(countOf(scalar), 2);
    EXPECT_EQ(countOf(bytes), 2);
    EXPECT_EQ(remaining, kUntouched);
    EXPECT_EQ(noBlock, nullptr);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

}  // namespace
}  // namespace quorvane::testing
