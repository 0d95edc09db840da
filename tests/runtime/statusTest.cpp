// The status record, the plain 32-bit merge and the scoped hand-back to a caller's status, each
// against a model of the merge rule for every pair of code classes; the texts; narrowing.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>

#include "moskshared/moskshared.h"

namespace quorvane {
namespace {

// The model: a nonzero code replaces success, an error replaces a warning; nothing else changes.
bool replaces(int64_t held, int64_t incoming) {
    const auto classOf = [](int64_t code) { return code < 0 ? 2 : code > 0 ? 1 : 0; };  // error, warning, success
    return (classOf(held) == 0 && classOf(incoming) != 0) || (classOf(held) == 1 && classOf(incoming) == 2);
}

// What a record holds, as one text: "code component file:line"; and locations as it shows them.
std::string held(const tStatus& status) {
    return std::to_string(status.code) + " " + status.component + " " + status.file + ":" + std::to_string(status.line);
}
const std::string kNone = "  :0", kFirst = " First first/file:11", kSecond = " Second second/file:22";

// A record holding `code` at kFirst (none for 0), its extra words all 7.
tStatus recordHolding(int64_t code, uint64_t structureSize = tStatus::kFullSize) {
    tStatus status;
    status.setCode(code, "First", "first/file", 11);
    status.structureSize = structureSize;
    for (auto& word : status.extra) word = 7;
    return status;
}

class MergeRule : public ::testing::TestWithParam<std::tuple<int64_t, int64_t>> {};

TEST_P(MergeRule, EveryMergeFollowsTheModel) {
    const auto [heldCode, incoming] = GetParam();
    const bool taken = replaces(heldCode, incoming);
    const std::string& heldAt = heldCode != 0 ? kFirst : kNone;
    const std::string before = std::to_string(heldCode) + heldAt;
    const std::string after = taken ? std::to_string(incoming) + kSecond : before;

    tStatus status = recordHolding(heldCode);
    EXPECT_EQ(status.setCode(incoming, "Second", "second/file", 22), taken);
    EXPECT_EQ(held(status), after);
    EXPECT_EQ(status.extra[0], taken ? 0u : 7u) << "a taken code empties the extra list";
    status.clear();
    EXPECT_EQ(held(status), "0" + kNone);
    EXPECT_EQ(status.extra[9], 0u) << "clear() empties the whole extra list";

    // From a full record (on the heap, for the address sanitizer): location, extra words to a 0.
    auto source = std::make_unique<tStatus>();
    source->setCode(incoming, "Second", "second/file", 22);
    const uint64_t words[] = {1, 2, 0, 9};
    std::memcpy(source->extra, words, sizeof words);
    tStatus merged = recordHolding(heldCode);
    merged.mergeFrom(*source);
    EXPECT_EQ(held(merged), after);
    EXPECT_EQ(merged.extra[2], taken ? 0u : 7u);
    EXPECT_EQ(merged.extra[3], 7u) << "copied beyond the first zero";

    // A short record owns only its code: it gives no location, and takes none.
    tStatus fromShort = recordHolding(heldCode);
    source->structureSize = 100;
    fromShort.mergeFrom(*source);
    EXPECT_EQ(held(fromShort), taken ? std::to_string(incoming) + kNone : before);
    EXPECT_EQ(fromShort.extra[1], 7u);
    source->structureSize = tStatus::kFullSize;
    tStatus shortSet = recordHolding(heldCode, 100), shortMerged = recordHolding(heldCode, 100);
    EXPECT_EQ(shortSet.setCode(incoming, "Second", "second/file", 22), taken);
    shortMerged.mergeFrom(*source);
    EXPECT_EQ(held(shortSet), std::to_string(taken ? incoming : heldCode) + heldAt);
    EXPECT_EQ(held(shortMerged), held(shortSet));
    EXPECT_EQ(shortMerged.extra[0], 7u);
    shortSet.clear();
    EXPECT_EQ(held(shortSet), "0" + heldAt);

    // The exports' 32-bit statuses: only the low half of a code travels.
    const auto low = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(incoming)));
    const int32_t expected32 = replaces(heldCode, low) ? low : static_cast<int32_t>(heldCode);
    EXPECT_EQ(mergeStatus(static_cast<int32_t>(heldCode), low), expected32);
    int32_t caller = static_cast<int32_t>(heldCode);
    {
        tMoskAutoStatus scoped(&caller), unheld(nullptr);  // a null target is never written
        scoped.code = incoming;                            // set directly: the hand-back alone decides
        unheld.code = incoming;
        EXPECT_EQ(caller, heldCode) << "handed back before the scope ended";
    }
    EXPECT_EQ(caller, expected32);
}

constexpr int64_t kHeld[] = {0, 7, 1234, -52000, -61217};
// Two codes wider than 32 bits: their low halves read as -2 and 0.
constexpr int64_t kIncoming[] = {0, 7, 1234, -52000, -61217, 0x1FFFFFFFE, 0x100000000};
INSTANTIATE_TEST_SUITE_P(AllPairs, MergeRule,
                         ::testing::Combine(::testing::ValuesIn(kHeld), ::testing::ValuesIn(kIncoming)));

// The component keeps 9 characters; the file 100, or a longer one its first and last 49 around
// "..". Both are zero-filled to the end of their fields.
TEST(StatusRecord, LocationTextsAreCutToTheirFieldsAndZeroFilled) {
    for (const std::size_t length : {0u, 2u, 9u, 10u, 100u, 101u, 102u, 250u}) {
        SCOPED_TRACE(length);
        std::string text;
        for (std::size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
        tStatus status;
        std::memset(status.component, 'x', sizeof status.component);
        std::memset(status.file, 'x', sizeof status.file);
        status.setCode(-1, text.c_str(), text.c_str(), 1);
        std::string component = text.substr(0, 9), file = text;
        if (length > 100) file = text.substr(0, 49) + ".." + text.substr(length - 49);
        component.resize(sizeof status.component);  // zero-filled
        file.resize(sizeof status.file);
        EXPECT_EQ(std::string(status.component, sizeof status.component), component);
        EXPECT_EQ(std::string(status.file, sizeof status.file), file);
    }
}

// The low 32 bits, and -52005 at moskshared:453 when the value does not fit.
TEST(NarrowToU32, KeepsTheLowBitsAndReportsWhatDoesNotFit) {
    for (const uint64_t value :
         {uint64_t{0}, uint64_t{UINT32_MAX}, uint64_t{1} << 32, uint64_t{5} << 32 | 5, UINT64_MAX}) {
        SCOPED_TRACE(value);
        tStatus status;
        EXPECT_EQ(narrowToU32(value, status), static_cast<uint32_t>(value));
        EXPECT_EQ(held(status), value <= UINT32_MAX
                                    ? "0" + kNone
                                    : std::to_string(kStatusInvalidArgument) + " Quorvane moskshared:453");
    }
}

}  // namespace
}  // namespace quorvane
