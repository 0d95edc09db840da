// Simulated device service: PXI trigger-line reservations, one owner per line across all devices.
#include <deque>
#include <map>
#include <mutex>

#include "CallFailurePlan.h"
#include "MoskSrv.h"
#include "MoskSrvSim.h"

namespace {

struct Call {
    uint32_t device;
    uint32_t attribute;
    uint32_t value;
};

struct Service {
    std::mutex mutex;
    std::map<uint32_t, uint32_t> ownerOfLine;
    std::deque<int32_t> injectedReports;
    CallFailurePlan planned;
    size_t calls = 0;
    Call lastCall{};
};

// Never destroyed: a session may release its line from a static destructor of the library.
Service& service() {
    static Service* const instance = new Service;
    return *instance;
}

// Called with the service's lock held.
int32_t apply(Service& s, uint32_t device, uint32_t attribute, uint32_t line) noexcept {
    switch (attribute) {
        case kMoskSrvReservePxiTriggerLine:
            try {
                return s.ownerOfLine.emplace(line, device).second ? 0 : kMoskSrvStandInLineAlreadyReserved;
            } catch (...) {
                return kMoskSrvStandInOutOfMemory;
            }
        case kMoskSrvReleasePxiTriggerLine: {
            const auto found = s.ownerOfLine.find(line);
            if (found == s.ownerOfLine.end() || found->second != device) return kMoskSrvStandInLineNotReserved;
            s.ownerOfLine.erase(found);
            return 0;
        }
        default:
            return kMoskSrvStandInUnknownAttribute;
    }
}

// An error already held stays; success takes anything; a warning gives way only to an error.
void merge(int32_t* status, int32_t reported) noexcept {
    if (status == nullptr || reported == 0 || *status < 0) return;
    if (*status == 0 || reported < 0) *status = reported;
}

}  // namespace

extern "C" int32_t MoskSrv_device_set32(uint32_t device, uint32_t attribute, uint32_t value, int32_t* status) {
    int32_t reported = 0;
    {
        std::lock_guard lock(service().mutex);
        Service& s = service();
        ++s.calls;
        s.lastCall = {device, attribute, value};
        if (!s.injectedReports.empty()) {
            reported = s.injectedReports.front();
            s.injectedReports.pop_front();
        } else if (const auto planned = s.planned.next()) {
            reported = *planned;
        } else {
            reported = apply(s, device, attribute, value);
        }
    }
    merge(status, reported);
    return reported;
}

extern "C" void MoskSrvSim_Reset(void) {
    std::lock_guard lock(service().mutex);
    service().ownerOfLine.clear();
    service().injectedReports.clear();
    service().planned.set(0, 0, false);
    service().calls = 0;
    service().lastCall = {};
}

extern "C" void MoskSrvSim_ReportNext(int32_t code) {
    std::lock_guard lock(service().mutex);
    try {
        service().injectedReports.push_back(code);
    } catch (...) {
        // A test that cannot even queue one integer has bigger problems; the injection is lost.
    }
}

extern "C" int MoskSrvSim_IsLineReserved(uint32_t line, uint32_t* device) {
    std::lock_guard lock(service().mutex);
    const auto found = service().ownerOfLine.find(line);
    if (found == service().ownerOfLine.end()) return 0;
    if (device != nullptr) *device = found->second;
    return 1;
}

extern "C" size_t MoskSrvSim_ReservedLineCount(void) {
    std::lock_guard lock(service().mutex);
    return service().ownerOfLine.size();
}

extern "C" void MoskSrvSim_FailFrom(size_t nth, int32_t code, int always) {
    std::lock_guard lock(service().mutex);
    service().planned.set(nth, code, always != 0);
}

extern "C" size_t MoskSrvSim_PlannedFailures(void) {
    std::lock_guard lock(service().mutex);
    return service().planned.fired();
}

extern "C" size_t MoskSrvSim_CallCount(void) {
    std::lock_guard lock(service().mutex);
    return service().calls;
}

extern "C" int MoskSrvSim_LastCall(uint32_t* device, uint32_t* attribute, uint32_t* value) {
    std::lock_guard lock(service().mutex);
    if (service().calls == 0) return 0;
    if (device != nullptr) *device = service().lastCall.device;
    if (attribute != nullptr) *attribute = service().lastCall.attribute;
    if (value != nullptr) *value = service().lastCall.value;
    return 1;
}
