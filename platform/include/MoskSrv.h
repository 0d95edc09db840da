/*
 * The device service (libMoskSrv.so.13).
 */
#ifndef MOSK_SRV_H
#define MOSK_SRV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    kMoskSrvReservePxiTriggerLine = 31,
    kMoskSrvReleasePxiTriggerLine = 32,
};

/* ---- stand-in codes -----------------------------------------------------------------------
 * Reported by the project's stand-in for the device service only; the real service has codes of
 * its own. Tests compare against these names, never against the numbers. */
enum {
    kMoskSrvStandInLineAlreadyReserved = -63150, /* attribute 31: the line is reserved already */
    kMoskSrvStandInLineNotReserved = -63151,     /* attribute 32: the device holds no such line */
    kMoskSrvStandInUnknownAttribute = -63152,    /* an attribute other than 31 and 32 */
    kMoskSrvStandInOutOfMemory = -63153,         /* the reservation could not be recorded */
};

/* Writes attribute `attribute` of `device`. The outcome goes to *status under the merge rule:
 * an error already held there stays. The return value repeats what was reported. */
int32_t MoskSrv_device_set32(uint32_t device, uint32_t attribute, uint32_t value, int32_t* status);

#ifdef __cplusplus
}
#endif

#endif /* MOSK_SRV_H */
