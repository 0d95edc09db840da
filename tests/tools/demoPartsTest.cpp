// The demo's parts on their own: the pattern check and fill it relies on to find data errors,
// the command line, the progress bar's layout, and the count of data errors that decides its
// exit code.
#include <gmock/gmock.h>

#include <cstring>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "demoOptions.h"
#include "pattern.h"
#include "progress.h"
#include "summary.h"

namespace quorvane::testing {
namespace {

using tools::countMismatches;
using tools::fillPattern;
using tools::Pattern;

// Element i of the pattern, written out byte by byte as the target defines it.
std::vector<unsigned char> expectedBytes(const Pattern& pattern, uint32_t bytes, uint64_t first, size_t count) {
    std::vector<unsigned char> out;
    for (size_t i = 0; i < count; ++i) {
        const uint64_t value = pattern.start + (first + i) * pattern.step;
        for (uint32_t k = 0; k < bytes; ++k) out.push_back(static_cast<unsigned char>(value >> (8 * k)));
    }
    return out;
}

struct TypeCase {
    uint32_t code;
    uint32_t bytes;
};

std::ostream& operator<<(std::ostream& out, const TypeCase& t) {
    return out << "type " << t.code;
}

class PatternOfType : public ::testing::TestWithParam<TypeCase> {};

// A start near 2^64 and a large step make the values wrap and use every byte of a U64.
constexpr Pattern kWrapping{0xFFFFFFFFFFFFFF00ull, 0x0123456789ABCDEFull};

TEST_P(PatternOfType, FillWritesTheTargetsBytesFromAnyIndex) {
    const auto [code, bytes] = GetParam();
    std::vector<unsigned char> data(100 * bytes);
    fillPattern(code, data.data(), 100, kWrapping, 1000);
    EXPECT_EQ(data, expectedBytes(kWrapping, bytes, 1000, 100));
}

TEST_P(PatternOfType, CheckFindsEveryBrokenElementAndOnlyThose) {
    const auto [code, bytes] = GetParam();
    std::vector<unsigned char> data = expectedBytes(kWrapping, bytes, 77, 64);
    EXPECT_EQ(countMismatches(code, data.data(), 64, kWrapping, 77), 0u);
    EXPECT_EQ(countMismatches(code, data.data(), 64, kWrapping, 78), 64u) << "shifted by one index";
    data[5 * bytes + bytes - 1] ^= 0x80;  // the top byte of element 5
    data[63 * bytes] ^= 0x01;             // the low byte of the last element
    EXPECT_EQ(countMismatches(code, data.data(), 64, kWrapping, 77), 2u);
    // Unaligned data is legal: the Host's arrays put 4-byte headers before elements.
    std::vector<unsigned char> shifted(1 + 64 * bytes);
    fillPattern(code, shifted.data() + 1, 64, {5, 3}, 0);
    EXPECT_EQ(countMismatches(code, shifted.data() + 1, 64, {5, 3}, 0), 0u);
}

INSTANTIATE_TEST_SUITE_P(AllTypeCodes, PatternOfType,
                         ::testing::Values(TypeCase{1, 1}, TypeCase{2, 2}, TypeCase{3, 4}, TypeCase{4, 8},
                                           TypeCase{5, 1}, TypeCase{6, 2}, TypeCase{7, 4}, TypeCase{8, 8}),
                         [](const auto& info) { return "Type" + std::to_string(info.param.code); });

TEST(Pattern, AnUnknownTypeCountsEveryElementWrong) {
    unsigned char data[16] = {};
    EXPECT_EQ(countMismatches(9, data, 16, {0, 0}, 0), 16u);
}

// ---- command line ------------------------------------------------------------------------

TEST(DemoOptions, SizesTakeBinarySuffixesAndRejectOverflow) {
    EXPECT_EQ(tools::parseSize("4096"), 4096u);
    EXPECT_EQ(tools::parseSize("64k"), 64u << 10);
    EXPECT_EQ(tools::parseSize("4M"), 4u << 20);
    EXPECT_EQ(tools::parseSize("3G"), uint64_t{3} << 30);
    for (const char* bad : {"", "M", "4T", "-4M", "4 M", "17179869184G"}) {
        EXPECT_EQ(tools::parseSize(bad), std::nullopt) << bad;
    }
}

TEST(DemoOptions, ValuesComeSeparateOrAfterEquals) {
    const char* argv[] = {"demo", "--target",    "board.target", "--read-fifo=4", "--write-fifo", "9",     "--type",
                          "I16",  "--amount=2M", "--block",      "1000",          "--path",       "copies"};
    const tools::ParsedOptions parsed = tools::parseDemoOptions(std::size(argv), argv);
    ASSERT_EQ(parsed.error, "");
    const tools::DemoOptions& options = parsed.options;
    EXPECT_EQ(options.target, "board.target");
    EXPECT_EQ(options.readFifo, 4u);
    EXPECT_EQ(options.writeFifo, 9u);
    ASSERT_NE(options.type, nullptr);
    EXPECT_EQ(options.type->code, 2u);
    EXPECT_EQ(options.amount, 2u << 20);
    EXPECT_EQ(options.block, 1000u);
    EXPECT_EQ(options.paths, tools::StreamPaths::Copies);
}

TEST(DemoOptions, ElementTypesAreNamedInAnyCase) {
    const std::pair<const char*, uint32_t> named[] = {{"I8", 1}, {"i16", 2}, {"I32", 3}, {"i64", 4},
                                                      {"u8", 5}, {"U16", 6}, {"U32", 7}, {"u64", 8}};
    for (const auto& [name, code] : named) {
        const tools::ElementType* type = tools::elementTypeNamed(name);
        ASSERT_NE(type, nullptr) << name;
        EXPECT_EQ(type->code, code) << name;
    }
    for (const char* bad : {"", "i", "I1", "i166", "x16", "U16 ", "int16"}) {
        EXPECT_EQ(tools::elementTypeNamed(bad), nullptr) << "'" << bad << "'";
    }
}

TEST(DemoOptions, DefaultsStreamAGibibyteBothWays) {
    const char* argv[] = {"demo"};
    const tools::DemoOptions options = tools::parseDemoOptions(1, argv).options;
    EXPECT_EQ(options.amount, uint64_t{1} << 30);
    EXPECT_EQ(options.paths, tools::StreamPaths::Both);
    EXPECT_EQ(options.type, nullptr) << "the declared type decides";
    EXPECT_FALSE(options.readFifo.has_value());
    EXPECT_TRUE(options.target.empty());
}

// ---- progress bar ------------------------------------------------------------------------

// However narrow the terminal, the bar's line leaves its last column free; it fills a terminal
// of 80 columns with the bar showing the fraction done, and stops growing on a wide one.
TEST(ProgressBar, FitsEveryWidthAndFillsAnOrdinaryTerminal) {
    const auto line = [](unsigned columns) {
        return tools::barLine("regions to target", 0.25, "256.00 MiB", "2.31 GiB/s", columns);
    };
    for (unsigned columns = 1; columns <= 200; ++columns) {
        EXPECT_LE(line(columns).size(), columns - 1) << columns << " columns";
    }
    const std::string ordinary = line(80);
    EXPECT_EQ(ordinary.size(), 79u);
    const size_t open = ordinary.find('['), close = ordinary.find(']');
    ASSERT_LT(open, close) << ordinary;
    const std::string bar = ordinary.substr(open + 1, close - open - 1);
    EXPECT_EQ(bar.find_first_not_of('#'), bar.size() / 4) << bar;
    EXPECT_EQ(bar.find_first_not_of('.', bar.size() / 4), std::string::npos) << bar;
    EXPECT_THAT(ordinary, ::testing::HasSubstr(" 25%  256.00 MiB 2.31 GiB/s"));
    EXPECT_EQ(line(300), line(1000));
    EXPECT_THAT(line(40), ::testing::StartsWith("  regions to target ")) << "the bar goes before the label";
}

// ---- the summary's long lines -------------------------------------------------------------

// Wrapped text keeps every word in order, no line is wider than asked, and later lines are
// indented under the first one's text; a word longer than a line is cut rather than overflow.
TEST(Summary, LongTextWrapsUnderItsHeadWithinTheWidth) {
    const std::string head = "    -63101  x 3        ";
    for (const std::string& text : {std::string("short"),
                                    std::string("the simulated target refused an argument: unknown FIFO, or another "
                                                "element type or direction, and then some more words to fill lines"),
                                    std::string(120, 'x')}) {
        const std::string out = tools::wrapped(head, text, 60);
        std::istringstream lines(out);
        std::string line, words;
        for (int n = 0; std::getline(lines, line); ++n) {
            EXPECT_LE(line.size(), 60u) << line;
            EXPECT_EQ(line.substr(0, head.size()), n == 0 ? head : std::string(head.size(), ' '));
            if (!words.empty() && text[0] != 'x') words += ' ';
            words += line.substr(head.size());
        }
        EXPECT_EQ(words, text);
    }
}

// ---- data errors -------------------------------------------------------------------------

class DataErrors : public ::testing::Test {
protected:
    void SetUp() override {
        for (int side = 0; side < 2; ++side) {
            tools::FifoPlan& fifo = side == 0 ? plan.read : plan.write;
            fifo.used = true;
            fifo.toHost = side == 0;
            fifo.fifo = static_cast<uint32_t>(side);
            fifo.type = tools::elementTypeOfCode(7);
            results.regions[side].elementsInRegions = 100;
            results.copies[side].bytes = 40 * 4;
            results.target[side].elementsAcquired = 100;
            results.target[side].elementsReleased = 100;
            results.target[side].elementsTransferred = 40;
        }
    }
    tools::TargetPlan plan;
    tools::DemoResults results;
};

TEST_F(DataErrors, NoneWhenHostAndTargetAgree) {
    EXPECT_EQ(tools::countDataErrors(plan, results).total(), 0u);
}

TEST_F(DataErrors, EachKindOfFaultIsCounted) {
    results.copies[0].mismatches = 3;
    results.target[1].patternErrors = 5;
    results.target[0].outOfOrderReleases = 7;
    results.target[1].excessReleases = 11;
    results.target[0].elementsReleased = 87;  // 13 lent elements never came back
    const tools::DataErrors errors = tools::countDataErrors(plan, results);
    EXPECT_EQ(errors.hostChecks, 3u);
    EXPECT_EQ(errors.targetPattern, 5u);
    EXPECT_EQ(errors.outOfOrder, 7u);
    EXPECT_EQ(errors.excess, 11u);
    EXPECT_EQ(errors.unaccounted, 13u);
    EXPECT_EQ(errors.total(), 39u);
}

TEST_F(DataErrors, ElementsTheSidesCountDifferentlyAreUnaccounted) {
    results.regions[1].elementsInRegions = 90;   // the target lent 10 more than the host saw
    results.target[0].elementsTransferred = 41;  // and copied one more than the host asked for
    EXPECT_EQ(tools::countDataErrors(plan, results).unaccounted, 11u);
    plan.write.used = false;  // a direction that did not stream is not looked at
    EXPECT_EQ(tools::countDataErrors(plan, results).unaccounted, 1u);
}

}  // namespace
}  // namespace quorvane::testing
