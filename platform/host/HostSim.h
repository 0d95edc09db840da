/*
 * Control interface of the simulated Host runtime (libHostRuntime.so): what a Host does to a
 * library it has loaded (stop the program, abort a call, delete a reference) and ways to make
 * the Host's functions fail. Not part of the Host's contract with libQuorvane.
 *
 * Blocks are sized exactly and move on every resize, so a caller that keeps a stale block
 * pointer or writes past the end is caught by the address sanitizer.
 */
#ifndef HOST_SIM_H
#define HOST_SIM_H

#include <stddef.h>
#include <stdint.h>

#include "HostRuntime.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- handles -------------------------------------------------------------------------- */
/* A new one-dimensional numeric array of `count` elements of `typeCode` (1..8), zero-filled. */
void** HostSim_NewNumericArray(int32_t typeCode, size_t count);
/* A new string block: length at byte 0, characters from byte 4, NUL after them. */
void** HostSim_NewString(const char* characters, size_t length);
/* A new array of string handles (type code 8), one per entry of `strings`. */
void** HostSim_NewStringArray(const char* const* strings, size_t count);
void HostSim_DisposeHandle(void** handle);
/* Disposes an array of string handles and every non-null string handle in it. */
void HostSim_DisposeStringArray(void** handle);
size_t HostSim_LiveHandleCount(void);

/* ---- fault injection ------------------------------------------------------------------ */
/* The next call of `function` ("NumericArrayResize", "EDVR_CreateReference",
 * "RTSetCleanupProc" in mode 6 or 2, "DSNewHandle") does nothing and answers `code`.
 * For DSNewHandle, code 0 gives a null handle and any other code a handle whose block
 * pointer is null. For RTSetCleanupProc in mode 2, code is what the call answers (0: refused).
 * Injections queue in order per function. */
void HostSim_FailNext(const char* function, int32_t code);
/* The `nth` call of `function` from now on (counting the calls that an injection could answer:
 * registrations, not removals, for RTSetCleanupProc) answers `code` as HostSim_FailNext does,
 * and with `always` non-zero every later one too, after the answers queued by HostSim_FailNext;
 * nth 0 clears the plan. HostSim_PlannedFailures tells how many calls it answered so far. */
void HostSim_FailFrom(const char* function, size_t nth, int32_t code, int always);
size_t HostSim_PlannedFailures(const char* function);
/* The next mode-2 registration answers 0 (refused) and registers nothing. */
void HostSim_RefuseNextProgramStopRegistration(void);

/* ---- cleanup procedures --------------------------------------------------------------- */
size_t HostSim_ProgramStopRegistrationCount(void);
int HostSim_IsRegisteredForProgramStop(HostCleanupProc proc, void* argument);
/* Stops the program: removes every mode-2 registration and runs each (newest first).
 * Returns how many ran. */
size_t HostSim_RunProgramStop(void);
/* Aborts every call in progress that registered a mode-6 procedure: runs each procedure once
 * (under the Host's lock, so the registration cannot end meanwhile). Returns how many ran. */
size_t HostSim_AbortCallsInProgress(void);
size_t HostSim_AbortRegistrationCount(void);

/* ---- external data value references --------------------------------------------------- */
size_t HostSim_LiveReferenceCount(void);
/* The record of a live reference, or null. */
void* HostSim_ReferenceRecord(uint32_t reference);
/* Deletes a live reference: calls the callback at offset 104 with the record, then frees the
 * record. Returns the callback's result, or -1 when the reference is unknown. */
int32_t HostSim_DeleteReference(uint32_t reference);

/* ---- inspection ------------------------------------------------------------------------- */
/* How many times `function` was called since the last reset. */
size_t HostSim_CallCount(const char* function);
/* Type code of the most recent NumericArrayResize call, or -1 when none. */
int32_t HostSim_LastResizeTypeCode(void);

/* How many times RTSetCleanupProc was called with `mode` since the last reset. */
size_t HostSim_CleanupCallCount(int32_t mode);
/* The exact size in bytes of the block behind a live handle (0 for a handle whose block pointer
 * is null), or SIZE_MAX when the handle is not live. */
size_t HostSim_BlockSize(void** handle);

/* Forgets registrations, injections and counters. Live handles and references are left as
 * they are (a test disposes of what it made). */
void HostSim_Reset(void);

#ifdef __cplusplus
}
#endif

#endif /* HOST_SIM_H */
