// The first program to run: a Host program that opens a session on the simulated FPGA target
// through libQuorvane and streams data through its FIFOs in both directions, by zero-copy
// regions and by copying transfers, checking every element. It links libQuorvane.so.13 like
// any Host, with the stand-ins for the driver and the Host runtime.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "BrennSim.h"
#include "HostSim.h"
#include "Quorvane.h"
#include "copyStream.h"
#include "demoOptions.h"
#include "progress.h"
#include "regionStream.h"
#include "statusLog.h"
#include "statusText.h"
#include "summary.h"
#include "targetPlan.h"

namespace {

using namespace quorvane::tools;

// How long one call may wait: ten seconds, or for a FIFO paced by a declared rate, twice the
// time the FPGA side takes to move a block, so a slow target is waited for, not reported.
uint32_t callTimeout(const FifoPlan& fifo, uint64_t block) {
    constexpr uint64_t kDefaultMs = 10000;
    constexpr uint64_t kLongestFiniteMs = 0xFFFFFFFEu;  // 0xFFFFFFFF would mean no limit
    if (fifo.rate == 0) return kDefaultMs;
    const uint64_t paced = block >= kLongestFiniteMs / 2000 ? kLongestFiniteMs : 2000 * block / fifo.rate + 1;
    return static_cast<uint32_t>(std::clamp(paced, kDefaultMs, kLongestFiniteMs));
}

// Releases the target refused. The library hands a region back when the Host deletes its
// reference and reports nothing if the target refuses, so the elements stay lent and later
// copying transfers of that FIFO are refused (-61219). The simulated target refuses a proper
// release only when its description tells it to, so the refusals are found among the faults
// it injected, and logged like the statuses the Host met.
void noteRefusedReleases(uint32_t session, StatusLog& log) {
    std::vector<BrennSimFaultInfo> faults(BrennSim_DescribeFaults(session, nullptr, 0));
    faults.resize(BrennSim_DescribeFaults(session, faults.data(), faults.size()));
    for (const BrennSimFaultInfo& fault : faults) {
        if (std::string(fault.function) != "BrennDll_ReleaseFifoElements" || fault.acted == 0) continue;
        std::printf("  the target refused %llu release%s (line %u); the library does not report that\n",
                    static_cast<unsigned long long>(fault.acted), fault.acted == 1 ? "" : "s", fault.line);
        for (uint64_t i = 0; i < fault.acted; ++i) log.note("BrennDll_ReleaseFifoElements", fault.status);
    }
}

// The target's fault, stall and drop statements and how often each acted, so a run on a target
// that misbehaves on purpose shows which misbehaviour led to what. Nothing on a target without
// them.
void printInjectedFaults(uint32_t session) {
    std::vector<BrennSimFaultInfo> faults(BrennSim_DescribeFaults(session, nullptr, 0));
    faults.resize(BrennSim_DescribeFaults(session, faults.data(), faults.size()));
    if (faults.empty()) return;
    std::printf("  injected by the target description (times each acted so far):\n");
    for (const BrennSimFaultInfo& fault : faults) {
        char head[48];
        std::snprintf(head, sizeof head, "    line %-4u x %-5llu ", fault.line,
                      static_cast<unsigned long long>(fault.acted));
        std::string text = fault.statement;
        if (fault.status != 0) text += std::string(": ") + statusMeaning(fault.status);
        std::fputs(wrapped(head, text).c_str(), stdout);
    }
}

// Everything between open and close: answers false when the demo could not stream at all, with
// `unservable` saying why when the target cannot serve the FIFOs asked for.
bool streamSession(uint32_t session, const DemoOptions& options, StatusLog& log, TargetPlan& plan, DemoResults& results,
                   std::string& unservable) {
    if (log.note("Quorvane_Download", Quorvane_Download(session)) < 0) return false;
    if (log.note("Quorvane_Run", Quorvane_Run(session, 0)) < 0) return false;

    const std::string error = planTarget(session, options, plan);
    std::printf("target: %s%s\n", plan.name.empty() ? "(unnamed)" : plan.name.c_str(),
                plan.undeclaredAllowed ? " (undeclared FIFOs are made on first use)" : "");
    if (!error.empty()) {
        std::fprintf(stderr, "quorvane-demo: %s\n", error.c_str());
        unservable = error;
        return false;
    }
    for (FifoPlan* fifo : {&plan.read, &plan.write}) {
        if (fifo->used && !prepareDepth(session, *fifo, options.block, log)) return false;
    }
    printPlan(plan);

    StreamSetup setup;
    setup.session = session;
    setup.block = options.block;
    setup.amount = options.amount;
    setup.terminal = isatty(STDOUT_FILENO) == 1;
    const bool regions = options.paths != StreamPaths::Copies;
    const bool copies = options.paths != StreamPaths::Regions;
    // Regions first: copying transfers are refused while a region of the FIFO is lent out.
    for (int side = 0; side < 2; ++side) {
        FifoPlan& fifo = side == 0 ? plan.read : plan.write;
        setup.timeout = callTimeout(fifo, options.block);
        if (fifo.used && regions) results.regions[side] = streamRegions(setup, fifo, log);
    }
    noteRefusedReleases(session, log);
    for (int side = 0; side < 2; ++side) {
        FifoPlan& fifo = side == 0 ? plan.read : plan.write;
        setup.timeout = callTimeout(fifo, options.block);
        if (fifo.used && copies) results.copies[side] = streamCopies(setup, fifo, log);
    }
    for (int side = 0; side < 2; ++side) {
        const FifoPlan& fifo = side == 0 ? plan.read : plan.write;
        if (fifo.used) BrennSim_GetFifoStats(session, fifo.fifo, &results.target[side]);
    }
    return true;
}

// Closes the session as a careful Host does. The library takes a session out of its registry
// before the driver closes it, so a close the driver refuses leaves the session open on the
// target with only the Host to close it: a close of a handle the library no longer holds goes
// straight to the driver. It is tried again, at most three times in all, unless the library
// answered -61217 (it completes the close itself when the last region comes back) or the
// target no longer knows the handle. Safe here because no other thread opens sessions, so the
// driver cannot have given the handle to another session in between.
void closeSession(uint32_t session, StatusLog& log) {
    constexpr int kAttempts = 3;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        const int32_t status = log.note("Quorvane_Close", Quorvane_Close(session, 0));
        if (status >= 0 || status == kQuorvaneStatusRegionsOutstanding || status == kBrennSimInvalidSession) return;
        if (attempt < kAttempts) std::printf("  the close failed with %d; closing the session again\n", status);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Line by line even into a file, so that a log of standard output and standard error
    // together shows each line where it happened.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const ParsedOptions parsed = parseDemoOptions(argc, argv);
    if (!parsed.error.empty()) {
        std::fprintf(stderr, "quorvane-demo: %s (see quorvane-demo --help)\n", parsed.error.c_str());
        return 2;
    }
    const DemoOptions& options = parsed.options;
    if (options.help) {
        std::fputs(demoUsage(), stdout);
        return 0;
    }
    if (options.version) {
        std::printf("quorvane-demo %s\n", QUORVANE_VERSION_STRING);
        return 0;
    }
    // Checked before the open: the simulated target would open its built-in default for a path
    // that names no file, and would report a directory only as a failed open.
    if (const std::string problem = options.target.empty() ? "" : targetFileProblem(options.target); !problem.empty()) {
        std::fprintf(stderr, "quorvane-demo: %s\n", problem.c_str());
        return 1;
    }

    std::printf("quorvane-demo: streaming through the simulated FPGA target with libQuorvane\n");
    StatusLog log;
    TargetPlan plan;
    DemoResults results;
    bool streamed = false;
    std::string unservable;
    log.note("Quorvane_ReserveIrqContext", Quorvane_ReserveIrqContext());
    uint32_t session = 0;
    if (log.note("Quorvane_Open", Quorvane_Open(options.target.c_str(), "", "RIO0", 0, &session)) >= 0) {
        streamed = streamSession(session, options, log, plan, results, unservable);
        printInjectedFaults(session);
        // Closed before the summary, so that the summary lists what the close answered too.
        closeSession(session, log);
        if (streamed) printSummary(plan, results, log, countDataErrors(plan, results));
    }
    log.note("Quorvane_UnreserveIrqContext", Quorvane_UnreserveIrqContext());

    const DataErrors errors = streamed ? countDataErrors(plan, results) : DataErrors{};
    const uint32_t sessionsOpen = BrennSim_OpenSessionCount();
    const size_t liveReferences = HostSim_LiveReferenceCount();
    std::printf("sessions still open on the target: %u, live Host references: %zu\n", sessionsOpen, liveReferences);
    const std::string moved = formatBytes(static_cast<double>(bytesMoved(results)));
    const unsigned long long errorStatuses = log.errorCount();
    const std::string why = unservable.empty() ? "" : " (nothing streamed: " + unservable + ")";
    std::printf("demo finished: %s moved, %llu data errors, %llu error statuses%s\n", moved.c_str(),
                static_cast<unsigned long long>(errors.total()), errorStatuses, why.c_str());
    const bool clean =
        streamed && errors.total() == 0 && errorStatuses == 0 && sessionsOpen == 0 && liveReferences == 0;
    if (clean) return 0;
    // Like a command line it cannot follow: what was asked for does not fit the target.
    return unservable.empty() || errorStatuses != 0 || sessionsOpen != 0 || liveReferences != 0 ? 1 : 2;
}
