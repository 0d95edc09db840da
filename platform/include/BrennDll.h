/*
 * The FPGA interface library (libBrenn.so.13): the functions libQuorvane calls.
 * Any library with this SONAME and these symbols can stand behind libQuorvane.
 *
 * Codes with a special meaning to callers: -50400 time-out; -61219 acquisition must wait until
 * acquired elements are released; -63080 answer of the size query of
 * BrennDll_GetSessionIndexes, with the count written.
 */
#ifndef BRENN_DLL_H
#define BRENN_DLL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    kBrennTimeout = -50400,
    kBrennMustReleaseFirst = -61219,
    kBrennSizeQueryAnswer = -63080,
};

int32_t BrennDll_Open(const char* bitfile, const char* signature, const char* resource, uint32_t attribute,
                      uint32_t* session);
int32_t BrennDll_OpenResource(uint32_t session, const char* name, uint32_t attribute, uint32_t* resourceSession);
int32_t BrennDll_Close(uint32_t session, uint32_t attribute);
int32_t BrennDll_ReserveIrqContext(uint32_t session, void** context); /* context may be null */
int32_t BrennDll_Reset(uint32_t session);
int32_t BrennDll_Download(uint32_t session);
int32_t BrennDll_Run(uint32_t session, uint32_t attribute);
int32_t BrennDll_Abort(uint32_t session);

int32_t BrennDll_ReadU16(uint32_t session, uint32_t reg, uint16_t* value);
int32_t BrennDll_ReadU32(uint32_t session, uint32_t reg, uint32_t* value);
int32_t BrennDll_ReadU64(uint32_t session, uint32_t reg, uint64_t* value);
int32_t BrennDll_WriteU16(uint32_t session, uint32_t reg, uint16_t value);
int32_t BrennDll_WriteU32(uint32_t session, uint32_t reg, uint32_t value);
int32_t BrennDll_WriteU64(uint32_t session, uint32_t reg, uint64_t value);
int32_t BrennDll_ReadArrayU32(uint32_t session, uint32_t reg, uint32_t* array, size_t count);
int32_t BrennDll_WriteArrayU32(uint32_t session, uint32_t reg, const uint32_t* array, size_t count);

int32_t BrennDll_WaitOnIrqs(uint32_t session, void* context, uint32_t irqs, uint32_t timeout, uint32_t* irqsAsserted,
                            uint8_t* timedOut);
int32_t BrennDll_AcknowledgeIrqs(uint32_t session, uint32_t irqs);

int32_t BrennDll_ConfigureFifo(uint32_t session, uint32_t fifo, size_t depth);
int32_t BrennDll_ConfigureFifo2(uint32_t session, uint32_t fifo, size_t requestedDepth, size_t* actualDepth);
int32_t BrennDll_StartFifo(uint32_t session, uint32_t fifo);
int32_t BrennDll_StopFifo(uint32_t session, uint32_t fifo);

/* One read, write, acquire-read and acquire-write function per element type. */
#define BRENN_FOR_EACH_ELEMENT_TYPE(X) \
    X(I8, int8_t)                      \
    X(U8, uint8_t)                     \
    X(I16, int16_t)                    \
    X(U16, uint16_t)                   \
    X(I32, int32_t)                    \
    X(U32, uint32_t)                   \
    X(I64, int64_t)                    \
    X(U64, uint64_t)

#define BRENN_DECLARE_FIFO_FUNCTIONS(T, t)                                                                             \
    int32_t BrennDll_ReadFifo##T(uint32_t session, uint32_t fifo, t* data, size_t count, uint32_t timeout,             \
                                 size_t* elementsRemaining);                                                           \
    int32_t BrennDll_WriteFifo##T(uint32_t session, uint32_t fifo, const t* data, size_t count, uint32_t timeout,      \
                                  size_t* elementsRemaining);                                                          \
    int32_t BrennDll_AcquireFifoReadElements##T(uint32_t session, uint32_t fifo, t** elements,                         \
                                                size_t elementsRequested, uint32_t timeout, size_t* elementsAcquired,  \
                                                size_t* elementsRemaining);                                            \
    int32_t BrennDll_AcquireFifoWriteElements##T(uint32_t session, uint32_t fifo, t** elements,                        \
                                                 size_t elementsRequested, uint32_t timeout, size_t* elementsAcquired, \
                                                 size_t* elementsRemaining);
BRENN_FOR_EACH_ELEMENT_TYPE(BRENN_DECLARE_FIFO_FUNCTIONS)
#undef BRENN_DECLARE_FIFO_FUNCTIONS

int32_t BrennDll_ReadFifoComposite(uint32_t session, uint32_t fifo, void* data, uint32_t bytesPerElement, size_t count,
                                   uint32_t timeout, size_t* elementsRemaining);
int32_t BrennDll_WriteFifoComposite(uint32_t session, uint32_t fifo, const void* data, uint32_t bytesPerElement,
                                    size_t count, uint32_t timeout, size_t* elementsRemaining);
int32_t BrennDll_ReleaseFifoElements(uint32_t session, uint32_t fifo, size_t elements);

int32_t BrennDll_GetSessionIndexes(uint32_t session, uint32_t* indexes, size_t capacity, size_t* count);
int32_t BrennDll_GetResourceName(uint32_t index, const char** name);
int32_t BrennDll_AddResources(uint32_t session, const char* const* names, const void* arg3, const void* arg4,
                              size_t count);
int32_t BrennDll_GetResourceIndex(const char* name, uint32_t* index);
int32_t BrennDll_ReleaseResourceIndex(uint32_t index);
int32_t BrennDll_GetPeerToPeerFifoEndpoint(uint32_t session, uint32_t fifo, uint32_t* endpoint);

#ifdef __cplusplus
}
#endif

#endif /* BRENN_DLL_H */
