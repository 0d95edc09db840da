// Acquiring regions: element types, time-outs, waiting for room, and the Host's abort.
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "regionTestSupport.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

struct ElementType {
    uint32_t code;
    const char* readFunction;
    const char* writeFunction;
    uint64_t bytes;
};

void PrintTo(const ElementType& t, std::ostream* os) {
    *os << "type" << t.code;
}

class RegionElementType : public RegionTest, public ::testing::WithParamInterface<ElementType> {};

TEST_P(RegionElementType, CallsTheTypesFunctionAndRecordsItsElementSize) {
    for (const bool write : {false, true}) {
        BrennSim_Reset();
        session = openSession();
        const char* function = write ? GetParam().writeFunction : GetParam().readFunction;
        scriptAnswer(function, 0, {6, 0});
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        const auto acquireRegion = write ? Quorvane_AcquireFifoWriteRegionScalar : Quorvane_AcquireFifoReadRegionScalar;
        ASSERT_EQ(acquireRegion(session, 4, &reference, 6, GetParam().code, 0, 0, &acquired, &remaining), 0);
        const auto calls = callsOf(function);
        ASSERT_EQ(calls.size(), 1u) << function;
        EXPECT_EQ(calls[0].args[0], session | kQuorvaneResourceCallBit);
        EXPECT_EQ(calls[0].args[3], 6u);
        uint64_t size = 0;
        std::memcpy(&size, static_cast<uint8_t*>(HostSim_ReferenceRecord(reference)) + 32, 8);
        EXPECT_EQ(size, GetParam().bytes);
        HostSim_DeleteReference(reference);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Types, RegionElementType,
    ::testing::Values(ElementType{1, "BrennDll_AcquireFifoReadElementsI8", "BrennDll_AcquireFifoWriteElementsI8", 1},
                      ElementType{2, "BrennDll_AcquireFifoReadElementsI16", "BrennDll_AcquireFifoWriteElementsI16", 2},
                      ElementType{3, "BrennDll_AcquireFifoReadElementsI32", "BrennDll_AcquireFifoWriteElementsI32", 4},
                      ElementType{4, "BrennDll_AcquireFifoReadElementsI64", "BrennDll_AcquireFifoWriteElementsI64", 8},
                      ElementType{5, "BrennDll_AcquireFifoReadElementsU8", "BrennDll_AcquireFifoWriteElementsU8", 1},
                      ElementType{6, "BrennDll_AcquireFifoReadElementsU16", "BrennDll_AcquireFifoWriteElementsU16", 2},
                      ElementType{7, "BrennDll_AcquireFifoReadElementsU32", "BrennDll_AcquireFifoWriteElementsU32", 4},
                      ElementType{8, "BrennDll_AcquireFifoReadElementsU64", "BrennDll_AcquireFifoWriteElementsU64",
                                  8}));

class RegionAcquisition : public RegionTest {
protected:
    int32_t acquireWith(uint32_t timeout, uint32_t* reference, size_t requested = 4) {
        size_t acquired = 0, remaining = 0;
        return Quorvane_AcquireFifoReadRegionScalar(session, 1, reference, requested, kU32, 0, timeout, &acquired,
                                                    &remaining);
    }
    static std::vector<uint64_t> libraryTimeouts() {
        std::vector<uint64_t> timeouts;
        for (const auto& call : callsOf("BrennDll_AcquireFifoReadElementsU32")) timeouts.push_back(call.args[4]);
        return timeouts;
    }
};

TEST_F(RegionAcquisition, BadArgumentsAreRefusedBeforeAnythingIsCreated) {
    const size_t callsBefore = BrennSim_CallCount();
    size_t acquired = 0, remaining = 0;
    EXPECT_EQ(Quorvane_AcquireFifoReadRegionScalar(session, 1, nullptr, 4, kU32, 0, 0, &acquired, &remaining), -52005);
    for (const uint32_t badType : {0u, 9u}) {
        uint32_t reference = 0xABCD;
        EXPECT_EQ(
            Quorvane_AcquireFifoWriteRegionScalar(session, 1, &reference, 4, badType, 0, 0, &acquired, &remaining),
            -52005);
        EXPECT_EQ(reference, 0u);
    }
    uint32_t reference = 0;
    EXPECT_EQ(Quorvane_AcquireFifoReadRegionScalar(session | kQuorvaneSessionRefusedBit, 1, &reference, 4, kU32, 0, 0,
                                                   &acquired, &remaining),
              -61499);
    EXPECT_EQ(Quorvane_AcquireFifoReadRegionScalar(0x5555, 1, &reference, 4, kU32, 0, 0, &acquired, &remaining),
              -63195);
    EXPECT_EQ(Quorvane_StartFifo(0x5555, 1), -63195);
    EXPECT_EQ(Quorvane_StartFifo(session | kQuorvaneSessionRefusedBit, 1), -61499);
    EXPECT_EQ(BrennSim_CallCount(), callsBefore) << "the FPGA interface library is never asked";
    EXPECT_EQ(fifoStateCount(session), 0u) << "no FIFO state was created";
}

TEST_F(RegionAcquisition, StartFifoCreatesTheStateOnceAndAlwaysStartsTheFifo) {
    EXPECT_EQ(Quorvane_StartFifo(session, 3), 0);
    EXPECT_EQ(Quorvane_StartFifo(session, 3), 0);
    const auto starts = callsOf("BrennDll_StartFifo");
    ASSERT_EQ(starts.size(), 2u);
    EXPECT_EQ(starts[1].args[0], session | kQuorvaneResourceCallBit);
    EXPECT_EQ(fifoStateCount(session), 1u);
}

TEST_F(RegionAcquisition, ZeroElementsCallsTheLibraryButRecordsNothing) {
    uint32_t reference = 0;
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {0, 0});
    EXPECT_EQ(acquireWith(0, &reference, 0), 0);
    EXPECT_EQ(reference, 0u);
    EXPECT_EQ(libraryTimeouts().size(), 1u);
    EXPECT_EQ(Quorvane_Close(session, 0), 0) << "nothing outstanding";
}

