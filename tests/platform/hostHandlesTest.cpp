// Handles and blocks of the simulated Host: NumericArrayResize, DSNewHandle, string helpers.
#include <dlfcn.h>

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

class ArrayLayoutTest : public HostTest, public ::testing::WithParamInterface<TypeLayout> {};

// A byte pattern per element index, so that a copy to the wrong place shows.
uint8_t patternByte(size_t element, size_t byte) {
    return static_cast<uint8_t>(0x11 * (element + 1) + byte);
}

void fillElements(void** handle, const TypeLayout& layout, size_t count) {
    for (size_t i = 0; i < count; ++i)
        for (size_t b = 0; b < layout.elementSize; ++b)
            blockOf(handle)[layout.firstElement + i * layout.elementSize + b] = static_cast<char>(patternByte(i, b));
}

bool elementsHold(void** handle, const TypeLayout& layout, size_t count) {
    for (size_t i = 0; i < count; ++i)
        for (size_t b = 0; b < layout.elementSize; ++b)
            if (static_cast<uint8_t>(blockOf(handle)[layout.firstElement + i * layout.elementSize + b]) !=
                patternByte(i, b))
                return false;
    return true;
}

TEST_P(ArrayLayoutTest, ResizeFromNullMakesAnExactlySizedZeroFilledArray) {
    const TypeLayout layout = GetParam();
    void** handle = nullptr;
    ASSERT_EQ(NumericArrayResize(layout.typeCode, 1, &handle, 5), kHostNoError);
    ASSERT_NE(handle, nullptr);
    ASSERT_NE(*handle, nullptr);
    EXPECT_EQ(HostSim_BlockSize(handle), layout.firstElement + 5 * layout.elementSize);
    EXPECT_EQ(dimensionOf(handle), 5);
    for (size_t i = layout.firstElement; i < HostSim_BlockSize(handle); ++i) EXPECT_EQ(blockOf(handle)[i], 0) << i;
    HostSim_DisposeHandle(handle);
}

TEST_P(ArrayLayoutTest, ResizeKeepsTheHandleMovesTheBlockAndKeepsTheElements) {
    const TypeLayout layout = GetParam();
    void** const original = HostSim_NewNumericArray(layout.typeCode, 3);
    ASSERT_NE(original, nullptr);
    fillElements(original, layout, 3);
    void** copy = original;  // what a callee receives by value
    const void* oldBlock = *original;

    ASSERT_EQ(NumericArrayResize(layout.typeCode, 1, &copy, 7), kHostNoError);
    EXPECT_EQ(copy, original);
    EXPECT_NE(*original, oldBlock);
    EXPECT_EQ(dimensionOf(original), 7);
    EXPECT_EQ(HostSim_BlockSize(original), layout.firstElement + 7 * layout.elementSize);
    EXPECT_TRUE(elementsHold(original, layout, 3));
    for (size_t i = layout.firstElement + 3 * layout.elementSize; i < HostSim_BlockSize(original); ++i)
        EXPECT_EQ(blockOf(original)[i], 0) << i;

    const void* grownBlock = *original;
    ASSERT_EQ(NumericArrayResize(layout.typeCode, 1, &copy, 2), kHostNoError);
    EXPECT_NE(*original, grownBlock);
    EXPECT_EQ(dimensionOf(original), 2);
    EXPECT_EQ(HostSim_BlockSize(original), layout.firstElement + 2 * layout.elementSize);
    EXPECT_TRUE(elementsHold(original, layout, 2));
    HostSim_DisposeHandle(original);
}

TEST_P(ArrayLayoutTest, NewNumericArrayPutsTheFirstElementAfterTheHeader) {
    const TypeLayout layout = GetParam();
    void** handle = HostSim_NewNumericArray(layout.typeCode, 4);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(dimensionOf(handle), 4);
    EXPECT_EQ(HostSim_BlockSize(handle), layout.firstElement + 4 * layout.elementSize);
    HostSim_DisposeHandle(handle);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, ArrayLayoutTest, ::testing::ValuesIn(kLayouts),
                         [](const auto& info) { return "type" + std::to_string(info.param.typeCode); });

TEST_F(HostTest, ResizeToTheSameCountStillMovesTheBlock) {
    void** handle = HostSim_NewNumericArray(3, 4);
    const void* oldBlock = *handle;
    ASSERT_EQ(NumericArrayResize(3, 1, &handle, 4), kHostNoError);
    EXPECT_NE(*handle, oldBlock);
    HostSim_DisposeHandle(handle);
}

