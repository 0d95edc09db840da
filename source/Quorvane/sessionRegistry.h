// The process-wide registry of the sessions this library opened, keyed by the handle exactly
// as the FPGA interface library wrote it.
//
// The registry lock guards the map, every record's children / parent / closeWithLastChild, and
// the existence of every record. It is held exclusively by registration and close, shared by
// FIFO start, region acquisition, the reset and download guard and resource enumeration.
// It is the outermost lock of the library (see quarks/synchronization.h for the order).
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

    tReaderWriterLock& lock() noexcept { return lock_; }
    // What creating the lock reported; every open merges it first.
    const tStatus& lockCreationStatus() const noexcept { return lockCreationStatus_; }
    // Raised for good once the map could not obtain memory.
    bool allocationFailed() const noexcept { return sessions_.allocationFailed(); }

    // The following run under the lock, held as each says.
    tSessionRecord* find(uint32_t session) noexcept { return sessions_.find(session); }
    // Exclusive. Builds a record under `session` unless one is there; returns the record now
    // under the handle, or nullptr when the map could not obtain memory.
    tSessionRecord* insert(uint32_t session) noexcept { return sessions_.tryEmplace(session).first; }
    // Exclusive. Removes and destroys the record.
    void remove(uint32_t session) noexcept { sessions_.erase(session); }
    // The key under which `record` is registered, found by walking the map; 0 when absent.
    uint32_t keyOf(const tSessionRecord* record) noexcept;
    uint64_t recordCount() const noexcept { return sessions_.size(); }

    // How many IRQ contexts each later open reserves on its new session.
    std::atomic<int32_t> irqContextReserveCount{0};

private:
    tMap<uint32_t, tSessionRecord> sessions_;
    tStatus lockCreationStatus_;
    tReaderWriterLock lock_;
};

// The one registry of the process.
tSessionRegistry& sessionRegistry() noexcept;

// Registers a session just opened, under the registry lock held exclusively; `parent` is the
// handle of the session a resource session was opened on, 0 for none. Returns the status:
// -52000 when the map could not obtain memory, the record's own creation error, or the
// result of linking to the parent.
int32_t RegisterSession(const uint32_t* session, uint32_t parent) noexcept;

}  // namespace quorvane
