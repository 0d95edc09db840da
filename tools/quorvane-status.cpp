// quorvane-status: names and explains the status codes a Host gets from libQuorvane, from the
// library's own list of codes. It needs neither the library nor a target to run.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "QuorvaneVersion.h"
#include "statusText.h"

namespace {

using quorvane::tools::findStatus;
using quorvane::tools::KnownStatus;
using quorvane::tools::knownStatuses;
using quorvane::tools::StatusOrigin;

constexpr int kExitKnown = 0;
constexpr int kExitUnknownCode = 1;
constexpr int kExitBadUsage = 2;

// help2man makes the manual page from this text: "Usage:" and the section headings matter.
constexpr const char kHelp[] =
    "Usage: quorvane-status CODE...\n"
    "  or:  quorvane-status --list\n"
    "Name and explain the status codes of libQuorvane.so.13.\n"
    "\n"
    "Nearly every function of the library returns a signed 32-bit status: 0 success,\n"
    "a negative number an error, a positive one a warning. For each CODE, a decimal\n"
    "number such as -52000, one line gives the code, its name and its meaning. The\n"
    "program knows the codes the library produces itself and those of the simulated\n"
    "FPGA target that comes with it; any other code is passed on unchanged from the\n"
    "FPGA interface library or the device service, and the line says only whether it\n"
    "is an error or a warning.\n"
    "\n"
    "Options:\n"
    "  --list      print every code of the library, then those of the simulated target\n"
    "  --help      print this help and exit\n"
    "  --version   print the version of libQuorvane this program belongs to and exit\n"
    "\n"
    "Exit status:\n"
    "  0  every CODE is one of the library's or the simulated target's\n"
    "  1  some CODE is neither (each is still described)\n"
    "  2  bad usage: no argument, an unknown option, or a CODE that is not a 32-bit number\n";

std::optional<int32_t> parseCode(std::string_view text) {
    int32_t code = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return code;
}

void printKnown(const KnownStatus& known) {
    const char* origin = known.origin == StatusOrigin::simulatedTarget ? " (simulated target, not the library)" : "";
    std::printf("%d %s%s: %s\n", known.code, known.name, origin, known.meaning);
}

// Returns whether the code is one the program knows.
bool explain(int32_t code) {
    if (const KnownStatus* known = findStatus(code)) {
        printKnown(*known);
        return true;
    }
    std::printf("%d: not a code of libQuorvane; %s passed on from the FPGA interface library or the device service\n",
                code, code < 0 ? "an error" : "a warning");
    return false;
}

int badUsage(const char* problem, std::string_view argument) {
    std::fprintf(stderr, "quorvane-status: %s: '%.*s'\nTry 'quorvane-status --help'.\n", problem,
                 static_cast<int>(argument.size()), argument.data());
    return kExitBadUsage;
}

// One argument: --list, or a code. Arguments are checked first, so bad usage prints nothing.
struct Request {
    bool list = false;
    int32_t code = 0;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<Request> requests;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help") {
            std::fputs(kHelp, stdout);
            return kExitKnown;
        }
        if (argument == "--version") {
            std::printf("quorvane-status %s\n", QUORVANE_VERSION_STRING);
            return kExitKnown;
        }
        if (argument == "--list") {
            requests.push_back({true});
        } else if (argument.starts_with("--")) {
            return badUsage("unknown option", argument);
        } else if (const std::optional<int32_t> code = parseCode(argument)) {
            requests.push_back({false, *code});
        } else {
            return badUsage("not a decimal 32-bit status code", argument);
        }
    }
    if (requests.empty()) {
        std::fputs("quorvane-status: no CODE given\nTry 'quorvane-status --help'.\n", stderr);
        return kExitBadUsage;
    }

    bool allKnown = true;
    for (const Request& request : requests) {
        if (request.list) {
            for (const KnownStatus& known : knownStatuses()) printKnown(known);
        } else if (!explain(request.code)) {
            allKnown = false;
        }
    }
    return allKnown ? kExitKnown : kExitUnknownCode;
}
