// Helpers shared by exports that hand results back to the Host: the scoped status that merges
// into a caller's 32-bit status, and the checked narrowing of 64-bit counts.
#pragma once

#include <cstdint>

#include "protons/status/stlStatus.h"

namespace quorvane {

// Source location of a count that does not fit its 32-bit destination.
inline constexpr const char kMoskSharedFile[] = "moskshared";
inline constexpr uint64_t kMoskSharedLine = 453;

// A status record tied to a caller's 32-bit status: on destruction its code is merged into
// *target under the merge rule (an error there stays; 0 takes anything; a warning gives way
// only to an error). A null target receives nothing.
class tMoskAutoStatus : public tStatus {
public:
    explicit tMoskAutoStatus(int32_t* target) noexcept : target_(target) {}
    virtual ~tMoskAutoStatus();
    tMoskAutoStatus(const tMoskAutoStatus&) = delete;
    tMoskAutoStatus& operator=(const tMoskAutoStatus&) = delete;

private:
    int32_t* target_;
};

// The low 32 bits of `value`; merges -52005 at moskshared:453 into `status` when the value
// does not fit.
uint32_t narrowToU32(uint64_t value, tStatus& status) noexcept;

}  // namespace quorvane
