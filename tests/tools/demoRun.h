// Runs the built demo program as a user would, with its standard output, standard error and
// exit code kept apart, or its output merged into one file, or on a terminal.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

extern char** environ;

namespace quorvane::testing {

struct DemoRun {
    int exitCode = -1;
    std::string out;
    std::string err;

    // The last non-empty line of standard output.
    std::string lastLine() const {
        std::string line, last;
        std::istringstream lines(out);
        while (std::getline(lines, line)) {
            if (!line.empty()) last = line;
        }
        return last;
    }
};

// A file under the test's temporary directory, removed when the object goes.
class TempFile {
public:
    TempFile(const std::string& name, const std::string& contents)
        : path_(std::filesystem::temp_directory_path() / (name + "." + std::to_string(getpid()))) {
        std::ofstream(path_) << contents;
    }
    ~TempFile() { std::filesystem::remove(path_); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

inline std::string readAll(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// How the demo's output is connected.
struct DemoOutput {
    bool merged = false;       // standard error goes to the same file as standard output
    int terminalColumns = -1;  // 0 or more: standard output is a terminal of that width (0: unknown)
    const char* columns = "";  // the demo's $COLUMNS; empty: unset
};

namespace detail {

// The test's environment, with $COLUMNS as `columns` asks.
inline std::vector<std::string> demoEnvironment(const char* columns) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with("COLUMNS=")) variables.emplace_back(*variable);
    }
    if (*columns != '\0') variables.push_back(std::string("COLUMNS=") + columns);
    return variables;
}

inline std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

// A pseudo-terminal of `columns` columns: answers the side the test reads, and names the side
// the demo opens as its standard output; -1 when none could be made.
inline int openTerminal(int columns, std::string& name) {
    const int ours = posix_openpt(O_RDWR | O_NOCTTY);
    if (ours < 0) return -1;
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    if (grantpt(ours) != 0 || unlockpt(ours) != 0 || ioctl(ours, TIOCSWINSZ, &size) != 0) {
        close(ours);
        return -1;
    }
    name = ptsname(ours);
    return ours;
}

}  // namespace detail

// Spawns the demo with `arguments`; output goes to files, which cannot fill up and block it, or
// to a pseudo-terminal that is read until the demo closes it.
inline DemoRun runDemo(const std::vector<std::string>& arguments, const DemoOutput& output = {}) {
    const TempFile out("demo-out", ""), err("demo-err", "");
    std::vector<std::string> words{QUORVANE_DEMO};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = detail::pointersTo(words);
    std::vector<std::string> variables = detail::demoEnvironment(output.columns);
    std::vector<char*> envp = detail::pointersTo(variables);

    DemoRun run;
    std::string terminalName;
    const int terminal = output.terminalColumns < 0 ? -1 : detail::openTerminal(output.terminalColumns, terminalName);
    if (output.terminalColumns >= 0 && terminal < 0) return run;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, terminal < 0 ? out.path().c_str() : terminalName.c_str(),
                                     O_WRONLY | O_TRUNC | O_NOCTTY, 0);
    if (output.merged) {
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.path().c_str(), O_WRONLY | O_TRUNC, 0);
    }
    pid_t child = 0;
    if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0) {
        // The terminal's buffer is small: drain it while the demo writes, until it closes it.
        char buffer[4096];
        for (ssize_t got; terminal >= 0 && (got = read(terminal, buffer, sizeof buffer)) != 0;) {
            if (got > 0) run.out.append(buffer, static_cast<size_t>(got));
            if (got < 0 && errno != EINTR) break;  // EIO: the demo's side is closed
        }
        int status = 0;
        if (waitpid(child, &status, 0) == child && WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    if (terminal >= 0) {
        close(terminal);
    } else {
        run.out = readAll(out.path());
    }
    run.err = readAll(err.path());
    return run;
}

}  // namespace quorvane::testing
