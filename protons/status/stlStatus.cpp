#include "protons/status/stlStatus.h"

#include <cstring>

namespace quorvane {

namespace {

// Copies at most N bytes of `text` (stopping at its NUL), zero-fills the rest and forces the
// last byte to 0, so the field always holds a terminated text. The copy's length is known only
// at run time and the field's size at compile time: with _FORTIFY_SOURCE the copy is checked.
template <std::size_t N>
void copyTextField(char (&field)[N], const char* text) noexcept {
    const std::size_t length = strnlen(text, N);
    std::memcpy(field, text, length);
    std::memset(field + length, 0, N - length);
    field[N - 1] = '\0';
}

// A file text longer than the field keeps both ends, since the start names the folder and
// the end names the file: first 49 characters, "..", last 49 characters.
void copyFileField(char (&field)[tStatus::kFileBytes], const char* text) noexcept {
    constexpr std::size_t kLongest = tStatus::kFileBytes - 1;  // 100 characters
    constexpr std::size_t kKept = (kLongest - 2) / 2;          // 49 on each side
    copyTextField(field, text);
    const std::size_t length = std::strlen(text);
    if (length <= kLongest) return;
    field[kKept] = '.';
    field[kKept + 1] = '.';
    std::memcpy(field + kKept + 2, text + length - kKept, kKept);
    field[kLongest] = '\0';
}

// Whether `incoming` replaces `held` under the merge rule.
constexpr bool takesPrecedence(int64_t held, int64_t incoming) noexcept {
    if (held == 0) return incoming != 0;
    return held > 0 && incoming < 0;
}

}  // namespace

tStatus::tStatus() noexcept : structureSize(kFullSize), code(0), component{}, file{}, line(0), extra{} {}

bool tStatus::setCode(int64_t newCode, const char* componentText, const char* fileText, uint64_t lineNumber) noexcept {
    if (!takesPrecedence(code, newCode)) return false;
    code = newCode;
    if (structureSize < kFullSize) return true;
    copyTextField(component, componentText);
    copyFileField(file, fileText);
    line = lineNumber;
    extra[0] = 0;
    return true;
}

void tStatus::mergeFrom(const tStatus& other) noexcept {
    const bool otherIsFull = other.structureSize >= kFullSize;
    // A short record carries no location (and its memory may end after `code`).
    const bool taken =
        otherIsFull ? setCode(other.code, other.component, other.file, other.line) : setCode(other.code, "", "", 0);
    if (!taken || !otherIsFull || structureSize < kFullSize) return;
    for (int i = 0; i < kExtraWords; ++i) {
        extra[i] = other.extra[i];
        if (other.extra[i] == 0) break;
    }
}

void tStatus::clear() noexcept {
    code = 0;
    if (structureSize < kFullSize) return;
    std::memset(component, 0, sizeof component);
    std::memset(file, 0, sizeof file);
    line = 0;
    std::memset(extra, 0, sizeof extra);
}

}  // namespace quorvane
