// What the pass-through exports hand on: which handle reaches which FPGA interface function
// (refused handles never get there; the resource-call mark is added where registers, arrays and
// FIFOs are addressed, and only there), missing pointers, FIFO depths, interrupts, PXI trigger
// lines through the device service, register values as raw bits and 32-bit register arrays.
#include <bit>
#include <string>
#include <tuple>
#include <vector>

#include "dataplaneFixture.h"

namespace quorvane::testing {
namespace {

struct ForwardedExport {
    const char* name;
    const char* target;  // the BrennDll_ function it forwards to
    bool marked;         // whether kResourceCallBit is OR-ed into the handle
    bool passesSecondArgument;
    // Calls the export with kAnyIndex as its second argument where it has one; `array` is a
    // U32 array of 8 elements.
    int32_t (*call)(uint32_t session, void** array);
};

// Out-values of the calls below; the IRQ context value itself travels in the second position.
uint32_t gOut = 0;
uint8_t gTimedOut = 0;
void* gContext = reinterpret_cast<void*>(uintptr_t{kAnyIndex});

template <auto read, typename T>
int32_t readValue(uint32_t session, void**) {
    T value{};
    return read(session, kAnyIndex, &value);
}

const ForwardedExport kForwardedExports[] = {
    {"Run", "BrennDll_Run", false, true, [](auto s, auto) { return Quorvane_Run(s, kAnyIndex); }},
    {"Abort", "BrennDll_Abort", false, false, [](auto s, auto) { return Quorvane_Abort(s); }},
    {"Read16", "BrennDll_ReadU16", true, true, readValue<Quorvane_Read16, uint16_t>},
    {"Read32", "BrennDll_ReadU32", true, true, readValue<Quorvane_Read32, uint32_t>},
    {"ReadSgl", "BrennDll_ReadU32", true, true, readValue<Quorvane_ReadSgl, float>},
    {"ReadDbl", "BrennDll_ReadU64", true, true, readValue<Quorvane_ReadDbl, double>},
    {"Write16", "BrennDll_WriteU16", true, true, [](auto s, auto) { return Quorvane_Write16(s, kAnyIndex, 1); }},
    {"Write32", "BrennDll_WriteU32", true, true, [](auto s, auto) { return Quorvane_Write32(s, kAnyIndex, 1); }},
    {"WriteSgl", "BrennDll_WriteU32", true, true, [](auto s, auto) { return Quorvane_WriteSgl(s, kAnyIndex, 1.0f); }},
    {"WriteDbl", "BrennDll_WriteU64", true, true, [](auto s, auto) { return Quorvane_WriteDbl(s, kAnyIndex, 1.0); }},
    {"ReadArray32", "BrennDll_ReadArrayU32", true, true,
     [](auto s, auto a) { return Quorvane_ReadArray32(s, kAnyIndex, 2, a); }},
    {"WriteArray32", "BrennDll_WriteArrayU32", true, true,
     [](auto s, auto a) { return Quorvane_WriteArray32(s, kAnyIndex, a); }},
    {"WaitOnIrqs", "BrennDll_WaitOnIrqs", false, true,
     [](auto s, auto) { return Quorvane_WaitOnIrqs(s, &gContext, 1, kAnyTimeout, &gOut, &gTimedOut); }},
    {"AcknowledgeIrqs", "BrennDll_AcknowledgeIrqs", false, true,
     [](auto s, auto) { return Quorvane_AcknowledgeIrqs(s, kAnyIndex); }},
    {"ConfigureFifo", "BrennDll_ConfigureFifo", true, true,
     [](auto s, auto) { return Quorvane_ConfigureFifo(s, kAnyIndex, 8); }},
    {"ConfigureFifo2", "BrennDll_ConfigureFifo2", true, true,
     [](auto s, auto) { return Quorvane_ConfigureFifo2(s, kAnyIndex, 8, &gOut); }},
    {"StopFifo", "BrennDll_StopFifo", true, true, [](auto s, auto) { return Quorvane_StopFifo(s, kAnyIndex); }},
    {"ReadFifoScalar", "BrennDll_ReadFifoI32", true, true,
     [](auto s, auto a) { return Quorvane_ReadFifoScalar(s, kAnyIndex, 2, 3, 0, kAnyTimeout, a, nullptr); }},
    {"WriteFifoScalar", "BrennDll_WriteFifoU32", true, true,
     [](auto s, auto a) { return Quorvane_WriteFifoScalar(s, kAnyIndex, a, 7, 0, kAnyTimeout, nullptr); }},
    {"ReadFifoComposite", "BrennDll_ReadFifoComposite", true, true,
     [](auto s, auto a) { return Quorvane_ReadFifoComposite(s, kAnyIndex, 2, 4, kAnyTimeout, a, nullptr); }},
    {"WriteFifoComposite", "BrennDll_WriteFifoComposite", true, true,
     [](auto s, auto a) { return Quorvane_WriteFifoComposite(s, kAnyIndex, a, 4, kAnyTimeout, nullptr); }},
};

class Forwarding : public DataplaneTest, public ::testing::WithParamInterface<ForwardedExport> {};

// Refused handles call nothing. A handle that already carries the mark (0x4005, no session of
// the target, so answered by script) goes on as it is. Errors coming back: see the fault loop.
TEST_P(Forwarding, HandleIsRefusedOrMarkedWhereResourcesAreAddressedAndTheResultReturned) {
    const ForwardedExport& e = GetParam();
    void** array = newArray(7, 8);
    for (const uint32_t refused : {0x2005u, session_ | 0x2000u, session_ | 0x6000u}) {
        EXPECT_EQ(e.call(refused, array), -61499) << std::hex << refused;
    }
    EXPECT_EQ(callsSinceOpen(), 0u);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u) << "no Host array is grown for a refusal";
    EXPECT_EQ(e.call(session_, array), 0);
    EXPECT_EQ(callsSinceOpen(), 1u) << "exactly one call reaches the FPGA interface library";
    scriptAnswer(e.target, kLibraryWarning);
    EXPECT_EQ(e.call(0x4005, array), kLibraryWarning);
    const auto calls = callsOf(e.target);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].args[0], e.marked ? (session_ | 0x4000u) : session_);
    if (e.passesSecondArgument) {
        EXPECT_EQ(calls[0].args[1], kAnyIndex);
    }
    EXPECT_EQ(calls[1].args[0], 0x4005u);
}

