// tStatus: the status record that travels by reference through every internal operation.
//
// Thread safety: a record belongs to one thread at a time (the operation that made it, or the
// object that holds it under that object's lock). The record itself cannot fail.
//
// The merge rule, applied by setCode and mergeFrom: a nonzero code replaces 0; an error
// (negative) replaces a warning (positive); nothing replaces an error; a later warning never
// replaces an earlier one. The first error therefore always survives, with its location.
#pragma once

#include <cstdint>

namespace quorvane {

// Component recorded with every code this library sets.
inline constexpr const char kComponent[] = "Quorvane";

// Status codes the library produces or treats specially.
enum : int32_t {
    kStatusSuccess = 0,
    kStatusMemoryFull = -52000,
    kStatusInternalError = -52003,
    kStatusInvalidArgument = -52005,
    kStatusWaitTimedOut = -52007,
    kStatusConditionFailed = -52008,
    kStatusDriverTimeout = -50400,
    kStatusAborted = -50405,
    kStatusRegionsOutstanding = -61217,
    kStatusMustReleaseFirst = -61219,
    kStatusSessionRefused = -61499,
    kStatusSizeQueryAnswer = -63080,
    kStatusSessionNotRegistered = -63195,
};

// Source location recorded when a container could not obtain memory.
inline constexpr const char kStlStatusFile[] = "protons/status/stlStatus";
inline constexpr uint64_t kStlStatusLine = 34;

class tStatus {
public:
    // Size word of every record this library builds; a smaller size marks a short record that
    // carries only its code.
    static constexpr uint64_t kFullSize = 216;
    static constexpr int kComponentBytes = 10;
    static constexpr int kFileBytes = 101;
    static constexpr int kExtraWords = 10;

    tStatus() noexcept;

    // Puts `newCode` into the record under the merge rule. Returns true when the record
    // changed. A full record also takes the component (at most 9 characters), the file (at
    // most 100 characters; a longer one keeps its first and last 49 around "..") and the line,
    // and its extra list becomes empty.
    bool setCode(int64_t newCode, const char* componentText, const char* fileText, uint64_t lineNumber) noexcept;
    // The same with this library's component.
    bool setCode(int64_t newCode, const char* fileText, uint64_t lineNumber) noexcept {
        return setCode(newCode, kComponent, fileText, lineNumber);
    }
    // Merges another record: its code and location under the merge rule (a short record gives
    // an empty location), then, if the code was taken and both are full records, its extra
    // list up to and including the first zero word.
    void mergeFrom(const tStatus& other) noexcept;
    // Back to success: code 0 and, for a full record, an empty location and extra list.
    void clear() noexcept;

    bool isError() const noexcept { return code < 0; }
    bool isWarning() const noexcept { return code > 0; }
    // The code as the 32-bit status the exports return.
    int32_t code32() const noexcept { return static_cast<int32_t>(code); }

    uint64_t structureSize;
    int64_t code;
    char component[kComponentBytes];
    char file[kFileBytes];
    uint64_t line;
    uint64_t extra[kExtraWords];
};

static_assert(sizeof(tStatus) == tStatus::kFullSize, "the status record has a fixed layout");

// The merge rule on plain 32-bit statuses, for exports that combine results by hand:
// returns what `held` becomes when `incoming` is merged into it.
constexpr int32_t mergeStatus(int32_t held, int32_t incoming) noexcept {
    if (held == 0) return incoming;
    if (held > 0 && incoming < 0) return incoming;
    return held;
}

}  // namespace quorvane
