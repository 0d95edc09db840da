// Runs quorvane-trace as a user does, and reads the trace it writes back: its call lines and
// its summary table, with checks every trace must pass.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "QuorvaneStatus.h"

extern char** environ;

namespace quorvane::testing {

// A path under the temporary folder, removed when the object goes.
class TempPath {
public:
    explicit TempPath(const std::string& name)
        : path_(std::filesystem::temp_directory_path() / (name + "." + std::to_string(getpid()))) {}
    ~TempPath() { std::filesystem::remove(path_); }
    TempPath(const TempPath&) = delete;
    TempPath& operator=(const TempPath&) = delete;
    std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

struct TraceRun {
    int exitCode = -1;
    std::string out;
    std::string err;
    std::string trace;  // the -o file, when traceProgram wrote one
};

// quorvane-trace with `arguments`, in this process's environment less the variables `unset`.
inline TraceRun runTraceTool(const std::vector<std::string>& arguments, const std::vector<std::string>& unset = {}) {
    const TempPath out("trace-out"), err("trace-err");
    std::vector<std::string> words{QUORVANE_TRACE};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view word(*variable);
        bool keep = true;
        for (const std::string& name : unset) keep = keep && !word.starts_with(name + "=");
        if (keep) variables.emplace_back(word);
    }
    const auto pointers = [](std::vector<std::string>& all) {
        std::vector<char*> list;
        for (std::string& word : all) list.push_back(word.data());
        list.push_back(nullptr);
        return list;
    };
    std::vector<char*> argv = pointers(words), envp = pointers(variables);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    TraceRun run;
    pid_t child = 0;
    int status = 0;
    if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0 &&
        waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        run.exitCode = WEXITSTATUS(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    run.out = readFile(out.path());
    run.err = readFile(err.path());
    return run;
}

// quorvane-trace -o FILE --summary -- command: the program's output in out and err, the trace
// in trace.
inline TraceRun traceProgram(const std::vector<std::string>& command) {
    const TempPath trace("trace");
    std::vector<std::string> arguments{"-o", trace.path(), "--summary", "--"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    TraceRun run = runTraceTool(arguments);
    run.trace = readFile(trace.path());
    return run;
}

// One call or callback line of a trace.
struct TraceLine {
    double seconds = 0;
    uint64_t thread = 0;
    size_t depth = 0;
    bool byLibrary = false;
    std::string name;  // "Quorvane_Open", "region deleted", ...
    std::string text;  // arguments and results
    bool hasStatus = false;
    int32_t status = 0;
    std::string statusName;
    std::string line;
};

// The call and callback lines, in the trace's order, up to the summary; any other line that is not
// a comment fails the test.
inline std::vector<TraceLine> traceLines(const std::string& trace) {
    static const std::regex kLine(
        R"(^ *([0-9]+\.[0-9]{6}) +([0-9]+)  ( *)(\(library\) )?(Quorvane_[A-Za-z0-9]+|[a-z][a-z ]*[a-z])(.*?))"
        R"((?: = (-?[0-9]+) (kQuorvaneStatus[A-Za-z]+|\(driver's code\)))? \[[0-9.]+ [nums]+\]$)");
    std::vector<TraceLine> lines;
    std::istringstream input(trace);
    for (std::string text; std::getline(input, text) && !text.starts_with("summary:");) {
        if (text.empty() || text[0] == '#') continue;
        std::smatch match;
        if (!std::regex_match(text, match, kLine)) {
            ADD_FAILURE() << "not a trace line: " << text;
            continue;
        }
        TraceLine line;
        line.seconds = std::stod(match[1]);
        line.thread = std::stoull(match[2]);
        line.depth = static_cast<size_t>(match[3].length()) / 2;
        line.byLibrary = match[4].matched;
        line.name = match[5];
        line.text = match[6];
        line.hasStatus = match[7].matched;
        if (line.hasStatus) line.status = std::stoi(match[7]);
        line.statusName = match[8];
        line.line = text;
        lines.push_back(line);
    }
    return lines;
}

struct SummaryRow {
    uint64_t calls = 0;
    std::string errors;
};

// The summary's rows by name.
inline std::map<std::string, SummaryRow> summaryRows(const std::string& trace) {
    std::map<std::string, SummaryRow> rows;
    const size_t start = trace.find("\nsummary: ");
    if (start == std::string::npos) return rows;
    std::istringstream input(trace.substr(start + 1));
    std::string text;
    std::getline(input, text);  // summary: ...
    std::getline(input, text);  // the column heads
    static const std::regex kRow(
        R"(^  (\S(?:.*?\S)?)  +([0-9]+)  (\S(?:.*?\S)?)  +(\S+ \S+)  +(\S+ \S+)  +(\S+ \S+)$)");
    while (std::getline(input, text)) {
        std::smatch match;
        if (!std::regex_match(text, match, kRow)) {
            ADD_FAILURE() << "not a summary row: " << text;
            continue;
        }
        rows[match[1]] = {std::stoull(match[2]), match[3]};
    }
    return rows;
}

// Every trace: each status is named after its code, lines are in time order, and the summary
// counts what the lines show, calls and errors by code.
inline void expectConsistentTrace(const std::string& trace) {
#define QUORVANE_TEST_STATUS(name, value, meaning) {value, #name},
    static const std::map<int32_t, std::string> kNames = {QUORVANE_STATUS_LIST(QUORVANE_TEST_STATUS)};
#undef QUORVANE_TEST_STATUS
    const std::vector<TraceLine> lines = traceLines(trace);
    ASSERT_FALSE(lines.empty()) << trace;
    std::map<std::string, uint64_t> calls;
    std::map<std::string, std::map<int32_t, uint64_t>> errors;
    double previous = 0;
    for (const TraceLine& line : lines) {
        if (line.hasStatus) {
            const auto known = kNames.find(line.status);
            EXPECT_EQ(line.statusName, known == kNames.end() ? "(driver's code)" : known->second) << line.line;
            if (line.status < 0) ++errors[line.name][line.status];
        }
        EXPECT_GE(line.seconds, previous) << line.line;
        previous = line.seconds;
        ++calls[line.name];
    }
    const auto rows = summaryRows(trace);
    ASSERT_EQ(rows.size(), calls.size()) << trace;
    for (const auto& [name, count] : calls) {
        ASSERT_TRUE(rows.count(name)) << name;
        EXPECT_EQ(rows.at(name).calls, count) << name;
        std::string expected;
        for (const auto& [code, times] : errors[name]) {
            expected += (expected.empty() ? "" : ", ") + std::to_string(code) + " x" + std::to_string(times);
        }
        EXPECT_EQ(rows.at(name).errors, expected.empty() ? "-" : expected) << name;
    }
}

}  // namespace quorvane::testing
