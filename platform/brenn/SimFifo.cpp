#include "SimFifo.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>

#include "BrennDll.h"
#include "SimTarget.h"

namespace brenn::sim {

namespace {

// Process-wide totals, kept apart from the FIFOs so that they outlive closed sessions.
struct Totals {
    std::atomic<uint64_t> elementsAcquired{0};
    std::atomic<uint64_t> elementsReleased{0};
    std::atomic<uint64_t> releaseCalls{0};
    std::atomic<uint64_t> outOfOrderReleases{0};
    std::atomic<uint64_t> excessReleases{0};
    std::atomic<uint64_t> patternErrors{0};
    std::atomic<uint64_t> elementsTransferred{0};
};

Totals& totals() noexcept {
    static Totals* instance = new Totals;  // never destroyed, like the target
    return *instance;
}

// Adds to one FIFO's counter and to the process-wide one.
void count(uint64_t& mine, std::atomic<uint64_t>& total, uint64_t amount) noexcept {
    mine += amount;
    total.fetch_add(amount, std::memory_order_relaxed);
}

}  // namespace

// The pattern is defined on little-endian bytes, which on this host are the value's own.
static_assert(std::endian::native == std::endian::little);

void fillPattern(uint8_t* element, size_t elementSize, uint64_t value) noexcept {
    std::memcpy(element, &value, std::min<size_t>(elementSize, 8));
    if (elementSize > 8) std::memset(element + 8, 0, elementSize - 8);
}

bool matchesPattern(const uint8_t* element, size_t elementSize, uint64_t value) noexcept {
    if (std::memcmp(element, &value, std::min<size_t>(elementSize, 8)) != 0) return false;
    for (size_t k = 8; k < elementSize; ++k) {
        if (element[k] != 0) return false;
    }
    return true;
}

SimFifo::SimFifo(const FifoSpec& spec, std::shared_ptr<SimIrqs> irqs, FifoStalls stalls)
    : direction_(spec.direction),
      elementSize_(spec.elementBytes),
      depth_(spec.depth),
      declared_(true),
      typeCode_(spec.elementType),
      patternStart_(spec.patternStart),
      patternStep_(spec.patternStep),
      rate_(spec.rate),
      irqSpecs_(spec.irqs),
      irqs_(std::move(irqs)),
      stalls_(std::move(stalls)) {}

BrennSimFifoStats totalFifoStats() noexcept {
    Totals& t = totals();
    return {t.elementsAcquired.load(),   t.elementsReleased.load(), t.releaseCalls.load(),
            t.outOfOrderReleases.load(), t.excessReleases.load(),   t.patternErrors.load(),
            t.elementsTransferred.load()};
}

void resetTotalFifoStats() noexcept {
    Totals& t = totals();
    for (auto* counter : {&t.elementsAcquired, &t.elementsReleased, &t.releaseCalls, &t.outOfOrderReleases,
                          &t.excessReleases, &t.patternErrors, &t.elementsTransferred}) {
        counter->store(0);
    }
}

void countStrayRelease(size_t elements) noexcept {
    if (elements == 0) return;
    totals().releaseCalls.fetch_add(1);
    totals().excessReleases.fetch_add(1);
}

// ---- ring bookkeeping (mutex_ held) ------------------------------------------------------

size_t SimFifo::hostAvailable() const {
    if (direction_ == FifoDirection::TargetToHost) return static_cast<size_t>(fpga_ - hostEnd_);
    return depth_ - static_cast<size_t>(hostEnd_ - fpga_);
}

size_t SimFifo::fpgaRoom() const {
    return depth_ - static_cast<size_t>(fpga_ - hostStart_);
}

size_t SimFifo::fpgaPending() const {
    return static_cast<size_t>(hostStart_ - fpga_);
}

uint8_t* SimFifo::slot(uint64_t position) {
    return buffer_.data() + static_cast<size_t>(position % depth_) * elementSize_;
}

namespace {

// Pattern runs over contiguous slots, one loop per element width so that the compiler can
// keep the value in a register and vectorise: the FPGA side moves every streamed element
// through here.
template <typename T>
void fillRun(uint8_t* slots, size_t elements, uint64_t value, uint64_t step) noexcept {
    for (size_t i = 0; i < elements; ++i, value += step) {
        const auto element = static_cast<T>(value);
        std::memcpy(slots + i * sizeof(T), &element, sizeof(T));
    }
}

template <typename T>
size_t countMismatches(const uint8_t* slots, size_t elements, uint64_t value, uint64_t step) noexcept {
    size_t wrong = 0;
    for (size_t i = 0; i < elements; ++i, value += step) {
        T element;
        std::memcpy(&element, slots + i * sizeof(T), sizeof(T));
        wrong += element != static_cast<T>(value);
    }
    return wrong;
}

}  // namespace

void SimFifo::produce(size_t elements) {
    const uint64_t before = fpga_;
    while (elements != 0) {
        const size_t run = std::min(elements, depth_ - static_cast<size_t>(fpga_ % depth_));
        uint8_t* slots = slot(fpga_);
        const uint64_t value = patternValue(fpga_);
        switch (elementSize_) {
            case 1:
                fillRun<uint8_t>(slots, run, value, patternStep_);
                break;
            case 2:
                fillRun<uint16_t>(slots, run, value, patternStep_);
                break;
            case 4:
                fillRun<uint32_t>(slots, run, value, patternStep_);
                break;
            case 8:
                fillRun<uint64_t>(slots, run, value, patternStep_);
                break;
            default:
                for (size_t i = 0; i < run; ++i) {
                    fillPattern(slots + i * elementSize_, elementSize_, value + i * patternStep_);
                }
        }
        fpga_ += run;
        elements -= run;
    }
    raiseFifoIrqs(before);
}

void SimFifo::consume(size_t elements) {
    const uint64_t before = fpga_;
    while (elements != 0) {
        const size_t run = std::min(elements, depth_ - static_cast<size_t>(fpga_ % depth_));
        const uint8_t* slots = slot(fpga_);
        const uint64_t value = patternValue(fpga_);
        size_t wrong = 0;
        switch (elementSize_) {
            case 1:
                wrong = countMismatches<uint8_t>(slots, run, value, patternStep_);
                break;
            case 2:
                wrong = countMismatches<uint16_t>(slots, run, value, patternStep_);
                break;
            case 4:
                wrong = countMismatches<uint32_t>(slots, run, value, patternStep_);
                break;
            case 8:
                wrong = countMismatches<uint64_t>(slots, run, value, patternStep_);
                break;
            default:
                for (size_t i = 0; i < run; ++i) {
                    wrong += !matchesPattern(slots + i * elementSize_, elementSize_, value + i * patternStep_);
                }
        }
        if (wrong != 0) count(stats_.patternErrors, totals().patternErrors, wrong);
        fpga_ += run;
        elements -= run;
    }
    raiseFifoIrqs(before);
}

// Each interrupt of the FIFO fires when the FPGA side's count passes another multiple of its
// period. The lines have their own mutex, and no one holding it ever locks a FIFO, so raising
// them with the FIFO locked cannot deadlock.
void SimFifo::raiseFifoIrqs(uint64_t before) {
    for (const FifoIrq& irq : irqSpecs_) {
        if (before / irq.every != fpga_ / irq.every) irqs_->raise(uint32_t{1} << irq.bit);
    }
}

size_t SimFifo::fpgaBudget(size_t wanted) {
    const auto now = std::chrono::steady_clock::now();
    if (rate_ != 0) {
        // The pace is kept from the first run on, the time of stalls left out.
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::nanoseconds>(now - started_ - stalls_.stoodStill(now));
        const auto allowed = static_cast<unsigned __int128>(rate_) *
                             static_cast<uint64_t>(std::max<int64_t>(0, elapsed.count())) / 1'000'000'000u;
        wanted = allowed <= fpga_ ? 0 : static_cast<size_t>(std::min<unsigned __int128>(wanted, allowed - fpga_));
    }
    return stalls_.any() ? stalls_.budget(fpga_, wanted, now) : wanted;
}

std::chrono::steady_clock::time_point SimFifo::fpgaWake() const {
    const auto now = std::chrono::steady_clock::now();
    if (const auto stallEnds = stalls_.until(now)) return *stallEnds;
    if (rate_ == 0) return std::chrono::steady_clock::time_point::max();
    // A paced FPGA side moves with time, not with calls: look again after roughly one
    // element's time (between 1 and 100 ms).
    return now + std::chrono::nanoseconds(std::clamp<uint64_t>(1'000'000'000u / rate_, 1'000'000u, 100'000'000u));
}

void SimFifo::runFpga() {
    if (!fpgaRunning_ || buffer_.empty()) return;
    if (direction_ == FifoDirection::TargetToHost) produce(fpgaBudget(fpgaRoom()));
    if (direction_ == FifoDirection::HostToTarget) consume(fpgaBudget(fpgaPending()));
}

// The first use allocates the ring and sets the FPGA side going. For an undeclared FIFO it
// also fixes the element size and the direction; a declared one has them from the start and
// takes only calls of its own element type.
int32_t SimFifo::establish(FifoDirection direction, ElementShape shape) {
    if (closed_) return kBrennSimInvalidSession;
    if (shape.bytes == 0) return kBrennSimInvalidArgument;
    if (declared_ && shape.typeCode != 0 && shape.typeCode != typeCode_) return kBrennSimInvalidArgument;
    if (elementSize_ == 0) {
        if (shape.bytes > kMaxFifoBytes) return kBrennSimInvalidArgument;
        elementSize_ = shape.bytes;
    } else if (shape.bytes != elementSize_) {
        return kBrennSimInvalidArgument;
    }
    if (direction_ == FifoDirection::Unknown) {
        direction_ = direction;
    } else if (direction_ != direction) {
        return kBrennSimInvalidArgument;
    }
    if (buffer_.empty()) {
        depth_ = std::max<size_t>(1, std::min(depth_, kMaxFifoBytes / elementSize_));
        buffer_.assign(depth_ * elementSize_, 0);
        started_ = std::chrono::steady_clock::now();
        runFpga();
    }
    return 0;
}

template <typename Ready>
int32_t SimFifo::waitUntil(Lock& lock, const Deadline& deadline, Ready&& ready) {
    for (;;) {
        if (closed_) return kBrennSimInvalidSession;
        if (timed()) runFpga();
        int32_t verdict = ready();
        if (verdict <= 0) return verdict;  // 0 go on, negative: give up with that answer
        const auto wake = fpgaWake();
        if (wake != std::chrono::steady_clock::time_point::max() && (deadline.unlimited() || wake < deadline.at())) {
            changed_.wait_until(lock, wake);
            continue;
        }
        if (deadline.unlimited()) {
            changed_.wait(lock);
        } else if (changed_.wait_until(lock, deadline.at()) == std::cv_status::timeout) {
            if (closed_) return kBrennSimInvalidSession;
            if (timed()) runFpga();
            verdict = ready();
            return verdict <= 0 ? verdict : int32_t{kBrennTimeout};
        }
    }
}

void SimFifo::copyOut(void* data, size_t elements) {
    auto* out = static_cast<uint8_t*>(data);
    for (size_t done = 0; done < elements;) {
        size_t run = std::min(elements - done, depth_ - static_cast<size_t>(hostEnd_ % depth_));
        std::memcpy(out + done * elementSize_, slot(hostEnd_), run * elementSize_);
        done += run;
        hostEnd_ += run;
    }
    hostStart_ = hostEnd_;
}

void SimFifo::copyIn(const void* data, size_t elements) {
    const auto* in = static_cast<const uint8_t*>(data);
    for (size_t done = 0; done < elements;) {
        size_t run = std::min(elements - done, depth_ - static_cast<size_t>(hostEnd_ % depth_));
        std::memcpy(slot(hostEnd_), in + done * elementSize_, run * elementSize_);
        done += run;
        hostEnd_ += run;
    }
    hostStart_ = hostEnd_;
}

// ---- host side ---------------------------------------------------------------------------

int32_t SimFifo::read(void* data, ElementShape shape, size_t elements, uint32_t timeout, size_t* remaining) {
    Deadline deadline(timeout);
    Lock lock(mutex_);
    int32_t status = establish(FifoDirection::TargetToHost, shape);
    if (status != 0) return status;
    if (!regions_.empty()) return kBrennMustReleaseFirst;
    for (size_t done = 0; done < elements && status == 0;) {
        size_t piece = std::min(elements - done, depth_);
        status = waitUntil(lock, deadline, [&] { return regions_.empty() && hostAvailable() >= piece ? 0 : 1; });
        if (status != 0) break;
        copyOut(static_cast<uint8_t*>(data) + done * elementSize_, piece);
        count(stats_.elementsTransferred, totals().elementsTransferred, piece);
        done += piece;
        runFpga();
        changed_.notify_all();
    }
    if (remaining && status != kBrennSimInvalidSession) *remaining = hostAvailable();
    return status;
}

int32_t SimFifo::write(const void* data, ElementShape shape, size_t elements, uint32_t timeout, size_t* remaining) {
    // No Host array holds more than INT32_MAX elements: a larger count (a negative Host count
    // widened with its sign) names data that does not exist, and is refused before any is read.
    if (elements > static_cast<size_t>(INT32_MAX)) return kBrennSimInvalidArgument;
    Deadline deadline(timeout);
    Lock lock(mutex_);
    int32_t status = establish(FifoDirection::HostToTarget, shape);
    if (status != 0) return status;
    if (!regions_.empty()) return kBrennMustReleaseFirst;
    for (size_t done = 0; done < elements && status == 0;) {
        size_t piece = std::min(elements - done, depth_);
        status = waitUntil(lock, deadline, [&] { return regions_.empty() && hostAvailable() >= piece ? 0 : 1; });
        if (status != 0) break;
        copyIn(static_cast<const uint8_t*>(data) + done * elementSize_, piece);
        count(stats_.elementsTransferred, totals().elementsTransferred, piece);
        done += piece;
        runFpga();
        changed_.notify_all();
    }
    if (remaining && status != kBrennSimInvalidSession) *remaining = hostAvailable();
    return status;
}

int32_t SimFifo::acquire(FifoDirection direction, ElementShape shape, void** elements, size_t requested,
                         uint32_t timeout, size_t* acquired, size_t* remaining) {
    Deadline deadline(timeout);
    Lock lock(mutex_);
    int32_t status = establish(direction, shape);
    if (status != 0) return status;
    size_t lend = 0;
    if (requested != 0) {
        // Recomputed on every wake-up: another caller may have borrowed in the meantime.
        status = waitUntil(lock, deadline, [&] {
            lend = std::min(requested, depth_ - static_cast<size_t>(hostEnd_ % depth_));
            const size_t borrowed = static_cast<size_t>(hostEnd_ - hostStart_);
            if (lend > depth_ - borrowed) return int32_t{kBrennMustReleaseFirst};
            return hostAvailable() >= lend ? 0 : 1;
        });
        if (status != 0) {
            if (remaining && status != kBrennSimInvalidSession) *remaining = hostAvailable();
            return status;
        }
    }
    *elements = slot(hostEnd_);
    if (lend != 0) {
        regions_.push_back(lend);
        hostEnd_ += lend;
        count(stats_.elementsAcquired, totals().elementsAcquired, lend);
    }
    if (acquired) *acquired = lend;
    if (remaining) *remaining = hostAvailable();
    return 0;
}

int32_t SimFifo::release(size_t elements) {
    Lock lock(mutex_);
    if (closed_) return kBrennSimInvalidSession;
    if (elements == 0) return 0;
    count(stats_.releaseCalls, totals().releaseCalls, 1);
    const size_t borrowed = static_cast<size_t>(hostEnd_ - hostStart_);
    if (elements > borrowed) {
        count(stats_.excessReleases, totals().excessReleases, 1);
        return kBrennSimInvalidArgument;
    }
    if (regions_.front() != elements) count(stats_.outOfOrderReleases, totals().outOfOrderReleases, 1);
    // The hardware counts elements, not regions: hand back exactly `elements` from the front,
    // splitting a region when the count ends inside one.
    for (size_t left = elements; left != 0;) {
        if (regions_.front() <= left) {
            left -= regions_.front();
            regions_.pop_front();
        } else {
            regions_.front() -= left;
            left = 0;
        }
    }
    hostStart_ += elements;
    count(stats_.elementsReleased, totals().elementsReleased, elements);
    runFpga();
    changed_.notify_all();
    return 0;
}

int32_t SimFifo::configure(size_t requested, size_t* granted) {
    Lock lock(mutex_);
    if (closed_) return kBrennSimInvalidSession;
    if (requested == 0) return kBrennSimInvalidArgument;
    if (!regions_.empty()) return kBrennMustReleaseFirst;
    size_t depth = std::min(requested, kMaxFifoDepth);
    if (elementSize_ != 0) depth = std::max<size_t>(1, std::min(depth, kMaxFifoBytes / elementSize_));
    relocate(depth);
    runFpga();
    changed_.notify_all();
    if (granted) *granted = depth;
    return 0;
}

// Moves what is in flight into a ring of the new depth, keeping every position. What does
// not fit is taken back by the FPGA (read side: produced again later, so the pattern goes on
// unbroken) or drained and checked now (write side).
void SimFifo::relocate(size_t depth) {
    if (buffer_.empty()) {
        depth_ = depth;
        return;
    }
    if (direction_ == FifoDirection::TargetToHost && fpga_ - hostEnd_ > depth) fpga_ = hostEnd_ + depth;
    if (direction_ == FifoDirection::HostToTarget && fpgaPending() > depth) consume(fpgaPending() - depth);
    std::vector<uint8_t> bigger(depth * elementSize_, 0);
    const uint64_t first = direction_ == FifoDirection::TargetToHost ? hostEnd_ : fpga_;
    const uint64_t last = direction_ == FifoDirection::TargetToHost ? fpga_ : hostStart_;
    for (uint64_t p = first; p < last; ++p) {
        std::memcpy(bigger.data() + static_cast<size_t>(p % depth) * elementSize_, slot(p), elementSize_);
    }
    buffer_.swap(bigger);
    depth_ = depth;
}

// ---- FPGA side and control ---------------------------------------------------------------

void SimFifo::setFpgaRunning(bool running) {
    Lock lock(mutex_);
    fpgaRunning_ = running;
    runFpga();
    changed_.notify_all();
}

size_t SimFifo::feed(size_t elements) {
    Lock lock(mutex_);
    if (closed_ || buffer_.empty() || direction_ != FifoDirection::TargetToHost) return 0;
    size_t moved = std::min(elements, fpgaRoom());
    produce(moved);
    changed_.notify_all();
    return moved;
}

size_t SimFifo::drain(size_t elements) {
    Lock lock(mutex_);
    if (closed_ || buffer_.empty() || direction_ != FifoDirection::HostToTarget) return 0;
    size_t moved = std::min(elements, fpgaPending());
    consume(moved);
    changed_.notify_all();
    return moved;
}

BrennSimFifoStats SimFifo::stats() {
    Lock lock(mutex_);
    return stats_;
}

void SimFifo::close() {
    Lock lock(mutex_);
    closed_ = true;
    changed_.notify_all();
}

// ---- interrupt lines ---------------------------------------------------------------------

void SimIrqs::raise(uint32_t bits) {
    std::lock_guard lock(mutex_);
    asserted_ |= drops_.pass(bits);
    changed_.notify_all();
}

void SimIrqs::acknowledge(uint32_t bits) {
    std::lock_guard lock(mutex_);
    asserted_ &= ~bits;
}

int32_t SimIrqs::wait(uint32_t irqs, uint32_t timeout, uint32_t* asserted, uint8_t* timedOut) {
    Deadline deadline(timeout);
    std::unique_lock lock(mutex_);
    auto settled = [&] { return closed_ || (asserted_ & irqs) != 0; };
    if (deadline.unlimited()) {
        changed_.wait(lock, settled);
    } else {
        changed_.wait_until(lock, deadline.at(), settled);
    }
    if (closed_) return kBrennSimInvalidSession;
    const uint32_t seen = asserted_ & irqs;
    if (asserted) *asserted = seen;
    if (timedOut) *timedOut = seen == 0 ? 1 : 0;
    return 0;
}

void SimIrqs::close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_all();
}

// ---- lookup ------------------------------------------------------------------------------

std::shared_ptr<SimFifo> findFifo(uint32_t session, uint32_t fifo, bool create, int32_t& status) {
    std::shared_ptr<SimFifo> found;
    status = Target::instance().withSession(session, [&](Session& open) {
        auto existing = open.fifos.find(fifo);
        if (existing != open.fifos.end()) {
            found = existing->second;
        } else if (const FifoSpec* spec = open.target->findFifo(fifo)) {
            // A declared FIFO exists from the start, whoever asks first.
            found = open.fifos
                        .emplace(fifo, std::make_shared<SimFifo>(
                                           *spec, open.irqs, FifoStalls(open.target->stallsOf(fifo), open.injections)))
                        .first->second;
        } else if (!open.target->undeclaredAllowed) {
            return int32_t{kBrennSimInvalidArgument};
        } else if (create) {
            found =
                open.fifos
                    .emplace(fifo, std::make_shared<SimFifo>(FifoStalls(open.target->stallsOf(fifo), open.injections)))
                    .first->second;
        }
        return int32_t{0};
    });
    return found;
}

std::shared_ptr<SimIrqs> findIrqs(uint32_t session) {
    std::shared_ptr<SimIrqs> found;
    Target::instance().withSession(session, [&](Session& open) {
        found = open.irqs;
        return int32_t{0};
    });
    return found;
}

}  // namespace brenn::sim
