// An enumeration waits for a holder of the registry lock.
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "Quorvane.h"
#include "quarks/synchronization.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAreArray;

class ResourceConcurrency : public ResourceTest {};

TEST_F(ResourceConcurrency, EnumerationWaitsWhileTheRegistryLockIsHeldExclusively) {
    const uint32_t session = openSessionWith({"one"});
    void** array = HostSim_NewStringArray(nullptr, 0);
    std::atomic<int32_t> status{1};
    std::thread enumerator;
    {
        tExclusiveLock exclusive(gRegistryLock);
        enumerator = std::thread([&] { status = Quorvane_GetResources(session, array); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), 0u) << "ran under an exclusive holder";
        EXPECT_EQ(status.load(), 1);
    }
    enumerator.join();
    EXPECT_EQ(status.load(), 0);
    EXPECT_THAT(elementsOf(array, 1), ElementsAreArray({"one"}));
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
