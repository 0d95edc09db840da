// Helpers shared by the tests of the simulated Host: a fixture that resets the Host and checks
// that a test disposes of every handle and reference it made, and readers of Host blocks.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "HostSim.h"

namespace hosttest {

class HostTest : public ::testing::Test {
protected:
    void SetUp() override {
        HostSim_Reset();
        handlesBefore_ = HostSim_LiveHandleCount();
        referencesBefore_ = HostSim_LiveReferenceCount();
    }
    void TearDown() override {
        EXPECT_EQ(HostSim_LiveHandleCount(), handlesBefore_) << "the test leaked Host handles";
        EXPECT_EQ(HostSim_LiveReferenceCount(), referencesBefore_) << "the test leaked references";
        HostSim_Reset();
    }

private:
    size_t handlesBefore_ = 0;
    size_t referencesBefore_ = 0;
};

inline char* blockOf(void** handle) {
    return static_cast<char*>(*handle);
}

inline int32_t dimensionOf(void** handle) {
    int32_t dimension = 0;
    std::memcpy(&dimension, blockOf(handle), sizeof dimension);
    return dimension;
}

template <typename T>
T readAt(const void* base, size_t offset) {
    T value{};
    std::memcpy(&value, static_cast<const char*>(base) + offset, sizeof value);
    return value;
}

template <typename T>
void writeAt(void* base, size_t offset, T value) {
    std::memcpy(static_cast<char*>(base) + offset, &value, sizeof value);
}

}  // namespace hosttest
