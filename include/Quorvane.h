/*
 * Quorvane: the exported C interface of libQuorvane.so.13.
 *
 * A Host application loads the library into its own process to reach FPGA targets through the
 * FPGA interface library (libBrenn.so.13) and the device service (libMoskSrv.so.13). Most calls
 * check the session handle and forward to the FPGA interface library's function of the same
 * purpose; the library adds what the Host needs on top: a registry of the sessions opened here,
 * FIFO regions lent to the Host and handed back in order, and Host arrays sized to the data.
 * This header is valid C89, C++98 and later.
 *
 * Rules every call follows:
 *
 * Status. Every export returns a signed 32-bit status (0 success, negative error, positive
 *   warning), except Quorvane_GetResourceIndex and Quorvane_ReleaseResourceIndex. The codes the
 *   library produces itself are in QuorvaneStatus.h with their meanings (the quorvane-status
 *   program prints them); every other code comes unchanged from the FPGA interface library or
 *   the device service. Where a call meets several results, the first error wins, then the
 *   first warning.
 *
 * Sessions. Handles are the FPGA interface library's. An export that takes one first refuses
 *   it with -61499 when kQuorvaneSessionRefusedBit is set, unless its comment says otherwise.
 *   The library knows the sessions opened through Quorvane_Open and Quorvane_OpenResource;
 *   other handles are passed on, except where -63195 is documented.
 *
 * Threads. Any thread may call any export at any time; the library has no threads of its own.
 *   The Host runs the library's procedures (a session's cleanup at program stop, the abort of
 *   an acquisition, the deletion of a region's reference) on threads of its choosing. Opens,
 *   closes, FIFO starts, region acquisitions, resets, downloads and resource enumerations share
 *   the library's session registry: they wait while an open or a close updates it, and a close
 *   holds it while it waits for the acquisitions in progress on its session. The other exports
 *   take no lock of the library; they block only where the FPGA interface library does.
 *
 * Memory. The library never frees Host memory and keeps no Host handle once a call returns. An
 *   array is a Host handle (void**: a pointer to the pointer to a block holding an int32 count
 *   and then the elements, from byte 8 for 8-byte elements, from byte 4 for others). Reads
 *   resize the Host's array with the Host's NumericArrayResize; string handles stored into an
 *   array become the Host's. A Host function's failure becomes a status: result 2 is -52000, 41
 *   is -50405, any other -52003. A region's elements belong to the FPGA interface library and
 *   are lent to the Host until it deletes the region's reference. Pointers that receive results
 *   must be valid, except where a null is documented as checked (-52005); other null pointers
 *   go to the FPGA interface library, which decides.
 *
 * Time-outs are in milliseconds: 0 does not wait, 0xFFFFFFFF waits without limit. The region
 *   acquisitions apply them themselves; every other time-out goes unchanged to the FPGA
 *   interface library.
 *
 * Nothing unwinds out of an export; C++11 and later callers see the declarations noexcept.
 */
#ifndef QUORVANE_H
#define QUORVANE_H

#include <stddef.h>
#include <stdint.h>

#include "QuorvaneStatus.h"
#include "QuorvaneVersion.h"

#if defined(__GNUC__)
#define QUORVANE_EXPORT __attribute__((visibility("default")))
#else
#define QUORVANE_EXPORT
#endif

#if defined(__cplusplus) && __cplusplus >= 201103L
#define QUORVANE_NOEXCEPT noexcept
#else
#define QUORVANE_NOEXCEPT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A handle with this bit set is refused with -61499 by almost every export. */
#define kQuorvaneSessionRefusedBit 0x2000u
/* OR-ed by the library into handles it passes to register, array and FIFO calls. */
#define kQuorvaneResourceCallBit 0x4000u
/* Bits 12..15, cleared before a handle goes to the device service or to enumeration. */
#define kQuorvaneSessionFlagNibble 0xF000u

/* The Host's numeric type codes: the element type of the FIFO exports. Codes 0 and above 8
 * are refused with -52005. Elements of 8 bytes start at byte 8 of a Host array's block. */
