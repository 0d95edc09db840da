// IRQ contexts, waits and acknowledgements, and PXI trigger lines.
#include "forwarding.h"

using namespace quorvane::trace;

namespace {

template <class Call>
int32_t withoutArguments(const char* name, Call&& call) noexcept {
    return traced(name, call, [](LineWriter&, int32_t) {});
}

template <class Call>
int32_t onLine(const char* name, uint32_t session, uint32_t lineNumber, Call&& call) noexcept {
    return traced(name, call, [&](LineWriter& line, int32_t) {
        line.argument("session").session(session);
        line.argument("line").decimal(lineNumber);
    });
}

}  // namespace

extern "C" int32_t Quorvane_ReserveIrqContext(void) noexcept {
    return withoutArguments(__func__, [] { return realLibrary().ReserveIrqContext(); });
}

extern "C" int32_t Quorvane_UnreserveIrqContext(void) noexcept {
    return withoutArguments(__func__, [] { return realLibrary().UnreserveIrqContext(); });
}

extern "C" int32_t Quorvane_WaitOnIrqs(uint32_t session, void** context, uint32_t irqs, uint32_t timeout,
                                       uint32_t* irqsAsserted, uint8_t* timedOut) noexcept {
    return traced(
        __func__, [&] { return realLibrary().WaitOnIrqs(session, context, irqs, timeout, irqsAsserted, timedOut); },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("context").pointer(context == nullptr ? nullptr : *context);
            line.argument("irqs").hex(irqs);
            line.argument("timeout").timeout(timeout);
            if (!wroteResults(status)) return;
            if (irqsAsserted != nullptr) line.result("asserted").hex(*irqsAsserted);
            if (timedOut != nullptr) line.result("timed out").put(*timedOut != 0 ? "yes" : "no");
        });
}

extern "C" int32_t Quorvane_AcknowledgeIrqs(uint32_t session, uint32_t irqs) noexcept {
    return traced(
        __func__, [&] { return realLibrary().AcknowledgeIrqs(session, irqs); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            line.argument("irqs").hex(irqs);
        });
}

extern "C" int32_t Quorvane_ReservePxiTriggerLine(uint32_t session, uint32_t line) noexcept {
    return onLine(__func__, session, line, [&] { return realLibrary().ReservePxiTriggerLine(session, line); });
}

extern "C" int32_t Quorvane_UnreservePxiTriggerLine(uint32_t session, uint32_t line) noexcept {
    return onLine(__func__, session, line, [&] { return realLibrary().UnreservePxiTriggerLine(session, line); });
}
