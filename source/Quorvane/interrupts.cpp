// Waiting on and acknowledging interrupts, and PXI trigger lines through the device service.
// The IRQ context count lives with the session code, since every open reads it.
#include <cstdint>

#include "BrennDll.h"
#include "MoskSrv.h"
#include "Quorvane.h"
#include "Quorvane/sessionFlags.h"
#include "protons/status/stlStatus.h"

using namespace quorvane;

namespace {

// The device service reports into `status` rather than through its return value, so only what
// it left there counts.
int32_t setTriggerLineAttribute(uint32_t session, uint32_t attribute, uint32_t line) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    int32_t status = kStatusSuccess;
    MoskSrv_device_set32(withoutFlagNibble(session), attribute, line, &status);
    return status;
}

}  // namespace

// Interrupts belong to the whole target, so the handle goes on unmarked. The library wants the
// context itself; the Host hands over the address of the variable that holds it.
extern "C" int32_t Quorvane_WaitOnIrqs(uint32_t session, void** context, uint32_t irqs, uint32_t timeout,
                                       uint32_t* irqsAsserted, uint8_t* timedOut) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    if (context == nullptr) return kStatusInvalidArgument;
    return BrennDll_WaitOnIrqs(session, *context, irqs, timeout, irqsAsserted, timedOut);
}

extern "C" int32_t Quorvane_AcknowledgeIrqs(uint32_t session, uint32_t irqs) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_AcknowledgeIrqs(session, irqs);
}

extern "C" int32_t Quorvane_ReservePxiTriggerLine(uint32_t session, uint32_t line) noexcept {
    return setTriggerLineAttribute(session, kMoskSrvReservePxiTriggerLine, line);
}

extern "C" int32_t Quorvane_UnreservePxiTriggerLine(uint32_t session, uint32_t line) noexcept {
    return setTriggerLineAttribute(session, kMoskSrvReleasePxiTriggerLine, line);
}
