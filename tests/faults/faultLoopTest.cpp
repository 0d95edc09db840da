// The fault loop: every scenario runs again and again with one failure injected at the Nth
// allocation, the Nth call of a Host function (with each of the Host's answers) or the Nth call
// into the FPGA interface library or the device service, for N = 1, 2, ... until a run completes
// without reaching it, once failing only the Nth (transient) and once the Nth and every later
// one (persistent). After each run, with nothing injected any more, the Host cleans up as a
// careful Host does, and then:
//   - the export the first failure hit reported it, as the status that failure stands for
//     (see reportedAs), unless the library documents that the export goes on without it;
//   - every status the library returned is one it documents or one the platform gave it;
//   - every session closes: none is left open on the target or registered in the library;
//   - each handle reached a successful BrennDll_Close exactly once, and no close reached the
//     target for a handle that was not open;
//   - every acquired element went back, in order and never twice (unless the release itself
//     was the call made to fail, which keeps its elements lent);
//   - no Host handle, Host reference or block of the library's own is left.
// Each run has a process of its own (see runIsolated). At the end it prints which steps each
// injection reached with which call, and which of the functions the library imports no scenario
// made fail.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "BrennSim.h"
#include "HostSim.h"
#include "MoskSrvSim.h"
#include "Quorvane.h"
#include "QuorvaneStatus.h"
#include "faultScenarios.h"
#include "quarks/memory.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

// A failure to inject: what fails (allocation, Host function, driver, device service), with what.
struct Injection {
    enum class Kind { Allocation, Host, Driver, Service };
    Kind kind;
    const char* function;  // the Host function; null for the other kinds
    int32_t code;          // what the failing call answers
    std::string name() const;
};

constexpr int32_t kDriverError = -61003;  // a code of no special meaning to the library

// Armed state of an allocation failure: the request count when it was armed and its nth.
uint64_t gAllocationsAtArm = 0;
size_t gAllocationNth = 0;
bool gAllocationPersistent = false;

std::string Injection::name() const {
    switch (kind) {
        case Kind::Allocation:
            return "allocation";
        case Kind::Host:
            return std::string(function) + " answering " + std::to_string(code);
        case Kind::Driver:
            return "FPGA interface library answering " + std::to_string(code);
        case Kind::Service:
            return "device service reporting " + std::to_string(code);
    }
    return "?";
}

std::vector<Injection> allInjections() {
    using K = Injection::Kind;
    std::vector<Injection> all{{K::Allocation, nullptr, 0}};
    // The Host's answers: 2 (out of memory), 41 (an aborted call) and another error; for
    // RTSetCleanupProc also 0, its refusal of a cleanup procedure. A failing DSNewHandle gives
    // either no handle (0) or a handle without a block (any other code).
    for (const char* function : {"NumericArrayResize", "RTSetCleanupProc", "EDVR_CreateReference"}) {
        for (int32_t code : {2, 41, 7}) all.push_back({K::Host, function, code});
    }
    all.push_back({K::Host, "RTSetCleanupProc", 0});
#ifndef QUORVANE_HOST_WITHOUT_NEW_HANDLE
    all.push_back({K::Host, "DSNewHandle", 0});
    all.push_back({K::Host, "DSNewHandle", 2});
#endif
    all.push_back({K::Driver, nullptr, kDriverError});
    all.push_back({K::Service, nullptr, kDriverError});
    return all;
}

// Arms `injection` for its `nth` occasion from now; `persistent` fails every later one too.
void arm(const Injection& injection, size_t nth, bool persistent) {
    switch (injection.kind) {
        case Injection::Kind::Allocation:
            gAllocationsAtArm = allocationRequests();
            gAllocationNth = nth;
            gAllocationPersistent = persistent;
            failAllocation(nth, persistent);
            break;
        case Injection::Kind::Host:
            HostSim_FailFrom(injection.function, nth, injection.code, persistent);
            break;
        case Injection::Kind::Driver:
            BrennSim_FailFrom(nth, injection.code, persistent);
            break;
        case Injection::Kind::Service:
            MoskSrvSim_FailFrom(nth, injection.code, persistent);
            break;
    }
}

void disarm() {
    stopFailingAllocations();
    for (const Injection& injection : allInjections()) {
        if (injection.kind == Injection::Kind::Host) HostSim_FailFrom(injection.function, 0, 0, 0);
    }
    BrennSim_FailFrom(0, 0, 0);
    MoskSrvSim_FailFrom(0, 0, 0);
}

