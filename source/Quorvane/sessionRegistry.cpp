#include "Quorvane/sessionRegistry.h"

namespace quorvane {

namespace {
// Built while the library is loaded, destroyed at process exit.
tSessionRegistry gRegistry;
}  // namespace

tSessionRegistry& sessionRegistry() noexcept {
    return gRegistry;
}

tReaderWriterLock& lockOf(tSessionRegistry& registry) noexcept {
    return registry.lock_;
}

// Bound while the library is loaded, right after the registry it names.
tReaderWriterLock& gRegistryLock = lockOf(gRegistry);

tSessionRegistry::tSessionRegistry() noexcept : lock_(lockCreationStatus_) {}

tSessionRegistry::~tSessionRegistry() = default;

uint32_t tSessionRegistry::keyOf(const tSessionRecord* record) noexcept {
    for (auto& [key, value] : sessions_.items()) {
        if (&value == record) return key;
    }
    return 0;
}

namespace {
// Ties a resource session's record to its parent's. Registry lock held exclusively.
int32_t linkToParent(tSessionRegistry& registry, tSessionRecord& record, uint32_t session, uint32_t parent) noexcept
    REQUIRES(gRegistryLock) {
    tSessionRecord* parentRecord = registry.find(parent);
    if (parentRecord == nullptr) return kStatusSessionNotRegistered;
    // A resource session on a resource session would outlive the closes that end its parent:
    // refused, and Quorvane_OpenResource closes it again.
    if (parentRecord->parent() != nullptr) return kStatusInvalidArgument;
    if (!parentRecord->children().pushBack(session)) {
        tStatus status;
        parentRecord->children().reportInto(status);
        return status.code32();
    }
    record.parent() = parentRecord;
    return kStatusSuccess;
}
}  // namespace

int32_t RegisterSession(const uint32_t* session, uint32_t parent) noexcept {
    tSessionRegistry& registry = sessionRegistry();
    tExclusiveLock guard(gRegistryLock);
    tSessionRecord* record = registry.insert(*session);  // nullptr when the map ran out of memory
    tStatus result;
    if (registry.allocationFailed()) result.setCode(kStatusMemoryFull, kStlStatusFile, kStlStatusLine);
    // A record that could not be built whole never stays, even when the map's flag already
    // decides the status: a close of it would use the lock it lacks. A record kept from an
    // earlier registration under the same handle was built whole.
    if (record != nullptr && record->status.isError()) {
        result.mergeFrom(record->status);
        registry.remove(*session);
    }
    if (result.isError()) return result.code32();
    if (parent != 0) return linkToParent(registry, *record, *session, parent);
    return kStatusSuccess;
}

}  // namespace quorvane