TEST_F(HostTest, ResizeToZeroLeavesOnlyTheHeader) {
    void** handle = HostSim_NewNumericArray(8, 3);
    ASSERT_EQ(NumericArrayResize(8, 1, &handle, 0), kHostNoError);
    EXPECT_EQ(dimensionOf(handle), 0);
    EXPECT_EQ(HostSim_BlockSize(handle), 8u);
    HostSim_DisposeHandle(handle);
}

class BadResizeTest : public HostTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(BadResizeTest, UnknownTypeCodeAnswersAHostErrorAndTouchesNothing) {
    void** fresh = nullptr;
    EXPECT_EQ(NumericArrayResize(GetParam(), 1, &fresh, 3), 1);
    EXPECT_EQ(fresh, nullptr);

    void** existing = HostSim_NewNumericArray(3, 2);
    const void* block = *existing;
    const size_t live = HostSim_LiveHandleCount();
    EXPECT_EQ(NumericArrayResize(GetParam(), 1, &existing, 9), 1);
    EXPECT_EQ(*existing, block);
    EXPECT_EQ(dimensionOf(existing), 2);
    EXPECT_EQ(HostSim_BlockSize(existing), 4u + 2 * 4);
    EXPECT_EQ(HostSim_LiveHandleCount(), live);
    HostSim_DisposeHandle(existing);
}

INSTANTIATE_TEST_SUITE_P(OutOfRange, BadResizeTest, ::testing::Values(0, 9, -1, 100, INT32_MIN));

TEST_F(HostTest, ResizeOfMoreThanOneDimensionAnswersAHostError) {
    void** handle = nullptr;
    EXPECT_EQ(NumericArrayResize(3, 2, &handle, 3), 1);
    EXPECT_EQ(NumericArrayResize(3, 0, &handle, 3), 1);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(HostTest, ResizeBeyondTheDimensionFieldAnswersOutOfMemory) {
    void** handle = HostSim_NewNumericArray(1, 1);
    const void* block = *handle;
    EXPECT_EQ(NumericArrayResize(1, 1, &handle, static_cast<size_t>(INT32_MAX) + 1), kHostOutOfMemory);
    EXPECT_EQ(NumericArrayResize(8, 1, &handle, SIZE_MAX / 4), kHostOutOfMemory);
    EXPECT_EQ(*handle, block);
    EXPECT_EQ(dimensionOf(handle), 1);
    HostSim_DisposeHandle(handle);
}

class InjectedResizeTest : public HostTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(InjectedResizeTest, InjectedAnswerIsGivenOnceAndNothingChanges) {
    void** handle = HostSim_NewNumericArray(7, 2);
    const void* block = *handle;
    HostSim_FailNext("NumericArrayResize", GetParam());
    EXPECT_EQ(NumericArrayResize(7, 1, &handle, 10), GetParam());
    EXPECT_EQ(*handle, block);
    EXPECT_EQ(HostSim_BlockSize(handle), 4u + 2 * 4);

    void** fresh = nullptr;
    HostSim_FailNext("NumericArrayResize", GetParam());
    EXPECT_EQ(NumericArrayResize(7, 1, &fresh, 10), GetParam());
    EXPECT_EQ(fresh, nullptr);

    EXPECT_EQ(NumericArrayResize(7, 1, &handle, 10), kHostNoError);
    EXPECT_EQ(dimensionOf(handle), 10);
    HostSim_DisposeHandle(handle);
}

INSTANTIATE_TEST_SUITE_P(HostAnswers, InjectedResizeTest, ::testing::Values(kHostOutOfMemory, kHostCallAborted, 7, -3));

TEST_F(HostTest, InjectedAnswersQueueInOrder) {
    void** handle = nullptr;
    HostSim_FailNext("NumericArrayResize", kHostOutOfMemory);
    HostSim_FailNext("NumericArrayResize", kHostCallAborted);
    EXPECT_EQ(NumericArrayResize(1, 1, &handle, 1), kHostOutOfMemory);
    EXPECT_EQ(NumericArrayResize(1, 1, &handle, 1), kHostCallAborted);
    EXPECT_EQ(NumericArrayResize(1, 1, &handle, 1), kHostNoError);
    HostSim_DisposeHandle(handle);
}

TEST_F(HostTest, ResetForgetsInjectionsAndCounters) {
    HostSim_FailNext("NumericArrayResize", kHostOutOfMemory);
    void** handle = nullptr;
    EXPECT_EQ(NumericArrayResize(6, 1, &handle, 1), kHostOutOfMemory);
    HostSim_FailNext("NumericArrayResize", kHostOutOfMemory);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 6);

    HostSim_Reset();
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 0u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), -1);
    EXPECT_EQ(NumericArrayResize(6, 1, &handle, 1), kHostNoError);
    HostSim_DisposeHandle(handle);
}