typedef enum QuorvaneElementType {
    kQuorvaneElementI8 = 1,  /* int8_t */
    kQuorvaneElementI16 = 2, /* int16_t */
    kQuorvaneElementI32 = 3, /* int32_t */
    kQuorvaneElementI64 = 4, /* int64_t */
    kQuorvaneElementU8 = 5,  /* uint8_t; also the bytes of a composite FIFO's array */
    kQuorvaneElementU16 = 6, /* uint16_t */
    kQuorvaneElementU32 = 7, /* uint32_t */
    kQuorvaneElementU64 = 8  /* uint64_t */
} QuorvaneElementType;

/* ---- sessions ------------------------------------------------------------------------- */

/* Opens a session. bitfile, signature, resource and attribute go unchanged to the FPGA interface
 * library's open, which writes the new handle into *session (not checked). The session then
 * reserves the IRQ contexts counted by Quorvane_ReserveIrqContext, is recorded, and gets a
 * cleanup procedure with the Host that closes it (attribute 1) when the Host stops the program.
 * Returns the open's error, nothing being open; a later failure (a reserve's error, -52000,
 * -52003 when the Host refuses the cleanup) after closing the session again; else 0 or the
 * open's warning. Should that close fail as well, the session stays open on the target and
 * *session keeps its handle: only the Host can close it now, with Quorvane_Close. If the
 * library could not create its registry lock at load (-52003, -52008), or its registry once ran
 * out of memory (-52000), every open fails so and opens nothing. */
QUORVANE_EXPORT int32_t Quorvane_Open(const char* bitfile, const char* signature, const char* resource,
                                      uint32_t attribute, uint32_t* session) QUORVANE_NOEXCEPT;
/* Closes a session, and its resource sessions with it (attribute 1); the attribute goes
 * unchanged to the FPGA interface library, and the Host's cleanup procedure for the session is
 * removed. Refused with -61217 while FIFO regions of it (or of one of its resource sessions) are
 * outstanding; the close then completes by itself, with attribute 1, when the last region comes
 * back (a refused close of a parent completes with the close of its last busy resource session,
 * with that close's attribute). Returns the FPGA interface library's answer for the handle, merged
 * with its answer for the parent when that is closed along (the rule above, this handle first).
 *
 * After -61217 the close belongs to the library: do not call Quorvane_Close for that session
 * again, except while you still hold one of its regions (the call is then refused again). The
 * same holds for the resource sessions of a session whose close was called, refused or not:
 * they are closed with it, so do not close one after, or on another thread while, its parent's
 * close is called. A
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
/* Opens the resource `name` as a resource session on `session`, its parent, through the FPGA
 * interface library (name and attribute unchanged), writes its handle into *resourceSession and
 * ties it to the parent: it is closed with the parent, whose close is deferred while it has
 * regions out. It gets no cleanup procedure of its own. A null resourceSession is -52005, nothing
 * called. A parent not opened here (-63195) or itself a resource session (-52005) is found
 * after the open, and the new session is closed again. Else 0 or the open's warning. */
QUORVANE_EXPORT int32_t Quorvane_OpenResource(uint32_t session, const char* name, uint32_t attribute,
                                              uint32_t* resourceSession) QUORVANE_NOEXCEPT;
/* Resets the session's FPGA logic through the FPGA interface library. Refused with -61217,
 * nothing called, while a FIFO of this session has regions lent out (those of its resource
 * sessions do not count). Check and reset are not one step: an acquisition whose region is not
 * recorded yet is not seen. */
QUORVANE_EXPORT int32_t Quorvane_Reset(uint32_t session) QUORVANE_NOEXCEPT;
/* Downloads the session's FPGA logic; refused like Quorvane_Reset. */
QUORVANE_EXPORT int32_t Quorvane_Download(uint32_t session) QUORVANE_NOEXCEPT;
/* Runs the session's FPGA logic; the attribute goes unchanged to the FPGA interface library. */
QUORVANE_EXPORT int32_t Quorvane_Run(uint32_t session, uint32_t attribute) QUORVANE_NOEXCEPT;
/* Aborts the session's FPGA logic through the FPGA interface library. */
QUORVANE_EXPORT int32_t Quorvane_Abort(uint32_t session) QUORVANE_NOEXCEPT;

/* ---- FIFO regions (zero copy) --------------------------------------------------------- */

