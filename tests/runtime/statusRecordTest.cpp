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

// setCode, mergeFrom and the plain 32-bit merge must all follow one rule, and code and
// location always move together.
TEST_P(MergeRule, SetCodeMergeFromAndPlainMergeAgree) {
    const MergeCase& c = GetParam();
    const int64_t expected = c.taken ? c.incoming : c.held;
    const uint32_t expectedLine = c.taken ? 22u : (c.held != 0 ? 11u : 0u);
    const char* expectedFile = c.taken ? "second/file" : (c.held != 0 ? "first/file" : "");
    const char* expectedComponent = c.taken ? "Second" : (c.held != 0 ? "First" : "");

    tStatus status = recordHolding(c.held);
    EXPECT_EQ(status.setCode(c.incoming, "Second", "second/file", 22), c.taken);
    EXPECT_EQ(status.code, expected);
    EXPECT_STREQ(status.component, expectedComponent);
    EXPECT_STREQ(status.file, expectedFile);
    EXPECT_EQ(status.line, expectedLine);

    tStatus merged = recordHolding(c.held);
    tStatus other;
    other.setCode(c.incoming, "Second", "second/file", 22);
    merged.mergeFrom(other);
    EXPECT_EQ(merged.code, expected);
    EXPECT_EQ(merged.line, expectedLine);

    EXPECT_EQ(mergeStatus(static_cast<int32_t>(c.held), static_cast<int32_t>(c.incoming)),
              static_cast<int32_t>(expected));
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

void expectEmpty(const tStatus& status) {
    EXPECT_EQ(status.structureSize, 216u);
    EXPECT_EQ(status.code, 0);
    EXPECT_STREQ(status.component, "");
    EXPECT_STREQ(status.file, "");
    EXPECT_EQ(status.line, 0u);
    EXPECT_EQ(status.extra[0], 0u);
    EXPECT_FALSE(status.isError());
    EXPECT_FALSE(status.isWarning());
}

// After clear() later news must be taken again, so it has to be a fresh record.
TEST(StatusRecord, StartsAndClearsToEmptyAndNamesTheLibraryByDefault) {
    tStatus status;
    expectEmpty(status);
    ASSERT_TRUE(status.setCode(kStatusInternalError, "some/file", 5));
    EXPECT_STREQ(status.component, "Quorvane");
    EXPECT_TRUE(status.isError());
    EXPECT_EQ(status.code32(), -52003);
    status.extra[0] = 3;
    status.clear();
    expectEmpty(status);
    EXPECT_TRUE(status.setCode(kWarning, "c", "f", 2));
    EXPECT_TRUE(status.isWarning());
}

TEST(StatusText, ComponentKeepsNineCharactersAndShortTextsAreZeroPadded) {
    tStatus status;
    std::memset(status.component, 'x', sizeof status.component);
    std::memset(status.file, 'x', sizeof status.file);
    status.setCode(kWarning, "ab", "cd", 1);
    for (int i = 2; i < tStatus::kComponentBytes; ++i) EXPECT_EQ(status.component[i], '\0') << i;
    for (int i = 2; i < tStatus::kFileBytes; ++i) EXPECT_EQ(status.file[i], '\0') << i;

    for (const char* name : {"ABCDEFGHIJKL", "ABCDEFGHI"}) {
        tStatus cut;
        cut.setCode(kError, name, "f", 1);
        EXPECT_STREQ(cut.component, "ABCDEFGHI");
        for (int i = 9; i < tStatus::kComponentBytes; ++i) EXPECT_EQ(cut.component[i], '\0');
    }
}

std::string numberedText(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
    return text;
}

class FileText : public ::testing::TestWithParam<std::size_t> {};

// Up to 100 characters are kept whole; longer names keep both ends around "..".
TEST_P(FileText, IsStoredWholeOrShortenedAroundTwoDots) {
    const std::string file = numberedText(GetParam());
    tStatus status;
    status.setCode(kError, "c", file.c_str(), 1);
    const std::string stored(status.file);
    EXPECT_EQ(status.file[100], '\0');
    if (file.size() <= 100) {
        EXPECT_EQ(stored, file);
        return;
    }
    ASSERT_EQ(stored.size(), 100u);
    EXPECT_EQ(stored.substr(0, 49), file.substr(0, 49));
    EXPECT_EQ(stored.substr(49, 2), "..");
    EXPECT_EQ(stored.substr(51), file.substr(file.size() - 49));
}

INSTANTIATE_TEST_SUITE_P(Lengths, FileText, ::testing::Values(100u, 101u, 102u, 250u));

// A record announcing fewer than the full bytes owns only its code.
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

void expectUntouchedBeyondTheCode(const tStatus& status) {
    EXPECT_STREQ(status.component, "keep");
    EXPECT_STREQ(status.file, "keep/file");
    EXPECT_EQ(status.line, 99u);
    EXPECT_EQ(status.extra[0], 42u);
}

TEST(ShortRecord, SetCodeMergeIntoAndClearWriteOnlyTheCode) {
    tStatus status = shortRecord(0);
    EXPECT_TRUE(status.setCode(kError, "new", "new/file", 5));
    EXPECT_EQ(status.code, kError);
    expectUntouchedBeyondTheCode(status);

    status.clear();
    EXPECT_EQ(status.code, 0);
    expectUntouchedBeyondTheCode(status);

    tStatus source;
    source.setCode(kWarning, "src", "src/file", 3);
    source.extra[0] = 8;
    status.mergeFrom(source);
    EXPECT_EQ(status.code, kWarning);
    expectUntouchedBeyondTheCode(status);
}

TEST(ShortRecord, MergingFromOneGivesAnEmptyLocationAndNoExtraWords) {
    const tStatus source = shortRecord(kError);
    tStatus status;
    status.extra[1] = 5;
    status.mergeFrom(source);
    EXPECT_EQ(status.code, kError);
    EXPECT_STREQ(status.component, "");
    EXPECT_STREQ(status.file, "");
    EXPECT_EQ(status.line, 0u);
    EXPECT_EQ(status.extra[0], 0u);
    EXPECT_EQ(status.extra[1], 5u);
}

// Copying stops after ten words or at the first zero, only when the code is taken; setCode
// empties the list.
TEST(ExtraWords, AreCopiedUpToTheFirstZeroOrTheTenthOnlyWithTheCode) {
    // On the heap, so that a read past the record is caught by the address sanitizer.
    auto full = std::make_unique<tStatus>();
    full->setCode(kError, "src", "src/file", 3);
    for (int i = 0; i < tStatus::kExtraWords; ++i) full->extra[i] = 100 + i;
    tStatus status;
    status.mergeFrom(*full);
    for (int i = 0; i < tStatus::kExtraWords; ++i) EXPECT_EQ(status.extra[i], 100u + i) << i;

    tStatus notTaken = recordHolding(kOtherError);
    notTaken.mergeFrom(*full);
    EXPECT_EQ(notTaken.extra[0], 0u);

    tStatus source;
    source.setCode(kWarning, "src", "src/file", 3);
    const uint64_t words[] = {1, 2, 3, 0, 9, 9};
    std::memcpy(source.extra, words, sizeof words);
    tStatus partial;
    for (auto& word : partial.extra) word = 7;
    partial.mergeFrom(source);
    EXPECT_EQ(partial.extra[2], 3u);
    EXPECT_EQ(partial.extra[3], 0u);
    EXPECT_EQ(partial.extra[4], 7u);
    partial.setCode(kError, "c", "f", 1);
    EXPECT_EQ(partial.extra[0], 0u);
}

}  // namespace
}  // namespace quorvane
