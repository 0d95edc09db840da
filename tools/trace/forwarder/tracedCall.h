// One traced call of an export or of a callback, on the calling thread: it takes the start time
// and the nesting depth when made, and writes its record when finished. Calls nest when the
// library calls one of its own exports (they go through the forwarding library too) or a
// callback calls into the library; the depth says so in the record.
#pragma once

#include <cstdint>
#include <string_view>

#include "lineWriter.h"
#include "threadBuffer.h"
#include "traceRecord.h"

namespace quorvane::trace {

// CLOCK_MONOTONIC in nanoseconds.
uint64_t monotonicNanoseconds() noexcept;

class TracedCall {
public:
    TracedCall(std::string_view name, RecordKind kind) noexcept;
    ~TracedCall();
    TracedCall(const TracedCall&) = delete;
    TracedCall& operator=(const TracedCall&) = delete;

    // Writes the record: `describe(LineWriter&)` writes the arguments and results.
    template <class Describe>
    void finish(int32_t status, Describe&& describe) noexcept {
        write(true, status, describe);
    }
    template <class Describe>
    void finishWithoutStatus(Describe&& describe) noexcept {
        write(false, 0, describe);
    }

private:
    template <class Describe>
    void write(bool hasStatus, int32_t status, Describe& describe) noexcept {
        const uint64_t end = monotonicNanoseconds();
        RecordSlot slot;
        if (!slot) return;
        LineWriter line(slot.begin(), slot.end());
        writeHeader(line, slot.thread(), end - start_, hasStatus, status);
        describe(line);
        slot.commit(line.finishLine());
    }
    void writeHeader(LineWriter& line, pid_t thread, uint64_t duration, bool hasStatus, int32_t status) const noexcept;

    std::string_view name_;
    RecordKind kind_;
    unsigned depth_ = 0;
    uint64_t start_ = 0;
};

// A record that is not a call: something the user should know about the trace itself.
void writeNote(std::string_view text) noexcept;

}  // namespace quorvane::trace
