// The Host variant whose process lacks DSNewHandle: the symbol is absent, everything else works.
#include <dlfcn.h>

#include "hostTestSupport.h"

namespace {

using hosttest::blockOf;
using hosttest::dimensionOf;
using hosttest::HostTest;

TEST_F(HostTest, DSNewHandleIsMissingFromTheProcess) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr);
}

TEST_F(HostTest, TheOtherHostFunctionsArePresent) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, "NumericArrayResize"), nullptr);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "RTSetCleanupProc"), nullptr);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "EDVR_CreateReference"), nullptr);
}

TEST_F(HostTest, HandleHelpersStillWork) {
    void** text = HostSim_NewString("abc", 3);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(dimensionOf(text), 3);
    EXPECT_STREQ(blockOf(text) + 4, "abc");
    HostSim_DisposeHandle(text);

    const char* names[] = {"one", "two"};
    void** array = HostSim_NewStringArray(names, 2);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(dimensionOf(array), 2);
    ASSERT_EQ(NumericArrayResize(8, 1, &array, 2), kHostNoError);
    HostSim_DisposeStringArray(array);
}

}  // namespace
