// Host data as a careless or broken Host hands it over, built by the simulated Host runtime:
// dimension sizes and string lengths that are negative or smaller than their blocks, missing
// handles and missing blocks. What no library can detect stays out: a Host has no way to tell
// the library how large a block is, so a positive count never promises more than the block holds
// (a Host that does that writes past its own block first).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fuzzedBytes.h"

namespace quorvane::fuzzing {

// One Host array handle argument: null, a handle without a block, or a real array whose
// dimension size (and, for strings, elements) a broken Host got wrong. Disposes of everything,
// whatever the library made of the array.
class FuzzedArray {
public:
    // A numeric array of `typeCode` (1..8) with room for up to 64 elements. An array the library
    // fills (`output`) is never a handle without a block: only the Host resizes such handles,
    // and no Host hands them out.
    static FuzzedArray numeric(FuzzedBytes& in, int32_t typeCode, bool output);
    // An array of up to 8 strings, some of them missing or with broken lengths.
    static FuzzedArray strings(FuzzedBytes& in);
    ~FuzzedArray();
    FuzzedArray(const FuzzedArray&) = delete;
    FuzzedArray& operator=(const FuzzedArray&) = delete;

    // What the export is given.
    void** handle() { return shape_ == Shape::Null ? nullptr : shape_ == Shape::NoBlock ? &noBlock_ : real_; }

private:
    enum class Shape : uint8_t { Null, NoBlock, Real };
    FuzzedArray() = default;
    FuzzedArray(FuzzedArray&&) = default;
    void pickShape(FuzzedBytes& in, uint32_t capacity, bool output);

    Shape shape_ = Shape::Null;
    void** real_ = nullptr;    // the array the simulated Host made
    void* noBlock_ = nullptr;  // the block pointer of a handle without a block
    bool strings_ = false;
    // String elements: a handle without a block, and every string handle the Host made.
    void* elementWithoutBlock_ = nullptr;
    std::vector<void**> given_;
};

}  // namespace quorvane::fuzzing
