// Quorvane_AddResources: the Host's strings reach the FPGA interface library as NUL-terminated
// copies, the library's answer comes back unchanged, and nothing of the call outlives it.
#include <string>
#include <vector>

#include "Quorvane.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;

class AddResources : public ResourceTest {
protected:
    // An array of Host strings made from exact byte sequences (embedded NULs allowed).
    static void** hostStrings(const std::vector<std::string>& strings) {
        void** array = HostSim_NewStringArray(nullptr, 0);
        void*** address = &array;
        EXPECT_EQ(NumericArrayResize(8, 1, address, strings.size()), 0);
        for (size_t i = 0; i < strings.size(); ++i) {
            void** element = HostSim_NewString(strings[i].data(), strings[i].size());
            std::memcpy(static_cast<char*>(*array) + 8 + 8 * i, &element, sizeof element);
        }
        return array;
    }
};

TEST_F(AddResources, CopiesOfTwoZeroAndThreeCharactersReachTheLibraryAsNames) {
    uint32_t session = openSessionWith({});
    void** array = hostStrings({"ab", "", "xyz"});
    const void* arg3 = &session;
    const void* arg4 = &array;

    EXPECT_EQ(Quorvane_AddResources(session, array, arg3, arg4), 0);

    const auto calls = callsOf("BrennDll_AddResources");
    ASSERT_EQ(calls.size(), 2u) << "the fixture's own call, then the export's";
    EXPECT_EQ(calls[1].args[0], session);
    EXPECT_NE(calls[1].args[1], 0u);
    EXPECT_EQ(calls[1].args[2], reinterpret_cast<uintptr_t>(arg3)) << "passed on unchanged";
    EXPECT_EQ(calls[1].args[3], reinterpret_cast<uintptr_t>(arg4)) << "in the same order";
    EXPECT_EQ(calls[1].args[4], 3u);
    // The simulated target reads each name up to its NUL: a copy without one would be read
    // past its end, which the address sanitizer reports.
    EXPECT_THAT(resourcesOf(session), ElementsAre("ab", "", "xyz"));
    EXPECT_EQ(dimensionOf(array), 3) << "the Host's array is only read";
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(AddResources, EmbeddedNulEndsTheNameTheLibrarySees) {
    const uint32_t session = openSessionWith({});
    void** array = hostStrings({std::string("a\0c", 3), "tail"});

    EXPECT_EQ(Quorvane_AddResources(session, array, nullptr, nullptr), 0);

    EXPECT_THAT(resourcesOf(session), ElementsAre("a", "tail"));
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(AddResources, EmptyArrayPassesANullListAndACountOfZero) {
    const uint32_t session = openSessionWith({});
    void** array = HostSim_NewStringArray(nullptr, 0);
    scriptAnswer("BrennDll_AddResources", 0, {}, kBrennSimAfterReal);

    EXPECT_EQ(Quorvane_AddResources(session, array, nullptr, nullptr), 0);

    const auto calls = callsOf("BrennDll_AddResources");
    ASSERT_EQ(calls.size(), 2u) << "the fixture's own call, then the export's";
    EXPECT_EQ(calls[1].args[1], 0u) << "no pointer array";
    EXPECT_EQ(calls[1].args[4], 0u);
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

TEST_F(AddResources, AnswerOfTheLibraryIsReturnedUnchanged) {
    for (int32_t answer : {0, 9, -1, -52000, -61499, -63100}) {
        SCOPED_TRACE(answer);
        scriptAnswer("BrennDll_AddResources", answer);
        void** array = hostStrings({"one"});
        EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), answer);
        HostSim_DisposeStringArray(array);
    }
    expectNothingLeaked();
}

TEST_F(AddResources, HandleIsPassedOnWithEveryBitItCarries) {
    for (uint32_t flags : {0x2000u, 0x4000u, 0xF000u}) {
        scriptAnswer("BrennDll_AddResources", 0);
        void** array = hostStrings({"one"});
        EXPECT_EQ(Quorvane_AddResources(0x42 | flags, array, nullptr, nullptr), 0) << "no refusal here";
        EXPECT_EQ(callsOf("BrennDll_AddResources").back().args[0], 0x42u | flags);
        HostSim_DisposeStringArray(array);
    }
}

TEST_F(AddResources, MissingArrayOrElementIsAnInvalidArgumentAndNothingIsPassedOn) {
    void* noBlock = nullptr;
    EXPECT_EQ(Quorvane_AddResources(0x42, nullptr, nullptr, nullptr), -52005);
    EXPECT_EQ(Quorvane_AddResources(0x42, &noBlock, nullptr, nullptr), -52005);

    // A null element handle, and an element whose handle has no block.
    void** nullElement = HostSim_NewStringArray(std::vector<const char*>{"one", nullptr, "three"}.data(), 3);
    EXPECT_EQ(Quorvane_AddResources(0x42, nullElement, nullptr, nullptr), -52005);
    HostSim_DisposeStringArray(nullElement);

    void** emptyElement = hostStrings({"one", "two"});
    void** second = elementHandle(emptyElement, 1);
    void* secondBlock = *second;
    *second = nullptr;
    EXPECT_EQ(Quorvane_AddResources(0x42, emptyElement, nullptr, nullptr), -52005);
    *second = secondBlock;
    HostSim_DisposeStringArray(emptyElement);

    EXPECT_EQ(BrennSim_CountCalls("BrennDll_AddResources"), 0u);
    expectNothingLeaked();
}

TEST_F(AddResources, NegativeStringLengthIsAnInvalidArgument) {
    void** array = hostStrings({"one", "two"});
    const int32_t negative = -3;
    std::memcpy(*elementHandle(array, 1), &negative, sizeof negative);

    EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), -52005);

    EXPECT_EQ(BrennSim_CountCalls("BrennDll_AddResources"), 0u);
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
