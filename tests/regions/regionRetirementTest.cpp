// Regions come back to the FPGA interface library in acquisition order, whatever order the
// Host deletes their references in.
#include <cstring>

#include "regionTestSupport.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

struct DeletionOrder {
    std::vector<int> deleted;                      // indexes of regions 10, 20, 30 elements
    std::vector<std::vector<uint64_t>> afterEach;  // released counts after each deletion
};

void PrintTo(const DeletionOrder& order, std::ostream* os) {
    *os << "deleted";
    for (int index : order.deleted) *os << '_' << index + 1;
}

class RetirementOrder : public RegionTest, public ::testing::WithParamInterface<DeletionOrder> {};

TEST_P(RetirementOrder, HandsBackEachRegionOnceInAcquisitionOrder) {
    const uint32_t references[] = {acquire(session, 2, 10), acquire(session, 2, 20), acquire(session, 2, 30)};
    for (size_t step = 0; step < GetParam().deleted.size(); ++step) {
        EXPECT_EQ(HostSim_DeleteReference(references[GetParam().deleted[step]]), 0);
        EXPECT_THAT(releasedCounts(), ElementsAreArray(GetParam().afterEach[step])) << "after deletion " << step;
    }
    for (const auto& call : callsOf("BrennDll_ReleaseFifoElements")) {
        EXPECT_EQ(call.args[0], session | kQuorvaneResourceCallBit);
        EXPECT_EQ(call.args[1], 2u);
    }
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(Quorvane_Close(session, 0), 0) << "nothing is left outstanding";
}

INSTANTIATE_TEST_SUITE_P(Orders, RetirementOrder,
                         ::testing::Values(DeletionOrder{{0, 1, 2}, {{10}, {10, 20}, {10, 20, 30}}},
                                           DeletionOrder{{2, 1, 0}, {{}, {}, {10, 20, 30}}},
                                           DeletionOrder{{1, 0, 2}, {{}, {10, 20}, {10, 20, 30}}}));

TEST_F(RetirementOrder, RegionsOfDifferentFifosRetireIndependently) {
    const uint32_t first = acquire(session, 1, 5);
    const uint32_t second = acquire(session, 2, 6);
    HostSim_DeleteReference(second);
    EXPECT_THAT(releasedCounts(), ElementsAre(6u));
    HostSim_DeleteReference(first);
    EXPECT_THAT(releasedCounts(), ElementsAre(6u, 5u));
}

TEST_F(RetirementOrder, ReferenceRecordDescribesTheRegion) {
    const uint32_t reference = acquire(session, 3, 12);
    const auto* record = static_cast<const uint8_t*>(HostSim_ReferenceRecord(reference));
    ASSERT_NE(record, nullptr);
    uint64_t cookie, elements, count, size;
    int32_t dimensions;
    std::memcpy(&cookie, record, 8);
    std::memcpy(&dimensions, record + 8, 4);
    std::memcpy(&elements, record + 16, 8);
    std::memcpy(&count, record + 24, 8);
    std::memcpy(&size, record + 32, 8);
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(dimensions, 1);
    EXPECT_EQ(count, 12u);
    EXPECT_EQ(size, 4u);
    HostSim_DeleteReference(reference);
}

}  // namespace
}  // namespace quorvane::testing
