// The status record: merge rule, stored location texts, short records and extra words.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "protons/status/stlStatus.h"

namespace quorvane {
namespace {

constexpr int64_t kWarning = 1234;
constexpr int64_t kOtherWarning = 77;
constexpr int64_t kError = -52000;
constexpr int64_t kOtherError = -61217;

tStatus recordHolding(int64_t code) {
    tStatus status;
    if (code != 0) status.setCode(code, "First", "first/file", 11);
    return status;
}

// ---- merge rule -------------------------------------------------------------------------------

struct MergeCase {
    const char* name;
    int64_t held;
    int64_t incoming;
    bool taken;
};

void PrintTo(const MergeCase& c, std::ostream* out) {
    *out << c.name;
}

class MergeRule : public ::testing::TestWithParam<MergeCase> {};

TEST_P(MergeRule, SetCodeKeepsOrReplacesCodeAndLocationTogether) {
    const MergeCase& c = GetParam();
    tStatus status = recordHolding(c.held);
    EXPECT_EQ(status.setCode(c.incoming, "Second", "second/file", 22), c.taken);
    EXPECT_EQ(status.code, c.taken ? c.incoming : c.held);
    if (c.taken) {
        EXPECT_STREQ(status.component, "Second");
        EXPECT_STREQ(status.file, "second/file");
        EXPECT_EQ(status.line, 22u);
    } else if (c.held != 0) {
        EXPECT_STREQ(status.component, "First");
        EXPECT_STREQ(status.file, "first/file");
        EXPECT_EQ(status.line, 11u);
    } else {
        EXPECT_STREQ(status.component, "");
        EXPECT_STREQ(status.file, "");
        EXPECT_EQ(status.line, 0u);
    }
}

TEST_P(MergeRule, MergeFromAppliesTheSameRule) {
    const MergeCase& c = GetParam();
    tStatus status = recordHolding(c.held);
    tStatus other;
    other.setCode(c.incoming, "Second", "second/file", 22);
    status.mergeFrom(other);
    EXPECT_EQ(status.code, c.taken ? c.incoming : c.held);
    EXPECT_EQ(status.line, c.taken ? 22u : (c.held != 0 ? 11u : 0u));
}

TEST_P(MergeRule, PlainStatusMergeAgrees) {
    const MergeCase& c = GetParam();
    EXPECT_EQ(mergeStatus(static_cast<int32_t>(c.held), static_cast<int32_t>(c.incoming)),
              static_cast<int32_t>(c.taken ? c.incoming : c.held));
}

INSTANTIATE_TEST_SUITE_P(AllPairs, MergeRule,
                         ::testing::Values(MergeCase{"SuccessThenSuccess", 0, 0, false},
                                           MergeCase{"SuccessThenWarning", 0, kWarning, true},
                                           MergeCase{"SuccessThenError", 0, kError, true},
                                           MergeCase{"WarningThenSuccess", kWarning, 0, false},
                                           MergeCase{"WarningThenWarning", kWarning, kOtherWarning, false},
                                           MergeCase{"WarningThenError", kWarning, kError, true},
                                           MergeCase{"ErrorThenSuccess", kError, 0, false},
                                           MergeCase{"ErrorThenWarning", kError, kWarning, false},
                                           MergeCase{"ErrorThenError", kError, kOtherError, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(StatusRecord, StartsEmptyAndFull) {
    tStatus status;
    EXPECT_EQ(status.structureSize, 216u);
    EXPECT_EQ(status.code, 0);
    EXPECT_EQ(status.component[0], '\0');
    EXPECT_EQ(status.file[0], '\0');
    EXPECT_EQ(status.line, 0u);
    EXPECT_EQ(status.extra[0], 0u);
    EXPECT_FALSE(status.isError());
    EXPECT_FALSE(status.isWarning());
}

TEST(StatusRecord, LibraryComponentOverloadRecordsQuorvane) {
    tStatus status;
    ASSERT_TRUE(status.setCode(kStatusInternalError, "some/file", 5));
    EXPECT_STREQ(status.component, "Quorvane");
    EXPECT_TRUE(status.isError());
    EXPECT_EQ(status.code32(), -52003);
}

TEST(StatusRecord, Code32IsTheLowHalfOfTheCode) {
    tStatus status;
    status.setCode(-5, "", "", 0);
    EXPECT_EQ(status.code32(), -5);
    EXPECT_TRUE(status.isError());
}

// ---- location texts ---------------------------------------------------------------------------

TEST(StatusText, ComponentKeepsAtMostNineCharacters) {
    tStatus status;
    status.setCode(kError, "ABCDEFGHIJKL", "f", 1);
    EXPECT_STREQ(status.component, "ABCDEFGHI");
    for (int i = 9; i < tStatus::kComponentBytes; ++i) EXPECT_EQ(status.component[i], '\0');

    tStatus exact;
    exact.setCode(kError, "ABCDEFGHI", "f", 1);
    EXPECT_STREQ(exact.component, "ABCDEFGHI");
}

TEST(StatusText, ShortTextsAreZeroPaddedOverEarlierContent) {
    tStatus status;
    std::memset(status.component, 'x', sizeof status.component);
    std::memset(status.file, 'x', sizeof status.file);
    status.setCode(kWarning, "ab", "cd", 1);
    for (int i = 2; i < tStatus::kComponentBytes; ++i) EXPECT_EQ(status.component[i], '\0') << i;
    for (int i = 2; i < tStatus::kFileBytes; ++i) EXPECT_EQ(status.file[i], '\0') << i;
}

std::string numberedText(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
    return text;
}

TEST(StatusText, FileOfOneHundredCharactersIsStoredWhole) {
    const std::string file = numberedText(100);
    tStatus status;
    status.setCode(kError, "c", file.c_str(), 1);
    EXPECT_EQ(std::string(status.file), file);
}

class LongFileText : public ::testing::TestWithParam<std::size_t> {};

TEST_P(LongFileText, KeepsBothEndsAroundTwoDots) {
    const std::string file = numberedText(GetParam());
    tStatus status;
    status.setCode(kError, "c", file.c_str(), 1);
    const std::string stored(status.file);
    ASSERT_EQ(stored.size(), 100u);
    EXPECT_EQ(stored.substr(0, 49), file.substr(0, 49));
    EXPECT_EQ(stored.substr(49, 2), "..");
    EXPECT_EQ(stored.substr(51), file.substr(file.size() - 49));
    EXPECT_EQ(status.file[100], '\0');
}

INSTANTIATE_TEST_SUITE_P(Lengths, LongFileText, ::testing::Values(101u, 102u, 250u));

// ---- short records ----------------------------------------------------------------------------

tStatus shortRecord(int64_t code) {
    tStatus status;
    status.structureSize = 100;
    status.code = code;
    std::strcpy(status.component, "keep");
    std::strcpy(status.file, "keep/file");
    status.line = 99;
    status.extra[0] = 42;
    return status;
}

TEST(ShortRecord, SetCodeStoresOnlyTheCode) {
    tStatus status = shortRecord(0);
    EXPECT_TRUE(status.setCode(kError, "new", "new/file", 5));
    EXPECT_EQ(status.code, kError);
    EXPECT_STREQ(status.component, "keep");
    EXPECT_STREQ(status.file, "keep/file");
    EXPECT_EQ(status.line, 99u);
    EXPECT_EQ(status.extra[0], 42u);
}

TEST(ShortRecord, MergingFromOneGivesAnEmptyLocationAndNoExtraWords) {
    const tStatus source = shortRecord(kError);
    tStatus status;
    status.extra[0] = 0;
    status.extra[1] = 5;
    status.mergeFrom(source);
    EXPECT_EQ(status.code, kError);
    EXPECT_STREQ(status.component, "");
    EXPECT_STREQ(status.file, "");
    EXPECT_EQ(status.line, 0u);
    EXPECT_EQ(status.extra[0], 0u);
    EXPECT_EQ(status.extra[1], 5u);
}

TEST(ShortRecord, MergingIntoOneTakesOnlyTheCode) {
    tStatus source;
    source.setCode(kWarning, "src", "src/file", 3);
    source.extra[0] = 8;
    tStatus status = shortRecord(0);
    status.mergeFrom(source);
    EXPECT_EQ(status.code, kWarning);
    EXPECT_STREQ(status.file, "keep/file");
    EXPECT_EQ(status.extra[0], 42u);
}

TEST(ShortRecord, ClearResetsOnlyTheCode) {
    tStatus status = shortRecord(kError);
    status.clear();
    EXPECT_EQ(status.code, 0);
    EXPECT_STREQ(status.file, "keep/file");
    EXPECT_EQ(status.line, 99u);
}

// ---- extra words ------------------------------------------------------------------------------

TEST(ExtraWords, AllTenNonzeroWordsAreCopiedAndNothingBeyond) {
    // On the heap, so that a read past the record is caught by the address sanitizer.
    auto source = std::make_unique<tStatus>();
    source->setCode(kError, "src", "src/file", 3);
    for (int i = 0; i < tStatus::kExtraWords; ++i) source->extra[i] = 100 + i;
    tStatus status;
    status.mergeFrom(*source);
    for (int i = 0; i < tStatus::kExtraWords; ++i) EXPECT_EQ(status.extra[i], 100u + i) << i;
}

TEST(ExtraWords, CopyStopsAfterTheFirstZeroWord) {
    tStatus source;
    source.setCode(kWarning, "src", "src/file", 3);
    const uint64_t words[] = {1, 2, 3, 0, 9, 9};
    std::memcpy(source.extra, words, sizeof words);
    tStatus status;
    for (auto& word : status.extra) word = 7;
    status.mergeFrom(source);
    EXPECT_EQ(status.extra[0], 1u);
    EXPECT_EQ(status.extra[2], 3u);
    EXPECT_EQ(status.extra[3], 0u);
    EXPECT_EQ(status.extra[4], 7u);
    EXPECT_EQ(status.extra[9], 7u);
}

TEST(ExtraWords, NotCopiedWhenTheCodeIsNotTaken) {
    tStatus source;
    source.setCode(kError, "src", "src/file", 3);
    source.extra[0] = 5;
    tStatus status = recordHolding(kOtherError);
    status.extra[0] = 6;
    status.mergeFrom(source);
    EXPECT_EQ(status.code, kOtherError);
    EXPECT_EQ(status.extra[0], 6u);
}

TEST(ExtraWords, SetCodeEmptiesTheList) {
    tStatus status;
    status.extra[0] = 5;
    status.setCode(kWarning, "c", "f", 1);
    EXPECT_EQ(status.extra[0], 0u);
}

// ---- clear ------------------------------------------------------------------------------------

TEST(StatusClear, BackToSuccessWithEmptyLocationSoLaterNewsIsTaken) {
    tStatus status;
    status.setCode(kError, "comp", "some/file", 17);
    status.extra[0] = 3;
    status.clear();
    EXPECT_EQ(status.code, 0);
    EXPECT_STREQ(status.component, "");
    EXPECT_STREQ(status.file, "");
    EXPECT_EQ(status.line, 0u);
    EXPECT_EQ(status.extra[0], 0u);
    EXPECT_EQ(status.structureSize, 216u);
    EXPECT_TRUE(status.setCode(kWarning, "c", "f", 2));
}

}  // namespace
}  // namespace quorvane
