// The demo and quorvane-status run end to end as users run them, and the pattern check that the
// demo's count of data errors rests on, which no run makes find a fault.
#include <gmock/gmock.h>

#include <regex>

#include "QuorvaneVersion.h"
#include "pattern.h"
#include "programRun.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;

// The output without progress lines, rates, and lines that carry on a wrapped text.
std::string steady(const std::string& out) {
    const std::string kept = std::regex_replace(out, std::regex("(  (regions|copies ) to [^\n]*%| {20,})[^\n]*\n"), "");
    return std::regex_replace(kept, std::regex(" [0-9.]+ [KMG]?i?B/s *"), " R ");
}

// Every stream of the example board meets a fault: each status is told with its meaning, nothing left open.
constexpr const char* kFlakyBoardRun = R"(quorvane-demo: streaming through the simulated FPGA target with libQuorvane
target: Flaky acquisition board
  FIFO 1: declared depth 131072 holds fewer than 4 blocks; configured to 524288
  to host    FIFO 0 "Samples" I16, depth 262144, pattern start 0 step 3
  to target  FIFO 1 "Waveform" U32, depth 524288, pattern start 7 step 2
  error -50400 from Quorvane_AcquireFifoReadRegionScalar: time-out of the FPGA interface library (an acquisition without time limit tries again)
  error -61003 from Quorvane_AcquireFifoWriteRegionScalar: error reported by the FPGA interface library
  the target refused 1 release (line 19); the library does not report that
  error -63102 from BrennDll_ReleaseFifoElements: the simulated target ran out of memory for its own bookkeeping
  error -61219 from Quorvane_ReadFifoScalar: no room until lent elements are handed back; an acquisition's time-out ran out waiting for that
  injected by the target description (times each acted so far):
    line 16   x 1     fault BrennDll_AcquireFifoReadElementsI16 fifo 0 after 5
    line 19   x 1     fault BrennDll_ReleaseFifoElements fifo 0 after 1 calls
    line 23   x 1     stall fifo 1 after 131072 elements for 250 ms
    line 26   x 1     fault BrennDll_AcquireFifoWriteElementsU32 fifo 1 after
    line 27   x 1     fault BrennDll_WriteFifoU32 fifo 1 after 2 calls status
    line 30   x 0     fault BrennDll_Close after 0 calls status -61003: error
    line 34   x 0     fault BrennDll_WriteU32 register Control after 0 calls
    line 35   x 1     drop irq 1 after 0
  the close failed with -61003; closing the session again

summary
  to host, FIFO 0      640.00 KiB at R (stopped) 0 B at R (stopped)
  to target, FIFO 1    3.00 MiB at R (stopped) 512.00 KiB at R (stopped)
  regions: 17 acquired, 17 retired; references still live: 0
  target, FIFO 0: 327680 elements lent, 262144 handed back
    in 4 releases; 0 elements copied
  target, FIFO 1: 786432 elements lent, 786432 handed back
    in 12 releases; 131072 elements copied
  statuses met:
     -63102  x 1        the simulated target ran out of memory for its own
     -61219  x 1        no room until lent elements are handed back; an
     -61003  x 2        error reported by the FPGA interface library
     -50400  x 2        time-out of the FPGA interface library (an acquisition
          0  x 42       success
    (quorvane-status CODE explains any code)
  data errors: 65536 (host checks 0, target pattern checks 0,
    out-of-order releases 0, excess releases 0, elements unaccounted 65536)
sessions still open on the target: 0, live Host references: 0
demo finished: 4.12 MiB moved, 65536 data errors, 6 error statuses
)";

constexpr const char* kBoard =
    "target Test board\n"
    "fifo 2 Samples to-host I16 depth 65536 pattern counter start 5 step 3\n"
    "fifo 3 Waveform to-target U32 depth 300000 rate 40000000 pattern counter start 7 step 11\n";

// A default run's summary: every region retired, every element lent handed back, in whole blocks.
constexpr const char* kDefaultSummary =
    "  regions: 512 acquired, 512 retired; references still live: 0\n  target, FIFO 0: 1048576 elements lent, "
    "1048576 handed back\n    in 256 releases; 1048576 elements copied\n  target, FIFO 1: 1048576 elements lent";

// Description of the target (none: the default one), arguments, exit code, what standard error
// holds (none: nothing), what steady() keeps of standard output (none: it holds nothing).
const std::tuple<std::string, const char*, int, const char*, const char*> kDemoRuns[] = {
    {"", "--amount 1M --type U8 --block 4096", 0, "", kDefaultSummary},
    {"", "--target " BRENN_EXAMPLES_DIR "/flaky-board.target", 1, "", kFlakyBoardRun},
    {"", "--amount 4M --block 10000 --type I8", 0, "", "(undeclared) I8, depth 80000"},
    {"", "--amount 4M --block 10000 --type U16", 0, "", "(undeclared) U16, depth 80000"},
    {"", "--amount 4M --block 10000 --type U64", 0, "", "(undeclared) U64, depth 80000"},
    {kBoard, "--amount 2M --path regions", 0, "", "4.00 MiB moved"},
    {kBoard, "--amount 2M --path copies", 0, "", "4.00 MiB moved"},
    {"target R\nfifo 0 In to-host U8 pattern constant 0xA5\n", "--amount 1M", 0, "", "165 step 0\n  to target  no"},
    {kBoard, "--type U8", 2, "FIFO 2 is declared I16, not U8\n", "(nothing streamed: FIFO 2"},
    {kBoard, "--read-fifo 3", 2, "the target declares that FIFO to target\n", "0 B moved, 0 data errors, 0 error"},
    {"target B\nfifo 0 S to-host U24\n", "", 1, ":2: unknown element type 'U24'", "error -63103 from Quorvane_Open: "},
    {"", "--frobnicate", 2, "quorvane-demo: unknown option '--frobnicate'", ""},
    {"", "--target /no/board", 1, "target description '/no/board' does not exist\n", ""},
    {"", "--target /", 1, "target description '/' is a directory, not a file\n", ""}};

