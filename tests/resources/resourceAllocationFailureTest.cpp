// Every allocation of an enumeration and of adding resources made to fail in turn, until the
// call succeeds: each failure gives -52000, leaves the Host's data consistent, passes nothing
// half-built on, and leaks nothing.
#include <string>
#include <vector>

#include "Quorvane.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAreArray;

class ResourceAllocationFailure : public ResourceTest {};

// The enumeration allocates the index buffer, then one copy per name, in order: failing the
// nth allocation stops it there.
TEST_F(ResourceAllocationFailure, EachAllocationOfAnEnumeration) {
    const std::vector<std::string> names = {"first", "", "third", std::string(300, 'n')};
    const uint32_t session = openSessionWith(names);
    uint64_t failures = 0;
    for (uint64_t nth = 1;; ++nth) {
        SCOPED_TRACE(nth);
        const char* const previous[] = {"old"};
        void** array = HostSim_NewStringArray(previous, 1);
        void** old = elementHandle(array, 0);
        const uint64_t blocksBefore = heap::liveBlocks();

        failAllocation(nth);
        const int32_t status = Quorvane_GetResources(session, array);
        stopFailingAllocations();

        EXPECT_EQ(heap::liveBlocks(), blocksBefore);
        EXPECT_EQ(readersCounted(), readersAtStart_);
        if (status == 0) {
            EXPECT_THAT(elementsOf(array, static_cast<size_t>(dimensionOf(array))), ElementsAreArray(named(names)));
        } else {
            ++failures;
            ASSERT_EQ(status, -52000);
            if (nth == 1) {
                // The index buffer: nothing after it ran, the array is as the Host left it.
                EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
                EXPECT_EQ(dimensionOf(array), 1);
                EXPECT_EQ(elementHandle(array, 0), old);
            } else {
                // The copy of name nth - 2: the names before it are stored, none from it on.
                const size_t stored = nth - 2;
                ASSERT_EQ(dimensionOf(array), static_cast<int32_t>(names.size()));
                const auto elements = elementsOf(array, names.size());
                for (size_t i = 0; i < names.size(); ++i) {
                    const HostElement unwritten = i == 0 ? HostElement("old") : std::nullopt;
                    EXPECT_EQ(elements[i], i < stored ? HostElement(names[i]) : unwritten) << i;
                }
            }
        }
        // A stored name overwrote the Host's old element without disposing of it.
        if (elementHandle(array, 0) != old) HostSim_DisposeHandle(old);
        disposeArray(array);
        HostSim_Reset();
        if (status == 0) break;
        ASSERT_LT(nth, 100u) << "the enumeration never succeeded";
    }
    EXPECT_EQ(failures, 1 + names.size());
    expectNothingLeaked();
}

TEST_F(ResourceAllocationFailure, EachAllocationOfAddingResources) {
    const uint32_t session = openSessionWith({});
    void** array = HostSim_NewStringArray(std::vector<const char*>{"ab", "", "xyz"}.data(), 3);
    uint64_t failures = 0;
    for (uint64_t nth = 1;; ++nth) {
        SCOPED_TRACE(nth);
        const uint64_t blocksBefore = heap::liveBlocks();

        failAllocation(nth);
        const int32_t status = Quorvane_AddResources(session, array, nullptr, nullptr);
        stopFailingAllocations();

        EXPECT_EQ(heap::liveBlocks(), blocksBefore);
        if (status == 0) break;
        ++failures;
        ASSERT_EQ(status, -52000);
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_AddResources"), 1u) << "only the fixture's own call";
        ASSERT_LT(nth, 100u) << "adding never succeeded";
    }
    // The pointer array, the list of copies, then one copy per string.
    EXPECT_EQ(failures, 2u + 3u);
    EXPECT_THAT(resourcesOf(session), ElementsAreArray({"ab", "", "xyz"}));
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