TEST_F(RegionAcquisition, WarningStillRecordsTheRegion) {
    uint32_t reference = 0;
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 17, {4, 0});
    EXPECT_EQ(acquireWith(0, &reference), 17);
    EXPECT_NE(reference, 0u);
    EXPECT_EQ(Quorvane_Close(session, 0), -61217);
    HostSim_DeleteReference(reference);
}

TEST_F(RegionAcquisition, ZeroTimeoutGivesUpAtOnceWhenTheLibraryAsksForRoom) {
    uint32_t reference = 0;
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -61219);
    EXPECT_EQ(acquireWith(0, &reference), -61219);
    EXPECT_EQ(libraryTimeouts(), std::vector<uint64_t>{0});
    EXPECT_EQ(reference, 0u);
}

// Nothing waited before the driver's call, so it gets the whole time-out, even the shortest.
TEST_F(RegionAcquisition, LibraryTimeoutWithAFiniteTimeoutIsPassedThrough) {
    uint32_t reference = 0;
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -50400);
    EXPECT_EQ(acquireWith(1, &reference), -50400);
    EXPECT_EQ(libraryTimeouts(), std::vector<uint64_t>{1});
    EXPECT_EQ(Quorvane_Close(session, 0), 0) << "no region recorded";
}

TEST_F(RegionAcquisition, FiniteTimeoutRunsOutWhileWaitingForRoom) {
    uint32_t reference = 0;
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -61219);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(acquireWith(60, &reference), -61219);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
    EXPECT_EQ(libraryTimeouts().size(), 1u) << "no retirement, so no second call";
}

TEST_F(RegionAcquisition, RetirementWakesAWaitingAcquirerWhichRetriesWithTheTimeLeft) {
    const uint32_t held = acquire(session, 1, 2);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -61219);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {4, 0});
    std::thread deleter([&] {
        while (BrennSim_ScriptsPending("BrennDll_AcquireFifoReadElementsU32") != 1) std::this_thread::yield();
        std::this_thread::sleep_for(20ms);
        HostSim_DeleteReference(held);
    });
    uint32_t reference = 0;
    EXPECT_EQ(acquireWith(5000, &reference), 0);
    deleter.join();
    const auto timeouts = libraryTimeouts();
    ASSERT_EQ(timeouts.size(), 3u);  // the held region, the refused try and the retry
    EXPECT_LT(timeouts[2], 5000u);
    EXPECT_GT(timeouts[2], 3000u);
    HostSim_DeleteReference(reference);
}

