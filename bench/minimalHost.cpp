// A minimal Host for the benchmarks: the cleanup registration and the external data value
// references, doing as little as a Host can. Linked into a benchmark ahead of the library and
// the simulated Host, its definitions take their place; the Host's array functions still come
// from the simulated Host.
//
// Each thread keeps its one live reference record in thread-local storage, so threads that
// stream at the same time share nothing here. A benchmark deletes a reference before it
// acquires the next on the same thread.
#include <cstdint>
#include <cstring>

#include "HostRuntime.h"
#include "minimalHost.h"

namespace {

// Initial-exec: a general-dynamic access would call into the dynamic linker on every use.
alignas(64) thread_local unsigned char tRecord[kHostEdvrRecordSize] __attribute__((tls_model("initial-exec")));

}  // namespace

extern "C" {

int32_t RTSetCleanupProc(HostCleanupProc, void*, int32_t mode) {
    return mode == kHostCleanupOnProgramStop ? 1 : kHostNoError;
}

int32_t EDVR_CreateReference(uint32_t* reference, void** record) {
    *reference = 1;
    *record = tRecord;
    return kHostNoError;
}

int32_t MinimalHost_DeleteReference(void) {
    HostDeleteCallback onDeleted = nullptr;
    std::memcpy(&onDeleted, tRecord + kHostEdvrDeleteCallbackOffset, sizeof onDeleted);
    return onDeleted(tRecord);
}

const void* MinimalHost_ReferenceRecord(void) {
    return tRecord;
}

}  // extern "C"
