// Helpers shared by the resource tests: sessions on the simulated target with known resource
// names, and readers for the Host's arrays of strings.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "Quorvane/sessionRegistry.h"
#include "quarks/memory.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {

// One element of a Host array of strings as the Host sees it: nullopt for a null handle.
using HostElement = std::optional<std::string>;

inline int32_t dimensionOf(void** array) {
    int32_t dimension = 0;
    std::memcpy(&dimension, *array, sizeof dimension);
    return dimension;
}

inline void** elementHandle(void** array, size_t index) {
    void** element = nullptr;
    std::memcpy(&element, static_cast<const char*>(*array) + 8 + 8 * index, sizeof element);
    return element;
}

// How many element slots the array's block has room for, whatever its dimension size says.
inline size_t capacityOf(void** array) {
    const size_t blockSize = HostSim_BlockSize(array);
    return blockSize < 8 ? 0 : (blockSize - 8) / 8;
}

// Reads `count` elements and checks the layout of every string the library made: length at
// byte 0, the characters, a NUL after them, and a block of exactly length + 5 bytes.
inline std::vector<HostElement> elementsOf(void** array, size_t count) {
    std::vector<HostElement> elements;
    for (size_t i = 0; i < count; ++i) {
        void** element = elementHandle(array, i);
        if (element == nullptr) {
            elements.emplace_back(std::nullopt);
            continue;
        }
        const auto* block = static_cast<const char*>(*element);
        int32_t length = -1;
        std::memcpy(&length, block, sizeof length);
        EXPECT_GE(length, 0) << "element " << i;
        if (length < 0) length = 0;
        EXPECT_EQ(HostSim_BlockSize(element), static_cast<size_t>(length) + 5) << "element " << i;
        EXPECT_EQ(block[4 + length], '\0') << "element " << i;
        elements.emplace_back(std::string(block + 4, static_cast<size_t>(length)));
    }
    return elements;
}

inline std::vector<HostElement> named(const std::vector<std::string>& names) {
    return {names.begin(), names.end()};
}

// Disposes every string handle in the block, below the dimension size or not, and the array.
inline void disposeArray(void** array) {
    for (size_t i = 0; i < capacityOf(array); ++i) {
        void** element = elementHandle(array, i);
        if (element != nullptr) HostSim_DisposeHandle(element);
    }
    HostSim_DisposeHandle(array);
}

// A fresh target and Host, a session holding `names` as its resources, and the counters a test
// compares with at its end.
class ResourceTest : public SimulatedPlatformTest {
protected:
    void SetUp() override {
        SimulatedPlatformTest::SetUp();
        handlesAtStart_ = HostSim_LiveHandleCount();
        blocksAtStart_ = heap::liveBlocks();
        readersAtStart_ = readersCounted();
    }
    void TearDown() override { stopFailingAllocations(); }

    static uint32_t openSessionWith(const std::vector<std::string>& names) {
        uint32_t session = 0;
        EXPECT_EQ(BrennDll_Open("", "", "RIO0", 0, &session), 0);
        std::vector<const char*> pointers;
        for (const auto& name : names) pointers.push_back(name.c_str());
        EXPECT_EQ(BrennDll_AddResources(session, pointers.data(), nullptr, nullptr, pointers.size()), 0);
        return session;
    }

    // The session's resources as the FPGA interface library lists them.
    static std::vector<std::string> resourcesOf(uint32_t session) {
        size_t count = 0;
        BrennDll_GetSessionIndexes(session, nullptr, 0, &count);
        std::vector<uint32_t> indexes(count);
        EXPECT_EQ(BrennDll_GetSessionIndexes(session, indexes.data(), count, nullptr), 0);
        std::vector<std::string> names;
        for (uint32_t index : indexes) {
            const char* name = nullptr;
            EXPECT_EQ(BrennDll_GetResourceName(index, &name), 0);
            names.emplace_back(name == nullptr ? "<null>" : name);
        }
        return names;
    }

    void expectNothingLeaked() const {
        EXPECT_EQ(heap::liveBlocks(), blocksAtStart_) << "library heap blocks";
        EXPECT_EQ(HostSim_LiveHandleCount(), handlesAtStart_) << "Host handles";
        EXPECT_EQ(readersCounted(), readersAtStart_) << "registry lock still held";
    }

    static int32_t readersCounted() { return gRegistryLock.readerCountForTesting(); }

    size_t handlesAtStart_ = 0;
    int32_t readersAtStart_ = 0;
    uint64_t blocksAtStart_ = 0;
};

}  // namespace quorvane::testing
