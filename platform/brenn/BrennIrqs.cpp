// Interrupts of the simulated target. No FPGA logic raises an interrupt yet: a wait returns at
// once with nothing asserted, and an acknowledgement has nothing to clear.
#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"

using namespace brenn::sim;

extern "C" {

int32_t BrennDll_WaitOnIrqs(uint32_t session, void* context, uint32_t irqs, uint32_t timeout, uint32_t* irqsAsserted,
                            uint8_t* timedOut) {
    return call(__func__, args(session, context, irqs, timeout, irqsAsserted, timedOut), outs(irqsAsserted, timedOut),
                [&] {
                    return Target::instance().withSession(session, [&](Session&) {
                        if (irqsAsserted) *irqsAsserted = 0;
                        if (timedOut) *timedOut = 0;
                        return int32_t{0};
                    });
                });
}

int32_t BrennDll_AcknowledgeIrqs(uint32_t session, uint32_t irqs) {
    return call(__func__, args(session, irqs), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
}

}  // extern "C"
