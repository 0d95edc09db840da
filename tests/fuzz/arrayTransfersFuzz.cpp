// Host arrays with broken dimension sizes, missing handles and blocks and any type code, given to
// the copying FIFO transfers and the 32-bit array register calls.
#include "HostSim.h"
#include "fuzzSession.h"
#include "hostData.h"

using namespace quorvane::fuzzing;

namespace {

constexpr uint32_t kReadFifo = 0, kWriteFifo = 1;
constexpr int32_t kBytes = 5, kU32 = 7;  // Host type codes

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedBytes in(data, size);
    FuzzSession session;
    const uint32_t call = in.below(6);
    const uint32_t typeCode = in.below(10);  // 0 and 9 are no type
    const uint32_t count = in.below(129);
    const uint32_t bytesPerElement = in.below(17);
    const uint32_t reg = in.below(64) * 4;
    const bool scalar = call < 2;
    const int32_t arrayType = scalar     ? (typeCode >= 1 && typeCode <= 8 ? static_cast<int32_t>(typeCode) : kU32)
                              : call < 4 ? kBytes
                                         : kU32;
    FuzzedArray array = FuzzedArray::numeric(in, arrayType, call % 2 == 1);
    uint32_t remaining = 0;
    int32_t status = 0;
    const uint32_t s = session.handle();
    switch (call) {
        case 0:
            status = Quorvane_WriteFifoScalar(s, kWriteFifo, array.handle(), typeCode, 0, 0, &remaining);
            break;
        case 1:
            status = Quorvane_ReadFifoScalar(s, kReadFifo, count, typeCode, 0, 0, array.handle(), &remaining);
            break;
        case 2:
            status = Quorvane_WriteFifoComposite(s, kWriteFifo, array.handle(), bytesPerElement, 0, &remaining);
            break;
        case 3:
            status = Quorvane_ReadFifoComposite(s, kReadFifo, count, bytesPerElement, 0, array.handle(), &remaining);
            break;
        case 4:
            status = Quorvane_WriteArray32(s, reg, array.handle());
            break;
        default:
            status = Quorvane_ReadArray32(s, reg, count, array.handle());
            break;
    }
    require(isHonestStatus(status), "the status is documented or passed on");
    if (array.handle() == nullptr) require(status == kQuorvaneStatusInvalidArgument, "a null array is refused");
    return 0;
}
