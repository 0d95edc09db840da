// Source locations recorded by the resource entry points with the FPGA interface library's
// results (and with the checks they add around them).
#pragma once

#include <cstdint>

namespace quorvane {

inline constexpr const char kEntryPointsFile[] = "ExternalEntryPoints";
inline constexpr uint64_t kGetResourceIndexLine = 92;
inline constexpr uint64_t kReleaseResourceIndexLine = 102;
inline constexpr uint64_t kSizeQueryLine = 118;
inline constexpr uint64_t kSessionIndexesLine = 128;
inline constexpr uint64_t kResourceNameLine = 140;

}  // namespace quorvane
