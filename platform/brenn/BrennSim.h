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
 * ignores. BrennSim_ReuseHandles(1) makes every open hand out the lowest handle that is not
 * open, as real drivers do: a close that reaches the target for a handle its caller no longer
 * holds then ends somebody else's session. A resource session is a session of its own, linked
 * to the session it was opened on; closing that parent leaves its resource sessions open (so a
 * caller that forgets to close one is seen in BrennSim_OpenSessionCount).
 *
 * FIFOs. A FIFO that the session's target declares (see "target descriptions" below) has the
 * declared element type, direction, depth, rate and pattern from the start; a call with another
 * element type (or, for composite functions, another size) or direction answers
 * kBrennSimInvalidArgument. A FIFO the target does not declare (allowed on the default target)
 * exists from its first use. Its element size is the size of the type of the first function
 * that moved data through it (composite functions: bytesPerElement); a call with another size
 * answers kBrennSimInvalidArgument. Its direction is fixed by the first read or write: reading
 * makes it target-to-host, writing host-to-target, and the other direction is refused the same
 * way. Either kind is forgotten when the session closes.
 * Depth: kBrennSimDefaultFifoDepth elements until BrennDll_ConfigureFifo/ConfigureFifo2 set
 * another (at most kBrennSimMaxFifoDepth and 64 MiB; 0 is refused), which is possible only
 * while no element is lent out (else kBrennMustReleaseFirst).
 *   The FPGA side follows a counter pattern: element i of a FIFO (counted from its creation)
 * holds the little-endian bytes of start + i * step, truncated to the element size (zero beyond
 * 8 bytes); start 0 and step 1 unless the description says otherwise. While it runs (the
 * default) it keeps a target-to-host FIFO full and drains a host-to-target FIFO at once (or at
 * the declared rate), counting every element that breaks the pattern.
 *   Copying transfers (ReadFifoT/WriteFifoT/Composite) wait up to `timeout` milliseconds
 * (0: no wait, 0xFFFFFFFF: no limit) until the whole transfer fits, and answer kBrennTimeout
 * when it runs out, having moved nothing; a transfer longer than the depth moves in pieces of
 * the depth, and a time-out keeps the pieces already moved. They answer kBrennMustReleaseFirst
 * while elements of the FIFO are lent out, since they would overtake them. elementsRemaining
 * is what is left to read, or the room left to write, after the call.
 *   Acquisitions lend one contiguous piece of the ring: the requested count, or less when the
 * end of the buffer comes first. kBrennMustReleaseFirst (at once) when the piece could not fit
 * until lent elements come back; otherwise they wait for data or room like the transfers.
 * BrennDll_ReleaseFifoElements(n) hands back the oldest lent region, n being its count. Any
 * other n up to all that is lent hands back n elements from the front and counts an
 * out-of-order release; n above all that is lent changes nothing, counts an excess release and
 * answers kBrennSimInvalidArgument. A released write region is drained and checked.
 *
 * Interrupts. The target description says which register writes and which FIFOs raise which
 * IRQs. On the default target a write of value v to register kBrennSimIrqRegister asserts the
 * IRQ bits v of that session (the value is also stored like any other register); array writes
 * raise nothing. BrennSim_RaiseIrqs asserts bits without a logged call. Bits stay asserted until
 * BrennDll_AcknowledgeIrqs clears them. BrennDll_WaitOnIrqs waits up to its time-out for any
 * requested bit and reports the requested bits that are asserted, or timedOut 1.
 * Closing a session wakes its blocked callers, who answer kBrennSimInvalidSession.
 *
 * Injected faults. A target description may tell the target to misbehave on purpose (the
 * `fault`, `stall` and `drop irq` statements of TargetDescription.md): a function answers a
 * chosen status instead of working, a FIFO's FPGA side stands still for a while, an interrupt
 * does not fire. Each session counts for itself. A fault acts after a scripted answer had its
 * chance (a call a script replaces is not counted) and before the simulated work; the call is
 * logged with the status it answered. BrennSim_FeedFifo and BrennSim_DrainFifo move elements
 * during a stall too, and BrennSim_RaiseIrqs raises are counted and dropped like any other.
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
/* The `nth` BrennDll_ call from now on that no script answers (any function) answers `status`
 * without doing anything, and with `always` non-zero every later one too; nth 0 clears the
 * plan. BrennSim_PlannedFailures tells how many calls it answered so far. */
