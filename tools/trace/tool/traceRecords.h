// Reading the records the forwarding library wrote (their format is in traceRecord.h) and
// putting them in the order the calls began.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::trace {

struct TraceRecord {
    uint64_t start = 0;  // ns, CLOCK_MONOTONIC
    uint64_t thread = 0;
    uint64_t duration = 0;  // ns
    unsigned depth = 0;
    char kind = 0;  // a RecordKind
    bool hasStatus = false;
    int32_t status = 0;
    std::string_view name;
    std::string_view text;
};

struct RecordSet {
    std::unique_ptr<const std::string> storage;  // what the views point into
    std::vector<TraceRecord> records;            // by start time; equal starts keep the file's order
    size_t malformed = 0;                        // lines that are not records
};

// One line, without its newline; false when it is not a record.
bool parseRecord(std::string_view line, TraceRecord& record);

RecordSet readRecords(std::string text);

}  // namespace quorvane::trace
