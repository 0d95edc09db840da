// The shape shared by every export of the forwarding library: call the real export as one traced
// call, describe its arguments and results, answer what the real export answered.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "lineWriter.h"
#include "realLibrary.h"
#include "tracedCall.h"

namespace quorvane::trace {

// `call()` runs the real export; `describe(line, status)` writes the record's text.
template <class Call, class Describe>
int32_t traced(std::string_view name, Call&& call, Describe&& describe) noexcept {
    TracedCall traced(name, RecordKind::exportCall);
    const int32_t status = call();
    traced.finish(status, [&](LineWriter& line) { describe(line, status); });
    return status;
}

// Results are read from the Host's pointers only after a success or a warning: after an error
// the library may have left them unwritten.
inline bool wroteResults(int32_t status) noexcept {
    return status >= 0;
}

// Writes "name N" with the element count of a Host array (an int32 at the start of its block),
// or "name null" for a null handle or block.
inline void hostArray(LineWriter& line, std::string_view name, void** array, bool asResult = false) noexcept {
    if (asResult) {
        line.result(name);
    } else {
        line.argument(name);
    }
    if (array == nullptr || *array == nullptr) {
        line.put("null");
        return;
    }
    int32_t count = 0;
    std::memcpy(&count, *array, sizeof count);
    line.put('[').signedDecimal(count).put(']');
}

}  // namespace quorvane::trace
