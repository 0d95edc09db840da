// Adding resources, resource indexes, names and peer-to-peer endpoints: what each export hands
// the FPGA interface library, and what comes back from it.
#include <tuple>
#include <utility>

#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

using AddResources = ResourceTest;
using ResourceIndexes = ResourceTest;

// The simulated target reads each name up to its NUL: a copy without one would be read past
// its end, which the address sanitizer reports. An embedded NUL ends the name.
TEST_F(AddResources, CopiesOfTheHostStringsReachTheLibraryAsNames) {
    const uint32_t session = openSessionWith({});
    const void* arg3 = &session;
    const void* arg4 = &arg3;
    EXPECT_EQ(Quorvane_AddResources(session, hostStrings({"ab", "", "xyz", std::string("a\0c", 3)}), arg3, arg4), 0);
    const BrennSimCall call = callsOf("BrennDll_AddResources").back();
    EXPECT_EQ(call.args[2], reinterpret_cast<uintptr_t>(arg3)) << "passed on unchanged, in order";
    EXPECT_EQ(call.args[3], reinterpret_cast<uintptr_t>(arg4));
    void** listed = hostStrings({});
    EXPECT_EQ(Quorvane_GetResources(session, listed), 0);
    EXPECT_THAT(elementsOf(listed), ::testing::ElementsAre("ab", "", "xyz", "a"));

    EXPECT_EQ(Quorvane_AddResources(session, hostStrings({}), nullptr, nullptr), 0);
    EXPECT_EQ(callsOf("BrennDll_AddResources").back().args[1], 0u) << "no list for an empty array";
}

// No bit of the handle is refused or cleared, and a warning of the library comes back as given.
TEST_F(AddResources, HandleAndAnswerArePassedThroughUnchanged) {
    scriptAnswer("BrennDll_AddResources", 9);
    EXPECT_EQ(Quorvane_AddResources(0xF042, hostStrings({"one"}), nullptr, nullptr), 9);
    EXPECT_EQ(callsOf("BrennDll_AddResources").back().args[0], 0xF042u);
}

TEST_F(AddResources, MissingArrayStringOrLengthIsAnInvalidArgumentAndNothingIsPassedOn) {
    void* noBlock = nullptr;
    EXPECT_EQ(Quorvane_AddResources(0x42, nullptr, nullptr, nullptr), -52005);
    EXPECT_EQ(Quorvane_AddResources(0x42, &noBlock, nullptr, nullptr), -52005);
    void** array = hostStrings({"one", "two"});
    const int32_t negative = -3;
    std::memcpy(*elementHandle(array, 1), &negative, sizeof negative);
    EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), -52005) << "a negative length";
    setElement(array, 1, &noBlock);
    EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), -52005) << "a string without a block";
    setElement(array, 1, nullptr);
    EXPECT_EQ(Quorvane_AddResources(0x42, array, nullptr, nullptr), -52005) << "no string";
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_AddResources"), 0u);
}

// An index is no session handle: no bit of it is refused, and the answer comes back as given.
TEST_F(ResourceIndexes, IndexIsTheOneTheLibraryIssuesAndNameAndReleasePassThrough) {
    Quorvane_GetResourceIndex("RIO0/A");
    const uint32_t index = Quorvane_GetResourceIndex("RIO0/B");
    const char* name = nullptr;
    EXPECT_EQ(Quorvane_GetResourceName(index, &name), 0);
    EXPECT_STREQ(name, "RIO0/B");
    Quorvane_ReleaseResourceIndex(index);
    EXPECT_EQ(callsOf("BrennDll_ReleaseResourceIndex").at(0).args[0], index);

    scriptAnswer("BrennDll_GetResourceName", 9);
    EXPECT_EQ(Quorvane_GetResourceName(0x2000, &name), 9);
    EXPECT_EQ(callsOf("BrennDll_GetResourceName").back().args[0], 0x2000u);
}

// A warning still gives the index written, an error the invalid index, a success that wrote
// none zero.
TEST_F(ResourceIndexes, AnswerDecidesWhetherTheWrittenIndexIsGiven) {
    using Case = std::tuple<int32_t, std::vector<uint64_t>, uint32_t>;
    for (const auto& [answer, written, index] : {Case{4, {5}, 5u}, Case{-17, {5}, 0xFFFFFFFFu}, Case{0, {}, 0u}}) {
        scriptAnswer("BrennDll_GetResourceIndex", answer, written);
        EXPECT_EQ(Quorvane_GetResourceIndex("x"), index) << answer;
    }
}

TEST_F(ResourceIndexes, PeerToPeerEndpointRefusesTheRefusedBitAndMarksTheCall) {
    uint32_t endpoint = 0;
    EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(0x2042, 1, &endpoint), -61499);
    EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(0xF042, 1, &endpoint), -61499);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetPeerToPeerFifoEndpoint"), 0u);
    for (auto [handle, passed] :
         std::initializer_list<std::pair<uint32_t, uint32_t>>{{0x42, 0x4042}, {0x4042, 0x4042}, {0x9042, 0xD042}}) {
        scriptAnswer("BrennDll_GetPeerToPeerFifoEndpoint", 3);
        EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(handle, 5, &endpoint), 3);
        const BrennSimCall call = callsOf("BrennDll_GetPeerToPeerFifoEndpoint").back();
        EXPECT_EQ(call.args[0], passed) << std::hex << handle;
        EXPECT_EQ(call.args[1], 5u);
        EXPECT_EQ(call.args[2], reinterpret_cast<uintptr_t>(&endpoint));
    }
}

}  // namespace
}  // namespace quorvane::testing
