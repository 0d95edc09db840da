// Every session-taking function of the simulated target, and what the FIFO, IRQ and resource
// functions answer on an open session.
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "BrennSimFixture.h"

namespace {

using AreaTest = BrennSimTest;

struct SessionCall {
    std::string function;
    // Makes the call with valid arguments apart from the session; returns its status.
    std::function<int32_t(uint32_t session)> call;
};

#define BRENN_FIFO_CALLS(T, t)                                                                                      \
    calls.push_back({"BrennDll_ReadFifo" #T, [](uint32_t s) {                                                       \
                         t data[2];                                                                                 \
                         size_t remaining;                                                                          \
                         return BrennDll_ReadFifo##T(s, 0, data, 2, 0, &remaining);                                 \
                     }});                                                                                           \
    calls.push_back({"BrennDll_WriteFifo" #T, [](uint32_t s) {                                                      \
                         const t data[2] = {};                                                                      \
                         size_t remaining;                                                                          \
                         return BrennDll_WriteFifo##T(s, 0, data, 2, 0, &remaining);                                \
                     }});                                                                                           \
    calls.push_back({"BrennDll_AcquireFifoReadElements" #T, [](uint32_t s) {                                        \
                         t* elements;                                                                               \
                         size_t acquired, remaining;                                                                \
                         return BrennDll_AcquireFifoReadElements##T(s, 0, &elements, 2, 0, &acquired, &remaining);  \
                     }});                                                                                           \
    calls.push_back({"BrennDll_AcquireFifoWriteElements" #T, [](uint32_t s) {                                       \
                         t* elements;                                                                               \
                         size_t acquired, remaining;                                                                \
                         return BrennDll_AcquireFifoWriteElements##T(s, 0, &elements, 2, 0, &acquired, &remaining); \
                     }});

std::vector<SessionCall> sessionCalls() {
    std::vector<SessionCall> calls = {
        {"BrennDll_OpenResource",
         [](uint32_t s) {
             uint32_t h;
             return BrennDll_OpenResource(s, "r", 0, &h);
         }},
        {"BrennDll_Close", [](uint32_t s) { return BrennDll_Close(s, 0); }},
        {"BrennDll_ReserveIrqContext", [](uint32_t s) { return BrennDll_ReserveIrqContext(s, nullptr); }},
        {"BrennDll_Reset", [](uint32_t s) { return BrennDll_Reset(s); }},
        {"BrennDll_Download", [](uint32_t s) { return BrennDll_Download(s); }},
        {"BrennDll_Run", [](uint32_t s) { return BrennDll_Run(s, 0); }},
        {"BrennDll_Abort", [](uint32_t s) { return BrennDll_Abort(s); }},
        {"BrennDll_ReadU16",
         [](uint32_t s) {
             uint16_t v;
             return BrennDll_ReadU16(s, 0, &v);
         }},
        {"BrennDll_ReadU32",
         [](uint32_t s) {
             uint32_t v;
             return BrennDll_ReadU32(s, 0, &v);
         }},
        {"BrennDll_ReadU64",
         [](uint32_t s) {
             uint64_t v;
             return BrennDll_ReadU64(s, 0, &v);
         }},
        {"BrennDll_WriteU16", [](uint32_t s) { return BrennDll_WriteU16(s, 0, 1); }},
        {"BrennDll_WriteU32", [](uint32_t s) { return BrennDll_WriteU32(s, 0, 1); }},
        {"BrennDll_WriteU64", [](uint32_t s) { return BrennDll_WriteU64(s, 0, 1); }},
        {"BrennDll_ReadArrayU32",
         [](uint32_t s) {
             uint32_t a[2];
             return BrennDll_ReadArrayU32(s, 0, a, 2);
         }},
        {"BrennDll_WriteArrayU32",
         [](uint32_t s) {
             const uint32_t a[2] = {1, 2};
             return BrennDll_WriteArrayU32(s, 0, a, 2);
         }},
        {"BrennDll_WaitOnIrqs",
         [](uint32_t s) {
             uint32_t asserted;
             uint8_t timedOut;
             return BrennDll_WaitOnIrqs(s, nullptr, 1, 0, &asserted, &timedOut);
         }},
        {"BrennDll_AcknowledgeIrqs", [](uint32_t s) { return BrennDll_AcknowledgeIrqs(s, 1); }},
        {"BrennDll_ConfigureFifo", [](uint32_t s) { return BrennDll_ConfigureFifo(s, 0, 16); }},
        {"BrennDll_ConfigureFifo2",
         [](uint32_t s) {
             size_t depth;
             return BrennDll_ConfigureFifo2(s, 0, 16, &depth);
         }},
        {"BrennDll_StartFifo", [](uint32_t s) { return BrennDll_StartFifo(s, 0); }},
        {"BrennDll_StopFifo", [](uint32_t s) { return BrennDll_StopFifo(s, 0); }},
        {"BrennDll_ReadFifoComposite",
         [](uint32_t s) {
             char data[6];
             size_t remaining;
             return BrennDll_ReadFifoComposite(s, 0, data, 3, 2, 0, &remaining);
         }},
        {"BrennDll_WriteFifoComposite",
         [](uint32_t s) {
             const char data[6] = {};
             size_t remaining;
             return BrennDll_WriteFifoComposite(s, 0, data, 3, 2, 0, &remaining);
         }},
        {"BrennDll_ReleaseFifoElements", [](uint32_t s) { return BrennDll_ReleaseFifoElements(s, 0, 0); }},
        {"BrennDll_GetSessionIndexes",
         [](uint32_t s) {
             uint32_t indexes[1];
             size_t count;
             return BrennDll_GetSessionIndexes(s, indexes, 1, &count);
         }},
        {"BrennDll_AddResources",
         [](uint32_t s) {
             const char* names[] = {"a"};
             return BrennDll_AddResources(s, names, nullptr, nullptr, 1);
         }},
        {"BrennDll_GetPeerToPeerFifoEndpoint",
         [](uint32_t s) {
             uint32_t endpoint;
             return BrennDll_GetPeerToPeerFifoEndpoint(s, 0, &endpoint);
         }},
    };
    BRENN_FOR_EACH_ELEMENT_TYPE(BRENN_FIFO_CALLS)
    return calls;
}
#undef BRENN_FIFO_CALLS

