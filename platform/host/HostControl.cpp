// Fault injection, call counters and the reset of the simulated Host.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

#include "CallFailurePlan.h"
#include "HostInternal.h"
#include "HostSim.h"

namespace hostsim {
namespace {

constexpr std::array<const char*, kHostFunctionCount> kFunctionNames = {"NumericArrayResize", "DSNewHandle",
                                                                        "RTSetCleanupProc", "EDVR_CreateReference"};

struct Control {
    std::mutex mutex;
    std::array<std::deque<int32_t>, kHostFunctionCount> injected;
    std::array<CallFailurePlan, kHostFunctionCount> planned;
    size_t programStopRefusals = 0;
    std::array<size_t, kHostFunctionCount> calls{};
    std::map<int32_t, size_t> cleanupModeCalls;
    int32_t lastResizeTypeCode = -1;
};

// Never destroyed: the library may call the Host from its own static destructors.
Control& control() {
    static Control* const instance = new Control;
    return *instance;
}

std::optional<HostFunction> functionNamed(const char* name) noexcept {
    if (name == nullptr) return std::nullopt;
    for (size_t i = 0; i < kFunctionNames.size(); ++i) {
        if (std::strcmp(name, kFunctionNames[i]) == 0) return static_cast<HostFunction>(i);
    }
    return std::nullopt;
}

size_t indexOf(HostFunction function) noexcept {
    return static_cast<size_t>(function);
}

}  // namespace

void countCall(HostFunction function) noexcept {
    std::lock_guard lock(control().mutex);
    ++control().calls[indexOf(function)];
}

void countCleanupMode(int32_t mode) noexcept {
    std::lock_guard lock(control().mutex);
    try {
        ++control().cleanupModeCalls[mode];
    } catch (...) {
        // A counter that could not be allocated is a test-only loss; the Host call goes on.
    }
}

void noteResizeTypeCode(int32_t typeCode) noexcept {
    std::lock_guard lock(control().mutex);
    control().lastResizeTypeCode = typeCode;
}

std::optional<int32_t> takeInjectedAnswer(HostFunction function) noexcept {
    std::lock_guard lock(control().mutex);
    auto& queue = control().injected[indexOf(function)];
    if (queue.empty()) return control().planned[indexOf(function)].next();
    const int32_t code = queue.front();
    queue.pop_front();
    return code;
}

bool takeProgramStopRefusal() noexcept {
    std::lock_guard lock(control().mutex);
    if (control().programStopRefusals == 0) return false;
    --control().programStopRefusals;
    return true;
}

void misuse(const char* what) noexcept {
    std::fprintf(stderr, "simulated Host: %s\n", what);
    std::fflush(stderr);
    std::abort();
}

}  // namespace hostsim

using hostsim::control;

extern "C" void HostSim_FailNext(const char* function, int32_t code) {
    const auto which = hostsim::functionNamed(function);
    if (!which) hostsim::misuse("HostSim_FailNext names no Host function");
    std::lock_guard lock(control().mutex);
    try {
        control().injected[hostsim::indexOf(*which)].push_back(code);
    } catch (...) {
        hostsim::misuse("HostSim_FailNext could not queue the injection");
    }
}

extern "C" void HostSim_FailFrom(const char* function, size_t nth, int32_t code, int always) {
    const auto which = hostsim::functionNamed(function);
    if (!which) hostsim::misuse("HostSim_FailFrom names no Host function");
    std::lock_guard lock(control().mutex);
    control().planned[hostsim::indexOf(*which)].set(nth, code, always != 0);
}

extern "C" size_t HostSim_PlannedFailures(const char* function) {
    const auto which = hostsim::functionNamed(function);
    if (!which) return 0;
    std::lock_guard lock(control().mutex);
    return control().planned[hostsim::indexOf(*which)].fired();
}

extern "C" void HostSim_RefuseNextProgramStopRegistration(void) {
    std::lock_guard lock(control().mutex);
    ++control().programStopRefusals;
}

extern "C" size_t HostSim_CallCount(const char* function) {
    const auto which = hostsim::functionNamed(function);
    if (!which) return 0;
    std::lock_guard lock(control().mutex);
    return control().calls[hostsim::indexOf(*which)];
}

extern "C" size_t HostSim_CleanupCallCount(int32_t mode) {
    std::lock_guard lock(control().mutex);
    const auto found = control().cleanupModeCalls.find(mode);
    return found == control().cleanupModeCalls.end() ? 0 : found->second;
}

extern "C" int32_t HostSim_LastResizeTypeCode(void) {
    std::lock_guard lock(control().mutex);
    return control().lastResizeTypeCode;
}

extern "C" void HostSim_Reset(void) {
    hostsim::forgetCleanupRegistrations();
    std::lock_guard lock(control().mutex);
    for (auto& queue : control().injected) queue.clear();
    for (auto& plan : control().planned) plan.set(0, 0, false);
    control().programStopRefusals = 0;
    control().calls.fill(0);
    control().cleanupModeCalls.clear();
    control().lastResizeTypeCode = -1;
}
