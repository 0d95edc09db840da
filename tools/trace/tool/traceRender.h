// The trace as people read it: one line per record,
//
//   <seconds since start> <thread> <call or callback (arguments) -> results> = <status> [<duration>]
//
// A call that another traced call or callback made on the same thread (the library calling
// its own export) is indented by its depth, and an export call made that way is marked
// "(library)". Statuses carry their names from the library's list; other codes are the
// driver's (or the device service's) and are marked so.
#pragma once

#include <cstdint>
#include <string>

#include "traceRecords.h"

namespace quorvane::trace {

// "0 kQuorvaneStatusSuccess", or "-63100 (driver's code)".
std::string statusText(int32_t status);

// "850 ns", "12.3 us", "4.56 ms", "1.23 s".
std::string formatDuration(uint64_t nanoseconds);

// The line of `record` (without a newline); times count from `epoch` (ns, CLOCK_MONOTONIC).
std::string renderRecord(const TraceRecord& record, uint64_t epoch);

}  // namespace quorvane::trace
