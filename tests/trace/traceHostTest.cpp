// A multi-threaded Host under quorvane-trace (traceHost.cpp says what it does): each thread's
// calls carry its own thread id, flag bits and driver codes are spelled out, and every kind of
// callback the library hands the Host is traced when the Host runs it.
#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <sstream>

#include "traceRun.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class TracedHost : public ::testing::Test {
protected:
    // The Host runs once for all tests here.
    static void SetUpTestSuite() {
        run_ = new TraceRun(traceProgram({QUORVANE_TRACE_HOST}));
        lines_ = new std::vector<TraceLine>(traceLines(run_->trace));
    }
    static void TearDownTestSuite() {
        delete run_;
        delete lines_;
    }

    void SetUp() override {
        ASSERT_EQ(run_->exitCode, 0) << run_->out << run_->err;
        ASSERT_THAT(run_->out, HasSubstr("trace host finished\n"));
    }

    // The number the Host printed after `label`.
    static int64_t reported(const std::string& label) {
        std::smatch match;
        EXPECT_TRUE(std::regex_search(run_->out, match, std::regex(label + " (0x[0-9a-f]+|-?[0-9]+)\n"))) << label;
        return match.empty() ? 0 : std::stoll(match[1], nullptr, 0);
    }

    static std::vector<TraceLine> linesWhere(const std::function<bool(const TraceLine&)>& wanted) {
        std::vector<TraceLine> found;
        std::copy_if(lines_->begin(), lines_->end(), std::back_inserter(found), wanted);
        return found;
    }

    static std::vector<TraceLine> named(const std::string& name) {
        return linesWhere([&](const TraceLine& line) { return line.name == name; });
    }

    static std::string hex(int64_t value) {
        std::ostringstream text;
        text << "0x" << std::hex << value;
        return text.str();
    }

    static TraceRun* run_;
    static std::vector<TraceLine>* lines_;
};

TraceRun* TracedHost::run_ = nullptr;
std::vector<TraceLine>* TracedHost::lines_ = nullptr;

TEST_F(TracedHost, SummaryAndStatusNamesAgreeWithTheLines) {
    expectConsistentTrace(run_->trace);
}

TEST_F(TracedHost, EachWorkerThreadShowsExactlyItsOwnCalls) {
    const std::string session = hex(reported("first session"));
    for (int worker = 0; worker < 3; ++worker) {
        const auto thread = static_cast<uint64_t>(reported("worker " + std::to_string(worker) + " thread"));
        const auto mine = linesWhere([&](const TraceLine& line) { return line.thread == thread; });
        ASSERT_EQ(mine.size(), 10u) << "worker " << worker;
        for (size_t call = 0; call < 5; ++call) {
            const std::string where = "(session " + session + ", reg " + hex(0x200 + 4 * worker);
            const std::string value = hex(worker * 1000 + static_cast<int64_t>(call));
            const TraceLine& write = mine[2 * call];
            const TraceLine& read = mine[2 * call + 1];
            EXPECT_EQ(write.name + write.text, "Quorvane_Write32" + where + ", value " + value + ")");
            EXPECT_EQ(read.name + read.text, "Quorvane_Read32" + where + ") -> value " + value);
            EXPECT_EQ(write.status, 0);
            EXPECT_EQ(read.status, 0);
        }
    }
}

TEST_F(TracedHost, FlagBitsAndDriverCodesAreSpelledOut) {
    const int64_t session = reported("first session");
    EXPECT_THAT(run_->trace, HasSubstr("Quorvane_Read32(session " + hex(session | 0x2000) + " (" + hex(session) +
                                       "|refused), reg 0x200) = -61499 kQuorvaneStatusSessionRefused ["));
    EXPECT_THAT(run_->trace,
                HasSubstr("Quorvane_Read32(session 0x999, reg 0x0) = " +
                          std::to_string(reported("driver's answer for an unknown handle:")) + " (driver's code) ["));
}

