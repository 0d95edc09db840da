// Many threads acquiring and deleting regions out of order on several sessions and FIFOs,
// while others close sessions, stop the program and abort calls in progress. Whatever the
// interleaving: no deadlock, every region handed back exactly once, nothing left behind.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include "quarks/memory.h"
#include "regionTestSupport.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

// Fails the test and ends the process if the work does not finish in time, so that a
// deadlock shows up as a failure instead of a hung CI.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit)
        : thread_([this, limit] {
              std::unique_lock lock(mutex_);
              if (!done_.wait_for(lock, limit, [this] { return finished_; })) {
                  std::fprintf(stderr, "watchdog: the stress run did not finish in time (deadlock?)\n");
                  std::abort();
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        done_.notify_one();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool finished_ = false;
    std::thread thread_;
};

class RegionStress : public RegionTest {};

TEST_F(RegionStress, AcquireDeleteCloseStopAndAbortInterleaveSafely) {
    BrennSim_EnableLog(0);
    ASSERT_EQ(Quorvane_Close(session, 0), 0);
    const uint64_t blocksBefore = heap::liveBlocks();
    constexpr int kWorkers = 4;
    constexpr int kOperations = 400;
    std::atomic<uint64_t> acquiredRegions{0};
    std::atomic<bool> stop{false};
    {
        Watchdog watchdog(120s);
        std::thread disturber([&] {
            std::mt19937 random(7);
            while (!stop.load()) {
                if (random() % 8 == 0) HostSim_RunProgramStop();
                HostSim_AbortCallsInProgress();
                std::this_thread::sleep_for(200us);
            }
        });
        std::vector<std::thread> workers;
        for (int w = 0; w < kWorkers; ++w) {
            workers.emplace_back([&, w] {
                std::mt19937 random(w + 1);
                uint32_t mine = openSession();
                std::vector<uint32_t> references;
                for (int op = 0; op < kOperations; ++op) {
                    const unsigned choice = random() % 10;
                    if (choice < 6) {
                        uint32_t reference = 0;
                        size_t acquired = 0, remaining = 0;
                        const uint32_t fifo = random() % 3;
                        const int32_t status = Quorvane_AcquireFifoWriteRegionScalar(
                            mine, fifo, &reference, 1 + random() % 16, 1 + random() % 8, 0, random() % 2, &acquired,
                            &remaining);
                        if (status >= 0 && reference != 0) {
                            references.push_back(reference);
                            ++acquiredRegions;
                        }
                    } else if (choice < 9 && !references.empty()) {
                        const size_t index = random() % references.size();
                        HostSim_DeleteReference(references[index]);
                        references.erase(references.begin() + static_cast<long>(index));
                    } else {
                        // Refused while regions are out; completes when the last comes back.
                        Quorvane_Close(mine, 0);
                        for (uint32_t reference : references) HostSim_DeleteReference(reference);
                        references.clear();
                        mine = openSession();
                    }
                }
                for (uint32_t reference : references) HostSim_DeleteReference(reference);
                Quorvane_Close(mine, 0);
            });
        }
        for (auto& worker : workers) worker.join();
        stop = true;
        disturber.join();
    }
    HostSim_RunProgramStop();

    EXPECT_GT(acquiredRegions.load(), 0u);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_EQ(heap::liveBlocks(), blocksBefore) << "records, states and queues are all given back";

    // The simulated target saw every region come back whole and in acquisition order.
    BrennSimFifoStats fifo{};
    BrennSim_GetTotalFifoStats(&fifo);
    EXPECT_GT(fifo.elementsAcquired, 0u);
    EXPECT_EQ(fifo.outOfOrderReleases, 0u);
    EXPECT_EQ(fifo.excessReleases, 0u);
    EXPECT_EQ(fifo.elementsReleased, fifo.elementsAcquired);
}

}  // namespace
}  // namespace quorvane::testing
