// Registers and 32-bit arrays of the simulated target.
#include <cstring>
#include <limits>
#include <vector>

#include "BrennSimFixture.h"

namespace {

using RegisterTest = BrennSimTest;

// One width of register access, so that the round trip is tested once for all three.
template <typename T>
struct Access;
template <>
struct Access<uint16_t> {
    static int32_t read(uint32_t s, uint32_t r, uint16_t* v) { return BrennDll_ReadU16(s, r, v); }
    static int32_t write(uint32_t s, uint32_t r, uint16_t v) { return BrennDll_WriteU16(s, r, v); }
};
template <>
struct Access<uint32_t> {
    static int32_t read(uint32_t s, uint32_t r, uint32_t* v) { return BrennDll_ReadU32(s, r, v); }
    static int32_t write(uint32_t s, uint32_t r, uint32_t v) { return BrennDll_WriteU32(s, r, v); }
};
template <>
struct Access<uint64_t> {
    static int32_t read(uint32_t s, uint32_t r, uint64_t* v) { return BrennDll_ReadU64(s, r, v); }
    static int32_t write(uint32_t s, uint32_t r, uint64_t v) { return BrennDll_WriteU64(s, r, v); }
};

template <typename T>
class RegisterWidthTest : public BrennSimTest {};
using Widths = ::testing::Types<uint16_t, uint32_t, uint64_t>;
TYPED_TEST_SUITE(RegisterWidthTest, Widths);

TYPED_TEST(RegisterWidthTest, WrittenValuesReadBack) {
    uint32_t session = BrennSimTest::openSession();
    const TypeParam values[] = {std::numeric_limits<TypeParam>::max(), static_cast<TypeParam>(0xA5C3A5C3A5C3A5C3u), 1};
    uint32_t reg = 0x100;
    for (TypeParam value : values) {
        ASSERT_EQ(Access<TypeParam>::write(session, reg, value), 0);
        reg += 0x10;
    }
    reg = 0x100;
    for (TypeParam value : values) {
        TypeParam read = 0;
        ASSERT_EQ(Access<TypeParam>::read(session, reg, &read), 0);
        EXPECT_EQ(read, value);
        reg += 0x10;
    }
}

TYPED_TEST(RegisterWidthTest, UnwrittenRegistersReadZero) {
    uint32_t session = BrennSimTest::openSession();
    TypeParam read = 1;
    ASSERT_EQ(Access<TypeParam>::read(session, 0x7FFF0000u, &read), 0);
    EXPECT_EQ(read, 0u);
}

TYPED_TEST(RegisterWidthTest, ReadWithoutValuePointerIsRefused) {
    uint32_t session = BrennSimTest::openSession();
    EXPECT_EQ(Access<TypeParam>::read(session, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(Access<TypeParam>::read(kUnknownSession, 0, nullptr), kBrennSimInvalidSession);
}

TEST_F(RegisterTest, WidthsOverlapLittleEndian) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU32(session, 8, 0x11223344u), 0);
    uint16_t low = 0, high = 0;
    ASSERT_EQ(BrennDll_ReadU16(session, 8, &low), 0);
    ASSERT_EQ(BrennDll_ReadU16(session, 10, &high), 0);
    EXPECT_EQ(low, 0x3344u);
    EXPECT_EQ(high, 0x1122u);

    // Unaligned and across the storage's 8-byte words.
    ASSERT_EQ(BrennDll_WriteU64(session, 0x105, 0x0102030405060708u), 0);
    uint32_t first = 0, second = 0;
    ASSERT_EQ(BrennDll_ReadU32(session, 0x105, &first), 0);
    ASSERT_EQ(BrennDll_ReadU32(session, 0x109, &second), 0);
    EXPECT_EQ(first, 0x05060708u);
    EXPECT_EQ(second, 0x01020304u);
}

TEST_F(RegisterTest, ANarrowWriteLeavesNeighbouringBytes) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU64(session, 0, 0xFFFFFFFFFFFFFFFFu), 0);
    ASSERT_EQ(BrennDll_WriteU16(session, 2, 0), 0);
    uint64_t value = 0;
    ASSERT_EQ(BrennDll_ReadU64(session, 0, &value), 0);
    EXPECT_EQ(value, 0xFFFFFFFF0000FFFFu);
}

