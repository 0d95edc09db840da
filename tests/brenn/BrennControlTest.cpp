// The control interface of the simulated target: scripted answers, the call log and reset.
#include <cstdint>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "BrennSimFixture.h"

namespace {

using ControlTest = BrennSimTest;

BrennSimAnswer answer(int32_t status, uint32_t mode, std::vector<uint64_t> outputs) {
    BrennSimAnswer result{};
    result.status = status;
    result.mode = mode;
    result.outputCount = static_cast<uint32_t>(outputs.size());
    for (size_t i = 0; i < outputs.size(); ++i) result.outputs[i] = outputs[i];
    return result;
}

std::vector<uint64_t> callArgs(const BrennSimCall& call) {
    return {call.args, call.args + call.argCount};
}

uint64_t address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

// ---- scripted answers --------------------------------------------------------------------

TEST_F(ControlTest, ReplaceSkipsTheWorkAndWritesTheOutputs) {
    BrennSimAnswer scripted = answer(5, kBrennSimReplace, {0x1234});
    BrennSim_Script("BrennDll_Open", &scripted);
    uint32_t session = 0;
    EXPECT_EQ(BrennDll_Open("bit", "sig", "RIO0", 0, &session), 5);
    EXPECT_EQ(session, 0x1234u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(ControlTest, ScriptedStatusLeavesTheTargetUntouched) {
    uint32_t session = openSession();
    BrennSim_ScriptStatus("BrennDll_Close", -17);
    EXPECT_EQ(BrennDll_Close(session, 0), -17);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 1);
    EXPECT_EQ(BrennDll_Close(session, 0), 0);
}

TEST_F(ControlTest, ReplaceAnswersEvenForAnUnknownSession) {
    BrennSim_ScriptStatus("BrennDll_Reset", 0);
    EXPECT_EQ(BrennDll_Reset(kUnknownSession), 0);
    EXPECT_EQ(BrennDll_Reset(kUnknownSession), kBrennSimInvalidSession);
}

TEST_F(ControlTest, AfterRealKeepsTheRealResultAndAddsTheStatus) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU32(session, 0x10, 7), 0);
    BrennSimAnswer warning = answer(3, kBrennSimAfterReal, {});
    BrennSim_Script("BrennDll_ReadU32", &warning);
    uint32_t value = 0;
    EXPECT_EQ(BrennDll_ReadU32(session, 0x10, &value), 3);
    EXPECT_EQ(value, 7u);
}

TEST_F(ControlTest, AfterRealOutputsOverwriteTheRealOnes) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU32(session, 0x10, 7), 0);
    BrennSimAnswer scripted = answer(0, kBrennSimAfterReal, {9});
    BrennSim_Script("BrennDll_ReadU32", &scripted);
    uint32_t value = 0;
    EXPECT_EQ(BrennDll_ReadU32(session, 0x10, &value), 0);
    EXPECT_EQ(value, 9u);
}

TEST_F(ControlTest, AfterRealDoesWorkThatReplaceSkips) {
    BrennSimAnswer scripted = answer(2, kBrennSimAfterReal, {});
    BrennSim_Script("BrennDll_Open", &scripted);
    uint32_t session = 0;
    EXPECT_EQ(BrennDll_Open("bit", "sig", "RIO0", 0, &session), 2);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 1);
}

TEST_F(ControlTest, AfterRealPassesARealFailureOnAndIsUsedUp) {
    BrennSimAnswer scripted = answer(3, kBrennSimAfterReal, {9});
    BrennSim_Script("BrennDll_ReadU32", &scripted);
    uint32_t value = 1;
    EXPECT_EQ(BrennDll_ReadU32(kUnknownSession, 0, &value), kBrennSimInvalidSession);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(BrennSim_ScriptsPending("BrennDll_ReadU32"), 0u);
}

TEST_F(ControlTest, AnswersAreTakenOldestFirstThenTheRealResultReturns) {
    uint32_t session = openSession();
    BrennSim_ScriptStatus("BrennDll_Run", 1);
    BrennSim_ScriptStatus("BrennDll_Run", -2);
    EXPECT_EQ(BrennSim_ScriptsPending("BrennDll_Run"), 2u);
    EXPECT_EQ(BrennDll_Run(session, 0), 1);
    EXPECT_EQ(BrennDll_Run(session, 0), -2);
    EXPECT_EQ(BrennDll_Run(session, 0), 0);
}

