#include "realLibrary.h"

#include <dlfcn.h>
#include <limits.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "traceRecord.h"
#include "tracedCall.h"

namespace quorvane::trace {

namespace {

// What every export answers when the real library is missing.
template <class Function>
struct Unavailable;
template <class Result, class... Arguments>
struct Unavailable<Result (*)(Arguments...) noexcept> {
    static Result answer(Arguments...) noexcept {
        if constexpr (std::is_void_v<Result>) {
            return;
        } else if constexpr (std::is_same_v<Result, uint32_t>) {
            return 0xFFFFFFFFu;  // Quorvane_GetResourceIndex's failure
        } else {
            return kQuorvaneStatusInternalError;
        }
    }
};

// Copied at load, while the process has a single thread: the program may change its environment
// later, from any thread.
char gPath[PATH_MAX + 1];
std::atomic<const void*> gBase{nullptr};

__attribute__((constructor)) void readConfiguration() noexcept {
    const char* path = std::getenv(kRealLibraryVariable);
    if (path != nullptr && std::strlen(path) <= PATH_MAX) std::strcpy(gPath, path);
}

RealLibrary unavailable() noexcept {
    RealLibrary table{};
#define QUORVANE_TRACE_UNAVAILABLE(name) table.name = &Unavailable<decltype(table.name)>::answer;
    QUORVANE_TRACE_EXPORTS(QUORVANE_TRACE_UNAVAILABLE)
#undef QUORVANE_TRACE_UNAVAILABLE
    return table;
}

void reportFailure(const char* why) noexcept {
    char message[PATH_MAX + 512];
    std::snprintf(message, sizeof message,
                  "cannot load the real libQuorvane.so.13 (%s): %s; every export answers -52003",
                  gPath[0] != '\0' ? gPath : "no path given", why);
    std::fprintf(stderr, "quorvane-trace: %s\n", message);
    writeNote(message);
}

// The Host functions the forwarding library wraps reach it only if nothing found earlier in the
// lookup order (the program's executable) defines them, or if that definition passes the call on
// to the next one (dlsym RTLD_NEXT). Compared by the object that defines
// them: within this library, the address of its own exported function is the one the lookup
// finds, whichever that is.
void checkHostFunctionsReachThisLibrary() noexcept {
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&checkHostFunctionsReachThisLibrary), &self) == 0) return;
    for (const char* name : {"RTSetCleanupProc", "EDVR_CreateReference"}) {
        Dl_info found{};
        void* definition = dlsym(RTLD_DEFAULT, name);
        if (definition != nullptr && dladdr(definition, &found) != 0 && found.dli_fbase == self.dli_fbase) continue;
        char note[192];
        std::snprintf(note, sizeof note,
                      "the program's own %s comes before the trace's: what it is given is traced only if it passes "
                      "it on to the next definition",
                      name);
        writeNote(note);
    }
}

RealLibrary load() noexcept {
    if (gPath[0] == '\0') {
        reportFailure("QUORVANE_TRACE_LIBRARY is not set; run the program through quorvane-trace");
        return unavailable();
    }
    void* handle = dlopen(gPath, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        reportFailure(dlerror());
        return unavailable();
    }
    RealLibrary table{};
    bool complete = true;
#define QUORVANE_TRACE_RESOLVE(name)                                                       \
    table.name = reinterpret_cast<decltype(table.name)>(dlsym(handle, "Quorvane_" #name)); \
    complete = complete && table.name != nullptr;
    QUORVANE_TRACE_EXPORTS(QUORVANE_TRACE_RESOLVE)
#undef QUORVANE_TRACE_RESOLVE
    Dl_info where{};
    if (!complete || dladdr(reinterpret_cast<void*>(table.Open), &where) == 0) {
        reportFailure("it lacks exports of libQuorvane.so.13");
        return unavailable();
    }
    gBase.store(where.dli_fbase);
    checkHostFunctionsReachThisLibrary();
    return table;
}

}  // namespace

const RealLibrary& realLibrary() noexcept {
    static const RealLibrary table = load();
    return table;
}

bool isInRealLibrary(const void* address) noexcept {
    const void* base = gBase.load();
    Dl_info where{};
    return base != nullptr && dladdr(address, &where) != 0 && where.dli_fbase == base;
}

}  // namespace quorvane::trace