size_t failuresCaused(const Injection& injection) {
    switch (injection.kind) {
        case Injection::Kind::Allocation: {
            const uint64_t made = allocationRequests() - gAllocationsAtArm;
            if (made < gAllocationNth) return 0;
            return gAllocationPersistent ? static_cast<size_t>(made - gAllocationNth + 1) : 1;
        }
        case Injection::Kind::Host:
            return HostSim_PlannedFailures(injection.function);
        case Injection::Kind::Driver:
            return BrennSim_PlannedFailures();
        case Injection::Kind::Service:
            return MoskSrvSim_PlannedFailures();
    }
    return 0;
}

// What the failure hit: the function that failed, or which allocation of the step it was.
std::string failedCallee(const Injection& injection, size_t nth, size_t allocationsBeforeStep) {
    switch (injection.kind) {
        case Injection::Kind::Allocation:
            return "allocation " + std::to_string(gAllocationsAtArm + nth - allocationsBeforeStep);
        case Injection::Kind::Host:
            return injection.function;
        case Injection::Kind::Driver: {
            // Scenarios script nothing, so the nth call is the nth entry of the target's log.
            BrennSimCall call{};
            return BrennSim_GetCall(nth - 1, &call) ? call.function : "BrennDll_?";
        }
        case Injection::Kind::Service:
            return "MoskSrv_device_set32";
    }
    return "?";
}

constexpr size_t kMostOccasions = 400;  // a scenario reaching more is a runaway loop

bool documentedOrPassedOn(int32_t status) {
#define QUORVANE_FAULT_LISTED(name, value, meaning) status == (value) ||
    return QUORVANE_STATUS_LIST(QUORVANE_FAULT_LISTED) status >= 0 || status <= -60000;
#undef QUORVANE_FAULT_LISTED
}

// Failures the library documents not to report to the call that met them: a refused release
// (deleting a region goes on), the exports that answer no status, and the answers that mean
// success for one mode of RTSetCleanupProc (non-zero registers an open's cleanup procedure,
// zero an acquisition's abort procedure).
bool failureMayPass(const std::string& step, const std::string& callee, const Injection& injection) {
    if (callee == "RTSetCleanupProc") return (injection.code != 0) == (step.rfind("Quorvane_Open", 0) == 0);
    return callee == "BrennDll_ReleaseFifoElements" || step == "Quorvane_GetResourceIndex" ||
           step == "Quorvane_ReleaseResourceIndex";
}

// The status a call reports when what it called failed: the platform's own code, the Host's
// answer mapped (2: out of memory, 41: aborted, other: internal error; no handle or no block from
// DSNewHandle: out of memory), and out of memory for an allocation. A Host without DSNewHandle
// makes an enumeration an internal error before it calls the Host, and the first error stays.
int32_t reportedAs(const Injection& injection, [[maybe_unused]] const std::string& step) {
#ifdef QUORVANE_HOST_WITHOUT_NEW_HANDLE
    if (step == "Quorvane_GetResources" && injection.kind == Injection::Kind::Host) return kQuorvaneStatusInternalError;
#endif
    switch (injection.kind) {
        case Injection::Kind::Allocation:
            return kQuorvaneStatusMemoryFull;
        case Injection::Kind::Host:
            if (injection.code == 2 || std::string(injection.function) == "DSNewHandle")
                return kQuorvaneStatusMemoryFull;
            return injection.code == 41 ? kQuorvaneStatusAborted : kQuorvaneStatusInternalError;
        default:
            return injection.code;
    }
}

// Deletes what the Host still holds, then closes every session, children first, closing again
// while the target still has it open (a close the library could not complete leaves the handle
// with the Host).
void cleanUp(ScenarioRun& run) {
    for (uint32_t reference : run.references) HostSim_DeleteReference(reference);
    std::vector<uint32_t> sessions = run.orphans;
    sessions.insert(sessions.end(), run.sessions.begin(), run.sessions.end());
    for (auto session = sessions.rbegin(); session != sessions.rend(); ++session) {
        for (int attempt = 0; attempt < 3 && BrennSim_IsSessionOpen(*session); ++attempt) Quorvane_Close(*session, 0);
    }
    for (void** array : run.arrays) HostSim_DisposeHandle(array);
    for (void** array : run.stringArrays) HostSim_DisposeStringArray(array);
}

