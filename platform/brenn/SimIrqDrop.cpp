#include "SimIrqDrop.h"

namespace brenn::sim {

uint32_t IrqDrops::pass(uint32_t raised) {
    if (drops_.empty()) return raised;
    uint32_t asserted = raised;
    for (uint32_t bit = 0; bit < 32; ++bit) {
        if ((raised & (uint32_t{1} << bit)) == 0) continue;
        const uint64_t assertion = ++assertions_[bit];  // 1 for the first
        for (const IrqDropSpec& drop : drops_) {
            if (drop.bit != bit || assertion != drop.after + 1) continue;
            asserted &= ~(uint32_t{1} << bit);
            if (counts_) counts_->acted(drop.statement);
        }
    }
    return asserted;
}

}  // namespace brenn::sim
