// Closes the library runs without a call from the Host naming them: the program-stop cleanup
// procedure, the deferred close that completes a refused close, and the parent's close with its
// last resource session.
//
// The Host's own Quorvane_Close closes any handle it is given, registered or not. A close the
// library runs on its own is different: it acts only on the session it is meant for, while that
// session is still registered (and, for the two completions, still the record that was marked
// and still marked). Between the moment such a close is decided and the moment it takes the
// registry lock, the Host may have closed the session itself, and the driver may have handed
// the handle to a new session; reaching the driver then would close a handle the library no
// longer holds, or end somebody else's session.
#pragma once

#include <cstdint>

namespace quorvane {

// The Host's program-stop procedure for a session (its argument is the handle): closes the
// session with attribute 1 if it is registered, and does nothing otherwise. Always 0.
int32_t SessionCleanupProc(void* session) noexcept;

// The handle as the Host's pointer-sized cleanup argument.
inline void* cleanupArgument(uint32_t session) noexcept {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(session));
}

// Completes a close that was refused while regions were out, after the retirement that emptied
// a FIFO of the session found it marked: closes again with attribute 1 if the record `serial` is
// still registered under `session` and still marked closePending, taking the mark. Returns
// what that close returns (-61217 when another FIFO is still busy, which marks it again), or 0
// when there is nothing left to do.
int32_t CloseDeferredSession(uint32_t session, uint64_t serial) noexcept;

}  // namespace quorvane
