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

// The library is asked for the count, then for the indexes, then for each name in order.
TEST_F(ResourceEnumeration, NamesOfAnyLengthArriveInOrderEachInABlockOfItsOwnSize) {
    const std::vector<std::string> names = {"a", "", "RIO0/DMA", std::string(100, 'x'), std::string(5000, 'y'), "z"};
    const uint32_t session = openSessionWith(names);
    const size_t callsBefore = BrennSim_CallCount();
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(session, array), 0);

    ASSERT_EQ(dimensionOf(array), static_cast<int32_t>(names.size()));
    EXPECT_THAT(elementsOf(array, names.size()), ElementsAreArray(named(names)));
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 8) << "an array of handles";
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), names.size());
    std::vector<std::string> calls = callNames();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(callsBefore));
    ASSERT_EQ(calls.size(), 2 + names.size());
    EXPECT_THAT(std::vector<std::string>(calls.begin(), calls.begin() + 3),
                ElementsAre("BrennDll_GetSessionIndexes", "BrennDll_GetSessionIndexes", "BrennDll_GetResourceName"));
    const auto queries = callsOf("BrennDll_GetSessionIndexes");
    ASSERT_EQ(queries.size(), 2u);
    // The size query passes no buffer and asks for the count; the second call fills a buffer
    // of the count's capacity and asks for no count.
    EXPECT_EQ(queries[0].args[0], session);
    EXPECT_EQ(queries[0].args[1], 0u);
    EXPECT_EQ(queries[0].args[2], 0u);
    EXPECT_NE(queries[0].args[3], 0u);
    EXPECT_NE(queries[1].args[1], 0u);
    EXPECT_EQ(queries[1].args[2], names.size());
    EXPECT_EQ(queries[1].args[3], 0u);
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(ResourceEnumeration, ASessionWithoutResourcesGivesAnEmptyArray) {
    const uint32_t session = openSessionWith({});
    void** array = prefilledArray();
    // The resize to no elements drops the Host's old elements from the block without
    // disposing of them.
    void* old[] = {elementHandle(array, 0), elementHandle(array, 1)};
    EXPECT_EQ(Quorvane_GetResources(session, array), 0);
    EXPECT_EQ(dimensionOf(array), 0);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 0u);
    for (void* element : old) HostSim_DisposeHandle(static_cast<void**>(element));
    HostSim_DisposeHandle(array);
    expectNothingLeaked();
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

