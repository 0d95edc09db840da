// Quorvane_GetResources: names copied into the Host's array, handle bits, what the array holds
// after each way the enumeration can end, and the registry lock it waits for.
#include <algorithm>
#include <array>
#include <chrono>
#include <thread>
#include <tuple>

#include "quarks/synchronization.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

using ResourceEnumeration = ResourceTest;
using ResourceConcurrency = ResourceTest;

// The array the Host hands over is emptied first. Flag bits other than the refused one are the
// caller's: the FPGA interface library never sees them.
TEST_F(ResourceEnumeration, NamesOfAnyLengthArriveInOrderEachInABlockOfItsOwnSize) {
    const std::vector<std::string> lists[] = {
        {}, {"a", "", "RIO0/DMA", std::string(100, 'x'), std::string(5000, 'y'), "z"}};
    for (const auto& names : lists) {
        const uint32_t session = openSessionWith(names);
        void** array = hostStrings({"old0", "old1"});
        EXPECT_EQ(Quorvane_GetResources(session | 0xD000, array), 0);
        EXPECT_EQ(elementsOf(array), std::vector<HostElement>(names.begin(), names.end()));
        EXPECT_EQ(HostSim_LastResizeTypeCode(), 8) << "an array of handles";
    }
    for (const auto& query : callsOf("BrennDll_GetSessionIndexes")) EXPECT_EQ(query.args[0] & 0xF000, 0u);
}

TEST_F(ResourceEnumeration, RefusedHandleOrArrayWithoutBlockIsAnsweredWithoutCallingAnyone) {
    const uint32_t session = openSessionWith({"one"});
    void* noBlock = nullptr;
    for (uint32_t flags : {0x2000u, 0x3000u, 0xF000u}) {
        EXPECT_EQ(Quorvane_GetResources(session | flags, hostStrings({})), -61499) << std::hex << flags;
    }
    EXPECT_EQ(Quorvane_GetResources(session, &noBlock), -52005);
    EXPECT_EQ(Quorvane_GetResources(session | 0x2000, nullptr), -61499) << "the refusal comes first";
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), 0u);
}

// A size query answering anything but -63080 (or a count whose buffer size would wrap) leaves
// the array as it was; after the filling call the array is counted as empty, and the first
// error stays.
TEST_F(ResourceEnumeration, FailureEndsWithTheFirstErrorAndTheArrayUntouchedOrEmpty) {
    using Case = std::tuple<int32_t, uint64_t, int32_t, int32_t, int32_t, bool>;
    const std::vector<HostElement> old = {"old0", "old1"};
    for (auto [sizeAnswer, count, fillAnswer, resizeResult, status, filled] :
         {Case{0, 3, 0, 0, 0, false}, Case{5, 3, 0, 0, 5, false}, Case{-63081, 3, 0, 0, -63081, false},
          Case{-63080, 0x4000000000000001ull, 0, 0, -52000, false}, Case{-63080, 3, -63080, 0, -63080, true},
          Case{-63080, 3, -88, 2, -88, true}}) {
        SCOPED_TRACE(status);
        BrennSim_Reset();
        void** array = hostStrings({"old0", "old1"});
        scriptAnswer("BrennDll_GetSessionIndexes", sizeAnswer, {count});
        scriptAnswer("BrennDll_GetSessionIndexes", fillAnswer);
        if (resizeResult != 0) HostSim_FailNext("NumericArrayResize", resizeResult);

        EXPECT_EQ(Quorvane_GetResources(0x42, array), status);

        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), filled ? 2u : 1u);
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
        EXPECT_EQ(elementsOf(array), filled ? std::vector<HostElement>() : old);
    }
}

// A warning of the filling call or of a name survives with every name stored, the first warning
// over a later one. A failed name query, or one that succeeds without writing a name, stops at
// its element, its error replacing a warning; the array keeps the count.
TEST_F(ResourceEnumeration, NameAnswersDecideTheStatusAndWhereTheNamesStop) {
    constexpr int32_t kNoName = INT32_MIN;
    using Case = std::tuple<int32_t, std::array<int32_t, 3>, int32_t, size_t>;
    for (auto [fillAnswer, nameAnswers, status, stored] :
         {Case{0, {0, -99, 0}, -99, 1}, Case{0, {0, kNoName, 0}, -52005, 1}, Case{6, {0, 0, 0}, 6, 3},
          Case{0, {0, 7, 0}, 7, 3}, Case{6, {7, 0, 0}, 6, 3}, Case{6, {0, 0, -5}, -5, 2}}) {
        SCOPED_TRACE(status);
        BrennSim_Reset();
        const uint32_t session = openSessionWith({"first", "second", "third"});
        scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
        scriptAnswer("BrennDll_GetSessionIndexes", fillAnswer, {}, kBrennSimAfterReal);
        for (int32_t answer : nameAnswers) {
            scriptAnswer("BrennDll_GetResourceName", answer == kNoName ? 0 : answer, {},
                         answer >= 0 ? kBrennSimAfterReal : kBrennSimReplace);
        }
        void** array = hostStrings({});

        EXPECT_EQ(Quorvane_GetResources(session, array), status);

        std::vector<HostElement> expected = {"first", "second", "third"};
        std::fill(expected.begin() + static_cast<std::ptrdiff_t>(stored), expected.end(), std::nullopt);
        EXPECT_EQ(elementsOf(array), expected);
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), std::min<size_t>(stored + 1, 3));
    }
}

TEST_F(ResourceConcurrency, EnumerationWaitsWhileTheRegistryLockIsHeldExclusively) {
    const uint32_t session = openSessionWith({"one"});
    void** array = hostStrings({});
    int32_t status = 1;
    std::thread enumerator;
    {
        tExclusiveLock exclusive(gRegistryLock);
        enumerator = std::thread([&] { status = Quorvane_GetResources(session, array); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), 0u) << "ran under an exclusive holder";
    }
    enumerator.join();
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorvane::testing
