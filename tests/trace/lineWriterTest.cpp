// The forwarding library's record writer: how values are spelled, and that nothing it writes
// passes the end of its buffer or breaks a record's line.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "lineWriter.h"

namespace quorvane::trace {
namespace {

// What `write` produces as a record's text, through finishLine.
template <class Write>
std::string textOf(Write&& write, size_t capacity = 512, bool spaced = false) {
    std::vector<char> buffer(capacity + 16, '#');
    LineWriter line(buffer.data(), buffer.data() + capacity);
    line.beginText(spaced);
    write(line);
    const char* end = line.finishLine();
    EXPECT_LE(end, buffer.data() + capacity);
    EXPECT_EQ(buffer[capacity], '#');  // nothing written past the end
    return std::string(static_cast<const char*>(buffer.data()), end);
}

struct SpellingCase {
    const char* what;
    std::string (*write)();
    const char* expected;
};

// Test names and failure messages show the case by its name.
void PrintTo(const SpellingCase& value, std::ostream* out) {
    *out << value.what;
}

class Spelling : public ::testing::TestWithParam<SpellingCase> {};

TEST_P(Spelling, OfValues) {
    EXPECT_EQ(GetParam().write(), GetParam().expected) << GetParam().what;
}

#define SPELL(what, expression, expected)                                           \
    SpellingCase {                                                                  \
        what, [] { return textOf([](LineWriter& line) { expression; }); }, expected \
    }

INSTANTIATE_TEST_SUITE_P(
    Values, Spelling,
    ::testing::Values(
        SPELL("plainSession", line.argument("session").session(0x10), "(session 0x10)\n"),
        SPELL("refusedBit", line.argument("session").session(0x2010), "(session 0x2010 (0x10|refused))\n"),
        SPELL("everyFlagBit", line.argument("session").session(0xF011),
              "(session 0xf011 (0x11|bit 12|refused|resource-call|bit 15))\n"),
        SPELL("firstAndLastTypes", line.argument("a").elementType(1).argument("b").elementType(8), "(a I8, b U64)\n"),
        SPELL("signedAndUnsigned", line.argument("a").elementType(4).argument("b").elementType(5), "(a I64, b U8)\n"),
        SPELL("noType", line.argument("type").elementType(0).argument("t").elementType(9),
              "(type 0 (not a type), t 9 (not a type))\n"),
        SPELL("timeouts", line.argument("a").timeout(0).argument("b").timeout(0xFFFFFFFFu).argument("c").timeout(250),
              "(a 0 (no wait), b infinite, c 250 ms)\n"),
        SPELL("numbers", line.argument("n").signedDecimal(-61219).argument("h").hex(0xABC).argument("f").floating(0.5),
              "(n -61219, h 0xabc, f 0.5)\n"),
        SPELL("nullPointerAndString", line.argument("p").pointer(nullptr).argument("s").quoted(nullptr),
              "(p null, s null)\n"),
        SPELL("escapes", line.argument("s").quoted("a\"b\\c\td\ne\x01\xc3"), "(s \"a\\\"b\\\\c\\td\\ne\\x01\\xc3\")\n"),
        SPELL("results", line.argument("a").decimal(1); line.result("b").decimal(2);
              line.result("c").decimal(3), "(a 1) -> b 2, c 3\n"),
        SPELL("noArguments", static_cast<void>(line), "()\n"),
        SPELL("resultsOnly", line.result("x").decimal(7), "() -> x 7\n")),
    [](const auto& info) { return std::string(info.param.what); });

#undef SPELL

TEST(LineWriter, CallbacksOpenWithASpaceAndShowNoEmptyParenthesis) {
    EXPECT_EQ(textOf([](LineWriter& line) { line.argument("session").hex(0x10); }, 512, true), " (session 0x10)\n");
    EXPECT_EQ(textOf([](LineWriter& line) { line.put("a note"); }, 512, true), "a note\n");
}

TEST(LineWriter, CutsLongStringsAtTheLimit) {
    const std::string name(LineWriter::kStringLimit + 40, 'n');
    EXPECT_EQ(textOf([&](LineWriter& line) { line.argument("s").quoted(name.c_str()); }, 4096),
              "(s \"" + std::string(LineWriter::kStringLimit, 'n') + "\"...)\n");
}

// However much is written into however little room, the line ends closed and within its buffer.
TEST(LineWriter, CutsWhatDoesNotFitAndStillEndsTheLine) {
    for (size_t capacity : {8u, 16u, 40u, 100u}) {
        const std::string text = textOf(
            [](LineWriter& line) {
                for (int i = 0; i < 20; ++i) line.argument("argument").decimal(123456789);
                line.result("result").quoted("a rather long string that does not fit");
            },
            capacity);
        EXPECT_THAT(text, ::testing::EndsWith("...)\n")) << capacity;
        EXPECT_LE(text.size(), capacity);
    }
}

}  // namespace
}  // namespace quorvane::trace
