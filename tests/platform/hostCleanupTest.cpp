// Cleanup registrations of the simulated Host: RTSetCleanupProc modes 0, 2 and 6, program stop
// and the abort of calls in progress.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "hostTestSupport.h"

namespace {

using hosttest::HostTest;

// Records the arguments of its calls, in order, across all the procedures below.
std::mutex gRunMutex;
std::vector<void*> gRuns;

std::vector<void*> runs() {
    std::lock_guard lock(gRunMutex);
    return gRuns;
}

int32_t recordRun(void* argument) {
    std::lock_guard lock(gRunMutex);
    gRuns.push_back(argument);
    return 0;
}

int32_t otherProc(void*) {
    return 0;
}

int slotA, slotB, slotC;
void* const kA = &slotA;
void* const kB = &slotB;
void* const kC = &slotC;

class CleanupTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        std::lock_guard lock(gRunMutex);
        gRuns.clear();
    }
};

TEST_F(CleanupTest, ProgramStopRegistrationAnswersNonZeroAndRemovalTakesEveryMatchAway) {
    EXPECT_NE(RTSetCleanupProc(recordRun, kA, kHostCleanupOnProgramStop), 0);
    EXPECT_NE(RTSetCleanupProc(recordRun, kA, kHostCleanupOnProgramStop), 0);
    EXPECT_NE(RTSetCleanupProc(recordRun, kB, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 3u);
    EXPECT_FALSE(HostSim_IsRegisteredForProgramStop(otherProc, kA));

    EXPECT_EQ(RTSetCleanupProc(otherProc, kA, kHostCleanupRemove), 0);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 3u) << "only the same procedure matches";
    EXPECT_EQ(RTSetCleanupProc(recordRun, kA, kHostCleanupRemove), 0);
    EXPECT_FALSE(HostSim_IsRegisteredForProgramStop(recordRun, kA));
    EXPECT_TRUE(HostSim_IsRegisteredForProgramStop(recordRun, kB));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 1u);
    EXPECT_EQ(HostSim_CleanupCallCount(kHostCleanupOnProgramStop), 3u);
    EXPECT_EQ(HostSim_CleanupCallCount(kHostCleanupRemove), 2u);
    EXPECT_EQ(HostSim_CallCount("RTSetCleanupProc"), 5u);
}

