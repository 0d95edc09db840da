// Closes, resets and downloads refused while regions are out, and closes that finish by
// themselves when the last region comes back.
#include <atomic>
#include <string>
#include <thread>

#include "BrennDll.h"
#include "regionTestSupport.h"

namespace quorvane::testing {
namespace {

class DeferredClose : public RegionTest {};

TEST_F(DeferredClose, IdleFifoIsDroppedBusyOneDefersTheCloseUntilItsLastRegion) {
    ASSERT_EQ(Quorvane_StartFifo(session, 1), 0);
    const uint32_t first = acquire(session, 2, 4);
    const uint32_t second = acquire(session, 2, 4);
    EXPECT_EQ(Quorvane_Close(session, 9), -61217);
    EXPECT_TRUE(registered(session));
    EXPECT_EQ(closesOf(session), 0u);
    EXPECT_EQ(fifoStateCount(session), 1u) << "the idle FIFO's state is gone";
    EXPECT_TRUE(closePending(session));
    EXPECT_EQ(HostSim_DeleteReference(second), 0) << "only marked";
    EXPECT_EQ(closesOf(session), 0u);
    EXPECT_EQ(HostSim_DeleteReference(first), 0);
    EXPECT_EQ(closesOf(session), 1u);
    EXPECT_EQ(callsOf("BrennDll_Close").back().args[1], 1u) << "a deferred close uses attribute 1";
    EXPECT_FALSE(registered(session));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

TEST_F(DeferredClose, TwoBusyFifosCloseTheSessionWithTheSecondToEmpty) {
    const uint32_t a = acquire(session, 1, 3);
    const uint32_t b = acquire(session, 2, 3);
    EXPECT_EQ(Quorvane_Close(session, 0), -61217);
    HostSim_DeleteReference(a);
    EXPECT_TRUE(registered(session)) << "the first emptied FIFO's close is refused again";
    HostSim_DeleteReference(b);
    EXPECT_FALSE(registered(session));
    EXPECT_EQ(closesOf(session), 1u);
}

// A close the library runs on its own (the deferred close after the last region, or the
// parent's close with its last resource session) acts only on the session it marked, while
// that session is still registered and still marked. Here the Host closes the session in the
// gap before that close: by retrying its own close, or by stopping the program. The handle
// must reach the driver once, even with a driver that hands closed handles out again.
struct GapCase {
    const char* name;
    bool parentGap;    // the parent closed with its last resource session, else the deferred close
    bool programStop;  // the Host's program stop, else its retried close
};

void PrintTo(const GapCase& c, std::ostream* os) {
    *os << c.name;
}

class CloseInTheGap : public RegionTest, public ::testing::WithParamInterface<GapCase> {
protected:
    void hostCloses(uint32_t handle) {
        if (GetParam().programStop) {
            EXPECT_EQ(HostSim_RunProgramStop(), 1u);
        } else {
            EXPECT_EQ(Quorvane_Close(handle, 0), 0);
        }
    }

    template <class Condition>
    static void waitUntil(Condition condition) {
        while (!condition()) std::this_thread::yield();
    }
};

TEST_P(CloseInTheGap, ReachesTheDriverOncePerHandle) {
    BrennSim_ReuseHandles(1);
    uint32_t resource = 0;
    if (GetParam().parentGap) {
        ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 0);
    }
    const uint32_t reference = acquire(GetParam().parentGap ? resource : session, 1, 4);
    ASSERT_EQ(Quorvane_Close(session, 0), -61217);

    std::thread host;
    if (GetParam().parentGap) {
        // The resource session's close stops in the driver, after it released the registry
        // lock and before it closes the parent; the Host closes the parent meanwhile.
        BrennSim_HoldNext("BrennDll_Close");
        std::thread deleter([&] { HostSim_DeleteReference(reference); });
        waitUntil([] { return BrennSim_HeldCalls("BrennDll_Close") == 1; });
        hostCloses(session);
        BrennSim_Release("BrennDll_Close");
        deleter.join();
    } else {
        // The retirement stops in the driver while it holds the FIFO's queueMutex; the Host's
        // close takes the registry lock and waits for that queue, so it finds it empty and
        // closes before the deferred close gets the registry lock.
        BrennSim_HoldNext("BrennDll_ReleaseFifoElements");
        std::thread deleter([&] { HostSim_DeleteReference(reference); });
        waitUntil([] { return BrennSim_HeldCalls("BrennDll_ReleaseFifoElements") == 1; });
        host = std::thread([&] { hostCloses(session); });
        waitUntil([] { return gRegistryLock.writerActiveForTesting() == 1; });
        BrennSim_Release("BrennDll_ReleaseFifoElements");
        deleter.join();
        host.join();
    }

    BrennSimSessionStats stats{};
    BrennSim_GetSessionStats(&stats);
    EXPECT_EQ(stats.closesNotOpen, 0u);
    EXPECT_EQ(stats.closed, stats.opened);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_FALSE(registered(session));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Gaps, CloseInTheGap,
                         ::testing::Values(GapCase{"DeferredCloseHostRetry", false, false},
                                           GapCase{"DeferredCloseProgramStop", false, true},
                                           GapCase{"ParentCloseHostRetry", true, false},
                                           GapCase{"ParentCloseProgramStop", true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(DeferredClose, RetirementWithoutARefusedCloseClosesNothing) {
    HostSim_DeleteReference(acquire(session, 1, 3));
    EXPECT_TRUE(registered(session));
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Close"), 0u);
}

TEST_F(DeferredClose, ParentWaitsForItsBusyResourceSessionAndClosesWithIt) {
    uint32_t idle = 0, busy = 0;
    ASSERT_EQ(Quorvane_OpenResource(session, "idle", 0, &idle), 0);
    ASSERT_EQ(Quorvane_OpenResource(session, "busy", 0, &busy), 0);
    const uint32_t reference = acquire(busy, 0, 8);

    EXPECT_EQ(Quorvane_Close(session, 5), -61217);
    EXPECT_EQ(closesOf(idle), 1u) << "the idle resource session is closed at once";
    EXPECT_EQ(callsOf("BrennDll_Close").back().args[1], 1u);
    EXPECT_FALSE(registered(idle));
    EXPECT_TRUE(registered(busy));
    EXPECT_TRUE(registered(session));
    EXPECT_EQ(Quorvane_Reset(session), 0) << "a resource session's regions do not block its parent";

    EXPECT_EQ(HostSim_DeleteReference(reference), 0);
    EXPECT_EQ(closesOf(busy), 1u);
    EXPECT_EQ(closesOf(session), 1u);
    EXPECT_FALSE(registered(session));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u) << "the parent's cleanup registration is removed";
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
}

TEST_F(DeferredClose, WithTwoBusyResourceSessionsOnlyTheSecondClosesTheParent) {
    uint32_t first = 0, second = 0;
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &first), 0);
    ASSERT_EQ(Quorvane_OpenResource(session, "b", 0, &second), 0);
    const uint32_t r1 = acquire(first, 0, 1);
    const uint32_t r2 = acquire(second, 0, 1);
    EXPECT_EQ(Quorvane_Close(session, 0), -61217);
    HostSim_DeleteReference(r1);
    EXPECT_EQ(closesOf(first), 1u);
    EXPECT_EQ(closesOf(session), 0u);
    HostSim_DeleteReference(r2);
    EXPECT_EQ(closesOf(second), 1u);
    EXPECT_EQ(closesOf(session), 1u);
}

TEST_F(DeferredClose, ExplicitCloseOfAResourceSessionLeavesTheParentOpen) {
    uint32_t resource = 0;
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 0);
    EXPECT_EQ(Quorvane_Close(resource, 0), 0);
    EXPECT_TRUE(registered(session));
    EXPECT_TRUE(BrennSim_IsSessionOpen(session));
    EXPECT_EQ(Quorvane_Close(session, 0), 0);
    EXPECT_EQ(closesOf(resource), 1u) << "not closed again with its parent";
}

TEST_F(DeferredClose, FailedCloseOfTheResourceSessionLeavesTheDueParentOpen) {
    uint32_t resource = 0;
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 0);
    const uint32_t reference = acquire(resource, 0, 1);
    EXPECT_EQ(Quorvane_Close(session, 0), -61217);
    scriptAnswer("BrennDll_Close", -999);
    EXPECT_EQ(HostSim_DeleteReference(reference), -999);
    EXPECT_TRUE(BrennSim_IsSessionOpen(session));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 1u) << "the parent keeps its cleanup registration";
}

