// The Host's numeric element types that the demo streams: code, name and size. The codes are
// the Host's type codes, which both the library and the target use for FIFO elements.
#pragma once

#include <cstdint>
#include <string_view>

namespace quorvane::tools {

struct ElementType {
    uint32_t code;  // 1 I8, 2 I16, 3 I32, 4 I64, 5 U8, 6 U16, 7 U32, 8 U64
    const char* name;
    uint32_t bytes;
};

// The type named `name` in any case ("I16", "i16"), or null.
const ElementType* elementTypeNamed(std::string_view name) noexcept;
// The type with Host type code `code`, or null.
const ElementType* elementTypeOfCode(uint32_t code) noexcept;
// "I8 I16 ... U64", for messages that list the choices.
const char* elementTypeNames() noexcept;

// Offset of element 0 in the block of a one-dimensional Host numeric array: the 32-bit
// dimension size, padded to eight bytes for 8-byte elements.
inline size_t hostArrayHeaderBytes(const ElementType& type) noexcept {
    return type.bytes == 8 ? 8 : 4;
}

}  // namespace quorvane::tools
