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

// The simulated target reads each name up to its NUL: a copy without one would be read past
// its end, which the address sanitizer reports. An embedded NUL ends the name.
TEST_F(AddResources, CopiesOfTheHostStringsReachTheLibraryAsNames) {
    uint32_t session = openSessionWith({});
    void** array = hostStrings({"ab", "", "xyz", std::string("a\0c", 3)});
    const void* arg3 = &session;
    const void* arg4 = &array;

    EXPECT_EQ(Quorvane_AddResources(session, array, arg3, arg4), 0);

    const auto calls = callsOf("BrennDll_AddResources");
    ASSERT_EQ(calls.size(), 2u) << "the fixture's own call, then the export's";
    EXPECT_EQ(calls[1].args[0], session);
    EXPECT_NE(calls[1].args[1], 0u);
    EXPECT_EQ(calls[1].args[2], reinterpret_cast<uintptr_t>(arg3)) << "passed on unchanged";
    EXPECT_EQ(calls[1].args[3], reinterpret_cast<uintptr_t>(arg4)) << "in the same order";
    EXPECT_EQ(calls[1].args[4], 4u);
    EXPECT_THAT(resourcesOf(session), ElementsAre("ab", "", "xyz", "a"));
    EXPECT_EQ(dimensionOf(array), 4) << "the Host's array is only read";
    HostSim_DisposeStringArray(array);

    void** empty = HostSim_NewStringArray(nullptr, 0);
    EXPECT_EQ(Quorvane_AddResources(session, empty, nullptr, nullptr), 0);
    EXPECT_EQ(callsOf("BrennDll_AddResources").back().args[1], 0u) << "no pointer array";
    EXPECT_EQ(callsOf("BrennDll_AddResources").back().args[4], 0u);
    HostSim_DisposeStringArray(empty);
    expectNothingLeaked();
}

// No bit of the handle is refused or changed, and the library's answer comes back unchanged.
TEST_F(AddResources, HandleAndAnswerArePassedThroughUnchanged) {
    for (int32_t answer : {0, 9, -1, -52000, -61499, -63100}) {
        for (uint32_t flags : {0x0u, 0x2000u, 0xF000u}) {
            scriptAnswer("BrennDll_AddResources", answer);
            void** array = hostStrings({"one"});
            EXPECT_EQ(Quorvane_AddResources(0x42 | flags, array, nullptr, nullptr), answer) << std::hex << flags;
            EXPECT_EQ(callsOf("BrennDll_AddResources").back().args[0], 0x42u | flags);
            HostSim_DisposeStringArray(array);
        }
    }
    expectNothingLeaked();
}

TEST_F(AddResources, MissingArrayElementOrLengthIsAnInvalidArgumentAndNothingIsPassedOn) {
    void* noBlock = nullptr;
    EXPECT_EQ(Quorvane_AddResources(0x42, nullptr, nullptr, nullptr), -52005);
    EXPECT_EQ(Quorvane_AddResources(0x42, &noBlock, nullptr, nullptr), -52005);

    void** nullElement = HostSim_NewStringArray(std::vector<const char*>{"one", nullptr, "three"}.data(), 3);
    EXPECT_EQ(Quorvane_AddResources(0x42, nullElement, nullptr, nullptr), -52005);
    HostSim_DisposeStringArray(nullElement);

    void** array = hostStrings({"one", "two"});
    void** second = elementHandle(array, 1);
    void* secondBlock = *second;
    *second = nullptr;
    EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), -52005) << "an element without a block";
    *second = secondBlock;
    const int32_t negative = -3;
    std::memcpy(secondBlock, &negative, sizeof negative);
    EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), -52005) << "a negative length";
    HostSim_DisposeStringArray(array);

    EXPECT_EQ(BrennSim_CountCalls("BrennDll_AddResources"), 0u);
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
