/*
 * Quorvane: the exported C interface of libQuorvane.so.13.
 *
 * Every function returns a signed 32-bit status unless noted: 0 success, negative error,
 * positive warning. Codes the library produces itself:
 *   -52000 memory or a Host handle could not be obtained
 *   -52003 an internal operation failed (mutex creation, missing or failing Host function,
 *          cleanup registration refused at open)
 *   -52005 invalid argument (null pointer or handle, element type outside 1..8, a count that
 *          does not fit 32 bits)
 *   -52008 a condition variable could not be created
 *   -50405 an acquisition was aborted by the Host; Host result 41
 *   -61217 close, reset or download refused: FIFO regions are outstanding
 *   -61219 a finite time-out ran out while waiting for a region to be handed back
 *   -61499 the session handle carries kQuorvaneSessionRefusedBit
 *   -63195 the session (or a resource session's parent) is not registered here
 * Every other code comes unchanged from the FPGA interface library or the device service.
 *
 * All functions may be called from any thread at any time. None of them unwinds.
 */
#ifndef QUORVANE_H
#define QUORVANE_H

#include <stddef.h>
#include <stdint.h>

#include "QuorvaneVersion.h"

#if defined(__GNUC__)
#define QUORVANE_EXPORT __attribute__((visibility("default")))
#else
#define QUORVANE_EXPORT
#endif

#ifdef __cplusplus
#define QUORVANE_NOEXCEPT noexcept
extern "C" {
#else
#define QUORVANE_NOEXCEPT
#endif

/* A handle with this bit set is refused with -61499 by almost every export. */
#define kQuorvaneSessionRefusedBit 0x2000u
/* OR-ed by the library into handles it passes to register, array and FIFO calls. */
#define kQuorvaneResourceCallBit 0x4000u
/* Bits 12..15, cleared before a handle goes to the device service or to enumeration. */
#define kQuorvaneSessionFlagNibble 0xF000u

/* ---- sessions ------------------------------------------------------------------------- */

/* Opens a session through the FPGA interface library, reserves the IRQ contexts counted by
 * Quorvane_ReserveIrqContext, registers a cleanup procedure with the Host so the session is
 * closed when the Host stops the program, and records the session. */
QUORVANE_EXPORT int32_t Quorvane_Open(const char* bitfile, const char* signature, const char* resource,
                                      uint32_t attribute, uint32_t* session) QUORVANE_NOEXCEPT;
/* Closes a session, and its resource sessions with it. Refused with -61217 while FIFO regions
 * of it (or of one of its resource sessions) are outstanding; the close then completes by
 * itself, with attribute 1, when the last region comes back (a refused close of a parent
 * completes with the close of its last busy resource session).
 *
 * After -61217 the close belongs to the library: do not call Quorvane_Close for that session
 * again, except while you still hold one of its regions (the call is then refused again). A
 * close of a handle that is not registered here is passed to the FPGA interface library
 * unchanged, so a close made after the library has completed it reaches the driver for a
 * handle that is no longer open, or that the driver has since given to another session. The
 * closes the library runs on its own (the completion above, and the cleanup procedure the Host
 * runs when it stops the program) act only on a session that is still registered, so they never
 * close a handle twice.
 *
 * Blocks: the close waits for an acquisition in progress on any FIFO of the session (and of its
 * resource sessions), up to that acquisition's time-out, and holds the library's registry lock
 * meanwhile, so opens, closes and acquisitions on other sessions wait as well. */
QUORVANE_EXPORT int32_t Quorvane_Close(uint32_t session, uint32_t attribute) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_OpenResource(uint32_t session, const char* name, uint32_t attribute,
                                              uint32_t* resourceSession) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Reset(uint32_t session) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Download(uint32_t session) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Run(uint32_t session, uint32_t attribute) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Abort(uint32_t session) QUORVANE_NOEXCEPT;

/* ---- FIFO regions (zero copy) --------------------------------------------------------- */

QUORVANE_EXPORT int32_t Quorvane_StartFifo(uint32_t session, uint32_t fifo) QUORVANE_NOEXCEPT;
/* Lends the Host a region of the FIFO's buffer: elements to read, or room to write. The
 * reference made in *reference points into the FPGA interface library's buffer; deleting it
 * hands the elements back, always in acquisition order whatever order references are deleted
 * in. Acquisitions on one FIFO run one at a time.
 *
 * Time-out in milliseconds: 0 does not wait; 0xFFFFFFFF waits without limit, in slices of
 * 3000 ms between which an abort by the Host (-50405) is noticed. When the FPGA interface
 * library answers -61219 (no room until lent elements come back), the acquisition waits for a
 * region of this FIFO to be handed back and tries again; with a finite time-out it gives up
 * with -61219 when the time-out runs out.
 *
 * Consequences to know:
 *  - With the infinite time-out, a -50400 (the FPGA interface library's own time-out, no data
 *    yet) is retried too, but the library is called again only after a region of this FIFO
 *    has been handed back. With no region of the FIFO out, such an acquisition waits until the
 *    Host aborts it. To wait for data, use a finite time-out and call again.
 *  - While an acquisition is in progress, a Quorvane_Close of its session waits for it (see
 *    Quorvane_Close).
 *  - If the region cannot be recorded after the elements were acquired (-52000 when memory
 *    runs out, or the Host's reference could not be made), the elements stay acquired in the
 *    FPGA interface library: with no region to retire, the library never hands them back, and
 *    what becomes of them (until the FIFO is stopped or the session closed) is the FPGA
 *    interface library's affair. */
QUORVANE_EXPORT int32_t Quorvane_AcquireFifoReadRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                             size_t elementsRequested, uint32_t elementType,
                                                             uint32_t unused, uint32_t timeout,
                                                             size_t* elementsAcquired,
                                                             size_t* elementsRemaining) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_AcquireFifoWriteRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                              size_t elementsRequested, uint32_t elementType,
                                                              uint32_t unused, uint32_t timeout,
                                                              size_t* elementsAcquired,
                                                              size_t* elementsRemaining) QUORVANE_NOEXCEPT;