// One run. Answers "hit" or "missed" (whether the injection was reached), and on a second line
// the site the first failure hit: "injection<tab>step: callee".
std::string runOnce(const Scenario& scenario, const Injection& injection, size_t nth, bool persistent) {
    BrennSim_Reset();
    HostSim_Reset();
    MoskSrvSim_Reset();
    BrennSim_ReuseHandles(1);
    const uint64_t blocksBefore = heap::liveBlocks();
    const size_t handlesBefore = HostSim_LiveHandleCount();

    ScenarioRun run;
    size_t failuresBefore = 0;
    uint64_t allocationsBefore = 0;
    run.beforeStep = [&](const char*) {
        failuresBefore = failuresCaused(injection);
        allocationsBefore = allocationRequests();
    };
    size_t hitStep = 0;
    std::string hitCallee;
    run.afterStep = [&](const char*) {
        if (failuresBefore == 0 && failuresCaused(injection) != 0) {
            hitStep = run.statuses.size() - 1;
            hitCallee = failedCallee(injection, nth, allocationsBefore);
        }
    };
    arm(injection, nth, persistent);
    scenario.run(run);
    const size_t failures = failuresCaused(injection);
    const bool hit = failures != 0;
    disarm();
    cleanUp(run);

    std::ostringstream where;
    where << scenario.name << ", " << injection.name() << " at " << nth << (persistent ? " and after" : " only");
    SCOPED_TRACE(where.str());
    for (const ScenarioRun::Noted& noted : run.statuses) {
        EXPECT_TRUE(documentedOrPassedOn(noted.status)) << noted.step << " returned " << noted.status;
    }
    // The first failure is reported by the call it hit, as the status it stands for, unless the
    // library documents that the call goes on without what failed.
    if (!hitCallee.empty() && !failureMayPass(run.statuses[hitStep].step, hitCallee, injection)) {
        EXPECT_EQ(run.statuses[hitStep].status, reportedAs(injection, run.statuses[hitStep].step))
            << run.statuses[hitStep].step << " after " << hitCallee << " failed";
    }
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(registeredSessionCount(), 0u);
    BrennSimSessionStats sessions{};
    BrennSim_GetSessionStats(&sessions);
    EXPECT_EQ(sessions.closed, sessions.opened);
    EXPECT_EQ(sessions.closesNotOpen, 0u);
    BrennSimFifoStats fifos{};
    BrennSim_GetTotalFifoStats(&fifos);
    EXPECT_EQ(fifos.outOfOrderReleases, 0u);
    EXPECT_EQ(fifos.excessReleases, 0u);
    // Elements stay lent, as documented, when the driver refused their release (the failing
    // call was the release) or when an acquisition the driver granted could not be queued or got
    // no Host reference (-52000, -50405, -52003): the library then has no region to hand back.
    bool elementsMayStay = injection.kind == Injection::Kind::Driver;
    for (const ScenarioRun::Noted& noted : run.statuses) {
        const bool hostOrMemory = noted.status == kQuorvaneStatusMemoryFull || noted.status == kQuorvaneStatusAborted ||
                                  noted.status == kQuorvaneStatusInternalError;
        elementsMayStay |= noted.step.rfind("Quorvane_Acquire", 0) == 0 && hostOrMemory;
    }
    if (!elementsMayStay) {
        EXPECT_EQ(fifos.elementsReleased, fifos.elementsAcquired);
    }
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    // A handle without a block that DSNewHandle hands out can only be dropped: the Host gives
    // the library no function to dispose of handles.
    const bool blocklessHandles = injection.kind == Injection::Kind::Host &&
                                  std::string(injection.function) == "DSNewHandle" && injection.code != 0;
    EXPECT_EQ(HostSim_LiveHandleCount(), handlesBefore + (blocklessHandles ? failures : 0));
    EXPECT_EQ(heap::liveBlocks(), blocksBefore);
    if (::testing::Test::HasFailure()) {
        std::string story = "steps:";  // what the Host saw, to tell the story of the broken run
        for (const ScenarioRun::Noted& noted : run.statuses)
            story += " " + noted.step + "=" + std::to_string(noted.status);
        ADD_FAILURE() << story;
    }
    if (hitCallee.empty()) return hit ? "hit\n" : "missed\n";
    return "hit\n" + injection.name() + "\t" + run.statuses[hitStep].step + ": " + hitCallee + "\n";
}

