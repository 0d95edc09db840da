// What the registry keeps per opened session.
#pragma once

#include <atomic>
#include <cstdint>

#include "Quorvane/fifoRegionState.h"
#include "protons/status/stlContainers.h"
#include "protons/status/stlStatus.h"
#include "quarks/synchronization.h"

namespace quorvane {

// The registry's lock (sessionRegistry.h, where the lock order is written). Besides the map, it
// guards each record's links to other records: children, parent and closeWithLastChild. A
// global name, so that the thread-safety analysis can order other locks after it.
extern tReaderWriterLock& gRegistryLock;

struct tSessionRecord {
    // Builds the members in order; a failure stays in `status`, and a record whose status
    // holds an error never stays registered.
    tSessionRecord() noexcept;
    // Destroys the lock and the FIFO states. Closes nothing and calls nobody.
    ~tSessionRecord();
    tSessionRecord(const tSessionRecord&) = delete;
    tSessionRecord& operator=(const tSessionRecord&) = delete;

    // First field on purpose: each FIFO state of the session points at it, and the release of
    // the last region completes a refused close when it finds it set.
    // Atomic because closes set it under one FIFO's queueMutex while retirements of other
    // FIFOs read it under theirs.
    std::atomic<uint8_t> closePending{0};
    // Unique in the process: tells this record from a later one registered under the same
    // handle, once the driver has handed that handle out again. A close the library runs on its
    // own names the record it marked by this number.
    const uint64_t serial;
    tStatus status;
    // Guards fifoStates; empty when it could not be allocated (status then holds the error), and
    // such a record is never registered. Taken after the registry lock, before any FIFO state's
    // mutexes.
    tReaderWriterLock* lock ACQUIRED_AFTER(gRegistryLock) = nullptr;
    tMap<uint32_t, FifoRegionState> fifoStates GUARDED_BY(lock);
    // Resource sessions opened on this session, in the order of opening.
    tList<uint32_t> children GUARDED_BY(gRegistryLock);
    // For a resource session: the record of the session it was opened on.
    tSessionRecord* parent GUARDED_BY(gRegistryLock) = nullptr;
    uint8_t closeWithLastChild GUARDED_BY(gRegistryLock) = 0;
};

}  // namespace quorvane
