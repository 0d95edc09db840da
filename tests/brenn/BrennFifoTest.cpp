// FIFOs of the simulated target: pattern data both ways, blocking and time-outs, regions lent
// from the ring, and the checks on the order and size of releases.
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "BrennSimFixture.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kFifo = 3;
constexpr uint32_t kNoLimit = 0xFFFFFFFFu;

template <typename T>
struct Fifo;
#define BRENN_FIFO_TRAITS(T, t)                                                    \
    template <>                                                                    \
    struct Fifo<t> {                                                               \
        static constexpr auto read = BrennDll_ReadFifo##T;                         \
        static constexpr auto write = BrennDll_WriteFifo##T;                       \
        static constexpr auto acquireRead = BrennDll_AcquireFifoReadElements##T;   \
        static constexpr auto acquireWrite = BrennDll_AcquireFifoWriteElements##T; \
    };
BRENN_FOR_EACH_ELEMENT_TYPE(BRENN_FIFO_TRAITS)
#undef BRENN_FIFO_TRAITS

template <typename T>
T patternAt(uint64_t index) {
    return static_cast<T>(index);
}

BrennSimFifoStats statsOf(uint32_t session, uint32_t fifo) {
    BrennSimFifoStats stats{};
    EXPECT_EQ(BrennSim_GetFifoStats(session, fifo, &stats), 1);
    return stats;
}

template <typename T>
class FifoData : public BrennSimTest {};
using ElementTypes = ::testing::Types<int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t>;
TYPED_TEST_SUITE(FifoData, ElementTypes);

TYPED_TEST(FifoData, ReadsFollowTheCounterPatternAcrossTheWrap) {
    uint32_t session = BrennSimTest::openSession();
    ASSERT_EQ(BrennDll_ConfigureFifo(session, kFifo, 8), 0);
    // 300 elements through a ring of 8: the counter goes on across wraps and past 255, where
    // 8-bit elements wrap with it.
    std::vector<TypeParam> data(300);
    size_t remaining = 0;
    ASSERT_EQ(Fifo<TypeParam>::read(session, kFifo, data.data(), 100, 0, &remaining), 0);
    EXPECT_EQ(remaining, 8u) << "the FPGA side refills the ring at once";
    ASSERT_EQ(Fifo<TypeParam>::read(session, kFifo, data.data() + 100, 200, 0, &remaining), 0);
    for (size_t i = 0; i < data.size(); ++i) ASSERT_EQ(data[i], patternAt<TypeParam>(i)) << i;
    EXPECT_EQ(statsOf(session, kFifo).elementsTransferred, 300u);
    EXPECT_EQ(Fifo<TypeParam>::read(session, kFifo, nullptr, 1, 0, &remaining), kBrennSimInvalidArgument);
}

TYPED_TEST(FifoData, WritesAreCheckedAgainstThePattern) {
    uint32_t session = BrennSimTest::openSession();
    std::vector<TypeParam> data(5000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = patternAt<TypeParam>(i);
    size_t remaining = 0;
    ASSERT_EQ(Fifo<TypeParam>::write(session, kFifo, data.data(), data.size(), 0, &remaining), 0);
    EXPECT_EQ(remaining, size_t{kBrennSimDefaultFifoDepth});
    EXPECT_EQ(statsOf(session, kFifo).patternErrors, 0u);
    const TypeParam wrong[2] = {patternAt<TypeParam>(5000), patternAt<TypeParam>(7)};
    ASSERT_EQ(Fifo<TypeParam>::write(session, kFifo, wrong, 2, 0, nullptr), 0);
    EXPECT_EQ(statsOf(session, kFifo).patternErrors, 1u);
    EXPECT_EQ(statsOf(session, kFifo).elementsTransferred, 5002u);
}

TYPED_TEST(FifoData, ReadRegionsHoldThePatternAndComeBackInOrder) {
    uint32_t session = BrennSimTest::openSession();
    TypeParam* first = nullptr;
    TypeParam* second = nullptr;
    size_t acquired = 0, remaining = 0;
    ASSERT_EQ(Fifo<TypeParam>::acquireRead(session, kFifo, &first, 10, 0, &acquired, &remaining), 0);
    ASSERT_EQ(acquired, 10u);
    EXPECT_EQ(remaining, kBrennSimDefaultFifoDepth - 10u);
    ASSERT_EQ(Fifo<TypeParam>::acquireRead(session, kFifo, &second, 6, 0, &acquired, &remaining), 0);
    ASSERT_EQ(acquired, 6u);
    EXPECT_EQ(second, first + 10) << "regions follow each other in the ring";
    for (size_t i = 0; i < 16; ++i) EXPECT_EQ(first[i], patternAt<TypeParam>(i)) << i;
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 10), 0);
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 6), 0);
    BrennSimFifoStats stats = statsOf(session, kFifo);
    EXPECT_EQ(stats.elementsAcquired, 16u);
    EXPECT_EQ(stats.elementsReleased, 16u);
    EXPECT_EQ(stats.releaseCalls, 2u);
    EXPECT_EQ(stats.outOfOrderReleases, 0u);
}

