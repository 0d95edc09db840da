#include "traceRender.h"

#include <cstdio>

#include "QuorvaneStatus.h"
#include "traceRecord.h"

namespace quorvane::trace {

namespace {

struct StatusName {
    int32_t code;
    const char* name;
};

#define QUORVANE_TRACE_STATUS_NAME(name, value, meaning) {value, #name},
constexpr StatusName kStatusNames[] = {QUORVANE_STATUS_LIST(QUORVANE_TRACE_STATUS_NAME)};
#undef QUORVANE_TRACE_STATUS_NAME

}  // namespace

std::string statusText(int32_t status) {
    for (const StatusName& known : kStatusNames) {
        if (known.code == status) return std::to_string(status) + " " + known.name;
    }
    return std::to_string(status) + " (driver's code)";
}

std::string formatDuration(uint64_t nanoseconds) {
    char text[32];
    const auto value = static_cast<double>(nanoseconds);
    if (nanoseconds < 1000) {
        std::snprintf(text, sizeof text, "%llu ns", static_cast<unsigned long long>(nanoseconds));
    } else if (nanoseconds < 1000000) {
        std::snprintf(text, sizeof text, "%.1f us", value / 1e3);
    } else if (nanoseconds < 1000000000) {
        std::snprintf(text, sizeof text, "%.2f ms", value / 1e6);
    } else {
        std::snprintf(text, sizeof text, "%.2f s", value / 1e9);
    }
    return text;
}

std::string renderRecord(const TraceRecord& record, uint64_t epoch) {
    char head[64];
    const uint64_t since = record.start > epoch ? record.start - epoch : 0;
    std::snprintf(head, sizeof head, "%12.6f %7llu  ", static_cast<double>(since) / 1e9,
                  static_cast<unsigned long long>(record.thread));
    std::string line = head;
    line.append(2 * record.depth, ' ');
    if (record.kind == static_cast<char>(RecordKind::note)) {
        return line.append("note: ").append(record.text);
    }
    if (record.kind == static_cast<char>(RecordKind::exportCall) && record.depth > 0) line += "(library) ";
    line.append(record.name).append(record.text);
    if (record.hasStatus) line.append(" = ").append(statusText(record.status));
    return line.append(" [").append(formatDuration(record.duration)).append("]");
}

}  // namespace quorvane::trace
