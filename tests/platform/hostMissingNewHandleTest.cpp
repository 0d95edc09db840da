// The Host variant whose process lacks DSNewHandle: the symbol is absent, everything else works.
#include <dlfcn.h>

#include "hostTestSupport.h"

namespace {

using hosttest::dimensionOf;
using hosttest::HostTest;

TEST_F(HostTest, OnlyDSNewHandleIsMissingAndTheHandleHelpersStillWork) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr);
    for (const char* name : {"NumericArrayResize", "RTSetCleanupProc", "EDVR_CreateReference"})
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;

    const char* names[] = {"one", "two"};
    void** array = HostSim_NewStringArray(names, 2);
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(NumericArrayResize(8, 1, &array, 3), kHostNoError);
    EXPECT_EQ(dimensionOf(array), 3);
    HostSim_DisposeStringArray(array);
}

}  // namespace
