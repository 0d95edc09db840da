// The Host built without DSNewHandle plays a process that lacks it: the symbol must be absent.
#include <dlfcn.h>
#include <gtest/gtest.h>

TEST(HostWithoutNewHandle, LacksDSNewHandle) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr);
}
