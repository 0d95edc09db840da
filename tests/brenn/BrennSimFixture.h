// Shared set-up of the simulated target's tests: every test starts on a fresh target.
#ifndef TESTS_BRENN_SIM_FIXTURE_H
#define TESTS_BRENN_SIM_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "BrennDll.h"
#include "BrennSim.h"

class BrennSimTest : public ::testing::Test {
protected:
    void SetUp() override { BrennSim_Reset(); }
    void TearDown() override { BrennSim_Reset(); }

    static uint32_t openSession() {
        uint32_t session = 0;
        EXPECT_EQ(BrennDll_Open("target.bit", "signature", "RIO0", 0, &session), 0);
        return session;
    }

    static uint32_t openResource(uint32_t parent, const char* name = "resource") {
        uint32_t session = 0;
        EXPECT_EQ(BrennDll_OpenResource(parent, name, 0, &session), 0);
        return session;
    }

    static BrennSimCall lastCall() {
        BrennSimCall call{};
        size_t count = BrennSim_CallCount();
        EXPECT_GT(count, 0u);
        EXPECT_EQ(BrennSim_GetCall(count - 1, &call), 1);
        return call;
    }
};

// Far beyond the handles a test opens, so it never names an open session.
constexpr uint32_t kUnknownSession = 0x00FE0000;

#endif  // TESTS_BRENN_SIM_FIXTURE_H
