#include "faultScenarios.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "HostSim.h"
#include "Quorvane.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {

namespace {

constexpr uint32_t kReadFifo = 0, kWriteFifo = 1;
constexpr uint32_t kElements = 16;
constexpr uint32_t kNoWait = 0;

// Registers, arrays, interrupts and trigger lines of one session.
void everyRegisterCall(ScenarioRun& run, uint32_t s) {
    uint16_t u16 = 0;
    uint32_t u32 = 0;
    float sgl = 0;
    double dbl = 0;
    run.step("Quorvane_Write16", [&] { return Quorvane_Write16(s, 0x10, 7); });
    run.step("Quorvane_Read16", [&] { return Quorvane_Read16(s, 0x10, &u16); });
    run.step("Quorvane_Write32", [&] { return Quorvane_Write32(s, 0x20, 7); });
    run.step("Quorvane_Read32", [&] { return Quorvane_Read32(s, 0x20, &u32); });
    run.step("Quorvane_WriteSgl", [&] { return Quorvane_WriteSgl(s, 0x30, 1.5f); });
    run.step("Quorvane_ReadSgl", [&] { return Quorvane_ReadSgl(s, 0x30, &sgl); });
    run.step("Quorvane_WriteDbl", [&] { return Quorvane_WriteDbl(s, 0x40, 2.5); });
    run.step("Quorvane_ReadDbl", [&] { return Quorvane_ReadDbl(s, 0x40, &dbl); });
    void** words = run.array(7, 4);
    run.step("Quorvane_WriteArray32", [&] { return Quorvane_WriteArray32(s, 0x80, words); });
    run.step("Quorvane_ReadArray32", [&] { return Quorvane_ReadArray32(s, 0x80, 4, words); });
    void* context = nullptr;
    uint32_t asserted = 0;
    uint8_t timedOut = 0;
    run.step("Quorvane_WaitOnIrqs", [&] { return Quorvane_WaitOnIrqs(s, &context, 1, kNoWait, &asserted, &timedOut); });
    run.step("Quorvane_AcknowledgeIrqs", [&] { return Quorvane_AcknowledgeIrqs(s, 1); });
    run.step("Quorvane_ReservePxiTriggerLine", [&] { return Quorvane_ReservePxiTriggerLine(s, 3); });
    run.step("Quorvane_UnreservePxiTriggerLine", [&] { return Quorvane_UnreservePxiTriggerLine(s, 3); });
}

// Copying transfers of every element type, and composite records, each type on FIFOs of its own
// (a FIFO of the default target takes its type from its first use).
void everyTransfer(ScenarioRun& run, uint32_t s) {
    uint32_t remaining = 0;
    for (uint32_t type = 1; type <= 8; ++type) {
        void** out = run.array(static_cast<int32_t>(type), 8);
        void** in = run.array(static_cast<int32_t>(type), 0);
        run.step("Quorvane_WriteFifoScalar",
                 [&] { return Quorvane_WriteFifoScalar(s, 10 + type, out, type, 0, kNoWait, &remaining); });
        run.step("Quorvane_ReadFifoScalar",
                 [&] { return Quorvane_ReadFifoScalar(s, 20 + type, 8, type, 0, kNoWait, in, &remaining); });
    }
    void** records = run.array(5, 24);
    run.step("Quorvane_WriteFifoComposite",
             [&] { return Quorvane_WriteFifoComposite(s, 30, records, 3, kNoWait, &remaining); });
    run.step("Quorvane_ReadFifoComposite",
             [&] { return Quorvane_ReadFifoComposite(s, 31, 8, 3, kNoWait, records, &remaining); });
    uint32_t depth = 0;
    run.step("Quorvane_ConfigureFifo", [&] { return Quorvane_ConfigureFifo(s, 40, 64); });
    run.step("Quorvane_ConfigureFifo2", [&] { return Quorvane_ConfigureFifo2(s, 41, 64, &depth); });
    run.step("Quorvane_StartFifo", [&] { return Quorvane_StartFifo(s, 40); });
    run.step("Quorvane_StopFifo", [&] { return Quorvane_StopFifo(s, 40); });
}

void sessionLife(ScenarioRun& run) {
    run.step("Quorvane_ReserveIrqContext", [] { return Quorvane_ReserveIrqContext(); });
    const uint32_t s = run.open();
    run.step("Quorvane_UnreserveIrqContext", [] { return Quorvane_UnreserveIrqContext(); });
    run.step("Quorvane_Download", [&] { return Quorvane_Download(s); });
    run.step("Quorvane_Run", [&] { return Quorvane_Run(s, 0); });
    everyRegisterCall(run, s);
    run.step("Quorvane_Abort", [&] { return Quorvane_Abort(s); });
    run.step("Quorvane_Reset", [&] { return Quorvane_Reset(s); });
    run.close(s);
}

void resources(ScenarioRun& run) {
    const uint32_t parent = run.open();
    void** names = run.strings({"RIO0/extra", "", "RIO0/more"});
    run.step("Quorvane_AddResources", [&] { return Quorvane_AddResources(parent, names, nullptr, nullptr); });
    void** listed = run.strings({});
    run.step("Quorvane_GetResources", [&] { return Quorvane_GetResources(parent, listed); });
    const uint32_t child = run.openResource(parent);
    everyRegisterCall(run, child);
    uint32_t index = 0;
    run.step("Quorvane_GetResourceIndex", [&] {
        index = Quorvane_GetResourceIndex("RIO0/child");
        return 0;
    });
    const char* name = nullptr;
    run.step("Quorvane_GetResourceName", [&] { return Quorvane_GetResourceName(index, &name); });
    run.step("Quorvane_ReleaseResourceIndex", [&] {
        Quorvane_ReleaseResourceIndex(index);
        return 0;
    });
    uint32_t endpoint = 0;
    run.step("Quorvane_GetPeerToPeerFifoEndpoint",
             [&] { return Quorvane_GetPeerToPeerFifoEndpoint(child, 2, &endpoint); });
    run.close(child);
    run.close(parent);
}

// Regions handed back out of order, and a close deferred until the last one is back.
void regions(ScenarioRun& run) {
    const uint32_t s = run.open();
    run.step("Quorvane_StartFifo", [&] { return Quorvane_StartFifo(s, kReadFifo); });
    const uint32_t first = run.acquire(s, true);
    const uint32_t second = run.acquire(s, true);
    const uint32_t written = run.acquire(s, false);
    run.deleteReference(second);
    run.close(s);  // refused while regions are out: completes with the last one
    run.deleteReference(written);
    run.deleteReference(first);
}

// Reset and download while regions are out, then a resource session closing its parent.
void regionsAcrossReset(ScenarioRun& run) {
    const uint32_t s = run.open();
    const uint32_t region = run.acquire(s, true);
    run.step("Quorvane_Reset", [&] { return Quorvane_Reset(s); });
    run.step("Quorvane_Download", [&] { return Quorvane_Download(s); });
    run.deleteReference(region);
    const uint32_t child = run.openResource(s);
    const uint32_t childRegion = run.acquire(child, false);
    run.close(s);  // refused while the child's region is out; completes, the child with it, when it is back
    run.deleteReference(childRegion);
}

// A read and a write region of every element type, each type on FIFOs of its own.
void regionTypes(ScenarioRun& run) {
    const uint32_t s = run.open();
    for (uint32_t type = 1; type <= 8; ++type) {
        run.deleteReference(run.acquire(s, true, type, 50 + type));
        run.deleteReference(run.acquire(s, false, type, 60 + type));
    }
    run.close(s);
}

void transfers(ScenarioRun& run) {
    const uint32_t s = run.open();
    everyTransfer(run, s);
    run.close(s);
}

// The Host stops the program with sessions and a region still out.
void programStop(ScenarioRun& run) {
    const uint32_t s = run.open();
    run.openResource(s);
    run.acquire(s, true);
    run.step("program stop", [] {
        HostSim_RunProgramStop();
        return 0;
    });
}

// Whether the last close of `handle` that reached the target failed.
bool lastCloseFailed(uint32_t handle) {
    bool failed = false;
    for (const BrennSimCall& call : callsOf("BrennDll_Close")) {
        if (call.args[0] == handle) failed = call.result < 0;
    }
    return failed;
}

}  // namespace