INSTANTIATE_TEST_SUITE_P(AllForwardingExports, Forwarding, ::testing::ValuesIn(kForwardedExports),
                         [](const auto& info) { return std::string(info.param.name); });

using PointerChecks = DataplaneTest;

// A missing double or register array is reported before the refused bit, other missing
// out-values and FIFO arrays after it; Read32 and ReadSgl leave a missing value to the library.
TEST_F(PointerChecks, MissingPointersAreReportedBeforeOrAfterTheRefusedBit) {
    void* noBlock = nullptr;
    void** kept = newArray(3, 2);
    uint32_t remaining = kUntouched;
    const auto expectInvalid = [&](bool beforeRefusal, auto call) {
        EXPECT_EQ(call(session_), -52005);
        EXPECT_EQ(call(session_ | 0x2000u), beforeRefusal ? -52005 : -61499);
    };
    expectInvalid(true, [](uint32_t s) { return Quorvane_ReadDbl(s, 0, nullptr); });
    expectInvalid(false, [](uint32_t s) { return Quorvane_ConfigureFifo2(s, 2, 5, nullptr); });
    expectInvalid(false, [](uint32_t s) { return Quorvane_WaitOnIrqs(s, nullptr, 1, 0, nullptr, nullptr); });
    expectInvalid(false, [&](uint32_t s) { return Quorvane_ReadFifoScalar(s, 3, 2, 3, 0, 0, nullptr, &remaining); });
    expectInvalid(false, [&](uint32_t s) { return Quorvane_ReadFifoComposite(s, 3, 2, 4, 0, nullptr, &remaining); });
    for (void** a : {static_cast<void**>(nullptr), &noBlock}) {
        expectInvalid(true, [&](uint32_t s) { return Quorvane_ReadArray32(s, 0, 4, a); });
        expectInvalid(true, [&](uint32_t s) { return Quorvane_WriteArray32(s, 0, a); });
        expectInvalid(false, [&](uint32_t s) { return Quorvane_WriteFifoScalar(s, 3, a, 3, 0, 0, &remaining); });
        expectInvalid(false, [&](uint32_t s) { return Quorvane_WriteFifoComposite(s, 3, a, 4, 0, &remaining); });
    }
    // A refused FIFO read leaves the array's count alone.
    EXPECT_EQ(Quorvane_ReadFifoScalar(0x2005, 3, 4, 3, 0, 0, kept, &remaining), -61499);
    EXPECT_EQ(Quorvane_ReadFifoComposite(0x2005, 3, 4, 1, 0, kept, &remaining), -61499);
    EXPECT_EQ(countOf(kept), 2);
    EXPECT_EQ(remaining, kUntouched);
    EXPECT_EQ(noBlock, nullptr);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);

    EXPECT_EQ(Quorvane_Read32(session_, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(Quorvane_ReadSgl(session_, 0, nullptr), kBrennSimInvalidArgument);
    EXPECT_EQ(callsOf("BrennDll_ReadU32").size(), 2u);
}

constexpr uint32_t kFifo = 2;

class FifoControl : public DataplaneTest {};

// Depths go on widened with zeros. The chosen depth is always stored narrowed (0 when the library
// set none); a depth that does not fit gives way only to a library error.
TEST_F(FifoControl, DepthsAreWidenedAndTheChosenDepthIsAlwaysStoredNarrowed) {
    EXPECT_EQ(Quorvane_ConfigureFifo(session_, kFifo, 0xFFFFFFFFu), 0);
    EXPECT_EQ(callsOf("BrennDll_ConfigureFifo").at(0).args[2], 0xFFFFFFFFu);
    const std::tuple<const char*, int32_t, std::vector<uint64_t>, int32_t, uint32_t> cases[] = {
        {"too deep after success", 0, {0x100000005u}, -52005, 5},
        {"too deep after a warning", kLibraryWarning, {0x100000005u}, -52005, 5},
        {"too deep after an error", kLibraryError, {0x100000005u}, kLibraryError, 5},
        {"warning with a depth that fits", kLibraryWarning, {7}, kLibraryWarning, 7},
        {"largest depth that fits", 0, {0xFFFFFFFFu}, 0, 0xFFFFFFFFu},
        {"error without a depth", kLibraryError, {}, kLibraryError, 0}};
    for (const auto& [name, libraryAnswer, chosenDepth, status, stored] : cases) {
        scriptAnswer("BrennDll_ConfigureFifo2", libraryAnswer, chosenDepth);
        uint32_t actual = kUntouched;
        EXPECT_EQ(Quorvane_ConfigureFifo2(session_, kFifo, 0x80000000u, &actual), status) << name;
        EXPECT_EQ(actual, stored) << name;
    }
    for (const auto& call : callsOf("BrennDll_ConfigureFifo2")) EXPECT_EQ(call.args[2], 0x80000000u);
}

TEST_F(FifoControl, WaitOnIrqsPassesMaskAndTimeoutAndTheLibraryFillsTheAnswers) {
    void* context = nullptr;
    uint32_t asserted = 0;
    uint8_t timedOut = 0;
    scriptAnswer("BrennDll_WaitOnIrqs", 0, {0x5, 1});
    EXPECT_EQ(Quorvane_WaitOnIrqs(session_, &context, 0xF, kAnyTimeout, &asserted, &timedOut), 0);
    EXPECT_EQ(callsOf("BrennDll_WaitOnIrqs").at(0).args[2], 0xFu);
    EXPECT_EQ(callsOf("BrennDll_WaitOnIrqs").at(0).args[3], kAnyTimeout);
    EXPECT_EQ(asserted, 0x5u);
    EXPECT_EQ(timedOut, 1u);
}

// A refused handle never reaches the device service; otherwise the flag nibble is cleared, the
// line goes through unchanged without the FPGA interface library, and the service's report
// (here an injected warning) is the result.
TEST_F(FifoControl, TriggerLineFlagNibbleIsClearedAndTheLineGoesThroughUnchanged) {
    EXPECT_EQ(Quorvane_ReservePxiTriggerLine(0x3005, 4), -61499);
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(0x3005, 4), -61499);
    EXPECT_EQ(MoskSrvSim_CallCount(), 0u);

    EXPECT_EQ(Quorvane_ReservePxiTriggerLine(0x5005, 0x80000004u), 0);
    uint32_t device = 0, attribute = 0, value = 0;
    ASSERT_EQ(MoskSrvSim_LastCall(&device, &attribute, &value), 1);
    EXPECT_EQ(device, 0x0005u);
    EXPECT_EQ(attribute, 31u);
    EXPECT_EQ(value, 0x80000004u);

    MoskSrvSim_ReportNext(kLibraryWarning);
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(0xD005, 0x80000004u), kLibraryWarning);
    EXPECT_EQ(Quorvane_UnreservePxiTriggerLine(0xD005, 0x80000004u), 0);
    EXPECT_EQ(MoskSrvSim_ReservedLineCount(), 0u);
    EXPECT_EQ(callsSinceOpen(), 0u);
}