/* ---- FIFO transfers (copying) and configuration --------------------------------------- */

QUORVANE_EXPORT int32_t Quorvane_StopFifo(uint32_t session, uint32_t fifo) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_ConfigureFifo(uint32_t session, uint32_t fifo, uint32_t depth) QUORVANE_NOEXCEPT;
/* Hands the depth the library chose back in *actualDepth (0 when the library set none), low 32
 * bits stored even when it does not fit (-52005). A null actualDepth is -52005, tested after the
 * refused bit, without calling anything. */
QUORVANE_EXPORT int32_t Quorvane_ConfigureFifo2(uint32_t session, uint32_t fifo, uint32_t requestedDepth,
                                                uint32_t* actualDepth) QUORVANE_NOEXCEPT;
/* FIFO transfers: *elementsRemaining (when not null) gets the low 32 bits of the count left in
 * the FIFO, with -52005 merged into a success or warning when it does not fit; it is 0 when no
 * library call was made. The argument checks below (made after the refused bit) return -52005
 * touching neither the array nor *elementsRemaining. ReadFifoScalar: a null array handle. */
QUORVANE_EXPORT int32_t Quorvane_ReadFifoScalar(uint32_t session, uint32_t fifo, uint32_t count, uint32_t typeCode,
                                                uint32_t unused, uint32_t timeout, void** array,
                                                uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;
/* A null array handle or null block is -52005 without calling anything. */
QUORVANE_EXPORT int32_t Quorvane_WriteFifoScalar(uint32_t session, uint32_t fifo, void** array, uint32_t typeCode,
                                                 uint32_t unused, uint32_t timeout,
                                                 uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;
/* -52005 without resizing or reading: a null array handle, bytesPerElement 0, or a
 * count * bytesPerElement that does not fit 32 bits. */
QUORVANE_EXPORT int32_t Quorvane_ReadFifoComposite(uint32_t session, uint32_t fifo, uint32_t count,
                                                   uint32_t bytesPerElement, uint32_t timeout, void** array,
                                                   uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;
/* -52005 without calling anything: a null array handle or block, or bytesPerElement 0. */
QUORVANE_EXPORT int32_t Quorvane_WriteFifoComposite(uint32_t session, uint32_t fifo, void** array,
                                                    uint32_t bytesPerElement, uint32_t timeout,
                                                    uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;

/* ---- resources ------------------------------------------------------------------------ */

/* Fills the Host's array of strings with the names of the session's resources. After the
 * refusal of kQuorvaneSessionRefusedBit, a null array handle or a handle without a block gives
 * -52005 and nothing is called. A name that the FPGA interface library leaves null without an
 * error counts as a failure of that name: -52005, and no element from that one on is written. */
QUORVANE_EXPORT int32_t Quorvane_GetResources(uint32_t session, void** stringArray) QUORVANE_NOEXCEPT;
/* Hands the names in the Host's array of strings to the FPGA interface library and returns its
 * answer unchanged. A null array handle or block, a null element handle or element block, or a
 * negative string length gives -52005: nothing is passed on and everything is released. */
QUORVANE_EXPORT int32_t Quorvane_AddResources(uint32_t session, void** stringArray, const void* arg3,
                                              const void* arg4) QUORVANE_NOEXCEPT;
/* Returns the index, or 0xFFFFFFFF when the FPGA interface library reported an error. */
QUORVANE_EXPORT uint32_t Quorvane_GetResourceIndex(const char* name) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT void Quorvane_ReleaseResourceIndex(uint32_t index) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_GetResourceName(uint32_t index, const char** name) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_GetPeerToPeerFifoEndpoint(uint32_t session, uint32_t fifo,
                                                           uint32_t* endpoint) QUORVANE_NOEXCEPT;

/* ---- registers and arrays ------------------------------------------------------------- */

QUORVANE_EXPORT int32_t Quorvane_Read16(uint32_t session, uint32_t reg, uint16_t* value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Read32(uint32_t session, uint32_t reg, uint32_t* value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_ReadSgl(uint32_t session, uint32_t reg, float* value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_ReadDbl(uint32_t session, uint32_t reg, double* value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Write16(uint32_t session, uint32_t reg, uint16_t value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Write32(uint32_t session, uint32_t reg, uint32_t value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_WriteSgl(uint32_t session, uint32_t reg, float value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_WriteDbl(uint32_t session, uint32_t reg, double value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_ReadArray32(uint32_t session, uint32_t reg, uint32_t count,
                                             void** array) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_WriteArray32(uint32_t session, uint32_t reg, void** array) QUORVANE_NOEXCEPT;

/* ---- interrupts and trigger lines ----------------------------------------------------- */

/* Raise / lower the number of IRQ contexts that every later Quorvane_Open reserves on its new
 * session. Always 0. Sessions already open are not affected. */
QUORVANE_EXPORT int32_t Quorvane_ReserveIrqContext(void) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_UnreserveIrqContext(void) QUORVANE_NOEXCEPT;
/* Passes the context held at *context on. A null context address is -52005, tested after the
 * refused bit, without calling anything. */
QUORVANE_EXPORT int32_t Quorvane_WaitOnIrqs(uint32_t session, void** context, uint32_t irqs, uint32_t timeout,
                                            uint32_t* irqsAsserted, uint8_t* timedOut) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_AcknowledgeIrqs(uint32_t session, uint32_t irqs) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_ReservePxiTriggerLine(uint32_t session, uint32_t line) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_UnreservePxiTriggerLine(uint32_t session, uint32_t line) QUORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* QUORVANE_H */
