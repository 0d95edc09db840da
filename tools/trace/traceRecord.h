// What the forwarding library writes and quorvane-trace reads back: one record per call or
// callback, one text line each, fields separated by tabs:
//
//   start  thread  duration  depth  kind  status  name  text
//
//   start     nanoseconds of CLOCK_MONOTONIC when the call began (the same clock in every
//             process, so records of several processes and threads can be put in one order)
//   thread    the kernel's thread id of the caller
//   duration  nanoseconds the call took
//   depth     0 for a call made by the Host; 1 and more for calls made from inside another
//             traced call or callback on the same thread (the library calling its own export)
//   kind      'X' a call of an export, 'C' a callback the library gave the Host, 'N' a note
//   status    the signed 32-bit result, or '-' for a call that returns none
//   name      the export's name, or the callback's ("cleanup procedure", ...)
//   text      arguments and results, already written for people; never holds a tab or newline
//
// Both sides are built from this tree at once, so the format carries no version.
#pragma once

namespace quorvane::trace {

// Environment variables quorvane-trace sets for the traced program.
inline constexpr const char kRealLibraryVariable[] = "QUORVANE_TRACE_LIBRARY";  // absolute path
inline constexpr const char kRecordsVariable[] = "QUORVANE_TRACE_RECORDS";      // file records go to

inline constexpr char kFieldSeparator = '\t';
inline constexpr char kNoStatus = '-';

enum class RecordKind : char { exportCall = 'X', callback = 'C', note = 'N' };

}  // namespace quorvane::trace
