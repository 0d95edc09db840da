// A Host process without DSNewHandle: the table says so once, and never calls the gap.
#include <gmock/gmock.h>

#include <dlfcn.h>

#include "MoskSrv/_MoskHostDefs.h"
#include "MoskSrv/tNoReallyCallIntoHostCallbacks.h"
#include "support/simulatedPlatform.h"

namespace quorvane::testing {
namespace {

TEST(MissingHostFunction, TableReportsItAndNeitherOperationCallsIt) {
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr) << "this process must lack DSNewHandle";
    HostSim_Reset();
    tStatus status;
    tNoReallyCallIntoHostCallbacks table(status);
    EXPECT_EQ(status.code, -52003);
    EXPECT_STREQ(status.file, "tNoReallyCallIntoHostCallbacks");
    EXPECT_EQ(status.line, 25u);
    EXPECT_FALSE(table.hasDSNewHandle());
    EXPECT_TRUE(table.hasNumericArrayResize());

    void** array = HostSim_NewStringArray(nullptr, 0);
    ResizeHostStringArray(table, &array, 2, status);
    EXPECT_EQ(readHostCount(array), 0) << "the earlier error leaves zero elements";
    StoreHostString(table, {"x", 1}, &array, 0, status);  // must not reach the missing entry
    EXPECT_EQ(status.code, -52003) << "the first error stays";
    HostSim_DisposeStringArray(array);
}

}  // namespace
}  // namespace quorvane::testing
