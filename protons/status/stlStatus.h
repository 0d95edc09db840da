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

#include "QuorvaneStatus.h"

namespace quorvane {

// Component recorded with every code this library sets.
inline constexpr const char kComponent[] = "Quorvane";

// The status codes the library produces or treats specially, under the library's short names.
// Each is the public code of the same name (include/QuorvaneStatus.h), where the list, values
// and meanings are written once.
enum : int32_t {
    kStatusSuccess = kQuorvaneStatusSuccess,
    kStatusMemoryFull = kQuorvaneStatusMemoryFull,
    kStatusInternalError = kQuorvaneStatusInternalError,
    kStatusInvalidArgument = kQuorvaneStatusInvalidArgument,
    kStatusWaitTimedOut = kQuorvaneStatusWaitTimedOut,  // never leaves the library
    kStatusConditionFailed = kQuorvaneStatusConditionFailed,
    kStatusDriverTimeout = kQuorvaneStatusDriverTimeout,
    kStatusAborted = kQuorvaneStatusAborted,
    kStatusRegionsOutstanding = kQuorvaneStatusRegionsOutstanding,
    kStatusMustReleaseFirst = kQuorvaneStatusMustReleaseFirst,
    kStatusSessionRefused = kQuorvaneStatusSessionRefused,
    kStatusSizeQueryAnswer = kQuorvaneStatusSizeQueryAnswer,
    kStatusSessionNotRegistered = kQuorvaneStatusSessionNotRegistered,
};

// Whether `code` is one of the public list.
constexpr bool isListedStatus(int32_t code) noexcept {
#define QUORVANE_STATUS_MATCHES(name, value, meaning) code == (value) ||
    return QUORVANE_STATUS_LIST(QUORVANE_STATUS_MATCHES) false;
#undef QUORVANE_STATUS_MATCHES
}

// A short name given a value of its own, or another name's, would let the library return a
// code that Hosts find undocumented or documented wrongly.
#define QUORVANE_SAME_AS_PUBLIC(suffix)                                                                     \
    static_assert(static_cast<int32_t>(kStatus##suffix) == static_cast<int32_t>(kQuorvaneStatus##suffix) && \
                      isListedStatus(kStatus##suffix),                                                      \
                  "kStatus" #suffix " must be the listed kQuorvaneStatus" #suffix)
QUORVANE_SAME_AS_PUBLIC(Success);
QUORVANE_SAME_AS_PUBLIC(MemoryFull);
QUORVANE_SAME_AS_PUBLIC(InternalError);
QUORVANE_SAME_AS_PUBLIC(InvalidArgument);
QUORVANE_SAME_AS_PUBLIC(WaitTimedOut);
QUORVANE_SAME_AS_PUBLIC(ConditionFailed);
QUORVANE_SAME_AS_PUBLIC(DriverTimeout);
QUORVANE_SAME_AS_PUBLIC(Aborted);
QUORVANE_SAME_AS_PUBLIC(RegionsOutstanding);
QUORVANE_SAME_AS_PUBLIC(MustReleaseFirst);
QUORVANE_SAME_AS_PUBLIC(SessionRefused);
QUORVANE_SAME_AS_PUBLIC(SizeQueryAnswer);
QUORVANE_SAME_AS_PUBLIC(SessionNotRegistered);
#undef QUORVANE_SAME_AS_PUBLIC

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
