// Host arrays of strings with broken dimension sizes, missing elements and broken lengths, given
// to the exports that read or fill them.
#include "fuzzSupport.h"

using namespace quorvane::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedBytes in(data, size);
    FuzzSession session;
    const bool add = in.take<uint8_t>() % 2 == 0;
    FuzzedArray array(in);
    requireHonestStatus(add ? Quorvane_AddResources(session.handle, array.handle(), nullptr, nullptr)
                            : Quorvane_GetResources(session.handle, array.handle()),
                        array.handle());
    return 0;
}
