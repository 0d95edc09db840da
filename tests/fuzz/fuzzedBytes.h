// Reads a fuzzer's input as a sequence of values; past the end every value is 0, so every input
// is a complete case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

namespace quorvane::fuzzing {

class FuzzedBytes {
public:
    FuzzedBytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    template <typename T>
    T take() {
        static_assert(std::is_trivially_copyable_v<T>);
        T value{};
        const size_t n = sizeof(T) < size_ ? sizeof(T) : size_;
        if (n != 0) std::memcpy(&value, data_, n);
        data_ += n;
        size_ -= n;
        return value;
    }
    // A number in [0, bound).
    uint32_t below(uint32_t bound) { return bound == 0 ? 0 : take<uint32_t>() % bound; }
    // Up to `most` bytes, as characters.
    std::string characters(size_t most) {
        size_t n = below(static_cast<uint32_t>(most) + 1);
        if (n > size_) n = size_;
        std::string text(reinterpret_cast<const char*>(data_), n);
        data_ += n;
        size_ -= n;
        return text;
    }

private:
    const uint8_t* data_;
    size_t size_;
};

// A broken promise of the library (a leak, a session left open, a status it never returns): the
// fuzzer reports it like a crash, with the input that led to it.
inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
}

}  // namespace quorvane::fuzzing
