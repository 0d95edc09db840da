// Enumeration in a Host process that lacks DSNewHandle: the missing function is reported, the
// array ends empty, and the gap is never called.
#include <dlfcn.h>

#include "Quorvane.h"
#include "resourceTestSupport.h"

namespace quorvane::testing {
namespace {

class MissingNewHandle : public ResourceTest {};

TEST_F(MissingNewHandle, EnumerationReportsAnInternalErrorWithAnEmptyArray) {
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "DSNewHandle"), nullptr) << "this process must lack DSNewHandle";
    const uint32_t session = openSessionWith({"one", "two"});
    const char* const previous[] = {"old"};
    void** array = HostSim_NewStringArray(previous, 1);

    EXPECT_EQ(Quorvane_GetResources(session, array), -52003);

    EXPECT_EQ(dimensionOf(array), 0);
    EXPECT_EQ(HostSim_CallCount("NumericArrayResize"), 1u) << "the resize is still made";
    EXPECT_EQ(BrennSim_CountCalls("BrennDll_GetResourceName"), 0u);
    disposeArray(array);
    expectNothingLeaked();
}

TEST_F(MissingNewHandle, EarlierErrorOfTheFillingCallStaysFirst) {
    scriptAnswer("BrennDll_GetSessionIndexes", -63080, {2});
    scriptAnswer("BrennDll_GetSessionIndexes", -88);
    void** array = HostSim_NewStringArray(nullptr, 0);

    EXPECT_EQ(Quorvane_GetResources(0x42, array), -88);

    EXPECT_EQ(dimensionOf(array), 0);
    disposeArray(array);
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
