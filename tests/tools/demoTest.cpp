// The demo program end to end: it streams through the default target, through targets described
// in files and through the example board that misbehaves on purpose, reports every status it met
// and leaves nothing open, and refuses what it cannot do. Also the pattern check that its count
// of data errors rests on, which no run makes find a fault.
#include <gmock/gmock.h>

#include <regex>

#include "pattern.h"
#include "programRun.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;

// The output without what depends on speed (progress lines and rates) and without the lines that
// carry on a wrapped text or head a table.
std::string steady(const std::string& out) {
    const std::string kept = std::regex_replace(out, std::regex("(  (regions|copies ) to [^\n]*%| {20,})[^\n]*\n"), "");
    return std::regex_replace(kept, std::regex(" [0-9.]+ [KMG]?i?B/s *"), " R ");
}

// The demo run with `arguments` on a target described by `description` (none: the default target,
// or one the arguments name).
ProgramRun runDemo(const std::string& description, const std::string& arguments) {
    const TempFile file("board.target", description);
    return runProgram(QUORVANE_DEMO " " + (description.empty() ? "" : "--target " + file.path() + " ") + arguments);
}

TEST(Demo, StreamsTheDefaultTargetAndSaysSo) {
    const ProgramRun run = runDemo("", "--amount 1M --type U8 --block 4096");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(steady(run.out), R"(quorvane-demo: streaming through the simulated FPGA target with libQuorvane
target: Default simulated target (undeclared FIFOs are made on first use)
  to host    FIFO 0 (undeclared) U8, depth 32768, pattern start 0 step 1
  to target  FIFO 1 (undeclared) U8, depth 32768, pattern start 0 step 1

summary
  to host, FIFO 0      1.00 MiB at R 1.00 MiB at R 
  to target, FIFO 1    1.00 MiB at R 1.00 MiB at R 
  regions: 512 acquired, 512 retired; references still live: 0
  target, FIFO 0: 1048576 elements lent, 1048576 handed back
    in 256 releases; 1048576 elements copied
  target, FIFO 1: 1048576 elements lent, 1048576 handed back
    in 256 releases; 1048576 elements copied
  statuses met:
          0  x 1543     success
    (quorvane-status CODE explains any code)
  data errors: 0 (host checks 0, target pattern checks 0,
    out-of-order releases 0, excess releases 0, elements unaccounted 0)
sessions still open on the target: 0, live Host references: 0
demo finished: 4.00 MiB moved, 0 data errors, 0 error statuses
)");
}

// Each stream meets a fault: every status is printed with its meaning where it happens and in
// the summary, the refused release and close are dealt with, and nothing is left open.
TEST(Demo, ReportsEveryFaultOfTheFlakyBoard) {
    const ProgramRun run = runDemo("", "--target " BRENN_EXAMPLES_DIR "/flaky-board.target");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(steady(run.out), R"(quorvane-demo: streaming through the simulated FPGA target with libQuorvane
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
)");
}

constexpr const char* kBoard =
    "target Test board\n"
    "fifo 2 Samples to-host I16 depth 65536 pattern counter start 5 step 3\n"
    "fifo 3 Waveform to-target U32 depth 300000 rate 40000000 pattern counter start 7 step 11\n";

// Description of the target (none: the default one), arguments, exit code, what standard error
// holds, a line standard output holds (none: it holds nothing).
const std::tuple<std::string, const char*, int, const char*, const char*> kRuns[] = {
    {"", "--amount 4M --block 10000 --type I8", 0, "", "(undeclared) I8, depth 80000"},
    {"", "--amount 4M --block 10000 --type U16", 0, "", "(undeclared) U16, depth 80000"},
    {"", "--amount 4M --block 10000 --type U64", 0, "", "(undeclared) U64, depth 80000"},
    {kBoard, "--amount 2M --path regions", 0, "", "4.00 MiB moved"},
    {kBoard, "--amount 2M --path copies", 0, "", "4.00 MiB moved"},
    {"target R\nfifo 0 In to-host U8 pattern constant 0xA5\n", "--amount 1M", 0, "", "165 step 0\n  to target  no"},
    {kBoard, "--type U8", 2, "FIFO 2 is declared I16, not U8\n", "(nothing streamed: FIFO 2"},
    {kBoard, "--read-fifo 3", 2, "--read-fifo 3: the target declares that FIFO to target\n",
     "0 B moved, 0 data errors, 0 error statuses (nothing streamed: --read-fifo 3"},
    {"target Broken\nfifo 0 Samples to-host U24\n", "", 1, ":2: unknown element type 'U24'",
     "\n  error -63103 from Quorvane_Open: the target description could not be loaded\n"},
    {"", "--frobnicate", 2, "quorvane-demo: unknown option '--frobnicate'", ""},
    {"", "--target /no/board", 1, "target description '/no/board' does not exist\n", ""},
    {"", "--target /", 1, "target description '/' is a directory, not a file\n", ""}};

class DemoRun : public ::testing::TestWithParam<size_t> {};

// Every session opened is closed; a run that streamed deleted every region it acquired.
TEST_P(DemoRun, ExitsAsItShouldAndLeavesNothingOpen) {
    const auto& [description, arguments, exitCode, err, out] = kRuns[GetParam()];
    const ProgramRun run = runDemo(description, arguments);
    EXPECT_EQ(run.exitCode, exitCode) << arguments << "\n" << run.err;
    EXPECT_THAT(run.err, HasSubstr(err));
    EXPECT_THAT(run.out, HasSubstr(out));
    EXPECT_EQ(run.out.empty(), *out == '\0') << "a refusal before the open prints nothing else";
    const bool closed = run.out.find("still open on the target: 0, live Host references: 0\n") != run.out.npos;
    EXPECT_EQ(closed, *out != '\0') << run.out;
    if (exitCode == 0) {
        EXPECT_THAT(run.out, HasSubstr(" moved, 0 data errors, 0 error statuses\n"));
        EXPECT_TRUE(std::regex_search(run.out, std::regex("regions: ([0-9]+) acquired, \\1 retired"))) << run.out;
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, DemoRun, ::testing::Range<size_t>(0, std::size(kRuns)));

// The pattern written is read back as right, and each broken element is found, for every
// element type, from any index, unaligned too.
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

}  // namespace
}  // namespace quorvane::testing
