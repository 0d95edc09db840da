// Copying FIFO transfers against the simulated target: which typed function a type code picks,
// the data arriving intact from the right place of the Host block, the array count left after a
// read, and the elements-remaining count narrowed to 32 bits.
#include <string>
#include <tuple>

#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

constexpr uint32_t kReadFifo = 1;
constexpr uint32_t kWriteFifo = 2;
constexpr uint64_t kTooManyRemaining = 0x100000000u;

// The target's counter pattern: element i holds the low bytes of i, little-endian.
uint8_t patternByte(uint64_t index, size_t k) {
    return k < 8 ? static_cast<uint8_t>(index >> (8 * k)) : 0;
}

// The index of the first of `count` elements that breaks the pattern, or `count`.
uint64_t firstBreak(const uint8_t* elements, size_t bytes, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        for (size_t k = 0; k < bytes; ++k) {
            if (elements[i * bytes + k] != patternByte(i, k)) return i;
        }
    }
    return count;
}

class FifoTransfer : public DataplaneTest {
protected:
    BrennSimFifoStats stats(uint32_t fifo) const {
        BrennSimFifoStats s{};
        EXPECT_EQ(BrennSim_GetFifoStats(session_, fifo, &s), 1);
        return s;
    }
};

// Type codes 1..8 in order; 64-bit elements start at offset 8 of the Host block, others at 4.
const char* const kTypeNames[] = {"I8", "I16", "I32", "I64", "U8", "U16", "U32", "U64"};

class ScalarFifo : public FifoTransfer, public ::testing::WithParamInterface<uint32_t> {};

// A read grows the array with the type code and fills it from its first element; a write hands
// the array over from its first element. A read of nothing still asks the library.
TEST_P(ScalarFifo, TypeCodePicksTheFunctionAndTheDataArrivesIntact) {
    const uint32_t type = GetParam();
    const size_t bytes = size_t{1} << ((type - 1) % 4), first = bytes == 8 ? 8 : 4;
    const std::string name = kTypeNames[type - 1];
    void** readInto = newArray(static_cast<int32_t>(type), 1);
    uint32_t remaining[2] = {kUntouched, kUntouched};
    ASSERT_EQ(Quorvane_ReadFifoScalar(session_, kReadFifo, 300, type, 0xFFFF, kAnyTimeout, readInto, remaining), 0);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), static_cast<int32_t>(type));
    EXPECT_EQ(HostSim_BlockSize(readInto), first + 300 * bytes);
    ASSERT_EQ(countOf(readInto), 300);
    EXPECT_EQ(firstBreak(elementsOf(readInto, first), bytes, 300), 300u);

    void** written = newArray(static_cast<int32_t>(type), 300);
    for (size_t b = 0; b < 300 * bytes; ++b) elementsOf(written, first)[b] = patternByte(b / bytes, b % bytes);
    ASSERT_EQ(Quorvane_WriteFifoScalar(session_, kWriteFifo, written, type, 0xFFFF, kAnyTimeout, &remaining[1]), 0);
    EXPECT_EQ(stats(kWriteFifo).elementsTransferred, 300u);
    EXPECT_EQ(stats(kWriteFifo).patternErrors, 0u);
    EXPECT_EQ(remaining[0], uint32_t{kBrennSimDefaultFifoDepth}) << "the target keeps the FIFO full";
    EXPECT_EQ(remaining[1], uint32_t{kBrennSimDefaultFifoDepth}) << "and empty";
    EXPECT_EQ(callsOf("BrennDll_ReadFifo" + name).at(0).args[4], kAnyTimeout);
    EXPECT_EQ(callsOf("BrennDll_WriteFifo" + name).at(0).args[4], kAnyTimeout);
    EXPECT_EQ(callsSinceOpen(), 2u);
    // Sent again, the elements break the pattern: the target does check what it is sent.
    ASSERT_EQ(Quorvane_WriteFifoScalar(session_, kWriteFifo, written, type, 0, 0, nullptr), 0);
    EXPECT_GT(stats(kWriteFifo).patternErrors, 0u);
    EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kReadFifo, 0, type, 0, 0, readInto, nullptr), 0);
    EXPECT_EQ(callsOf("BrennDll_ReadFifo" + name).at(1).args[3], 0u);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, ScalarFifo, ::testing::Range(1u, 9u),
                         [](const auto& info) { return "Type" + std::to_string(info.param); });

// A read still resizes with the code, then reports the invalid argument with an empty array;
// a write reports it without writing. Nothing was moved, so nothing remains to report.
TEST_F(FifoTransfer, BadTypeCodeIsAnInvalidArgumentAndNothingIsTransferred) {
    for (const uint32_t type : {0u, 9u, 0xFFFFFFFFu}) {
        void** readInto = newArray(3, 2);
        uint32_t remaining[2] = {kUntouched, kUntouched};
        EXPECT_EQ(Quorvane_ReadFifoScalar(session_, kReadFifo, 2, type, 0, 0, readInto, &remaining[0]), -52005);
        EXPECT_EQ(HostSim_LastResizeTypeCode(), static_cast<int32_t>(type));
        EXPECT_EQ(Quorvane_WriteFifoScalar(session_, kWriteFifo, readInto, type, 0, 0, &remaining[1]), -52005);
        EXPECT_EQ(countOf(readInto), 0);
        EXPECT_EQ(remaining[0], 0u);
        EXPECT_EQ(remaining[1], 0u);
    }
    EXPECT_EQ(callsSinceOpen(), 0u);
}