TYPED_TEST(FifoData, WriteRegionsAreDrainedAndCheckedOnRelease) {
    uint32_t session = BrennSimTest::openSession();
    TypeParam* elements = nullptr;
    size_t acquired = 0;
    ASSERT_EQ(Fifo<TypeParam>::acquireWrite(session, kFifo, &elements, 20, 0, &acquired, nullptr), 0);
    ASSERT_EQ(acquired, 20u);
    for (size_t i = 0; i < 20; ++i) elements[i] = patternAt<TypeParam>(i == 13 ? 99 : i);
    ASSERT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 20), 0);
    EXPECT_EQ(statsOf(session, kFifo).patternErrors, 1u);
}

TEST_F(BrennSimTest, CompositeElementsCarryThePatternBothWays) {
    uint32_t session = openSession();
    constexpr uint32_t kBytes = 12;
    std::vector<uint8_t> data(kBytes * 300, 0xEE);
    size_t remaining = 0;
    ASSERT_EQ(BrennDll_ReadFifoComposite(session, 1, data.data(), kBytes, 299, 0, &remaining), 0);
    for (uint64_t i = 0; i < 299; ++i) {
        uint64_t low = 0;
        std::memcpy(&low, &data[i * kBytes], 8);
        EXPECT_EQ(low, i);
        EXPECT_EQ(data[i * kBytes + 8] | data[i * kBytes + 11], 0) << "zero beyond the eighth byte";
    }
    EXPECT_EQ(data[299 * kBytes], 0xEE) << "nothing past the requested elements";

    ASSERT_EQ(BrennDll_WriteFifoComposite(session, 2, data.data(), kBytes, 299, 0, &remaining), 0);
    EXPECT_EQ(statsOf(session, 2).patternErrors, 0u);
    EXPECT_EQ(BrennDll_WriteFifoComposite(session, 2, data.data(), 4, 1, 0, &remaining), kBrennSimInvalidArgument)
        << "a FIFO keeps the element size of its first use";
    EXPECT_EQ(BrennDll_ReadFifoComposite(session, 2, data.data(), kBytes, 1, 0, &remaining), kBrennSimInvalidArgument)
        << "a FIFO keeps its direction";
}

TEST_F(BrennSimTest, ScalarAndCompositeShareAFifoOfTheSameSize) {
    uint32_t session = openSession();
    uint32_t scalar[2] = {};
    uint8_t composite[8] = {};
    ASSERT_EQ(BrennDll_ReadFifoU32(session, 0, scalar, 2, 0, nullptr), 0);
    ASSERT_EQ(BrennDll_ReadFifoComposite(session, 0, composite, 4, 2, 0, nullptr), 0);
    EXPECT_EQ(composite[0], 2);
    EXPECT_EQ(composite[4], 3);
    int16_t other[1];
    EXPECT_EQ(BrennDll_ReadFifoI16(session, 0, other, 1, 0, nullptr), kBrennSimInvalidArgument);
}

// ---- blocking and time-outs --------------------------------------------------------------

class FifoTiming : public BrennSimTest {
protected:
    // A read FIFO of u32 whose FPGA side is stopped, so the test decides what it holds.
    uint32_t stoppedReadFifo() {
        uint32_t session = openSession();
        EXPECT_EQ(BrennSim_SetFifoFpgaRunning(session, kFifo, 0), 1);
        uint32_t none[1];
        EXPECT_EQ(BrennDll_ReadFifoU32(session, kFifo, none, 0, 0, nullptr), 0);
        return session;
    }
};

TEST_F(FifoTiming, ReadTimesOutHonestlyAndMovesNothing) {
    uint32_t session = stoppedReadFifo();
    ASSERT_EQ(BrennSim_FeedFifo(session, kFifo, 5), 5u);
    uint32_t data[10] = {};
    size_t remaining = 0;
    EXPECT_EQ(BrennDll_ReadFifoU32(session, kFifo, data, 10, 0, &remaining), kBrennTimeout);
    EXPECT_EQ(remaining, 5u);
    const auto start = Clock::now();
    EXPECT_EQ(BrennDll_ReadFifoU32(session, kFifo, data, 10, 50, &remaining), kBrennTimeout);
    EXPECT_GE(Clock::now() - start, 45ms);
    ASSERT_EQ(BrennDll_ReadFifoU32(session, kFifo, data, 5, 0, &remaining), 0);
    EXPECT_EQ(data[4], 4u);
    EXPECT_EQ(remaining, 0u);
}

