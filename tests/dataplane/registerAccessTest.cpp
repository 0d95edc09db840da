// Register values as raw bit patterns, the null checks that come before refusal, and the 32-bit
// array transfers with the Host array grown (or emptied) around the read.
#include <gmock/gmock.h>

#include <bit>

#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;

class RegisterAccess : public DataplaneTest {
protected:
    template <typename T>
    void poke(uint32_t reg, T bits) {
        ASSERT_EQ(BrennSim_PokeRegisters(session_, reg, &bits, sizeof bits), 1);
    }
    template <typename T>
    T peek(uint32_t reg) {
        T bits{};
        EXPECT_EQ(BrennSim_PeekRegisters(session_, reg, &bits, sizeof bits), 1);
        return bits;
    }
    static std::vector<uint32_t> elementsOf(void** array) {
        std::vector<uint32_t> values(static_cast<size_t>(countOf(array)));
        std::memcpy(values.data(), static_cast<uint8_t*>(*array) + 4, values.size() * 4);
        return values;
    }
    static void fill(void** array, std::initializer_list<uint32_t> values) {
        std::memcpy(static_cast<uint8_t*>(*array) + 4, values.begin(), values.size() * 4);
    }
};

struct FloatPattern {
    float single;
    uint32_t singleBits;
    double dbl;
    uint64_t doubleBits;
};

class FloatBits : public RegisterAccess, public ::testing::WithParamInterface<FloatPattern> {};

TEST_P(FloatBits, WritesPassTheBitPatternAndReadsReturnItUnchanged) {
    const FloatPattern& p = GetParam();
    EXPECT_EQ(Quorvane_WriteSgl(session_, 8, p.single), 0);
    EXPECT_EQ(Quorvane_WriteDbl(session_, 16, p.dbl), 0);
    EXPECT_EQ(callsOf("BrennDll_WriteU32").at(0).args[2], p.singleBits);
    EXPECT_EQ(callsOf("BrennDll_WriteU64").at(0).args[2], p.doubleBits);
    EXPECT_EQ(peek<uint32_t>(8), p.singleBits);
    EXPECT_EQ(peek<uint64_t>(16), p.doubleBits);

    float single = 0;
    double dbl = 0;
    EXPECT_EQ(Quorvane_ReadSgl(session_, 8, &single), 0);
    EXPECT_EQ(Quorvane_ReadDbl(session_, 16, &dbl), 0);
    EXPECT_EQ(std::bit_cast<uint32_t>(single), p.singleBits);
    EXPECT_EQ(std::bit_cast<uint64_t>(dbl), p.doubleBits);
}
INSTANTIATE_TEST_SUITE_P(Patterns, FloatBits,
                         ::testing::Values(FloatPattern{1.0f, 0x3F800000u, 1.0, 0x3FF0000000000000u},
                                           FloatPattern{-2.5f, 0xC0200000u, -0.5, 0xBFE0000000000000u},
                                           FloatPattern{0.0f, 0u, -0.0, 0x8000000000000000u}));

// Reads deliver raw register bits even where they are no number (NaNs with a payload, which
// any integer-to-float conversion would destroy), straight into the caller's storage; 16-bit
// writes are zero-extended.
TEST_F(RegisterAccess, RegistersAreReadAndWrittenAsRawBits) {
    poke<uint32_t>(4, 0x7FC00123u);
    poke<uint64_t>(24, 0x7FF0000000000001u);
    poke<uint16_t>(40, 0xBEEF);
    float single = 0;
    double dbl = 0;
    uint16_t half = 0;
    uint32_t word = 0;
    EXPECT_EQ(Quorvane_ReadSgl(session_, 4, &single), 0);
    EXPECT_EQ(Quorvane_ReadDbl(session_, 24, &dbl), 0);
    EXPECT_EQ(Quorvane_Read16(session_, 40, &half), 0);
    EXPECT_EQ(Quorvane_Read32(session_, 4, &word), 0);
    EXPECT_EQ(std::bit_cast<uint32_t>(single), 0x7FC00123u);
    EXPECT_EQ(std::bit_cast<uint64_t>(dbl), 0x7FF0000000000001u);
    EXPECT_EQ(half, 0xBEEF);
    EXPECT_EQ(word, 0x7FC00123u);
    EXPECT_EQ(callsOf("BrennDll_ReadU64").at(0).args[2], reinterpret_cast<uintptr_t>(&dbl));

    EXPECT_EQ(Quorvane_Write16(session_, 2, 0xFFFF), 0);
    EXPECT_EQ(Quorvane_Write32(session_, 12, 0x89ABCDEFu), 0);
    EXPECT_EQ(callsOf("BrennDll_WriteU16").at(0).args[2], 0xFFFFu);
    EXPECT_EQ(peek<uint16_t>(2), 0xFFFF);
    EXPECT_EQ(peek<uint32_t>(12), 0x89ABCDEFu);
}

