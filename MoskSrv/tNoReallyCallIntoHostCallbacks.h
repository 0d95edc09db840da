// The Host callback table: the Host functions that resource enumeration reaches, found by name
// in the process each time a table is built. Nothing is cached between tables, so a Host that
// provides a function later is seen by the next call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "protons/status/stlStatus.h"

namespace quorvane {

inline constexpr const char kHostCallbacksFile[] = "tNoReallyCallIntoHostCallbacks";
inline constexpr uint64_t kHostCallbacksMissingLine = 25;

class iHostCallbacks {
public:
    virtual ~iHostCallbacks() = default;
    // Host result of resizing the array whose handle lives at `handle`.
    virtual int32_t NumericArrayResize(int32_t typeCode, int32_t dimensions, void*** handle, size_t count) noexcept = 0;
    // A new handle of `size` bytes, or null.
    virtual void** DSNewHandle(size_t size) noexcept = 0;
    // Whether the operations above may be called: an entry that was not found never is.
    virtual bool hasNumericArrayResize() const noexcept = 0;
    virtual bool hasDSNewHandle() const noexcept = 0;
};

class tNoReallyCallIntoHostCallbacks final : public iHostCallbacks {
public:
    // Looks up RTSetCleanupProc, NumericArrayResize and DSNewHandle with dlsym on the default
    // handle; when any is missing, merges -52003 at tNoReallyCallIntoHostCallbacks:25.
    explicit tNoReallyCallIntoHostCallbacks(tStatus& status) noexcept;

    int32_t NumericArrayResize(int32_t typeCode, int32_t dimensions, void*** handle, size_t count) noexcept override;
    void** DSNewHandle(size_t size) noexcept override;
    bool hasNumericArrayResize() const noexcept override { return numericArrayResize_ != nullptr; }
    bool hasDSNewHandle() const noexcept override { return dsNewHandle_ != nullptr; }

private:
    using tSetCleanupProc = int32_t (*)(int32_t (*)(void*), void*, int32_t);
    using tNumericArrayResize = int32_t (*)(int32_t, int32_t, void***, size_t);
    using tDSNewHandle = void** (*)(size_t);

    // Looked up and checked for presence only: cleanup registrations call the Host directly.
    tSetCleanupProc setCleanupProc_ = nullptr;
    tNumericArrayResize numericArrayResize_ = nullptr;
    tDSNewHandle dsNewHandle_ = nullptr;
};

}  // namespace quorvane
