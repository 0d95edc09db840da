// A Host for the trace tests: without arguments it calls from several threads and runs each kind of
// callback the library hands it; `N` opens and closes a session and exits with N, `kill` by SIGTERM.
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BrennSim.h"
#include "HostSim.h"
#include "Quorvane.h"

#ifdef QUORVANE_OWN_CLEANUP
// The executable's own definition comes before the trace's: what the library registers goes untraced.
extern "C" int32_t RTSetCleanupProc(HostCleanupProc, void*, int32_t mode) {
    return mode == kHostCleanupOnProgramStop;
}
#endif

static uint32_t openSession(const char* resource = "RIO0") {
    uint32_t session = 0;
    Quorvane_Open("", "", resource, 0, &session);
    return session;
}

static uint32_t acquire(uint32_t session, size_t elements, uint32_t timeout) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    Quorvane_AcquireFifoReadRegionScalar(session, 2, &reference, elements, kQuorvaneElementU32, 0, timeout, &acquired,
                                         &remaining);
    return reference;
}

int main(int argc, char** argv) {
    if (argc == 2) {
        Quorvane_Close(openSession(), 0);
        if (std::strcmp(argv[1], "kill") == 0) raise(SIGTERM);
        return std::atoi(argv[1]);
    }
    const uint32_t first = openSession();
    std::vector<std::thread> workers;  // each writes five values to its own register, reading each back
    for (uint32_t index = 0; index < 3; ++index) {
        workers.emplace_back([first, index] {
            for (uint32_t value = index * 1000, read = 0; value < index * 1000 + 5; ++value) {
                Quorvane_Write32(first, 0x200 + 4 * index, value);
                Quorvane_Read32(first, 0x200 + 4 * index, &read);
            }
        });
    }
    for (std::thread& thread : workers) thread.join();

    // An acquisition that waits (the FIFO's elements are lent out) until the Host aborts it.
    const uint32_t held = acquire(first, 4096, 1000);
    BrennSim_HoldNext("BrennDll_AcquireFifoReadElementsU32");
    std::thread waiter([first] { acquire(first, 1, 0xFFFFFFFFu); });
    while (BrennSim_HeldCalls("BrennDll_AcquireFifoReadElementsU32") == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    HostSim_AbortCallsInProgress();
    BrennSim_Release("BrennDll_AcquireFifoReadElementsU32");
    waiter.join();
    HostSim_DeleteReference(held);

    // An open whose cleanup the Host refuses closes its session again through the library's export.
    HostSim_RefuseNextProgramStopRegistration();
    openSession();
    openSession(std::string(300, 'r').c_str());             // a name longer than a trace line shows
    return static_cast<int>(HostSim_RunProgramStop()) - 2;  // the two sessions left open are cleaned up
}
