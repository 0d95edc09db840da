// What the fuzz targets of the exports share: the input read as values, Host data as a careless
// or broken Host hands it over, and a session whose promises are checked once the input is done.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Quorvane.h"
#include "QuorvaneStatus.h"

namespace quorvane::fuzzing {

// A broken promise of the library: the fuzzer reports it like a crash, with the input.
inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
}

// The status an export gave: one the library documents, one passed on from below its own range,
// or a warning; for a null array, its refusal.
inline void requireHonestStatus(int32_t status, void** array) {
#define QUORVANE_FUZZ_LISTED(name, value, meaning) status == (value) ||
    const bool documented = QUORVANE_STATUS_LIST(QUORVANE_FUZZ_LISTED) status >= 0 || status <= -60000;
#undef QUORVANE_FUZZ_LISTED
    require(documented, "the status is documented or passed on");
    if (array == nullptr) require(status == kQuorvaneStatusInvalidArgument, "a null array is refused");
}

// The input as a sequence of values; past its end every value is 0, so every input is a case.
class FuzzedBytes {
public:
    FuzzedBytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    template <typename T>
    T take() {
        T value{};
        const size_t n = std::min(sizeof(T), size_);
        if (n != 0) std::memcpy(&value, skip(n), n);
        return value;
    }
    uint32_t below(uint32_t bound) { return take<uint32_t>() % bound; }
    // Up to `most` bytes, as characters.
    std::string characters(uint32_t most) {
        const size_t n = std::min<size_t>(below(most + 1), size_);
        return std::string(reinterpret_cast<const char*>(skip(n)), n);
    }

private:
    const uint8_t* skip(size_t n) {
        const uint8_t* at = data_;
        data_ += n;
        size_ -= n;
        return at;
    }
    const uint8_t* data_;
    size_t size_;
};

// One Host array handle argument: null, a handle without a block, or a real array whose
// dimension size (and, for strings, elements) a broken Host got wrong. A positive count never
// exceeds its block: a Host cannot tell the library a block's size. Disposes of everything,
// whatever the library made of the array.
class FuzzedArray {
public:
    // A numeric array of `typeCode` (1..8) with room for up to 64 elements; one the library
    // fills (`output`) always has a block, since only the Host resizes such handles.
    FuzzedArray(FuzzedBytes& in, int32_t typeCode, bool output);
    // An array of up to 8 strings, some missing, without a block or with broken lengths.
    explicit FuzzedArray(FuzzedBytes& in);
    ~FuzzedArray();
    FuzzedArray(const FuzzedArray&) = delete;
    FuzzedArray& operator=(const FuzzedArray&) = delete;
    void** handle() const { return handle_; }  // what the export is given

private:
    void pickShape(FuzzedBytes& in, uint32_t capacity, bool output);
    void** real_;              // the array the simulated Host made
    void** handle_ = nullptr;  // null, real_ or &noBlock_
    void* noBlock_ = nullptr;
    bool strings_ = false;
    void* elementWithoutBlock_ = nullptr;
    std::vector<void**> given_;  // every string handle the Host made
};

// A session on the default target for one input; closing it checks that nothing is left: no
// session on the target, no Host handle or reference, no block of the library's own.
class FuzzSession {
public:
    FuzzSession();
    ~FuzzSession();
    uint32_t handle = 0;

private:
    uint64_t libraryBlocks_;
    size_t hostHandles_;
};

}  // namespace quorvane::fuzzing
