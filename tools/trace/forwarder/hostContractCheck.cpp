// Compile-time check that hostContract.h says what the Host's runtime header says.
#include <type_traits>

#include "HostRuntime.h"
#include "hostContract.h"

namespace quorvane::trace::host {

static_assert(std::is_same_v<Procedure, HostCleanupProc> && std::is_same_v<Procedure, HostDeleteCallback>);
static_assert(std::is_same_v<SetCleanupProc, decltype(&::RTSetCleanupProc)>);
static_assert(std::is_same_v<CreateReference, decltype(&::EDVR_CreateReference)>);
static_assert(kCleanupRemove == kHostCleanupRemove && kCleanupOnProgramStop == kHostCleanupOnProgramStop &&
              kCleanupOnCallAbort == kHostCleanupOnCallAbort);
static_assert(kRecordSize == kHostEdvrRecordSize && kDeleteCallbackOffset == kHostEdvrDeleteCallbackOffset);
static_assert(kInternalError != kHostNoError && kInternalError != kHostOutOfMemory &&
              kInternalError != kHostCallAborted);

}  // namespace quorvane::trace::host