// An acquisition waiting for room holds no registry lock: a session opens and closes meanwhile,
// and the retirement after that still reaches the acquirer within its time-out.
TEST_F(RegionAcquisition, OpensAndClosesGoOnWhileAnAcquisitionWaitsForRoom) {
    const uint32_t held = acquire(session, 1, 2);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -61219);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {4, 0});
    uint32_t reference = 0;
    int32_t result = 1;
    std::thread acquirer([&] { result = acquireWith(5000, &reference); });
    while (BrennSim_ScriptsPending("BrennDll_AcquireFifoReadElementsU32") != 1) std::this_thread::yield();
    EXPECT_EQ(Quorvane_Close(openSession(), 0), 0);
    HostSim_DeleteReference(held);
    acquirer.join();
    EXPECT_EQ(result, 0) << "the open waited for the acquisition to give up";
    HostSim_DeleteReference(reference);
}

// The time-out's clock starts only when a step has to wait; waiting for another acquisition on
// the same FIFO is such a step and counts against the time-out.
TEST_F(RegionAcquisition, WaitingForAnotherAcquisitionCountsAgainstTheTimeout) {
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -61219);
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", 0, {4, 0});
    int32_t firstResult = 0;
    std::thread first([&] {
        uint32_t refused = 0;
        firstResult = acquireWith(200, &refused);
    });
    // The first acquirer has had its answer and waits for room, holding the FIFO.
    while (BrennSim_ScriptsPending("BrennDll_AcquireFifoReadElementsU32") != 1) std::this_thread::yield();
    uint32_t reference = 0;
    EXPECT_EQ(acquireWith(5000, &reference), 0);
    first.join();
    EXPECT_EQ(firstResult, -61219);
    const auto timeouts = libraryTimeouts();
    ASSERT_EQ(timeouts.size(), 2u);
    EXPECT_LE(timeouts[1], 4850u) << "the wait for the first acquisition was not counted";
    HostSim_DeleteReference(reference);
}

TEST_F(RegionAcquisition, InfiniteTimeoutWaitsInSlicesUntilTheHostAbortsTheCall) {
    // After the one call, nothing is retired: the acquirer waits in slices until aborted.
    scriptAnswer("BrennDll_AcquireFifoReadElementsU32", -50400);
    std::thread aborter([] {
        while (BrennSim_ScriptsPending("BrennDll_AcquireFifoReadElementsU32") != 0) std::this_thread::yield();
        while (HostSim_AbortCallsInProgress() == 0) std::this_thread::yield();
    });
    uint32_t reference = 0;
    EXPECT_EQ(acquireWith(kInfinite, &reference), -50405);
    aborter.join();
    for (const uint64_t timeout : libraryTimeouts()) EXPECT_EQ(timeout, 3000u);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u) << "the abort registration ended with the call";
}

TEST_F(RegionAcquisition, TwoRegionsAreQueuedInAcquisitionOrder) {
    const uint32_t first = acquire(session, 1, 3);
    const uint32_t second = acquire(session, 1, 4);
    FifoRegion* regions[2];
    std::memcpy(&regions[0], HostSim_ReferenceRecord(first), sizeof(FifoRegion*));
    std::memcpy(&regions[1], HostSim_ReferenceRecord(second), sizeof(FifoRegion*));
    EXPECT_EQ(regions[0]->state, regions[1]->state);
    {
        tMutexGuard queueGuard(*regions[0]->state->queueMutex);
        EXPECT_EQ(&regions[0]->state->regions().front(), regions[0]);
        EXPECT_EQ(&regions[0]->state->regions().back(), regions[1]);
    }
    HostSim_DeleteReference(second);
    HostSim_DeleteReference(first);
}

}  // namespace
}  // namespace quorvane::testing
