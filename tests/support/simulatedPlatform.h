// Shared fixture: a fresh simulated target and Host for every test, and small helpers to read
// the target's call log.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "BrennSim.h"
#include "HostSim.h"
#include "MoskSrvSim.h"
#include "Quorvane/sessionRegistry.h"

namespace quorvane::testing {

// The log entries of one function, in call order.
inline std::vector<BrennSimCall> callsOf(const std::string& function) {
    std::vector<BrennSimCall> calls;
    for (size_t i = 0; i < BrennSim_CallCount(); ++i) {
        BrennSimCall call{};
        if (BrennSim_GetCall(i, &call) && function == call.function) calls.push_back(call);
    }
    return calls;
}

// The names of all logged calls, in order.
inline std::vector<std::string> callNames() {
    std::vector<std::string> names;
    for (size_t i = 0; i < BrennSim_CallCount(); ++i) {
        BrennSimCall call{};
        if (BrennSim_GetCall(i, &call)) names.emplace_back(call.function);
    }
    return names;
}

inline void scriptAnswer(const char* function, int32_t status, std::vector<uint64_t> outputs = {},
                         uint32_t mode = kBrennSimReplace) {
    BrennSimAnswer answer{};
    answer.status = status;
    answer.mode = mode;
    answer.outputCount = static_cast<uint32_t>(outputs.size());
    for (size_t i = 0; i < outputs.size() && i < 4; ++i) answer.outputs[i] = outputs[i];
    BrennSim_Script(function, &answer);
}

// Sessions in the library's registry right now.
inline uint64_t registeredSessionCount() {
    tSharedLock guard(gRegistryLock);
    return sessionRegistry().recordCount();
}

inline bool isRegistered(uint32_t handle) {
    tSharedLock guard(gRegistryLock);
    return sessionRegistry().find(handle) != nullptr;
}

class SimulatedPlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        BrennSim_Reset();
        HostSim_Reset();
        MoskSrvSim_Reset();
    }
};

}  // namespace quorvane::testing