uint32_t ScenarioRun::open() {
    uint32_t handle = 0;
    // A failed open may still leave a handle in *session: that of a session the library closed
    // again, or, when that close failed too, of one still open on the target, which only the Host
    // can close now. The loop closes it if the target still has it open.
    if (step("Quorvane_Open", [&] { return Quorvane_Open("", "", "RIO0", 0, &handle); }) < 0) {
        if (handle != 0) {
            EXPECT_TRUE(!BrennSim_IsSessionOpen(handle) || lastCloseFailed(handle)) << "a failed open left it open";
            EXPECT_FALSE(isRegistered(handle)) << "a failed open left it registered";
            orphans.push_back(handle);
        }
        return 0;
    }
    sessions.push_back(handle);
    return handle;
}

uint32_t ScenarioRun::openResource(uint32_t parent) {
    uint32_t handle = 0;
    if (step("Quorvane_OpenResource", [&] { return Quorvane_OpenResource(parent, "RIO0/child", 0, &handle); }) < 0) {
        if (handle != 0) orphans.push_back(handle);
        return 0;
    }
    sessions.push_back(handle);
    return handle;
}

uint32_t ScenarioRun::acquire(uint32_t session, bool read) {
    return acquire(session, read, 7, read ? kReadFifo : kWriteFifo);
}

