// External data value references of the simulated Host: EDVR_CreateReference, and the Host's
// deletion of a reference, which hands the record back to its owner through the callback
// stored in it.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "HostInternal.h"
#include "HostSim.h"

namespace hostsim {
namespace {

struct ReferenceTable {
    std::mutex mutex;
    std::unordered_map<uint32_t, void*> records;
    uint32_t nextNumber = 1;
};

ReferenceTable& references() {
    static ReferenceTable* const instance = new ReferenceTable;
    return *instance;
}

// A number that is neither 0 nor in use. Called with the table's lock held.
uint32_t takeFreshNumber(ReferenceTable& table) noexcept {
    for (;;) {
        const uint32_t number = table.nextNumber++;
        if (number != 0 && table.records.find(number) == table.records.end()) return number;
    }
}

}  // namespace
}  // namespace hostsim

using hostsim::references;

extern "C" int32_t EDVR_CreateReference(uint32_t* reference, void** record) {
    hostsim::countCall(hostsim::HostFunction::kEDVR_CreateReference);
    if (const auto injected = hostsim::takeInjectedAnswer(hostsim::HostFunction::kEDVR_CreateReference)) {
        return *injected;
    }
    if (reference == nullptr || record == nullptr) return 1;
    void* made = std::calloc(1, kHostEdvrRecordSize);
    if (made == nullptr) return kHostOutOfMemory;
    try {
        std::lock_guard lock(references().mutex);
        const uint32_t number = hostsim::takeFreshNumber(references());
        references().records.emplace(number, made);
        *reference = number;
    } catch (...) {
        std::free(made);
        return kHostOutOfMemory;
    }
    *record = made;
    return kHostNoError;
}

extern "C" size_t HostSim_LiveReferenceCount(void) {
    std::lock_guard lock(references().mutex);
    return references().records.size();
}

extern "C" void* HostSim_ReferenceRecord(uint32_t reference) {
    std::lock_guard lock(references().mutex);
    const auto found = references().records.find(reference);
    return found == references().records.end() ? nullptr : found->second;
}

extern "C" int32_t HostSim_DeleteReference(uint32_t reference) {
    void* record = nullptr;
    {
        // Taken out first, so that a second deletion of the same reference finds nothing.
        std::lock_guard lock(references().mutex);
        const auto found = references().records.find(reference);
        if (found == references().records.end()) return -1;
        record = found->second;
        references().records.erase(found);
    }
    HostDeleteCallback callback = nullptr;
    std::memcpy(&callback, static_cast<const char*>(record) + kHostEdvrDeleteCallbackOffset, sizeof callback);
    // The callback may call back into the library and from there into the Host: no lock is held.
    const int32_t result = callback != nullptr ? callback(record) : 0;
    std::free(record);
    return result;
}