TEST_F(ControlTest, AnswersBelongToOneFunctionOnly) {
    uint32_t session = openSession();
    BrennSim_ScriptStatus("BrennDll_ReadU16", -9);
    uint32_t value = 0;
    EXPECT_EQ(BrennDll_ReadU32(session, 0, &value), 0);
    EXPECT_EQ(BrennSim_ScriptsPending("BrennDll_ReadU16"), 1u);
    EXPECT_EQ(BrennSim_ScriptsPending(nullptr), 1u);
}

TEST_F(ControlTest, AnUnknownModeCountsAsReplace) {
    uint32_t session = openSession();
    BrennSimAnswer scripted = answer(4, 77, {});
    BrennSim_Script("BrennDll_Close", &scripted);
    EXPECT_EQ(BrennDll_Close(session, 0), 4);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 1);
}

TEST_F(ControlTest, OutputsArePositionalAndSkipNullPointers) {
    uint32_t session = openSession();
    BrennSimAnswer scripted = answer(0, kBrennSimReplace, {5, 1});
    BrennSim_Script("BrennDll_WaitOnIrqs", &scripted);
    uint8_t timedOut = 0;
    EXPECT_EQ(BrennDll_WaitOnIrqs(session, nullptr, 3, 100, nullptr, &timedOut), 0);
    EXPECT_EQ(timedOut, 1u);
}

TEST_F(ControlTest, OutputsBeyondTheOutParametersAreDropped) {
    BrennSimAnswer scripted = answer(0, kBrennSimReplace, {0x21, 0x22, 0x23, 0x24});
    BrennSim_Script("BrennDll_OpenResource", &scripted);
    uint32_t handles[2] = {0, 0};
    EXPECT_EQ(BrennDll_OpenResource(kUnknownSession, "r", 0, &handles[0]), 0);
    EXPECT_EQ(handles[0], 0x21u);
    EXPECT_EQ(handles[1], 0u);
}

// Every function with scalar out-parameters, called on an open session; returns what landed
// in its out-parameters, in argument order.
struct OutputCase {
    const char* function;
    std::function<std::vector<uint64_t>(uint32_t session)> callAndCollect;
};

std::vector<OutputCase> outputCases() {
    return {
        {"BrennDll_OpenResource",
         [](uint32_t s) {
             uint32_t h = 0;
             BrennDll_OpenResource(s, "r", 0, &h);
             return std::vector<uint64_t>{h};
         }},
        {"BrennDll_ReserveIrqContext",
         [](uint32_t s) {
             void* context = nullptr;
             BrennDll_ReserveIrqContext(s, &context);
             return std::vector<uint64_t>{address(context)};
         }},
        {"BrennDll_ReadU16",
         [](uint32_t s) {
             uint16_t v = 0;
             BrennDll_ReadU16(s, 0, &v);
             return std::vector<uint64_t>{v};
         }},
        {"BrennDll_ReadU64",
         [](uint32_t s) {
             uint64_t v = 0;
             BrennDll_ReadU64(s, 0, &v);
             return std::vector<uint64_t>{v};
         }},
        {"BrennDll_WaitOnIrqs",
         [](uint32_t s) {
             uint32_t asserted = 0;
             uint8_t timedOut = 0;
             BrennDll_WaitOnIrqs(s, nullptr, 1, 0, &asserted, &timedOut);
             return std::vector<uint64_t>{asserted, timedOut};
         }},
        {"BrennDll_ConfigureFifo2",
         [](uint32_t s) {
             size_t depth = 0;
             BrennDll_ConfigureFifo2(s, 0, 64, &depth);
             return std::vector<uint64_t>{depth};
         }},
        {"BrennDll_ReadFifoI16",
         [](uint32_t s) {
             int16_t data[2];
             size_t remaining = 0;
             BrennDll_ReadFifoI16(s, 0, data, 2, 0, &remaining);
             return std::vector<uint64_t>{remaining};
         }},
        {"BrennDll_WriteFifoComposite",
         [](uint32_t s) {
             char data[8] = {};
             size_t remaining = 0;
             BrennDll_WriteFifoComposite(s, 0, data, 4, 2, 0, &remaining);
             return std::vector<uint64_t>{remaining};
         }},
        {"BrennDll_AcquireFifoWriteElementsU64",
         [](uint32_t s) {
             uint64_t* elements = nullptr;
             size_t acquired = 0, remaining = 0;
             BrennDll_AcquireFifoWriteElementsU64(s, 0, &elements, 4, 0, &acquired, &remaining);
             return std::vector<uint64_t>{acquired, remaining};
         }},
        {"BrennDll_GetSessionIndexes",
         [](uint32_t s) {
             size_t count = 0;
             BrennDll_GetSessionIndexes(s, nullptr, 0, &count);
             return std::vector<uint64_t>{count};
         }},
        {"BrennDll_GetResourceIndex",
         [](uint32_t) {
             uint32_t index = 0;
             BrennDll_GetResourceIndex("RIO0", &index);
             return std::vector<uint64_t>{index};
         }},
        {"BrennDll_GetPeerToPeerFifoEndpoint",
         [](uint32_t s) {
             uint32_t endpoint = 0;
             BrennDll_GetPeerToPeerFifoEndpoint(s, 0, &endpoint);
             return std::vector<uint64_t>{endpoint};
         }},
    };
}

