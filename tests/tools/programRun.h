// Runs a built program through the shell as a user does: its standard output and error, its exit code.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace quorvane::testing {

// A file under the temporary folder, removed when the object goes.
struct TempFile {
    explicit TempFile(const std::string& name, const std::string& contents = "")
        : path(std::filesystem::temp_directory_path() / (std::to_string(getpid()) + "." + name)) {
        std::ofstream(path) << contents;
    }
    ~TempFile() { std::filesystem::remove(path); }
    std::string read() const { return (std::ostringstream() << std::ifstream(path).rdbuf()).str(); }
    const std::filesystem::path path;
};

struct ProgramRun {
    int exitCode;
    std::string out, err;
};

inline ProgramRun runProgram(const std::string& command) {
    const TempFile out("out"), err("err");
    const int status = std::system((command + " </dev/null >" + out.path.string() + " 2>" + err.path.string()).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.read(), err.read()};
}

}  // namespace quorvane::testing
