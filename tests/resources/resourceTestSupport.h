// Shared by the resource tests: sessions on the simulated target holding known resources, and
// Host arrays of strings made from exact bytes and read back element by element.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "BrennDll.h"
#include "Quorvane.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {

using HostElement = std::optional<std::string>;  // nullopt for a null string handle

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

inline void setElement(void** array, size_t index, void** element) {
    std::memcpy(static_cast<char*>(*array) + 8 + 8 * index, &element, sizeof element);
}

// The elements below the dimension size, checking the layout of each string: length at byte 0,
// the characters, a NUL after them, and a block of exactly length + 5 bytes.
inline std::vector<HostElement> elementsOf(void** array) {
    std::vector<HostElement> elements;
    for (size_t i = 0; i < static_cast<size_t>(dimensionOf(array)); ++i) {
        void** element = elementHandle(array, i);
        if (element == nullptr) {
            elements.emplace_back(std::nullopt);
            continue;
        }
        const auto* block = static_cast<const char*>(*element);
        int32_t length = 0;
        std::memcpy(&length, block, sizeof length);
        EXPECT_EQ(HostSim_BlockSize(element), static_cast<size_t>(length) + 5) << "element " << i;
        EXPECT_EQ(block[4 + length], '\0') << "element " << i;
        elements.emplace_back(std::string(block + 4, static_cast<size_t>(length)));
    }
    return elements;
}

class ResourceTest : public SimulatedPlatformTest {
protected:
    // Disposes of every array made by hostStrings and of every live string handle it ever held.
    void TearDown() override {
        for (void** array : arrays_) {
            for (size_t i = 0; i < (HostSim_BlockSize(array) - 8) / 8; ++i) strings_.insert(elementHandle(array, i));
            HostSim_DisposeHandle(array);
        }
        for (void** string : strings_) {
            if (HostSim_BlockSize(string) != SIZE_MAX) HostSim_DisposeHandle(string);
        }
    }

    // A Host array of strings with exactly these bytes (embedded NULs included).
    void** hostStrings(const std::vector<std::string>& strings) {
        void** array = arrays_.emplace_back(HostSim_NewNumericArray(8, strings.size()));
        for (size_t i = 0; i < strings.size(); ++i) {
            setElement(array, i, *strings_.insert(HostSim_NewString(strings[i].data(), strings[i].size())).first);
        }
        return array;
    }

    // A session opened on the target directly, holding `names` as its resources.
    static uint32_t openSessionWith(const std::vector<std::string>& names) {
        uint32_t session = 0;
        EXPECT_EQ(BrennDll_Open("", "", "RIO0", 0, &session), 0);
        std::vector<const char*> pointers;
        for (const auto& name : names) pointers.push_back(name.c_str());
        EXPECT_EQ(BrennDll_AddResources(session, pointers.data(), nullptr, nullptr, pointers.size()), 0);
        return session;
    }

private:
    std::vector<void**> arrays_;
    std::set<void**> strings_;
};

}  // namespace quorvane::testing
