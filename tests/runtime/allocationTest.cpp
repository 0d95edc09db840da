// The heap's failure switch, allocation with status, and the containers that turn a failed
// allocation into a sticky flag. Every test ends with as many blocks allocated as it began with.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "protons/cppNewDelete/memoryAllocation.h"
#include "protons/status/stlContainers.h"
#include "quarks/memory.h"

namespace quorvane {
namespace {

class Allocation : public ::testing::Test {
protected:
    void TearDown() override {
        testing::stopFailingAllocations();
        EXPECT_EQ(heap::liveBlocks(), liveAtStart_) << "blocks leaked";
    }
    const uint64_t liveAtStart_ = heap::liveBlocks();
};

// -52000 at file:line after a failure, else success.
void expectMemoryFull(const tStatus& status, bool failed, const char* file, uint64_t line) {
    EXPECT_EQ(status.code, failed ? kStatusMemoryFull : 0);
    EXPECT_STREQ(status.file, failed ? file : "");
    EXPECT_EQ(status.line, failed ? line : 0u);
}

// The switch fails every request from the planned one on until switched off; failed requests
// count too. A request for 0 bytes gets a block, since callers read nullptr as "no memory". An
// earlier error keeps allocation off the heap, and an array size that overflows saturates, so
// that the request fails instead of getting a short block.
TEST_F(Allocation, TheSwitchAnEarlierErrorOrAnOverflowingSizeMakesARequestFail) {
    const uint64_t requests = testing::allocationRequests();
    testing::failAllocation(1, true);
    tStatus status;
    EXPECT_EQ(allocateWithStatus(8, status), nullptr) << "the very next request must fail";
    expectMemoryFull(status, true, "quarks/memory", 416);
    EXPECT_EQ(allocate(8), nullptr);
    testing::stopFailingAllocations();
    void* block = allocate(0);
    EXPECT_NE(block, nullptr);
    deallocate(block);
    EXPECT_EQ(testing::allocationRequests(), requests + 3);
    EXPECT_EQ(allocateWithStatus(16, status), nullptr);
    EXPECT_EQ(newWithStatus<int>(status, 1), nullptr);
    EXPECT_EQ(testing::allocationRequests(), requests + 3) << "an earlier error must keep requests off the heap";

    volatile uint64_t hugeCount = UINT64_MAX / 2;  // in the library such counts come at run time
    EXPECT_EQ(arrayBytes(hugeCount, 4), UINT64_MAX);
    tStatus overflowed;
    EXPECT_EQ(allocateWithStatus(arrayBytes(hugeCount, 4), overflowed), nullptr);
    expectMemoryFull(overflowed, true, "quarks/memory", 416);
    EXPECT_THROW((void)tStlAllocator<uint64_t>().allocate(SIZE_MAX / 2), std::bad_alloc);
    tVector<uint64_t> vector;
    EXPECT_FALSE(vector.resize(SIZE_MAX)) << "a size beyond the container's maximum raises the flag too";
    EXPECT_TRUE(vector.allocationFailed());
}

// Each container under test adds the values 0, 1, ... and lists what it holds, in order.
struct MapCase {
    tMap<int, int> container;
    bool add(int value) {
        auto [stored, inserted] = container.tryEmplace(value, value * 10);
        return stored != nullptr && inserted;
    }
    std::vector<int> held() {
        std::vector<int> values;
        for (auto& [key, value] : container.items()) values.push_back(value == key * 10 ? key : -1);
        return values;
    }
};

struct DequeCase {
    tDeque<std::array<int, 16>> container;  // a few items to a block, so that appending allocates often
    bool add(int value) {
        std::array<int, 16>* item = container.emplaceBack(std::array<int, 16>{value});
        return item != nullptr && (*item)[0] == value;
    }
    std::vector<int> held() {
        std::vector<int> values;
        for (; !container.empty(); container.popFront()) values.push_back(container.front()[0]);
        return values;
    }
};

template <class Container>
struct SequenceCase {
    Container container;
    bool add(int value) { return container.pushBack(value); }
    std::vector<int> held() {
        std::vector<int> values(container.items().begin(), container.items().end());
        if constexpr (requires { container.removeFirst(0); }) {  // the list: emptied by value
            for (const int value : values) EXPECT_TRUE(container.removeFirst(value) && !container.removeFirst(value));
        }
        return values;
    }
};

template <class Case>
class ContainerAllocation : public Allocation {};
using Containers = ::testing::Types<MapCase, DequeCase, SequenceCase<tList<int>>, SequenceCase<tVector<int>>>;
TYPED_TEST_SUITE(ContainerAllocation, Containers);

// The 1st, 2nd, ... allocation fails, until a run meets no failure (the switch is set before
// the container is built, which must not allocate). The container keeps every value that went
// in, and its flag, raised by the failure, stays raised through the additions that follow.
TYPED_TEST(ContainerAllocation, KeepsWhatItHoldsAndRaisesItsStickyFlag) {
    constexpr std::size_t kValues = 40;
    bool failed = true;
    for (uint64_t nth = 1; failed; ++nth) {
        ASSERT_LT(nth, 500u) << "the additions never ran without a failure";
        SCOPED_TRACE(::testing::Message() << "allocation " << nth << " fails");
        testing::failAllocation(nth);
        TypeParam under;
        std::vector<int> added;
        for (int value = 0; value < static_cast<int>(kValues); ++value)
            if (under.add(value)) added.push_back(value);
        testing::stopFailingAllocations();
        failed = added.size() < kValues;
        EXPECT_GE(added.size(), kValues - 1) << "one failed allocation lost more than one addition";
        EXPECT_EQ(under.held(), added);
        EXPECT_EQ(under.container.allocationFailed(), failed);
        tStatus status;
        EXPECT_EQ(under.container.reportInto(status), failed);
        expectMemoryFull(status, failed, "protons/status/stlStatus", 34);
    }
}

}  // namespace
}  // namespace quorvane
