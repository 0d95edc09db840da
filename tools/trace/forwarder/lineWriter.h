// Writes one trace record into a fixed piece of memory: never allocates, never throws, never
// writes past the end. What does not fit is cut and marked with "...".
//
// A record's text reads "(name value, name value) -> name value, name value": argument() opens
// the parenthesis or separates the next argument, result() closes it once and lists what the
// call handed back. The typed writers spell values the way a Host developer reads them:
// session handles with their flag bits, element types by name, the two special time-outs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorvane::trace {

class LineWriter {
public:
    // Longest string written by quoted(); longer ones are cut.
    static constexpr size_t kStringLimit = 160;

    LineWriter(char* begin, char* end) noexcept;

    LineWriter& put(std::string_view text) noexcept;
    LineWriter& put(char c) noexcept;
    LineWriter& decimal(uint64_t value) noexcept;
    LineWriter& signedDecimal(int64_t value) noexcept;
    LineWriter& hex(uint64_t value) noexcept;
    LineWriter& floating(double value) noexcept;
    LineWriter& pointer(const void* address) noexcept;
    // A C string in double quotes, escaped so that it holds no tab, newline or other control
    // character; `null` for a null pointer.
    LineWriter& quoted(const char* text) noexcept;

    // A session handle: "0x10", or with flag bits in 12..15 "0x6010 (0x10|refused|resource-call)".
    LineWriter& session(uint32_t handle) noexcept;
    // A Host numeric type code: I8 ... U64, or "9 (not a type)".
    LineWriter& elementType(uint32_t code) noexcept;
    // Milliseconds: "0 (no wait)", "infinite", or "250 ms".
    LineWriter& timeout(uint32_t milliseconds) noexcept;

    // The text part. Exports read "name(argument ...)", callbacks and notes "name (argument ...)".
    void beginText(bool spaced) noexcept;
    LineWriter& argument(std::string_view name) noexcept;
    LineWriter& result(std::string_view name) noexcept;
    // Closes the text (and marks a cut) and ends the line; answers the end of what was written.
    char* finishLine() noexcept;

    bool truncated() const noexcept { return truncated_; }

private:
    enum class Part { header, opening, arguments, results };

    void closeArguments() noexcept;

    char* position_;
    char* end_;  // room for the closing characters is kept behind this
    Part part_ = Part::header;
    bool spaced_ = false;
    bool truncated_ = false;
};

}  // namespace quorvane::trace
