// Host arrays of strings with broken dimension sizes, missing elements and broken lengths, given
// to the exports that read or fill them.
#include "fuzzSession.h"
#include "hostData.h"

using namespace quorvane::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedBytes in(data, size);
    FuzzSession session;
    const bool add = in.take<uint8_t>() % 2 == 0;
    FuzzedArray array = FuzzedArray::strings(in);
    const int32_t status = add ? Quorvane_AddResources(session.handle(), array.handle(), nullptr, nullptr)
                               : Quorvane_GetResources(session.handle(), array.handle());
    require(isHonestStatus(status), "the status is documented or passed on");
    if (array.handle() == nullptr) require(status == kQuorvaneStatusInvalidArgument, "a null array is refused");
    return 0;
}
