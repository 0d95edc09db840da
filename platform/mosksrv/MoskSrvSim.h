/*
 * Control interface of the simulated device service (libMoskSrv.so.13), for tests. Not part of
 * the service's contract with libQuorvane.
 */
#ifndef MOSK_SRV_SIM_H
#define MOSK_SRV_SIM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Releases every trigger line, forgets injected reports and the call record. */
void MoskSrvSim_Reset(void);

/* The next MoskSrv_device_set32 call changes nothing and reports `code` (merged into *status as
 * any report is). Injections queue in order. */
void MoskSrvSim_ReportNext(int32_t code);

/* The `nth` MoskSrv_device_set32 call from now on, after the queued reports, reports `code`
 * the same way, and with `always` non-zero every later one too; nth 0 clears the plan.
 * MoskSrvSim_PlannedFailures tells how many calls it answered so far. */
void MoskSrvSim_FailFrom(size_t nth, int32_t code, int always);
size_t MoskSrvSim_PlannedFailures(void);

/* 1 when `line` is reserved, with the reserving device written to *device (may be null). */
int MoskSrvSim_IsLineReserved(uint32_t line, uint32_t* device);
size_t MoskSrvSim_ReservedLineCount(void);

/* Calls of MoskSrv_device_set32 since the last reset, and the arguments of the latest one
 * (answers 0 and writes nothing when there was none; any pointer may be null). */
size_t MoskSrvSim_CallCount(void);
int MoskSrvSim_LastCall(uint32_t* device, uint32_t* attribute, uint32_t* value);

#ifdef __cplusplus
}
#endif

#endif /* MOSK_SRV_SIM_H */
