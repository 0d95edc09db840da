// The table --summary adds: per export and per callback, how many calls, the errors by code, and
// the median, 99th percentile and longest duration.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "traceRecords.h"

namespace quorvane::trace {

struct DurationStatistics {
    uint64_t median = 0;
    uint64_t percentile99 = 0;
    uint64_t longest = 0;
};

// Nearest-rank percentiles: the smallest duration that at least that share of calls did not
// exceed (the median of 1, 2, 3, 4 is 2). All 0 for no durations.
DurationStatistics durationStatistics(std::vector<uint64_t> durations);

// The table, lines ending in newlines. Columns are separated by at least two spaces; rows are in
// the order of the names.
std::string summaryTable(const std::vector<TraceRecord>& records);

}  // namespace quorvane::trace
