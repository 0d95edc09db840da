// Which handle reaches which FPGA interface function, for every export that forwards to one:
// refused handles never get there, the resource-call mark is added where registers, arrays and
// FIFOs are addressed (and only there), and the library's result comes back unchanged.
#include <gmock/gmock.h>

#include <ostream>

#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

struct ForwardedExport {
    const char* name;
    const char* target;  // the BrennDll_ function it forwards to
    bool marked;         // whether kResourceCallBit is OR-ed into the handle
    bool passesSecondArgument;
    // Calls the export with kAnyRegisterOrFifo as its second argument where it has one.
    int32_t (*call)(uint32_t session);
};

std::ostream& operator<<(std::ostream& out, const ForwardedExport& e) {
    return out << e.name;
}

// Host arrays made by a call are disposed of by it, so each entry stands alone.
int32_t withArray(int32_t typeCode, size_t count, int32_t (*use)(uint32_t, void**), uint32_t session) {
    void** array = HostSim_NewNumericArray(typeCode, count);
    const int32_t status = use(session, array);
    HostSim_DisposeHandle(array);
    return status;
}

template <auto read, typename T>
int32_t readValue(uint32_t session) {
    T value{};
    return read(session, kAnyRegisterOrFifo, &value);
}

const ForwardedExport kForwardedExports[] = {
    {"Run", "BrennDll_Run", false, true, [](uint32_t s) { return Quorvane_Run(s, kAnyRegisterOrFifo); }},
    {"Abort", "BrennDll_Abort", false, false, [](uint32_t s) { return Quorvane_Abort(s); }},
    {"Read16", "BrennDll_ReadU16", true, true, readValue<Quorvane_Read16, uint16_t>},
    {"Read32", "BrennDll_ReadU32", true, true, readValue<Quorvane_Read32, uint32_t>},
    {"ReadSgl", "BrennDll_ReadU32", true, true, readValue<Quorvane_ReadSgl, float>},
    {"ReadDbl", "BrennDll_ReadU64", true, true, readValue<Quorvane_ReadDbl, double>},
    {"Write16", "BrennDll_WriteU16", true, true, [](uint32_t s) { return Quorvane_Write16(s, kAnyRegisterOrFifo, 1); }},
    {"Write32", "BrennDll_WriteU32", true, true, [](uint32_t s) { return Quorvane_Write32(s, kAnyRegisterOrFifo, 1); }},
    {"WriteSgl", "BrennDll_WriteU32", true, true,
     [](uint32_t s) { return Quorvane_WriteSgl(s, kAnyRegisterOrFifo, 1.0f); }},
    {"WriteDbl", "BrennDll_WriteU64", true, true,
     [](uint32_t s) { return Quorvane_WriteDbl(s, kAnyRegisterOrFifo, 1.0); }},
    {"ReadArray32", "BrennDll_ReadArrayU32", true, true,
     [](uint32_t s) {
         return withArray(
             7, 0, [](uint32_t s, void** a) { return Quorvane_ReadArray32(s, kAnyRegisterOrFifo, 2, a); }, s);
     }},
    {"WriteArray32", "BrennDll_WriteArrayU32", true, true,
     [](uint32_t s) {
         return withArray(
             7, 2, [](uint32_t s, void** a) { return Quorvane_WriteArray32(s, kAnyRegisterOrFifo, a); }, s);
     }},
    {"WaitOnIrqs", "BrennDll_WaitOnIrqs", false, true,
     [](uint32_t s) {
         // The context value itself travels in the second position.
         void* context = reinterpret_cast<void*>(uintptr_t{kAnyRegisterOrFifo});
         uint32_t asserted = 0;
         uint8_t timedOut = 0;
         return Quorvane_WaitOnIrqs(s, &context, 1, kAnyTimeout, &asserted, &timedOut);
     }},
    {"AcknowledgeIrqs", "BrennDll_AcknowledgeIrqs", false, true,
     [](uint32_t s) { return Quorvane_AcknowledgeIrqs(s, kAnyRegisterOrFifo); }},
    {"ConfigureFifo", "BrennDll_ConfigureFifo", true, true,
     [](uint32_t s) { return Quorvane_ConfigureFifo(s, kAnyRegisterOrFifo, 8); }},
    {"ConfigureFifo2", "BrennDll_ConfigureFifo2", true, true,
     [](uint32_t s) {
         uint32_t actual = 0;
         return Quorvane_ConfigureFifo2(s, kAnyRegisterOrFifo, 8, &actual);
     }},
    {"StopFifo", "BrennDll_StopFifo", true, true, [](uint32_t s) { return Quorvane_StopFifo(s, kAnyRegisterOrFifo); }},
    {"ReadFifoScalar", "BrennDll_ReadFifoI32", true, true,
     [](uint32_t s) {
         return withArray(
             3, 0,
             [](uint32_t s, void** a) {
                 return Quorvane_ReadFifoScalar(s, kAnyRegisterOrFifo, 2, 3, 0, kAnyTimeout, a, nullptr);
             },
             s);
     }},
    {"WriteFifoScalar", "BrennDll_WriteFifoU16", true, true,
     [](uint32_t s) {
         return withArray(
             6, 2,
             [](uint32_t s, void** a) {
                 return Quorvane_WriteFifoScalar(s, kAnyRegisterOrFifo, a, 6, 0, kAnyTimeout, nullptr);
             },
             s);
     }},
    {"ReadFifoComposite", "BrennDll_ReadFifoComposite", true, true,
     [](uint32_t s) {
         return withArray(
             5, 0,
             [](uint32_t s, void** a) {
                 return Quorvane_ReadFifoComposite(s, kAnyRegisterOrFifo, 2, 4, kAnyTimeout, a, nullptr);
             },
             s);
     }},
    {"WriteFifoComposite", "BrennDll_WriteFifoComposite", true, true,
     [](uint32_t s) {
         return withArray(
             5, 8,
             [](uint32_t s, void** a) {
                 return Quorvane_WriteFifoComposite(s, kAnyRegisterOrFifo, a, 4, kAnyTimeout, nullptr);
             },
             s);
     }},
};

