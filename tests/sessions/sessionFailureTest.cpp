// A failed open raises the registry's sticky allocation flag; every later open reads it. The
// fault loop covers each failure's clean-up; this checks the flag's memory ordering.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "Quorvane.h"
#include "quarks/memory.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

// The registry's flag is raised by a registration under the registry lock, and read by every
// later open. The opener below synchronises with nothing but the library (a Host's threads
// need not), so ThreadSanitizer reports the read unless the library orders it with the write.
TEST_F(SimulatedPlatformTest, AnOpenReadsTheRegistryFlagInOrderWithTheRegistrationThatRaisedIt) {
    std::atomic<bool> raised{false};
    std::thread opener([&] {
        while (!raised.load(std::memory_order_relaxed)) std::this_thread::yield();
        uint32_t handle = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &handle), -52000);
    });
    std::thread raiser([&] {
        failAllocation(1);
        uint32_t handle = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &handle), -52000);
        raised.store(true, std::memory_order_relaxed);
    });
    raiser.join();
    opener.join();
    stopFailingAllocations();
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
}

}  // namespace
}  // namespace quorvane::testing
