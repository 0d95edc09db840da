#include "hostData.h"

#include <algorithm>
#include <cstring>

#include "HostSim.h"

namespace quorvane::fuzzing {

namespace {

constexpr uint32_t kMostElements = 64;
constexpr uint32_t kMostStrings = 8;

void** elementAt(void** array, size_t index) {
    void** element;
    std::memcpy(&element, static_cast<uint8_t*>(*array) + 8 + 8 * index, sizeof element);
    return element;
}

void setElement(void** array, size_t index, void** element) {
    std::memcpy(static_cast<uint8_t*>(*array) + 8 + 8 * index, &element, sizeof element);
}

void writeCount(void** handle, int32_t count) {
    std::memcpy(*handle, &count, sizeof count);
}

}  // namespace

// A dimension size as a broken Host may leave it: any negative number, or a positive one no
// larger than what the block holds.
void FuzzedArray::pickShape(FuzzedBytes& in, uint32_t capacity, bool output) {
    const uint8_t shape = in.take<uint8_t>() % 8;
    shape_ = shape == 0 ? Shape::Null : shape == 1 && !output ? Shape::NoBlock : Shape::Real;
    const auto count = in.take<int32_t>();
    if (shape >= 4)
        writeCount(real_, count < 0 ? count : static_cast<int32_t>(static_cast<uint32_t>(count) % (capacity + 1)));
}

FuzzedArray FuzzedArray::numeric(FuzzedBytes& in, int32_t typeCode, bool output) {
    FuzzedArray array;
    const uint32_t capacity = in.below(kMostElements + 1);
    array.real_ = HostSim_NewNumericArray(typeCode, capacity);
    array.pickShape(in, capacity, output);
    return array;
}

FuzzedArray FuzzedArray::strings(FuzzedBytes& in) {
    FuzzedArray array;
    array.strings_ = true;
    const uint32_t capacity = in.below(kMostStrings + 1);
    std::vector<std::string> names;
    std::vector<const char*> pointers;
    // The simulated Host makes strings from C strings: a name ends at its first NUL.
    for (uint32_t i = 0; i < capacity; ++i) names.push_back(in.characters(12).c_str());
    for (const std::string& name : names) pointers.push_back(name.c_str());
    array.real_ = HostSim_NewStringArray(pointers.data(), capacity);
    for (uint32_t i = 0; i < capacity; ++i) {
        // Each string: as made, missing, without a block, or with a length that is negative or
        // shorter than its characters.
        switch (in.take<uint8_t>() % 6) {
            case 0:
                array.given_.push_back(elementAt(array.real_, i));
                setElement(array.real_, i, nullptr);
                break;
            case 1:
                array.given_.push_back(elementAt(array.real_, i));
                setElement(array.real_, i, &array.elementWithoutBlock_);
                break;
            case 2: {
                const auto length = in.take<int32_t>();
                writeCount(
                    elementAt(array.real_, i),
                    length < 0 ? length : static_cast<int32_t>(static_cast<uint32_t>(length) % (names[i].size() + 1)));
                break;
            }
            default:
                break;
        }
    }
    for (uint32_t i = 0; i < capacity; ++i) array.given_.push_back(elementAt(array.real_, i));
    array.pickShape(in, capacity, false);
    return array;
}

FuzzedArray::~FuzzedArray() {
    if (strings_) {
        // The library may have resized the array and stored strings of its own over the ones
        // given (a Host that hands over a filled array loses track of those): every string
        // handle, given or made, is disposed of once; the handle without a block is ours.
        const size_t capacity = (HostSim_BlockSize(real_) - 8) / 8;
        std::vector<void**> strings = given_;
        for (size_t i = 0; i < capacity; ++i) strings.push_back(elementAt(real_, i));
        std::sort(strings.begin(), strings.end());
        strings.erase(std::unique(strings.begin(), strings.end()), strings.end());
        for (void** string : strings) {
            if (string != nullptr && string != &elementWithoutBlock_) HostSim_DisposeHandle(string);
        }
    }
    HostSim_DisposeHandle(real_);
}

}  // namespace quorvane::fuzzing
