// Enumerations on several threads at once, while other threads open and close sessions, and
// an enumeration waiting for a holder of the registry lock.
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

TEST_F(ResourceConcurrency, EnumerationsRunAlongsideOpensAndCloses) {
    const std::vector<std::string> names = {"alpha", "", "gamma", "delta"};
    const uint32_t session = openSessionWith(names);
    // The log would only grow; the threads check their own results.
    BrennSim_EnableLog(0);

    constexpr int kEnumerators = 3;
    constexpr int kRounds = 150;
    std::atomic<int> badEnumerations{0};
    std::atomic<int> badSessions{0};
    std::atomic<bool> enumerating{true};

    std::vector<std::thread> threads;
    for (int t = 0; t < kEnumerators; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                void** array = HostSim_NewStringArray(nullptr, 0);
                // Flags in bits 12..15 (other than the refused bit) change nothing.
                const uint32_t flags = (t % 2 == 0) ? 0 : 0x4000;
                if (Quorvane_GetResources(session | flags, array) != 0 ||
                    dimensionOf(array) != static_cast<int32_t>(names.size())) {
                    ++badEnumerations;
                } else {
                    for (size_t i = 0; i < names.size(); ++i) {
                        const auto* block = static_cast<const char*>(*elementHandle(array, i));
                        if (std::string(block + 4) != names[i]) ++badEnumerations;
                    }
                }
                HostSim_DisposeStringArray(array);
            }
        });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            while (enumerating.load()) {
                uint32_t opened = 0;
                if (Quorvane_Open("", "", "RIO1", 0, &opened) != 0 || Quorvane_Close(opened, 0) != 0) {
                    ++badSessions;
                }
            }
        });
    }
    for (int t = 0; t < kEnumerators; ++t) threads[static_cast<size_t>(t)].join();
    enumerating = false;
    for (size_t t = kEnumerators; t < threads.size(); ++t) threads[t].join();

    EXPECT_EQ(badEnumerations.load(), 0);
    EXPECT_EQ(badSessions.load(), 0);
    EXPECT_EQ(registeredSessionCount(), 0u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 1u) << "only the enumerated session";
    expectNothingLeaked();
}

TEST_F(ResourceConcurrency, EnumerationWaitsWhileTheRegistryLockIsHeldExclusively) {
    const uint32_t session = openSessionWith({"one"});
    void** array = HostSim_NewStringArray(nullptr, 0);
    std::atomic<int32_t> status{1};
    std::thread enumerator;
    {
        tExclusiveLock exclusive(registryLock());
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
