// The Host and device service stand-ins, and the planned failures of all three stand-ins, as far
// as the library's tests depend on them: failures at the Nth call (the fault loop walks them
// through every call), Host leak accounting, arrays, references, cleanup, trigger lines.
#include <cstring>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "MoskSrv.h"
#include "standInTest.h"

namespace standins {

int32_t raiseFlag(void* flag) {
    *static_cast<bool*>(flag) = true;
    return 0;
}

// ---- planned failures ---------------------------------------------------------------------

constexpr int32_t kCode = 7;

// A call of a stand-in, and the stand-in's controls that make it fail.
struct FailingCall {
    const char* name;  // of the function
    void (*failFrom)(const char* function, size_t nth, int32_t code, int always);
    void (*failNext)(const char* function, int32_t code);  // the next call only, not counted as planned
    size_t (*plannedFailures)(const char* function);
    int32_t (*call)();  // one call that cleans up after itself: 0 when it worked, else its answer
};

const FailingCall kFailingCalls[] = {
    {"BrennDll_Open", [](const char*, size_t nth, int32_t code, int always) { BrennSim_FailFrom(nth, code, always); },
     BrennSim_ScriptStatus, [](const char*) { return BrennSim_PlannedFailures(); },
     [] {
         uint32_t session = 0;
         return BrennDll_Open("", "", "RIO0", 0, &session);
     }},
    {"MoskSrv_device_set32",
     [](const char*, size_t nth, int32_t code, int always) { MoskSrvSim_FailFrom(nth, code, always); },
     [](const char*, int32_t code) { MoskSrvSim_ReportNext(code); },
     [](const char*) { return MoskSrvSim_PlannedFailures(); },
     [] {
         // The library reads the outcome from the status the service reports into.
         int32_t status = 0;
         MoskSrv_device_set32(1, kMoskSrvReservePxiTriggerLine, static_cast<uint32_t>(MoskSrvSim_CallCount()), &status);
         return status;
     }},
    {"NumericArrayResize", HostSim_FailFrom, HostSim_FailNext, HostSim_PlannedFailures,
     [] {
         void** handle = nullptr;
         const int32_t answer = NumericArrayResize(5, 1, &handle, 4);
         if (handle != nullptr) HostSim_DisposeHandle(handle);
         return answer;
     }},
    {"DSNewHandle", HostSim_FailFrom, HostSim_FailNext, HostSim_PlannedFailures,
     [] {
         void** handle = DSNewHandle(8);  // failing with a code other than 0: a handle without a block
         const int32_t answer = handle == nullptr ? -1 : *handle != nullptr ? 0 : kCode;
         if (handle != nullptr) HostSim_DisposeHandle(handle);
         return answer;
     }},
    {"RTSetCleanupProc", HostSim_FailFrom, HostSim_FailNext, HostSim_PlannedFailures,
     [] {
         const int32_t answer = RTSetCleanupProc(raiseFlag, nullptr, kHostCleanupOnCallAbort);
         RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
         return answer;
     }},
    {"EDVR_CreateReference", HostSim_FailFrom, HostSim_FailNext, HostSim_PlannedFailures,
     [] {
         uint32_t reference = 0;
         void* record = nullptr;
         const int32_t answer = EDVR_CreateReference(&reference, &record);
         if (answer == kHostNoError) HostSim_DeleteReference(reference);
         return answer;
     }},
};

struct Schedule {
    const char* name;
    size_t nth;  // 0: failNext instead of a plan
    bool always;
    std::vector<bool> fails;  // of five calls
};

const Schedule kSchedules[] = {
    {"Third", 3, false, {false, false, true, false, false}},
    {"FromSecondOn", 2, true, {false, true, true, true, true}},
    {"NextOnly", 0, false, {true, false, false, false, false}},
};

class PlannedFailure : public StandInTest, public ::testing::WithParamInterface<std::tuple<FailingCall, Schedule>> {};

TEST_P(PlannedFailure, FiresAtTheNthCallAndIsCountedUntilCleared) {
    const auto& [call, schedule] = GetParam();
    if (schedule.nth == 0) {
        call.failNext(call.name, kCode);
    } else {
        call.failFrom(call.name, schedule.nth, kCode, schedule.always);
    }
    size_t planned = 0;
    for (size_t i = 0; i < schedule.fails.size(); ++i) {
        EXPECT_EQ(call.call(), schedule.fails[i] ? kCode : 0) << "call " << i + 1;
        if (schedule.fails[i] && schedule.nth != 0) ++planned;
    }
    EXPECT_EQ(call.plannedFailures(call.name), planned);
    call.failFrom(call.name, 0, 0, 0);
    EXPECT_EQ(call.call(), 0) << "nth 0 clears the plan";
}

INSTANTIATE_TEST_SUITE_P(StandIns, PlannedFailure,
                         ::testing::Combine(::testing::ValuesIn(kFailingCalls), ::testing::ValuesIn(kSchedules)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

// ---- Host handles, references and cleanup procedures --------------------------------------

struct Layout {
    const char* name;
    int32_t typeCode;
    size_t elementSize;
    size_t firstElement;
};

class ArrayLayout : public StandInTest, public ::testing::WithParamInterface<Layout> {};

// Exact blocks let the address sanitizer catch a write past the end; a block that moves on
// every resize catches a stale block pointer.
TEST_P(ArrayLayout, ResizeMakesExactBlocksThatMoveAndKeepTheElements) {
    const Layout& layout = GetParam();
    void** handle = nullptr;
    ASSERT_EQ(NumericArrayResize(layout.typeCode, 1, &handle, 3), kHostNoError);
    EXPECT_EQ(HostSim_BlockSize(handle), layout.firstElement + 3 * layout.elementSize);
    std::memset(static_cast<char*>(*handle) + layout.firstElement, 0x5A, 3 * layout.elementSize);
    const void* before = *handle;
    void** copy = handle;
    ASSERT_EQ(NumericArrayResize(layout.typeCode, 1, &copy, 4), kHostNoError);
    EXPECT_EQ(copy, handle);
    EXPECT_NE(*handle, before);
    int32_t dimension = 0;
    std::memcpy(&dimension, *handle, sizeof dimension);
    EXPECT_EQ(dimension, 4);
    ASSERT_EQ(HostSim_BlockSize(handle), layout.firstElement + 4 * layout.elementSize);
    const char* elements = static_cast<const char*>(*handle) + layout.firstElement;
    for (size_t i = 0; i < 4 * layout.elementSize; ++i) EXPECT_EQ(elements[i], i < 3 * layout.elementSize ? 0x5A : 0);
    HostSim_DisposeHandle(handle);
}

INSTANTIATE_TEST_SUITE_P(TypeCodes, ArrayLayout,
                         ::testing::Values(Layout{"I8", 1, 1, 4}, Layout{"I16", 2, 2, 4}, Layout{"I32", 3, 4, 4},
                                           Layout{"I64", 4, 8, 8}, Layout{"U8", 5, 1, 4}, Layout{"U16", 6, 2, 4},
                                           Layout{"U32", 7, 4, 4}, Layout{"U64", 8, 8, 8}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(StandInTest, LiveHandlesCountEveryHandleUntilDisposed) {
    const char* names[] = {"RIO0", "PXI1Slot2"};
    void** array = HostSim_NewStringArray(names, 2);
    void** block = DSNewHandle(13);
    EXPECT_EQ(HostSim_LiveHandleCount(), 4u) << "the array, its two strings and the block";
    EXPECT_EQ(HostSim_BlockSize(block), 13u);
    HostSim_DisposeStringArray(array);
    HostSim_DisposeHandle(block);
    EXPECT_EQ(HostSim_BlockSize(block), SIZE_MAX) << "a disposed handle is not live";
}

// What the callback saw: its record, and the references live while it ran.
std::vector<std::pair<void*, size_t>> gDeletions;

// Deletes like a region release that closes a session: calls back into the Host.
int32_t onDeleted(void* record) {
    gDeletions.emplace_back(record, HostSim_LiveReferenceCount());
    uint32_t another = 0;
    void* anotherRecord = nullptr;
    if (EDVR_CreateReference(&another, &anotherRecord) == kHostNoError) HostSim_DeleteReference(another);
    return -61;
}

TEST_F(StandInTest, DeletingAReferenceCallsItsCallbackOnceAfterTheReferenceIsGone) {
    gDeletions.clear();
    uint32_t reference = 0;
    void* record = nullptr;
    ASSERT_EQ(EDVR_CreateReference(&reference, &record), kHostNoError);
    EXPECT_EQ(HostSim_ReferenceRecord(reference), record);
    const HostDeleteCallback callback = onDeleted;
    std::memcpy(static_cast<char*>(record) + kHostEdvrDeleteCallbackOffset, &callback, sizeof callback);
    EXPECT_EQ(HostSim_DeleteReference(reference), -61) << "the callback's answer";
    EXPECT_EQ(HostSim_DeleteReference(reference), -1);
    EXPECT_EQ(gDeletions, (std::vector<std::pair<void*, size_t>>{{record, 0}})) << "once, after it is gone";
}

TEST_F(StandInTest, ProgramStopRunsTheRegistrationsLeftOnce) {
    bool a = false, b = false;
    EXPECT_NE(RTSetCleanupProc(raiseFlag, &a, kHostCleanupOnProgramStop), 0);
    EXPECT_NE(RTSetCleanupProc(raiseFlag, &b, kHostCleanupOnProgramStop), 0);
    HostSim_RefuseNextProgramStopRegistration();
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &b, kHostCleanupOnProgramStop), 0) << "refused";
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &a, kHostCleanupRemove), 0);
    EXPECT_FALSE(HostSim_IsRegisteredForProgramStop(raiseFlag, &a));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 1u);
    EXPECT_EQ(HostSim_RunProgramStop(), 1u);
    EXPECT_TRUE(b);
    EXPECT_FALSE(a);
    EXPECT_EQ(HostSim_RunProgramStop(), 0u);
}

