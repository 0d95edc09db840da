// Faults that a target description injects, as a Host meets them through the library's exports:
// the status of the call the fault hits, counted per FIFO, per register and per session; and what
// a refused close or release leaves behind.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "Quorvane.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

constexpr int32_t kInjected = -61003;  // a code of no special meaning to anyone
constexpr uint32_t kControl = 0x0, kStatus = 0x4;
constexpr uint32_t kIn = 0, kOtherIn = 2;

const std::string kBoard =
    "target Test board\n"
    "register Control 0x0 u32\n"
    "register Status 0x4 u32\n"
    "fifo 0 In to-host U16 depth 64\n"
    "fifo 2 OtherIn to-host U16 depth 64\n";

// The board with more statements, in a file, opened through the library; every session is
// closed again and nothing may be left open on the target.
class InjectedFaults : public SimulatedPlatformTest {
protected:
    void TearDown() override {
        for (uint32_t session : sessions_) EXPECT_EQ(Quorvane_Close(session, 0), 0);
        EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
        EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
        std::remove(path_.c_str());
    }

    uint32_t open(const std::string& statements) {
        if (path_.empty()) {
            static std::atomic<int> serial{0};
            path_ = ::testing::TempDir() + "faults-" + std::to_string(getpid()) + "-" + std::to_string(serial++);
            std::ofstream(path_) << kBoard << statements << "\n";
        }
        uint32_t session = 0;
        EXPECT_EQ(Quorvane_Open(path_.c_str(), "", "RIO0", 0, &session), 0);
        sessions_.push_back(session);
        return session;
    }

    std::vector<uint32_t> sessions_;

private:
    std::string path_;
};

// ---- what a Host does, one call each, answering that call's status ------------------------

// Acquires a region of 4 elements, checks it was lent when the call did not fail, and deletes
// its reference again.
int32_t acquireRead(uint32_t session, uint32_t fifo, uint32_t timeout = 0) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    const int32_t status = Quorvane_AcquireFifoReadRegionScalar(session, fifo, &reference, 4, kQuorvaneElementU16, 0,
                                                                timeout, &acquired, &remaining);
    EXPECT_EQ(acquired, status < 0 ? 0u : 4u);
    EXPECT_EQ(reference != 0, status >= 0);
    if (reference != 0) HostSim_DeleteReference(reference);
    return status;
}

int32_t readCopy(uint32_t session, uint32_t fifo, uint32_t count) {
    void** array = HostSim_NewNumericArray(kQuorvaneElementU16, 0);
    const int32_t status = Quorvane_ReadFifoScalar(session, fifo, count, kQuorvaneElementU16, 0, 0, array, nullptr);
    HostSim_DisposeHandle(array);
    return status;
}

enum class Call { AcquireIn, AcquireOtherIn, ReadIn, WriteControl, WriteStatus };

struct Step {
    Call call;
    int32_t expected;
};

std::ostream& operator<<(std::ostream& out, Call call) {
    const char* names[] = {"AcquireIn", "AcquireOtherIn", "ReadIn", "WriteControl", "WriteStatus"};
    return out << names[static_cast<int>(call)];
}

int32_t make(Call call, uint32_t session) {
    switch (call) {
        case Call::AcquireIn:
            return acquireRead(session, kIn);
        case Call::AcquireOtherIn:
            return acquireRead(session, kOtherIn);
        case Call::ReadIn:
            return readCopy(session, kIn, 4);
        case Call::WriteControl:
            return Quorvane_Write32(session, kControl, 1);
        case Call::WriteStatus:
            return Quorvane_Write32(session, kStatus, 1);
    }
    return 0;
}

struct FaultCase {
    const char* name;
    std::string statements;
    std::vector<Step> steps;
};

std::ostream& operator<<(std::ostream& out, const FaultCase& c) {
    return out << c.name;
}

class FaultedCalls : public InjectedFaults, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(FaultedCalls, AnswerTheInjectedStatusAtTheCountedCalls) {
    const uint32_t session = open(GetParam().statements);
    for (size_t i = 0; i < GetParam().steps.size(); ++i) {
        const Step& step = GetParam().steps[i];
        EXPECT_EQ(make(step.call, session), step.expected) << "step " << i << ": " << step.call;
    }
}

