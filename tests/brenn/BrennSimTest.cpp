// The simulated target as far as the library's tests lean on it: the release-order check that
// the in-order retirement tests read, scripted answers and the call log, and described targets.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "platform/standInTest.h"

namespace standins {

using BrennSimTest = StandInTest;

uint32_t openOn(const std::string& bitfile) {
    uint32_t session = 0;
    EXPECT_EQ(BrennDll_Open(bitfile.c_str(), "", "RIO0", 0, &session), 0) << bitfile;
    return session;
}

// ---- releases of lent FIFO elements -------------------------------------------------------

struct ReleaseCase {
    const char* name;
    std::vector<size_t> acquires;
    std::vector<std::pair<size_t, int32_t>> releases;  // count released, what the release answers
    uint64_t outOfOrder;
    uint64_t excess;
};

class ReleaseOrder : public BrennSimTest, public ::testing::WithParamInterface<ReleaseCase> {};

TEST_P(ReleaseOrder, IsCountedAndLeavesTheRingConsistent) {
    const ReleaseCase& c = GetParam();
    const uint32_t session = openOn("");
    ASSERT_EQ(BrennDll_ConfigureFifo(session, 3, 16), 0);
    uint32_t* elements = nullptr;
    size_t acquired = 0, lent = 0, released = 0;
    for (size_t count : c.acquires) {
        ASSERT_EQ(BrennDll_AcquireFifoReadElementsU32(session, 3, &elements, count, 0, &acquired, nullptr), 0);
        ASSERT_EQ(acquired, count);
        lent += count;
    }
    for (const auto& [count, answer] : c.releases) {
        EXPECT_EQ(BrennDll_ReleaseFifoElements(session, 3, count), answer) << count;
        if (answer == 0) released += count;
    }
    BrennSimFifoStats total{};
    BrennSim_GetTotalFifoStats(&total);
    EXPECT_EQ(total.outOfOrderReleases, c.outOfOrder);
    EXPECT_EQ(total.excessReleases, c.excess);
    EXPECT_EQ(total.elementsReleased, released);
    // The next region starts where the last one ended, and the pattern goes on unbroken.
    ASSERT_EQ(BrennDll_AcquireFifoReadElementsU32(session, 3, &elements, 1, 0, &acquired, nullptr), 0);
    EXPECT_EQ(elements[0], lent);
}

INSTANTIATE_TEST_SUITE_P(Cases, ReleaseOrder,
                         ::testing::Values(ReleaseCase{"InOrder", {3, 5}, {{3, 0}, {5, 0}}, 0, 0},
                                           ReleaseCase{"NewestFirst", {3, 5}, {{5, 0}, {3, 0}}, 1, 0},
                                           ReleaseCase{"OldestInTwoParts", {4}, {{2, 0}, {2, 0}}, 1, 0},
                                           ReleaseCase{"Excess", {4}, {{5, kBrennSimInvalidArgument}, {4, 0}}, 0, 1},
                                           ReleaseCase{"NothingLent", {}, {{1, kBrennSimInvalidArgument}}, 0, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- scripted answers and the call log ----------------------------------------------------

struct ScriptCase {
    const char* name;
    uint32_t mode;
    int32_t status;
    std::vector<uint64_t> outputs;
    uint32_t value;  // what the read leaves in its out-parameter; the register holds 7
};

class ScriptedAnswer : public BrennSimTest, public ::testing::WithParamInterface<ScriptCase> {};

TEST_P(ScriptedAnswer, AnswersOnceAndIsLoggedWithTheArguments) {
    const ScriptCase& c = GetParam();
    const uint32_t session = openOn("");
    ASSERT_EQ(BrennDll_WriteU32(session, 0x10, 7), 0);
    quorvane::testing::scriptAnswer("BrennDll_ReadU32", c.status, c.outputs, c.mode);
    uint32_t value = 1;
    EXPECT_EQ(BrennDll_ReadU32(session | 0x4000u, 0x10, &value), c.status);
    EXPECT_EQ(value, c.value);
    const auto calls = quorvane::testing::callsOf("BrennDll_ReadU32");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(std::vector<uint64_t>(calls[0].args, calls[0].args + calls[0].argCount),
              (std::vector<uint64_t>{session | 0x4000u, 0x10, reinterpret_cast<uintptr_t>(&value)}));
    EXPECT_EQ(calls[0].result, c.status);
    EXPECT_EQ(BrennSim_ScriptsPending(nullptr), 0u);
    EXPECT_EQ(BrennDll_ReadU32(session, 0x10, &value), 0) << "the next call is real again";
    EXPECT_EQ(value, 7u);
}

INSTANTIATE_TEST_SUITE_P(Modes, ScriptedAnswer,
                         ::testing::Values(ScriptCase{"ReplaceSkipsTheWork", kBrennSimReplace, -17, {}, 1},
                                           ScriptCase{"ReplaceWritesOutputs", kBrennSimReplace, 5, {9}, 9},
                                           ScriptCase{"AfterRealAddsAStatus", kBrennSimAfterReal, 3, {}, 7},
                                           ScriptCase{"AfterRealOverwrites", kBrennSimAfterReal, 0, {9}, 9}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- target descriptions ------------------------------------------------------------------

// A description in the test's temporary directory, removed again when the test ends.
struct DescriptionFile {
    explicit DescriptionFile(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    ~DescriptionFile() { std::remove(path.c_str()); }
    const std::string path = ::testing::TempDir() + "target-" + std::to_string(::getpid()) + ".target";
};

struct BrokenCase {
    const char* name;
    std::string text;
    std::string said;  // what the line on standard error says after "libBrenn: <path>"
};

const std::string kHeader = "target Bench board\n";

class BrokenDescription : public BrennSimTest, public ::testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenDescription, IsRefusedWithOneLineNamingFileLineAndReason) {
    const DescriptionFile file(GetParam().text);
    uint32_t session = 0;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(BrennDll_Open(file.path.c_str(), "", "RIO0", 0, &session), kBrennSimBadTargetDescription);
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(said.rfind("libBrenn: " + file.path + GetParam().said, 0), 0u) << said;
    EXPECT_EQ(said.find('\n'), said.size() - 1) << "exactly one line: " << said;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BrokenDescription,
    ::testing::Values(
        BrokenCase{"NoTargetLine", "register C 0 u32\n", ": not a target description: it must start with a 'target'"},
        BrokenCase{"Statement", kHeader + "clock 40MHz\n", ":2: unknown statement 'clock'"},
        BrokenCase{"ElementType", kHeader + "fifo 0 S to-host U24\n", ":2: unknown element type 'U24'"},
        BrokenCase{"IrqRegister", kHeader + "irq 0 on write Control\n", ":2: register 'Control' is not declared"},
        BrokenCase{"FaultWithoutSession", kHeader + "fault BrennDll_Open after 0 calls status -1\n",
                   ":2: BrennDll_Open takes no session"},
        BrokenCase{"StallUnit", kHeader + "fifo 2 S to-host U8\nstall fifo 2 after 10 elements for 5 s\n",
                   ":3: expected 'ms', found 's'"},
        BrokenCase{"DropCount", kHeader + "drop irq 3\n", ":2: missing after"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BrennSimTest, BitfilesNamingNoFileOpenTheDefaultTarget) {
    for (const char* bitfile : {"", "no/such/file.target"}) {
        const uint32_t session = openOn(bitfile);
        EXPECT_EQ(BrennSim_AllowsUndeclared(session), 1);
        uint32_t signature = 0;
        EXPECT_EQ(BrennDll_ReadU32(session, 0xFFFC, &signature), 0);
        EXPECT_EQ(signature, 0x5117A46Eu);
    }
}

TEST_F(BrennSimTest, ShippedExampleTargetsLoad) {
    size_t examples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(BRENN_EXAMPLES_DIR)) {
        const uint32_t session = openOn(entry.path());
        EXPECT_EQ(BrennSim_AllowsUndeclared(session), 0) << entry.path();
        EXPECT_GT(BrennSim_DescribeFifos(session, nullptr, 0), 0u) << entry.path();
        ++examples;
    }
    EXPECT_GT(examples, 0u);
}

TEST_F(BrennSimTest, DescribedTargetBehavesAsDeclared) {
    const DescriptionFile file(kHeader +
                               "register Control 0x0 u32\n"
                               "register Status 0x4 u32 reset 0x1   # a comment\n"
                               "fifo 0 Samples to-host I16 depth 64 pattern counter start 5 step 3\n"
                               "fifo 1 Waveform to-target U32\n"
                               "irq 2 on write Control\n"
                               "resource Board0/Analog\n"
                               "fault BrennDll_WriteU32 register Status after 1 calls status -50400\n");
    const uint32_t session = openOn(file.path);
    BrennSimFifoInfo fifos[2] = {};
    ASSERT_EQ(BrennSim_DescribeFifos(session, fifos, 2), 2u);
    EXPECT_EQ(fifos[0].depth, 64u);
    EXPECT_EQ(fifos[1].direction, uint32_t{kBrennSimToTarget});

    uint32_t value = 0;
    EXPECT_EQ(BrennDll_ReadU32(session, 0x4, &value), 0);
    EXPECT_EQ(value, 1u) << "the reset value";
    EXPECT_EQ(BrennDll_ReadU32(session, 0x8, &value), kBrennSimInvalidArgument) << "undeclared register";
    EXPECT_EQ(BrennDll_WriteU32(session, 0x4, 9), 0);
    EXPECT_EQ(BrennDll_WriteU32(session, 0x4, 9), kBrennTimeout) << "the fault, at its second call";
    EXPECT_EQ(BrennDll_WriteU32(session, 0x4, 9), 0) << "once";

    uint8_t timedOut = 0;
    ASSERT_EQ(BrennDll_WriteU32(session, 0x0, 1), 0);
    EXPECT_EQ(BrennDll_WaitOnIrqs(session, nullptr, ~0u, 0, &value, &timedOut), 0);
    EXPECT_EQ(value, 1u << 2);
    int16_t samples[3] = {};
    ASSERT_EQ(BrennDll_ReadFifoI16(session, 0, samples, 3, 0, nullptr), 0);
    EXPECT_EQ(std::vector<int16_t>(samples, samples + 3), (std::vector<int16_t>{5, 8, 11}));
    uint16_t other[1] = {};
    EXPECT_EQ(BrennDll_ReadFifoU16(session, 0, other, 1, 0, nullptr), kBrennSimInvalidArgument) << "other type";

    uint32_t resource = 0;
    EXPECT_EQ(BrennDll_OpenResource(session, "Board0/Digital", 0, &resource), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_OpenResource(session, "Board0/Analog", 0, &resource), 0);
}

}  // namespace standins
