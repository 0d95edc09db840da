// Interrupts of the simulated target: each session has its own lines (SimIrqs), raised by a
// write to kBrennSimIrqRegister or by BrennSim_RaiseIrqs. A waiter holds the session's lines,
// not the target's table, while it waits.
#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"
#include "SimFifo.h"

using namespace brenn::sim;

extern "C" {

int32_t BrennDll_WaitOnIrqs(uint32_t session, void* context, uint32_t irqs, uint32_t timeout, uint32_t* irqsAsserted,
                            uint8_t* timedOut) {
    return call(__func__, args(session, context, irqs, timeout, irqsAsserted, timedOut), outs(irqsAsserted, timedOut),
                [&] {
                    std::shared_ptr<SimIrqs> irqLines = findIrqs(session);
                    if (!irqLines) return int32_t{kBrennSimInvalidSession};
                    return irqLines->wait(irqs, timeout, irqsAsserted, timedOut);
                });
}

int32_t BrennDll_AcknowledgeIrqs(uint32_t session, uint32_t irqs) {
    return call(__func__, args(session, irqs), outs(), [&] {
        std::shared_ptr<SimIrqs> irqLines = findIrqs(session);
        if (!irqLines) return int32_t{kBrennSimInvalidSession};
        irqLines->acknowledge(irqs);
        return int32_t{0};
    });
}

int BrennSim_RaiseIrqs(uint32_t session, uint32_t bits) {
    try {
        std::shared_ptr<SimIrqs> irqLines = findIrqs(session);
        if (!irqLines) return 0;
        irqLines->raise(bits);
        return 1;
    } catch (...) {
        return 0;
    }
}

}  // extern "C"
