// Quorvane_GetResources: names copied into the Host's array, handle bits, and what the array
// holds after each way the enumeration can end.
#include <string>
#include <vector>

#include "Quorvane.h"
#include "resourceTestSupport.h"

// The thread sanitizer keeps shadow memory for the whole of a 16 GiB block (several GiB of it
// resident, a minute of work), which the one test that needs such a block cannot afford there.
#if defined(__SANITIZE_THREAD__)
#define RESOURCE_TESTS_UNDER_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define RESOURCE_TESTS_UNDER_TSAN 1
#endif
#endif

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class ResourceEnumeration : public ResourceTest {
protected:
    // An array the Host filled earlier, so that "untouched" can be told from "emptied".
    static void** prefilledArray() {
        const char* const previous[] = {"old0", "old1"};
        return HostSim_NewStringArray(previous, 2);
    }
    static void expectUntouched(void** array) {
        ASSERT_EQ(dimensionOf(array), 2);
        EXPECT_THAT(elementsOf(array, 2), ElementsAre("old0", "old1"));
    }
};

TEST_F(ResourceEnumeration, NamesOfAnyLengthArrive_InOrder_EachInABlockOfItsOwnSize) {
    const std::vector<std::string> names = {"a", "", "RIO0/DMA", std::string(100, 'x'), std::string(5000, 'y'), "z"};
    const uint32_t session = openSessionWith(names);
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), 0);

    ASSERT_EQ(dimensionOf(array), static_cast<int32_t>(names.size()));
    EXPECT_THAT(elementsOf(array, names.size()), ElementsAreArray(named(names)));
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 8) << "an array of handles";
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), names.size());
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, ASessionWithoutResourcesGivesAnEmptyArray) {
    const uint32_t session = openSessionWith({});
    void** array = prefilledArray();
    // The elements the Host had stay in the block but are no longer counted.
    void** old0 = elementHandle(array, 0);
    void** old1 = elementHandle(array, 1);

    EXPECT_EQ(Quorvane_GetResources(session, array), 0);

    EXPECT_EQ(dimensionOf(array), 0);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 0u);
    HostSim_DisposeHandle(old0);
    HostSim_DisposeHandle(old1);
    HostSim_DisposeHandle(array);
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, QueriesGoFirstForTheCountThenForTheIndexesThenForEachName) {
    const uint32_t session = openSessionWith({"p", "q"});
    const size_t callsBefore = BrennSim_CallCount();
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), 0);

    std::vector<std::string> names = callNames();
    names.erase(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(callsBefore));
    EXPECT_THAT(names, ElementsAre("BrennDll_GetSessionIndexes", "BrennDll_GetSessionIndexes",
                                   "BrennDll_GetResourceName", "BrennDll_GetResourceName"));
    const auto queries = callsOf("BrennDll_GetSessionIndexes");
    ASSERT_EQ(queries.size(), 2u);
    EXPECT_EQ(queries[0].args[1], 0u) << "the size query passes no buffer";
    EXPECT_EQ(queries[0].args[2], 0u) << "and a capacity of 0";
    EXPECT_NE(queries[0].args[3], 0u) << "and asks for the count";
    EXPECT_NE(queries[1].args[1], 0u) << "the second call fills a buffer";
    EXPECT_EQ(queries[1].args[2], 2u) << "of the count's capacity";
    EXPECT_EQ(queries[1].args[3], 0u) << "and asks for no count";
    HostSim_DisposeStringArray(array);
}

// Bits 12 to 15 are the caller's flags: the enumeration of a flagged handle is that of the
// plain handle, and the FPGA interface library never sees the flags.
class FlaggedHandle : public ResourceEnumeration, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(FlaggedHandle, IsEnumeratedAsThePlainHandle) {
    const uint32_t session = openSessionWith({"one", "two"});
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session | GetParam(), array), 0);

    EXPECT_THAT(elementsOf(array, static_cast<size_t>(dimensionOf(array))), ElementsAre("one", "two"));
    for (const auto& query : callsOf("BrennDll_GetSessionIndexes")) EXPECT_EQ(query.args[0], session);
    HostSim_DisposeStringArray(array);
}

INSTANTIATE_TEST_SUITE_P(FlagBits, FlaggedHandle, ::testing::Values(0x1000u, 0x4000u, 0x8000u, 0xD000u));

TEST_F(ResourceEnumeration, RefusedHandleIsAnsweredWithoutCallingAnyone) {
    const uint32_t session = openSessionWith({"one"});
    const size_t callsBefore = BrennSim_CallCount();
    void** array = prefilledArray();

    for (uint32_t flags : {0x2000u, 0x3000u, 0xF000u}) {
        EXPECT_EQ(Quorvane_GetResources(session | flags, array), -61499) << std::hex << flags;
    }

    EXPECT_EQ(BrennSim_CallCount(), callsBefore);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    expectUntouched(array);
    HostSim_DisposeStringArray(array);
}

