// quorvane-trace on the demo and on a multi-threaded Host (traceHost.cpp): every call and callback
// traced with its thread and status, counted in the summary; exit codes handed on; limits said.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>
#include <utility>

#include "QuorvaneStatus.h"
#include "tools/programRun.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;

struct Traced {
    ProgramRun run;
    std::string trace;
    // Each call and callback line in time order: its thread, what comes after that but the
    // duration (its addresses as 0x...), its status.
    std::vector<std::tuple<uint64_t, std::string, int32_t>> lines;
};

// quorvane-trace -o FILE --summary -- command. Each line must name its status after its code, and
// the summary count the lines' calls and errors by code per name.
Traced traceProgram(const std::string& command) {
#define QUORVANE_TEST_STATUS(name, value, meaning) {value, #name},
    static const std::map<int32_t, std::string> kNames = {QUORVANE_STATUS_LIST(QUORVANE_TEST_STATUS)};
#undef QUORVANE_TEST_STATUS
    static const std::regex kLine(R"(^ *([0-9]+\.[0-9]{6}) +([0-9]+)  ( *(?:\(library\) )?)"
                                  R"((Quorvane_[A-Za-z0-9]+|[a-z][a-z ]*[a-z])\(?.*? = (-?[0-9]+) )"
                                  R"((kQuorvaneStatus[A-Za-z]+|\(driver's code\))) \[[0-9.]+ [nums]+\]$)");
    static const std::regex kAddress("0x[0-9a-f]{9,}");
    const TempFile file("trace");
    Traced traced{runProgram(QUORVANE_TRACE " -o " + file.path.string() + " --summary -- " + command), file.read(), {}};
    std::map<std::string, std::pair<uint64_t, std::map<int32_t, uint64_t>>> counted;
    std::istringstream input(traced.trace);
    std::smatch match;
    double previous = 0;
    for (std::string text; std::getline(input, text) && !text.starts_with("summary:");) {
        if (text.empty() || text[0] == '#') continue;
        EXPECT_TRUE(std::regex_match(text, match, kLine)) << "not a trace line: " << text;
        if (match.empty()) continue;
        const int32_t status = std::stoi(match[5]);
        traced.lines.emplace_back(std::stoull(match[2]), std::regex_replace(match[3].str(), kAddress, "0x..."), status);
        const auto known = kNames.find(status);
        EXPECT_EQ(match[6], known == kNames.end() ? "(driver's code)" : known->second) << text;
        EXPECT_GE(std::stod(match[1]), std::exchange(previous, std::stod(match[1]))) << text;
        ++counted[match[4]].first;
        if (status < 0) ++counted[match[4]].second[status];
    }
    const std::string summary = traced.trace.substr(traced.trace.find("\nsummary: ") + 1);  // all when it has none
    for (const auto& [name, tally] : counted) {
        std::string errors;
        for (const auto& [code, times] : tally.second) {
            errors += (errors.empty() ? "" : ", ") + std::to_string(code) + " x" + std::to_string(times);
        }
        EXPECT_THAT(summary, ::testing::ContainsRegex("\n  " + name + " +" + std::to_string(tally.first) + "  " +
                                                      (errors.empty() ? "-" : errors) + "  "));
    }
    EXPECT_EQ(static_cast<size_t>(std::count(summary.begin(), summary.end(), '\n')), 2 + counted.size());  // + heads
    return traced;
}

// The number the demo printed after `label`.
int64_t reported(const std::string& out, const std::string& label) {
    std::smatch match;
    EXPECT_TRUE(std::regex_search(out, match, std::regex(label + " ([0-9]+)"))) << label << "\n" << out;
    return match.empty() ? -1 : std::stoll(match[1]);
}

// The demo on the default target and on the board that misbehaves on purpose, with its exit code.
const std::pair<const char*, int> kDemoRuns[] = {{QUORVANE_DEMO " --amount 2M --type I16", 0},
                                                 {QUORVANE_DEMO " --target " FLAKY_BOARD, 1}};

