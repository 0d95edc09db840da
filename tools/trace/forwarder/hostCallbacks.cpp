#include "hostCallbacks.h"

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "hostContract.h"
#include "realLibrary.h"
#include "tracedCall.h"

namespace quorvane::trace {

namespace {

using host::Procedure;

enum Kind : size_t { kCleanup, kAbort, kRegionDeleted, kKinds };
constexpr std::string_view kNames[kKinds] = {"cleanup procedure", "abort procedure", "region deleted"};
constexpr size_t kSlots = 8;

// Written once per slot under gClaimMutex, read by wrappers on any thread.
std::atomic<Procedure> gOriginals[kKinds][kSlots];
std::mutex gClaimMutex;

thread_local bool tAcquiring = false;
thread_local void* tCreatedRecord = nullptr;

uint64_t recordField(const void* record, size_t offset) noexcept {
    uint64_t value = 0;
    std::memcpy(&value, static_cast<const char*>(record) + offset, sizeof value);
    return value;
}

int32_t runWrapped(Kind kind, size_t slot, void* argument) noexcept {
    const Procedure original = gOriginals[kind][slot].load(std::memory_order_acquire);
    // Read before the callback: the Host frees the record once it has run.
    const uint64_t elements = kind == kRegionDeleted ? recordField(argument, host::kRegionCountOffset) : 0;
    const uint64_t bytes = kind == kRegionDeleted ? recordField(argument, host::kRegionElementBytesOffset) : 0;
    TracedCall call(kNames[kind], RecordKind::callback);
    const int32_t result = original(argument);
    call.finish(result, [&](LineWriter& line) {
        if (kind == kCleanup) {
            // The library's cleanup argument is the session handle.
            line.argument("session").session(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument)));
        } else if (kind == kAbort) {
            line.argument("argument").pointer(argument);
        } else {
            line.argument("record").pointer(argument);
            line.argument("elements").decimal(elements);
            line.argument("bytes each").decimal(bytes);
        }
    });
    return result;
}

template <Kind kind, size_t slot>
int32_t wrapper(void* argument) noexcept {
    return runWrapped(kind, slot, argument);
}

template <Kind kind, size_t... slot>
constexpr std::array<Procedure, kSlots> wrappersOf(std::index_sequence<slot...>) {
    return {&wrapper<kind, slot>...};
}

constexpr std::array<Procedure, kSlots> kWrappers[kKinds] = {
    wrappersOf<kCleanup>(std::make_index_sequence<kSlots>{}), wrappersOf<kAbort>(std::make_index_sequence<kSlots>{}),
    wrappersOf<kRegionDeleted>(std::make_index_sequence<kSlots>{})};

// The slot holding `original`, claiming a free one when `claim`; kSlots when there is none.
size_t slotOf(Kind kind, Procedure original, bool claim) noexcept {
    for (size_t slot = 0; slot < kSlots; ++slot) {
        if (gOriginals[kind][slot].load(std::memory_order_acquire) == original) return slot;
    }
    if (!claim) return kSlots;
    std::lock_guard guard(gClaimMutex);
    for (size_t slot = 0; slot < kSlots; ++slot) {
        const Procedure held = gOriginals[kind][slot].load(std::memory_order_relaxed);
        if (held == original) return slot;
        if (held == nullptr) {
            gOriginals[kind][slot].store(original, std::memory_order_release);
            return slot;
        }
    }
    return kSlots;
}

bool isWrapper(Procedure procedure) noexcept {
    for (const auto& wrappers : kWrappers) {
        for (Procedure wrapper : wrappers) {
            if (wrapper == procedure) return true;
        }
    }
    return false;
}

// What the Host gets in place of `procedure`: its wrapper if it is the library's (a new wrapper
// only when `registering`), else `procedure` itself.
Procedure handedToHost(Kind kind, Procedure procedure, bool registering) noexcept {
    if (procedure == nullptr) return procedure;
    size_t slot = slotOf(kind, procedure, false);
    if (slot == kSlots && registering && isInRealLibrary(reinterpret_cast<const void*>(procedure))) {
        slot = slotOf(kind, procedure, true);
    }
    return slot == kSlots ? procedure : kWrappers[kind][slot];
}

template <class Function>
Function nextDefinition(const char* name) noexcept {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

AcquisitionScope::AcquisitionScope() noexcept : outerAcquiring_(tAcquiring), outerRecord_(tCreatedRecord) {
    tAcquiring = true;
    tCreatedRecord = nullptr;
}

AcquisitionScope::~AcquisitionScope() {
    tAcquiring = outerAcquiring_;
    tCreatedRecord = outerRecord_;
}

void* AcquisitionScope::record() const noexcept {
    return tCreatedRecord;
}

void wrapRegionDeletion(void* record) noexcept {
    char* callbackField = static_cast<char*>(record) + host::kDeleteCallbackOffset;
    Procedure callback = nullptr;
    std::memcpy(&callback, callbackField, sizeof callback);
    if (callback == nullptr || isWrapper(callback)) return;
    const size_t slot = slotOf(kRegionDeleted, callback, true);
    if (slot < kSlots) std::memcpy(callbackField, &kWrappers[kRegionDeleted][slot], sizeof(Procedure));
}

}  // namespace quorvane::trace

using namespace quorvane::trace;

extern "C" __attribute__((visibility("default"))) int32_t RTSetCleanupProc(host::Procedure proc, void* argument,
                                                                           int32_t mode) noexcept {
    static const auto forward = nextDefinition<host::SetCleanupProc>("RTSetCleanupProc");
    if (mode == host::kCleanupOnProgramStop) proc = handedToHost(kCleanup, proc, true);
    if (mode == host::kCleanupRemove) proc = handedToHost(kCleanup, proc, false);
    if (mode == host::kCleanupOnCallAbort) proc = handedToHost(kAbort, proc, true);
    if (forward == nullptr) return mode == host::kCleanupOnCallAbort ? host::kInternalError : 0;
    return forward(proc, argument, mode);
}

extern "C" __attribute__((visibility("default"))) int32_t EDVR_CreateReference(uint32_t* reference,
                                                                               void** record) noexcept {
    static const auto forward = nextDefinition<host::CreateReference>("EDVR_CreateReference");
    if (forward == nullptr) return host::kInternalError;
    const int32_t result = forward(reference, record);
    if (tAcquiring && result == 0 && record != nullptr) tCreatedRecord = *record;
    return result;
}
