// A Host program whose executable implements RTSetCleanupProc itself, as a Host application may:
// its definition comes ahead of the forwarding library's in the lookup order, so the
// procedures the library registers never pass through the trace, and the trace must say so.
// Only program-stop registrations are kept; the program stops itself at the end.
#include <cstdio>
#include <utility>
#include <vector>

#include "HostRuntime.h"
#include "Quorvane.h"

namespace {

std::vector<std::pair<HostCleanupProc, void*>> registrations;

}  // namespace

extern "C" int32_t RTSetCleanupProc(HostCleanupProc proc, void* argument, int32_t mode) {
    if (mode == kHostCleanupOnProgramStop) registrations.emplace_back(proc, argument);
    if (mode == kHostCleanupRemove) std::erase(registrations, std::pair{proc, argument});
    return mode == kHostCleanupOnProgramStop ? 1 : 0;
}

int main() {
    uint32_t session = 0;
    if (Quorvane_Open("", "", "RIO0", 0, &session) != 0) return 1;
    const auto stopped = std::move(registrations);
    for (const auto& [proc, argument] : stopped) proc(argument);
    std::printf("cleanup procedures run: %zu\n", stopped.size());
    return 0;
}
