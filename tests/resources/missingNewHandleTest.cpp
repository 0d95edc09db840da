// Enumeration in a Host process that lacks DSNewHandle: the missing function is reported, the
// array ends empty, and the gap is never called.
#include <dlfcn.h>

#include "Quorvane.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

class MissingNewHandle : public ResourceTest {};

// The missing function is an internal error after the resize, unless the filling call failed
// first.
TEST_F(MissingNewHandle, EnumerationReportsAnInternalErrorWithAnEmptyArray) {
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr) << "this process must lack DSNewHandle";
    const uint32_t session = openSessionWith({"one", "two"});
    for (int32_t fillAnswer : {0, -88}) {
        SCOPED_TRACE(fillAnswer);
        if (fillAnswer != 0) {
            scriptAnswer("BrennDll_GetSessionIndexes", -63080, {2});
            scriptAnswer("BrennDll_GetSessionIndexes", fillAnswer);
        }
        const char* const previous[] = {"old"};
        void** array = HostSim_NewStringArray(previous, 1);

        EXPECT_EQ(Quorvane_GetResources(session, array), fillAnswer != 0 ? fillAnswer : -52003);

        EXPECT_EQ(dimensionOf(array), 0);
        EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u) << "the resize is still made";
        EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
        disposeArray(array);
        HostSim_Reset();
    }
    expectNothingLeaked();
}

TEST_F(MissingNewHandle, AddingResourcesNeedsNoHostFunction) {
    const uint32_t session = openSessionWith({});
    void** array = HostSim_NewStringArray(std::vector<const char*>{"one"}.data(), 1);
    EXPECT_EQ(Quorvane_AddResources(session, array, nullptr, nullptr), 0);
    EXPECT_THAT(resourcesOf(session), ::testing::ElementsAre("one"));
    HostSim_DisposeStringArray(array);
    expectNothingLeaked();
}

}  // namespace
}  // namespace quorvane::testing
