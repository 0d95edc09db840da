#include "traceSummary.h"

#include <algorithm>
#include <map>

#include "traceRecord.h"
#include "traceRender.h"

namespace quorvane::trace {

namespace {

struct Row {
    std::vector<uint64_t> durations;
    std::map<int32_t, uint64_t> errors;  // code -> count
};

// The smallest of the sorted durations that `percent` of them do not exceed (nearest rank).
uint64_t rank(const std::vector<uint64_t>& sorted, size_t percent) {
    const size_t wanted = (percent * sorted.size() + 99) / 100;
    return sorted[std::clamp<size_t>(wanted, 1, sorted.size()) - 1];
}

std::string padded(const std::string& text, size_t width, bool right) {
    if (text.size() >= width) return text;
    const std::string fill(width - text.size(), ' ');
    return right ? fill + text : text + fill;
}

std::string errorList(const std::map<int32_t, uint64_t>& errors) {
    if (errors.empty()) return "-";
    std::string list;
    for (const auto& [code, count] : errors) {
        if (!list.empty()) list += ", ";
        list += std::to_string(code) + " x" + std::to_string(count);
    }
    return list;
}

}  // namespace

DurationStatistics durationStatistics(std::vector<uint64_t> durations) {
    if (durations.empty()) return {};
    std::sort(durations.begin(), durations.end());
    return {rank(durations, 50), rank(durations, 99), durations.back()};
}

std::string summaryTable(const std::vector<TraceRecord>& records) {
    std::map<std::string, Row, std::less<>> rows;
    for (const TraceRecord& record : records) {
        if (record.kind == static_cast<char>(RecordKind::note)) continue;
        Row& row = rows[std::string(record.name)];
        row.durations.push_back(record.duration);
        if (record.hasStatus && record.status < 0) ++row.errors[record.status];
    }
    size_t nameWidth = 4, errorWidth = 6;
    for (const auto& [name, row] : rows) {
        nameWidth = std::max(nameWidth, name.size());
        errorWidth = std::max(errorWidth, errorList(row.errors).size());
    }
    const auto line = [&](const std::string& name, const std::string& calls, const std::string& errors,
                          const std::string& median, const std::string& p99, const std::string& longest) {
        return "  " + padded(name, nameWidth, false) + "  " + padded(calls, 8, true) + "  " +
               padded(errors, errorWidth, false) + "  " + padded(median, 10, true) + "  " + padded(p99, 10, true) +
               "  " + padded(longest, 10, true) + "\n";
    };
    std::string table = line("call", "calls", "errors", "median", "p99", "longest");
    for (const auto& [name, row] : rows) {
        const DurationStatistics statistics = durationStatistics(row.durations);
        table +=
            line(name, std::to_string(row.durations.size()), errorList(row.errors), formatDuration(statistics.median),
                 formatDuration(statistics.percentile99), formatDuration(statistics.longest));
    }
    return table;
}

}  // namespace quorvane::trace
