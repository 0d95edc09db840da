// Where the forwarding library keeps records until they are written: one buffer per thread.
//
// A call appends its record to its own thread's buffer, under that buffer's mutex, which only
// the process's exit (or a fork) ever contends: threads never wait for each other to trace. A
// buffer is written to the records file with one write() when it is nearly full, when its thread
// ends, and when the process exits; the file is opened with O_APPEND, so each write lands whole
// after the others. Records therefore reach the file grouped by thread, not in time order:
// quorvane-trace orders them afterwards by their start times.
//
// Lost: what a thread still buffers when the process ends without exit() (_exit, a fatal
// signal, a crash).
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace quorvane::trace {

struct ThreadBuffer;

// The longest record; a buffer always has this much room before a record is written.
inline constexpr size_t kRecordCapacity = 1024;

// This thread's buffer, locked, with room for one record. Empty when no records file is open
// or the buffer could not be allocated: the record is then dropped.
class RecordSlot {
public:
    RecordSlot() noexcept;
    ~RecordSlot();
    RecordSlot(const RecordSlot&) = delete;
    RecordSlot& operator=(const RecordSlot&) = delete;

    explicit operator bool() const noexcept { return buffer_ != nullptr; }
    char* begin() const noexcept;
    char* end() const noexcept { return begin() + kRecordCapacity; }
    pid_t thread() const noexcept;
    // Keeps what was written up to `end`.
    void commit(char* end) noexcept;

private:
    ThreadBuffer* buffer_;
};

}  // namespace quorvane::trace
