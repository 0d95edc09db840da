#include "traceOptions.h"

namespace quorvane::trace {

ParsedTraceOptions parseTraceOptions(const std::vector<std::string>& arguments) {
    ParsedTraceOptions parsed;
    TraceOptions& options = parsed.options;
    size_t next = 0;
    const auto valueOf = [&](const std::string& option, std::string& into) {
        if (next >= arguments.size() || arguments[next].empty()) {
            parsed.error = option + " needs a path";
            return false;
        }
        into = arguments[next++];
        return true;
    };
    while (next < arguments.size()) {
        const std::string& word = arguments[next++];
        if (word == "--") break;
        if (word == "-o" || word == "--output") {
            if (!valueOf(word, options.output)) return parsed;
        } else if (word == "--library") {
            if (!valueOf(word, options.library)) return parsed;
        } else if (word == "--summary") {
            options.summary = true;
        } else if (word == "-h" || word == "--help") {
            options.help = true;
            return parsed;
        } else if (word == "--version") {
            options.version = true;
            return parsed;
        } else if (word.size() > 1 && word[0] == '-') {
            parsed.error = "unknown option '" + word + "'";
            return parsed;
        } else {
            --next;
            break;
        }
    }
    options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(next), arguments.end());
    if (options.command.empty()) parsed.error = "no program to trace";
    return parsed;
}

const char* traceUsage() noexcept {
    return "usage: quorvane-trace [-o FILE] [--summary] [--library PATH] [--] PROGRAM [ARGUMENT...]\n"
           "\n"
           "Runs PROGRAM, a Host program that uses libQuorvane.so.13, and records every call into the\n"
           "library and every callback the library gave the Host, one line each: seconds since the\n"
           "start, thread id, the call with its arguments and results, its status, its duration.\n"
           "\n"
           "  -o, --output FILE  write the trace to FILE (default: standard error, after PROGRAM ends)\n"
           "  --summary          end with a table per export and callback: calls, errors by code,\n"
           "                     median, 99th percentile and longest duration\n"
           "  --library PATH     the libQuorvane.so.13 to forward to (default: the one PROGRAM's\n"
           "                     dynamic loader picks, else one found in LD_LIBRARY_PATH)\n"
           "  -h, --help         show this text\n"
           "  --version          show the version\n"
           "\n"
           "The exit code is PROGRAM's (128 + the signal's number when a signal ended it), 125 when\n"
           "the trace could not be set up, 126 when PROGRAM cannot be run, 127 when it is not found.\n";
}

}  // namespace quorvane::trace
