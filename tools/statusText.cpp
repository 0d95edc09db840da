#include "statusText.h"

namespace quorvane::tools {

const char* statusMeaning(int32_t status) noexcept {
    switch (status) {
        case 0:
            return "success";
        case -52000:
            return "memory or a Host handle could not be obtained";
        case -52003:
            return "internal failure: a mutex, a Host function, or the Host's cleanup registration";
        case -52005:
            return "invalid argument: null pointer or handle, bad element type, or a count over 32 bits";
        case -52007:
            return "an event wait timed out";
        case -52008:
            return "a condition variable could not be created";
        case -50400:
            return "the FPGA interface library timed out";
        case -50405:
            return "the call was aborted by the Host";
        case -61217:
            return "refused: FIFO regions of the session are still lent to the Host";
        case -61219:
            return "no room until acquired elements are released; the time-out ran out";
        case -61499:
            return "the session handle is marked refused (bit 0x2000)";
        case -63100:
            return "the simulated target does not know the session handle (closed or never opened)";
        case -63101:
            return "the simulated target refused an argument: unknown FIFO, or another element type or direction";
        case -63102:
            return "the simulated target ran out of memory for its own bookkeeping";
        case -63103:
            return "the target description could not be loaded";
        case -63080:
            return "size query answer: the count was written";
        case -63195:
            return "the session is not open through this library";
        default:
            return status < 0 ? "error reported by the FPGA interface library"
                              : "warning reported by the FPGA interface library";
    }
}

}  // namespace quorvane::tools
