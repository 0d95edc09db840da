// The real libQuorvane.so.13, which the forwarding library loads by the absolute path that
// quorvane-trace found (QUORVANE_TRACE_LIBRARY) and forwards every call to.
//
// It is loaded at the first call of an export, not when the forwarding library is: the
// forwarding library is preloaded into every program the traced one starts too, and most of
// those never use libQuorvane (nor provide the Host functions it needs). It is loaded with
// RTLD_LOCAL, so that the forwarding library's definitions stay the ones every lookup finds: the
// program's, and the real library's own calls to its exports and to the Host's RTSetCleanupProc
// and EDVR_CreateReference.
#pragma once

#include "Quorvane.h"
#include "exportList.h"

namespace quorvane::trace {

struct RealLibrary {
#define QUORVANE_TRACE_POINTER(name) decltype(&::Quorvane_##name) name;
    QUORVANE_TRACE_EXPORTS(QUORVANE_TRACE_POINTER)
#undef QUORVANE_TRACE_POINTER
};

// The real library's functions, loaded at the first use. When it cannot be loaded, every one
// answers -52003 (Quorvane_GetResourceIndex 0xFFFFFFFF), and standard error and the trace say why.
const RealLibrary& realLibrary() noexcept;

// True for an address inside the real library once it is loaded: the procedures it hands the
// Host are told from anybody else's by this.
bool isInRealLibrary(const void* address) noexcept;

}  // namespace quorvane::trace
