// Fixture of the data-plane tests: one session on a fresh simulated target, and Host arrays that
// are disposed of afterwards with a check that nothing else was left behind.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "MoskSrvSim.h"
#include "Quorvane.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {

inline constexpr int32_t kLibraryWarning = 17;
inline constexpr int32_t kLibraryError = -63500;
inline constexpr uint32_t kAnyIndex = 42;  // a register or FIFO
inline constexpr uint32_t kAnyTimeout = 1234;
// Written into out-values before a call, so that "left alone" can be told from "set to 0".
inline constexpr uint32_t kUntouched = 0xDEADBEEF;

class DataplaneTest : public SimulatedPlatformTest {
protected:
    void SetUp() override {
        SimulatedPlatformTest::SetUp();
        liveHandlesAtStart_ = HostSim_LiveHandleCount();
        ASSERT_EQ(Quorvane_Open("", "", "RIO0", 0, &session_), 0);
        callsAtOpen_ = BrennSim_CallCount();
    }

    void TearDown() override {
        EXPECT_EQ(Quorvane_Close(session_, 0), 0);
        for (void** array : arrays_) HostSim_DisposeHandle(array);
        EXPECT_EQ(HostSim_LiveHandleCount(), liveHandlesAtStart_) << "a Host handle was leaked";
    }

    // A zero-filled Host array that the fixture disposes of.
    void** newArray(int32_t typeCode, size_t count) {
        arrays_.push_back(HostSim_NewNumericArray(typeCode, count));
        EXPECT_NE(arrays_.back(), nullptr);
        return arrays_.back();
    }

    static int32_t countOf(void** array) {
        int32_t count;
        std::memcpy(&count, *array, sizeof count);
        return count;
    }

    static uint8_t* elementsOf(void** array, size_t firstElement) {
        return static_cast<uint8_t*>(*array) + firstElement;
    }

    // The calls logged after the session was opened.
    size_t callsSinceOpen() const { return BrennSim_CallCount() - callsAtOpen_; }

    uint32_t session_ = 0;

private:
    std::vector<void**> arrays_;
    size_t liveHandlesAtStart_ = 0;
    size_t callsAtOpen_ = 0;
};

}  // namespace quorvane::testing
