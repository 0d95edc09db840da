// Resource indexes, resource names and peer-to-peer FIFO endpoints: thin passages to the FPGA
// interface library. None takes a lock or looks at the session registry.
#include "BrennDll.h"
#include "ExternalEntryPoints/entryPointLocations.h"
#include "Quorvane.h"
#include "Quorvane/sessionFlags.h"
#include "protons/status/stlStatus.h"

using namespace quorvane;

namespace {
constexpr uint32_t kInvalidResourceIndex = 0xFFFFFFFFu;
}  // namespace

extern "C" uint32_t Quorvane_GetResourceIndex(const char* name) noexcept {
    tStatus status;
    uint32_t index = 0;
    status.setCode(BrennDll_GetResourceIndex(name, &index), kEntryPointsFile, kGetResourceIndexLine);
    // Only an error is visible to the Host, as the invalid index; a warning is dropped.
    return status.isError() ? kInvalidResourceIndex : index;
}

extern "C" void Quorvane_ReleaseResourceIndex(uint32_t index) noexcept {
    tStatus status;
    // The Host has no way to hear about a failed release; the result ends with this record.
    status.setCode(BrennDll_ReleaseResourceIndex(index), kEntryPointsFile, kReleaseResourceIndexLine);
}

extern "C" int32_t Quorvane_GetResourceName(uint32_t index, const char** name) noexcept {
    // The name stays the FPGA interface library's; the Host must not free it.
    return BrennDll_GetResourceName(index, name);
}

extern "C" int32_t Quorvane_GetPeerToPeerFifoEndpoint(uint32_t session, uint32_t fifo, uint32_t* endpoint) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_GetPeerToPeerFifoEndpoint(markedForResourceCall(session), fifo, endpoint);
}