/* Starts a FIFO of a session opened here, after preparing the library's record of the FIFO's
 * regions (an acquisition prepares it too). -63195, nothing started, for a session not opened
 * here. Starting a started FIFO calls the FPGA interface library again. */
QUORVANE_EXPORT int32_t Quorvane_StartFifo(uint32_t session, uint32_t fifo) QUORVANE_NOEXCEPT;
/* Lends the Host a region of the FIFO's buffer: elements to read, or room to write. The
 * reference made in *reference points into the FPGA interface library's buffer; deleting it
 * hands the elements back, always in acquisition order whatever order references are deleted
 * in. Acquisitions on one FIFO run one at a time.
 *
 * Arguments: *reference receives the reference, and 0 whenever no region is lent (a null
 * reference is -52005). elementsRequested 0 still calls the FPGA interface library but lends
 * nothing. elementType is a QuorvaneElementType (else -52005, nothing called); `unused` is
 * ignored. *elementsAcquired (not null, else -52005) and *elementsRemaining are written by the
 * FPGA interface library only. The reference's record holds the element address, the count
 * acquired and the element size. -63195 for a session not opened here. A warning of the FPGA
 * interface library still lends the region.
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
 *  - A region kept by the Host holds back every region acquired after it: they are handed back
 *    only once it is, so the FIFO may run out of room (-61219) meanwhile.
 *  - Deleting a reference hands regions back on the deleting thread, and there also completes a
 *    close of the session that was refused while regions were out.
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
/* As Quorvane_AcquireFifoReadRegionScalar, lending room to write: the Host fills the region,
 * and deleting the reference hands the elements to the FPGA interface library, in order. */
QUORVANE_EXPORT int32_t Quorvane_AcquireFifoWriteRegionScalar(uint32_t session, uint32_t fifo, uint32_t* reference,
                                                              size_t elementsRequested, uint32_t elementType,
                                                              uint32_t unused, uint32_t timeout,
                                                              size_t* elementsAcquired,
                                                              size_t* elementsRemaining) QUORVANE_NOEXCEPT;

/* ---- FIFO transfers (copying) and configuration --------------------------------------- */

/* Stops a FIFO through the FPGA interface library. Regions still lent stay recorded and are
 * handed back when their references are deleted. */
QUORVANE_EXPORT int32_t Quorvane_StopFifo(uint32_t session, uint32_t fifo) QUORVANE_NOEXCEPT;
/* Sets the host-side depth of a FIFO, in elements, through the FPGA interface library. */
QUORVANE_EXPORT int32_t Quorvane_ConfigureFifo(uint32_t session, uint32_t fifo, uint32_t depth) QUORVANE_NOEXCEPT;
/* As Quorvane_ConfigureFifo, and hands the depth the library chose back in *actualDepth (0 when
 * the library set none), low 32 bits stored even when it does not fit (-52005). A null
 * actualDepth is -52005, tested after the refused bit, without calling anything. */
QUORVANE_EXPORT int32_t Quorvane_ConfigureFifo2(uint32_t session, uint32_t fifo, uint32_t requestedDepth,
                                                uint32_t* actualDepth) QUORVANE_NOEXCEPT;
/* Copying transfers between a Host array and a FIFO. The time-out goes to the FPGA interface
 * library; `unused` is ignored. *elementsRemaining (when not null) gets the low 32 bits of the
 * count left in the FIFO, with -52005 merged into a success or warning when it does not fit; it
 * is 0 when no library call was made. The null checks below (made after the refused bit) return
 * -52005 touching neither the array nor *elementsRemaining.
 *
 * ReadFifoScalar: reads `count` elements of typeCode (a QuorvaneElementType) into the array,
 * first resized to `count` elements with typeCode as given; a typeCode outside 1..8 is then
 * -52005. The array is left with `count` elements after a success or warning, 0 after an
 * error. A null array handle is -52005. */