TEST_F(FifoTiming, BlockedReadCompletesWhenTheFpgaFeedsIt) {
    uint32_t session = stoppedReadFifo();
    std::thread feeder([&] {
        std::this_thread::sleep_for(20ms);
        BrennSim_FeedFifo(session, kFifo, 3);
        std::this_thread::sleep_for(20ms);
        BrennSim_FeedFifo(session, kFifo, 3);
    });
    uint32_t data[6] = {};
    EXPECT_EQ(BrennDll_ReadFifoU32(session, kFifo, data, 6, kNoLimit, nullptr), 0);
    feeder.join();
    EXPECT_EQ(data[5], 5u);
}

TEST_F(FifoTiming, WriteRunsFullWhileTheFpgaIsStopped) {
    uint32_t session = openSession();
    ASSERT_EQ(BrennSim_SetFifoFpgaRunning(session, kFifo, 0), 1);
    ASSERT_EQ(BrennDll_ConfigureFifo(session, kFifo, 4), 0);
    const uint16_t data[6] = {0, 1, 2, 3, 4, 5};
    size_t remaining = 0;
    ASSERT_EQ(BrennDll_WriteFifoU16(session, kFifo, data, 3, 0, &remaining), 0);
    EXPECT_EQ(remaining, 1u);
    EXPECT_EQ(BrennDll_WriteFifoU16(session, kFifo, data + 3, 2, 10, &remaining), kBrennTimeout);
    EXPECT_EQ(BrennSim_DrainFifo(session, kFifo, 1), 1u) << "room for 2 now, and the write wants 3";
    std::thread drainer([&] {
        std::this_thread::sleep_for(20ms);
        BrennSim_SetFifoFpgaRunning(session, kFifo, 1);
    });
    EXPECT_EQ(BrennDll_WriteFifoU16(session, kFifo, data + 3, 3, kNoLimit, &remaining), 0);
    drainer.join();
    EXPECT_EQ(remaining, 4u);
    EXPECT_EQ(statsOf(session, kFifo).patternErrors, 0u);
}

TEST_F(FifoTiming, ClosingTheSessionWakesABlockedCaller) {
    uint32_t session = stoppedReadFifo();
    int32_t status = 0;
    std::thread reader([&] {
        uint32_t data[1];
        status = BrennDll_ReadFifoU32(session, kFifo, data, 1, kNoLimit, nullptr);
    });
    std::this_thread::sleep_for(20ms);
    ASSERT_EQ(BrennDll_Close(session, 0), 0);
    reader.join();
    EXPECT_EQ(status, kBrennSimInvalidSession);
    BrennSimFifoStats stats{};
    EXPECT_EQ(BrennSim_GetFifoStats(session, kFifo, &stats), 0) << "the session's FIFOs are forgotten";
}

// ---- regions -----------------------------------------------------------------------------

class FifoRegions : public BrennSimTest {
protected:
    void SetUp() override {
        BrennSimTest::SetUp();
        session = openSession();
        ASSERT_EQ(BrennDll_ConfigureFifo(session, kFifo, 16), 0);
    }

    int32_t acquire(size_t requested, uint32_t timeout = 0) {
        elements = nullptr;
        acquired = 0;
        return BrennDll_AcquireFifoReadElementsU32(session, kFifo, &elements, requested, timeout, &acquired,
                                                   &remaining);
    }

    uint32_t session = 0;
    uint32_t* elements = nullptr;
    size_t acquired = 0;
    size_t remaining = 0;
};

TEST_F(FifoRegions, RegionStopsAtTheEndOfTheBufferAndGoesOnAtItsStart) {
    ASSERT_EQ(acquire(12), 0);
    uint32_t* start = elements;
    ASSERT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 12), 0);
    ASSERT_EQ(acquire(10), 0);
    EXPECT_EQ(acquired, 4u) << "never split across the wrap";
    EXPECT_EQ(elements, start + 12);
    EXPECT_EQ(elements[3], 15u);
    ASSERT_EQ(acquire(6), 0);
    EXPECT_EQ(acquired, 6u);
    EXPECT_EQ(elements, start);
    EXPECT_EQ(elements[0], 16u) << "the pattern goes on across the wrap";
}

TEST_F(FifoRegions, BorrowedElementsAreNeverLentTwice) {
    ASSERT_EQ(acquire(12), 0);
    ASSERT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 12), 0);
    ASSERT_EQ(acquire(4), 0);
    EXPECT_EQ(acquire(13), kBrennMustReleaseFirst) << "only 12 can ever come while 4 are out";
    ASSERT_EQ(acquire(12), 0);
    EXPECT_EQ(elements[0], 16u);
    EXPECT_EQ(acquire(1), kBrennMustReleaseFirst) << "the whole ring is out";
    uint32_t data[1];
    EXPECT_EQ(BrennDll_ReadFifoU32(session, kFifo, data, 1, 0, nullptr), kBrennMustReleaseFirst);
    EXPECT_EQ(BrennDll_ConfigureFifo(session, kFifo, 32), kBrennMustReleaseFirst);
    ASSERT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 4), 0);
    ASSERT_EQ(acquire(4), 0);
    EXPECT_EQ(elements[0], 28u);
}

