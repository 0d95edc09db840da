#include "childProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace quorvane::trace {

namespace {

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

int exitCodeOf(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

// Ignores the terminal's interrupt and quit in this process for its lifetime.
class TerminalSignalsIgnored {
public:
    TerminalSignalsIgnored() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGINT, &ignore, &interrupt_);
        sigaction(SIGQUIT, &ignore, &quit_);
    }
    ~TerminalSignalsIgnored() {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGQUIT, &quit_, nullptr);
    }
    TerminalSignalsIgnored(const TerminalSignalsIgnored&) = delete;
    TerminalSignalsIgnored& operator=(const TerminalSignalsIgnored&) = delete;

private:
    struct sigaction interrupt_ {};
    struct sigaction quit_ {};
};

}  // namespace

Environment Environment::ofThisProcess() {
    Environment environment;
    for (char** word = environ; *word != nullptr; ++word) environment.words_.emplace_back(*word);
    return environment;
}

const char* Environment::find(std::string_view name) const noexcept {
    for (const std::string& word : words_) {
        if (word.size() > name.size() && word.compare(0, name.size(), name) == 0 && word[name.size()] == '=') {
            return word.c_str() + name.size() + 1;
        }
    }
    return nullptr;
}

void Environment::set(std::string_view name, std::string_view value) {
    std::string word = std::string(name) + "=" + std::string(value);
    for (std::string& existing : words_) {
        if (existing.size() > name.size() && existing.compare(0, name.size(), name) == 0 &&
            existing[name.size()] == '=') {
            existing = std::move(word);
            return;
        }
    }
    words_.push_back(std::move(word));
}

ChildOutcome runChild(const std::vector<std::string>& command, const Environment& environment, bool captureOutput) {
    ChildOutcome outcome;
    int pipeEnds[2] = {-1, -1};
    if (captureOutput && pipe2(pipeEnds, O_CLOEXEC) != 0) {
        outcome.spawnError = errno;
        return outcome;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (captureOutput) {
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGQUIT);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    const std::vector<char*> argv = pointersTo(command);
    const std::vector<char*> envp = pointersTo(environment.words());
    const TerminalSignalsIgnored ignored;
    pid_t child = 0;
    outcome.spawnError = posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (captureOutput) {
        close(pipeEnds[1]);
        char buffer[4096];
        for (ssize_t got; outcome.spawnError == 0 && (got = read(pipeEnds[0], buffer, sizeof buffer)) != 0;) {
            if (got > 0) outcome.output.append(buffer, static_cast<size_t>(got));
            if (got < 0 && errno != EINTR) break;
        }
        close(pipeEnds[0]);
    }
    if (outcome.spawnError != 0) return outcome;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return outcome;
    }
    outcome.exitCode = exitCodeOf(status);
    return outcome;
}

}  // namespace quorvane::trace
