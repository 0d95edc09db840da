// The demo under quorvane-trace: the trace holds every call the demo made and every region it
// deleted, and the demo runs as it does untraced.
#include <gmock/gmock.h>

#include <algorithm>
#include <regex>

#include "traceRun.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;

size_t countNamed(const std::vector<TraceLine>& lines, const std::string& name) {
    return static_cast<size_t>(
        std::count_if(lines.begin(), lines.end(), [&](const TraceLine& line) { return line.name == name; }));
}

class TracedDemo : public ::testing::TestWithParam<const char*> {};

// 2 MiB each way in blocks of 4096 elements, by regions and by copies.
TEST_P(TracedDemo, RecordsEveryCallAndRegionOfTheDemo) {
    const std::string type = GetParam();
    const TraceRun run = traceProgram({QUORVANE_DEMO, "--amount", "2M", "--block", "4096", "--type", type});
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_THAT(run.out, HasSubstr("0 data errors, 0 error statuses"));
    expectConsistentTrace(run.trace);
    const std::vector<TraceLine> lines = traceLines(run.trace);

    std::smatch regions;
    ASSERT_TRUE(std::regex_search(run.out, regions, std::regex("regions: ([0-9]+) acquired, ([0-9]+) retired")));
    EXPECT_EQ(countNamed(lines, "Quorvane_AcquireFifoReadRegionScalar") +
                  countNamed(lines, "Quorvane_AcquireFifoWriteRegionScalar"),
              std::stoul(regions[1]));
    EXPECT_EQ(countNamed(lines, "region deleted"), std::stoul(regions[2]));
    const size_t bytes = std::stoul(type.substr(1)) / 8;
    const size_t blocks = (2u << 20) / bytes / 4096;
    EXPECT_EQ(countNamed(lines, "Quorvane_ReadFifoScalar"), blocks);
    EXPECT_EQ(countNamed(lines, "Quorvane_WriteFifoScalar"), blocks);

    // One thread; the session opened is the one closed; every call succeeded; types by name.
    std::smatch opened;
    ASSERT_TRUE(
        std::regex_search(run.trace, opened, std::regex(R"(Quorvane_Open\(.*\) -> session (0x[0-9a-f]+) = 0 )")));
    EXPECT_THAT(run.trace, HasSubstr("Quorvane_Close(session " + opened[1].str() + ", attribute 0) = 0 "));
    for (const TraceLine& line : lines) {
        EXPECT_EQ(line.thread, lines.front().thread) << line.line;
        EXPECT_EQ(line.status, 0) << line.line;
        if (line.name.ends_with("Scalar")) {
            EXPECT_THAT(line.text, HasSubstr("type " + type)) << line.line;
        }
        if (line.name == "region deleted") {
            EXPECT_THAT(line.text, HasSubstr("elements 4096, bytes each " + std::to_string(bytes)));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ElementTypes, TracedDemo, ::testing::Values("I16", "U64"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace quorvane::testing