class Forwarding : public DataplaneTest, public ::testing::WithParamInterface<ForwardedExport> {};

TEST_P(Forwarding, RefusedHandleCallsNothing) {
    const ForwardedExport& e = GetParam();
    const size_t resizesBefore = HostSim_CallCount("NumericArrayResize");
    for (const uint32_t refused : {0x2005u, session_ | 0x2000u, session_ | 0x6000u}) {
        EXPECT_EQ(e.call(refused), -61499) << std::hex << refused;
    }
    EXPECT_EQ(callsSinceOpen(), 0u);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), resizesBefore) << "no Host array is grown for a refusal";
}

// A handle that already carries the mark (0x4005, no session of the target, so answered by
// script) goes on as it is, and the library's result comes back unchanged.
TEST_P(Forwarding, HandleIsMarkedOnlyWhereRegistersArraysOrFifosAreAddressedAndTheResultReturned) {
    const ForwardedExport& e = GetParam();
    EXPECT_EQ(e.call(session_), 0);
    EXPECT_EQ(callsSinceOpen(), 1u) << "exactly one call reaches the FPGA interface library";
    for (const int32_t answer : {kLibraryWarning, kLibraryError, 0}) {
        scriptAnswer(e.target, answer);
        EXPECT_EQ(e.call(0x4005), answer);
    }
    const auto calls = callsOf(e.target);
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0].args[0], e.marked ? (session_ | 0x4000u) : session_);
    if (e.passesSecondArgument) {
        EXPECT_EQ(calls[0].args[1], kAnyRegisterOrFifo);
    }
    for (size_t i = 1; i < calls.size(); ++i) EXPECT_EQ(calls[i].args[0], 0x4005u);
    EXPECT_EQ(BrennSim_ScriptsPending(nullptr), 0u);
}

INSTANTIATE_TEST_SUITE_P(AllForwardingExports, Forwarding, ::testing::ValuesIn(kForwardedExports),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace quorvane::testing
