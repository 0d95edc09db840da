// The Host and device service stand-ins, and the planned failures of all three, as the tests use them.
#include <cstring>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "MoskSrv.h"
#include "support/simulatedPlatform.h"

namespace {

// A fresh platform for every test, which must dispose of every Host handle and reference it made.
class StandInTest : public quorvane::testing::SimulatedPlatformTest {
protected:
    void TearDown() override {
        EXPECT_EQ(HostSim_LiveHandleCount(), 0u) << "the test leaked Host handles";
        EXPECT_EQ(HostSim_LiveReferenceCount(), 0u) << "the test leaked references";
    }
};

int32_t raiseFlag(void* flag) {
    *static_cast<bool*>(flag) = true;
    return 0;
}

constexpr int32_t kCode = 7;
uint32_t gSession = 0;  // what the open below makes; the platform is fresh for the next test

// A call of a stand-in that cleans up after itself (0 when it worked, else its answer), and the
// stand-in's controls that make it fail.
struct FailingCall {
    const char* name;
    void (*failFrom)(const char* function, size_t nth, int32_t code, int always);  // nth 0 clears the plan
    void (*failNext)(const char* function, int32_t code);  // the next call only, not counted as planned
    size_t (*plannedFailures)(const char* function);
    int32_t (*call)();
};

const FailingCall kFailingCalls[] = {
    {"BrennDll_Open", [](const char*, size_t nth, int32_t code, int always) { BrennSim_FailFrom(nth, code, always); },
     BrennSim_ScriptStatus, [](const char*) { return BrennSim_PlannedFailures(); },
     [] { return BrennDll_Open("", "", "RIO0", 0, &gSession); }},
    {"MoskSrv_device_set32",
     [](const char*, size_t nth, int32_t code, int always) { MoskSrvSim_FailFrom(nth, code, always); },
     [](const char*, int32_t code) { MoskSrvSim_ReportNext(code); },
     [](const char*) { return MoskSrvSim_PlannedFailures(); },
     [] {
         int32_t status = 0;  // the library reads the outcome from the status the service reports into
         MoskSrv_device_set32(1, kMoskSrvReservePxiTriggerLine, static_cast<uint32_t>(MoskSrvSim_CallCount()), &status);
         return status;
     }},
    // Looked up at run time, not imported: the fault loop cannot tell whether its failures fire.
    {"DSNewHandle", HostSim_FailFrom, HostSim_FailNext, HostSim_PlannedFailures,
     [] {
         void** handle = DSNewHandle(8);  // failing with a code other than 0: a handle without a block
         const int32_t answer = handle == nullptr ? -1 : HostSim_BlockSize(handle) == 8 ? 0 : kCode;
         HostSim_DisposeHandle(handle);
         return answer;
     }},
    // Only registrations count: the end of the abort registration always takes effect.
    {"RTSetCleanupProc", HostSim_FailFrom, HostSim_FailNext, HostSim_PlannedFailures,
     [] {
         const int32_t answer = RTSetCleanupProc(raiseFlag, nullptr, kHostCleanupOnCallAbort);
         RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
         return answer;
     }},
};

// Makes `count` calls: '.' for one that worked, 'x' for one that answered kCode.
std::string outcomes(const FailingCall& call, int count) {
    std::string seen;
    while (count-- > 0) {
        const int32_t answer = call.call();
        seen += answer == 0 ? '.' : answer == kCode ? 'x' : '?';
    }
    return seen;
}

TEST_F(StandInTest, PlannedFailuresFireWhenPlannedAndAreCountedUntilCleared) {
    for (const FailingCall& call : kFailingCalls) {
        SCOPED_TRACE(call.name);
        call.failNext(call.name, kCode);
        call.failFrom(call.name, 2, kCode, 0);
        EXPECT_EQ(outcomes(call, 5), "x.x..") << "the next call, then the plan's second call only";
        EXPECT_EQ(call.plannedFailures(call.name), 1u) << "what failNext answers is not counted";
        call.failFrom(call.name, 2, kCode, 1);
        EXPECT_EQ(outcomes(call, 4), ".xxx") << "from the second call on";
        EXPECT_EQ(call.plannedFailures(call.name), 3u);
        call.failFrom(call.name, 0, 0, 0);
        EXPECT_EQ(outcomes(call, 2), "..") << "nth 0 clears the plan";
    }
}

// Exact blocks let the address sanitizer catch a write past the end; a block that moves on
// every resize catches a stale block pointer.
TEST_F(StandInTest, ArraysAreExactBlocksThatMoveOnResizeAndCountAsLiveHandles) {
    const struct {
        int32_t typeCode;
        size_t elementSize, firstElement;
    } layouts[] = {{1, 1, 4}, {2, 2, 4}, {3, 4, 4}, {4, 8, 8}, {5, 1, 4}, {6, 2, 4}, {7, 4, 4}, {8, 8, 8}};
    for (const auto& [typeCode, size, first] : layouts) {
        SCOPED_TRACE(typeCode);
        void** handle = nullptr;
        ASSERT_EQ(NumericArrayResize(typeCode, 1, &handle, 3), kHostNoError);
        EXPECT_EQ(HostSim_BlockSize(handle), first + 3 * size);
        const void* before = *handle;
        ASSERT_EQ(NumericArrayResize(typeCode, 1, &handle, 4), kHostNoError);
        EXPECT_NE(*handle, before);
        EXPECT_EQ(*static_cast<const int32_t*>(*handle), 4) << "the dimension size";
        ASSERT_EQ(HostSim_BlockSize(handle), first + 4 * size);
        HostSim_DisposeHandle(handle);
    }
    const char* names[] = {"RIO0", "PXI1Slot2"};
    void** array = HostSim_NewStringArray(names, 2);
    EXPECT_EQ(HostSim_LiveHandleCount(), 3u) << "a string array and its two strings";
    HostSim_DisposeStringArray(array);
}

TEST_F(StandInTest, DeletingAReferenceCallsItsCallbackOnceAfterTheReferenceIsGone) {
    uint32_t reference = 0;
    void* record = nullptr;
    ASSERT_EQ(EDVR_CreateReference(&reference, &record), kHostNoError);
    static std::vector<std::pair<void*, size_t>> deletions;  // each record, and the references then live
    // Asks the Host for its references, as a deletion that closes a session calls back into it.
    const HostDeleteCallback callback = [](void* deleted) {
        deletions.emplace_back(deleted, HostSim_LiveReferenceCount());
        return -61;
    };
    std::memcpy(static_cast<char*>(record) + kHostEdvrDeleteCallbackOffset, &callback, sizeof callback);
    EXPECT_EQ(HostSim_DeleteReference(reference), -61) << "the callback's answer";
    EXPECT_EQ(HostSim_DeleteReference(reference), -1);
    EXPECT_EQ(deletions, (std::vector<std::pair<void*, size_t>>{{record, 0}})) << "once, after it is gone";
}

TEST_F(StandInTest, CleanupProceduresRunOnceWhenTheProgramStopsOrTheCallIsAborted) {
    bool a = false, b = false, aborted = false;
    EXPECT_NE(RTSetCleanupProc(raiseFlag, &a, kHostCleanupOnProgramStop), 0);
    EXPECT_NE(RTSetCleanupProc(raiseFlag, &b, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &a, kHostCleanupRemove), 0);
    HostSim_FailFrom("RTSetCleanupProc", 1, 0, 0);  // the fault loop's refusal of a registration
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &a, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 1u);
    EXPECT_EQ(HostSim_RunProgramStop(), 1u);
    EXPECT_TRUE(b && !a);
    EXPECT_EQ(HostSim_RunProgramStop(), 0u);
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &aborted, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 1u);
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 1u);
    EXPECT_EQ(RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 0u);
    EXPECT_TRUE(aborted);
}

TEST_F(StandInTest, ATriggerLineIsHeldByOneDeviceUntilThatDeviceReleasesIt) {
    EXPECT_EQ(MoskSrv_device_set32(5, kMoskSrvReservePxiTriggerLine, 3, nullptr), 0);
    EXPECT_EQ(MoskSrv_device_set32(6, kMoskSrvReservePxiTriggerLine, 3, nullptr), kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(MoskSrv_device_set32(6, kMoskSrvReleasePxiTriggerLine, 3, nullptr), kMoskSrvStandInLineNotReserved);
    EXPECT_EQ(MoskSrv_device_set32(5, kMoskSrvReleasePxiTriggerLine, 3, nullptr), 0);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
}

}  // namespace
