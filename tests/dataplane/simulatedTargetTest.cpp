// The library's exports against the simulated target serving real data: FIFO transfers of
// every element type and of composite elements, and real regions handed back in acquisition
// order whatever order the Host deletes them in.
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

constexpr uint32_t kReadFifo = 1;
constexpr uint32_t kWriteFifo = 2;

struct ElementType {
    uint32_t typeCode;
    size_t bytes;
    size_t firstElement;  // offset of element 0 in the Host array's block
};

std::ostream& operator<<(std::ostream& out, const ElementType& t) {
    return out << "type " << t.typeCode;
}

const ElementType kElementTypes[] = {{1, 1, 4}, {2, 2, 4}, {3, 4, 4}, {4, 8, 8},
                                     {5, 1, 4}, {6, 2, 4}, {7, 4, 4}, {8, 8, 8}};

// Element i of the target's pattern: the low bytes of i, little-endian.
bool holdsPattern(const uint8_t* element, size_t bytes, uint64_t index) {
    for (size_t k = 0; k < bytes; ++k) {
        if (element[k] != (k < 8 ? static_cast<uint8_t>(index >> (8 * k)) : 0)) return false;
    }
    return true;
}

void putPattern(uint8_t* element, size_t bytes, uint64_t index) {
    for (size_t k = 0; k < bytes; ++k) element[k] = k < 8 ? static_cast<uint8_t>(index >> (8 * k)) : 0;
}

class SimulatedTarget : public DataplaneTest {
protected:
    BrennSimFifoStats stats(uint32_t fifo) const {
        BrennSimFifoStats s{};
        EXPECT_EQ(BrennSim_GetFifoStats(session_, fifo, &s), 1);
        return s;
    }
};

class ScalarData : public SimulatedTarget, public ::testing::WithParamInterface<ElementType> {};

TEST_P(ScalarData, ReadArrayHoldsTheCounterPattern) {
    const ElementType& t = GetParam();
    void** array = newArray(static_cast<int32_t>(t.typeCode), 0);
    uint32_t remaining = kUntouched;
    ASSERT_EQ(Quorvane_ReadFifoScalar(session_, kReadFifo, 300, t.typeCode, 0, 0, array, &remaining), 0);
    ASSERT_EQ(countOf(array), 300);
    const uint8_t* elements = static_cast<uint8_t*>(*array) + t.firstElement;
    for (uint64_t i = 0; i < 300; ++i) ASSERT_TRUE(holdsPattern(elements + i * t.bytes, t.bytes, i)) << i;
    EXPECT_EQ(remaining, uint32_t{kBrennSimDefaultFifoDepth}) << "the target keeps the FIFO full";
}

TEST_P(ScalarData, WrittenPatternArrivesIntact) {
    const ElementType& t = GetParam();
    void** array = newArray(static_cast<int32_t>(t.typeCode), 300);
    uint8_t* elements = static_cast<uint8_t*>(*array) + t.firstElement;
    for (uint64_t i = 0; i < 300; ++i) putPattern(elements + i * t.bytes, t.bytes, i);
    uint32_t remaining = 0;
    ASSERT_EQ(Quorvane_WriteFifoScalar(session_, kWriteFifo, array, t.typeCode, 0, 0, &remaining), 0);
    EXPECT_EQ(stats(kWriteFifo).elementsTransferred, 300u);
    EXPECT_EQ(stats(kWriteFifo).patternErrors, 0u);
    EXPECT_EQ(remaining, uint32_t{kBrennSimDefaultFifoDepth});
    // The same array again breaks the pattern from its second element on (elements 300..599
    // were expected), so a transfer that dropped or reordered data would be seen too.
    ASSERT_EQ(Quorvane_WriteFifoScalar(session_, kWriteFifo, array, t.typeCode, 0, 0, nullptr), 0);
    EXPECT_GT(stats(kWriteFifo).patternErrors, 0u);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, ScalarData, ::testing::ValuesIn(kElementTypes),
                         [](const auto& info) { return "Type" + std::to_string(info.param.typeCode); });

TEST_F(SimulatedTarget, CompositeElementsGoThereAndBack) {
    constexpr uint32_t kBytes = 6;
    void** array = newArray(5, 0);
    uint32_t remaining = 0;
    ASSERT_EQ(Quorvane_ReadFifoComposite(session_, kReadFifo, 50, kBytes, 0, array, &remaining), 0);
    ASSERT_EQ(countOf(array), 50 * int32_t{kBytes});
    const uint8_t* bytes = static_cast<uint8_t*>(*array) + 4;
    for (uint64_t i = 0; i < 50; ++i) ASSERT_TRUE(holdsPattern(bytes + i * kBytes, kBytes, i)) << i;
    ASSERT_EQ(Quorvane_WriteFifoComposite(session_, kWriteFifo, array, kBytes, 0, &remaining), 0);
    EXPECT_EQ(stats(kWriteFifo).elementsTransferred, 50u);
    EXPECT_EQ(stats(kWriteFifo).patternErrors, 0u);
}

// ---- regions -----------------------------------------------------------------------------

struct Region {
    uint32_t reference = 0;
    const uint16_t* elements = nullptr;
    uint64_t count = 0;
};

class SimulatedRegions : public SimulatedTarget {
protected:
    Region acquire(size_t requested) {
        Region region;
        size_t acquired = 0, remaining = 0;
        EXPECT_EQ(Quorvane_AcquireFifoReadRegionScalar(session_, kReadFifo, &region.reference, requested, 6, 0, 0,
                                                       &acquired, &remaining),
                  0);
        const auto* record = static_cast<const uint8_t*>(HostSim_ReferenceRecord(region.reference));
        EXPECT_NE(record, nullptr);
        if (!record) return region;
        uintptr_t address = 0;
        std::memcpy(&address, record + 16, sizeof address);
        std::memcpy(&region.count, record + 24, sizeof region.count);
        region.elements = reinterpret_cast<const uint16_t*>(address);
        EXPECT_EQ(region.count, acquired);
        return region;
    }
};

TEST_F(SimulatedRegions, RegionsPointAtThePatternAndComeBackInOrder) {
    const Region first = acquire(5);
    const Region second = acquire(7);
    const Region third = acquire(9);
    uint64_t index = 0;
    for (const Region& region : {first, second, third}) {
        ASSERT_NE(region.elements, nullptr);
        for (uint64_t i = 0; i < region.count; ++i, ++index) EXPECT_EQ(region.elements[i], index);
    }
    EXPECT_EQ(index, 21u);

    // Deleted as third, first, second: the target must still see 5, 7, 9 in that order.
    HostSim_DeleteReference(third.reference);
    EXPECT_EQ(stats(kReadFifo).elementsReleased, 0u) << "nothing comes back before the oldest";
    HostSim_DeleteReference(first.reference);
    EXPECT_EQ(stats(kReadFifo).elementsReleased, 5u);
    HostSim_DeleteReference(second.reference);
    const BrennSimFifoStats s = stats(kReadFifo);
    EXPECT_EQ(s.elementsAcquired, 21u);
    EXPECT_EQ(s.elementsReleased, 21u);
    EXPECT_EQ(s.releaseCalls, 3u);
    EXPECT_EQ(s.outOfOrderReleases, 0u);
    EXPECT_EQ(s.excessReleases, 0u);
}

}  // namespace
}  // namespace quorvane::testing
