#include "lineWriter.h"

#include <charconv>
#include <cstring>

#include "Quorvane.h"

namespace quorvane::trace {

namespace {

// Kept free at the end of the buffer for finishLine(): "...", ")" and the newline.
constexpr size_t kClosingRoom = 5;

constexpr const char* kElementTypeNames[] = {"I8", "I16", "I32", "I64", "U8", "U16", "U32", "U64"};

}  // namespace

LineWriter::LineWriter(char* begin, char* end) noexcept
    : position_(begin), end_(end - begin > static_cast<ptrdiff_t>(kClosingRoom) ? end - kClosingRoom : begin) {}

LineWriter& LineWriter::put(std::string_view text) noexcept {
    if (truncated_) return *this;
    if (text.size() > static_cast<size_t>(end_ - position_)) {
        truncated_ = true;
        return *this;
    }
    std::memcpy(position_, text.data(), text.size());
    position_ += text.size();
    return *this;
}

LineWriter& LineWriter::put(char c) noexcept {
    return put(std::string_view(&c, 1));
}

LineWriter& LineWriter::decimal(uint64_t value) noexcept {
    char digits[24];
    const auto converted = std::to_chars(digits, digits + sizeof digits, value);
    return put(std::string_view(digits, static_cast<size_t>(converted.ptr - digits)));
}

LineWriter& LineWriter::signedDecimal(int64_t value) noexcept {
    char digits[24];
    const auto converted = std::to_chars(digits, digits + sizeof digits, value);
    return put(std::string_view(digits, static_cast<size_t>(converted.ptr - digits)));
}

LineWriter& LineWriter::hex(uint64_t value) noexcept {
    char digits[24] = {'0', 'x'};
    const auto converted = std::to_chars(digits + 2, digits + sizeof digits, value, 16);
    return put(std::string_view(digits, static_cast<size_t>(converted.ptr - digits)));
}

LineWriter& LineWriter::floating(double value) noexcept {
    char digits[40];
    const auto converted = std::to_chars(digits, digits + sizeof digits, value);
    return put(std::string_view(digits, static_cast<size_t>(converted.ptr - digits)));
}

LineWriter& LineWriter::pointer(const void* address) noexcept {
    return address == nullptr ? put("null") : hex(reinterpret_cast<uintptr_t>(address));
}

LineWriter& LineWriter::quoted(const char* text) noexcept {
    if (text == nullptr) return put("null");
    put('"');
    size_t length = 0;
    for (; text[length] != '\0' && length < kStringLimit; ++length) {
        const auto c = static_cast<unsigned char>(text[length]);
        if (c == '"' || c == '\\') {
            put('\\').put(static_cast<char>(c));
        } else if (c == '\n') {
            put("\\n");
        } else if (c == '\t') {
            put("\\t");
        } else if (c < 0x20 || c >= 0x7f) {
            constexpr char kDigits[] = "0123456789abcdef";
            const char escaped[] = {'\\', 'x', kDigits[c >> 4], kDigits[c & 15]};
            put(std::string_view(escaped, sizeof escaped));
        } else {
            put(static_cast<char>(c));
        }
    }
    put('"');
    return text[length] == '\0' ? *this : put("...");
}

LineWriter& LineWriter::session(uint32_t handle) noexcept {
    hex(handle);
    const uint32_t flags = handle & kQuorvaneSessionFlagNibble;
    if (flags == 0) return *this;
    put(" (").hex(handle & ~kQuorvaneSessionFlagNibble);
    for (uint32_t bit = 0x1000; bit <= 0x8000; bit <<= 1) {
        if ((flags & bit) == 0) continue;
        if (bit == kQuorvaneSessionRefusedBit) {
            put("|refused");
        } else if (bit == kQuorvaneResourceCallBit) {
            put("|resource-call");
        } else {
            put("|bit ").decimal(bit == 0x1000 ? 12 : 15);
        }
    }
    return put(')');
}

LineWriter& LineWriter::elementType(uint32_t code) noexcept {
    if (code >= kQuorvaneElementI8 && code <= kQuorvaneElementU64) {
        // The Host's codes run I8, I16, I32, I64, U8, U16, U32, U64.
        return put(kElementTypeNames[code - 1]);
    }
    return decimal(code).put(" (not a type)");
}

LineWriter& LineWriter::timeout(uint32_t milliseconds) noexcept {
    if (milliseconds == 0) return put("0 (no wait)");
    if (milliseconds == 0xFFFFFFFFu) return put("infinite");
    return decimal(milliseconds).put(" ms");
}

void LineWriter::beginText(bool spaced) noexcept {
    part_ = Part::opening;
    spaced_ = spaced;
}

// Once the text is cut, the parts stay as they are, so that finishLine closes what is open.
LineWriter& LineWriter::argument(std::string_view name) noexcept {
    if (truncated_) return *this;
    if (part_ == Part::opening) {
        put(spaced_ ? " (" : "(");
        part_ = Part::arguments;
    } else {
        put(", ");
    }
    return put(name).put(' ');
}

// An export without arguments still shows its empty parenthesis; a callback shows none.
void LineWriter::closeArguments() noexcept {
    if (part_ == Part::opening && !spaced_) put("()");
    if (part_ == Part::arguments) put(')');
}

LineWriter& LineWriter::result(std::string_view name) noexcept {
    if (truncated_) return *this;
    if (part_ == Part::results) {
        put(", ");
    } else {
        closeArguments();
        put(" -> ");
        part_ = Part::results;
    }
    return put(name).put(' ');
}

char* LineWriter::finishLine() noexcept {
    const bool cut = truncated_;
    // The kept room is enough for what follows.
    end_ += kClosingRoom;
    truncated_ = false;
    if (cut) put("...");
    if (part_ == Part::opening || part_ == Part::arguments) closeArguments();
    part_ = Part::header;
    put('\n');
    truncated_ = cut;
    return position_;
}

}  // namespace quorvane::trace
