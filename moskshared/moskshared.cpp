#include "moskshared/moskshared.h"

namespace quorvane {

tMoskAutoStatus::~tMoskAutoStatus() {
    if (target_ == nullptr) return;
    // The exports hand 32-bit statuses back, so only the low half of the code travels.
    const auto mine = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(code)));
    const int32_t held = *target_;
    if (held < 0) return;
    // 0 takes whatever this record holds, even 0 or a warning; a warning yields only to an error.
    if (held == 0 || mine < 0) *target_ = mine;
}

uint32_t narrowToU32(uint64_t value, tStatus& status) noexcept {
    if (value > UINT32_MAX) status.setCode(kStatusInvalidArgument, kMoskSharedFile, kMoskSharedLine);
    return static_cast<uint32_t>(value);
}

}  // namespace quorvane
