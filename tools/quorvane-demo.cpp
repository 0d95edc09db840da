// A small Host program: opens a session on the simulated target, reserves an IRQ context for
// it, and closes it again, printing every status it meets. It links libQuorvane.so.13 like any
// Host, with the stand-ins for the driver and the Host runtime.
#include <cstdio>
#include <cstring>

#include "HostSim.h"
#include "Quorvane.h"
#include "statusText.h"

namespace {

int failures = 0;

int32_t report(const char* what, int32_t status) {
    std::printf("%-40s %7d  %s\n", what, status, quorvane::tools::statusMeaning(status));
    if (status < 0) ++failures;
    return status;
}

void usage() {
    std::printf(
        "usage: quorvane-demo [--bitfile NAME]\n"
        "Opens a session on the simulated FPGA target through libQuorvane, reserves an IRQ\n"
        "context for it, closes it, and prints each status with its meaning.\n"
        "  --bitfile NAME   bitfile argument handed to the target (default: the built-in one)\n");
}

}  // namespace

int main(int argc, char** argv) {
    const char* bitfile = "";
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--bitfile") == 0 && i + 1 < argc) {
            bitfile = argv[++i];
        } else {
            usage();
            return std::strcmp(argv[i], "--help") == 0 ? 0 : 2;
        }
    }

    report("Quorvane_ReserveIrqContext", Quorvane_ReserveIrqContext());
    uint32_t session = 0;
    if (report("Quorvane_Open", Quorvane_Open(bitfile, "", "RIO0", 0, &session)) < 0) return 1;
    std::printf("  session handle 0x%x, cleanup procedures registered with the Host: %zu\n", session,
                HostSim_ProgramStopRegistrationCount());
    report("Quorvane_Close", Quorvane_Close(session, 0));
    std::printf("  cleanup procedures registered with the Host: %zu\n", HostSim_ProgramStopRegistrationCount());
    report("Quorvane_Close again (already closed)", Quorvane_Close(session, 0));
    report("Quorvane_UnreserveIrqContext", Quorvane_UnreserveIrqContext());
    // The second close is expected to fail: the target no longer knows the handle.
    std::printf("%s\n", failures == 1 ? "demo finished as expected" : "demo met unexpected errors");
    return failures == 1 ? 0 : 1;
}