// The last busy resource session's deferred close closes the parent along and reports both
// answers by the merge rule, its own first: an error of either wins, else its own warning, else
// the parent's. (The target closes both sessions each time; only the answers are scripted.)
struct AlongCase {
    int32_t child;
    int32_t parent;
    int32_t reported;
};

class ParentClosedAlong : public DeferredClose, public ::testing::WithParamInterface<AlongCase> {};

TEST_P(ParentClosedAlong, ReportsBothAnswersByTheMergeRule) {
    uint32_t resource = 0;
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 0);
    const uint32_t reference = acquire(resource, 0, 1);
    EXPECT_EQ(Quorvane_Close(session, 0), -61217);
    scriptAnswer("BrennDll_Close", GetParam().child, {}, kBrennSimAfterReal);
    scriptAnswer("BrennDll_Close", GetParam().parent, {}, kBrennSimAfterReal);
    EXPECT_EQ(HostSim_DeleteReference(reference), GetParam().reported);
    EXPECT_EQ(closesOf(session), GetParam().parent == 0 ? 1u : 0u) << "the parent's close was made";
    EXPECT_FALSE(registered(session));
}

INSTANTIATE_TEST_SUITE_P(Answers, ParentClosedAlong,
                         ::testing::Values(AlongCase{0, -998, -998}, AlongCase{7, 0, 7}, AlongCase{0, 9, 9},
                                           AlongCase{7, -998, -998}, AlongCase{0, 0, 0}));

