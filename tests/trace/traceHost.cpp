// A small Host program for the trace tests: it links libQuorvane.so.13 and the simulated Host
// runtime like any Host, makes known calls from several threads and makes the Host run each
// kind of callback the library hands it. What it did goes to standard output, one fact a line,
// for the test to hold the trace against.
//
//   traceHost            everything below, in order
//   traceHost exit N     opens and closes a session, then exits with N
//   traceHost kill       opens a session, then ends by SIGTERM (buffered records are lost)
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "BrennSim.h"
#include "HostSim.h"
#include "Quorvane.h"

namespace {

constexpr int kWorkers = 3;
constexpr int kCallsPerWorker = 5;
constexpr uint32_t kWorkerRegister = 0x200;
constexpr uint32_t kDefaultFifoDepth = 4096;  // of the simulated default target

std::atomic<bool> failed{false};

int32_t expect(const char* what, int32_t status, int32_t wanted) {
    if (status != wanted) {
        std::printf("unexpected: %s answered %d, not %d\n", what, status, wanted);
        failed = true;
    }
    return status;
}

uint32_t open() {
    uint32_t session = 0;
    expect("Quorvane_Open", Quorvane_Open("", "", "RIO0", 0, &session), 0);
    return session;
}

uint32_t acquireRead(uint32_t session, uint32_t fifo, size_t elements) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    expect("Quorvane_AcquireFifoReadRegionScalar",
           Quorvane_AcquireFifoReadRegionScalar(session, fifo, &reference, elements, kQuorvaneElementU32, 0, 1000,
                                                &acquired, &remaining),
           0);
    return reference;
}

// Each worker writes its own 32-bit register (registers are addressed by byte) and reads it back.
void worker(int index, uint32_t session) {
    std::printf("worker %d thread %d\n", index, static_cast<int>(gettid()));
    for (int call = 0; call < kCallsPerWorker; ++call) {
        const uint32_t value = static_cast<uint32_t>(index * 1000 + call);
        uint32_t read = 0;
        expect("Quorvane_Write32", Quorvane_Write32(session, kWorkerRegister + 4 * index, value), 0);
        expect("Quorvane_Read32", Quorvane_Read32(session, kWorkerRegister + 4 * index, &read), 0);
        if (read != value) {
            std::printf("unexpected: worker %d read 0x%x after writing 0x%x\n", index, read, value);
            failed = true;
        }
    }
}

// An acquisition that can only wait (every element of the FIFO is lent out) until the Host
// aborts it. Its call of the driver is held until the abort is made, so that the driver's
// answer (no room) comes after it and the acquisition gives up at once.
void abortedAcquisition(uint32_t session) {
    const uint32_t held = acquireRead(session, 2, kDefaultFifoDepth);
    constexpr const char* kDriverCall = "BrennDll_AcquireFifoReadElementsU32";
    BrennSim_HoldNext(kDriverCall);
    std::thread waiter([session] {
        std::printf("waiter thread %d\n", static_cast<int>(gettid()));
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        expect("the aborted acquisition",
               Quorvane_AcquireFifoReadRegionScalar(session, 2, &reference, 1, kQuorvaneElementU32, 0, 0xFFFFFFFFu,
                                                    &acquired, &remaining),
               kQuorvaneStatusAborted);
    });
    while (BrennSim_HeldCalls(kDriverCall) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::printf("abort procedures run: %zu\n", HostSim_AbortCallsInProgress());
    BrennSim_Release(kDriverCall);
    waiter.join();
    expect("deleting the held region", HostSim_DeleteReference(held), 0);
}

void everything() {
    const uint32_t first = open();
    std::printf("first session 0x%x\n", first);
    std::vector<std::thread> workers;
    for (int index = 0; index < kWorkers; ++index) workers.emplace_back(worker, index, first);
    for (std::thread& thread : workers) thread.join();

    uint32_t value = 0;
    expect("a refused handle", Quorvane_Read32(first | kQuorvaneSessionRefusedBit, kWorkerRegister, &value),
           kQuorvaneStatusSessionRefused);
    std::printf("driver's answer for an unknown handle: %d\n", Quorvane_Read32(0x999, 0, &value));

    expect("deleting a region", HostSim_DeleteReference(acquireRead(first, 0, 16)), 0);

    // A close refused while a region is out completes when the region's reference is deleted.
    const uint32_t deferred = open();
    std::printf("deferred session 0x%x\n", deferred);
    const uint32_t region = acquireRead(deferred, 0, 16);
    expect("the refused close", Quorvane_Close(deferred, 0), kQuorvaneStatusRegionsOutstanding);
    expect("deleting the last region", HostSim_DeleteReference(region), 0);

    abortedAcquisition(first);

    // An open whose cleanup registration the Host refuses closes its session again, through the
    // library's own export.
    HostSim_RefuseNextProgramStopRegistration();
    uint32_t refused = 0;
    expect("the open without a cleanup", Quorvane_Open("", "", "RIO0", 0, &refused), kQuorvaneStatusInternalError);
    std::printf("session closed by its open 0x%x\n", refused);

    const uint32_t stopped = open();
    std::printf("stopped session 0x%x\n", stopped);
    std::printf("cleanup procedures run: %zu\n", HostSim_RunProgramStop());
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (argc == 3 && std::strcmp(argv[1], "exit") == 0) {
        Quorvane_Close(open(), 0);
        return std::atoi(argv[2]);
    }
    if (argc == 2 && std::strcmp(argv[1], "kill") == 0) {
        open();
        raise(SIGTERM);
    }
    everything();
    std::printf("trace host finished%s\n", failed ? " with failures" : "");
    return failed ? 1 : 0;
}
