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

/* The call log. It keeps the first kBrennSimLogCapacity calls; later calls are counted only. */
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

#ifdef __cplusplus
}
#endif

#endif /* BRENN_SIM_H */
