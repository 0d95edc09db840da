// Opening and closing sessions, and the count of IRQ contexts each open reserves.
#include "BrennDll.h"
#include "HostRuntime.h"
#include "Quorvane.h"
#include "Quorvane/sessionClose.h"
#include "Quorvane/sessionRegistry.h"

using namespace quorvane;

namespace {

constexpr uint32_t kCloseOnCleanup = 1;

int32_t registerCleanup(uint32_t session) noexcept {
    return RTSetCleanupProc(SessionCleanupProc, cleanupArgument(session), kHostCleanupOnProgramStop);
}

}  // namespace

extern "C" int32_t Quorvane_Open(const char* bitfile, const char* signature, const char* resource, uint32_t attribute,
                                 uint32_t* session) noexcept {
    tSessionRegistry& registry = sessionRegistry();
    tStatus loadStatus;
    loadStatus.mergeFrom(registry.lockCreationStatus());
    if (loadStatus.isError()) return loadStatus.code32();
    {
        // The flag is raised by registrations under this lock.
        tSharedLock registryGuard(gRegistryLock);
        if (registry.allocationFailed()) loadStatus.setCode(kStatusMemoryFull, kStlStatusFile, kStlStatusLine);
    }
    if (loadStatus.isError()) return loadStatus.code32();

    const int32_t opened = BrennDll_Open(bitfile, signature, resource, attribute, session);
    if (opened < 0) return opened;
    const uint32_t handle = *session;
    // A warning recorded at load wins over the open's own result.
    int32_t status = loadStatus.code != 0 ? loadStatus.code32() : opened;

    const int32_t reserves = registry.irqContextReserveCount.load();
    for (int32_t i = 0; i < reserves && status >= 0; ++i) {
        const int32_t reserved = BrennDll_ReserveIrqContext(handle, nullptr);
        if (reserved < 0 || status == 0) status = reserved;
    }

    // The record goes in before the cleanup procedure is handed to the Host. A program stop
    // may run that procedure at once, on another thread; it must find the session registered,
    // or it would close the handle and this open would then register a session that is gone.
    if (status >= 0) {
        const int32_t registered = RegisterSession(&handle, 0);
        if (registered < 0) {
            Quorvane_Close(handle, kCloseOnCleanup);
            return registered;
        }
    }
    // Registered even when a reserve failed: the close below removes it again.
    if (registerCleanup(handle) == 0) {
        if (status >= 0) status = kStatusInternalError;
        Quorvane_Close(handle, kCloseOnCleanup);
        return status;
    }
    if (status < 0) Quorvane_Close(handle, kCloseOnCleanup);
    return status;
}

extern "C" int32_t Quorvane_ReserveIrqContext(void) noexcept {
    sessionRegistry().irqContextReserveCount.fetch_add(1);
    return 0;
}

extern "C" int32_t Quorvane_UnreserveIrqContext(void) noexcept {
    sessionRegistry().irqContextReserveCount.fetch_sub(1);
    return 0;
}
