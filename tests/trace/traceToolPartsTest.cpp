// quorvane-trace's parts: its command line, the loader's listing, reading and ordering records,
// status names, and the summary's statistics.
#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "QuorvaneStatus.h"
#include "libraryLocation.h"
#include "traceOptions.h"
#include "traceRecords.h"
#include "traceRender.h"
#include "traceSummary.h"

namespace quorvane::trace {
namespace {

using ::testing::ElementsAre;

struct OptionsCase {
    const char* name;
    std::vector<std::string> arguments;
    std::string output;
    bool summary;
    std::string library;
    std::vector<std::string> command;
};

// Test names and failure messages show the case by its name.
void PrintTo(const OptionsCase& value, std::ostream* out) {
    *out << value.name;
}

class CommandLine : public ::testing::TestWithParam<OptionsCase> {};

TEST_P(CommandLine, SplitsOptionsFromTheProgram) {
    const ParsedTraceOptions parsed = parseTraceOptions(GetParam().arguments);
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.output, GetParam().output);
    EXPECT_EQ(parsed.options.summary, GetParam().summary);
    EXPECT_EQ(parsed.options.library, GetParam().library);
    EXPECT_EQ(parsed.options.command, GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(Arguments, CommandLine,
                         ::testing::Values(OptionsCase{"programOnly", {"prog"}, "", false, "", {"prog"}},
                                           OptionsCase{"shortOptions",
                                                       {"-o", "t", "--summary", "--", "prog", "-o", "x"},
                                                       "t",
                                                       true,
                                                       "",
                                                       {"prog", "-o", "x"}},
                                           OptionsCase{"longOptions",
                                                       {"--output", "t", "--library", "/l", "prog", "--summary"},
                                                       "t",
                                                       false,
                                                       "/l",
                                                       {"prog", "--summary"}},
                                           OptionsCase{"dashedProgram", {"--", "-prog"}, "", false, "", {"-prog"}}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CommandLine, RefusesWhatItCannotUse) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{}, {"--summary"}, {"--"}, {"--library"}, {"-o", ""}, {"-x", "prog"}}) {
        EXPECT_NE(parseTraceOptions(arguments).error, "") << ::testing::PrintToString(arguments);
    }
}

TEST(LoaderListing, NamesWhereTheLibraryWasFound) {
    EXPECT_EQ(libraryInLoaderListing("\tlinux-vdso.so.1 (0x00007ffc)\n"
                                     "\tlibQuorvane.so.13 => /opt/q/lib/libQuorvane.so.13 (0x00007f12)\n"
                                     "\tlibc.so.6 => /lib/libc.so.6 (0x00007f00)\n"),
              "/opt/q/lib/libQuorvane.so.13");
    EXPECT_EQ(libraryInLoaderListing("\tlibQuorvane.so.13 => not found\n"), "");
    EXPECT_EQ(libraryInLoaderListing("\tlibQuorvane.so.130 => /x/libQuorvane.so.130 (0x1)\n"), "");
    EXPECT_EQ(libraryInLoaderListing(""), "");
}

TEST(LoaderListing, IsAskedOnlyOfDynamicExecutables) {
    EXPECT_TRUE(isDynamicExecutable(QUORVANE_TRACE_HOST));
    EXPECT_FALSE(isDynamicExecutable(__FILE__));
    EXPECT_FALSE(isDynamicExecutable(QUORVANE_LIBRARY_FILE));  // a shared object names no interpreter
}

TEST(RealLibrary, IsLookedForInTheLibraryPathWhenTheProgramDoesNotLinkIt) {
    Environment environment;
    const std::string folder = std::filesystem::path(QUORVANE_LIBRARY_SONAME_FILE).parent_path().string();
    environment.set("LD_LIBRARY_PATH", "/no/such/folder:" + folder);
    EXPECT_EQ(findRealLibrary("/bin/true", environment).path, QUORVANE_LIBRARY_SONAME_FILE);
    EXPECT_NE(findRealLibrary("/bin/true", Environment()).error, "");
}

TEST(Records, AreReadAndOrderedByStartKeepingTheFileOrderOfTies) {
    const RecordSet set = readRecords(
        "300\t7\t5\t0\tX\t0\tQuorvane_Run\t(session 0x10, attribute 0)\n"
        "100\t8\t9\t1\tX\t-61217\tQuorvane_Close\t(session 0x10, attribute 1)\n"
        "not a record\n"
        "100\t7\t2\t0\tC\t0\tregion deleted\t (record 0x1)\n"
        "200\t7\t1\t0\tX\t-\tQuorvane_ReleaseResourceIndex\t(index 3)\n"
        "200\t7\tx\t0\tX\t0\tQuorvane_Run\t()\n"
        "50\t7\t1\t0\tQ\t0\tQuorvane_Run\t()\n");
    EXPECT_EQ(set.malformed, 3u);
    ASSERT_EQ(set.records.size(), 4u);
    std::vector<std::string_view> names;
    for (const TraceRecord& record : set.records) names.push_back(record.name);
    EXPECT_THAT(names,
                ElementsAre("Quorvane_Close", "region deleted", "Quorvane_ReleaseResourceIndex", "Quorvane_Run"));
    const TraceRecord& close = set.records[0];
    EXPECT_EQ(close.thread, 8u);
    EXPECT_EQ(close.duration, 9u);
    EXPECT_EQ(close.depth, 1u);
    EXPECT_TRUE(close.hasStatus);
    EXPECT_EQ(close.status, -61217);
    EXPECT_FALSE(set.records[2].hasStatus);
    EXPECT_EQ(renderRecord(close, 50),
              "    0.000000       8    (library) Quorvane_Close(session 0x10, attribute 1) = -61217 "
              "kQuorvaneStatusRegionsOutstanding [9 ns]");
    EXPECT_EQ(renderRecord(set.records[1], 0),
              "    0.000000       7  region deleted (record 0x1) = 0 kQuorvaneStatusSuccess [2 ns]");
}

TEST(StatusText, NamesEveryListedCodeAndMarksTheRestAsTheDrivers) {
#define EXPECT_NAMED(name, value, meaning) EXPECT_EQ(statusText(value), std::to_string(value) + " " #name);
    QUORVANE_STATUS_LIST(EXPECT_NAMED)
#undef EXPECT_NAMED
    EXPECT_EQ(statusText(-63100), "-63100 (driver's code)");
    EXPECT_EQ(statusText(7), "7 (driver's code)");
}

TEST(Durations, AreWrittenInTheirUnit) {
    EXPECT_EQ(formatDuration(999), "999 ns");
    EXPECT_EQ(formatDuration(12345), "12.3 us");
    EXPECT_EQ(formatDuration(4567000), "4.57 ms");
    EXPECT_EQ(formatDuration(2500000000), "2.50 s");
}

struct StatisticsCase {
    const char* name;
    std::vector<uint64_t> durations;
    uint64_t median, percentile99, longest;
};

// Test names and failure messages show the case by its name.
void PrintTo(const StatisticsCase& value, std::ostream* out) {
    *out << value.name;
}

class Statistics : public ::testing::TestWithParam<StatisticsCase> {};

TEST_P(Statistics, TakeTheNearestRank) {
    const DurationStatistics statistics = durationStatistics(GetParam().durations);
    EXPECT_EQ(statistics.median, GetParam().median);
    EXPECT_EQ(statistics.percentile99, GetParam().percentile99);
    EXPECT_EQ(statistics.longest, GetParam().longest);
}

std::vector<uint64_t> oneTo(uint64_t last) {
    std::vector<uint64_t> values;
    for (uint64_t value = last; value >= 1; --value) values.push_back(value);  // unsorted on purpose
    return values;
}

INSTANTIATE_TEST_SUITE_P(Durations, Statistics,
                         ::testing::Values(StatisticsCase{"none", {}, 0, 0, 0}, StatisticsCase{"one", {7}, 7, 7, 7},
                                           StatisticsCase{"even", {4, 1, 3, 2}, 2, 4, 4},
                                           StatisticsCase{"odd", {5, 1, 3}, 3, 5, 5},
                                           StatisticsCase{"hundred", oneTo(100), 50, 99, 100},
                                           StatisticsCase{"thousand", oneTo(1000), 500, 990, 1000}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Summary, CountsCallsAndErrorsByCodePerName) {
    const RecordSet set = readRecords(
        "1\t7\t10\t0\tX\t-61219\tQuorvane_AcquireFifoReadRegionScalar\t()\n"
        "2\t7\t30\t0\tX\t0\tQuorvane_AcquireFifoReadRegionScalar\t()\n"
        "3\t7\t20\t0\tX\t-61219\tQuorvane_AcquireFifoReadRegionScalar\t()\n"
        "4\t7\t40\t0\tX\t-50400\tQuorvane_AcquireFifoReadRegionScalar\t()\n"
        "5\t7\t5\t0\tX\t4\tQuorvane_Run\t()\n"
        "6\t7\t5\t0\tN\t-\tnote\tsomething\n");
    // Columns are aligned, and apart by two spaces or more: "|" stands for such a gap below.
    const std::string table = summaryTable(set.records);
    std::vector<std::string> rows;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.size(), table.find('\n')) << line;
        rows.push_back(std::regex_replace(line.substr(2), std::regex("   *"), "|"));
    }
    EXPECT_THAT(rows, ElementsAre("call|calls|errors|median|p99|longest",
                                  "Quorvane_AcquireFifoReadRegionScalar|4|-61219 x2, -50400 x1|20 ns|40 ns|40 ns",
                                  "Quorvane_Run|1|-|5 ns|5 ns|5 ns"));
}

}  // namespace
}  // namespace quorvane::trace
