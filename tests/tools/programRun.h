// Runs a built program as a user does, through the shell: its standard output read as it comes,
// its standard error kept in a file, and its exit code.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace quorvane::testing {

// A file under the temporary folder, removed when the object goes.
class TempFile {
public:
    explicit TempFile(const std::string& name, const std::string& contents = "")
        : path_(std::filesystem::temp_directory_path() / (std::to_string(getpid()) + "." + name)) {
        std::ofstream(path_) << contents;
    }
    ~TempFile() { std::filesystem::remove(path_); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    std::string path() const { return path_.string(); }
    std::string read() const {
        std::ostringstream text;
        text << std::ifstream(path_).rdbuf();
        return text.str();
    }

private:
    std::filesystem::path path_;
};

struct ProgramRun {
    int exitCode = -1;
    std::string out, err;
};

inline ProgramRun runProgram(const std::string& command) {
    const TempFile err("err");
    ProgramRun run;
    FILE* pipe = popen((command + " </dev/null 2>" + err.path()).c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) != 0;) run.out.append(buffer, got);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    run.err = err.read();
    return run;
}

}  // namespace quorvane::testing