// Names the case in test listings instead of dumping the object's bytes.
void PrintTo(const OutputCase& outputCase, std::ostream* os) {
    *os << outputCase.function;
}

class ScriptedOutputTest : public BrennSimTest, public ::testing::WithParamInterface<OutputCase> {};

TEST_P(ScriptedOutputTest, ReplaceWritesEachOutParameter) {
    uint32_t session = openSession();
    std::vector<uint64_t> expected = {0x5A, 0x01};
    expected.resize(GetParam().callAndCollect(session).size());
    BrennSimAnswer scripted = answer(0, kBrennSimReplace, expected);
    BrennSim_Script(GetParam().function, &scripted);
    EXPECT_EQ(GetParam().callAndCollect(session), expected);
    EXPECT_EQ(BrennSim_ScriptsPending(GetParam().function), 0u);
}

INSTANTIATE_TEST_SUITE_P(Functions, ScriptedOutputTest, ::testing::ValuesIn(outputCases()),
                         [](const auto& info) { return std::string(info.param.function); });

TEST_F(ControlTest, ConcurrentCallersTakeEachAnswerExactlyOnce) {
    constexpr int kThreads = 4;
    constexpr int kCallsPerThread = 200;
    constexpr int kAnswers = 300;
    uint32_t session = openSession();
    for (int i = 1; i <= kAnswers; ++i) BrennSim_ScriptStatus("BrennDll_Run", i);

    std::vector<std::vector<int32_t>> results(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, session, &results] {
            for (int i = 0; i < kCallsPerThread; ++i) results[t].push_back(BrennDll_Run(session, 0));
        });
    }
    for (auto& thread : threads) thread.join();

    std::multiset<int32_t> seen;
    for (const auto& list : results) seen.insert(list.begin(), list.end());
    EXPECT_EQ(seen.count(0), size_t{kThreads * kCallsPerThread - kAnswers});
    for (int i = 1; i <= kAnswers; ++i) EXPECT_EQ(seen.count(i), 1u) << i;
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Run"), size_t{kThreads * kCallsPerThread});
}

// ---- the call log ------------------------------------------------------------------------

TEST_F(ControlTest, LogKeepsArgumentsInOrderAndTheResult) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennDll_WriteU64(session | 0x4000u, 0x40, 0xFEDCBA9876543210u), 0);
    BrennSimCall call = lastCall();
    EXPECT_STREQ(call.function, "BrennDll_WriteU64");
    EXPECT_EQ(callArgs(call), (std::vector<uint64_t>{session | 0x4000u, 0x40, 0xFEDCBA9876543210u}));
    EXPECT_EQ(call.result, 0);
}

