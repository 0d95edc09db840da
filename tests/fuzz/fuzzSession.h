// What every fuzz target of the exports shares: a session on the simulated default target for
// one input, and the promises checked once it is closed again.
#pragma once

#include <cstdint>

#include "Quorvane.h"
#include "QuorvaneStatus.h"
#include "fuzzedBytes.h"

namespace quorvane::fuzzing {

// A status the library documents, or one it passed on from the FPGA interface library, the
// device service or the Host (those come from below its own range of codes, or are warnings).
inline bool isHonestStatus(int32_t status) {
#define QUORVANE_FUZZ_LISTED(name, value, meaning) status == (value) ||
    return QUORVANE_STATUS_LIST(QUORVANE_FUZZ_LISTED) status >= 0 || status <= -60000;
#undef QUORVANE_FUZZ_LISTED
}

// Opens a session on the default target (FIFOs take their type from their first use) and,
// when the input is done, closes it and checks that nothing was left behind: no session on the
// target, no Host handle, no block of the library's own.
class FuzzSession {
public:
    FuzzSession();
    ~FuzzSession();
    FuzzSession(const FuzzSession&) = delete;
    FuzzSession& operator=(const FuzzSession&) = delete;

    uint32_t handle() const { return handle_; }

private:
    uint32_t handle_ = 0;
    uint64_t libraryBlocks_ = 0;
    size_t hostHandles_ = 0;
};

}  // namespace quorvane::fuzzing
