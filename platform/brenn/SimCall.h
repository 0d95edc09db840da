// The frame around every BrennDll_ function of the stand-in: take a scripted answer if one is
// queued, let the target's fault statements answer instead of the simulated work, run the work
// (or not), write scripted outputs, log the call, and never let an exception cross the C
// boundary.
//
// A function body reads
//     return call(__func__, args(session, reg, value), outs(value), [&] { return ...; });
// so the logged name is the C name of the function itself, also inside the macros that
// generate the per-element-type FIFO functions.
#ifndef BRENN_SIM_CALL_H
#define BRENN_SIM_CALL_H

#include <cstdint>
#include <type_traits>

#include "SimFaults.h"
#include "SimTarget.h"

namespace brenn::sim {

template <typename T>
uint64_t widen(T value) noexcept {
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<uintptr_t>(value);
    } else {
        return static_cast<uint64_t>(value);
    }
}

template <typename... T>
CallArgs args(T... values) noexcept {
    static_assert(sizeof...(T) <= kBrennSimMaxArgs, "the log keeps at most kBrennSimMaxArgs arguments");
    return CallArgs{{widen(values)...}, sizeof...(T)};
}

// A scalar out-parameter that a scripted answer may write.
struct OutParam {
    void* target = nullptr;
    void (*store)(void* target, uint64_t value) = nullptr;
};

inline constexpr uint32_t kMaxOutParams = 4;

struct OutParams {
    OutParam params[kMaxOutParams] = {};
    uint32_t count = 0;
};

template <typename T>
OutParam outParam(T* pointer) noexcept {
    return {static_cast<void*>(pointer), [](void* target, uint64_t value) {
                if constexpr (std::is_pointer_v<T>) {
                    *static_cast<T*>(target) = reinterpret_cast<T>(static_cast<uintptr_t>(value));
                } else {
                    *static_cast<T*>(target) = static_cast<T>(value);
                }
            }};
}

template <typename... T>
OutParams outs(T*... pointers) noexcept {
    static_assert(sizeof...(T) <= kMaxOutParams, "a scripted answer carries at most four outputs");
    return OutParams{{outParam(pointers)...}, sizeof...(T)};
}

inline void writeOutputs(const OutParams& outs, const BrennSimAnswer& answer) noexcept {
    uint32_t count = answer.outputCount < outs.count ? answer.outputCount : outs.count;
    for (uint32_t i = 0; i < count; ++i) {
        if (outs.params[i].target) outs.params[i].store(outs.params[i].target, answer.outputs[i]);
    }
}

template <typename Work>
int32_t call(const char* function, const CallArgs& arguments, const OutParams& outputs, Work&& work) noexcept {
    Target& target = Target::instance();
    int32_t result = 0;
    try {
        target.pauseIfHeld(function);
        BrennSimAnswer answer{};
        bool scripted = target.takeAnswer(function, answer);
        if (scripted && answer.mode != kBrennSimAfterReal) {
            result = answer.status;
            writeOutputs(outputs, answer);
        } else {
            // An error a fault injects replaces the work; a warning follows a successful one.
            const InjectedAnswer injected = injectFault(function, arguments);
            result = injected.replaces ? injected.status : work();
            if (!injected.replaces && injected.status != 0 && result == 0) result = injected.status;
            if (scripted && result == 0) {
                result = answer.status;
                writeOutputs(outputs, answer);
            }
        }
    } catch (...) {
        // Only the target's own containers throw (out of memory); the caller sees a status.
        result = kBrennSimInternalFailure;
    }
    target.record(function, arguments, result);
    return result;
}

}  // namespace brenn::sim

#endif  // BRENN_SIM_CALL_H