TEST_F(ResourceEnumeration, RefusedHandleOrMissingArrayIsAnsweredWithoutCallingAnyone) {
    const uint32_t session = openSessionWith({"one"});
    const size_t callsBefore = BrennSim_CallCount();
    void** array = prefilledArray();
    void* noBlock = nullptr;

    for (uint32_t flags : {0x2000u, 0x3000u, 0xF000u})
        EXPECT_EQ(Quorvane_GetResources(session | flags, array), -61499) << std::hex << flags;
    EXPECT_EQ(Quorvane_GetResources(session, nullptr), -52005);
    EXPECT_EQ(Quorvane_GetResources(session, &noBlock), -52005);
    EXPECT_EQ(Quorvane_GetResources(session | 0x2000, nullptr), -61499) << "the refusal comes first";

    EXPECT_EQ(BrennSim_CallCount(), callsBefore);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(noBlock, nullptr);
    expectUntouched(array);
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

// How an enumeration ends when the size query, the filling call or the resize of the Host's
// array fails. A size query answering anything but -63080 leaves the array as it was; after
// that the array is resized to the count (unless the resize fails) but counted as empty, and
// the first error stays.
struct EnumerationFailure {
    const char* name;
    int32_t sizeAnswer;
    int32_t fillAnswer;
    int32_t resizeResult;
    int32_t status;
};

void PrintTo(const EnumerationFailure& c, std::ostream* out) {
    *out << c.name;
}

class EnumerationFailureTable : public ResourceEnumeration, public ::testing::WithParamInterface<EnumerationFailure> {};

TEST_P(EnumerationFailureTable, EndsWithTheFirstErrorAndTheArrayUntouchedOrEmpty) {
    const EnumerationFailure& c = GetParam();
    const bool sized = c.sizeAnswer == -63080;
    scriptAnswer("BrennDll_GetSessionIndexes", c.sizeAnswer, {3});
    if (sized) scriptAnswer("BrennDll_GetSessionIndexes", c.fillAnswer);
    if (c.resizeResult != 0) HostSim_FailNext("NumericArrayResize", c.resizeResult);
    void** array = prefilledArray();

    EXPECT_EQ(Quorvane_GetResources(0x42, array), c.status);

    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetSessionIndexes"), sized ? 2u : 1u);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 0u);
    if (!sized) {
        EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
        expectUntouched(array);
    } else {
        EXPECT_EQ(dimensionOf(array), 0);
        EXPECT_EQ(capacityOf(array), c.resizeResult != 0 ? 2u : 3u);
    }
    disposeArray(array);
    expectNothingLeaked();
}

INSTANTIATE_TEST_SUITE_P(
    Table, EnumerationFailureTable,
    ::testing::Values(EnumerationFailure{"SizeSuccess", 0, 0, 0, 0}, EnumerationFailure{"SizeWarning", 5, 0, 0, 5},
                      EnumerationFailure{"SizeOtherLibraryError", -63100, 0, 0, -63100},
                      EnumerationFailure{"SizeNeighbourCode", -63081, 0, 0, -63081},
                      EnumerationFailure{"SizeMemoryFull", -52000, 0, 0, -52000},
                      EnumerationFailure{"FillError", -63080, -88, 0, -88},
                      EnumerationFailure{"FillSizeAnswer", -63080, -63080, 0, -63080},
                      EnumerationFailure{"FillErrorBeforeResizeFailure", -63080, -88, 2, -88},
                      EnumerationFailure{"FillSizeAnswerBeforeResizeFailure", -63080, -63080, 2, -63080},
                      EnumerationFailure{"ResizeNegativeHostError", -63080, 0, -7, -52003}),
    [](const auto& info) { return std::string(info.param.name); });

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

// A failed name query, or one that succeeds without writing a name, stops at its element.
TEST_F(ResourceEnumeration, FailedOrMissingNameStopsAtItsElementAndKeepsTheCount) {
    struct Case {
        int32_t answer;
        int32_t status;
    };
    for (const Case& c : {Case{-99, -99}, Case{0, -52005}}) {
        SCOPED_TRACE(c.answer);
        const uint32_t session = openSessionWith({"first", "second", "third"});
        scriptAnswer("BrennDll_GetResourceName", 0, {}, kBrennSimAfterReal);
        scriptAnswer("BrennDll_GetResourceName", c.answer);
        void** array = HostSim_NewStringArray(nullptr, 0);

        EXPECT_EQ(Quorvane_GetResources(session, array), c.status);

        ASSERT_EQ(dimensionOf(array), 3);
        EXPECT_THAT(elementsOf(array, 3), ElementsAre("first", std::nullopt, std::nullopt));
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 2u);
        HostSim_DisposeStringArray(array);
        BrennSim_Reset();
    }
    expectNothingLeaked();
}

// A warning of the filling call or of a name survives with every name stored; the first
// warning stays over a later one, and a later error replaces it.
TEST_F(ResourceEnumeration, WarningsSurviveUnlessALaterErrorReplacesThem) {
    struct Case {
        int32_t indexesWarning;
        int32_t nameAnswers[3];
        int32_t status;
        size_t stored;
    };
    for (const Case& c :
         {Case{6, {0, 0, 0}, 6, 3}, Case{0, {0, 7, 0}, 7, 3}, Case{6, {7, 0, 0}, 6, 3}, Case{6, {0, 0, -5}, -5, 2}}) {
        SCOPED_TRACE(c.status);
        const uint32_t session = openSessionWith({"first", "second", "third"});
        scriptAnswer("BrennDll_GetSessionIndexes", -63080, {3});
        scriptAnswer("BrennDll_GetSessionIndexes", c.indexesWarning, {}, kBrennSimAfterReal);
        for (int32_t answer : c.nameAnswers) {
            if (answer < 0)
                scriptAnswer("BrennDll_GetResourceName", answer);
            else
                scriptAnswer("BrennDll_GetResourceName", answer, {}, kBrennSimAfterReal);
        }
        void** array = HostSim_NewStringArray(nullptr, 0);

        EXPECT_EQ(Quorvane_GetResources(session, array), c.status);

        ASSERT_EQ(dimensionOf(array), 3);
        const std::vector<HostElement> all = {"first", "second", "third"};
        std::vector<HostElement> expected(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(c.stored));
        expected.resize(3);
        EXPECT_EQ(elementsOf(array, 3), expected);
        HostSim_DisposeStringArray(array);
        BrennSim_Reset();
    }
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
