#include "elementType.h"

#include <algorithm>
#include <cctype>

namespace quorvane::tools {

namespace {

constexpr ElementType kTypes[] = {{1, "I8", 1}, {2, "I16", 2}, {3, "I32", 4}, {4, "I64", 8},
                                  {5, "U8", 1}, {6, "U16", 2}, {7, "U32", 4}, {8, "U64", 8}};

}  // namespace

const ElementType* elementTypeNamed(std::string_view name) noexcept {
    const auto sameLetters = [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
    };
    for (const ElementType& type : kTypes) {
        if (std::ranges::equal(name, std::string_view(type.name), sameLetters)) return &type;
    }
    return nullptr;
}

const ElementType* elementTypeOfCode(uint32_t code) noexcept {
    for (const ElementType& type : kTypes) {
        if (code == type.code) return &type;
    }
    return nullptr;
}

const char* elementTypeNames() noexcept {
    return "I8 I16 I32 I64 U8 U16 U32 U64";
}

}  // namespace quorvane::tools
