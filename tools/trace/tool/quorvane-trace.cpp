// quorvane-trace: runs a Host program with every call into libQuorvane.so.13, and every callback
// the library gives the Host, recorded; then writes the records in the order the calls began,
// and with --summary a table per export. See README.md beside this folder.
//
// The program runs with the forwarding library preloaded (LD_PRELOAD): it has the real
// library's SONAME, so it satisfies the program's need for libQuorvane.so.13, and it comes first
// in symbol lookup. It loads the real library found here by its absolute path and forwards to it.
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "QuorvaneVersion.h"
#include "childProcess.h"
#include "libraryLocation.h"
#include "traceOptions.h"
#include "traceRecord.h"
#include "traceRecords.h"
#include "traceRender.h"
#include "traceSummary.h"

namespace {

using namespace quorvane::trace;

constexpr int kTraceFailed = 125;
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

int fail(int code, const std::string& message) {
    std::fprintf(stderr, "quorvane-trace: %s\n", message.c_str());
    return code;
}

uint64_t monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

// The file the forwarding library appends its records to, removed when the trace is written.
class RecordsFile {
public:
    RecordsFile() {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/quorvane-trace.XXXXXX";
        const int descriptor = mkstemp(path_.data());
        if (descriptor < 0) {
            path_.clear();
        } else {
            close(descriptor);
        }
    }
    ~RecordsFile() {
        if (!path_.empty()) unlink(path_.c_str());
    }
    RecordsFile(const RecordsFile&) = delete;
    RecordsFile& operator=(const RecordsFile&) = delete;

    const std::string& path() const { return path_; }
    std::string contents() const {
        std::ostringstream text;
        text << std::ifstream(path_, std::ios::binary).rdbuf();
        return text.str();
    }

private:
    std::string path_;
};

std::string commandLine(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command) line += (line.empty() ? "" : " ") + word;
    return line;
}

// The real library: the one named, or the one the program would load.
LibraryLookup realLibraryFor(const TraceOptions& options, const std::string& program, const Environment& environment) {
    if (options.library.empty()) return findRealLibrary(program, environment);
    std::error_code error;
    const auto path = std::filesystem::absolute(options.library, error).lexically_normal();
    if (error || !std::filesystem::is_regular_file(path, error)) return {"", options.library + ": no such library"};
    return {path.string(), ""};
}

void writeTrace(std::FILE* out, const TraceOptions& options, const std::string& library, const RecordSet& set,
                uint64_t epoch, uint64_t end, int exitCode) {
    std::fprintf(out, "# quorvane-trace: %s\n# library: %s\n", commandLine(options.command).c_str(), library.c_str());
    std::fprintf(out, "# seconds since start, thread, call (arguments) -> results = status [duration]\n");
    for (const TraceRecord& record : set.records) std::fprintf(out, "%s\n", renderRecord(record, epoch).c_str());
    if (set.malformed != 0) std::fprintf(out, "# %zu lines of the records could not be read\n", set.malformed);
    if (!options.summary) return;
    std::fprintf(out, "\nsummary: %zu records in %.3f s, program exit code %d\n", set.records.size(),
                 static_cast<double>(end - epoch) / 1e9, exitCode);
    std::fputs(summaryTable(set.records).c_str(), out);
}

}  // namespace

int main(int argc, char** argv) {
    const ParsedTraceOptions parsed = parseTraceOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (!parsed.error.empty()) return fail(kTraceFailed, parsed.error + " (see quorvane-trace --help)");
    const TraceOptions& options = parsed.options;
    if (options.help) {
        std::fputs(traceUsage(), stdout);
        return 0;
    }
    if (options.version) {
        std::printf("quorvane-trace %s\n", QUORVANE_VERSION_STRING);
        return 0;
    }

    Environment environment = Environment::ofThisProcess();
    const std::string program = findProgram(options.command[0], environment.find("PATH"));
    std::error_code missing;
    if (program.empty() || !std::filesystem::exists(program, missing)) {
        return fail(kNotFound, options.command[0] + ": program not found");
    }
    const std::string forwarder = forwardingLibraryPath();
    if (forwarder.empty()) return fail(kTraceFailed, "the forwarding library is missing beside quorvane-trace");
    const LibraryLookup library = realLibraryFor(options, program, environment);
    if (!library.error.empty()) return fail(kTraceFailed, library.error);
    std::error_code same;
    if (std::filesystem::equivalent(library.path, forwarder, same)) {
        return fail(kTraceFailed, library.path + " is the forwarding library itself, not the real one");
    }
    std::FILE* out = options.output.empty() ? stderr : std::fopen(options.output.c_str(), "w");
    if (out == nullptr) return fail(kTraceFailed, "cannot write " + options.output + ": " + std::strerror(errno));
    const RecordsFile records;
    if (records.path().empty()) return fail(kTraceFailed, std::string("cannot make a file: ") + std::strerror(errno));

    // Preloaded after what the user preloads already: a sanitizer's runtime must stay first.
    const char* preloaded = environment.find("LD_PRELOAD");
    environment.set("LD_PRELOAD",
                    preloaded != nullptr && *preloaded != '\0' ? std::string(preloaded) + ":" + forwarder : forwarder);
    environment.set(kRealLibraryVariable, library.path);
    environment.set(kRecordsVariable, records.path());
    const uint64_t epoch = monotonicNow();
    const ChildOutcome outcome = runChild(options.command, environment, false);
    const uint64_t end = monotonicNow();
    if (outcome.spawnError != 0) {
        return fail(outcome.spawnError == ENOENT ? kNotFound : kCannotRun,
                    "cannot run " + options.command[0] + ": " + std::strerror(outcome.spawnError));
    }

    writeTrace(out, options, library.path, readRecords(records.contents()), epoch, end, outcome.exitCode);
    if (out != stderr && std::fclose(out) != 0) return fail(kTraceFailed, "cannot write " + options.output);
    return outcome.exitCode < 0 ? kTraceFailed : outcome.exitCode;
}
