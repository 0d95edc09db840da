// The parts of the Host's runtime (platform/include/HostRuntime.h) that the forwarding library
// uses, declared here rather than included: the forwarding library defines RTSetCleanupProc and
// EDVR_CreateReference itself, noexcept, which the Host's declarations are not.
// hostContractCheck.cpp checks that both agree.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorvane::trace::host {

using Procedure = int32_t (*)(void* argument);  // cleanup and abort procedures, deletion callbacks
using SetCleanupProc = int32_t (*)(Procedure proc, void* argument, int32_t mode);
using CreateReference = int32_t (*)(uint32_t* reference, void** record);

inline constexpr int32_t kCleanupRemove = 0;
inline constexpr int32_t kCleanupOnProgramStop = 2;
inline constexpr int32_t kCleanupOnCallAbort = 6;
inline constexpr int32_t kInternalError = 1;  // a Host error code without a meaning of its own

// The external data value record: the deletion callback, and what the library keeps there about
// its region (element count and element size, 64 bits each).
inline constexpr size_t kRecordSize = 112;
inline constexpr size_t kDeleteCallbackOffset = 104;
inline constexpr size_t kRegionCountOffset = 24;
inline constexpr size_t kRegionElementBytesOffset = 32;

}  // namespace quorvane::trace::host