class TracedDemo : public ::testing::TestWithParam<size_t> {};

// From the demo's one thread: every call whose status its summary counts (but the releases the
// target refused), the IRQ context given back after it, every region acquired and deleted.
TEST_P(TracedDemo, RecordsEveryCallAndRegionTheDemoCounts) {
    const Traced traced = traceProgram(kDemoRuns[GetParam()].first);
    EXPECT_EQ(traced.run.exitCode, kDemoRuns[GetParam()].second) << traced.run.err;
    ASSERT_FALSE(traced.lines.empty());
    const std::string& out = traced.run.out;
    int64_t errors = 0, acquired = 0, deleted = 0;
    for (const auto& [thread, call, status] : traced.lines) {
        EXPECT_EQ(thread, std::get<0>(traced.lines.front())) << call;
        errors += status < 0;
        acquired += call.starts_with("Quorvane_AcquireFifo") && status == 0;
        deleted += call.starts_with("region deleted");
    }
    const int64_t refused = out.find("the target refused") == std::string::npos ? 0 : reported(out, "refused");
    EXPECT_EQ(errors, reported(out, "errors,") - refused);
    EXPECT_EQ(static_cast<int64_t>(traced.lines.size()) - errors, reported(out, " 0  x") + 1);
    EXPECT_THAT(std::get<1>(traced.lines.back()), ::testing::StartsWith("Quorvane_UnreserveIrqContext("));
    EXPECT_EQ(acquired, reported(out, "regions:"));
    EXPECT_EQ(deleted, reported(out, "acquired,"));
}

INSTANTIATE_TEST_SUITE_P(Targets, TracedDemo, ::testing::Range<size_t>(0, std::size(kDemoRuns)));

// Arguments of quorvane-trace, its exit code, what its standard error holds (without -o, the trace
// too: a note where the program's own Host function keeps what it is given from the trace).
const std::tuple<const char*, int, std::vector<std::string>> kInvocations[] = {
    {"--summary " QUORVANE_TRACE_HOST " 3",
     3,
     {"# library: " QUORVANE_LIBRARY_SONAME_FILE "\n", "Quorvane_Close(", "program exit code 3\n"}},
    {"--summary " QUORVANE_TRACE_HOST " kill", 128 + 15, {"program exit code 143\n"}},
    {QUORVANE_OWN_CLEANUP_HOST " 0", 0, {"Quorvane_Open(", "note: the program's own RTSetCleanupProc comes before"}},
    {"--library " QUORVANE_LIBRARY_FILE " " QUORVANE_TRACE_HOST " 0", 0, {"# library: " QUORVANE_LIBRARY_FILE}},
    {"", 125, {"quorvane-trace: no program to trace"}},
    {"--bogus x", 125, {"quorvane-trace: unknown option"}},
    {"-- /no/program", 127, {"quorvane-trace: /no/program: program not found"}},
    {"--library " QUORVANE_LIBRARY_FILE " " __FILE__, 126, {"quorvane-trace: cannot run "}},
    {"--library /no/libQuorvane.so.13 " QUORVANE_TRACE_HOST, 125, {"/no/libQuorvane.so.13: no such"}},
    {"/bin/true", 125, {"quorvane-trace: /bin/true does not link libQuorvane.so.13"}},
    {"-o /no/trace " QUORVANE_TRACE_HOST, 125, {"quorvane-trace: cannot write /no/trace"}}};

class QuorvaneTraceRun : public ::testing::TestWithParam<size_t> {};

// quorvane-trace hands on the program's exit code (128 + N for signal N), forwards to the library
// the program's loader picks unless one is named, and says why it runs nothing when it cannot.
TEST_P(QuorvaneTraceRun, ExitsAndSaysAsDocumented) {
    const auto& [arguments, exitCode, err] = kInvocations[GetParam()];
    const ProgramRun run = runProgram("env -u LD_LIBRARY_PATH " QUORVANE_TRACE " " + std::string(arguments));
    EXPECT_EQ(run.exitCode, exitCode) << arguments << "\n" << run.err;
    for (const std::string& held : err) EXPECT_THAT(run.err, HasSubstr(held));
    EXPECT_EQ(run.out, "");
}

