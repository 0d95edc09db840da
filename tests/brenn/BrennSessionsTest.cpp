// Sessions of the simulated target: handles, close, flag bits, resource sessions and IRQ
// context reservations. (The soak drives the tables from several threads.)
#include <algorithm>
#include <set>
#include <thread>
#include <vector>

#include "BrennSimFixture.h"

namespace {

using SessionTest = BrennSimTest;

TEST_F(SessionTest, OpenIssuesDistinctHandlesWithoutFlagBits) {
    std::set<uint32_t> handles;
    for (int i = 0; i < 5; ++i) {
        uint32_t session = openSession();
        EXPECT_GE(session, 0x10u);
        EXPECT_EQ(session & 0xF000u, 0u);
        EXPECT_EQ(BrennSim_IsSessionOpen(session), 1);
        handles.insert(session);
    }
    EXPECT_EQ(handles.size(), 5u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 5u);
}

TEST_F(SessionTest, HandlesStayFreeOfFlagBitsPastTheFirstFlagBlock) {
    // The 0x1000 boundary is where a plain counter would first set a flag bit.
    std::set<uint32_t> handles;
    for (int i = 0; i < 0x1100; ++i) {
        uint32_t session = openSession();
        ASSERT_EQ(session & 0xF000u, 0u) << std::hex << session;
        handles.insert(session);
    }
    EXPECT_EQ(handles.size(), 0x1100u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0x1100u);
}

TEST_F(SessionTest, OpenWithoutSessionPointerIsRefused) {
    EXPECT_EQ(BrennDll_Open("a", "b", "c", 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(SessionTest, OpenAcceptsNullNames) {
    uint32_t session = 0;
    EXPECT_EQ(BrennDll_Open(nullptr, nullptr, nullptr, 7, &session), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 1);
}

TEST_F(SessionTest, CloseEndsTheSessionOnce) {
    uint32_t first = openSession();
    uint32_t second = openSession();
    EXPECT_EQ(BrennDll_Close(first, 0), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(first), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(second), 1);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 1u);
    EXPECT_EQ(BrennDll_Close(first, 0), kBrennSimInvalidSession);
    uint32_t value = 0;
    EXPECT_EQ(BrennDll_ReadU32(first, 0, &value), kBrennSimInvalidSession);
}

TEST_F(SessionTest, CloseOfAHandleNeverOpenedIsRefused) {
    EXPECT_EQ(BrennDll_Close(kUnknownSession, 1), kBrennSimInvalidSession);
    EXPECT_EQ(BrennDll_Close(0, 1), kBrennSimInvalidSession);
}

TEST_F(SessionTest, ClosedHandlesAreIssuedAgainOnlyWithReuseOn) {
    uint32_t closed = openSession();
    ASSERT_EQ(BrennDll_Close(closed, 0), 0);
    EXPECT_NE(openSession(), closed);

    BrennSim_ReuseHandles(1);
    const uint32_t a = openSession(), b = openSession(), c = openSession();
    ASSERT_EQ(BrennDll_Close(c, 0), 0);
    ASSERT_EQ(BrennDll_Close(a, 0), 0);
    EXPECT_EQ(a, closed) << "the lowest handle that is not open comes first";
    EXPECT_EQ(openSession(), a);
    EXPECT_EQ(openResource(b), c);

    EXPECT_EQ(BrennDll_Close(a, 0), 0);
    EXPECT_EQ(BrennDll_Close(a, 0), kBrennSimInvalidSession);
    BrennSimSessionStats stats{};
    BrennSim_GetSessionStats(&stats);
    EXPECT_EQ(stats.opened, 7u);
    EXPECT_EQ(stats.closed, 4u);
    EXPECT_EQ(stats.closesNotOpen, 1u);
}

class SessionFlagTest : public BrennSimTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(SessionFlagTest, LookupIgnoresTheFlag) {
    uint32_t session = openSession();
    uint32_t flagged = session | GetParam();
    EXPECT_EQ(BrennSim_IsSessionOpen(flagged), 1);

    ASSERT_EQ(BrennDll_WriteU32(flagged, 0x20, 0xCAFEu), 0);
    uint32_t value = 0;
    ASSERT_EQ(BrennDll_ReadU32(session, 0x20, &value), 0);
    EXPECT_EQ(value, 0xCAFEu);

    uint32_t resource = openResource(flagged);
    EXPECT_EQ(BrennSim_ParentSession(resource | GetParam()), session);

    EXPECT_EQ(BrennDll_Close(flagged, 0), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(session), 0);
}

INSTANTIATE_TEST_SUITE_P(EveryFlag, SessionFlagTest, ::testing::Values(0x1000u, 0x2000u, 0x4000u, 0x8000u, 0xF000u));

TEST_F(SessionTest, ResourceSessionIsASessionOfItsOwnLinkedToItsParent) {
    uint32_t parent = openSession();
    uint32_t resource = openResource(parent, "DIO");
    EXPECT_NE(resource, parent);
    EXPECT_EQ(resource & 0xF000u, 0u);
    EXPECT_EQ(BrennSim_IsSessionOpen(resource), 1);
    EXPECT_EQ(BrennSim_ParentSession(resource), parent);
    EXPECT_EQ(BrennSim_ParentSession(parent), 0u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 2u);
}

TEST_F(SessionTest, ResourceSessionNeedsAnOpenParent) {
    uint32_t resource = 0x55;
    EXPECT_EQ(BrennDll_OpenResource(kUnknownSession, "DIO", 0, &resource), kBrennSimInvalidSession);
    EXPECT_EQ(resource, 0x55u);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(SessionTest, ResourceSessionWithoutHandlePointerIsRefused) {
    uint32_t parent = openSession();
    EXPECT_EQ(BrennDll_OpenResource(parent, "DIO", 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 1u);
}

TEST_F(SessionTest, ClosingTheParentLeavesResourceSessionsOpen) {
    uint32_t parent = openSession();
    uint32_t resource = openResource(parent);
    ASSERT_EQ(BrennDll_Close(parent, 1), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(resource), 1);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 1u);
    EXPECT_EQ(BrennDll_Close(resource, 1), 0);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(SessionTest, ClosingAResourceSessionLeavesTheParentOpen) {
    uint32_t parent = openSession();
    uint32_t resource = openResource(parent);
    ASSERT_EQ(BrennDll_Close(resource, 1), 0);
    EXPECT_EQ(BrennSim_IsSessionOpen(parent), 1);
    EXPECT_EQ(BrennSim_ParentSession(resource), 0u);
}

TEST_F(SessionTest, IrqContextReservationsAreCountedPerSession) {
    uint32_t session = openSession();
    uint32_t other = openSession();
    void* first = nullptr;
    void* second = nullptr;
    EXPECT_EQ(BrennDll_ReserveIrqContext(session, &first), 0);
    EXPECT_EQ(BrennDll_ReserveIrqContext(session, &second), 0);
    EXPECT_EQ(BrennDll_ReserveIrqContext(session | 0x4000u, nullptr), 0);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(BrennSim_IrqContextsReserved(session), 3u);
    EXPECT_EQ(BrennSim_IrqContextsReserved(other), 0u);

    EXPECT_EQ(BrennDll_ReserveIrqContext(kUnknownSession, nullptr), kBrennSimInvalidSession);
    EXPECT_EQ(BrennSim_IrqContextsReserved(kUnknownSession), 0u);
    ASSERT_EQ(BrennDll_Close(session, 0), 0);
    EXPECT_EQ(BrennSim_IrqContextsReserved(session), 0u);
}

}  // namespace
