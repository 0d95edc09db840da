#include "pattern.h"

#include <cstring>

namespace quorvane::tools {

namespace {

// The loops run over gigabytes: one 64-bit add per element and no branch on the data, so the
// compiler can keep them tight. memcpy keeps unaligned blocks legal and costs nothing aligned.
template <typename T>
uint64_t mismatches(const unsigned char* bytes, size_t count, uint64_t value, uint64_t step) noexcept {
    uint64_t wrong = 0;
    for (size_t i = 0; i < count; ++i, value += step) {
        T element;
        std::memcpy(&element, bytes + i * sizeof(T), sizeof(T));
        wrong += element != static_cast<T>(value);
    }
    return wrong;
}

template <typename T>
void fill(unsigned char* bytes, size_t count, uint64_t value, uint64_t step) noexcept {
    for (size_t i = 0; i < count; ++i, value += step) {
        const T element = static_cast<T>(value);
        std::memcpy(bytes + i * sizeof(T), &element, sizeof(T));
    }
}

// Signed and unsigned types of one size hold the same bytes, so the unsigned one serves both.
template <template <typename> class Action, typename... Args>
bool dispatch(uint32_t typeCode, Args&&... args) noexcept {
    switch (typeCode) {
        case 1:
        case 5:
            Action<uint8_t>::run(args...);
            return true;
        case 2:
        case 6:
            Action<uint16_t>::run(args...);
            return true;
        case 3:
        case 7:
            Action<uint32_t>::run(args...);
            return true;
        case 4:
        case 8:
            Action<uint64_t>::run(args...);
            return true;
        default:
            return false;
    }
}

template <typename T>
struct Check {
    static void run(const void* data, size_t count, uint64_t value, uint64_t step, uint64_t& wrong) noexcept {
        wrong = mismatches<T>(static_cast<const unsigned char*>(data), count, value, step);
    }
};

template <typename T>
struct Fill {
    static void run(void* data, size_t count, uint64_t value, uint64_t step) noexcept {
        fill<T>(static_cast<unsigned char*>(data), count, value, step);
    }
};

}  // namespace

uint64_t countMismatches(uint32_t typeCode, const void* data, size_t count, const Pattern& pattern,
                         uint64_t index) noexcept {
    uint64_t wrong = count;
    dispatch<Check>(typeCode, data, count, pattern.valueAt(index), pattern.step, wrong);
    return wrong;
}

void fillPattern(uint32_t typeCode, void* data, size_t count, const Pattern& pattern, uint64_t index) noexcept {
    dispatch<Fill>(typeCode, data, count, pattern.valueAt(index), pattern.step);
}

}  // namespace quorvane::tools
