// Runs the built demo program as a user would, with its standard output, standard error and
// exit code kept apart.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
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

// Spawns the demo with `arguments`; output goes to files, which cannot fill up and block it.
inline DemoRun runDemo(const std::vector<std::string>& arguments) {
    const TempFile out("demo-out", ""), err("demo-err", "");
    std::vector<std::string> words{QUORVANE_DEMO};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.path().c_str(), O_WRONLY | O_TRUNC, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.path().c_str(), O_WRONLY | O_TRUNC, 0);
    DemoRun run;
    pid_t child = 0;
    if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        int status = 0;
        if (waitpid(child, &status, 0) == child && WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    run.out = readAll(out.path());
    run.err = readAll(err.path());
    return run;
}

}  // namespace quorvane::testing
