// quorvane-trace as a command: where the trace goes, which library it forwards to, the exit code
// it hands on, and what it says when it cannot trace.
#include <gmock/gmock.h>

#include "traceRun.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct ExitCase {
    const char* name;
    std::vector<std::string> host;  // the trace Host's arguments
    int exitCode;
    bool traced;  // whether the Host's open is in the trace (a signal loses buffered records)
};

// Test names and failure messages show the case by its name.
void PrintTo(const ExitCase& value, std::ostream* out) {
    *out << value.name;
}

class TracedExit : public ::testing::TestWithParam<ExitCase> {};

TEST_P(TracedExit, HandsOnTheProgramsExitCode) {
    std::vector<std::string> command{QUORVANE_TRACE_HOST};
    command.insert(command.end(), GetParam().host.begin(), GetParam().host.end());
    const TraceRun run = traceProgram(command);
    EXPECT_EQ(run.exitCode, GetParam().exitCode) << run.err;
    EXPECT_THAT(run.trace, HasSubstr("program exit code " + std::to_string(GetParam().exitCode) + "\n"));
    EXPECT_EQ(run.trace.find("Quorvane_Open(") != std::string::npos, GetParam().traced) << run.trace;
}

INSTANTIATE_TEST_SUITE_P(Outcomes, TracedExit,
                         ::testing::Values(ExitCase{"success", {"exit", "0"}, 0, true},
                                           ExitCase{"failure", {"exit", "3"}, 3, true},
                                           ExitCase{"signal", {"kill"}, 128 + 15, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(TraceDestination, IsStandardErrorAfterTheProgramWhenNoFileIsNamed) {
    const TraceRun run = runTraceTool({QUORVANE_TRACE_HOST, "exit", "0"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.out, Not(HasSubstr("Quorvane_")));
    EXPECT_THAT(run.err, HasSubstr("# quorvane-trace: " + std::string(QUORVANE_TRACE_HOST) + " exit 0\n"));
    EXPECT_EQ(traceLines(run.err).size(), 2u) << run.err;  // the open and the close
    EXPECT_THAT(run.err, Not(HasSubstr("summary:")));
}

// Without --library, the library the program's loader picks (the build's, through the
// program's RUNPATH); with it, the one named.
TEST(TraceLibrary, IsTheOneTheProgramWouldLoadUnlessNamed) {
    const TraceRun found = traceProgram({QUORVANE_TRACE_HOST, "exit", "0"});
    EXPECT_THAT(found.trace, HasSubstr("# library: " + std::string(QUORVANE_LIBRARY_SONAME_FILE) + "\n"));
    const TempPath trace("named.trace");
    const TraceRun named =
        runTraceTool({"--library", QUORVANE_LIBRARY_FILE, "-o", trace.path(), QUORVANE_TRACE_HOST, "exit", "0"});
    EXPECT_EQ(named.exitCode, 0) << named.err;
    EXPECT_THAT(readFile(trace.path()), HasSubstr("# library: " + std::string(QUORVANE_LIBRARY_FILE) + "\n"));
    EXPECT_EQ(traceLines(readFile(trace.path())).size(), 2u);
}

// A Host function the program's executable implements is found before the forwarding library's:
// the callbacks it carries go untraced, and the trace says so rather than staying silent.
TEST(TraceLimits, AreNamedWhenTheProgramDefinesAHostFunctionItself) {
    const TraceRun run = traceProgram({QUORVANE_OWN_CLEANUP_HOST});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("cleanup procedures run: 1\n"));
    EXPECT_THAT(run.trace, HasSubstr("  note: the program's own RTSetCleanupProc comes before the trace's: what it is "
                                     "given is traced only if it passes it on to the next definition\n"));
    EXPECT_THAT(run.trace, Not(HasSubstr("note: EDVR_CreateReference")));
    EXPECT_THAT(run.trace, HasSubstr("Quorvane_Open("));
    EXPECT_THAT(run.trace, Not(HasSubstr("cleanup procedure (")));
}

struct RefusalCase {
    const char* name;
    std::vector<std::string> arguments;
    int exitCode;
    const char* message;
};

// Test names and failure messages show the case by its name.
void PrintTo(const RefusalCase& value, std::ostream* out) {
    *out << value.name;
}

class TraceRefusal : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(TraceRefusal, SaysWhyAndRunsNothing) {
    const TraceRun run = runTraceTool(GetParam().arguments, {"LD_LIBRARY_PATH"});
    EXPECT_EQ(run.exitCode, GetParam().exitCode);
    EXPECT_THAT(run.err, HasSubstr(std::string("quorvane-trace: ") + GetParam().message));
    EXPECT_EQ(run.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, TraceRefusal,
    ::testing::Values(
        RefusalCase{"noProgram", {}, 125, "no program to trace"},
        RefusalCase{"unknownOption", {"--bogus", "x"}, 125, "unknown option"},
        RefusalCase{"outputWithoutPath", {"-o"}, 125, "-o needs a path"},
        RefusalCase{"missingProgram", {"--", "/no/such/program"}, 127, "/no/such/program: program not found"},
        RefusalCase{"programNotExecutable", {"--library", QUORVANE_LIBRARY_FILE, __FILE__}, 126, "cannot run "},
        RefusalCase{
            "programNotInPath", {"no-such-program-anywhere"}, 127, "no-such-program-anywhere: program not found"},
        RefusalCase{"missingLibrary",
                    {"--library", "/no/such/libQuorvane.so.13", QUORVANE_TRACE_HOST},
                    125,
                    "/no/such/libQuorvane.so.13: no such library"},
        RefusalCase{"programWithoutTheLibrary", {"--", "/bin/true"}, 125, "/bin/true does not link libQuorvane.so.13"},
        RefusalCase{"unwritableTrace",
                    {"-o", "/no/such/folder/trace", QUORVANE_TRACE_HOST},
                    125,
                    "cannot write /no/such/folder/trace"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quorvane::testing
