#include "faultInjection.h"

#include "BrennSim.h"
#include "HostSim.h"
#include "MoskSrvSim.h"
#include "quarks/memory.h"

namespace quorvane::testing {

namespace {

constexpr int32_t kDriverError = -61003;  // a code of no special meaning to the library

// Armed state of an allocation failure: the request count when it was armed and its nth.
uint64_t gAllocationsAtArm = 0;
size_t gAllocationNth = 0;
bool gAllocationPersistent = false;

}  // namespace

std::string Injection::name() const {
    switch (kind) {
        case Kind::Allocation:
            return "allocation";
        case Kind::Host:
            return std::string(function) + " answering " + std::to_string(code);
        case Kind::Driver:
            return "FPGA interface library answering " + std::to_string(code);
        case Kind::Service:
            return "device service reporting " + std::to_string(code);
    }
    return "?";
}

std::vector<Injection> allInjections() {
    using K = Injection::Kind;
    std::vector<Injection> all{{K::Allocation, nullptr, 0}};
    // The Host's answers: 2 (out of memory), 41 (an aborted call) and another error; for
    // RTSetCleanupProc also 0, its refusal of a cleanup procedure. A failing DSNewHandle gives
    // either no handle (0) or a handle without a block (any other code).
    for (const char* function : {"NumericArrayResize", "RTSetCleanupProc", "EDVR_CreateReference"}) {
        for (int32_t code : {2, 41, 7}) all.push_back({K::Host, function, code});
    }
    all.push_back({K::Host, "RTSetCleanupProc", 0});
#ifndef QUORVANE_HOST_WITHOUT_NEW_HANDLE
    all.push_back({K::Host, "DSNewHandle", 0});
    all.push_back({K::Host, "DSNewHandle", 2});
#endif
    all.push_back({K::Driver, nullptr, kDriverError});
    all.push_back({K::Service, nullptr, kDriverError});
    return all;
}

void arm(const Injection& injection, size_t nth, bool persistent) {
    switch (injection.kind) {
        case Injection::Kind::Allocation:
            gAllocationsAtArm = allocationRequests();
            gAllocationNth = nth;
            gAllocationPersistent = persistent;
            failAllocation(nth, persistent);
            break;
        case Injection::Kind::Host:
            HostSim_FailFrom(injection.function, nth, injection.code, persistent);
            break;
        case Injection::Kind::Driver:
            BrennSim_FailFrom(nth, injection.code, persistent);
            break;
        case Injection::Kind::Service:
            MoskSrvSim_FailFrom(nth, injection.code, persistent);
            break;
    }
}

void disarm() {
    stopFailingAllocations();
    for (const Injection& injection : allInjections()) {
        if (injection.kind == Injection::Kind::Host) HostSim_FailFrom(injection.function, 0, 0, 0);
    }
    BrennSim_FailFrom(0, 0, 0);
    MoskSrvSim_FailFrom(0, 0, 0);
}

size_t failuresCaused(const Injection& injection) {
    switch (injection.kind) {
        case Injection::Kind::Allocation: {
            const uint64_t made = allocationRequests() - gAllocationsAtArm;
            if (made < gAllocationNth) return 0;
            return gAllocationPersistent ? static_cast<size_t>(made - gAllocationNth + 1) : 1;
        }
        case Injection::Kind::Host:
            return HostSim_PlannedFailures(injection.function);
        case Injection::Kind::Driver:
            return BrennSim_PlannedFailures();
        case Injection::Kind::Service:
            return MoskSrvSim_PlannedFailures();
    }
    return 0;
}

std::string failedCallee(const Injection& injection, size_t nth, size_t allocationsBeforeStep) {
    switch (injection.kind) {
        case Injection::Kind::Allocation:
            return "allocation " + std::to_string(gAllocationsAtArm + nth - allocationsBeforeStep);
        case Injection::Kind::Host:
            return injection.function;
        case Injection::Kind::Driver: {
            // Scenarios script nothing, so the nth call is the nth entry of the target's log.
            BrennSimCall call{};
            return BrennSim_GetCall(nth - 1, &call) ? call.function : "BrennDll_?";
        }
        case Injection::Kind::Service:
            return "MoskSrv_device_set32";
    }
    return "?";
}

}  // namespace quorvane::testing
