#include "fuzzSession.h"

#include "BrennSim.h"
#include "HostSim.h"
#include "quarks/memory.h"

namespace quorvane::fuzzing {

FuzzSession::FuzzSession() {
    BrennSim_EnableLog(0);  // the log would grow with every input
    libraryBlocks_ = heap::liveBlocks();
    hostHandles_ = HostSim_LiveHandleCount();
    require(Quorvane_Open("", "", "RIO0", 0, &handle_) == 0, "the default target opens");
}

FuzzSession::~FuzzSession() {
    require(Quorvane_Close(handle_, 0) == 0, "the session closes");
    require(BrennSim_OpenSessionCount() == 0, "no session is left open on the target");
    require(HostSim_LiveHandleCount() == hostHandles_, "every Host handle made for the input is disposed of");
    require(HostSim_LiveReferenceCount() == 0, "no Host reference is left");
    require(heap::liveBlocks() == libraryBlocks_, "the library gave back every block it took");
}

}  // namespace quorvane::fuzzing
