// Cleanup registrations of the simulated Host: RTSetCleanupProc and the two ways the Host runs
// what was registered (stopping the program, aborting calls in progress).
//
// Program-stop registrations are procedures that close what a program left open; they call
// back into the library, which removes registrations as it closes. So the Host takes them out
// under its lock and runs them without it.
//
// Abort registrations belong to one call in progress on one thread, and their argument usually
// lives in that call's stack frame. The Host runs them under its abort lock: the thread that
// made the call cannot end its registration, and so cannot leave the frame, while its
// procedure runs.
#include <algorithm>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "HostInternal.h"
#include "HostSim.h"

namespace hostsim {
namespace {

struct Registration {
    HostCleanupProc proc;
    void* argument;
};

struct ProgramStopRegistrations {
    std::mutex mutex;
    std::vector<Registration> registrations;  // oldest first; the same pair may appear twice
};

struct AbortRegistrations {
    std::mutex mutex;
    std::map<std::thread::id, Registration> byThread;
};

ProgramStopRegistrations& programStop() {
    static ProgramStopRegistrations* const instance = new ProgramStopRegistrations;
    return *instance;
}

AbortRegistrations& aborts() {
    static AbortRegistrations* const instance = new AbortRegistrations;
    return *instance;
}

// Set while this thread runs abort procedures under the abort lock; a mode-6 call from inside
// one of them would wait for that lock forever.
thread_local bool runningAbortProcedures = false;

int32_t registerForProgramStop(HostCleanupProc proc, void* argument) noexcept {
    if (proc == nullptr || takeProgramStopRefusal()) return 0;
    if (const auto injected = takeInjectedAnswer(HostFunction::kRTSetCleanupProc)) return *injected;
    try {
        std::lock_guard lock(programStop().mutex);
        programStop().registrations.push_back({proc, argument});
    } catch (...) {
        return 0;
    }
    return 1;
}

// Removes every registration of that pair, so that a pair registered twice is gone after one
// removal, as a keyed Host table would behave.
int32_t removeFromProgramStop(HostCleanupProc proc, void* argument) noexcept {
    std::lock_guard lock(programStop().mutex);
    std::erase_if(programStop().registrations,
                  [&](const Registration& r) { return r.proc == proc && r.argument == argument; });
    return 0;
}

int32_t setAbortProcedure(HostCleanupProc proc, void* argument) noexcept {
    if (runningAbortProcedures) misuse("RTSetCleanupProc mode 6 called from an abort procedure");
    if (proc == nullptr) {
        std::lock_guard lock(aborts().mutex);
        aborts().byThread.erase(std::this_thread::get_id());
        return kHostNoError;
    }
    if (const auto injected = takeInjectedAnswer(HostFunction::kRTSetCleanupProc)) return *injected;
    try {
        std::lock_guard lock(aborts().mutex);
        aborts().byThread.insert_or_assign(std::this_thread::get_id(), Registration{proc, argument});
    } catch (...) {
        return kHostOutOfMemory;
    }
    return kHostNoError;
}

}  // namespace

void forgetCleanupRegistrations() noexcept {
    {
        std::lock_guard lock(programStop().mutex);
        programStop().registrations.clear();
    }
    std::lock_guard lock(aborts().mutex);
    aborts().byThread.clear();
}

}  // namespace hostsim

using hostsim::aborts;
using hostsim::programStop;

// Injected answers are consumed by registrations only (mode 2, and mode 6 with a procedure):
// removals and the end of an abort registration always take effect.
extern "C" int32_t RTSetCleanupProc(HostCleanupProc proc, void* argument, int32_t mode) {
    hostsim::countCall(hostsim::HostFunction::kRTSetCleanupProc);
    hostsim::countCleanupMode(mode);
    switch (mode) {
        case kHostCleanupOnProgramStop:
            return hostsim::registerForProgramStop(proc, argument);
        case kHostCleanupRemove:
            return hostsim::removeFromProgramStop(proc, argument);
        case kHostCleanupOnCallAbort:
            return hostsim::setAbortProcedure(proc, argument);
        default:
            return 1;
    }
}

extern "C" size_t HostSim_ProgramStopRegistrationCount(void) {
    std::lock_guard lock(programStop().mutex);
    return programStop().registrations.size();
}

extern "C" int HostSim_IsRegisteredForProgramStop(HostCleanupProc proc, void* argument) {
    std::lock_guard lock(programStop().mutex);
    const auto& all = programStop().registrations;
    return std::any_of(all.begin(), all.end(),
                       [&](const hostsim::Registration& r) { return r.proc == proc && r.argument == argument; })
               ? 1
               : 0;
}

extern "C" size_t HostSim_RunProgramStop(void) {
    std::vector<hostsim::Registration> taken;
    {
        std::lock_guard lock(programStop().mutex);
        taken.swap(programStop().registrations);
    }
    for (auto it = taken.rbegin(); it != taken.rend(); ++it) it->proc(it->argument);
    return taken.size();
}

extern "C" size_t HostSim_AbortCallsInProgress(void) {
    std::lock_guard lock(aborts().mutex);
    hostsim::runningAbortProcedures = true;
    for (const auto& [thread, registration] : aborts().byThread) registration.proc(registration.argument);
    hostsim::runningAbortProcedures = false;
    return aborts().byThread.size();
}

extern "C" size_t HostSim_AbortRegistrationCount(void) {
    std::lock_guard lock(aborts().mutex);
    return aborts().byThread.size();
}