// The four transfers behind one signature, on an array of `arrayCount` elements.
struct Transfer {
    const char* name;
    const char* target;
    bool reads;
    int32_t (*call)(uint32_t session, void** array, uint32_t* remaining);
    int32_t arrayType;
    int32_t arrayCount;  // and what a successful read leaves
};

const Transfer kTransfers[] = {
    {"ReadFifoScalar", "BrennDll_ReadFifoU16", true,
     [](auto s, auto a, auto r) { return Quorvane_ReadFifoScalar(s, kReadFifo, 5, 6, 0, kAnyTimeout, a, r); }, 6, 5},
    {"WriteFifoScalar", "BrennDll_WriteFifoU16", false,
     [](auto s, auto a, auto r) { return Quorvane_WriteFifoScalar(s, kWriteFifo, a, 6, 0, kAnyTimeout, r); }, 6, 5},
    {"ReadFifoComposite", "BrennDll_ReadFifoComposite", true,
     [](auto s, auto a, auto r) { return Quorvane_ReadFifoComposite(s, kReadFifo, 5, 3, kAnyTimeout, a, r); }, 5, 15},
    {"WriteFifoComposite", "BrennDll_WriteFifoComposite", false,
     [](auto s, auto a, auto r) { return Quorvane_WriteFifoComposite(s, kWriteFifo, a, 3, kAnyTimeout, r); }, 5, 15},
};

// The library's answer and count, and the status and count the Host gets.
using RemainingCase = std::tuple<int32_t, uint64_t, int32_t, uint32_t>;

class ElementsRemaining : public DataplaneTest,
                          public ::testing::WithParamInterface<std::tuple<Transfer, RemainingCase>> {};

// The low 32 bits are stored whatever the status (0 when the library set none); an overflow gives
// way only to a library error, a null destination skips the report, a failed read empties the array.
TEST_P(ElementsRemaining, CountIsNarrowedAndAnOverflowGivesWayOnlyToALibraryError) {
    const Transfer& t = std::get<0>(GetParam());
    const auto& [libraryAnswer, libraryRemaining, status, stored] = std::get<1>(GetParam());
    void** array = newArray(t.arrayType, t.arrayCount);
    scriptAnswer(t.target, libraryAnswer, {libraryRemaining});
    uint32_t remaining = kUntouched;
    EXPECT_EQ(t.call(session_, array, &remaining), status);
    EXPECT_EQ(remaining, stored);
    EXPECT_EQ(countOf(array), t.reads && status < 0 ? 0 : t.arrayCount);
    scriptAnswer(t.target, libraryAnswer, {libraryRemaining});
    EXPECT_EQ(t.call(session_, array, nullptr), libraryAnswer);
    scriptAnswer(t.target, libraryAnswer);
    EXPECT_EQ(t.call(session_, array, &remaining), libraryAnswer);
    EXPECT_EQ(remaining, 0u) << "a count the library did not set";
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

// A composite read grows a byte array to count × element size; a composite write drops trailing
// bytes that make no whole element.
TEST_F(FifoTransfer, CompositeElementsGoThereAndBackAsWholeElements) {
    void** array = newArray(5, 0);
    ASSERT_EQ(Quorvane_ReadFifoComposite(session_, kReadFifo, 50, 6, kAnyTimeout, array, nullptr), 0);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 5);
    EXPECT_EQ(HostSim_BlockSize(array), 4u + 300);
    ASSERT_EQ(countOf(array), 300);
    EXPECT_EQ(firstBreak(elementsOf(array, 4), 6, 50), 50u);
    const int32_t shortOfFifty = 299;
    std::memcpy(*array, &shortOfFifty, sizeof shortOfFifty);
    ASSERT_EQ(Quorvane_WriteFifoComposite(session_, kWriteFifo, array, 6, kAnyTimeout, nullptr), 0);
    EXPECT_EQ(stats(kWriteFifo).elementsTransferred, 49u);
    EXPECT_EQ(stats(kWriteFifo).patternErrors, 0u);
    EXPECT_EQ(callsOf("BrennDll_ReadFifoComposite").at(0).args[5], kAnyTimeout);
    EXPECT_EQ(callsOf("BrennDll_WriteFifoComposite").at(0).args[5], kAnyTimeout);
}

// A composite read whose size cannot fit a Host array, or a write of 0-byte elements, is refused
// before anything happens; a read of 0-byte elements empties the array and still asks the library.
TEST_F(FifoTransfer, CompositeSizesAtTheEdges) {
    void** array = newArray(5, 6);
    uint32_t remaining = kUntouched;
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kReadFifo, 0x10000, 0x10000, 0, array, &remaining), -52005);
    EXPECT_EQ(Quorvane_WriteFifoComposite(session_, kWriteFifo, array, 0, 0, &remaining), -52005);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
    EXPECT_EQ(countOf(array), 6);
    EXPECT_EQ(remaining, kUntouched);

    scriptAnswer("BrennDll_ReadFifoComposite", kLibraryWarning);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kReadFifo, 2, 0, 0, array, nullptr), kLibraryWarning);
    EXPECT_EQ(countOf(array), 0);
    EXPECT_EQ(HostSim_BlockSize(array), 4u);
    const auto read = callsOf("BrennDll_ReadFifoComposite").at(0);
    EXPECT_EQ(read.args[3], 0u) << "bytes per element";
    EXPECT_EQ(read.args[4], 2u) << "elements";
    // The largest product that fits goes ahead (its resize fails so no 4 GiB array is made).
    HostSim_FailNext("NumericArrayResize", 2);
    EXPECT_EQ(Quorvane_ReadFifoComposite(session_, kReadFifo, 0xFFFFFFFFu, 1, 0, array, &remaining), -52000);
}

}  // namespace
}  // namespace quorvane::testing
