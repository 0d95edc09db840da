// The status codes the tools know, and the quorvane-status program run as a user runs it.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "QuorvaneVersion.h"
#include "statusText.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tools::findStatus;
using tools::KnownStatus;
using tools::knownStatuses;
using tools::StatusOrigin;

// The codes the library documents, written out here rather than taken from the list, so that a
// code dropped from the list or given another value is noticed.
constexpr int32_t kLibraryCodes[] = {0,      -52000, -52003, -52005, -52007, -52008, -50400,
                                     -50405, -61217, -61219, -61499, -63080, -63195};
constexpr int32_t kSimulatedTargetCodes[] = {-63100, -63101, -63102, -63103};

TEST(StatusTexts, EveryDocumentedCodeHasANameAndAMeaning) {
    for (const int32_t code : kLibraryCodes) {
        const KnownStatus* known = findStatus(code);
        ASSERT_NE(known, nullptr) << code;
        EXPECT_EQ(known->origin, StatusOrigin::library) << code;
        EXPECT_THAT(known->name, StartsWith("kQuorvaneStatus"));
        EXPECT_STRNE(known->meaning, "") << code;
    }
    for (const int32_t code : kSimulatedTargetCodes) {
        const KnownStatus* known = findStatus(code);
        ASSERT_NE(known, nullptr) << code;
        EXPECT_EQ(known->origin, StatusOrigin::simulatedTarget) << code;
        EXPECT_THAT(known->name, StartsWith("kBrennSim"));
    }
    EXPECT_EQ(knownStatuses().size(), std::size(kLibraryCodes) + std::size(kSimulatedTargetCodes))
        << "a code the documentation does not name";
}

TEST(StatusTexts, NamesAreUniqueAndValuesDistinct) {
    std::set<std::string> names;
    std::set<int32_t> codes;
    for (const KnownStatus& known : knownStatuses()) {
        EXPECT_TRUE(names.insert(known.name).second) << known.name;
        EXPECT_TRUE(codes.insert(known.code).second) << known.code;
    }
}

TEST(StatusTexts, AnyOtherCodeIsTheFpgaInterfaceLibrarysErrorOrWarning) {
    EXPECT_EQ(findStatus(-1), nullptr);
    EXPECT_STREQ(tools::statusMeaning(-1), "error reported by the FPGA interface library");
    EXPECT_STREQ(tools::statusMeaning(7), "warning reported by the FPGA interface library");
}

struct ProgramRun {
    int exitCode = -1;
    std::string out;
};

// Runs quorvane-status with `arguments` (words without quotes); standard error is kept only
// when asked for, after standard output.
ProgramRun runProgram(const std::string& arguments, bool keepErrors = false) {
    const std::string command =
        std::string(QUORVANE_STATUS_PROGRAM) + " " + arguments + (keepErrors ? " 2>&1" : " 2>/dev/null");
    ProgramRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) != 0;) run.out.append(buffer, got);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    return run;
}

TEST(QuorvaneStatusProgram, ExplainsEachCodeOnALineInArgumentOrder) {
    const ProgramRun run = runProgram("-52000 0 -63103");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out,
              "-52000 kQuorvaneStatusMemoryFull: memory or a Host handle could not be obtained (Host result 2)\n"
              "0 kQuorvaneStatusSuccess: success\n"
              "-63103 kBrennSimBadTargetDescription (simulated target, not the library): the target description "
              "could not be loaded\n");
}

TEST(QuorvaneStatusProgram, TellsAnErrorOrWarningThatIsNotTheLibrarysAndExitsWithOne) {
    const ProgramRun run = runProgram("-12345 -61499 7");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.out, StartsWith("-12345: not a code of libQuorvane; an error passed on from"));
    EXPECT_THAT(run.out, HasSubstr("\n-61499 kQuorvaneStatusSessionRefused: "));
    EXPECT_THAT(run.out, HasSubstr("\n7: not a code of libQuorvane; a warning passed on from"));
}

TEST(QuorvaneStatusProgram, ListsEveryKnownCodeInTheListsOrder) {
    const ProgramRun run = runProgram("--list");
    EXPECT_EQ(run.exitCode, 0);
    std::istringstream lines(run.out);
    std::string line;
    for (const KnownStatus& known : knownStatuses()) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_THAT(line, StartsWith(std::to_string(known.code) + " " + known.name));
    }
    EXPECT_FALSE(std::getline(lines, line)) << "more lines than codes: " << line;
}

TEST(QuorvaneStatusProgram, HelpAndVersion) {
    const ProgramRun help = runProgram("--help");
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.out, StartsWith("Usage: quorvane-status CODE...\n"));
    EXPECT_THAT(help.out, HasSubstr("\nExit status:\n"));
    const ProgramRun version = runProgram("--version");
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, "quorvane-status " QUORVANE_VERSION_STRING "\n");
}

class QuorvaneStatusBadUsage : public ::testing::TestWithParam<const char*> {};

TEST_P(QuorvaneStatusBadUsage, PrintsNothingButAHintAndExitsWithTwo) {
    const ProgramRun run = runProgram(GetParam(), true);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.out, StartsWith("quorvane-status: "));
    EXPECT_THAT(run.out, HasSubstr("Try 'quorvane-status --help'.\n"));
}

// No argument, not a number, beyond 32 bits, a number with a tail, an unknown option (after a
// good code, which is then not explained either).
INSTANTIATE_TEST_SUITE_P(Arguments, QuorvaneStatusBadUsage,
                         ::testing::Values("", "abc", "2147483648", "-52000x", "0 --frobnicate"));

}  // namespace
}  // namespace quorvane::testing
