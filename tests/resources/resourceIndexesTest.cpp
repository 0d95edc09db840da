// Resource indexes, resource names and peer-to-peer endpoints: what each export adds to the
// FPGA interface library's call, and what it leaves alone.
#include <vector>

#include "Quorvane.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

class ResourceIndexes : public ResourceTest {};

TEST_F(ResourceIndexes, IndexIsTheOneTheLibraryIssues) {
    const char nameA[] = "RIO0/A";
    const uint32_t first = Quorvane_GetResourceIndex(nameA);
    const uint32_t second = Quorvane_GetResourceIndex("RIO0/B");
    EXPECT_NE(first, 0xFFFFFFFFu);
    EXPECT_NE(first, second);
    EXPECT_EQ(Quorvane_GetResourceIndex("RIO0/A"), first);
    const auto calls = callsOf("BrennDll_GetResourceIndex");
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(nameA)) << "the argument is passed on as it is";

    const char* name = nullptr;
    EXPECT_EQ(Quorvane_GetResourceName(second, &name), 0);
    EXPECT_STREQ(name, "RIO0/B");
}

// A warning still gives the index written; an error gives the invalid index whatever was
// written; success without an index written gives zero.
TEST_F(ResourceIndexes, AnswerDecidesWhetherTheWrittenIndexIsGiven) {
    struct Case {
        int32_t answer;
        std::vector<uint64_t> written;
        uint32_t index;
    };
    for (const Case& c : {Case{4, {5}, 5u}, Case{-17, {5}, 0xFFFFFFFFu}, Case{-17, {0}, 0xFFFFFFFFu},
                          Case{-17, {0xFFFFFFFE}, 0xFFFFFFFFu}, Case{0, {}, 0u}}) {
        scriptAnswer("BrennDll_GetResourceIndex", c.answer, c.written);
        EXPECT_EQ(Quorvane_GetResourceIndex("x"), c.index) << c.answer;
    }
}

// Release drops the library's result; the name query passes every bit and the answer through.
TEST_F(ResourceIndexes, ReleaseAndNameQueryArePassThroughs) {
    const uint32_t index = Quorvane_GetResourceIndex("RIO0/A");
    Quorvane_ReleaseResourceIndex(index);
    scriptAnswer("BrennDll_ReleaseResourceIndex", -3);
    Quorvane_ReleaseResourceIndex(index);
    const auto releases = callsOf("BrennDll_ReleaseResourceIndex");
    ASSERT_EQ(releases.size(), 2u);
    EXPECT_EQ(releases[0].result, 0);
    EXPECT_EQ(releases[0].args[0], index);
    EXPECT_EQ(releases[1].result, -3);

    const char* name = reinterpret_cast<const char*>(0x1);
    scriptAnswer("BrennDll_GetResourceName", -21);
    EXPECT_EQ(Quorvane_GetResourceName(0x2000, &name), -21);
    EXPECT_EQ(name, reinterpret_cast<const char*>(0x1)) << "a scripted answer writes no name";
    const auto names = callsOf("BrennDll_GetResourceName");
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names[0].args[0], 0x2000u);
    EXPECT_EQ(names[0].args[1], reinterpret_cast<uintptr_t>(&name));
}

TEST_F(ResourceIndexes, PeerToPeerEndpointRefusesTheRefusedBitAndMarksTheCall) {
    uint32_t endpoint = 99;
    EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(0x2042, 1, &endpoint), -61499);
    EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(0xF042, 1, &endpoint), -61499);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetPeerToPeerFifoEndpoint"), 0u);
    EXPECT_EQ(endpoint, 99u);

    struct Case {
        uint32_t handle;
        uint32_t passed;
    };
    const uint32_t session = openSessionWith({});
    EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(session, 0, &endpoint), 0) << "a real session is answered";
    EXPECT_EQ(endpoint, 0u);
    for (const Case& c : {Case{0x42, 0x4042}, Case{0x4042, 0x4042}, Case{0x9042, 0xD042}}) {
        scriptAnswer("BrennDll_GetPeerToPeerFifoEndpoint", 3, {77});
        EXPECT_EQ(Quorvane_GetPeerToPeerFifoEndpoint(c.handle, 5, &endpoint), 3);
        EXPECT_EQ(endpoint, 77u);
        const auto call = callsOf("BrennDll_GetPeerToPeerFifoEndpoint").back();
        EXPECT_EQ(call.args[0], c.passed) << std::hex << c.handle;
        EXPECT_EQ(call.args[1], 5u);
        EXPECT_EQ(call.args[2], reinterpret_cast<uintptr_t>(&endpoint));
    }
}

}  // namespace
}  // namespace quorvane::testing
