// The simulated target as the library's tests lean on it: release checks, scripts, call log, descriptions.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "support/simulatedPlatform.h"

namespace {

using BrennSimTest = quorvane::testing::SimulatedPlatformTest;

uint32_t openOn(const std::string& bitfile) {
    uint32_t session = 0;
    EXPECT_EQ(BrennDll_Open(bitfile.c_str(), "", "RIO0", 0, &session), 0) << bitfile;
    return session;
}

TEST_F(BrennSimTest, ReleasesOutOfOrderOrInExcessAreCounted) {
    const struct {
        const char* name;
        std::vector<size_t> acquires;
        std::vector<std::pair<size_t, int32_t>> releases;  // count released, what the release answers
        uint64_t outOfOrder, excess;
    } cases[] = {{"in order", {3, 5}, {{3, 0}, {5, 0}}, 0, 0},
                 {"newest first", {3, 5}, {{5, 0}, {3, 0}}, 1, 0},
                 {"oldest in two parts", {4}, {{2, 0}, {2, 0}}, 1, 0},
                 {"more than lent", {4}, {{5, kBrennSimInvalidArgument}, {4, 0}}, 0, 1},
                 {"nothing lent", {}, {{1, kBrennSimInvalidArgument}}, 0, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        BrennSim_Reset();
        const uint32_t session = openOn("");
        uint32_t* elements = nullptr;
        size_t acquired = 0, released = 0;
        for (size_t count : c.acquires)
            ASSERT_EQ(BrennDll_AcquireFifoReadElementsU32(session, 3, &elements, count, 0, &acquired, nullptr), 0);
        for (const auto& [count, answer] : c.releases) {
            EXPECT_EQ(BrennDll_ReleaseFifoElements(session, 3, count), answer) << count;
            if (answer == 0) released += count;
        }
        BrennSimFifoStats total{};
        BrennSim_GetTotalFifoStats(&total);
        EXPECT_EQ(total.outOfOrderReleases, c.outOfOrder);
        EXPECT_EQ(total.excessReleases, c.excess);
        EXPECT_EQ(total.elementsReleased, released);
    }
}

TEST_F(BrennSimTest, ScriptedAnswerAnswersOnceAndIsLoggedWithTheArguments) {
    const struct {
        const char* name;
        uint32_t mode;
        int32_t status;
        std::vector<uint64_t> outputs;
        uint32_t value;  // what the read leaves in its out-parameter; the register holds 7
    } cases[] = {{"replace skips the work", kBrennSimReplace, -17, {}, 1},
                 {"replace writes outputs", kBrennSimReplace, 5, {9}, 9},
                 {"after the real call adds a status", kBrennSimAfterReal, 3, {}, 7},
                 {"after the real call overwrites", kBrennSimAfterReal, 0, {9}, 9}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        BrennSim_Reset();
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
        EXPECT_EQ(BrennDll_ReadU32(session, 0x10, &value), 0) << "the next call is real again";
        EXPECT_EQ(value, 7u);
    }
}

// A description in the test's temporary directory, removed again when the test ends.
struct DescriptionFile {
    explicit DescriptionFile(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    ~DescriptionFile() { std::remove(path.c_str()); }
    const std::string path = ::testing::TempDir() + "target-" + std::to_string(::getpid()) + ".target";
};

const std::string kHeader = "target Bench board\n";

TEST_F(BrennSimTest, BrokenDescriptionIsRefusedWithOneLineNamingFileLineAndReason) {
    const std::pair<std::string, std::string> cases[] = {
        // the text, what follows "libBrenn: <path>"
        {"register C 0 u32\n", ": not a target description: it must start with a 'target'"},
        {kHeader + "clock 40MHz\n", ":2: unknown statement 'clock'"},
        {kHeader + "irq 0 on write Control\n", ":2: register 'Control' is not declared"},
        {kHeader + "fifo 2 S to-host U8\n\nstall fifo 2 after 10 elements for 5 s\n", ":4: expected 'ms', found 's'"}};
    for (const auto& [text, reason] : cases) {
        const DescriptionFile file(text);
        uint32_t session = 0;
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(BrennDll_Open(file.path.c_str(), "", "RIO0", 0, &session), kBrennSimBadTargetDescription);
        const std::string said = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.rfind("libBrenn: " + file.path + reason, 0), 0u) << said;
        EXPECT_EQ(said.find('\n'), said.size() - 1) << "exactly one line: " << said;
    }
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(BrennSimTest, BitfilesNamingNoFileOpenTheDefaultTargetAndShippedExamplesLoad) {
    for (const char* bitfile : {"", "no/such/file.target"}) EXPECT_EQ(BrennSim_AllowsUndeclared(openOn(bitfile)), 1);
    for (const auto& entry : std::filesystem::directory_iterator(BRENN_EXAMPLES_DIR)) {
        EXPECT_EQ(BrennSim_AllowsUndeclared(openOn(entry.path())), 0) << entry.path();
    }
}

TEST_F(BrennSimTest, DescribedTargetBehavesAsDeclared) {
    const DescriptionFile file(kHeader +
                               "register Control 0x0 u32\n"
                               "register Status 0x4 u32 reset 0x1   # a comment\n"
                               "fifo 0 Samples to-host I16 depth 64 pattern counter start 5 step 3\n"
                               "irq 2 on write Control\n"
                               "resource Board0/Analog\n"
                               "fault BrennDll_WriteU32 register Status after 1 calls status -50400\n");
    const uint32_t session = openOn(file.path);
    BrennSimFifoInfo fifo{};
    ASSERT_EQ(BrennSim_DescribeFifos(session, &fifo, 1), 1u);
    EXPECT_EQ(fifo.depth, 64u);
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

}  // namespace
