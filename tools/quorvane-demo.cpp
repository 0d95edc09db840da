// The first program to run: a Host program that opens a session on the simulated FPGA target
// through libQuorvane and streams data through its FIFOs in both directions, by zero-copy
// regions and by copying transfers, checking every element. It links libQuorvane.so.13 like
// any Host, with the stand-ins for the driver and the Host runtime.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "BrennSim.h"
#include "HostSim.h"
#include "Quorvane.h"
#include "copyStream.h"
#include "demoOptions.h"
#include "progress.h"
#include "regionStream.h"
#include "statusLog.h"
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

// Everything between open and close: answers false when the demo could not stream at all.
bool streamSession(uint32_t session, const DemoOptions& options, StatusLog& log, TargetPlan& plan,
                   DemoResults& results) {
    if (log.note("Quorvane_Download", Quorvane_Download(session)) < 0) return false;
    if (log.note("Quorvane_Run", Quorvane_Run(session, 0)) < 0) return false;

    const std::string error = planTarget(session, options, plan);
    std::printf("target: %s%s\n", plan.name.empty() ? "(unnamed)" : plan.name.c_str(),
                plan.undeclaredAllowed ? " (FIFOs it does not declare are made on first use)" : "");
    if (!error.empty()) {
        std::fprintf(stderr, "quorvane-demo: %s\n", error.c_str());
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

}  // namespace

int main(int argc, char** argv) {
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
    std::error_code ignored;
    if (!options.target.empty() && !std::filesystem::is_regular_file(options.target, ignored)) {
        std::fprintf(stderr, "quorvane-demo: target description '%s' does not exist\n", options.target.c_str());
        return 1;
    }

    std::printf("quorvane-demo: streaming through the simulated FPGA target with libQuorvane\n");
    StatusLog log;
    TargetPlan plan;
    DemoResults results;
    bool streamed = false;
    log.note("Quorvane_ReserveIrqContext", Quorvane_ReserveIrqContext());
    uint32_t session = 0;
    if (log.note("Quorvane_Open", Quorvane_Open(options.target.c_str(), "", "RIO0", 0, &session)) >= 0) {
        streamed = streamSession(session, options, log, plan, results);
        const DataErrors errors = countDataErrors(plan, results);
        if (streamed) printSummary(plan, results, log, errors);
        log.note("Quorvane_Close", Quorvane_Close(session, 0));
    }
    log.note("Quorvane_UnreserveIrqContext", Quorvane_UnreserveIrqContext());

    const DataErrors errors = streamed ? countDataErrors(plan, results) : DataErrors{};
    const uint32_t sessionsOpen = BrennSim_OpenSessionCount();
    const size_t liveReferences = HostSim_LiveReferenceCount();
    std::printf("sessions still open on the target: %u, live Host references: %zu\n", sessionsOpen, liveReferences);
    const std::string moved = formatBytes(static_cast<double>(bytesMoved(results)));
    const unsigned long long errorStatuses = log.errorCount();
    std::printf("demo finished: %s moved, %llu data errors, %llu error statuses\n", moved.c_str(),
                static_cast<unsigned long long>(errors.total()), errorStatuses);
    const bool clean =
        streamed && errors.total() == 0 && errorStatuses == 0 && sessionsOpen == 0 && liveReferences == 0;
    return clean ? 0 : 1;
}