TEST_F(ResourceEnumeration, NullArrayHandleOrBlockIsAnInvalidArgumentAndCallsNoOne) {
    const uint32_t session = openSessionWith({"one"});
    const size_t callsBefore = BrennSim_CallCount();
    void* noBlock = nullptr;

    EXPECT_EQ(Quorvane_GetResources(session, nullptr), -52005);
    EXPECT_EQ(Quorvane_GetResources(session, &noBlock), -52005);
    EXPECT_EQ(Quorvane_GetResources(session | 0x2000, nullptr), -61499) << "the refusal comes first";

    EXPECT_EQ(BrennSim_CallCount(), callsBefore);
    EXPECT_EQ(noBlock, nullptr);
    expectNothingLeaked();
}

// Whatever the size query answers besides -63080 ends the enumeration with the Host's array
// as it was.
class SizeQueryAnswer : public ResourceEnumeration, public ::testing::WithParamInterface<int32_t> {};

TEST_P(SizeQueryAnswer, IsReturnedWithTheArrayUntouched) {
    scriptAnswer("BrennDll_GetSessionIndexes", GetParam(), {4});
    void** array = prefilledArray();

    EXPECT_EQ(Quorvane_GetResources(0x42, array), GetParam());

    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), 1u);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    expectUntouched(array);
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

INSTANTIATE_TEST_SUITE_P(AnythingButTheSizeAnswer, SizeQueryAnswer,
                         ::testing::Values(0, 5, -1, -63100, -63081, -52000));

TEST_F(ResourceEnumeration, FailedFillingCallEmptiesTheArrayAndWinsOverALaterResizeFailure) {
    for (int32_t fillAnswer : {-88, -63080}) {
        SCOPED_TRACE(fillAnswer);
        scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
        scriptAnswer("BrennDll_GetSessionIndexes", fillAnswer);
        HostSim_FailNext("NumericArrayResize", 2);
        void** array = prefilledArray();

        EXPECT_EQ(Quorvane_GetResources(0x42, array), fillAnswer) << "the first error stays";

        EXPECT_EQ(dimensionOf(array), 0);
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
        disposeArray(array);
        BrennSim_Reset();
        HostSim_Reset();
    }
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, FailedFillingCallStillSizesTheArrayToTheCount) {
    scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
    scriptAnswer("BrennDll_GetSessionIndexes", -88);
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(0x42, array), -88);

    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(capacityOf(array), 3u) << "resized to the count";
    EXPECT_EQ(dimensionOf(array), 0) << "but counted as empty";
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 0u);
    disposeArray(array);
    expectNothingLeaked();
}

struct ResizeFailure {
    int32_t hostResult;
    int32_t status;
};

class FailedResize : public ResourceEnumeration, public ::testing::WithParamInterface<ResizeFailure> {};

TEST_P(FailedResize, GivesTheConvertedCodeAndAnEmptyArray) {
    const uint32_t session = openSessionWith({"one", "two"});
    HostSim_FailNext("NumericArrayResize", GetParam().hostResult);
    void** array = prefilledArray();

    EXPECT_EQ(Quorvane_GetResources(session, array), GetParam().status);

    EXPECT_EQ(dimensionOf(array), 0);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 0u);
    disposeArray(array);
    expectNothingLeaked();
}

INSTANTIATE_TEST_SUITE_P(HostResults, FailedResize,
                         ::testing::Values(ResizeFailure{2, -52000}, ResizeFailure{41, -50405},
                                           ResizeFailure{1, -52003}, ResizeFailure{-7, -52003}));

