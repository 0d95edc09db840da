#include "tracedCall.h"

#include <time.h>

#include "realLibrary.h"

namespace quorvane::trace {

namespace {

thread_local unsigned tDepth = 0;

}  // namespace

uint64_t monotonicNanoseconds() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

TracedCall::TracedCall(std::string_view name, RecordKind kind) noexcept : name_(name), kind_(kind) {
    // Loading the real library at the first export call is not part of that call, and what the
    // load reports is not nested in it.
    if (kind == RecordKind::exportCall) realLibrary();
    depth_ = tDepth++;
    start_ = monotonicNanoseconds();
}

TracedCall::~TracedCall() {
    --tDepth;
}

void TracedCall::writeHeader(LineWriter& line, pid_t thread, uint64_t duration, bool hasStatus,
                             int32_t status) const noexcept {
    line.decimal(start_).put(kFieldSeparator);
    line.decimal(static_cast<uint64_t>(thread)).put(kFieldSeparator);
    line.decimal(duration).put(kFieldSeparator);
    line.decimal(depth_).put(kFieldSeparator);
    line.put(static_cast<char>(kind_)).put(kFieldSeparator);
    if (hasStatus) {
        line.signedDecimal(status);
    } else {
        line.put(kNoStatus);
    }
    line.put(kFieldSeparator).put(name_).put(kFieldSeparator);
    line.beginText(kind_ != RecordKind::exportCall);
}

void writeNote(std::string_view text) noexcept {
    TracedCall note("note", RecordKind::note);
    note.finishWithoutStatus([&](LineWriter& line) { line.put(text); });
}

}  // namespace quorvane::trace
