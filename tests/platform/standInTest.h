// Shared by the stand-ins' tests here and in tests/brenn: a fresh platform for every test, which
// must dispose of every Host handle and reference it made, and names for the cases of tables.
#pragma once

#include <ostream>

#include "support/simulatedPlatform.h"

namespace standins {

class StandInTest : public quorvane::testing::SimulatedPlatformTest {
protected:
    void TearDown() override {
        EXPECT_EQ(HostSim_LiveHandleCount(), 0u) << "the test leaked Host handles";
        EXPECT_EQ(HostSim_LiveReferenceCount(), 0u) << "the test leaked references";
    }
};

// Names a case of a table in test names and failure messages, instead of its bytes.
template <typename Case>
auto operator<<(std::ostream& os, const Case& c) -> decltype(os << c.name) {
    return os << c.name;
}

}  // namespace standins
