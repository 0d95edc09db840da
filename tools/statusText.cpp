#include "statusText.h"

#include "BrennSim.h"
#include "QuorvaneStatus.h"

namespace quorvane::tools {

namespace {

// The simulated target's own codes (BrennSim.h). They are not the library's, and a real FPGA
// interface library may give these numbers other meanings.
#define QUORVANE_SIMULATED_TARGET_STATUS_LIST(X)                                                                 \
    X(kBrennSimInvalidSession, "the simulated target does not know the session handle (closed or never opened)") \
    X(kBrennSimInvalidArgument,                                                                                  \
      "the simulated target refused an argument: unknown FIFO, or another element type or direction")            \
    X(kBrennSimInternalFailure, "the simulated target ran out of memory for its own bookkeeping")                \
    X(kBrennSimBadTargetDescription, "the target description could not be loaded")

#define QUORVANE_LIBRARY_STATUS(name, value, meaning) {value, #name, meaning, StatusOrigin::library},
#define QUORVANE_SIMULATED_TARGET_STATUS(name, meaning) {name, #name, meaning, StatusOrigin::simulatedTarget},

constexpr KnownStatus kKnownStatuses[] = {QUORVANE_STATUS_LIST(QUORVANE_LIBRARY_STATUS)
                                              QUORVANE_SIMULATED_TARGET_STATUS_LIST(QUORVANE_SIMULATED_TARGET_STATUS)};

#undef QUORVANE_LIBRARY_STATUS
#undef QUORVANE_SIMULATED_TARGET_STATUS

}  // namespace

std::span<const KnownStatus> knownStatuses() noexcept {
    return kKnownStatuses;
}

const KnownStatus* findStatus(int32_t status) noexcept {
    for (const KnownStatus& known : kKnownStatuses) {
        if (known.code == status) return &known;
    }
    return nullptr;
}

const char* statusMeaning(int32_t status) noexcept {
    if (const KnownStatus* known = findStatus(status)) return known->meaning;
    return status < 0 ? "error reported by the FPGA interface library"
                      : "warning reported by the FPGA interface library";
}

}  // namespace quorvane::tools