QUORVANE_EXPORT int32_t Quorvane_ReadFifoScalar(uint32_t session, uint32_t fifo, uint32_t count, uint32_t typeCode,
                                                uint32_t unused, uint32_t timeout, void** array,
                                                uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;
/* Writes every element of the array (its own count) to the FIFO; the array is not changed. A
 * null array handle or null block is -52005, nothing called. A typeCode outside 1..8 is -52005,
 * nothing written. */
QUORVANE_EXPORT int32_t Quorvane_WriteFifoScalar(uint32_t session, uint32_t fifo, void** array, uint32_t typeCode,
                                                 uint32_t unused, uint32_t timeout,
                                                 uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;
/* Reads `count` records of bytesPerElement bytes into a byte array (kQuorvaneElementU8) first
 * resized to count * bytesPerElement bytes, left with that size after a success or warning and
 * with 0 after an error. A failed resize is returned at once, the array as the Host left it.
 * -52005 without resizing or reading, and as a null check: a null array handle, or a count *
 * bytesPerElement that does not fit 32 bits. Records of 0 bytes make an empty array; the FPGA interface library
 * still gets the read and judges it. */
QUORVANE_EXPORT int32_t Quorvane_ReadFifoComposite(uint32_t session, uint32_t fifo, uint32_t count,
                                                   uint32_t bytesPerElement, uint32_t timeout, void** array,
                                                   uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;
/* Writes the byte array as records of bytesPerElement bytes; trailing bytes that make no whole
 * record are not written, and the array is not changed. -52005 without calling anything: a null
 * array handle or block, or bytesPerElement 0. */
QUORVANE_EXPORT int32_t Quorvane_WriteFifoComposite(uint32_t session, uint32_t fifo, void** array,
                                                    uint32_t bytesPerElement, uint32_t timeout,
                                                    uint32_t* elementsRemaining) QUORVANE_NOEXCEPT;

/* ---- resources ------------------------------------------------------------------------ */

/* Fills the Host's array of strings with the names of the session's resources, one new string
 * handle per resource, in the FPGA interface library's order. Any handle is asked about, with
 * bits 12..15 cleared. After the refusal of kQuorvaneSessionRefusedBit, a null array handle or
 * a handle without a block gives -52005 and nothing is called. Unless the FPGA interface
 * library answers its size query with -63080, its answer is returned and the array is left as
 * it was (with 0, the old contents stay). A name that the FPGA interface library leaves null
 * without an error counts as a failure of that name: -52005. After an error on a name, the
 * array keeps its size and no element from that one on is written. Holds the registry lock
 * (shared) throughout, so it waits for a close in progress. */
QUORVANE_EXPORT int32_t Quorvane_GetResources(uint32_t session, void** stringArray) QUORVANE_NOEXCEPT;
/* Hands the names in the Host's array of strings to the FPGA interface library and returns its
 * answer unchanged. The handle goes on unchanged, refused bit or not; arg3 and arg4 too. The
 * names are copied, each with a NUL after it, for the length of the call only. A null array
 * handle or block, a negative dimension size, a null element handle or element block, or a
 * negative string length gives -52005: nothing is passed on and everything is released. */
QUORVANE_EXPORT int32_t Quorvane_AddResources(uint32_t session, void** stringArray, const void* arg3,
                                              const void* arg4) QUORVANE_NOEXCEPT;
/* Returns the index the FPGA interface library gives the resource `name`, or 0xFFFFFFFF when it
 * reported an error (the code itself is lost; a warning is dropped). */
QUORVANE_EXPORT uint32_t Quorvane_GetResourceIndex(const char* name) QUORVANE_NOEXCEPT;
/* Releases an index of Quorvane_GetResourceIndex. The FPGA interface library's answer is
 * dropped: a failed release is not reported. */
QUORVANE_EXPORT void Quorvane_ReleaseResourceIndex(uint32_t index) QUORVANE_NOEXCEPT;
/* Points *name at the name of resource `index` and returns the FPGA interface library's status
 * unchanged. The string belongs to the FPGA interface library: do not free or change it; it
 * stays valid as long as that library keeps it. */
QUORVANE_EXPORT int32_t Quorvane_GetResourceName(uint32_t index, const char** name) QUORVANE_NOEXCEPT;
/* Writes the peer-to-peer endpoint of the FIFO into *endpoint, through the FPGA interface
 * library. */
QUORVANE_EXPORT int32_t Quorvane_GetPeerToPeerFifoEndpoint(uint32_t session, uint32_t fifo,
                                                           uint32_t* endpoint) QUORVANE_NOEXCEPT;

/* ---- registers and arrays ------------------------------------------------------------- */

/* Reads register `reg` into *value. */
QUORVANE_EXPORT int32_t Quorvane_Read16(uint32_t session, uint32_t reg, uint16_t* value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Read32(uint32_t session, uint32_t reg, uint32_t* value) QUORVANE_NOEXCEPT;
/* The register's 32 bits, unconverted, into the float; as Quorvane_Read32. */
QUORVANE_EXPORT int32_t Quorvane_ReadSgl(uint32_t session, uint32_t reg, float* value) QUORVANE_NOEXCEPT;
/* The 64-bit register's bits, unconverted, into the double. A null value is -52005, tested
 * before the refused bit. */
QUORVANE_EXPORT int32_t Quorvane_ReadDbl(uint32_t session, uint32_t reg, double* value) QUORVANE_NOEXCEPT;
/* Writes `value` to register `reg`. */
QUORVANE_EXPORT int32_t Quorvane_Write16(uint32_t session, uint32_t reg, uint16_t value) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_Write32(uint32_t session, uint32_t reg, uint32_t value) QUORVANE_NOEXCEPT;
/* The float's bit pattern as a 32-bit write; as Quorvane_Write32. */
QUORVANE_EXPORT int32_t Quorvane_WriteSgl(uint32_t session, uint32_t reg, float value) QUORVANE_NOEXCEPT;
/* The double's bit pattern as a 64-bit write. */
QUORVANE_EXPORT int32_t Quorvane_WriteDbl(uint32_t session, uint32_t reg, double value) QUORVANE_NOEXCEPT;
/* Reads `count` 32-bit elements of array register `reg` into the Host's array, first resized to
 * `count` elements (kQuorvaneElementU32). A null handle or block is -52005, tested before the
 * refused bit. The array is left with `count` elements after a success or warning, and with 0
 * after any error, the refusal included. */
QUORVANE_EXPORT int32_t Quorvane_ReadArray32(uint32_t session, uint32_t reg, uint32_t count,
                                             void** array) QUORVANE_NOEXCEPT;
/* Writes the Host's 32-bit array (its own count) to array register `reg`; the array is not
 * changed. A null handle or block is -52005, tested before the refused bit. */
QUORVANE_EXPORT int32_t Quorvane_WriteArray32(uint32_t session, uint32_t reg, void** array) QUORVANE_NOEXCEPT;

/* ---- interrupts and trigger lines ----------------------------------------------------- */

/* Raise / lower the number of IRQ contexts that every later Quorvane_Open reserves on its new
 * session. Always 0. Sessions already open are not affected; below 0, opens reserve none. */
QUORVANE_EXPORT int32_t Quorvane_ReserveIrqContext(void) QUORVANE_NOEXCEPT;
QUORVANE_EXPORT int32_t Quorvane_UnreserveIrqContext(void) QUORVANE_NOEXCEPT;
/* Waits in the FPGA interface library, up to `timeout`, for the IRQs of the mask `irqs`; that
 * library writes *irqsAsserted and *timedOut. `context` is the address of the variable holding
 * the IRQ context; the context itself is passed on. A null context address is -52005, tested
 * after the refused bit, without calling anything. */
QUORVANE_EXPORT int32_t Quorvane_WaitOnIrqs(uint32_t session, void** context, uint32_t irqs, uint32_t timeout,
                                            uint32_t* irqsAsserted, uint8_t* timedOut) QUORVANE_NOEXCEPT;
/* Acknowledges the IRQs of the mask `irqs` through the FPGA interface library. */
QUORVANE_EXPORT int32_t Quorvane_AcknowledgeIrqs(uint32_t session, uint32_t irqs) QUORVANE_NOEXCEPT;
/* Reserves PXI trigger line `line` for the session's device through the device service (the
 * handle with bits 12..15 cleared) and returns the status that service reported. */
QUORVANE_EXPORT int32_t Quorvane_ReservePxiTriggerLine(uint32_t session, uint32_t line) QUORVANE_NOEXCEPT;
/* Releases PXI trigger line `line`; as Quorvane_ReservePxiTriggerLine. */
QUORVANE_EXPORT int32_t Quorvane_UnreservePxiTriggerLine(uint32_t session, uint32_t line) QUORVANE_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* QUORVANE_H */
