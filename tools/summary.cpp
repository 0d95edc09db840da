#include "summary.h"

#include <cstdio>
#include <string>

#include "HostSim.h"
#include "progress.h"
#include "statusText.h"

namespace quorvane::tools {

namespace {

using Count = unsigned long long;

const FifoPlan& fifoOf(const TargetPlan& plan, int side) {
    return side == 0 ? plan.read : plan.write;
}

std::string cell(const StreamResult& result) {
    if (!result.ran) return "-";
    std::string text = formatBytes(static_cast<double>(result.bytes)) + " at " +
                       formatRate(static_cast<double>(result.bytes), result.seconds);
    return result.failed ? text + " (stopped)" : text;
}

}  // namespace

DataErrors countDataErrors(const TargetPlan& plan, const DemoResults& results) {
    DataErrors errors;
    for (int side = 0; side < 2; ++side) {
        if (!fifoOf(plan, side).used) continue;
        const BrennSimFifoStats& target = results.target[side];
        const StreamResult& regions = results.regions[side];
        const StreamResult& copies = results.copies[side];
        errors.hostChecks += regions.mismatches + copies.mismatches;
        errors.targetPattern += target.patternErrors;
        errors.outOfOrder += target.outOfOrderReleases;
        errors.excess += target.excessReleases;
        // Every element lent must have come back, and both sides must agree on what moved.
        const auto differ = [](uint64_t a, uint64_t b) { return a > b ? a - b : b - a; };
        errors.unaccounted += differ(target.elementsAcquired, target.elementsReleased);
        errors.unaccounted += differ(target.elementsAcquired, regions.elementsInRegions);
        errors.unaccounted += differ(target.elementsTransferred, copies.bytes / fifoOf(plan, side).type->bytes);
    }
    return errors;
}

uint64_t bytesMoved(const DemoResults& results) {
    uint64_t bytes = 0;
    for (int side = 0; side < 2; ++side) bytes += results.regions[side].bytes + results.copies[side].bytes;
    return bytes;
}

std::string wrapped(const std::string& head, const std::string& text, size_t width) {
    const size_t room = width > head.size() + 20 ? width - head.size() : 20;
    std::string out, line = head;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.size();
        if (end - start > room) {
            end = text.rfind(' ', start + room);
            if (end == std::string::npos || end <= start) end = start + room;  // a word longer than a line
        }
        out += line + text.substr(start, end - start) + "\n";
        line.assign(head.size(), ' ');
        start = end;
        while (start < text.size() && text[start] == ' ') ++start;
    }
    return out.empty() ? head + "\n" : out;
}

// Every line fits an 80-column terminal, with counts of ten digits.
void printSummary(const TargetPlan& plan, const DemoResults& results, const StatusLog& log, const DataErrors& errors) {
    std::printf("\nsummary\n");
    std::printf("  %-20s %-28s %s\n", "", "regions (zero copy)", "copies (Host arrays)");
    for (int side = 0; side < 2; ++side) {
        const FifoPlan& fifo = fifoOf(plan, side);
        if (!fifo.used) continue;
        const std::string label =
            std::string(side == 0 ? "to host" : "to target") + ", FIFO " + std::to_string(fifo.fifo);
        std::printf("  %-20s %-28s %s\n", label.c_str(), cell(results.regions[side]).c_str(),
                    cell(results.copies[side]).c_str());
    }

    Count acquired = 0, retired = 0;
    for (int side = 0; side < 2; ++side) {
        acquired += results.regions[side].regionsAcquired;
        retired += results.regions[side].regionsRetired;
    }
    std::printf("  regions: %llu acquired, %llu retired; references still live: %zu\n", acquired, retired,
                HostSim_LiveReferenceCount());
    for (int side = 0; side < 2; ++side) {
        const FifoPlan& fifo = fifoOf(plan, side);
        if (!fifo.used) continue;
        const BrennSimFifoStats& t = results.target[side];
        std::printf("  target, FIFO %u: %llu elements lent, %llu handed back\n", fifo.fifo,
                    static_cast<Count>(t.elementsAcquired), static_cast<Count>(t.elementsReleased));
        std::printf("    in %llu releases; %llu elements copied\n", static_cast<Count>(t.releaseCalls),
                    static_cast<Count>(t.elementsTransferred));
    }

    std::printf("  statuses met:\n");
    for (const auto& [code, count] : log.counts()) {
        char head[32];
        std::snprintf(head, sizeof head, "    %7d  x %-8llu ", code, static_cast<Count>(count));
        std::fputs(wrapped(head, statusMeaning(code)).c_str(), stdout);
    }
    std::printf("    (quorvane-status CODE explains any code)\n");
    std::printf("  data errors: %llu (host checks %llu, target pattern checks %llu,\n",
                static_cast<Count>(errors.total()), static_cast<Count>(errors.hostChecks),
                static_cast<Count>(errors.targetPattern));
    std::printf("    out-of-order releases %llu, excess releases %llu, elements unaccounted %llu)\n",
                static_cast<Count>(errors.outOfOrder), static_cast<Count>(errors.excess),
                static_cast<Count>(errors.unaccounted));
}

}  // namespace quorvane::tools