INSTANTIATE_TEST_SUITE_P(CommandLines, QuorvaneTraceRun, ::testing::Range<size_t>(0, std::size(kInvocations)));

// Each worker's register calls, the aborted acquisition, and on the main thread every callback the
// Host ran and the close the library made of its own export, nested in the open that made it.
TEST(TracedHost, RecordsEveryThreadsCallsAndEveryCallback) {
    const Traced traced = traceProgram(QUORVANE_TRACE_HOST);
    ASSERT_EQ(traced.run.exitCode, 0) << traced.run.out << traced.run.err;
    ASSERT_FALSE(traced.lines.empty());
    std::map<uint64_t, std::string> threads;
    for (const auto& [thread, call, status] : traced.lines) threads[thread] += call + "\n";
    EXPECT_EQ(
        threads[std::get<0>(traced.lines.front())],
        R"(Quorvane_Open(bitfile "", signature "", resource "RIO0", attribute 0) -> session 0x10 = 0 kQuorvaneStatusSuccess
Quorvane_AcquireFifoReadRegionScalar(session 0x10, fifo 2, elements 4096, type U32, timeout 1000 ms) -> reference 1, record 0x..., acquired 4096, remaining 0 = 0 kQuorvaneStatusSuccess
abort procedure (argument 0x...) = 0 kQuorvaneStatusSuccess
region deleted (record 0x..., elements 4096, bytes each 4) = 0 kQuorvaneStatusSuccess
Quorvane_Open(bitfile "", signature "", resource "RIO0", attribute 0) = -52003 kQuorvaneStatusInternalError
  (library) Quorvane_Close(session 0x11, attribute 1) = 0 kQuorvaneStatusSuccess
Quorvane_Open(bitfile "", signature "", resource ")" +
            std::string(160, 'r') +
            R"("..., attribute 0) -> session 0x12 = 0 kQuorvaneStatusSuccess
cleanup procedure (session 0x12) = 0 kQuorvaneStatusSuccess
cleanup procedure (session 0x10) = 0 kQuorvaneStatusSuccess
)");
    threads.erase(std::get<0>(traced.lines.front()));
    std::vector<std::string> expected{
        "Quorvane_AcquireFifoReadRegionScalar(session 0x10, fifo 2, elements 1, type U32, "
        "timeout infinite) = -50405 kQuorvaneStatusAborted\n"};
    for (int worker = 0; worker < 3; ++worker) {
        std::ostringstream calls;
        for (int value = worker * 1000; value < worker * 1000 + 5; ++value) {
            calls << std::hex << "Quorvane_Write32(session 0x10, reg 0x" << 0x200 + 4 * worker << ", value 0x" << value
                  << ") = 0 kQuorvaneStatusSuccess\nQuorvane_Read32(session 0x10, reg 0x" << 0x200 + 4 * worker
                  << ") -> value 0x" << value << " = 0 kQuorvaneStatusSuccess\n";
        }
        expected.push_back(calls.str());
    }
    EXPECT_EQ(threads.size(), expected.size());
    for (const auto& [thread, calls] : threads) EXPECT_THAT(expected, ::testing::Contains(calls));
    EXPECT_LT(traced.trace.find("kQuorvaneStatusAborted"), traced.trace.find("abort procedure")) << "ordered by start";
    std::smatch record;  // the region deleted is the one acquired
    ASSERT_TRUE(std::regex_search(traced.trace, record, std::regex("record (0x[0-9a-f]+), acquired 4096")));
    EXPECT_THAT(traced.trace, HasSubstr("region deleted (record " + record[1].str() + ", elements 4096"));
}

}  // namespace
}  // namespace quorvane::testing
