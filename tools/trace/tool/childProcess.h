// Starting the traced program (and its dynamic loader's listing) with an environment of our
// making, and waiting for it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorvane::trace {

// NAME=value words, as execve takes them.
class Environment {
public:
    static Environment ofThisProcess();

    // The value of `name`, or null when it is not set.
    const char* find(std::string_view name) const noexcept;
    void set(std::string_view name, std::string_view value);
    const std::vector<std::string>& words() const noexcept { return words_; }

private:
    std::vector<std::string> words_;
};

struct ChildOutcome {
    int exitCode = -1;   // the exit code, 128 + the signal's number, or -1 when it did not start
    int spawnError = 0;  // errno of a failed start
    std::string output;  // standard output, when asked for
};

// Runs `command` (found through PATH when it has no slash). With `captureOutput`, its standard
// output is collected and its standard error discarded; otherwise both are this process's. While
// it runs, an interrupt or quit from the terminal reaches only it: quorvane-trace outlives it to
// write the trace.
ChildOutcome runChild(const std::vector<std::string>& command, const Environment& environment, bool captureOutput);

}  // namespace quorvane::trace
