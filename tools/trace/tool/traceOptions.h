// The command line of quorvane-trace.
#pragma once

#include <string>
#include <vector>

namespace quorvane::trace {

struct TraceOptions {
    std::string output;                // trace file; empty: standard error
    bool summary = false;              // end with a table per export and callback
    std::string library;               // the real library; empty: the one the program would load
    std::vector<std::string> command;  // the program and its arguments
    bool help = false;
    bool version = false;
};

struct ParsedTraceOptions {
    TraceOptions options;
    std::string error;  // empty when the command line is usable
};

// Options come first; "--" or the first word that is not an option starts the program's command.
ParsedTraceOptions parseTraceOptions(const std::vector<std::string>& arguments);

const char* traceUsage() noexcept;

}  // namespace quorvane::trace
