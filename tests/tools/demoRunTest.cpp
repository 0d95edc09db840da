// The demo program end to end: it streams through the default target and through targets
// described in files, refuses bad command lines, and reports a description the target cannot
// load, leaving nothing open each time. Its progress bar fits the terminal it is drawn on.
#include <gmock/gmock.h>

#include <cstdio>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "QuorvaneVersion.h"
#include "demoRun.h"
#include "statusText.h"
#include "summary.h"

namespace quorvane::testing {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

constexpr const char* kNothingLeftOpen = "sessions still open on the target: 0, live Host references: 0";

// Every run that streamed must end like this, with the bytes it moved.
void expectCleanFinish(const DemoRun& run, const std::string& moved) {
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_THAT(run.out, HasSubstr("\nsummary\n"));
    EXPECT_THAT(run.out, HasSubstr("data errors: 0 ("));
    EXPECT_THAT(run.out, HasSubstr(kNothingLeftOpen));
    EXPECT_EQ(run.lastLine(), "demo finished: " + moved + " moved, 0 data errors, 0 error statuses");
}

// ---- the default target, every element size and sign ------------------------------------

class DefaultTarget : public ::testing::TestWithParam<const char*> {};

TEST_P(DefaultTarget, StreamsBothPathsBothWaysWithoutDataErrors) {
    const std::string type = GetParam();
    const DemoRun run = runDemo({"--amount", "4M", "--type", type, "--block", "10000"});
    expectCleanFinish(run, "16.00 MiB");
    EXPECT_THAT(run.out, HasSubstr("target: Default simulated target"));
    EXPECT_THAT(run.out, HasSubstr("to host    FIFO 0 (undeclared) " + type + ", depth 80000"));
    EXPECT_THAT(run.out, HasSubstr("to target  FIFO 1 (undeclared) " + type + ", depth 80000"));
    // Every region acquired was deleted again: as many retired as acquired, and at least as many
    // as 4 MiB each way takes in blocks of 10000 elements of the widest type.
    std::smatch regions;
    ASSERT_TRUE(std::regex_search(run.out, regions, std::regex("regions: ([0-9]+) acquired, ([0-9]+) retired")));
    EXPECT_EQ(regions[1], regions[2]);
    EXPECT_GE(std::stoul(regions[1]), 2u * (4u << 20) / (10000u * 8u));
    EXPECT_THAT(run.out, Not(HasSubstr("  error -")));
}

INSTANTIATE_TEST_SUITE_P(ElementTypes, DefaultTarget, ::testing::Values("I8", "U16", "I32", "U64"));

// ---- described targets -------------------------------------------------------------------

constexpr const char* kBoard =
    "# a board with a non-trivial pattern in each direction\n"
    "target Test board\n"
    "fifo 2 Samples to-host I16 depth 65536 pattern counter start 5 step 3\n"
    "fifo 3 Waveform to-target U32 depth 300000 rate 40000000 pattern counter start 7 step 11\n"
    "resource Board0/Analog\n";

struct PathCase {
    const char* path;
    const char* moved;
};

class DescribedTarget : public ::testing::TestWithParam<PathCase> {};

TEST_P(DescribedTarget, StreamsTheDeclaredFifosWithTheirPatterns) {
    const TempFile description("board.target", kBoard);
    const DemoRun run = runDemo({"--target", description.path(), "--amount", "2M", "--path", GetParam().path});
    expectCleanFinish(run, GetParam().moved);
    EXPECT_THAT(run.out, HasSubstr("target: Test board\n"));
    // Too shallow for several blocks: deepened, and the demo says so. Deep enough: left alone.
    EXPECT_THAT(run.out, HasSubstr("FIFO 2: declared depth 65536 holds fewer than 4 blocks; configured to 524288"));
    EXPECT_THAT(run.out, HasSubstr("to host    FIFO 2 \"Samples\" I16, depth 524288, pattern start 5 step 3\n"));
    EXPECT_THAT(run.out, HasSubstr("to target  FIFO 3 \"Waveform\" U32, depth 300000, pattern start 7 step 11, "
                                   "at most 40000000 elements/s"));
}

INSTANTIATE_TEST_SUITE_P(Paths, DescribedTarget,
                         ::testing::Values(PathCase{"regions", "4.00 MiB"}, PathCase{"copies", "4.00 MiB"},
                                           PathCase{"both", "8.00 MiB"}),
                         [](const auto& info) { return std::string(info.param.path); });

struct Mismatch {
    const char* name;
    std::vector<std::string> arguments;
    const char* message;
};

std::ostream& operator<<(std::ostream& out, const Mismatch& mismatch) {
    return out << mismatch.name;
}

class ChoiceTheTargetCannotServe : public ::testing::TestWithParam<Mismatch> {};

TEST_P(ChoiceTheTargetCannotServe, IsRefusedAfterOpeningAndTheSessionIsClosed) {
    const TempFile description("board.target", kBoard);
    std::vector<std::string> arguments{"--target", description.path(), "--amount", "1M"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const DemoRun run = runDemo(arguments);
    EXPECT_EQ(run.exitCode, 2) << "like a command line the demo cannot follow";
    EXPECT_EQ(run.err, std::string("quorvane-demo: ") + GetParam().message + "\n");
    EXPECT_THAT(run.out, HasSubstr(kNothingLeftOpen));
    EXPECT_EQ(run.lastLine(),
              std::string("demo finished: 0 B moved, 0 data errors, 0 error statuses (nothing streamed: ") +
                  GetParam().message + ")");
}

INSTANTIATE_TEST_SUITE_P(
    DescribedTarget, ChoiceTheTargetCannotServe,
    ::testing::Values(
        Mismatch{"OtherType", {"--type", "U8"}, "FIFO 2 is declared I16, not U8"},
        Mismatch{"WrongDirection", {"--read-fifo", "3"}, "--read-fifo 3: the target declares that FIFO to target"},
        Mismatch{"UndeclaredFifo", {"--write-fifo", "7"}, "--write-fifo 7: the target declares no such FIFO"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DescribedTargetWithOneDirection, StreamsTheOtherDirectionOnly) {
    const TempFile description("reader.target", "target Reader\nfifo 0 In to-host U8 pattern constant 0xA5\n");
    const DemoRun run = runDemo({"--target", description.path(), "--amount", "1M", "--block", "4096"});
    expectCleanFinish(run, "2.00 MiB");
    EXPECT_THAT(run.out, HasSubstr("to target  no FIFO"));
    EXPECT_THAT(run.out, HasSubstr("pattern start 165 step 0"));
}

// Standard error merged into the same file as standard output: the target's line stands between
// the demo's lines before and after the open, as they happened.
TEST(BrokenDescription, FailsTheOpenWithOneLineNamingFileAndLineInItsPlaceInTheLog) {
    const TempFile description("broken.target", "target Broken\nfifo 0 Samples to-host U24\n");
    const DemoRun run = runDemo({"--target", description.path(), "--amount", "1M"}, {.merged = true});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.out,
                ContainsRegex("\nlibBrenn: " + description.path() +
                              ":2: [^\n]*U24[^\n]*\n"
                              "  error -63103 from Quorvane_Open: the target description could not be loaded\n"));
    EXPECT_THAT(run.out, MatchesRegex("quorvane-demo: streaming [^\n]*\nlibBrenn: .*"));
    EXPECT_THAT(run.out, HasSubstr(kNothingLeftOpen));
    EXPECT_EQ(run.lastLine(), "demo finished: 0 B moved, 0 data errors, 1 error statuses");
}

// The example board that misbehaves on purpose: each stream meets a fault, every status the
// Host meets is printed with its meaning where it happens and in the summary, the refused
// release and close are dealt with, and nothing is left open.
TEST(FlakyBoard, ReportsEveryInjectedStatusWithItsMeaningAndLeavesNothingOpen) {
    const DemoRun run = runDemo({"--target", BRENN_EXAMPLES_DIR "/flaky-board.target"});
    EXPECT_EQ(run.exitCode, 1) << run.out << run.err;
    EXPECT_EQ(run.err, "");
    struct Met {
        int32_t code;
        const char* firstFrom;
        unsigned count;
    };
    for (const Met& met : {Met{-50400, "Quorvane_AcquireFifoReadRegionScalar", 2},
                           Met{-61003, "Quorvane_AcquireFifoWriteRegionScalar", 2},
                           Met{-63102, "BrennDll_ReleaseFifoElements", 1}, Met{-61219, "Quorvane_ReadFifoScalar", 1}}) {
        SCOPED_TRACE(met.code);
        const std::string meaning = tools::statusMeaning(met.code);
        EXPECT_THAT(run.out, HasSubstr("\n  error " + std::to_string(met.code) + " from " + met.firstFrom + ": " +
                                       meaning + "\n"));
        char head[32];
        std::snprintf(head, sizeof head, "    %7d  x %-8u ", met.code, met.count);
        EXPECT_THAT(run.out, HasSubstr("\n" + tools::wrapped(head, meaning)));
    }
    EXPECT_THAT(run.out, ContainsRegex(
                             "\n  the target refused 1 release \\(line [0-9]+\\); the library does not report that\n"));
    EXPECT_THAT(run.out, HasSubstr("\n  the close failed with -61003; closing the session again\n"));
    // Each statement of the description is listed with how often it acted before the close.
    EXPECT_THAT(run.out, ContainsRegex("\n    line [0-9]+ +x 1 +stall fifo 1 after 131072 elements for 250 ms\n"));
    EXPECT_THAT(run.out, ContainsRegex("\n    line [0-9]+ +x 1 +drop irq 1 after 0\n"));
    EXPECT_THAT(run.out, ContainsRegex("\n    line [0-9]+ +x 0 +fault BrennDll_WriteU32 register Control"));
    EXPECT_THAT(run.out, HasSubstr("elements unaccounted 65536)"));
    EXPECT_THAT(run.out, HasSubstr(kNothingLeftOpen));
    EXPECT_EQ(run.lastLine(), "demo finished: 4.12 MiB moved, 65536 data errors, 6 error statuses");
}

// ---- refusals before anything is opened --------------------------------------------------

struct Refusal {
    const char* name;
    std::vector<std::string> arguments;
    int exitCode;
    const char* message;
};

std::ostream& operator<<(std::ostream& out, const Refusal& refusal) {
    return out << refusal.name;
}

class Refused : public ::testing::TestWithParam<Refusal> {};

TEST_P(Refused, SaysWhyOnOneLineAndOpensNothing) {
    const DemoRun run = runDemo(GetParam().arguments);
    EXPECT_EQ(run.exitCode, GetParam().exitCode);
    EXPECT_THAT(run.err, AllOf(MatchesRegex("quorvane-demo: [^\n]*\n"), HasSubstr(GetParam().message)));
    EXPECT_EQ(run.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, Refused,
    ::testing::Values(Refusal{"UnknownType", {"--type", "X24"}, 2, "unknown element type 'X24'"},
                      Refusal{"UnknownOption", {"--frobnicate"}, 2, "unknown option '--frobnicate'"},
                      Refusal{"BadAmount", {"--amount=lots"}, 2, "--amount needs a size"},
                      Refusal{"ZeroBlock", {"--block", "0"}, 2, "--block needs an element count"},
                      Refusal{"BadPath", {"--path", "sideways"}, 2, "--path is regions, copies or both"},
                      Refusal{"MissingValue", {"--read-fifo"}, 2, "--read-fifo needs a value"},
                      Refusal{"MissingFile",
                              {"--target", "/nonexistent/board.target"},
                              1,
                              "target description '/nonexistent/board.target' does not exist"},
                      Refusal{"Directory", {"--target", "/"}, 1, "target description '/' is a directory, not a file"},
                      Refusal{
                          "Device", {"--target=/dev/null"}, 1, "target description '/dev/null' is not a regular file"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Help, ExplainsEveryOptionAndWhereTheDescriptionFormatIs) {
    const DemoRun run = runDemo({"--help"});
    EXPECT_EQ(run.exitCode, 0);
    for (const char* option : {"--target", "--read-fifo", "--write-fifo", "--type", "--amount", "--block", "--path",
                               "--version", "TargetDescription.md"}) {
        EXPECT_THAT(run.out, HasSubstr(option));
    }
}

TEST(Version, IsTheLibrarysTheDemoWasBuiltWith) {
    const DemoRun run = runDemo({"--version"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "quorvane-demo " QUORVANE_VERSION_STRING "\n");
    EXPECT_EQ(run.err, "");
}

// ---- the progress bar on a terminal ------------------------------------------------------

struct TerminalCase {
    const char* name;
    int windowColumns;  // 0: the terminal does not know its size
    const char* columnsVariable;
    size_t width;  // the terminal's width the bar must use
};

std::ostream& operator<<(std::ostream& out, const TerminalCase& terminal) {
    return out << terminal.name;
}

class OnATerminal : public ::testing::TestWithParam<TerminalCase> {};

// Every state of the bar is drawn over the last on one line that leaves the last column free,
// and (for terminals narrower than the widest bar) the bar takes up the rest of the line.
TEST_P(OnATerminal, TheBarFillsTheWidthAndNeverWraps) {
    const TerminalCase& terminal = GetParam();
    const DemoRun run = runDemo({"--amount", "1M", "--block", "4096"},
                                {.terminalColumns = terminal.windowColumns, .columns = terminal.columnsVariable});
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    std::vector<std::string> bars;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream states(line);
        for (std::string state; std::getline(states, state, '\r');) {
            if (state.starts_with("  regions ") || state.starts_with("  copies  ")) bars.push_back(state);
        }
    }
    ASSERT_FALSE(bars.empty()) << run.out;
    for (const std::string& bar : bars) {
        EXPECT_EQ(bar.size(), terminal.width - 1) << bar;
        EXPECT_THAT(bar, ContainsRegex(" \\[[#.]+\\] ")) << bar;
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, OnATerminal,
                         ::testing::Values(TerminalCase{"WindowSize", 80, "", 80},
                                           TerminalCase{"WindowSizeBeforeColumns", 70, "120", 70},
                                           TerminalCase{"ColumnsWhenTheSizeIsUnknown", 0, "75", 75},
                                           TerminalCase{"EightyWithoutEither", 0, "", 80},
                                           TerminalCase{"EightyForColumnsThatAreNoNumber", 0, "wide", 80}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quorvane::testing
