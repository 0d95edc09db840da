/*
 * Control interface of the simulated FPGA target in libBrenn.so.13, for tests and tools.
 * These functions are not part of the FPGA interface library's contract: a real driver lacks
 * them, and libQuorvane never calls them.
 *
 * Scripted answers. A test queues answers per function name ("BrennDll_Open", ...). The next
 * call of that function takes the oldest queued answer:
 *   kBrennSimReplace   the simulated work is skipped; the first `outputCount` scalar
 *                      out-parameters of the function (in argument order, pointers that are
 *                      null are skipped) receive outputs[0..]; `status` is returned.
 *   kBrennSimAfterReal the simulated work runs; if it succeeded (0), `status` is returned
 *                      instead (a way to add a warning to a real result), and the outputs
 *                      overwrite the out-parameters as above.
 * Every call, scripted or not, is logged with its arguments widened to 64 bits (pointers as
 * addresses, in argument order) and its result.
 *
 * Outputs are positional: outputs[i] belongs to the i-th scalar out-parameter of the table
 * below; when that pointer is null, outputs[i] is dropped and outputs[i + 1] still goes to the
 * next one. A mode other than kBrennSimAfterReal counts as kBrennSimReplace; an outputCount
 * above the function's number of scalar out-parameters is cut to it.
 *
 *   BrennDll_Open                           session
 *   BrennDll_OpenResource                   resourceSession
 *   BrennDll_ReserveIrqContext              context (the value becomes the pointer)
 *   BrennDll_ReadU16/ReadU32/ReadU64        value (truncated to the register width)
 *   BrennDll_WaitOnIrqs                     irqsAsserted, timedOut
 *   BrennDll_ConfigureFifo2                 actualDepth
 *   BrennDll_ReadFifoT/WriteFifoT           elementsRemaining
 *   BrennDll_ReadFifoComposite/Write...     elementsRemaining
 *   BrennDll_AcquireFifo{Read,Write}ElementsT  elementsAcquired, elementsRemaining
 *   BrennDll_GetSessionIndexes              count
 *   BrennDll_GetResourceIndex               index
 *   BrennDll_GetPeerToPeerFifoEndpoint      endpoint
 *   every other function                    none (arrays, element pointers and names are
 *                                           never written by a scripted answer)
 *
 * Sessions. Handles are small numbers from 0x10 on, unique until BrennSim_Reset, and never
 * have a bit of 0xF000 set; callers may OR flag bits 12..15 into a handle, which every lookup
 * ignores. A resource session is a session of its own, linked to the session it was opened on;
 * closing that parent leaves its resource sessions open (so a caller that forgets to close one
 * is seen in BrennSim_OpenSessionCount).
 *
 * Thread safety: every function here and every BrennDll_ function may be called from any
 * thread at any time, except BrennSim_Reset, which must not race with calls in progress.
 */
#ifndef BRENN_SIM_H
#define BRENN_SIM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    /* Answer of every function for a session handle the simulated target does not know. */
    kBrennSimInvalidSession = -63100,
    /* An argument the simulated target cannot use (null pointer, unknown FIFO, ...). */
    kBrennSimInvalidArgument = -63101,
    /* The simulated target could not do its own bookkeeping (memory ran out). */
    kBrennSimInternalFailure = -63102,
};

enum { kBrennSimReplace = 0, kBrennSimAfterReal = 1 };

typedef struct BrennSimAnswer {
    int32_t status;
    uint32_t mode;        /* kBrennSimReplace or kBrennSimAfterReal */
    uint32_t outputCount; /* how many entries of outputs are written */
    uint64_t outputs[4];
} BrennSimAnswer;

enum { kBrennSimMaxArgs = 8 };

typedef struct BrennSimCall {
    char function[48];
    uint32_t argCount;
    uint64_t args[kBrennSimMaxArgs];
    int32_t result;
} BrennSimCall;

/* Queues an answer for the next call of `function`. */
void BrennSim_Script(const char* function, const BrennSimAnswer* answer);
/* Shorthand: the next call of `function` returns `status` and does nothing else. */
void BrennSim_ScriptStatus(const char* function, int32_t status);

/* Number of answers queued for `function` and not yet taken; for every function when null. */
size_t BrennSim_ScriptsPending(const char* function);

/* The call log. It keeps the first kBrennSimLogCapacity calls; later calls are counted only.
 * It is enabled on a fresh target; while it is disabled calls are neither kept nor counted. */
enum { kBrennSimLogCapacity = 1 << 16 };
void BrennSim_EnableLog(int enabled);
size_t BrennSim_CallCount(void);
int BrennSim_GetCall(size_t index, BrennSimCall* call); /* 1 when the entry exists */
size_t BrennSim_CountCalls(const char* function);

/* Forgets every session, script, log entry and counter: a fresh target. */
void BrennSim_Reset(void);
/* Number of sessions (including resource sessions) open right now. */
uint32_t BrennSim_OpenSessionCount(void);
/* 1 when `session` (without flag bits) is open. */
int BrennSim_IsSessionOpen(uint32_t session);
/* The session a resource session was opened on (without flag bits); 0 for a session opened by
 * BrennDll_Open or one that is not open. */
uint32_t BrennSim_ParentSession(uint32_t session);
/* Number of BrennDll_ReserveIrqContext calls that succeeded on `session`; 0 if it is not open. */
uint32_t BrennSim_IrqContextsReserved(uint32_t session);

/* Register space of a session, as the FPGA logic sees it: `size` bytes from byte address
 * `reg` on, little-endian, the same bytes that BrennDll_Read and Write functions reach (a
 * BrennDll_WriteU32 at 8 fills bytes 8..11). Bytes never written read as 0. Neither call is
 * logged. Both answer 1, or 0 when the session is not open or `bytes` is null. */
int BrennSim_PeekRegisters(uint32_t session, uint32_t reg, void* bytes, size_t size);
int BrennSim_PokeRegisters(uint32_t session, uint32_t reg, const void* bytes, size_t size);

#ifdef __cplusplus
}
#endif

#endif /* BRENN_SIM_H */
