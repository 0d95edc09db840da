// Names and one-line meanings of the status codes a Host meets, for programs that print them.
// The library has no log; this table lives with the tools. The library's codes come from its
// public list (QuorvaneStatus.h); the simulated target's own codes are added here, since they
// are not the library's.
#pragma once

#include <cstdint>
#include <span>

namespace quorvane::tools {

enum class StatusOrigin { library, simulatedTarget };

struct KnownStatus {
    int32_t code;
    const char* name;
    const char* meaning;
    StatusOrigin origin;
};

// Every code the tools know: the library's list in its order, then the simulated target's.
std::span<const KnownStatus> knownStatuses() noexcept;

// The entry of `status`, or null for a code that is neither the library's nor the simulated
// target's (it then comes from the FPGA interface library or the device service).
const KnownStatus* findStatus(int32_t status) noexcept;

// The meaning of `status`, or a generic text for codes of the FPGA interface library.
const char* statusMeaning(int32_t status) noexcept;

}  // namespace quorvane::tools
