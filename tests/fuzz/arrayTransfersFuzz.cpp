// Host arrays with broken dimension sizes, missing handles and blocks and any type code, given to
// the copying FIFO transfers and the 32-bit array register calls.
#include "fuzzSupport.h"

using namespace quorvane::fuzzing;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint32_t kReadFifo = 0, kWriteFifo = 1;
    constexpr int32_t kBytes = 5, kU32 = 7;  // Host type codes
    FuzzedBytes in(data, size);
    FuzzSession session;
    const uint32_t call = in.below(6), typeCode = in.below(10);  // type codes 0 and 9 are none
    const uint32_t count = in.below(129), elementSize = in.below(17), reg = in.below(64) * 4;
    const bool typed = typeCode >= 1 && typeCode <= 8;
    const int32_t arrayType = call < 2 ? (typed ? static_cast<int32_t>(typeCode) : kU32) : call < 4 ? kBytes : kU32;
    FuzzedArray array(in, arrayType, call % 2 == 1);
    void** const a = array.handle();
    const uint32_t s = session.handle;
    uint32_t remaining = 0;
    const int32_t status = call == 0   ? Quorvane_WriteFifoScalar(s, kWriteFifo, a, typeCode, 0, 0, &remaining)
                           : call == 1 ? Quorvane_ReadFifoScalar(s, kReadFifo, count, typeCode, 0, 0, a, &remaining)
                           : call == 2 ? Quorvane_WriteFifoComposite(s, kWriteFifo, a, elementSize, 0, &remaining)
                           : call == 3 ? Quorvane_ReadFifoComposite(s, kReadFifo, count, elementSize, 0, a, &remaining)
                           : call == 4 ? Quorvane_WriteArray32(s, reg, a)
                                       : Quorvane_ReadArray32(s, reg, count, a);
    requireHonestStatus(status, a);
    return 0;
}
