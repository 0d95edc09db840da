#include "traceRecords.h"

#include <algorithm>
#include <charconv>

#include "traceRecord.h"

namespace quorvane::trace {

namespace {

// The next field of `rest`, up to a separator (consumed) or the end.
std::string_view nextField(std::string_view& rest) {
    const size_t end = rest.find(kFieldSeparator);
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return field;
}

template <class Number>
bool parseNumber(std::string_view text, Number& value) {
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
}

bool isKind(std::string_view field) {
    return field.size() == 1 &&
           (field[0] == static_cast<char>(RecordKind::exportCall) ||
            field[0] == static_cast<char>(RecordKind::callback) || field[0] == static_cast<char>(RecordKind::note));
}

}  // namespace

bool parseRecord(std::string_view line, TraceRecord& record) {
    std::string_view rest = line;
    const std::string_view start = nextField(rest), thread = nextField(rest), duration = nextField(rest);
    const std::string_view depth = nextField(rest), kind = nextField(rest), status = nextField(rest);
    record.name = nextField(rest);
    record.text = rest;
    if (!parseNumber(start, record.start) || !parseNumber(thread, record.thread) ||
        !parseNumber(duration, record.duration) || !parseNumber(depth, record.depth) || !isKind(kind) ||
        record.name.empty() || record.text.find(kFieldSeparator) != std::string_view::npos) {
        return false;
    }
    record.kind = kind[0];
    record.hasStatus = status != std::string_view(&kNoStatus, 1);
    return !record.hasStatus || parseNumber(status, record.status);
}

RecordSet readRecords(std::string text) {
    RecordSet set;
    set.storage = std::make_unique<const std::string>(std::move(text));
    std::string_view rest = *set.storage;
    while (!rest.empty()) {
        const size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        TraceRecord record;
        if (parseRecord(line, record)) {
            set.records.push_back(record);
        } else {
            ++set.malformed;
        }
    }
    std::stable_sort(set.records.begin(), set.records.end(),
                     [](const TraceRecord& a, const TraceRecord& b) { return a.start < b.start; });
    return set;
}

}  // namespace quorvane::trace
