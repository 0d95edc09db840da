// Stalls of a FIFO's FPGA side, as its target's `stall` statements ask: once the FPGA side has
// moved a given number of elements it stands still for a while, as a board's DMA engine that
// stalls does, and then goes on where it stopped.
//
// Not thread-safe: the FIFO that owns it guards it with its own mutex.
#ifndef BRENN_SIM_STALL_H
#define BRENN_SIM_STALL_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "SimFaults.h"
#include "TargetDescription.h"

namespace brenn::sim {

class FifoStalls {
public:
    using Clock = std::chrono::steady_clock;

    FifoStalls() = default;
    FifoStalls(std::vector<StallSpec> stalls, std::shared_ptr<InjectionCounts> counts);

    bool any() const { return !pending_.empty(); }

    // Of `wanted` elements, how many the FPGA side may move at `now`, having moved `moved`:
    // none while a stall lasts, and never past the element where the next stall begins.
    // Reaching that element begins the stall.
    size_t budget(uint64_t moved, size_t wanted, Clock::time_point now);
    // When the stall in progress ends; nothing when none is in progress at `now`.
    std::optional<Clock::time_point> until(Clock::time_point now) const;
    // How long the FPGA side has stood still before `now`: a FIFO paced by a rate keeps its pace
    // after a stall instead of making up for it.
    Clock::duration stoodStill(Clock::time_point now) const;

private:
    struct Pending {
        StallSpec spec;
        bool begun = false;
    };

    void begin(Pending& stall, Clock::time_point now);

    std::vector<Pending> pending_;
    std::shared_ptr<InjectionCounts> counts_;
    // Overlapping stalls make one interval; earlier intervals are summed in finished_.
    Clock::time_point start_{};
    Clock::time_point end_{};
    Clock::duration finished_{};
};

}  // namespace brenn::sim

#endif  // BRENN_SIM_STALL_H