// The functions the library calls that a failure can be injected into: allocations, and every
// function of the Host, the FPGA interface library and the device service that the built
// library imports.
std::set<std::string> injectableCallees() {
    std::set<std::string> all{"allocation"};
    std::FILE* listing = popen("nm -D --undefined-only " QUORVANE_LIBRARY_FILE, "r");
    if (listing == nullptr) return all;
    char line[512];
    const std::regex platformFunction("(BrennDll_|MoskSrv_|NumericArrayResize|DSNewHandle|RTSetCleanupProc|EDVR_)\\w*");
    while (std::fgets(line, sizeof line, listing) != nullptr) {
        std::cmatch found;
        if (std::regex_search(line, found, platformFunction)) all.insert(found.str());
    }
    pclose(listing);
#ifndef QUORVANE_HOST_WITHOUT_NEW_HANDLE
    all.insert("DSNewHandle");  // looked up by name at run time, so not among the imports
#endif
    return all;
}

// Runs one run in a child process of its own, as the library meets a failure in a fresh
// process: a container's allocation failure stays raised for the life of the process, and
// would end every later open of a run in the same one. A crash ends only the child, and is
// reported with the run it ended. Answers whether the injection was reached.
using Reached = std::map<std::string, std::set<std::string>>;  // injection -> "step: callee"
bool runIsolated(const Scenario& scenario, const Injection& injection, size_t nth, bool persistent, Reached& reached) {
    int channel[2];
    if (pipe(channel) != 0) {
        ADD_FAILURE() << "no pipe";
        return false;
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        const std::string report = runOnce(scenario, injection, nth, persistent);
        for (size_t done = 0; done < report.size();) {
            const ssize_t wrote = write(channel[1], report.data() + done, report.size() - done);
            if (wrote <= 0) break;
            done += static_cast<size_t>(wrote);
        }
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    close(channel[1]);
    std::string report;
    char buffer[4096];
    for (ssize_t got; (got = read(channel[0], buffer, sizeof buffer)) > 0;)
        report.append(buffer, static_cast<size_t>(got));
    close(channel[0]);
    int outcome = 0;
    waitpid(child, &outcome, 0);
    if (!WIFEXITED(outcome) || WEXITSTATUS(outcome) != 0) {
        ADD_FAILURE() << scenario.name << ", " << injection.name() << " at " << nth
                      << (persistent ? " and after" : " only") << ": the run failed (its report is above)"
                      << (WIFSIGNALED(outcome) ? ", ended by signal " + std::to_string(WTERMSIG(outcome)) : "");
    }
    std::istringstream lines(report);
    std::string line, site;
    std::getline(lines, line);
    if (std::getline(lines, site)) reached[site.substr(0, site.find('\t'))].insert(site.substr(site.find('\t') + 1));
    return line == "hit";
}

TEST(FaultLoop, EveryScenarioSurvivesEveryInjectedFailureAtEveryPlace) {
    Reached reached;
    size_t runs = 0;
    for (const Scenario& scenario : allScenarios()) {
        for (const Injection& injection : allInjections()) {
            for (bool persistent : {false, true}) {
                size_t nth = 1;
                for (; nth <= kMostOccasions; ++nth) {
                    ++runs;
                    if (!runIsolated(scenario, injection, nth, persistent, reached)) break;
                    if (::testing::Test::HasFailure()) return;  // the first broken run tells enough
                }
                EXPECT_LE(nth, kMostOccasions) << scenario.name << " never completes under " << injection.name();
            }
        }
    }
    std::printf("fault loop: %zu runs\n", runs);
    std::set<std::string> failed;  // the callees made to fail, every allocation as one
    for (const auto& [injection, sites] : reached) {
        std::printf("  %s reached %zu sites:\n", injection.c_str(), sites.size());
        for (const std::string& site : sites) {
            std::printf("    %s\n", site.c_str());
            const std::string callee = site.substr(site.find(": ") + 2);
            failed.insert(callee.rfind("allocation", 0) == 0 ? "allocation" : callee);
        }
    }
    const std::set<std::string> callees = injectableCallees();
    EXPECT_GT(callees.size(), 40u) << "the library's imports could not be listed";
    for (const std::string& callee : callees) {
        EXPECT_TRUE(failed.count(callee)) << "no scenario makes " << callee << " fail";
    }
}

}  // namespace
}  // namespace quorvane::testing