uint32_t ScenarioRun::acquire(uint32_t session, bool read, uint32_t type, uint32_t fifo) {
    uint32_t reference = 0;
    size_t acquired = 0, remaining = 0;
    const char* name = read ? "Quorvane_AcquireFifoReadRegionScalar" : "Quorvane_AcquireFifoWriteRegionScalar";
    const int32_t status = step(name, [&] {
        return read ? Quorvane_AcquireFifoReadRegionScalar(session, fifo, &reference, kElements, type, 0, kNoWait,
                                                           &acquired, &remaining)
                    : Quorvane_AcquireFifoWriteRegionScalar(session, fifo, &reference, kElements, type, 0, kNoWait,
                                                            &acquired, &remaining);
    });
    // A failed acquisition lends nothing: the Host is given no reference to delete.
    EXPECT_TRUE(status >= 0 || reference == 0) << name << " answered " << status << " with reference " << reference;
    if (reference != 0) references.push_back(reference);
    return reference;
}

void ScenarioRun::close(uint32_t session) {
    if (session != 0) step("Quorvane_Close", [&] { return Quorvane_Close(session, 0); });
}

void ScenarioRun::deleteReference(uint32_t reference) {
    if (reference == 0) return;
    step("region deleted", [&] { return HostSim_DeleteReference(reference); });
    references.erase(std::remove(references.begin(), references.end(), reference), references.end());
}

void** ScenarioRun::array(int32_t typeCode, size_t count) {
    arrays.push_back(HostSim_NewNumericArray(typeCode, count));
    return arrays.back();
}

void** ScenarioRun::strings(std::vector<const char*> names) {
    stringArrays.push_back(HostSim_NewStringArray(names.data(), names.size()));
    return stringArrays.back();
}

const std::vector<Scenario>& allScenarios() {
    static const std::vector<Scenario> scenarios = {
        {"session life", sessionLife}, {"resources", resources},
        {"regions", regions},          {"regions across reset", regionsAcrossReset},
        {"region types", regionTypes}, {"transfers", transfers},
        {"program stop", programStop}};
    return scenarios;
}

}  // namespace quorvane::testing
