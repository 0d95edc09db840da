// The demo's closing report: bytes and throughput per direction and path, regions, every
// status met, and the data errors seen by the host and by the target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "BrennSim.h"
#include "statusLog.h"
#include "stream.h"
#include "targetPlan.h"

namespace quorvane::tools {

// Index 0 is the to-host FIFO, 1 the to-target FIFO.
struct DemoResults {
    StreamResult regions[2];
    StreamResult copies[2];
    BrennSimFifoStats target[2] = {};  // the target's counters, read before the session closes
};

struct DataErrors {
    uint64_t hostChecks = 0;     // elements read that broke the pattern, regions misdescribed
    uint64_t targetPattern = 0;  // elements written that the target found wrong
    uint64_t outOfOrder = 0;     // releases the target saw out of acquisition order
    uint64_t excess = 0;         // releases of more than was lent
    uint64_t unaccounted = 0;    // elements the host and the target count differently

    uint64_t total() const noexcept { return hostChecks + targetPattern + outOfOrder + excess + unaccounted; }
};

DataErrors countDataErrors(const TargetPlan& plan, const DemoResults& results);

uint64_t bytesMoved(const DemoResults& results);

// `head` followed by `text`, broken at spaces into lines of at most `width` columns, the later
// lines indented as far as `head` reaches; a word longer than a line is cut.
std::string wrapped(const std::string& head, const std::string& text, size_t width = 79);

// Every line of the summary fits an 80-column terminal.
void printSummary(const TargetPlan& plan, const DemoResults& results, const StatusLog& log, const DataErrors& errors);

}  // namespace quorvane::tools