TEST_F(HostTest, CountsCallsAndRemembersTheLastTypeCode) {
    void** handle = nullptr;
    ASSERT_EQ(NumericArrayResize(4, 1, &handle, 1), kHostNoError);
    ASSERT_EQ(NumericArrayResize(2, 1, &handle, 1), kHostNoError);
    EXPECT_EQ(NumericArrayResize(42, 1, &handle, 1), 1);  // refused calls count too
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 3u);
    EXPECT_EQ(HostSim_LastResizeTypeCode(), 42);
    EXPECT_EQ(HostSim_CallCount("NoSuchFunction"), 0u);
    HostSim_DisposeHandle(handle);
}

TEST_F(HostTest, DSNewHandleMakesAnExactlySizedBlock) {
    void** handle = DSNewHandle(13);
    ASSERT_NE(handle, nullptr);
    ASSERT_NE(*handle, nullptr);
    EXPECT_EQ(HostSim_BlockSize(handle), 13u);
    EXPECT_EQ(HostSim_CallCount("DSNewHandle"), 1u);
    HostSim_DisposeHandle(handle);
}

TEST_F(HostTest, DSNewHandleInjectionsGiveNullHandleOrNullBlock) {
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

    void** normal = DSNewHandle(8);
    ASSERT_NE(normal, nullptr);
    EXPECT_NE(*normal, nullptr);
    HostSim_DisposeHandle(normal);
}

TEST_F(HostTest, DSNewHandleIsVisibleToDlsym) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "NumericArrayResize"), nullptr);
}

TEST_F(HostTest, BlockSizeOfAnUnknownHandleIsSizeMax) {
    void* block = nullptr;
    EXPECT_EQ(HostSim_BlockSize(&block), SIZE_MAX);
}

TEST_F(HostTest, NewStringHoldsLengthCharactersAndNul) {
    void** handle = HostSim_NewString("trigger", 7);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(HostSim_BlockSize(handle), 12u);
    EXPECT_EQ(dimensionOf(handle), 7);
    EXPECT_STREQ(blockOf(handle) + 4, "trigger");
    HostSim_DisposeHandle(handle);

    void** empty = HostSim_NewString(nullptr, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(HostSim_BlockSize(empty), 5u);
    EXPECT_EQ(dimensionOf(empty), 0);
    EXPECT_EQ(blockOf(empty)[4], '\0');
    HostSim_DisposeHandle(empty);
}

TEST_F(HostTest, StringArrayHoldsOneStringHandlePerEntryAndIsDisposedWhole) {
    const size_t live = HostSim_LiveHandleCount();
    const char* names[] = {"RIO0", nullptr, "PXI1Slot2"};
    void** array = HostSim_NewStringArray(names, 3);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(HostSim_LiveHandleCount(), live + 3);  // the array and two strings
    EXPECT_EQ(dimensionOf(array), 3);
    EXPECT_EQ(HostSim_BlockSize(array), 8u + 3 * 8);
    auto** first = readAt<void**>(*array, 8);
    auto** second = readAt<void**>(*array, 16);
    auto** third = readAt<void**>(*array, 24);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    ASSERT_NE(third, nullptr);
    EXPECT_STREQ(blockOf(first) + 4, "RIO0");
    EXPECT_EQ(dimensionOf(third), 9);
    EXPECT_STREQ(blockOf(third) + 4, "PXI1Slot2");
    HostSim_DisposeStringArray(array);
    EXPECT_EQ(HostSim_LiveHandleCount(), live);
}

TEST_F(HostTest, StringArrayGrownByResizeHoldsStoredHandles) {
    void** array = HostSim_NewStringArray(nullptr, 0);
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(NumericArrayResize(8, 1, &array, 2), kHostNoError);
    writeAt(*array, 8, HostSim_NewString("a", 1));
    writeAt(*array, 16, HostSim_NewString("bc", 2));
    EXPECT_EQ(dimensionOf(array), 2);
    HostSim_DisposeStringArray(array);  // the fixture checks that all three went
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