// Names the case in test listings instead of dumping the object's bytes.
void PrintTo(const SessionCall& call, std::ostream* os) {
    *os << call.function;
}

class SessionCallTest : public BrennSimTest, public ::testing::WithParamInterface<SessionCall> {};

TEST_P(SessionCallTest, UnknownSessionIsRefusedAndLogged) {
    openSession();
    EXPECT_EQ(GetParam().call(kUnknownSession), kBrennSimInvalidSession);
    BrennSimCall call = lastCall();
    EXPECT_EQ(call.function, GetParam().function);
    EXPECT_EQ(call.args[0], kUnknownSession);
    EXPECT_EQ(call.result, kBrennSimInvalidSession);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 1u);
}

TEST_P(SessionCallTest, OpenSessionSucceedsEvenWithFlagBits) {
    uint32_t session = openSession();
    EXPECT_EQ(GetParam().call(session | 0x4000u), 0);
    EXPECT_EQ(lastCall().function, GetParam().function);
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, SessionCallTest, ::testing::ValuesIn(sessionCalls()),
                         [](const auto& info) { return info.param.function; });

// FIFO data, regions and interrupts have their own files: BrennFifoTest.cpp, BrennIrqTest.cpp.

// ---- resources ---------------------------------------------------------------------------

std::vector<std::string> sessionResourceNames(uint32_t session) {
    size_t count = 0;
    EXPECT_EQ(BrennDll_GetSessionIndexes(session, nullptr, 0, &count), kBrennSizeQueryAnswer);
    std::vector<uint32_t> indexes(count);
    EXPECT_EQ(BrennDll_GetSessionIndexes(session, indexes.data(), indexes.size(), nullptr), 0);
    std::vector<std::string> names;
    for (uint32_t index : indexes) {
        const char* name = nullptr;
        EXPECT_EQ(BrennDll_GetResourceName(index, &name), 0);
        names.push_back(name ? name : "<null>");
    }
    return names;
}

TEST_F(AreaTest, AddedResourcesAreListedInOrderWithoutRepeats) {
    uint32_t session = openSession();
    const char* names[] = {"DIO0", "AI", "", "DIO0"};
    ASSERT_EQ(BrennDll_AddResources(session, names, nullptr, nullptr, 4), 0);
    EXPECT_EQ(sessionResourceNames(session), (std::vector<std::string>{"DIO0", "AI", ""}));
    EXPECT_TRUE(sessionResourceNames(openSession()).empty());
}

