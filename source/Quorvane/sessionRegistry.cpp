#include "Quorvane/sessionRegistry.h"

#include "Quorvane.h"

namespace quorvane {

namespace {
// Built while the library is loaded, destroyed at process exit.
tSessionRegistry gRegistry;
}  // namespace

tSessionRegistry& sessionRegistry() noexcept {
    return gRegistry;
}

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
int32_t linkToParent(tSessionRegistry& registry, tSessionRecord& record, uint32_t session, uint32_t parent) noexcept {
    tSessionRecord* parentRecord = registry.find(parent);
    if (parentRecord == nullptr) return kStatusSessionNotRegistered;
    // A resource session on a resource session would outlive the closes that end its parent:
    // refused, and Quorvane_OpenResource closes it again.
    if (parentRecord->parent != nullptr) return kStatusInvalidArgument;
    if (!parentRecord->children.pushBack(session)) {
        tStatus status;
        parentRecord->children.reportInto(status);
        return status.code32();
    }
    record.parent = parentRecord;
    return kStatusSuccess;
}
}  // namespace

int32_t RegisterSession(const uint32_t* session, uint32_t parent) noexcept {
    tSessionRegistry& registry = sessionRegistry();
    tExclusiveLock guard(registry.lock());
    tSessionRecord* record = registry.insert(*session);
    tStatus result;
    if (registry.allocationFailed()) {
        result.setCode(kStatusMemoryFull, kStlStatusFile, kStlStatusLine);
        return result.code32();
    }
    if (record->status.isError()) {
        const int32_t error = record->status.code32();
        registry.remove(*session);
        return error;
    }
    if (parent != 0) return linkToParent(registry, *record, *session, parent);
    return kStatusSuccess;
}

int32_t SessionCleanupProc(void* session) noexcept {
    Quorvane_Close(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(session)), 1);
    return 0;
}

}  // namespace quorvane
