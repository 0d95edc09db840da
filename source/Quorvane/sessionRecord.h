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

    // The guarded fields are private and reached only through these accessors, each of which
    // requires the field's lock, so the analysis checks every read and write of a guarded field
    // against its lock. Inline and trivial: they cost nothing at run time.
    //
    // The FIFO states. The record's lock held shared is enough to look a state up or walk them
    // (each state has locks of its own); states are added and removed only with it held
    // exclusively. The analysis checks the hold, not its mode, for calls on the map.
    tMap<uint32_t, FifoRegionState>& fifoStates() noexcept REQUIRES_SHARED(lock) { return fifoStates_; }
    // Resource sessions opened on this session, in the order of opening.
    tList<uint32_t>& children() noexcept REQUIRES(gRegistryLock) { return children_; }
    // For a resource session: the record of the session it was opened on.
    tSessionRecord*& parent() noexcept REQUIRES(gRegistryLock) { return parent_; }
    // Set when a close was refused because a resource session was busy (sessionClose.cpp).
    uint8_t& closeWithLastChild() noexcept REQUIRES(gRegistryLock) { return closeWithLastChild_; }

private:
    tMap<uint32_t, FifoRegionState> fifoStates_ GUARDED_BY(lock);
    tList<uint32_t> children_ GUARDED_BY(gRegistryLock);
    tSessionRecord* parent_ GUARDED_BY(gRegistryLock) = nullptr;
    uint8_t closeWithLastChild_ GUARDED_BY(gRegistryLock) = 0;
};

}  // namespace quorvane
