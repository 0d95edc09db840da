// The Host whose process lacks DSNewHandle: the symbol is absent, everything else is there.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "HostSim.h"

TEST(HostWithoutNewHandle, LacksOnlyDSNewHandle) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr);
    for (const char* name : {"NumericArrayResize", "RTSetCleanupProc", "EDVR_CreateReference"})
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    void** array = nullptr;
    ASSERT_EQ(NumericArrayResize(8, 1, &array, 3), kHostNoError);
    EXPECT_EQ(HostSim_BlockSize(array), 8u + 3 * 8);
    HostSim_DisposeHandle(array);
}