class RegisterAccess : public DataplaneTest {
protected:
    template <typename T>
    void poke(uint32_t reg, T bits) {
        ASSERT_EQ(BrennSim_PokeRegisters(session_, reg, &bits, sizeof bits), 1);
    }
    template <typename T>
    T peek(uint32_t reg) {
        T bits{};
        EXPECT_EQ(BrennSim_PeekRegisters(session_, reg, &bits, sizeof bits), 1);
        return bits;
    }
};

// Nothing converts between integer and floating point: -2.5, -0.0 and NaNs with a payload would
// not survive it.
TEST_F(RegisterAccess, RegistersAreReadAndWrittenAsRawBits) {
    EXPECT_EQ(Quorvane_WriteSgl(session_, 8, -2.5f), 0);
    EXPECT_EQ(Quorvane_WriteDbl(session_, 16, -0.0), 0);
    EXPECT_EQ(Quorvane_Write16(session_, 2, 0xFFFF), 0);
    EXPECT_EQ(Quorvane_Write32(session_, 12, 0x89ABCDEFu), 0);
    EXPECT_EQ(peek<uint32_t>(8), 0xC0200000u);
    EXPECT_EQ(peek<uint64_t>(16), 0x8000000000000000u);
    EXPECT_EQ(peek<uint16_t>(2), 0xFFFF);
    EXPECT_EQ(peek<uint32_t>(12), 0x89ABCDEFu);

    poke<uint32_t>(4, 0x7FC00123u);
    poke<uint64_t>(24, 0x7FF0000000000001u);
    poke<uint16_t>(40, 0xBEEF);
    float single = 0;
    double dbl = 0;
    uint16_t half = 0;
    uint32_t word = 0;
    EXPECT_EQ(Quorvane_ReadSgl(session_, 4, &single), 0);
    EXPECT_EQ(Quorvane_ReadDbl(session_, 24, &dbl), 0);
    EXPECT_EQ(Quorvane_Read16(session_, 40, &half), 0);
    EXPECT_EQ(Quorvane_Read32(session_, 4, &word), 0);
    EXPECT_EQ(std::bit_cast<uint32_t>(single), 0x7FC00123u);
    EXPECT_EQ(std::bit_cast<uint64_t>(dbl), 0x7FF0000000000001u);
    EXPECT_EQ(half, 0xBEEF);
    EXPECT_EQ(word, 0x7FC00123u);
}

