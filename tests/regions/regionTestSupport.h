// Shared fixture of the region tests: one open session, and region acquisition whose answer
// from the FPGA interface library is scripted, so every test decides how many elements a
// region gets.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Quorvane.h"
#include "Quorvane/sessionRegistry.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {

inline constexpr uint32_t kU32 = 7;
inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;

class RegionTest : public SimulatedPlatformTest {
protected:
    void SetUp() override {
        SimulatedPlatformTest::SetUp();
        session = openSession();
    }

    static uint32_t openSession() {
        uint32_t handle = 0;
        EXPECT_EQ(Quorvane_Open("", "", "RIO0", 0, &handle), 0);
        return handle;
    }

    // Acquires a read region of `count` unsigned 32-bit elements, the library granting all.
    static uint32_t acquire(uint32_t handle, uint32_t fifo, size_t count, int32_t expected = 0) {
        scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {count, 0});
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        EXPECT_EQ(
            Quorvane_AcquireFifoReadRegionScalar(handle, fifo, &reference, count, kU32, 0, 0, &acquired, &remaining),
            expected);
        return reference;
    }

    // The element counts handed back, in the order they were handed back.
    static std::vector<uint64_t> releasedCounts() {
        std::vector<uint64_t> counts;
        for (const auto& call : callsOf("BrennDll_ReleaseFifoElements")) counts.push_back(call.args[2]);
        return counts;
    }

    // How often the FPGA interface library was asked to close `handle`.
    static size_t closesOf(uint32_t handle) {
        size_t count = 0;
        for (const auto& call : callsOf("BrennDll_Close")) count += call.args[0] == handle && call.result == 0;
        return count;
    }

    static bool registered(uint32_t handle) { return isRegistered(handle); }

    // How many FIFO states the session's record holds; its closePending mark.
    static size_t fifoStateCount(uint32_t handle) {
        tSharedLock registryGuard(gRegistryLock);
        tSessionRecord* record = sessionRegistry().find(handle);
        tSharedLock recordGuard(*record->lock);
        return record->fifoStates().size();
    }
    static bool closePending(uint32_t handle) {
        tSharedLock registryGuard(gRegistryLock);
        return sessionRegistry().find(handle)->closePending.load() != 0;
    }

    uint32_t session = 0;
};

}  // namespace quorvane::testing
