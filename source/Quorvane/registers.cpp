// Run, abort, register and 32-bit array access: thin exports over the FPGA interface library.
// Single and double values travel as raw bit patterns; nothing here converts between integer
// and floating point. No state is kept and no lock is taken.
#include <bit>
#include <cstdint>

#include "BrennDll.h"
#include "HostRuntime.h"
#include "MoskSrv/_MoskHostDefs.h"
#include "Quorvane.h"
#include "Quorvane/sessionFlags.h"

using namespace quorvane;

namespace {

constexpr size_t kU32FirstElement = hostFirstElementOffset(kHostTypeU32);

uint32_t* u32Elements(void** array) noexcept {
    return reinterpret_cast<uint32_t*>(hostBlock(array) + kU32FirstElement);
}

}  // namespace

// Run and abort address the whole target, not a register, so the handle goes on unmarked.
extern "C" int32_t Quorvane_Run(uint32_t session, uint32_t attribute) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_Run(session, attribute);
}

extern "C" int32_t Quorvane_Abort(uint32_t session) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_Abort(session);
}

extern "C" int32_t Quorvane_Read16(uint32_t session, uint32_t reg, uint16_t* value) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_ReadU16(markedForResourceCall(session), reg, value);
}

extern "C" int32_t Quorvane_Read32(uint32_t session, uint32_t reg, uint32_t* value) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_ReadU32(markedForResourceCall(session), reg, value);
}

// Goes through the exported Quorvane_Read32 so that refusal and marking stay in one place; the
// library writes the register's 32 bits straight into the float's storage.
extern "C" int32_t Quorvane_ReadSgl(uint32_t session, uint32_t reg, float* value) noexcept {
    return Quorvane_Read32(session, reg, reinterpret_cast<uint32_t*>(value));
}

extern "C" int32_t Quorvane_ReadDbl(uint32_t session, uint32_t reg, double* value) noexcept {
    if (value == nullptr) return kStatusInvalidArgument;
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_ReadU64(markedForResourceCall(session), reg, reinterpret_cast<uint64_t*>(value));
}

extern "C" int32_t Quorvane_Write16(uint32_t session, uint32_t reg, uint16_t value) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_WriteU16(markedForResourceCall(session), reg, value);
}

extern "C" int32_t Quorvane_Write32(uint32_t session, uint32_t reg, uint32_t value) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_WriteU32(markedForResourceCall(session), reg, value);
}

extern "C" int32_t Quorvane_WriteSgl(uint32_t session, uint32_t reg, float value) noexcept {
    return Quorvane_Write32(session, reg, std::bit_cast<uint32_t>(value));
}

extern "C" int32_t Quorvane_WriteDbl(uint32_t session, uint32_t reg, double value) noexcept {
    if (isRefusedSession(session)) return kStatusSessionRefused;
    return BrennDll_WriteU64(markedForResourceCall(session), reg, std::bit_cast<uint64_t>(value));
}

// The array is grown before the read so the library can fill it in place; whenever the read
// does not deliver (refusal, failed resize, library error) the Host sees an empty array.
extern "C" int32_t Quorvane_ReadArray32(uint32_t session, uint32_t reg, uint32_t count, void** array) noexcept {
    if (hostBlock(array) == nullptr) return kStatusInvalidArgument;
    int32_t status = kStatusSessionRefused;
    if (!isRefusedSession(session)) status = HostErrorToStatus(NumericArrayResize(kHostTypeU32, 1, &array, count));
    if (status == 0 && hostBlock(array) == nullptr) status = kStatusInvalidArgument;
    if (status == 0) status = BrennDll_ReadArrayU32(markedForResourceCall(session), reg, u32Elements(array), count);
    writeHostCount(array, status < 0 ? 0 : static_cast<int32_t>(count));
    return status;
}

extern "C" int32_t Quorvane_WriteArray32(uint32_t session, uint32_t reg, void** array) noexcept {
    if (hostBlock(array) == nullptr) return kStatusInvalidArgument;
    if (isRefusedSession(session)) return kStatusSessionRefused;
    // A negative Host count is widened with its sign, as the Host's own size type would be.
    const auto count = static_cast<size_t>(static_cast<int64_t>(readHostCount(array)));
    return BrennDll_WriteArrayU32(markedForResourceCall(session), reg, u32Elements(array), count);
}
