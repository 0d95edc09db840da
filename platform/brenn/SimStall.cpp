#include "SimStall.h"

#include <algorithm>

namespace brenn::sim {

FifoStalls::FifoStalls(std::vector<StallSpec> stalls, std::shared_ptr<InjectionCounts> counts)
    : counts_(std::move(counts)) {
    for (StallSpec& stall : stalls) pending_.push_back({std::move(stall)});
}

void FifoStalls::begin(Pending& stall, Clock::time_point now) {
    stall.begun = true;
    if (counts_) counts_->acted(stall.spec.statement);
    const Clock::time_point end = now + std::chrono::milliseconds(stall.spec.milliseconds);
    if (now >= end_) {
        // A new interval: the last one, if any, is over.
        finished_ += end_ - start_;
        start_ = now;
    }
    end_ = std::max(end_, end);
}

size_t FifoStalls::budget(uint64_t moved, size_t wanted, Clock::time_point now) {
    size_t allowed = wanted;
    for (Pending& stall : pending_) {
        if (stall.begun) continue;
        if (moved >= stall.spec.after) {
            begin(stall, now);  // passed while the FPGA side was moved by hand, or at element 0
        } else {
            allowed = static_cast<size_t>(std::min<uint64_t>(allowed, stall.spec.after - moved));
        }
    }
    if (now < end_) return 0;
    for (Pending& stall : pending_) {
        if (!stall.begun && moved + allowed >= stall.spec.after) begin(stall, now);
    }
    return allowed;
}

std::optional<FifoStalls::Clock::time_point> FifoStalls::until(Clock::time_point now) const {
    if (now < end_) return end_;
    return std::nullopt;
}

FifoStalls::Clock::duration FifoStalls::stoodStill(Clock::time_point now) const {
    return finished_ + std::clamp(now - start_, Clock::duration::zero(), end_ - start_);
}

}  // namespace brenn::sim
