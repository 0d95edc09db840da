// The Host's data formats as this library reads and writes them, the Host's numeric type
// codes, and the rule that turns a Host function's result into a status code.
//
// A Host handle is a pointer to a pointer to a relocatable block; reaching the data takes two
// dereferences. Every offset below is part of the Host's format.
#pragma once

#include <cstddef>
#include <cstdint>

#include "protons/status/stlStatus.h"

namespace quorvane {

class iHostCallbacks;

inline constexpr const char kHostDefsFile[] = "_MoskHostDefs";
inline constexpr uint64_t kHostResizeLine = 28;
inline constexpr uint64_t kHostNewHandleLine = 52;

// Host numeric type codes (the first argument of NumericArrayResize).
enum : int32_t {
    kHostTypeI8 = 1,
    kHostTypeI16 = 2,
    kHostTypeI32 = 3,
    kHostTypeI64 = 4,
    kHostTypeU8 = 5,
    kHostTypeU16 = 6,
    kHostTypeU32 = 7,
    kHostTypeU64 = 8,  // also the code for arrays of handles
};

inline constexpr bool isHostNumericType(uint32_t typeCode) noexcept {
    return typeCode >= 1 && typeCode <= 8;
}
// Bytes per element of a valid type code.
uint32_t hostElementBytes(uint32_t typeCode) noexcept;
// Where the first element of a one-dimensional array block lies: 8 for 8-byte elements
// (codes 4 and 8), 4 for every other code.
inline constexpr size_t hostFirstElementOffset(uint32_t typeCode) noexcept {
    return typeCode == kHostTypeI64 || typeCode == kHostTypeU64 ? 8 : 4;
}

// The block behind a handle, or nullptr when the handle or its block pointer is null.
inline uint8_t* hostBlock(void** handle) noexcept {
    return handle == nullptr ? nullptr : static_cast<uint8_t*>(*handle);
}
// The int32 at byte 0 of a block: a numeric array's dimension size or a string's length.
int32_t readHostCount(void** handle) noexcept;
// Writes the dimension size; does nothing for a null handle or block.
void writeHostCount(void** handle, int32_t count) noexcept;

// Host result -> status code: 0 stays 0 (nothing to merge), 2 -> -52000, 41 -> -50405,
// anything else -> -52003.
int32_t HostErrorToStatus(int32_t hostResult) noexcept;

// Owned copy of a string's characters with its length and a NUL after the last character.
struct tHostStringSource {
    const char* characters;
    size_t length;
};

// Resizes the array behind *handle to `count` string handles through the table (type code
// 8, one dimension), merges the converted result at _MoskHostDefs:28, and writes the dimension
// size: `count`, or 0 when the status holds an error afterwards. The call is made whatever the
// status holds, but never through a missing table entry.
void ResizeHostStringArray(iHostCallbacks& table, void*** handle, uint32_t count, tStatus& status) noexcept;

// Unless the status holds an error: makes a string handle of length + 5 bytes through the
// table's DSNewHandle, fills it (length, characters, NUL) and stores it as element `index` of
// the array (byte 8 + 8 × index), overwriting what was there. No handle: -52000 at
// _MoskHostDefs:52 and nothing is stored.
void StoreHostString(iHostCallbacks& table, const tHostStringSource& string, void*** handle, uint32_t index,
                     tStatus& status) noexcept;

}  // namespace quorvane
