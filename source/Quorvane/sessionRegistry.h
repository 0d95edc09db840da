// The process-wide registry of the sessions this library opened, keyed by the handle exactly
// as the FPGA interface library wrote it.
//
// The registry lock guards the map, every record's children / parent / closeWithLastChild, and
// the existence of every record. It is held exclusively by registration and close, shared by
// FIFO start, region acquisition, the reset and download guard, resource enumeration and the
// open's look at the map's allocation flag.
//
// Lock order of the whole library, outermost first. Nothing takes them in another order, and
// no thread takes a lock it already holds (the reader/writer locks are not re-entrant):
//   1. the registry lock (gRegistryLock)
//   2. one session record's lock (tSessionRecord::lock); a close takes one record's lock at a
//      time: its own, then each resource session's in turn
//   3. a FIFO region state's acquireMutex, held by an acquirer for its whole acquisition
//   4. that state's queueMutex, which guards its queue of regions
//   5. the guard mutex inside that state's regionEvent
// The deletion callback of a region takes only 4 and 5, and runs the deferred close (which
// starts again at 1) only after giving 4 back. Calls into the Host and the FPGA interface
// library are made with at most 1 to 4 held, and never with a lock the callee could need:
// Quorvane_Close calls the driver for its own handle only after releasing the registry lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "Quorvane/sessionRecord.h"
#include "protons/status/stlContainers.h"
#include "protons/status/stlStatus.h"
#include "quarks/synchronization.h"

namespace quorvane {

class tSessionRegistry {
public:
    // Library load: the map, then the lock, which reports into lockCreationStatus.
    tSessionRegistry() noexcept;
    // Process exit: the lock first, then the map with every record still in it. No session is
    // closed and nobody is called.
    ~tSessionRegistry();

    // What creating the lock reported; every open merges it first. Written only at load.
    const tStatus& lockCreationStatus() const noexcept { return lockCreationStatus_; }
    // Raised for good once the map could not obtain memory.
    bool allocationFailed() const noexcept REQUIRES_SHARED(gRegistryLock) { return sessions_.allocationFailed(); }

    tSessionRecord* find(uint32_t session) noexcept REQUIRES_SHARED(gRegistryLock) { return sessions_.find(session); }
    // Builds a record under `session` unless one is there; returns the record now under the
    // handle, or nullptr when the map could not obtain memory.
    tSessionRecord* insert(uint32_t session) noexcept REQUIRES(gRegistryLock) {
        return sessions_.tryEmplace(session).first;
    }
    // Removes and destroys the record.
    void remove(uint32_t session) noexcept REQUIRES(gRegistryLock) { sessions_.erase(session); }
    // The key under which `record` is registered, found by walking the map; 0 when absent.
    uint32_t keyOf(const tSessionRecord* record) noexcept REQUIRES_SHARED(gRegistryLock);
    uint64_t recordCount() const noexcept REQUIRES_SHARED(gRegistryLock) { return sessions_.size(); }

    // How many IRQ contexts each later open reserves on its new session.
    std::atomic<int32_t> irqContextReserveCount{0};

private:
    friend tReaderWriterLock& lockOf(tSessionRegistry& registry) noexcept;

    tMap<uint32_t, tSessionRecord> sessions_ GUARDED_BY(gRegistryLock);
    tStatus lockCreationStatus_;
    tReaderWriterLock lock_;
};

// The one registry of the process.
tSessionRegistry& sessionRegistry() noexcept;

// Registers a session just opened, under the registry lock held exclusively; `parent` is the
// handle of the session a resource session was opened on, 0 for none. Returns the status:
// -52000 when the map could not obtain memory, the record's own creation error, or the
// result of linking to the parent.
int32_t RegisterSession(const uint32_t* session, uint32_t parent) noexcept EXCLUDES(gRegistryLock);

}  // namespace quorvane
