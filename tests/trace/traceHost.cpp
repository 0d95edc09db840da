// A small Host for the trace tests: it links libQuorvane.so.13 and the simulated Host runtime like
// any Host, calls from several threads and makes the Host run each kind of callback the library
// hands it; it exits with 1 when a call answers other than it expects.
//   traceHost          all of that, in order
//   traceHost N        opens and closes a session, then exits with N
//   traceHost kill     the same, then ends by SIGTERM (the records still buffered are lost)
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BrennSim.h"
#include "HostSim.h"
#include "Quorvane.h"

namespace {

std::atomic<bool> failed{false};

void expect(int32_t status, int32_t wanted) {
    if (status != wanted) failed = true;
}

uint32_t open(const char* resource = "RIO0", int32_t wanted = 0) {
    uint32_t session = 0;
    expect(Quorvane_Open("", "", resource, 0, &session), wanted);
    return session;
}

uint32_t acquire(uint32_t session, size_t elements, uint32_t timeout = 1000, int32_t wanted = 0) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    expect(Quorvane_AcquireFifoReadRegionScalar(session, 2, &reference, elements, kQuorvaneElementU32, 0, timeout,
                                                &acquired, &remaining),
           wanted);
    return reference;
}

void everything() {
    const uint32_t first = open();
    std::vector<std::thread> workers;  // each writes five values to its own register, reading each back
    for (uint32_t index = 0; index < 3; ++index) {
        workers.emplace_back([first, index] {
            for (uint32_t value = index * 1000, read = 0; value < index * 1000 + 5; ++value) {
                expect(Quorvane_Write32(first, 0x200 + 4 * index, value), 0);
                expect(Quorvane_Read32(first, 0x200 + 4 * index, &read), 0);
            }
        });
    }
    for (std::thread& thread : workers) thread.join();

    // An acquisition that can only wait (the FIFO's 4096 elements are lent out) until the Host
    // aborts it. Its driver call is held until the abort is made, so it gives up at once.
    const uint32_t held = acquire(first, 4096);
    BrennSim_HoldNext("BrennDll_AcquireFifoReadElementsU32");
    std::thread waiter([first] { acquire(first, 1, 0xFFFFFFFFu, kQuorvaneStatusAborted); });
    while (BrennSim_HeldCalls("BrennDll_AcquireFifoReadElementsU32") == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    expect(static_cast<int32_t>(HostSim_AbortCallsInProgress()), 1);
    BrennSim_Release("BrennDll_AcquireFifoReadElementsU32");
    waiter.join();
    expect(HostSim_DeleteReference(held), 0);

    // An open whose cleanup the Host refuses closes its session again through the library's export.
    HostSim_RefuseNextProgramStopRegistration();
    open("RIO0", kQuorvaneStatusInternalError);
    open(std::string(300, 'r').c_str());  // a name longer than a trace line shows
    expect(static_cast<int32_t>(HostSim_RunProgramStop()), 2);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2) {
        Quorvane_Close(open(), 0);
        if (std::strcmp(argv[1], "kill") == 0) raise(SIGTERM);
        return std::atoi(argv[1]);
    }
    everything();
    return failed ? 1 : 0;
}
