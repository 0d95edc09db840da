// A session on the simulated target's default FIFO for the benchmarks that run the library
// against the minimal driver and Host: open, start and close still go to the simulated target.
#pragma once

#include <cstdint>

#include "BrennSim.h"
#include "Quorvane.h"

namespace quorvane::bench {

class BenchSession {
public:
    explicit BenchSession(uint32_t fifo) : fifo_(fifo) {
        Quorvane_Open("", "", "RIO0", 0, &handle_);
        Quorvane_StartFifo(handle_, fifo_);
    }
    ~BenchSession() { Quorvane_Close(handle_, 0); }
    BenchSession(const BenchSession&) = delete;
    BenchSession& operator=(const BenchSession&) = delete;

    uint32_t handle() const { return handle_; }
    uint32_t fifo() const { return fifo_; }

private:
    uint32_t handle_ = 0;
    uint32_t fifo_;
};

// Resets the simulated target and silences its log; call once before opening sessions.
inline void quietTarget() {
    BrennSim_Reset();
    BrennSim_EnableLog(0);
}

}  // namespace quorvane::bench