// Three regions were acquired and deleted: each deletion names the record its acquisition made.
TEST_F(TracedHost, EveryRegionDeletionIsTracedWithItsRecord) {
    const auto deleted = named("region deleted");
    const auto acquired = linesWhere(
        [](const TraceLine& line) { return line.name == "Quorvane_AcquireFifoReadRegionScalar" && line.status == 0; });
    ASSERT_EQ(deleted.size(), 3u);
    ASSERT_EQ(acquired.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        std::smatch record;
        ASSERT_TRUE(std::regex_search(acquired[i].text, record, std::regex("record (0x[0-9a-f]+), acquired ([0-9]+)")));
        EXPECT_THAT(deleted[i].text,
                    StartsWith(" (record " + record[1].str() + ", elements " + record[2].str() + ", bytes each 4)"));
        EXPECT_EQ(deleted[i].status, 0);
        EXPECT_GT(deleted[i].seconds, acquired[i].seconds);
    }
    // The refused close of the second session, and the region whose deletion completed it.
    const std::string deferred = hex(reported("deferred session"));
    EXPECT_THAT(run_->trace, HasSubstr("Quorvane_Close(session " + deferred +
                                       ", attribute 0) = -61217 kQuorvaneStatusRegionsOutstanding ["));
}

TEST_F(TracedHost, AbortProcedureAndTheCallItAbortedAreTraced) {
    const auto aborts = named("abort procedure");
    ASSERT_EQ(static_cast<int64_t>(aborts.size()), reported("abort procedures run:"));
    ASSERT_EQ(aborts.size(), 1u);
    EXPECT_EQ(aborts[0].status, 0);
    const auto waiter = static_cast<uint64_t>(reported("waiter thread"));
    const auto waited = linesWhere([&](const TraceLine& line) { return line.thread == waiter; });
    ASSERT_EQ(waited.size(), 1u);
    EXPECT_THAT(waited[0].line, HasSubstr("elements 1, type U32, timeout infinite) = -50405 kQuorvaneStatusAborted ["));
    EXPECT_NE(aborts[0].thread, waiter);  // the Host ran it from its own thread
    EXPECT_GT(aborts[0].seconds, waited[0].seconds);
}

TEST_F(TracedHost, CleanupProceduresRunAtProgramStopAreTraced) {
    const auto cleanups = named("cleanup procedure");
    ASSERT_EQ(static_cast<int64_t>(cleanups.size()), reported("cleanup procedures run:"));
    std::vector<std::string> sessions;
    for (const TraceLine& line : cleanups) {
        EXPECT_EQ(line.status, 0);
        sessions.push_back(line.text);
    }
    EXPECT_THAT(sessions, ::testing::UnorderedElementsAre(" (session " + hex(reported("first session")) + ")",
                                                          " (session " + hex(reported("stopped session")) + ")"));
}

// The open whose cleanup the Host refused closes its session through the library's own export:
// that close is a line of its own, nested in the open and marked as the library's.
TEST_F(TracedHost, CallsTheLibraryMakesOfItsOwnExportsAreNested) {
    const auto nested = linesWhere([](const TraceLine& line) { return line.depth > 0; });
    ASSERT_EQ(nested.size(), 1u);
    EXPECT_TRUE(nested[0].byLibrary);
    EXPECT_EQ(nested[0].name, "Quorvane_Close");
    EXPECT_EQ(nested[0].text, "(session " + hex(reported("session closed by its open")) + ", attribute 1)");
    const auto open = std::find_if(lines_->begin(), lines_->end(), [](const TraceLine& line) {
        return line.name == "Quorvane_Open" && line.status == -52003;
    });
    ASSERT_NE(open, lines_->end());
    EXPECT_EQ(open->thread, nested[0].thread);
    EXPECT_EQ(std::next(open)->line, nested[0].line);  // ordered by start: the open began first
}

}  // namespace
}  // namespace quorvane::testing