TEST_F(ControlTest, LogRecordsPointersAsAddresses) {
    const char* bitfile = "bit";
    const char* signature = "sig";
    uint32_t session = 0;
    ASSERT_EQ(BrennDll_Open(bitfile, signature, nullptr, 0x80000001u, &session), 0);
    BrennSimCall call = lastCall();
    EXPECT_STREQ(call.function, "BrennDll_Open");
    EXPECT_EQ(callArgs(call),
              (std::vector<uint64_t>{address(bitfile), address(signature), 0, 0x80000001u, address(&session)}));
}

TEST_F(ControlTest, LogRecordsFailuresAndScriptedResults) {
    EXPECT_EQ(BrennDll_Abort(kUnknownSession), kBrennSimInvalidSession);
    EXPECT_EQ(lastCall().result, kBrennSimInvalidSession);
    BrennSim_ScriptStatus("BrennDll_Abort", 12);
    EXPECT_EQ(BrennDll_Abort(kUnknownSession), 12);
    EXPECT_EQ(lastCall().result, 12);
    EXPECT_EQ(callArgs(lastCall()), std::vector<uint64_t>{kUnknownSession});
}

TEST_F(ControlTest, LogNamesTheGeneratedFifoFunctions) {
    uint32_t session = openSession();
    uint8_t data[3] = {};
    size_t remaining = 0;
    ASSERT_EQ(BrennDll_ReadFifoU8(session, 2, data, 3, 1000, &remaining), 0);
    BrennSimCall call = lastCall();
    EXPECT_STREQ(call.function, "BrennDll_ReadFifoU8");
    EXPECT_EQ(callArgs(call), (std::vector<uint64_t>{session, 2, address(data), 3, 1000, address(&remaining)}));
}

TEST_F(ControlTest, CountsCallsPerFunctionAndInTotal) {
    uint32_t session = openSession();
    BrennDll_Run(session, 0);
    BrennDll_Run(kUnknownSession, 0);
    BrennDll_Abort(session);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Run"), 2u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Abort"), 1u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Download"), 0u);
    EXPECT_EQ(BrennSim_CallCount(), 4u);
    BrennSimCall call{};
    EXPECT_EQ(BrennSim_GetCall(4, &call), 0);
    EXPECT_EQ(BrennSim_GetCall(0, nullptr), 0);
}

TEST_F(ControlTest, DisabledLogNeitherKeepsNorCounts) {
    uint32_t session = openSession();
    BrennSim_EnableLog(0);
    BrennDll_Run(session, 0);
    BrennSim_EnableLog(1);
    BrennDll_Abort(session);
    EXPECT_EQ(BrennSim_CallCount(), 2u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Run"), 0u);
    EXPECT_STREQ(lastCall().function, "BrennDll_Abort");
}

TEST_F(ControlTest, LogBeyondCapacityCountsOnly) {
    constexpr size_t kExtra = 10;
    for (size_t i = 0; i < kBrennSimLogCapacity + kExtra; ++i) BrennDll_AcknowledgeIrqs(kUnknownSession, uint32_t(i));
    EXPECT_EQ(BrennSim_CallCount(), kBrennSimLogCapacity + kExtra);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_AcknowledgeIrqs"), kBrennSimLogCapacity + kExtra);
    BrennSimCall call{};
    ASSERT_EQ(BrennSim_GetCall(kBrennSimLogCapacity - 1, &call), 1);
    EXPECT_EQ(call.args[1], kBrennSimLogCapacity - 1);
    EXPECT_EQ(BrennSim_GetCall(kBrennSimLogCapacity, &call), 0);
}

// ---- reset -------------------------------------------------------------------------------

TEST_F(ControlTest, ResetGivesAFreshTarget) {
    uint32_t firstHandle = openSession();
    openSession();
    BrennSim_ScriptStatus("BrennDll_Open", -1);
    BrennSim_EnableLog(0);

    BrennSim_Reset();

    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(BrennSim_IsSessionOpen(firstHandle), 0);
    EXPECT_EQ(BrennSim_ScriptsPending(nullptr), 0u);
    EXPECT_EQ(BrennSim_CallCount(), 0u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Open"), 0u);
    // Handles start over, the script is gone and the log is on again.
    EXPECT_EQ(openSession(), firstHandle);
    EXPECT_EQ(BrennSim_CallCount(), 1u);
}

}  // namespace
