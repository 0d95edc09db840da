#include "MoskSrv/tNoReallyCallIntoHostCallbacks.h"

#include <dlfcn.h>

namespace quorvane {

namespace {
template <class F>
F lookUp(const char* name) noexcept {
    return reinterpret_cast<F>(dlsym(RTLD_DEFAULT, name));
}
}  // namespace

tNoReallyCallIntoHostCallbacks::tNoReallyCallIntoHostCallbacks(tStatus& status) noexcept
    : setCleanupProc_(lookUp<tSetCleanupProc>("RTSetCleanupProc")),
      numericArrayResize_(lookUp<tNumericArrayResize>("NumericArrayResize")),
      dsNewHandle_(lookUp<tDSNewHandle>("DSNewHandle")) {
    if (setCleanupProc_ == nullptr || numericArrayResize_ == nullptr || dsNewHandle_ == nullptr) {
        status.setCode(kStatusInternalError, kHostCallbacksFile, kHostCallbacksMissingLine);
    }
}

int32_t tNoReallyCallIntoHostCallbacks::NumericArrayResize(int32_t typeCode, int32_t dimensions, void*** handle,
                                                           size_t count) noexcept {
    return numericArrayResize_(typeCode, dimensions, handle, count);
}

void** tNoReallyCallIntoHostCallbacks::DSNewHandle(size_t size) noexcept {
    return dsNewHandle_(size);
}

}  // namespace quorvane