const std::string kAcquireIn = "fault BrennDll_AcquireFifoReadElementsU16 fifo 0 ";
const int32_t E = kInjected;
const Call A = Call::AcquireIn, A2 = Call::AcquireOtherIn, WC = Call::WriteControl, WS = Call::WriteStatus;

INSTANTIATE_TEST_SUITE_P(
    Statements, FaultedCalls,
    ::testing::Values(
        FaultCase{
            "OnceByDefault", kAcquireIn + "after 2 calls status -61003", {{A, 0}, {A, 0}, {A, E}, {A, 0}, {A, 0}}},
        FaultCase{
            "Times", kAcquireIn + "after 1 calls status -61003 times 2", {{A, 0}, {A, E}, {A, E}, {A, 0}, {A, 0}}},
        FaultCase{"WarningStillLends", kAcquireIn + "after 0 calls status 7 times 2", {{A, 7}, {A, 7}, {A, 0}}},
        FaultCase{"OtherFifosNeitherCountNorFail",
                  kAcquireIn + "after 1 calls status -61003",
                  {{A2, 0}, {A, 0}, {A2, 0}, {A, E}, {A2, 0}}},
        FaultCase{"WithoutFifoEveryFifoCounts",
                  "fault BrennDll_AcquireFifoReadElementsU16 after 2 calls status -61003",
                  {{A2, 0}, {A, 0}, {A2, E}, {A, 0}}},
        FaultCase{"CopyingRead",
                  "fault BrennDll_ReadFifoU16 fifo 0 after 1 calls status -61003",
                  {{Call::ReadIn, 0}, {Call::ReadIn, E}, {Call::ReadIn, 0}}},
        FaultCase{"RegisterByAddress",
                  "fault BrennDll_WriteU32 register 0x4 after 0 calls status -61003 always",
                  {{WS, E}, {WC, 0}, {WS, E}}},
        FaultCase{"FirstStatementDueAnswers",
                  "fault BrennDll_WriteU32 after 0 calls status -1\n"
                  "fault BrennDll_WriteU32 after 0 calls status -2 times 2",
                  {{WC, -1}, {WS, -2}, {WC, 0}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(InjectedFaults, EachSessionCountsItsOwnCalls) {
    const uint32_t first = open("fault BrennDll_WriteU32 register Control after 1 calls status -61003");
    const uint32_t second = open("");
    EXPECT_EQ(Quorvane_Write32(first, kControl, 1), 0);
    EXPECT_EQ(Quorvane_Write32(second, kControl, 1), 0) << "the first call of its own session";
    EXPECT_EQ(Quorvane_Write32(second, kControl, 1), kInjected);
    EXPECT_EQ(Quorvane_Write32(first, kControl, 1), kInjected);
}

// The library forgets a session before the driver closes it: a Host closes again what the
// driver refused to close.
TEST_F(InjectedFaults, ARefusedCloseLeavesTheSessionOpenUntilTheHostClosesAgain) {
    const uint32_t session = open("fault BrennDll_Close after 0 calls status -61003");
    sessions_.clear();
    EXPECT_EQ(Quorvane_Close(session, 0), kInjected);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 1);
    EXPECT_FALSE(isRegistered(session));
    EXPECT_EQ(Quorvane_Close(session, 0), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 0);
}

// The library does not report a refused release; the target keeps the elements lent, so a
// copying read of the FIFO is refused from then on.
TEST_F(InjectedFaults, ARefusedReleaseKeepsTheElementsLent) {
    const uint32_t session = open("fault BrennDll_ReleaseFifoElements fifo 0 after 0 calls status -63102");
    EXPECT_EQ(acquireRead(session, kIn), 0);
    EXPECT_EQ(readCopy(session, kIn, 1), kBrennMustReleaseFirst);
    BrennSimFifoStats stats{};
    ASSERT_EQ(BrennSim_GetFifoStats(session, kIn, &stats), 1);
    EXPECT_EQ(stats.elementsAcquired, 4u);
    EXPECT_EQ(stats.elementsReleased, 0u);
}

}  // namespace
}  // namespace quorvane::testing
