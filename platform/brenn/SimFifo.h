// FIFOs and interrupt lines of the simulated target.
//
// A SimFifo is a ring buffer shared by the host and the simulated FPGA logic. Positions are
// 64-bit running counts of elements, never wrapped; the slot of position p is p % depth. Three
// counts describe the ring:
//   fpga_       elements the FPGA side produced (FIFO read by the host) or drained (written by
//               the host); it is also the counter that the FPGA's data pattern follows
//   hostStart_  the oldest element still lent to the host (everything before it came back)
//   hostEnd_    the first element not yet lent or copied
// [hostStart_, hostEnd_) is borrowed, split into regions in acquisition order.
//
// Each FIFO has its own mutex and condition variable. Callers find a FIFO under the target's
// table mutex, let go of that mutex, and only then lock the FIFO, so no one ever waits while
// holding the table.
#ifndef BRENN_SIM_FIFO_H
#define BRENN_SIM_FIFO_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "BrennSim.h"
#include "SimIrqDrop.h"
#include "SimStall.h"
#include "TargetDescription.h"

namespace brenn::sim {

class SimIrqs;

inline constexpr size_t kMaxFifoDepth = size_t{1} << 20;
// A composite element type may be large; the buffer is still bounded.
inline constexpr size_t kMaxFifoBytes = size_t{64} << 20;
inline constexpr uint32_t kNoTimeLimit = 0xFFFFFFFFu;

// When a blocking call gives up: never for kNoTimeLimit.
class Deadline {
public:
    explicit Deadline(uint32_t timeoutMs)
        : unlimited_(timeoutMs == kNoTimeLimit),
          at_(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs)) {}
    bool unlimited() const { return unlimited_; }
    std::chrono::steady_clock::time_point at() const { return at_; }

private:
    bool unlimited_;
    std::chrono::steady_clock::time_point at_;
};

// What a call says about the elements it moves: their size, and the Host type code of the
// function's element type (0 for the composite functions, which name only a size).
struct ElementShape {
    size_t bytes = 0;
    uint32_t typeCode = 0;
};

class SimFifo {
public:
    // A FIFO the target does not declare: its first use fixes its element size and direction,
    // and it follows the plain counter pattern.
    explicit SimFifo(FifoStalls stalls = {}) : stalls_(std::move(stalls)) {}
    // A declared FIFO: shape, depth, rate, pattern and interrupts from the description.
    SimFifo(const FifoSpec& spec, std::shared_ptr<SimIrqs> irqs, FifoStalls stalls = {});

    // Copying transfers of `count` elements.
    int32_t read(void* data, ElementShape shape, size_t count, uint32_t timeout, size_t* remaining);
    int32_t write(const void* data, ElementShape shape, size_t count, uint32_t timeout, size_t* remaining);
    int32_t acquire(FifoDirection direction, ElementShape shape, void** elements, size_t requested, uint32_t timeout,
                    size_t* acquired, size_t* remaining);
    int32_t release(size_t count);
    int32_t configure(size_t requested, size_t* granted);

    void setFpgaRunning(bool running);
    size_t feed(size_t count);
    size_t drain(size_t count);
    BrennSimFifoStats stats();
    // The session went away: blocked callers answer kBrennSimInvalidSession, and so does any
    // later call that still holds this FIFO.
    void close();

private:
    using Lock = std::unique_lock<std::mutex>;

    int32_t establish(FifoDirection direction, ElementShape shape);
    template <typename Ready>
    int32_t waitUntil(Lock& lock, const Deadline& deadline, Ready&& ready);
    size_t hostAvailable() const;  // elements to read or room to write
    size_t fpgaRoom() const;
    size_t fpgaPending() const;
    uint8_t* slot(uint64_t position);
    void produce(size_t count);
    void consume(size_t count);
    void runFpga();
    size_t fpgaBudget(size_t wanted);  // what the FPGA side's rate and stalls let it move now
    // Whether the FPGA side moves with time (a rate, or a stall that ends), not only with calls.
    bool timed() const { return rate_ != 0 || stalls_.any(); }
    // When a waiter should look again for what the FPGA side moved with time; max() for never.
    std::chrono::steady_clock::time_point fpgaWake() const;
    void raiseFifoIrqs(uint64_t before);
    uint64_t patternValue(uint64_t position) const { return patternStart_ + position * patternStep_; }
    void copyOut(void* data, size_t count);
    void copyIn(const void* data, size_t count);
    void relocate(size_t depth);

    std::mutex mutex_;
    std::condition_variable changed_;
    FifoDirection direction_ = FifoDirection::Unknown;
    size_t elementSize_ = 0;  // 0 until the first sized use
    size_t depth_ = kBrennSimDefaultFifoDepth;
    std::vector<uint8_t> buffer_;
    uint64_t fpga_ = 0;
    uint64_t hostStart_ = 0;
    uint64_t hostEnd_ = 0;
    std::deque<size_t> regions_;  // element counts of the borrowed regions, oldest first
    bool fpgaRunning_ = true;
    bool closed_ = false;
    BrennSimFifoStats stats_{};
    // Fixed at construction.
    bool declared_ = false;
    uint32_t typeCode_ = 0;  // declared Host type code; 0 for an undeclared FIFO
    uint64_t patternStart_ = 0;
    uint64_t patternStep_ = 1;
    uint64_t rate_ = 0;
    std::vector<FifoIrq> irqSpecs_;
    std::shared_ptr<SimIrqs> irqs_;
    std::chrono::steady_clock::time_point started_{};  // when the FPGA side first ran
    FifoStalls stalls_;                                // the description's stalls, and how far they got
};

// Interrupt lines of one session.
class SimIrqs {
public:
    explicit SimIrqs(IrqDrops drops = {}) : drops_(std::move(drops)) {}
    void raise(uint32_t bits);
    void acknowledge(uint32_t bits);
    int32_t wait(uint32_t irqs, uint32_t timeout, uint32_t* asserted, uint8_t* timedOut);
    void close();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    uint32_t asserted_ = 0;
    bool closed_ = false;
    IrqDrops drops_;  // assertions the description drops
};

// An element of the FPGA's pattern holding `value`: its little-endian bytes, zero beyond the
// eighth.
void fillPattern(uint8_t* element, size_t elementSize, uint64_t value) noexcept;
bool matchesPattern(const uint8_t* element, size_t elementSize, uint64_t value) noexcept;

BrennSimFifoStats totalFifoStats() noexcept;
void resetTotalFifoStats() noexcept;
// A release that reached no FIFO at all still counts against the caller.
void countStrayRelease(size_t count) noexcept;

// The FIFO `fifo` of `session`, made on first use when `create` is true. Null with `status`
// set when the session is not open (or the FIFO does not exist and may not be made).
std::shared_ptr<SimFifo> findFifo(uint32_t session, uint32_t fifo, bool create, int32_t& status);
std::shared_ptr<SimIrqs> findIrqs(uint32_t session);

}  // namespace brenn::sim

#endif  // BRENN_SIM_FIFO_H