TEST_F(ResourceEnumeration, CountBeyond32BitsIsAnInvalidArgumentWithAnEmptyArray) {
#ifdef RESOURCE_TESTS_UNDER_TSAN
    GTEST_SKIP() << "needs a 16 GiB index buffer, too costly under the thread sanitizer";
#endif
    // Its low 32 bits are 2, so the array is resized to 2 elements, yet counted as empty.
    // The index buffer of this count (16 GiB) is allocated but never touched.
    scriptAnswer("BrennDll_GetSessionIndexes", -63080, {0x100000002ull});
    scriptAnswer("BrennDll_GetSessionIndexes", 0);
    void** array = prefilledArray();

    EXPECT_EQ(Quorvane_GetResources(0x42, array), -52005);

    EXPECT_EQ(dimensionOf(array), 0);
    EXPECT_EQ(capacityOf(array), 2u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 0u);
    disposeArray(array);
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, CountWhoseBufferSizeWouldWrapFailsAsMemoryBeforeTheFillingCall) {
    // count × 4 wraps around to 4 bytes: a request that must fail, not give a short buffer.
    for (uint64_t count : std::initializer_list<uint64_t>{0x4000000000000001ull, 0x1FC0000000000001ull, UINT64_MAX}) {
        SCOPED_TRACE(count);
        scriptAnswer("BrennDll_GetSessionIndexes", -63080, {count});
        void** array = prefilledArray();

        EXPECT_EQ(Quorvane_GetResources(0x42, array), -52000);

        EXPECT_EQ(BrennSim_ScriptsPending(nullptr), 0u);
        expectUntouched(array);
        HostSim_DisposeStringArray(array);
    }
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), 3u) << "no filling call";
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, FailedNameStopsAtItsElementAndKeepsTheCount) {
    const uint32_t session = openSessionWith({"first", "second", "third"});
    scriptAnswer("BrennDll_GetResourceName", 0, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_GetResourceName", -99);
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), -99);

    ASSERT_EQ(dimensionOf(array), 3);
    EXPECT_THAT(elementsOf(array, 3), ElementsAre("first", std::nullopt, std::nullopt));
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 2u);
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, NameLeftNullWithoutErrorIsAnInvalidArgumentAtItsElement) {
    const uint32_t session = openSessionWith({"first", "second", "third"});
    scriptAnswer("BrennDll_GetResourceName", 0, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_GetResourceName", 0);  // replaces the work: no name is written
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), -52005);

    ASSERT_EQ(dimensionOf(array), 3);
    EXPECT_THAT(elementsOf(array, 3), ElementsAre("first", std::nullopt, std::nullopt));
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, MissingHostHandleForAStringStopsAtThatElement) {
    // 0: no handle at all; 1: a handle without a block. Either way nothing is stored.
    for (int32_t injected : {0, 1}) {
        SCOPED_TRACE(injected);
        const uint32_t session = openSessionWith({"first", "second"});
        HostSim_FailNext("DSNewHandle", injected);
        void** array = HostSim_NewStringArray(nullptr, 0);

        EXPECT_EQ(Quorvane_GetResources(session, array), -52000);

        ASSERT_EQ(dimensionOf(array), 2);
        EXPECT_THAT(elementsOf(array, 2), ElementsAre(std::nullopt, std::nullopt));
        EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 1u);
        HostSim_DisposeStringArray(array);
        HostSim_Reset();
    }
    EXPECT_EQ(heap::liveBlocks(), blocksAtStart_);
}

TEST_F(ResourceEnumeration, WarningOfAnyStepSurvivesAndTheNamesAreAllStored) {
    struct Case {
        const char* function;
        int32_t warning;
    };
    for (const Case& warning : {Case{"BrennDll_GetSessionIndexes", 6}, Case{"BrennDll_GetResourceName", 7}}) {
        SCOPED_TRACE(warning.function);
        const uint32_t session = openSessionWith({"first", "second", "third"});
        // The size query is answered by the target itself; a warning rides on the filling
        // call, or on the name of the second index.
        if (std::string(warning.function) == "BrennDll_GetSessionIndexes") {
            scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
        } else {
            scriptAnswer("BrennDll_GetResourceName", 0, {}, kBrennSimAfterReal);
        }
        scriptAnswer(warning.function, warning.warning, {}, kBrennSimAfterReal);
        void** array = HostSim_NewStringArray(nullptr, 0);

        EXPECT_EQ(Quorvane_GetResources(session, array), warning.warning);

        ASSERT_EQ(dimensionOf(array), 3);
        EXPECT_THAT(elementsOf(array, 3), ElementsAre("first", "second", "third"));
        HostSim_DisposeStringArray(array);
        BrennSim_Reset();
    }
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, FirstWarningStaysAndALaterErrorReplacesIt) {
    const uint32_t session = openSessionWith({"first", "second", "third"});
    scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
    scriptAnswer("BrennDll_GetSessionIndexes", 6, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_GetResourceName", 7, {}, kBrennSimAfterReal);
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), 6) << "a later warning never replaces the first";
    HostSim_DisposeStringArray(array);

    scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
    scriptAnswer("BrennDll_GetSessionIndexes", 6, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_GetResourceName", 0, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_GetResourceName", 0, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_GetResourceName", -5);
    array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), -5);
    EXPECT_THAT(elementsOf(array, 3), ElementsAre("first", "second", std::nullopt));
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
