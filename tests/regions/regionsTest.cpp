// FIFO regions lent to the Host: acquiring, handing back in order, and closes deferred meanwhile.
#include <gmock/gmock.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BrennDll.h"
#include "Quorvane.h"
#include "Quorvane/sessionRegistry.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t kU32 = 7;

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

    // A read region of up to `count` unsigned 32-bit elements.
    static int32_t acquireOn(uint32_t handle, uint32_t fifo, uint32_t* reference, size_t count, uint32_t timeout = 0) {
        size_t acquired = 0, remaining = 0;
        return Quorvane_AcquireFifoReadRegionScalar(handle, fifo, reference, count, kU32, 0, timeout, &acquired,
                                                    &remaining);
    }
    // ... with all of them granted.
    static uint32_t acquire(uint32_t handle, uint32_t fifo, size_t count) {
        scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {count, 0});
        uint32_t reference = 0;
        EXPECT_EQ(acquireOn(handle, fifo, &reference, count), 0);
        return reference;
    }
    static std::vector<uint64_t> libraryTimeouts() {
        std::vector<uint64_t> timeouts;
        for (const auto& call : callsOf("BrennDll_AcquireFifoReadElementsU32")) timeouts.push_back(call.args[4]);
        return timeouts;
    }

    // How often the FPGA interface library closed `handle` successfully.
    static size_t closesOf(uint32_t handle) {
        size_t count = 0;
        for (const auto& call : callsOf("BrennDll_Close")) count += call.args[0] == handle && call.result == 0;
        return count;
    }

    static size_t fifoStateCount(uint32_t handle) {
        tSharedLock registryGuard(gRegistryLock);
        tSessionRecord* record = sessionRegistry().find(handle);
        tSharedLock recordGuard(*record->lock);
        return record->fifoStates().size();
    }

    template <class Condition>
    static void waitUntil(Condition condition) {
        while (!condition()) std::this_thread::yield();
    }

    uint32_t session = 0;
};

using RegionAcquisition = RegionTest;

TEST_F(RegionAcquisition, EachElementTypeCallsItsFunctionAndTheReferenceDescribesTheRegion) {
    const char* names[] = {"I8", "I16", "I32", "I64", "U8", "U16", "U32", "U64"};
    for (uint32_t code = 1; code <= 8; ++code) {
        for (const bool write : {false, true}) {
            const std::string function =
                std::string("BrennDll_AcquireFifo") + (write ? "Write" : "Read") + "Elements" + names[code - 1];
            scriptAnswer(function.c_str(), 0, {6, 0});
            uint32_t reference = 0;
            size_t acquired = 0, remaining = 0;
            const auto acquireRegion =
                write ? Quorvane_AcquireFifoWriteRegionScalar : Quorvane_AcquireFifoReadRegionScalar;
            ASSERT_EQ(acquireRegion(session, code, &reference, 6, code, 0, 0, &acquired, &remaining), 0);
            const auto calls = callsOf(function);
            ASSERT_EQ(calls.size(), 1u) << function;
            EXPECT_EQ(calls[0].args[0], session | kQuorvaneResourceCallBit);
            EXPECT_EQ(calls[0].args[3], 6u);
            struct {
                void* region;
                int32_t dimensions;
                void* elements;
                uint64_t count, elementBytes;
            } record;  // the Host's record of a reference, as the library fills it
            std::memcpy(&record, HostSim_ReferenceRecord(reference), sizeof record);
            EXPECT_EQ(record.dimensions, 1);
            EXPECT_EQ(record.count, 6u);
            EXPECT_EQ(record.elementBytes, 1u << ((code - 1) % 4)) << function;
            HostSim_DeleteReference(reference);
        }
    }
}