class DemoRun : public ::testing::TestWithParam<size_t> {};

// Every session opened is closed; a run that streamed deleted every region it acquired.
TEST_P(DemoRun, ExitsAsItShouldAndLeavesNothingOpen) {
    const auto& [description, arguments, exitCode, err, out] = kDemoRuns[GetParam()];
    const TempFile board("board.target", description);
    const std::string target = description.empty() ? "" : "--target " + board.path.string() + " ";
    const ProgramRun run = runProgram(QUORVANE_DEMO " " + target + arguments);
    EXPECT_EQ(run.exitCode, exitCode) << arguments << "\n" << run.err;
    EXPECT_THAT(run.err, HasSubstr(err));
    EXPECT_EQ(run.err.empty(), *err == '\0') << run.err;
    EXPECT_THAT(steady(run.out), HasSubstr(out));
    EXPECT_EQ(run.out.empty(), *out == '\0') << "a refusal before the open prints nothing else";
    const bool closed = run.out.find("still open on the target: 0, live Host references: 0\n") != run.out.npos;
    EXPECT_EQ(closed, *out != '\0') << run.out;
    if (exitCode == 0) {
        EXPECT_THAT(run.out, HasSubstr(" moved, 0 data errors, 0 error statuses\n"));
        EXPECT_TRUE(std::regex_search(run.out, std::regex("regions: ([0-9]+) acquired, \\1 retired"))) << run.out;
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, DemoRun, ::testing::Range<size_t>(0, std::size(kDemoRuns)));

// Each broken element is found, for every element type, from any index, unaligned too.
TEST(Demo, PatternChecksFindEveryBrokenElement) {
    const tools::Pattern wrapping{0xFFFFFFFFFFFFFF00ull, 0x0123456789ABCDEFull};
    for (uint32_t code = 1, bytes = 1; code <= 8; ++code, bytes = bytes == 8 ? 1 : 2 * bytes) {
        std::vector<unsigned char> data(1 + 64 * bytes);
        tools::fillPattern(code, data.data() + 1, 64, wrapping, 77);
        EXPECT_EQ(data[1], static_cast<unsigned char>(wrapping.valueAt(77))) << code;
        data[1 + 5 * bytes + bytes - 1] ^= 0x80;  // the top byte of element 5
        data[1 + 63 * bytes] ^= 0x01;             // the low byte of the last one
        EXPECT_EQ(tools::countMismatches(code, data.data() + 1, 64, wrapping, 77), 2u) << code;
    }
}

// The codes the library and the simulated target document, in the tool's order, written out here
// so that a code dropped from its list or given another value is noticed.
TEST(QuorvaneStatus, ListsExactlyTheDocumentedCodes) {
    const ProgramRun documented = runProgram(QUORVANE_STATUS_PROGRAM
                                             " 0 -52000 -52003 -52005 -52007 -52008 -50400 -50405 -61217 -61219 -61499 "
                                             "-63080 -63195 -63100 -63101 -63102 -63103");
    EXPECT_EQ(documented.exitCode, 0) << documented.out;
    EXPECT_EQ(runProgram(QUORVANE_STATUS_PROGRAM " --list").out, documented.out);
}

// Arguments, exit code, standard output, standard error.
const std::tuple<const char*, int, const char*, const char*> kStatusRuns[] = {
    {"-12345 -52000 -63103 7", 1,
     "-12345: not a code of libQuorvane; an error passed on from the FPGA interface library or the device service\n"
     "-52000 kQuorvaneStatusMemoryFull: memory or a Host handle could not be obtained (Host result 2)\n"
     "-63103 kBrennSimBadTargetDescription (simulated target, not the library): the target description could not "
     "be loaded\n7: not a code of libQuorvane; a warning passed on from the FPGA interface library or the device "
     "service\n",
     ""},
    {"--version", 0, "quorvane-status " QUORVANE_VERSION_STRING "\n", ""},
    {"", 2, "", "quorvane-status: no CODE given\nTry 'quorvane-status --help'.\n"},
    {"0 --frobnicate", 2, "", "quorvane-status: unknown option: '--frobnicate'\nTry 'quorvane-status --help'.\n"}};

class QuorvaneStatusRun : public ::testing::TestWithParam<size_t> {};

TEST_P(QuorvaneStatusRun, AnswersAsDocumented) {
    const auto& [arguments, exitCode, out, err] = kStatusRuns[GetParam()];
    const ProgramRun run = runProgram(QUORVANE_STATUS_PROGRAM " " + std::string(arguments));
    EXPECT_EQ(run.exitCode, exitCode) << arguments;
    EXPECT_EQ(run.out, out);
    EXPECT_EQ(run.err, err);
}

INSTANTIATE_TEST_SUITE_P(Arguments, QuorvaneStatusRun, ::testing::Range<size_t>(0, std::size(kStatusRuns)));

}  // namespace
}  // namespace quorvane::testing
