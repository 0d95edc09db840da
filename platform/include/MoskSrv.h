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

/* Writes attribute `attribute` of `device`. The outcome goes to *status under the merge rule:
 * an error already held there stays. The return value repeats what was reported. */
int32_t MoskSrv_device_set32(uint32_t device, uint32_t attribute, uint32_t value, int32_t* status);

#ifdef __cplusplus
}
#endif

#endif /* MOSK_SRV_H */