TEST_F(StandInTest, AbortRunsTheCallsAbortProcedureUntilTheCallEndsIt) {
    bool aborted = false;
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &aborted, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 1u);
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 1u);
    EXPECT_TRUE(aborted);
    EXPECT_EQ(RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 0u);
}

// ---- device service -----------------------------------------------------------------------

TEST_F(StandInTest, ATriggerLineIsHeldByOneDeviceUntilThatDeviceReleasesIt) {
    int32_t status = 0;
    EXPECT_EQ(MoskSrv_device_set32(5, kMoskSrvReservePxiTriggerLine, 3, &status), 0);
    EXPECT_EQ(MoskSrv_device_set32(6, kMoskSrvReservePxiTriggerLine, 3, &status), kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(status, kMoskSrvStandInLineAlreadyReserved);
    EXPECT_EQ(MoskSrv_device_set32(6, kMoskSrvReleasePxiTriggerLine, 3, nullptr), kMoskSrvStandInLineNotReserved);
    uint32_t owner = 0;
    EXPECT_EQ(MoskSrvSim_IsLineReserved(3, &owner), 1);
    EXPECT_EQ(owner, 5u);
    EXPECT_EQ(MoskSrv_device_set32(5, kMoskSrvReleasePxiTriggerLine, 3, nullptr), 0);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
}

}  // namespace standins
