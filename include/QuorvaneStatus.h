/*
 * The status codes of libQuorvane.so.13.
 *
 * Every export returns a signed 32-bit status: 0 success, negative error, positive warning.
 * QUORVANE_STATUS_LIST holds every code the library produces itself or treats specially, once,
 * with its name and a one-line meaning. Every other code comes unchanged from the FPGA interface
 * library or the device service. A code keeps its meaning within a major version.
 *
 * QUORVANE_STATUS_LIST(X) expands to X(name, value, meaning) once per code, in the order below.
 * The constants of QuorvaneStatus, the library's own codes and the texts of the quorvane-status
 * program are all made from it; a program may make its own table the same way:
 *
 *     #define ROW(name, value, meaning) {value, #name, meaning},
 *     static const struct { int32_t value; const char* name; const char* meaning; } rows[] = {
 *         QUORVANE_STATUS_LIST(ROW)};
 *     #undef ROW
 *
 * Valid C89 and C++98 and later; it needs no other header.
 */
#ifndef QUORVANE_STATUS_H
#define QUORVANE_STATUS_H

#define QUORVANE_STATUS_LIST(X)                                                                                      \
    X(kQuorvaneStatusSuccess, 0, "success")                                                                          \
    X(kQuorvaneStatusMemoryFull, -52000, "memory or a Host handle could not be obtained (Host result 2)")            \
    X(kQuorvaneStatusInternalError, -52003,                                                                          \
      "internal failure: a mutex could not be made, a Host function is missing or failed, or a cleanup was refused") \
    X(kQuorvaneStatusInvalidArgument, -52005,                                                                        \
      "invalid argument: a null pointer or handle, an element type outside 1 to 8, or a count over 32 bits")         \
    X(kQuorvaneStatusWaitTimedOut, -52007, "an internal event wait timed out (never returned by an export)")         \
    X(kQuorvaneStatusConditionFailed, -52008, "a condition variable could not be created")                           \
    X(kQuorvaneStatusDriverTimeout, -50400,                                                                          \
      "time-out of the FPGA interface library (an acquisition without time limit tries again)")                      \
    X(kQuorvaneStatusAborted, -50405, "aborted by the Host (Host result 41)")                                        \
    X(kQuorvaneStatusRegionsOutstanding, -61217,                                                                     \
      "close, reset or download refused: FIFO regions of the session are still lent to the Host")                    \
    X(kQuorvaneStatusMustReleaseFirst, -61219,                                                                       \
      "no room until lent elements are handed back; an acquisition's time-out ran out waiting for that")             \
    X(kQuorvaneStatusSessionRefused, -61499, "the session handle carries kQuorvaneSessionRefusedBit (0x2000)")       \
    X(kQuorvaneStatusSizeQueryAnswer, -63080,                                                                        \
      "answer of the FPGA interface library's size query: the count was written")                                    \
    X(kQuorvaneStatusSessionNotRegistered, -63195,                                                                   \
      "the session (or a resource session's parent) is not open through this library")

#define QUORVANE_STATUS_ENUMERATOR(name, value, meaning) name = (value),

/* The codes by name. Exports return int32_t, never this type, so the binary interface does not
 * depend on the size of an enumeration. */
typedef enum QuorvaneStatus {
    QUORVANE_STATUS_LIST(QUORVANE_STATUS_ENUMERATOR)
    /* Not a code: C89 allows no comma after the last enumerator, so the list ends here. */
    kQuorvaneStatusListEnd = 0
} QuorvaneStatus;

#undef QUORVANE_STATUS_ENUMERATOR

#endif /* QUORVANE_STATUS_H */
