// Handles and blocks of the simulated Host: NumericArrayResize, DSNewHandle, string helpers.
#include <dlfcn.h>

#include <algorithm>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "hostTestSupport.h"

namespace {

using hosttest::blockOf;
using hosttest::dimensionOf;
using hosttest::HostTest;
using hosttest::readAt;
using hosttest::writeAt;

struct TypeLayout {
    int32_t typeCode;
    size_t elementSize;
    size_t firstElement;
};

const TypeLayout kLayouts[] = {{1, 1, 4}, {2, 2, 4}, {3, 4, 4}, {4, 8, 8}, {5, 1, 4}, {6, 2, 4}, {7, 4, 4}, {8, 8, 8}};

class ArrayLayoutTest : public HostTest, public ::testing::WithParamInterface<TypeLayout> {
protected:
    size_t sizeFor(size_t count) const { return GetParam().firstElement + count * GetParam().elementSize; }
    // A byte pattern per element index, so that a copy to the wrong place shows.
    char* byteAt(void** handle, size_t element, size_t byte) const {
        return blockOf(handle) + GetParam().firstElement + element * GetParam().elementSize + byte;
    }
    static char pattern(size_t element, size_t byte) { return static_cast<char>(0x11 * (element + 1) + byte); }
    void fill(void** handle, size_t count) const {
        for (size_t i = 0; i < count; ++i)
            for (size_t b = 0; b < GetParam().elementSize; ++b) *byteAt(handle, i, b) = pattern(i, b);
    }
    void expectFilled(void** handle, size_t count) const {
        for (size_t i = 0; i < count; ++i)
            for (size_t b = 0; b < GetParam().elementSize; ++b) EXPECT_EQ(*byteAt(handle, i, b), pattern(i, b));
    }
    void expectZeroFrom(void** handle, size_t element) const {
        for (size_t i = sizeFor(element); i < HostSim_BlockSize(handle); ++i) EXPECT_EQ(blockOf(handle)[i], 0) << i;
    }
};

// A resize always moves the block, keeps the handle a callee got by value, keeps the elements
// that still fit and zero-fills the new ones.
TEST_P(ArrayLayoutTest, ResizeMakesExactlySizedArraysAndKeepsTheElements) {
    const int32_t type = GetParam().typeCode;
    void** handle = nullptr;
    ASSERT_EQ(NumericArrayResize(type, 1, &handle, 3), kHostNoError);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(HostSim_BlockSize(handle), sizeFor(3));
    expectZeroFrom(handle, 0);
    fill(handle, 3);

    for (size_t count : {7u, 7u, 2u, 0u}) {
        SCOPED_TRACE(count);
        void** copy = handle;
        const void* oldBlock = *handle;
        ASSERT_EQ(NumericArrayResize(type, 1, &copy, count), kHostNoError);
        EXPECT_EQ(copy, handle);
        EXPECT_NE(*handle, oldBlock);
        EXPECT_EQ(dimensionOf(handle), static_cast<int32_t>(count));
        EXPECT_EQ(HostSim_BlockSize(handle), sizeFor(count));
        expectFilled(handle, std::min<size_t>(count, 3));
        expectZeroFrom(handle, 3);
    }
    HostSim_DisposeHandle(handle);

    void** made = HostSim_NewNumericArray(type, 4);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(dimensionOf(made), 4);
    EXPECT_EQ(HostSim_BlockSize(made), sizeFor(4));
    HostSim_DisposeHandle(made);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, ArrayLayoutTest, ::testing::ValuesIn(kLayouts),
                         [](const auto& info) { return "type" + std::to_string(info.param.typeCode); });

void expectUnchanged(void** handle, const void* block, int32_t dimension, size_t size) {
    EXPECT_EQ(*handle, block);
    EXPECT_EQ(dimensionOf(handle), dimension);
    EXPECT_EQ(HostSim_BlockSize(handle), size);
}

class BadTypeCodeTest : public HostTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(BadTypeCodeTest, AnswersAHostErrorAndTouchesNothing) {
    void** fresh = nullptr;
    EXPECT_EQ(NumericArrayResize(GetParam(), 1, &fresh, 3), 1);
    EXPECT_EQ(fresh, nullptr);
    void** existing = HostSim_NewNumericArray(3, 2);
    const size_t live = HostSim_LiveHandleCount();
    const void* block = *existing;
    EXPECT_EQ(NumericArrayResize(GetParam(), 1, &existing, 9), 1);
    expectUnchanged(existing, block, 2, 4u + 2 * 4);
    EXPECT_EQ(HostSim_LiveHandleCount(), live);
    HostSim_DisposeHandle(existing);
}

INSTANTIATE_TEST_SUITE_P(OutOfRange, BadTypeCodeTest, ::testing::Values(0, 9, -1, 100, INT32_MIN));

TEST_F(HostTest, ResizeRefusesOtherDimensionsAndCountsBeyondTheDimensionField) {
    void** none = nullptr;
    EXPECT_EQ(NumericArrayResize(3, 2, &none, 3), 1);
    EXPECT_EQ(NumericArrayResize(3, 0, &none, 3), 1);
    EXPECT_EQ(none, nullptr);

    void** handle = HostSim_NewNumericArray(1, 1);
    const void* block = *handle;
    EXPECT_EQ(NumericArrayResize(1, 1, &handle, static_cast<size_t>(INT32_MAX) + 1), kHostOutOfMemory);
    EXPECT_EQ(NumericArrayResize(8, 1, &handle, SIZE_MAX / 4), kHostOutOfMemory);
    expectUnchanged(handle, block, 1, 5);
    HostSim_DisposeHandle(handle);
}

class InjectedResizeTest : public HostTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(InjectedResizeTest, InjectedAnswerIsGivenOnceAndNothingChanges) {
    void** handle = HostSim_NewNumericArray(7, 2);
    const void* block = *handle;
    void** fresh = nullptr;
    HostSim_FailNext("NumericArrayResize", GetParam());
    HostSim_FailNext("NumericArrayResize", 43);
    EXPECT_EQ(NumericArrayResize(7, 1, &handle, 10), GetParam());
    expectUnchanged(handle, block, 2, 4u + 2 * 4);
    EXPECT_EQ(NumericArrayResize(7, 1, &fresh, 10), 43) << "queued in order";
    EXPECT_EQ(fresh, nullptr);
    EXPECT_EQ(NumericArrayResize(7, 1, &handle, 10), kHostNoError);
    EXPECT_EQ(dimensionOf(handle), 10);
    HostSim_DisposeHandle(handle);
}

INSTANTIATE_TEST_SUITE_P(HostAnswers, InjectedResizeTest, ::testing::Values(kHostOutOfMemory, kHostCallAborted, 7, -3));

TEST_F(HostTest, CallsAreCountedAndResetForgetsCountsAndInjections) {
    void** handle = nullptr;
    EXPECT_EQ(NumericArrayResize(4, 1, &handle, 1), kHostNoError);
    EXPECT_EQ(NumericArrayResize(42, 1, &handle, 1), 1);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 2u) << "refused calls count too";
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 42);
    EXPECT_EQ(HostSim_CallCount("NoSuchFunction"), 0u);

    HostSim_FailNext("NumericArrayResize", kHostOutOfMemory);
    HostSim_Reset();
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), -1);
    EXPECT_EQ(NumericArrayResize(6, 1, &handle, 1), kHostNoError);
    HostSim_DisposeHandle(handle);
}

