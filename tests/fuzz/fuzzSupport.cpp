#include "fuzzSupport.h"

#include "BrennSim.h"
#include "HostSim.h"
#include "quarks/memory.h"

namespace quorvane::fuzzing {

namespace {

void** elementAt(void** array, size_t index) {
    void** element;
    std::memcpy(&element, static_cast<uint8_t*>(*array) + 8 + 8 * index, sizeof element);
    return element;
}

void setElement(void** array, size_t index, void** element) {
    std::memcpy(static_cast<uint8_t*>(*array) + 8 + 8 * index, &element, sizeof element);
}

// A count as a broken Host may leave it: any negative number, or a positive one up to `most`.
void writeBrokenCount(void** handle, int32_t count, size_t most) {
    count = count < 0 ? count : static_cast<int32_t>(static_cast<uint32_t>(count) % (most + 1));
    std::memcpy(*handle, &count, sizeof count);
}

}  // namespace

void FuzzedArray::pickShape(FuzzedBytes& in, uint32_t capacity, bool output) {
    const uint8_t shape = in.take<uint8_t>() % 8;  // 0 null, 1 without a block, 4..7 a broken count
    handle_ = shape == 0 ? nullptr : shape == 1 && !output ? &noBlock_ : real_;
    const auto count = in.take<int32_t>();
    if (shape >= 4) writeBrokenCount(real_, count, capacity);
}

FuzzedArray::FuzzedArray(FuzzedBytes& in, int32_t typeCode, bool output) {
    const uint32_t capacity = in.below(65);
    real_ = HostSim_NewNumericArray(typeCode, capacity);
    pickShape(in, capacity, output);
}

FuzzedArray::FuzzedArray(FuzzedBytes& in) : strings_(true) {
    const uint32_t capacity = in.below(9);
    std::vector<std::string> names;
    std::vector<const char*> pointers;
    // The simulated Host makes strings from C strings: a name ends at its first NUL.
    for (uint32_t i = 0; i < capacity; ++i) names.push_back(in.characters(12).c_str());
    for (const std::string& name : names) pointers.push_back(name.c_str());
    real_ = HostSim_NewStringArray(pointers.data(), capacity);
    for (uint32_t i = 0; i < capacity; ++i) {
        given_.push_back(elementAt(real_, i));
        const uint8_t how = in.take<uint8_t>() % 6;  // 0 missing, 1 without a block, 2 a broken length
        if (how < 2) setElement(real_, i, how == 0 ? nullptr : &elementWithoutBlock_);
        if (how == 2) writeBrokenCount(given_.back(), in.take<int32_t>(), names[i].size());
    }
    pickShape(in, capacity, false);
}

FuzzedArray::~FuzzedArray() {
    if (strings_) {
        // The library may have resized the array and stored strings of its own over the ones
        // given: every string handle, given or made, is disposed of once.
        for (size_t i = 0; i < (HostSim_BlockSize(real_) - 8) / 8; ++i) given_.push_back(elementAt(real_, i));
        std::sort(given_.begin(), given_.end());
        given_.erase(std::unique(given_.begin(), given_.end()), given_.end());
        for (void** string : given_) {
            if (string != nullptr && string != &elementWithoutBlock_) HostSim_DisposeHandle(string);
        }
    }
    HostSim_DisposeHandle(real_);
}

FuzzSession::FuzzSession() : libraryBlocks_(heap::liveBlocks()), hostHandles_(HostSim_LiveHandleCount()) {
    BrennSim_EnableLog(0);  // the log would grow with every input
    require(Quorvane_Open("", "", "RIO0", 0, &handle) == 0, "the default target opens");
}

FuzzSession::~FuzzSession() {
    require(Quorvane_Close(handle, 0) == 0, "the session closes");
    require(BrennSim_OpenSessionCount() == 0, "no session is left open on the target");
    require(HostSim_LiveHandleCount() == hostHandles_, "every Host handle made for the input is disposed of");
    require(HostSim_LiveReferenceCount() == 0, "no Host reference is left");
    require(heap::liveBlocks() == libraryBlocks_, "the library gave back every block it took");
}

}  // namespace quorvane::fuzzing