TEST_F(FifoRegions, LackOfDataWaitsAndTimesOut) {
    ASSERT_EQ(BrennSim_SetFifoFpgaRunning(session, kFifo, 0), 1);
    EXPECT_EQ(acquire(4), kBrennTimeout);
    EXPECT_EQ(remaining, 0u);
    const auto start = Clock::now();
    EXPECT_EQ(acquire(4, 30), kBrennTimeout);
    EXPECT_GE(Clock::now() - start, 25ms);
    std::thread feeder([&] {
        std::this_thread::sleep_for(20ms);
        BrennSim_FeedFifo(session, kFifo, 4);
    });
    EXPECT_EQ(acquire(4, 5000), 0);
    feeder.join();
    EXPECT_EQ(acquired, 4u);
    EXPECT_EQ(elements[3], 3u);
}

TEST_F(FifoRegions, OutOfOrderReleaseIsCountedAndTheRingStaysConsistent) {
    ASSERT_EQ(acquire(3), 0);
    ASSERT_EQ(acquire(5), 0);
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 5), 0) << "5 elements from the front come back";
    BrennSimFifoStats stats = statsOf(session, kFifo);
    EXPECT_EQ(stats.outOfOrderReleases, 1u);
    EXPECT_EQ(stats.elementsReleased, 5u);
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 3), 0);
    EXPECT_EQ(statsOf(session, kFifo).outOfOrderReleases, 1u) << "3 were all that was left of the front";
    ASSERT_EQ(acquire(16), 0);
    EXPECT_EQ(acquired, 8u) << "from slot 8 to the end of the buffer";
    EXPECT_EQ(elements[0], 8u);
}

TEST_F(FifoRegions, ExcessReleaseChangesNothing) {
    ASSERT_EQ(acquire(4), 0);
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 5), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo + 1, 1), kBrennSimInvalidArgument);
    BrennSimFifoStats stats = statsOf(session, kFifo);
    EXPECT_EQ(stats.excessReleases, 1u);
    EXPECT_EQ(stats.elementsReleased, 0u);
    BrennSimFifoStats total{};
    BrennSim_GetTotalFifoStats(&total);
    EXPECT_EQ(total.excessReleases, 2u) << "a release that found no FIFO counts too";
    EXPECT_EQ(BrennDll_ReleaseFifoElements(session, kFifo, 4), 0);
    EXPECT_EQ(statsOf(session, kFifo).outOfOrderReleases, 0u);
}

TEST_F(FifoRegions, TotalsOutliveTheSessionAndResetClearsThem) {
    ASSERT_EQ(acquire(4), 0);
    ASSERT_EQ(BrennDll_Close(session, 0), 0);
    BrennSimFifoStats total{};
    BrennSim_GetTotalFifoStats(&total);
    EXPECT_EQ(total.elementsAcquired, 4u);
    BrennSim_Reset();
    BrennSim_GetTotalFifoStats(&total);
    EXPECT_EQ(total.elementsAcquired, 0u);
}

TEST_F(FifoRegions, ConfigureGrantsWhatTheTargetCanHold) {
    size_t granted = 0;
    ASSERT_EQ(BrennDll_ConfigureFifo2(session, kFifo, 1000, &granted), 0);
    EXPECT_EQ(granted, 1000u);
    ASSERT_EQ(BrennDll_ConfigureFifo2(session, kFifo, size_t{1} << 40, &granted), 0);
    EXPECT_EQ(granted, size_t{kBrennSimMaxFifoDepth});
    EXPECT_EQ(BrennDll_ConfigureFifo(session, kFifo, 0), kBrennSimInvalidArgument);
}

TEST_F(FifoRegions, ScriptedAnswerStillReplacesTheWork) {
    BrennSimAnswer answer{};
    answer.status = 0;
    answer.outputCount = 2;
    answer.outputs[0] = 7;
    answer.outputs[1] = 9;
    BrennSim_Script("BrennDll_AcquireFifoReadElementsU32", &answer);
    ASSERT_EQ(acquire(16), 0);
    EXPECT_EQ(acquired, 7u);
    EXPECT_EQ(remaining, 9u);
    EXPECT_EQ(statsOf(session, kFifo).elementsAcquired, 0u) << "nothing was lent for real";
}

}  // namespace