TEST_F(RegionAcquisition, BadArgumentsCreateNothingAndStartFifoCreatesTheStateOnce) {
    const size_t callsBefore = BrennSim_CallCount();
    size_t acquired = 0, remaining = 0;
    EXPECT_EQ(acquireOn(session, 1, nullptr, 4), -52005);
    for (const uint32_t badType : {0u, 9u}) {
        uint32_t reference = 0xABCD;
        EXPECT_EQ(
            Quorvane_AcquireFifoWriteRegionScalar(session, 1, &reference, 4, badType, 0, 0, &acquired, &remaining),
            -52005);
        EXPECT_EQ(reference, 0u);
    }
    uint32_t reference = 0;
    EXPECT_EQ(acquireOn(session | kQuorvaneSessionRefusedBit, 1, &reference, 4), -61499);
    EXPECT_EQ(acquireOn(0x5555, 1, &reference, 4), -63195);
    EXPECT_EQ(Quorvane_StartFifo(0x5555, 1), -63195);
    EXPECT_EQ(Quorvane_StartFifo(session | kQuorvaneSessionRefusedBit, 1), -61499);
    EXPECT_EQ(Quorvane_Reset(session | kQuorvaneSessionRefusedBit), -61499);
    EXPECT_EQ(BrennSim_CallCount(), callsBefore) << "the FPGA interface library is never asked";
    EXPECT_EQ(fifoStateCount(session), 0u);
    scriptAnswer("BrennDll_Download", 12);
    EXPECT_EQ(Quorvane_Download(0x9999), 12) << "a handle opened elsewhere passes the region guard";

    EXPECT_EQ(Quorvane_StartFifo(session, 3), 0);
    EXPECT_EQ(Quorvane_StartFifo(session, 3), 0);
    const auto starts = callsOf("BrennDll_StartFifo");
    ASSERT_EQ(starts.size(), 2u);
    EXPECT_EQ(starts[1].args[0], session | kQuorvaneResourceCallBit);
    EXPECT_EQ(fifoStateCount(session), 1u);
}

// One answer of the library: nothing waited before the call, so it got the whole time-out.
struct OneAnswer {
    const char* name;
    int32_t answer;
    size_t granted;
    size_t requested;
    uint32_t timeout;
};

class RegionAnswer : public RegionAcquisition, public ::testing::WithParamInterface<OneAnswer> {};

TEST_P(RegionAnswer, IsReturnedAndRecordsARegionOnlyWhenElementsCame) {
    const OneAnswer& c = GetParam();
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", c.answer, {c.granted, 0});
    uint32_t reference = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(acquireOn(session, 1, &reference, c.requested, c.timeout), c.answer);
    if (c.answer == -61219) {
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(c.timeout)) << "waited for room";
    }
    EXPECT_EQ(libraryTimeouts(), std::vector<uint64_t>{c.timeout});
    const bool recorded = c.granted != 0;
    EXPECT_EQ(reference != 0, recorded);
    EXPECT_EQ(Quorvane_Close(session, 0), recorded ? -61217 : 0);
    if (recorded) HostSim_DeleteReference(reference);
}

INSTANTIATE_TEST_SUITE_P(Answers, RegionAnswer,
                         ::testing::Values(OneAnswer{"ZeroElements", 0, 0, 0, 0}, OneAnswer{"Warning", 17, 4, 4, 0},
                                           OneAnswer{"NoRoomNoWait", -61219, 0, 4, 0},
                                           OneAnswer{"NoRoomWithinTheTimeout", -61219, 0, 4, 60},
                                           OneAnswer{"LibraryTimeout", -50400, 0, 4, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

// An acquirer waiting for room holds its FIFO but no registry lock: a session opens meanwhile.
TEST_F(RegionAcquisition, RetirementWakesAWaitingAcquirerWhileOthersWaitOrOpenAndClose) {
    const uint32_t held = acquire(session, 1, 2);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -61219);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {4, 0});
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {4, 0});
    uint32_t first = 0, second = 0;
    int32_t result = 1;
    std::thread acquirer([&] { result = acquireOn(session, 1, &first, 4, 5000); });
    waitUntil([] { return BrennSim_ScriptsPending("BrennDll_AcquireFifoReadElementsU32") == 2; });
    EXPECT_EQ(Quorvane_Close(openSession(), 0), 0);
    std::thread deleter([&] {
        std::this_thread::sleep_for(200ms);
        HostSim_DeleteReference(held);
    });
    EXPECT_EQ(acquireOn(session, 1, &second, 4, 5000), 0);
    deleter.join();
    acquirer.join();
    EXPECT_EQ(result, 0);
    const auto timeouts = libraryTimeouts();
    ASSERT_EQ(timeouts.size(), 4u);  // the held region, the refused try, its retry, the second acquirer
    EXPECT_LT(timeouts[2], 5000u);
    EXPECT_GT(timeouts[2], 3000u);
    EXPECT_LE(timeouts[3], 4850u) << "the wait for the first acquisition was not counted";
    HostSim_DeleteReference(first);
    HostSim_DeleteReference(second);
}

TEST_F(RegionAcquisition, InfiniteTimeoutWaitsInSlicesUntilTheHostAbortsTheCall) {
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -50400);
    std::thread aborter([] {
        waitUntil([] { return BrennSim_ScriptsPending("BrennDll_AcquireFifoReadElementsU32") == 0; });
        waitUntil([] { return HostSim_AbortCallsInProgress() != 0; });
    });
    uint32_t reference = 0;
    EXPECT_EQ(acquireOn(session, 1, &reference, 4, 0xFFFFFFFFu), -50405);
    aborter.join();
    for (const uint64_t timeout : libraryTimeouts()) EXPECT_EQ(timeout, 3000u);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u) << "the abort registration ended with the call";
}

