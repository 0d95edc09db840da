// Pieces shared by the files of the simulated Host runtime. Not installed, not seen by tests.
//
// Each part of the Host keeps its own lock (handles, program-stop registrations, abort
// registrations, references, control). No part holds its lock while it takes another part's
// lock or calls into a caller's procedure, except the abort run, which by contract runs the
// abort procedures under the abort lock and takes no other lock of ours meanwhile.
#ifndef HOST_INTERNAL_H
#define HOST_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <optional>

namespace hostsim {

// The Host functions whose calls are counted and whose answers can be injected.
enum class HostFunction : int { kNumericArrayResize, kDSNewHandle, kRTSetCleanupProc, kEDVR_CreateReference };
inline constexpr int kHostFunctionCount = 4;

// Counts a call of `function`; for RTSetCleanupProc also counts it under its mode.
void countCall(HostFunction function) noexcept;
void countCleanupMode(int32_t mode) noexcept;
void noteResizeTypeCode(int32_t typeCode) noexcept;

// The oldest answer injected for `function`, removed from its queue; none when the queue is empty.
std::optional<int32_t> takeInjectedAnswer(HostFunction function) noexcept;
// True (once per request) when the next program-stop registration is to be refused.
bool takeProgramStopRefusal() noexcept;

// A new live handle whose block has exactly `blockSize` zero bytes, or null when memory runs
// out. With `withBlock` false the handle's block pointer is null (a failed Host allocation).
void** makeHandle(size_t blockSize, bool withBlock) noexcept;

void forgetCleanupRegistrations() noexcept;

// Reports a caller's misuse of the Host (an unknown handle, a deadlocking call) and stops the
// process: carrying on would only corrupt memory somewhere less obvious.
[[noreturn]] void misuse(const char* what) noexcept;

}  // namespace hostsim

#endif  // HOST_INTERNAL_H