TEST_F(HostTest, DSNewHandleMakesExactBlocksOrInjectedNullHandlesAndBlocks) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr);
    void* unknown = nullptr;
    EXPECT_EQ(HostSim_BlockSize(&unknown), SIZE_MAX);

    HostSim_FailNext("DSNewHandle", 0);
    HostSim_FailNext("DSNewHandle", kHostOutOfMemory);
    EXPECT_EQ(DSNewHandle(8), nullptr);
    const size_t live = HostSim_LiveHandleCount();
    void** blockless = DSNewHandle(8);
    ASSERT_NE(blockless, nullptr);
    EXPECT_EQ(*blockless, nullptr);
    EXPECT_EQ(HostSim_BlockSize(blockless), 0u);
    EXPECT_EQ(HostSim_LiveHandleCount(), live + 1);
    HostSim_DisposeHandle(blockless);

    void** normal = DSNewHandle(13);
    ASSERT_NE(normal, nullptr);
    ASSERT_NE(*normal, nullptr);
    EXPECT_EQ(HostSim_BlockSize(normal), 13u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 3u);
    HostSim_DisposeHandle(normal);
}

void expectString(void** handle, const char* text, int32_t length) {
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(HostSim_BlockSize(handle), 4u + static_cast<size_t>(length) + 1);
    EXPECT_EQ(dimensionOf(handle), length);
    EXPECT_STREQ(blockOf(handle) + 4, text);
}

TEST_F(HostTest, StringsAndStringArraysHoldTheirEntriesAndAreDisposedWhole) {
    void** empty = HostSim_NewString(nullptr, 0);
    expectString(empty, "", 0);
    HostSim_DisposeHandle(empty);

    const size_t live = HostSim_LiveHandleCount();
    const char* names[] = {"RIO0", nullptr, "PXI1Slot2"};
    void** array = HostSim_NewStringArray(names, 3);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(HostSim_LiveHandleCount(), live + 3);
    EXPECT_EQ(dimensionOf(array), 3);
    EXPECT_EQ(HostSim_BlockSize(array), 8u + 3 * 8);
    expectString(readAt<void**>(*array, 8), "RIO0", 4);
    EXPECT_EQ(readAt<void**>(*array, 16), nullptr);
    expectString(readAt<void**>(*array, 24), "PXI1Slot2", 9);
    HostSim_DisposeStringArray(array);
    EXPECT_EQ(HostSim_LiveHandleCount(), live);

    // An array grown by resize holds handles stored afterwards; the fixture checks all go.
    void** grown = HostSim_NewStringArray(nullptr, 0);
    ASSERT_EQ(NumericArrayResize(8, 1, &grown, 2), kHostNoError);
    writeAt(*grown, 8, HostSim_NewString("a", 1));
    writeAt(*grown, 16, HostSim_NewString("bc", 2));
    HostSim_DisposeStringArray(grown);
}

TEST_F(HostTest, ConcurrentResizesOfDistinctAndSharedHandlesStayConsistent) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    void** shared = HostSim_NewNumericArray(5, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([shared, t] {
            void** own = nullptr;
            for (int r = 1; r <= kRounds; ++r) {
                void** copy = shared;
                EXPECT_EQ(NumericArrayResize(5, 1, &copy, static_cast<size_t>(r % 17)), kHostNoError);
                EXPECT_EQ(NumericArrayResize(3, 1, &own, static_cast<size_t>(r + t)), kHostNoError);
            }
            EXPECT_EQ(dimensionOf(own), kRounds + t);
            HostSim_DisposeHandle(own);
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 2u * kThreads * kRounds);
    EXPECT_EQ(HostSim_BlockSize(shared), 4u + static_cast<size_t>(dimensionOf(shared)));
    HostSim_DisposeHandle(shared);
}

}  // namespace