TEST_F(RegionAcquisition, RegionsGoBackOnceInAcquisitionOrderOfTheirFifo) {
    const uint32_t otherFifo = acquire(session, 1, 5);  // older, but of another FIFO: never waited for
    std::vector<uint32_t> references;
    for (const size_t count : {10, 20, 30, 40}) references.push_back(acquire(session, 2, count));
    // Deleted out of turn, at the front before an undeleted one, ahead of one deleted out of turn, in turn.
    const std::pair<int, std::vector<uint64_t>> steps[] = {
        {2, {}}, {0, {10}}, {1, {10, 20, 30}}, {3, {10, 20, 30, 40}}};
    for (const auto& [index, released] : steps) {
        EXPECT_EQ(HostSim_DeleteReference(references[index]), 0);
        std::vector<uint64_t> counts;
        for (const auto& call : callsOf("BrennDll_ReleaseFifoElements")) counts.push_back(call.args[2]);
        EXPECT_EQ(counts, released) << "after deleting region " << index;
    }
    EXPECT_EQ(HostSim_DeleteReference(otherFifo), 0);
    for (const auto& call : callsOf("BrennDll_ReleaseFifoElements")) {
        EXPECT_EQ(call.args[0], session | kQuorvaneResourceCallBit);
        EXPECT_EQ(call.args[1], call.args[2] == 5 ? 1u : 2u);
    }
    EXPECT_EQ(callsOf("BrennDll_ReleaseFifoElements").back().args[2], 5u);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(Quorvane_Close(session, 0), 0) << "nothing is left outstanding";
}

using DeferredClose = RegionTest;

TEST_F(DeferredClose, DropsIdleFifosAndClosesWithTheLastRegionOfTheLastBusyFifo) {
    ASSERT_EQ(Quorvane_StartFifo(session, 1), 0);
    HostSim_DeleteReference(acquire(session, 3, 1));
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Close"), 0u) << "a retirement with no refused close closes nothing";
    const uint32_t first = acquire(session, 2, 4), second = acquire(session, 2, 4), other = acquire(session, 4, 3);
    EXPECT_EQ(Quorvane_Reset(session), -61217);
    EXPECT_EQ(Quorvane_Download(session), -61217);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Reset") + BrennSim_CountCalls("BrennDll_Download"), 0u);
    EXPECT_EQ(Quorvane_Close(session, 9), -61217);
    EXPECT_EQ(fifoStateCount(session), 2u) << "the idle FIFOs' states are dropped";
    EXPECT_EQ(HostSim_DeleteReference(second), 0);
    HostSim_DeleteReference(other);
    EXPECT_TRUE(isRegistered(session)) << "the first FIFO to empty finds its close refused again";
    EXPECT_EQ(closesOf(session), 0u);
    EXPECT_EQ(HostSim_DeleteReference(first), 0);
    EXPECT_EQ(closesOf(session), 1u);
    EXPECT_EQ(callsOf("BrennDll_Close").back().args[1], 1u) << "a deferred close uses attribute 1";
    EXPECT_FALSE(isRegistered(session));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

// The Host closes the session just before the library's own (deferred or parent) close does.
struct GapCase {
    const char* name;
    bool parentGap;
    bool programStop;
};

class CloseInTheGap : public RegionTest, public ::testing::WithParamInterface<GapCase> {};

TEST_P(CloseInTheGap, ReachesTheDriverOncePerHandle) {
    BrennSim_ReuseHandles(1);
    uint32_t resource = 0;
    if (GetParam().parentGap) {
        ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 0);
    }
    const uint32_t reference = acquire(GetParam().parentGap ? resource : session, 1, 4);
    ASSERT_EQ(Quorvane_Close(session, 0), -61217);

    // Held after the registry lock (the child's close) or under queueMutex (the retirement).
    const char* held = GetParam().parentGap ? "BrennDll_Close" : "BrennDll_ReleaseFifoElements";
    BrennSim_HoldNext(held);
    std::thread deleter([&] { HostSim_DeleteReference(reference); });
    waitUntil([&] { return BrennSim_HeldCalls(held) == 1; });
    std::thread host([&] {
        if (GetParam().programStop) {
            EXPECT_EQ(HostSim_RunProgramStop(), 1u);
        } else {
            EXPECT_EQ(Quorvane_Close(session, 0), 0);
        }
    });
    if (GetParam().parentGap) {
        host.join();
    } else {
        waitUntil([] { return gRegistryLock.writerActiveForTesting() == 1; });
    }
    BrennSim_Release(held);
    deleter.join();
    if (host.joinable()) host.join();

    BrennSimSessionStats stats{};
    BrennSim_GetSessionStats(&stats);
    EXPECT_EQ(stats.closesNotOpen, 0u);
    EXPECT_EQ(stats.closed, stats.opened);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_FALSE(isRegistered(session));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Gaps, CloseInTheGap,
                         ::testing::Values(GapCase{"DeferredCloseHostRetry", false, false},
                                           GapCase{"DeferredCloseProgramStop", false, true},
                                           GapCase{"ParentCloseHostRetry", true, false},
                                           GapCase{"ParentCloseProgramStop", true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// The last busy child's close closes the parent unless it failed; the merge rule, child first.
struct AlongCase {
    int32_t child;
    int32_t parent;
    int32_t reported;
};

class ParentClosedAlong : public DeferredClose, public ::testing::WithParamInterface<AlongCase> {};

TEST_P(ParentClosedAlong, WithItsLastBusyResourceSessionReportingBothAnswers) {
    uint32_t idle = 0, first = 0, second = 0;
    ASSERT_EQ(Quorvane_OpenResource(session, "idle", 0, &idle), 0);
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &first), 0);
    ASSERT_EQ(Quorvane_OpenResource(session, "b", 0, &second), 0);
    const uint32_t r1 = acquire(first, 0, 1), r2 = acquire(second, 0, 8);
    EXPECT_EQ(Quorvane_Close(session, 5), -61217);
    EXPECT_EQ(closesOf(idle), 1u);
    EXPECT_EQ(callsOf("BrennDll_Close").back().args[1], 1u);
    EXPECT_FALSE(isRegistered(idle));
    EXPECT_TRUE(isRegistered(first));
    EXPECT_EQ(Quorvane_Reset(session), 0) << "a resource session's regions do not block its parent";
    EXPECT_EQ(Quorvane_Download(session), 0);
    EXPECT_EQ(callsOf("BrennDll_Reset").at(0).args[0], session) << "forwarded unchanged";
    EXPECT_EQ(HostSim_DeleteReference(r1), 0);
    EXPECT_EQ(closesOf(first), 1u);
    EXPECT_TRUE(isRegistered(session));

    scriptAnswer("BrennDll_Close", GetParam().child, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_Close", GetParam().parent, {}, kBrennSimAfterReal);
    EXPECT_EQ(HostSim_DeleteReference(r2), GetParam().reported);
    const bool along = GetParam().child >= 0;
    EXPECT_EQ(BrennSim_OpenSessionCount(), along ? 0u : 1u);
    EXPECT_EQ(closesOf(session), along && GetParam().parent == 0 ? 1u : 0u);
    EXPECT_EQ(isRegistered(session), !along);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), along ? 0u : 1u) << "the parent's cleanup registration";
}

