// A size query answering a count beyond 32 bits, in a program of its own: the index buffer of
// such a count is 16 GiB, and the address sanitizer's poisoning of it on release costs seconds.
#include "resourceTestSupport.h"

extern "C" const char* __asan_default_options() {
    return "poison_heap=0";
}

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace quorvane::testing {
namespace {

using ResourceEnumeration = ResourceTest;

// The count's low 32 bits are 2: the array is resized to 2 elements, yet counted as empty.
TEST_F(ResourceEnumeration, CountBeyond32BitsIsAnInvalidArgumentWithAnEmptyArray) {
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
    GTEST_SKIP() << "the thread sanitizer would keep shadow memory for the whole 16 GiB block";
#endif
    scriptAnswer("BrennDll_GetSessionIndexes", -63080, {0x100000002ull});
    scriptAnswer("BrennDll_GetSessionIndexes", 0);
    void** array = hostStrings({"old0", "old1"});

    EXPECT_EQ(Quorvane_GetResources(0x42, array), -52005);

    EXPECT_EQ(dimensionOf(array), 0);
    EXPECT_EQ(HostSim_BlockSize(array), 8u + 2 * 8);
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
}

}  // namespace
}  // namespace quorvane::testing