TEST_F(CleanupTest, RefusedOrInjectedRegistrationsRegisterNothingAndAffectOnlyTheNextOne) {
    HostSim_RefuseNextProgramStopRegistration();
    EXPECT_EQ(RTSetCleanupProc(recordRun, kA, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_NE(RTSetCleanupProc(recordRun, kA, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(RTSetCleanupProc(nullptr, kB, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 1u);

    HostSim_FailNext("RTSetCleanupProc", 0);
    EXPECT_EQ(RTSetCleanupProc(recordRun, kB, kHostCleanupOnProgramStop), 0);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 1u);

    HostSim_FailNext("RTSetCleanupProc", kHostCallAborted);
    EXPECT_EQ(RTSetCleanupProc(recordRun, kA, kHostCleanupRemove), 0) << "removals do not consume it";
    EXPECT_EQ(RTSetCleanupProc(recordRun, kA, kHostCleanupOnCallAbort), kHostCallAborted);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u);
    EXPECT_EQ(RTSetCleanupProc(recordRun, kA, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 1u);

    RTSetCleanupProc(recordRun, kA, kHostCleanupOnProgramStop);
    HostSim_RefuseNextProgramStopRegistration();
    HostSim_Reset();
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u);
    EXPECT_NE(RTSetCleanupProc(recordRun, kA, kHostCleanupOnProgramStop), 0) << "reset forgets the refusal";
}

class OtherModeTest : public CleanupTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(OtherModeTest, AnswersOneAndRegistersNothing) {
    EXPECT_EQ(RTSetCleanupProc(recordRun, kA, GetParam()), 1);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u);
    EXPECT_EQ(HostSim_CleanupCallCount(GetParam()), 1u);
}

INSTANTIATE_TEST_SUITE_P(UnusedModes, OtherModeTest, ::testing::Values(1, 3, 4, 5, 7, -1));

TEST_F(CleanupTest, ProgramStopRunsEachRegistrationOnceNewestFirst) {
    for (void* argument : {kA, kB, kC}) RTSetCleanupProc(recordRun, argument, kHostCleanupOnProgramStop);
    EXPECT_EQ(HostSim_RunProgramStop(), 3u);
    EXPECT_EQ(runs(), (std::vector<void*>{kC, kB, kA}));
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_EQ(HostSim_RunProgramStop(), 0u);
}

// Closes like the library does: removes its own registration and that of a sibling.
int32_t removeRegistrations(void* argument) {
    recordRun(argument);
    RTSetCleanupProc(removeRegistrations, argument, kHostCleanupRemove);
    RTSetCleanupProc(removeRegistrations, kA, kHostCleanupRemove);
    return 0;
}

int32_t registerAnother(void* argument) {
    recordRun(argument);
    RTSetCleanupProc(recordRun, kC, kHostCleanupOnProgramStop);
    return 0;
}

// Every registration is taken out before the first runs: removing A while B runs neither
// deadlocks nor stops A from running, and a new registration waits for the next stop.
TEST_F(CleanupTest, ProceduresMayRemoveAndAddRegistrationsDuringTheStop) {
    RTSetCleanupProc(registerAnother, kC, kHostCleanupOnProgramStop);
    RTSetCleanupProc(removeRegistrations, kA, kHostCleanupOnProgramStop);
    RTSetCleanupProc(removeRegistrations, kB, kHostCleanupOnProgramStop);
    EXPECT_EQ(HostSim_RunProgramStop(), 3u);
    EXPECT_TRUE(HostSim_IsRegisteredForProgramStop(recordRun, kC));
    EXPECT_EQ(HostSim_RunProgramStop(), 1u);
    EXPECT_EQ(runs(), (std::vector<void*>{kB, kA, kC, kC}));
}

int32_t raiseFlag(void* flag) {
    static_cast<std::atomic<bool>*>(flag)->store(true);
    return 0;
}

// A call in progress on its own thread: registers its abort procedure, waits until told to
// finish, then ends the registration.
class CallInProgress {
public:
    explicit CallInProgress(HostCleanupProc proc) {
        thread_ = std::thread([this, proc] {
            registrationAnswer = RTSetCleanupProc(proc, &aborted_, kHostCleanupOnCallAbort);
            {
                std::unique_lock lock(mutex_);
                registered_ = true;
                changed_.notify_all();
                changed_.wait(lock, [this] { return finish_; });
            }
            RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
            ended_.store(true);
        });
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return registered_; });
    }
    ~CallInProgress() { finish(); }

    // Lets the call go on to end its registration, without waiting for it.
    void requestFinish() {
        std::lock_guard lock(mutex_);
        finish_ = true;
        changed_.notify_all();
    }
    void finish() {
        requestFinish();
        if (thread_.joinable()) thread_.join();
    }
    bool aborted() const { return aborted_.load(); }
    bool ended() const { return ended_.load(); }

    int32_t registrationAnswer = -1;

private:
    std::atomic<bool> aborted_{false};
    std::atomic<bool> ended_{false};
    std::mutex mutex_;
    std::condition_variable changed_;
    bool registered_ = false;
    bool finish_ = false;
    std::thread thread_;
};

// Each thread has at most one abort registration (a second replaces the first) and ends only
// its own; the abort runs them all from another thread.
TEST_F(CleanupTest, AbortRegistrationsArePerThreadAndRunFromAnotherThread) {
    CallInProgress first(raiseFlag);
    CallInProgress second(raiseFlag);
    EXPECT_EQ(first.registrationAnswer, kHostNoError);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 2u);
    EXPECT_EQ(RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 2u);
    std::atomic<bool> replaced{false};
    std::atomic<bool> mine{false};
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &replaced, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(RTSetCleanupProc(raiseFlag, &mine, kHostCleanupOnCallAbort), kHostNoError);
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 3u);
    first.finish();
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 2u);
    EXPECT_FALSE(second.aborted());
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 2u);
    EXPECT_FALSE(first.aborted());
    EXPECT_FALSE(replaced.load());
    EXPECT_TRUE(second.aborted());
    EXPECT_TRUE(mine.load());
    RTSetCleanupProc(nullptr, nullptr, kHostCleanupOnCallAbort);
    second.finish();
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 0u);
}

// While an abort procedure runs, the call it belongs to must not be able to end its
// registration (and leave the stack frame that holds the procedure's argument).
std::atomic<CallInProgress*> gSlowCall{nullptr};
std::atomic<bool> gEndedDuringAbort{false};
std::thread gFinisher;

int32_t slowAbort(void* flag) {
    gFinisher = std::thread([] { gSlowCall.load()->requestFinish(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    gEndedDuringAbort.store(gSlowCall.load()->ended());
    return raiseFlag(flag);
}

TEST_F(CleanupTest, CallCannotEndItsRegistrationWhileItsAbortProcedureRuns) {
    gEndedDuringAbort = false;
    CallInProgress call(slowAbort);
    gSlowCall = &call;
    EXPECT_EQ(HostSim_AbortCallsInProgress(), 1u);
    EXPECT_FALSE(gEndedDuringAbort.load());
    EXPECT_TRUE(call.aborted());
    gFinisher.join();
    call.finish();
    EXPECT_TRUE(call.ended());
    EXPECT_EQ(HostSim_AbortRegistrationCount(), 0u);
}

}  // namespace
