/*
 * The four functions that the Host's process provides to libraries it loads.
 * A Host handle is void**: a pointer to the pointer to a relocatable block.
 */
#ifndef HOST_RUNTIME_H
#define HOST_RUNTIME_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t (*HostCleanupProc)(void* argument);
typedef int32_t (*HostDeleteCallback)(void* record); /* at offset 104 of an EDVR record */

enum {
    kHostCleanupRemove = 0,        /* remove the registration with that procedure and argument */
    kHostCleanupOnProgramStop = 2, /* answers non-zero on success, 0 on refusal */
    kHostCleanupOnCallAbort = 6,   /* answers 0 or a Host error; a null procedure ends it */
};

enum {
    kHostNoError = 0,
    kHostOutOfMemory = 2,
    kHostCallAborted = 41,
};

/* Size of the external data value record the Host hands out, and where it keeps the callback. */
enum { kHostEdvrRecordSize = 112, kHostEdvrDeleteCallbackOffset = 104 };

int32_t NumericArrayResize(int32_t typeCode, int32_t dimensions, void*** handle, size_t count);
void** DSNewHandle(size_t size);
int32_t RTSetCleanupProc(HostCleanupProc proc, void* argument, int32_t mode);
int32_t EDVR_CreateReference(uint32_t* reference, void** record);

#ifdef __cplusplus
}
#endif

#endif /* HOST_RUNTIME_H */
