// The test control interface of BrennSim.h that is not tied to one area of the target:
// scripted answers, the call log and reset.
#include "BrennSim.h"
#include "SimTarget.h"

using brenn::sim::Target;

namespace {

// Control functions have C linkage too; a test must never see an exception from them.
template <typename Fn, typename R>
R guarded(R failed, Fn&& fn) noexcept {
    try {
        return fn();
    } catch (...) {
        return failed;
    }
}

}  // namespace

extern "C" {

void BrennSim_Script(const char* function, const BrennSimAnswer* answer) {
    if (!function || !answer) return;
    guarded(0, [&] {
        Target::instance().script(function, *answer);
        return 0;
    });
}

void BrennSim_ScriptStatus(const char* function, int32_t status) {
    BrennSimAnswer answer{};
    answer.status = status;
    answer.mode = kBrennSimReplace;
    BrennSim_Script(function, &answer);
}

void BrennSim_FailFrom(size_t nth, int32_t status, int always) {
    guarded(0, [&] {
        Target::instance().planFailure(nth, status, always != 0);
        return 0;
    });
}

size_t BrennSim_PlannedFailures(void) {
    return guarded(size_t{0}, [&] { return Target::instance().plannedFailures(); });
}

size_t BrennSim_ScriptsPending(const char* function) {
    return guarded(size_t{0}, [&] { return Target::instance().scriptsPending(function); });
}

void BrennSim_HoldNext(const char* function) {
    if (!function) return;
    guarded(0, [&] {
        Target::instance().holdNext(function);
        return 0;
    });
}

size_t BrennSim_HeldCalls(const char* function) {
    if (!function) return 0;
    return guarded(size_t{0}, [&] { return Target::instance().heldCalls(function); });
}

void BrennSim_Release(const char* function) {
    if (!function) return;
    guarded(0, [&] {
        Target::instance().release(function);
        return 0;
    });
}

void BrennSim_EnableLog(int enabled) {
    Target::instance().enableLog(enabled != 0);
}

size_t BrennSim_CallCount(void) {
    return Target::instance().callCount();
}

int BrennSim_GetCall(size_t index, BrennSimCall* call) {
    if (!call) return 0;
    return Target::instance().getCall(index, *call) ? 1 : 0;
}

size_t BrennSim_CountCalls(const char* function) {
    if (!function) return 0;
    return guarded(size_t{0}, [&] { return Target::instance().countCalls(function); });
}

void BrennSim_Reset(void) {
    Target::instance().reset();
}

}  // extern "C"
