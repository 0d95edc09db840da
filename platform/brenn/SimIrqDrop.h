// Interrupts that a target's `drop irq` statements swallow: the chosen assertion of an IRQ on
// a session does not happen, as when a board's interrupt line misses a pulse.
//
// Not thread-safe: the interrupt lines that own it guard it with their own mutex.
#ifndef BRENN_SIM_IRQ_DROP_H
#define BRENN_SIM_IRQ_DROP_H

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "SimFaults.h"
#include "TargetDescription.h"

namespace brenn::sim {

class IrqDrops {
public:
    IrqDrops() = default;
    IrqDrops(std::vector<IrqDropSpec> drops, std::shared_ptr<InjectionCounts> counts)
        : drops_(std::move(drops)), counts_(std::move(counts)) {}

    // The bits of `raised` that are asserted. Every bit raised counts as one assertion of its
    // IRQ, asserted already or not; an assertion a statement drops leaves its bit as it was.
    uint32_t pass(uint32_t raised);

private:
    std::vector<IrqDropSpec> drops_;
    std::shared_ptr<InjectionCounts> counts_;
    std::array<uint64_t, 32> assertions_{};
};

}  // namespace brenn::sim

#endif  // BRENN_SIM_IRQ_DROP_H