TEST_F(AreaTest, SizeQueryAnswersWithTheCountWhenTheBufferIsTooSmall) {
    uint32_t session = openSession();
    const char* names[] = {"a", "b"};
    ASSERT_EQ(BrennDll_AddResources(session, names, nullptr, nullptr, 2), 0);
    uint32_t indexes[1] = {0};
    size_t count = 0;
    EXPECT_EQ(BrennDll_GetSessionIndexes(session, indexes, 1, &count), kBrennSizeQueryAnswer);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(indexes[0], 0u);
}

TEST_F(AreaTest, EmptyResourceListIsFetchedWithoutABuffer) {
    uint32_t session = openSession();
    size_t count = 9;
    EXPECT_EQ(BrennDll_GetSessionIndexes(session, nullptr, 0, &count), kBrennSizeQueryAnswer);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(BrennDll_GetSessionIndexes(session, nullptr, 0, nullptr), 0);
}

TEST_F(AreaTest, FetchWithoutABufferIsRefusedWhenThereIsSomethingToFetch) {
    uint32_t session = openSession();
    const char* names[] = {"a"};
    ASSERT_EQ(BrennDll_AddResources(session, names, nullptr, nullptr, 1), 0);
    EXPECT_EQ(BrennDll_GetSessionIndexes(session, nullptr, 4, nullptr), kBrennSimInvalidArgument);
}

TEST_F(AreaTest, ResourceListIsAllOrNothing) {
    uint32_t session = openSession();
    const char* names[] = {"good", nullptr};
    EXPECT_EQ(BrennDll_AddResources(session, names, nullptr, nullptr, 2), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_AddResources(session, nullptr, nullptr, nullptr, 1), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_AddResources(session, nullptr, nullptr, nullptr, 0), 0);
    EXPECT_TRUE(sessionResourceNames(session).empty());
}

TEST_F(AreaTest, ResourceIndexesAreSharedAcrossSessionsAndNamesStayPut) {
    uint32_t a = openSession();
    uint32_t b = openSession();
    const char* names[] = {"RIO0"};
    ASSERT_EQ(BrennDll_AddResources(a, names, nullptr, nullptr, 1), 0);
    ASSERT_EQ(BrennDll_AddResources(b, names, nullptr, nullptr, 1), 0);
    uint32_t index = 0;
    ASSERT_EQ(BrennDll_GetResourceIndex("RIO0", &index), 0);
    EXPECT_NE(index, 0u);
    uint32_t indexOfA = 0;
    ASSERT_EQ(BrennDll_GetSessionIndexes(a, &indexOfA, 1, nullptr), 0);
    EXPECT_EQ(indexOfA, index);

    const char* name = nullptr;
    ASSERT_EQ(BrennDll_GetResourceName(index, &name), 0);
    uint32_t other = 0;
    for (int i = 0; i < 100; ++i) BrennDll_GetResourceIndex(("more" + std::to_string(i)).c_str(), &other);
    EXPECT_STREQ(name, "RIO0");
}

TEST_F(AreaTest, ResourceIndexReleaseMatchesItsGets) {
    uint32_t index = 0;
    ASSERT_EQ(BrennDll_GetResourceIndex("X", &index), 0);
    ASSERT_EQ(BrennDll_GetResourceIndex("X", &index), 0);
    EXPECT_EQ(BrennDll_ReleaseResourceIndex(index), 0);
    EXPECT_EQ(BrennDll_ReleaseResourceIndex(index), 0);
    EXPECT_EQ(BrennDll_ReleaseResourceIndex(index), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_ReleaseResourceIndex(0), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_ReleaseResourceIndex(index + 1), kBrennSimInvalidArgument);
}

TEST_F(AreaTest, ResourceLookupsRefuseMissingPointersAndUnknownIndexes) {
    uint32_t index = 0;
    const char* name = "unchanged";
    EXPECT_EQ(BrennDll_GetResourceIndex(nullptr, &index), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_GetResourceIndex("X", nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennDll_GetResourceName(42, &name), kBrennSimInvalidArgument);
    EXPECT_STREQ(name, "unchanged");
    EXPECT_EQ(BrennDll_GetResourceName(0, nullptr), kBrennSimInvalidArgument);
}

TEST_F(AreaTest, PeerToPeerEndpointIsZeroForNow) {
    uint32_t session = openSession();
    uint32_t endpoint = 7;
    ASSERT_EQ(BrennDll_GetPeerToPeerFifoEndpoint(session, 2, &endpoint), 0);
    EXPECT_EQ(endpoint, 0u);
    EXPECT_EQ(BrennDll_GetPeerToPeerFifoEndpoint(session, 2, nullptr), kBrennSimInvalidArgument);
}

}  // namespace
