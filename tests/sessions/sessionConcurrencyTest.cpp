// Opens, closes and the Host's program stop racing on several threads.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Quorvane.h"
#include "Quorvane/sessionRegistry.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

class SessionConcurrency : public SimulatedPlatformTest {};

TEST_F(SessionConcurrency, NoSessionOutlivesRacingClosesAndProgramStops) {
    BrennSim_EnableLog(0);
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> opened{0};
    std::atomic<bool> done{false};

    std::thread stopper([&] {
        while (!done.load()) HostSim_RunProgramStop();
    });
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                uint32_t session = 0;
                if (Quorvane_Open("", "", "RIO0", 0, &session) != 0) continue;
                ++opened;
                if (i % 2 == 0) Quorvane_Close(session, 0);  // the other half is left to program stop
            }
        });
    }
    for (auto& worker : workers) worker.join();
    done = true;
    stopper.join();
    HostSim_RunProgramStop();

    EXPECT_EQ(opened.load(), kThreads * kRounds);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

}  // namespace
}  // namespace quorvane::testing
