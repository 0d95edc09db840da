// One-line meanings of the status codes a Host meets, for programs that print them. The
// library itself has no log; this table lives with the tools.
#pragma once

#include <cstdint>

namespace quorvane::tools {

// The meaning of `status`, or a generic text for codes of the FPGA interface library.
const char* statusMeaning(int32_t status) noexcept;

}  // namespace quorvane::tools