TEST_F(RegisterTest, AddressesWrapAtTheTopOfTheSpace) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU32(session, 0xFFFFFFFEu, 0xAABBCCDDu), 0);
    uint16_t wrapped = 0;
    ASSERT_EQ(BrennDll_ReadU16(session, 0, &wrapped), 0);
    EXPECT_EQ(wrapped, 0xAABBu);
}

TEST_F(RegisterTest, SessionsHaveSeparateRegisters) {
    uint32_t a = openSession();
    uint32_t b = openSession();
    uint32_t resource = openResource(a);
    ASSERT_EQ(BrennDll_WriteU32(a, 0x20, 1), 0);
    ASSERT_EQ(BrennDll_WriteU32(b, 0x20, 2), 0);
    uint32_t value = 0;
    ASSERT_EQ(BrennDll_ReadU32(a, 0x20, &value), 0);
    EXPECT_EQ(value, 1u);
    ASSERT_EQ(BrennDll_ReadU32(resource, 0x20, &value), 0);
    EXPECT_EQ(value, 0u);
}

TEST_F(RegisterTest, ArraysRoundTripAndLieElementByElement) {
    uint32_t session = openSession();
    const std::vector<uint32_t> written = {1, 0xFFFFFFFFu, 3, 0x80000000u};
    ASSERT_EQ(BrennDll_WriteArrayU32(session, 0x200, written.data(), written.size()), 0);
    std::vector<uint32_t> read(written.size());
    ASSERT_EQ(BrennDll_ReadArrayU32(session, 0x200, read.data(), read.size()), 0);
    EXPECT_EQ(read, written);
    uint32_t second = 0;
    ASSERT_EQ(BrennDll_ReadU32(session, 0x204, &second), 0);
    EXPECT_EQ(second, 0xFFFFFFFFu);
}

TEST_F(RegisterTest, EmptyArraysNeedNoBuffer) {
    uint32_t session = openSession();
    EXPECT_EQ(BrennDll_ReadArrayU32(session, 0, nullptr, 0), 0);
    EXPECT_EQ(BrennDll_WriteArrayU32(session, 0, nullptr, 0), 0);
    EXPECT_EQ(BrennDll_ReadArrayU32(session, 0, nullptr, 1), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_WriteArrayU32(session, 0, nullptr, 1), kBrennSimInvalidArgument);
}

TEST_F(RegisterTest, PeekAndPokeSeeTheSameBytes) {
    uint32_t session = openSession();
    const uint8_t poked[] = {0x78, 0x56, 0x34, 0x12};
    ASSERT_EQ(BrennSim_PokeRegisters(session | 0x4000u, 0x30, poked, sizeof poked), 1);
    uint32_t value = 0;
    ASSERT_EQ(BrennDll_ReadU32(session, 0x30, &value), 0);
    EXPECT_EQ(value, 0x12345678u);

    ASSERT_EQ(BrennDll_WriteU16(session, 0x40, 0xBEEF), 0);
    uint8_t peeked[2] = {};
    ASSERT_EQ(BrennSim_PeekRegisters(session, 0x40, peeked, sizeof peeked), 1);
    EXPECT_EQ(peeked[0], 0xEF);
    EXPECT_EQ(peeked[1], 0xBE);
}

TEST_F(RegisterTest, PeekAndPokeAreNotLoggedAndNeedAnOpenSession) {
    uint32_t session = openSession();
    size_t calls = BrennSim_CallCount();
    uint8_t byte = 0;
    EXPECT_EQ(BrennSim_PeekRegisters(session, 0, &byte, 1), 1);
    EXPECT_EQ(BrennSim_PokeRegisters(session, 0, &byte, 1), 1);
    EXPECT_EQ(BrennSim_CallCount(), calls);
    EXPECT_EQ(BrennSim_PeekRegisters(kUnknownSession, 0, &byte, 1), 0);
    EXPECT_EQ(BrennSim_PokeRegisters(kUnknownSession, 0, &byte, 1), 0);
    EXPECT_EQ(BrennSim_PeekRegisters(session, 0, nullptr, 1), 0);
}

}  // namespace