void BrennSim_FailFrom(size_t nth, int32_t status, int always);
size_t BrennSim_PlannedFailures(void);

/* Holds, for tests that need a call to stand still at a known point. The next call of
 * `function` waits, before it takes a scripted answer or does any work, until
 * BrennSim_Release(function) lets every call of it that waits go on. BrennSim_HeldCalls tells
 * how many wait right now. BrennSim_Reset releases them all. */
void BrennSim_HoldNext(const char* function);
size_t BrennSim_HeldCalls(const char* function);
void BrennSim_Release(const char* function);

/* The call log. It keeps the first kBrennSimLogCapacity calls; later calls are counted only.
 * It is enabled on a fresh target; while it is disabled calls are neither kept nor counted. */
enum { kBrennSimLogCapacity = 1 << 16 };
void BrennSim_EnableLog(int enabled);
size_t BrennSim_CallCount(void);
int BrennSim_GetCall(size_t index, BrennSimCall* call); /* 1 when the entry exists */
size_t BrennSim_CountCalls(const char* function);

/* Forgets every session, script, log entry and counter: a fresh target. */
void BrennSim_Reset(void);
/* Handle reuse (see "Sessions" above): off on a fresh target. */
void BrennSim_ReuseHandles(int enabled);

/* Counts since the last reset, of the simulated work (scripted answers are not counted). */
typedef struct BrennSimSessionStats {
    uint64_t opened;        /* sessions opened by BrennDll_Open and BrennDll_OpenResource */
    uint64_t closed;        /* BrennDll_Close calls that closed an open session */
    uint64_t closesNotOpen; /* BrennDll_Close calls for a handle that was not open */
} BrennSimSessionStats;
void BrennSim_GetSessionStats(BrennSimSessionStats* stats);

/* Number of sessions (including resource sessions) open right now. */
uint32_t BrennSim_OpenSessionCount(void);
/* 1 when `session` (without flag bits) is open. */
int BrennSim_IsSessionOpen(uint32_t session);
/* The session a resource session was opened on (without flag bits); 0 for a session opened by
 * BrennDll_Open or one that is not open. */
uint32_t BrennSim_ParentSession(uint32_t session);
/* Number of BrennDll_ReserveIrqContext calls that succeeded on `session`; 0 if it is not open. */
uint32_t BrennSim_IrqContextsReserved(uint32_t session);

enum {
    kBrennSimDefaultFifoDepth = 4096,
    kBrennSimMaxFifoDepth = 1 << 20,
    kBrennSimIrqRegister = 0x100,
};

typedef struct BrennSimFifoStats {
    uint64_t elementsAcquired;    /* lent by acquisitions */
    uint64_t elementsReleased;    /* handed back by releases */
    uint64_t releaseCalls;        /* BrennDll_ReleaseFifoElements calls of more than 0 elements */
    uint64_t outOfOrderReleases;  /* releases whose count was not that of the oldest region */
    uint64_t excessReleases;      /* releases of more elements than were lent */
    uint64_t patternErrors;       /* elements written by the host that broke the pattern */
    uint64_t elementsTransferred; /* moved by copying reads and writes */
} BrennSimFifoStats;

/* Stops (0) or restarts the FPGA side of a FIFO. Stopped, a target-to-host FIFO runs empty and
 * a host-to-target FIFO runs full. May be called before the FIFO's first use. Answers 1, or 0
 * when the session is not open. */
int BrennSim_SetFifoFpgaRunning(uint32_t session, uint32_t fifo, int running);
/* The FPGA side produces (into a target-to-host FIFO) or drains (from a host-to-target FIFO)
 * up to `count` elements now, whether it runs or not. Answer: how many it moved (0 for a FIFO
 * not used yet or of the other direction). */
