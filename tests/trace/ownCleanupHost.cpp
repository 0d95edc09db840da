// A Host whose executable implements RTSetCleanupProc, as a Host application may: its definition
// comes before the forwarding library's, so the procedures the library registers never pass
// through the trace. It runs the one an open registers for program stop, then exits with 0.
#include <utility>
#include <vector>

#include "HostRuntime.h"
#include "Quorvane.h"

std::vector<std::pair<HostCleanupProc, void*>> registrations;

extern "C" int32_t RTSetCleanupProc(HostCleanupProc proc, void* argument, int32_t mode) {
    if (mode == kHostCleanupOnProgramStop) registrations.emplace_back(proc, argument);
    if (mode == kHostCleanupRemove) std::erase(registrations, std::pair{proc, argument});
    return mode == kHostCleanupOnProgramStop ? 1 : 0;
}

int main() {
    uint32_t session = 0;
    if (Quorvane_Open("", "", "RIO0", 0, &session) != 0 || registrations.size() != 1) return 1;
    const auto [proc, argument] = registrations.front();
    proc(argument);
    return 0;
}
