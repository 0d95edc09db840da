// quorvane-status run as a user runs it: it explains the codes it is given, tells codes that are
// not the library's, and refuses what is not a code.
#include <gmock/gmock.h>

#include "QuorvaneVersion.h"
#include "programRun.h"

namespace quorvane::testing {
namespace {

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
const std::tuple<const char*, int, const char*, const char*> kRuns[] = {
    {"-52000 -63103", 0,
     "-52000 kQuorvaneStatusMemoryFull: memory or a Host handle could not be obtained (Host result 2)\n"
     "-63103 kBrennSimBadTargetDescription (simulated target, not the library): the target description "
     "could not be loaded\n",
     ""},
    {"-12345 0 7", 1,
     "-12345: not a code of libQuorvane; an error passed on from the FPGA interface library or the device "
     "service\n0 kQuorvaneStatusSuccess: success\n7: not a code of libQuorvane; a warning passed on from the "
     "FPGA interface library or the device service\n",
     ""},
    {"--version", 0, "quorvane-status " QUORVANE_VERSION_STRING "\n", ""},
    {"", 2, "", "quorvane-status: no CODE given\nTry 'quorvane-status --help'.\n"},
    {"0 --frobnicate", 2, "", "quorvane-status: unknown option: '--frobnicate'\nTry 'quorvane-status --help'.\n"}};

class QuorvaneStatusRun : public ::testing::TestWithParam<size_t> {};

TEST_P(QuorvaneStatusRun, AnswersAsDocumented) {
    const auto& [arguments, exitCode, out, err] = kRuns[GetParam()];
    const ProgramRun run = runProgram(QUORVANE_STATUS_PROGRAM " " + std::string(arguments));
    EXPECT_EQ(run.exitCode, exitCode) << arguments;
    EXPECT_EQ(run.out, out);
    EXPECT_EQ(run.err, err);
}

INSTANTIATE_TEST_SUITE_P(Arguments, QuorvaneStatusRun, ::testing::Range<size_t>(0, std::size(kRuns)));

}  // namespace
}  // namespace quorvane::testing