size_t BrennSim_FeedFifo(uint32_t session, uint32_t fifo, size_t count);
size_t BrennSim_DrainFifo(uint32_t session, uint32_t fifo, size_t count);
/* Counters of one FIFO: 1, or 0 when it does not exist (stats zeroed). */
int BrennSim_GetFifoStats(uint32_t session, uint32_t fifo, BrennSimFifoStats* stats);
/* The same counters summed over every FIFO since the last reset, closed sessions included;
 * releases that found no FIFO count as excess releases here. */
void BrennSim_GetTotalFifoStats(BrennSimFifoStats* stats);
/* Asserts IRQ bits of a session: 1, or 0 when it is not open. */
int BrennSim_RaiseIrqs(uint32_t session, uint32_t bits);

/* Register space of a session, as the FPGA logic sees it: `size` bytes from byte address
 * `reg` on, little-endian, the same bytes that BrennDll_Read and Write functions reach (a
 * BrennDll_WriteU32 at 8 fills bytes 8..11). Bytes never written read as 0. Neither call is
 * logged. Both answer 1, or 0 when the session is not open or `bytes` is null. */
int BrennSim_PeekRegisters(uint32_t session, uint32_t reg, void* bytes, size_t size);
int BrennSim_PokeRegisters(uint32_t session, uint32_t reg, const void* bytes, size_t size);

/* ---- target descriptions --------------------------------------------------------------
 * BrennDll_Open loads the target description that its bitfile argument names (the format is
 * documented in platform/brenn/TargetDescription.md). A bitfile that is null, empty or names
 * no file opens the built-in default target. A file that is not a description, or a
 * description with an error, makes the open fail with kBrennSimBadTargetDescription, and one
 * line on standard error says why. */
enum { kBrennSimBadTargetDescription = -63103 };

enum { kBrennSimToHost = 1, kBrennSimToTarget = 2 };

/* A FIFO the target declares. Element type codes are those of the Host's numeric types (1 I8,
 * 2 I16, 3 I32, 4 I64, 5 U8, 6 U16, 7 U32, 8 U64). The FPGA side's pattern: element i holds
 * the little-endian bytes of patternStart + i * patternStep (modulo 2^64), cut to the element
 * size. rate: elements per second the FPGA side moves at most; 0 when it keeps up with any
 * host. */
typedef struct BrennSimFifoInfo {
    uint32_t fifo;
    uint32_t direction;   /* kBrennSimToHost or kBrennSimToTarget */
    uint32_t elementType; /* 1..8 */
    uint32_t elementBytes;
    uint64_t depth;
    uint64_t rate;
    uint64_t patternStart;
    uint64_t patternStep;
    char name[64];
} BrennSimFifoInfo;

/* The FIFOs that the target of `session` declares, in the order of its description: fills up
 * to `capacity` entries of `infos` (which may be null when capacity is 0) and answers how many
 * it declares; 0 when the session is not open. */
size_t BrennSim_DescribeFifos(uint32_t session, BrennSimFifoInfo* infos, size_t capacity);
/* The name of the target of `session` into `name` (cut to capacity, always terminated): 1, or
 * 0 when the session is not open. */
int BrennSim_TargetName(uint32_t session, char* name, size_t capacity);
/* 1 when the target of `session` makes FIFOs and registers it does not declare on first use
 * (the default target does), 0 when it refuses them or the session is not open. */
int BrennSim_AllowsUndeclared(uint32_t session);

/* A fault, stall or drop statement of a session's target, and what it did on that session. */
typedef struct BrennSimFaultInfo {
    uint32_t line;       /* its line in the description */
    int32_t status;      /* what a fault statement answers; 0 for stall and drop */
    uint64_t acted;      /* calls it answered, stalls it began or assertions it dropped, on this session */
    char function[48];   /* the function a fault statement names; empty for stall and drop */
    char statement[128]; /* the statement without its comment, words one blank apart (cut, terminated) */
} BrennSimFaultInfo;

/* The fault, stall and drop statements of the target of `session`, in the order of its
 * description: fills up to `capacity` entries of `infos` (which may be null when capacity is 0)
 * and answers how many there are; 0 when the session is not open. */
size_t BrennSim_DescribeFaults(uint32_t session, BrennSimFaultInfo* infos, size_t capacity);

#ifdef __cplusplus
}
#endif

#endif /* BRENN_SIM_H */