// A written array goes over as it is, never resized, with a negative count widened with its
// sign; a read grows the array before the library fills it in place.
TEST_F(RegisterAccess, Arrays32GoThereAndBackThroughTheRegisters) {
    void** array = newArray(7, 3);
    const uint32_t values[] = {0xA0, 0xA1, 0xA2};
    std::memcpy(elementsOf(array, 4), values, sizeof values);
    EXPECT_EQ(Quorvane_WriteArray32(session_, 100, array), 0);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(peek<uint32_t>(100), 0xA0u);
    EXPECT_EQ(peek<uint32_t>(108), 0xA2u);
    void** readInto = newArray(7, 1);
    EXPECT_EQ(Quorvane_ReadArray32(session_, 104, 2, readInto), 0);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 7);
    EXPECT_EQ(HostSim_BlockSize(readInto), 4u + 2 * 4);
    ASSERT_EQ(countOf(readInto), 2);
    EXPECT_EQ(std::memcmp(elementsOf(readInto, 4), values + 1, 2 * 4), 0);

    const int32_t negative = -2;
    std::memcpy(*array, &negative, sizeof negative);
    scriptAnswer("BrennDll_WriteArrayU32", kLibraryError);
    EXPECT_EQ(Quorvane_WriteArray32(session_, 0, array), kLibraryError);
    EXPECT_EQ(callsOf("BrennDll_WriteArrayU32").at(1).args[3], 0xFFFFFFFFFFFFFFFEu);
}

// The count left follows the status: the read count after a warning, none after an error, a
// refusal or a failed resize.
TEST_F(RegisterAccess, ReadArray32CountLeftInTheArrayFollowsTheStatus) {
    const std::tuple<uint32_t, int32_t, int32_t, int32_t, int32_t> cases[] = {
        {0, kLibraryWarning, 0, kLibraryWarning, 4},
        {0, kLibraryError, 0, kLibraryError, 0},
        {0x2000, 0, 0, -61499, 0},
        {0, 0, 2, -52000, 0}};
    for (const auto& [sessionFlags, libraryAnswer, hostResize, status, count] : cases) {
        if (libraryAnswer != 0) scriptAnswer("BrennDll_ReadArrayU32", libraryAnswer);
        if (hostResize != 0) HostSim_FailNext("NumericArrayResize", hostResize);
        void** array = newArray(7, 5);
        EXPECT_EQ(Quorvane_ReadArray32(session_ | sessionFlags, 0, 4, array), status);
        EXPECT_EQ(countOf(array), count) << "status " << status;
    }
    EXPECT_EQ(callsSinceOpen(), 2u) << "neither a refusal nor a failed resize reads";
}

}  // namespace
}  // namespace quorvane::testing