TEST_F(DeferredClose, ResourceSessionsNeedARegisteredParentThatIsNotAResourceSession) {
    uint32_t elsewhere = 0, resource = 0;
    ASSERT_EQ(BrennDll_Open("", "", "RIO1", 0, &elsewhere), 0);  // open, but not through this library
    EXPECT_EQ(Quorvane_OpenResource(elsewhere, "a", 0, &resource), -63195);
    EXPECT_FALSE(BrennSim_IsSessionOpen(resource)) << "the resource session is closed again";
    BrennDll_Close(elsewhere, 0);
    ASSERT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 0);
    uint32_t nested = 0;
    EXPECT_EQ(Quorvane_OpenResource(resource, "b", 0, &nested), -52005);
    EXPECT_EQ(BrennSim_OpenSessionCount(), 2u) << "only the session and its resource session stay open";
    EXPECT_EQ(Quorvane_OpenResource(session | kQuorvaneSessionRefusedBit, "a", 0, &resource), -61499);
}

TEST_F(DeferredClose, OpenResourcePassesTheWarningOnAndMarksTheParentHandle) {
    scriptAnswer("BrennDll_OpenResource", 3, {}, kBrennSimAfterReal);
    uint32_t resource = 0;
    EXPECT_EQ(Quorvane_OpenResource(session, "a", 0, &resource), 3);
    EXPECT_TRUE(registered(resource));
    EXPECT_EQ(callsOf("BrennDll_OpenResource").at(0).args[0], session | kQuorvaneResourceCallBit);
}

TEST_F(DeferredClose, ResetAndDownloadWaitForTheRegionsToComeBack) {
    const uint32_t reference = acquire(session, 1, 2);
    EXPECT_EQ(Quorvane_Reset(session), -61217);
    EXPECT_EQ(Quorvane_Download(session), -61217);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_Reset") + BrennSim_CountCalls("BrennDll_Download"), 0u);
    HostSim_DeleteReference(reference);
    EXPECT_EQ(Quorvane_Reset(session), 0);
    EXPECT_EQ(Quorvane_Download(session), 0);
    EXPECT_EQ(callsOf("BrennDll_Reset").at(0).args[0], session) << "forwarded unchanged";
    EXPECT_EQ(Quorvane_Reset(session | kQuorvaneSessionRefusedBit), -61499);
    scriptAnswer("BrennDll_Download", 12);
    EXPECT_EQ(Quorvane_Download(0x9999), 12) << "a handle opened elsewhere passes the guard";
}

}  // namespace
}  // namespace quorvane::testing
