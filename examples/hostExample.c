/*
 * A minimal Host program: opens the simulated FPGA target, downloads and runs it, reads a
 * register, borrows one region of a FIFO in each direction and closes. Copy it as a start.
 *
 * Linked against libQuorvane and the simulated Host runtime, which provides the Host's four
 * functions (a real Host application provides them itself). Run it with the folder of the
 * FPGA interface library (here the simulator's) on the loader's path.
 */
#include <stdio.h>
#include <string.h>

#include <HostSim.h> /* the simulated Host: its records of references, and how to delete them */
#include <Quorvane.h>

enum { kRegionElements = 256, kTimeoutMs = 1000 };
enum { kReadFifo = 0, kWriteFifo = 1, kRegister = 0x20 };
/* Where the Host's record of a reference keeps what the library wrote into it. */
enum { kRecordElements = 16, kRecordCount = 24 };

static int failed(const char* what, int32_t status) {
    if (status == 0) return 0;
    fprintf(stderr, "%s: status %d%s\n", what, (int)status, status > 0 ? " (warning)" : "");
    return status < 0; /* warnings are reported, errors stop the program */
}

/* The element addresses and count of the region behind a reference. */
static uint64_t* regionOf(uint32_t reference, size_t* count) {
    const unsigned char* record = HostSim_ReferenceRecord(reference);
    uint64_t* elements = NULL;
    memcpy(&elements, record + kRecordElements, sizeof elements);
    memcpy(count, record + kRecordCount, sizeof *count);
    return elements;
}

/* Reads one region: the simulated target's FPGA counts up from 0 in every FIFO. */
static int readRegion(uint32_t session) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0, count = 0, i;
    const uint64_t* elements;
    if (failed("acquire read region",
               Quorvane_AcquireFifoReadRegionScalar(session, kReadFifo, &reference, kRegionElements,
                                                    kQuorvaneElementU64, 0, kTimeoutMs, &acquired, &remaining))) {
        return 1;
    }
    elements = regionOf(reference, &count);
    for (i = 0; i < count; ++i) {
        if (elements[i] != i) {
            fprintf(stderr, "element %zu reads %llu\n", i, (unsigned long long)elements[i]);
            HostSim_DeleteReference(reference);
            return 1;
        }
    }
    printf("read %zu elements in place, %zu more waiting\n", count, remaining);
    /* Deleting the reference hands the elements back to the FPGA interface library. */
    return failed("hand back read region", HostSim_DeleteReference(reference));
}

/* Fills one region of room; the target checks that it follows the same count. */
static int writeRegion(uint32_t session) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0, count = 0, i;
    uint64_t* elements;
    if (failed("acquire write region",
               Quorvane_AcquireFifoWriteRegionScalar(session, kWriteFifo, &reference, kRegionElements,
                                                     kQuorvaneElementU64, 0, kTimeoutMs, &acquired, &remaining))) {
        return 1;
    }
    elements = regionOf(reference, &count);
    for (i = 0; i < count; ++i) elements[i] = i;
    printf("wrote %zu elements in place\n", count);
    return failed("hand back write region", HostSim_DeleteReference(reference));
}

int main(void) {
    uint32_t session = 0, value = 0;
    int errors = 0;
    printf("libQuorvane %s\n", QUORVANE_VERSION_STRING);
    /* An empty bitfile opens the simulated target's built-in default. */
    if (failed("open", Quorvane_Open("", "", "RIO0", 0, &session))) return 1;
    if (failed("download", Quorvane_Download(session)) || failed("run", Quorvane_Run(session, 0)) ||
        failed("read register", Quorvane_Read32(session, kRegister, &value))) {
        errors = 1;
    } else {
        printf("register 0x%x holds %u\n", (unsigned)kRegister, (unsigned)value);
        errors = readRegion(session) || writeRegion(session);
    }
    errors |= failed("close", Quorvane_Close(session, 0));
    printf("%s\n", errors ? "example failed" : "example finished");
    return errors;
}