// A missing double or array is reported before the refused bit; other null value pointers
// are left to the library.
TEST_F(RegisterAccess, NullChecksComeBeforeTheRefusedBitForDoublesAndArraysOnly) {
    void* noBlock = nullptr;
    void** arrayWithoutBlock = &noBlock;
    for (const uint32_t session : {session_, session_ | 0x2000u}) {
        EXPECT_EQ(Quorvane_ReadDbl(session, 0, nullptr), -52005);
        for (void** array : {static_cast<void**>(nullptr), arrayWithoutBlock}) {
            EXPECT_EQ(Quorvane_ReadArray32(session, 0, 4, array), -52005);
            EXPECT_EQ(Quorvane_WriteArray32(session, 0, array), -52005);
        }
    }
    EXPECT_EQ(noBlock, nullptr);
    EXPECT_EQ(callsSinceOpen(), 0u);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);

    EXPECT_EQ(Quorvane_Read32(session_, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(Quorvane_ReadSgl(session_, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(callsOf("BrennDll_ReadU32").size(), 2u);
}

TEST_F(RegisterAccess, ReadArray32GrowsTheArrayAndLetsTheLibraryFillIt) {
    for (uint32_t i = 0; i < 3; ++i) poke<uint32_t>(100 + 4 * i, 0xA0 + i);
    void** array = newArray(7, 1);
    EXPECT_EQ(Quorvane_ReadArray32(session_, 100, 3, array), 0);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 7);
    EXPECT_EQ(HostSim_BlockSize(array), 4u + 3 * 4);
    EXPECT_THAT(elementsOf(array), ElementsAre(0xA0u, 0xA1u, 0xA2u));
    const auto reads = callsOf("BrennDll_ReadArrayU32");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].args[2], addressOf(array, 4)) << "the first element of the grown block";
    EXPECT_EQ(reads[0].args[3], 3u);
}

// The count left in the array follows the status: the read count on success or warning, none
// after an error, a refusal or a failed resize (whose Host result is converted).
struct ArrayReadOutcome {
    const char* name;
    uint32_t sessionFlags;
    int32_t libraryAnswer;
    int32_t hostResize;
    uint32_t elements;
    int32_t expectedStatus;
    int32_t expectedCount;
};

class ReadArray32Outcome : public RegisterAccess, public ::testing::WithParamInterface<ArrayReadOutcome> {};

TEST_P(ReadArray32Outcome, CountLeftInTheArrayFollowsTheStatus) {
    const ArrayReadOutcome& o = GetParam();
    scriptAnswer("BrennDll_ReadArrayU32", o.libraryAnswer);
    if (o.hostResize != 0) HostSim_FailNext("NumericArrayResize", o.hostResize);
    void** array = newArray(7, 5);
    EXPECT_EQ(Quorvane_ReadArray32(session_ | o.sessionFlags, 0, o.elements, array), o.expectedStatus);
    EXPECT_EQ(countOf(array), o.expectedCount);
    const bool reached = o.sessionFlags == 0 && o.hostResize == 0;
    EXPECT_EQ(callsSinceOpen(), reached ? 1u : 0u);
    if (reached) {
        EXPECT_EQ(callsOf("BrennDll_ReadArrayU32").at(0).args[3], o.elements);
    }
}
INSTANTIATE_TEST_SUITE_P(Outcomes, ReadArray32Outcome,
                         ::testing::Values(ArrayReadOutcome{"Success", 0, 0, 0, 4, 0, 4},
                                           ArrayReadOutcome{"NoElements", 0, 0, 0, 0, 0, 0},
                                           ArrayReadOutcome{"Warning", 0, kLibraryWarning, 0, 4, kLibraryWarning, 4},
                                           ArrayReadOutcome{"Error", 0, kLibraryError, 0, 4, kLibraryError, 0},
                                           ArrayReadOutcome{"Refused", 0x2000, 0, 0, 4, -61499, 0},
                                           ArrayReadOutcome{"ResizeOutOfMemory", 0, 0, 2, 4, -52000, 0},
                                           ArrayReadOutcome{"ResizeNegativeError", 0, 0, -7, 4, -52003, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

// The array goes over as it is, never resized; a negative count is widened with its sign.
TEST_F(RegisterAccess, WriteArray32HandsOverTheArrayAsItIs) {
    void** array = newArray(7, 3);
    fill(array, {7, 8, 9});
    EXPECT_EQ(Quorvane_WriteArray32(session_, 200, array), 0);
    const auto write = callsOf("BrennDll_WriteArrayU32").at(0);
    EXPECT_EQ(write.args[2], addressOf(array, 4));
    EXPECT_EQ(write.args[3], 3u);
    EXPECT_EQ(peek<uint32_t>(200), 7u);
    EXPECT_EQ(peek<uint32_t>(208), 9u);
    EXPECT_THAT(elementsOf(array), ElementsAre(7u, 8u, 9u));
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);

    const int32_t negative = -2;
    std::memcpy(*array, &negative, sizeof negative);
    scriptAnswer("BrennDll_WriteArrayU32", kLibraryError);
    EXPECT_EQ(Quorvane_WriteArray32(session_, 0, array), kLibraryError);
    EXPECT_EQ(callsOf("BrennDll_WriteArrayU32").at(1).args[3], 0xFFFFFFFFFFFFFFFEu);
}

}  // namespace
}  // namespace quorvane::testing