INSTANTIATE_TEST_SUITE_P(Answers, ParentClosedAlong,
                         ::testing::Values(AlongCase{0, -998, -998}, AlongCase{7, 0, 7}, AlongCase{0, 9, 9},
                                           AlongCase{7, -998, -998}, AlongCase{0, 0, 0}, AlongCase{-999, 0, -999}));

TEST_F(DeferredClose, ResourceSessionNeedsARegisteredTopLevelParentAndClosesAlone) {
    uint32_t elsewhere = 0, resource = 0, nested = 0;
    ASSERT_EQ(BrennDll_Open("", "", "RIO1", 0, &elsewhere), 0);  // open, but not through this library
    EXPECT_EQ(Quorvane_OpenResource(elsewhere, "a", 0, &resource), -63195);
    EXPECT_FALSE(BrennSim_IsSessionOpen(resource)) << "the resource session is closed again";
    BrennDll_Close(elsewhere, 0);
    EXPECT_EQ(Quorvane_OpenResource(session | kQuorvaneSessionRefusedBit, "a", 0, &resource), -61499);
    scriptAnswer("BrennDll_OpenResource", 3, {}, kBrennSimAfterReal);
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 3) << "the open's warning is passed on";
    EXPECT_EQ(callsOf("BrennDll_OpenResource").back().args[0], session | kQuorvaneResourceCallBit);
    EXPECT_EQ(Quorvane_OpenResource(resource, "b", 0, &nested), -52005);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 2u) << "only the session and its resource session stay open";
    EXPECT_EQ(Quorvane_Close(resource, 0), 0);
    EXPECT_TRUE(isRegistered(session));
    EXPECT_TRUE(BrennSim_IsSessionOpen(session));
    EXPECT_EQ(Quorvane_Close(session, 0), 0);
    EXPECT_EQ(closesOf(resource), 1u) << "not closed again with its parent";
}

}  // namespace
}  // namespace quorvane::testing
