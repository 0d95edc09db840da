// External data value references of the simulated Host: creation, the record, and deletion
// through the callback stored at offset 104.
#include <set>
#include <vector>

#include "hostTestSupport.h"

namespace {

using hosttest::HostTest;
using hosttest::readAt;
using hosttest::writeAt;

std::vector<void*> gDeletedRecords;
std::vector<size_t> gLiveDuringCallback;

int32_t onDeleted(void* record) {
    gDeletedRecords.push_back(record);
    gLiveDuringCallback.push_back(HostSim_LiveReferenceCount());
    return readAt<int32_t>(record, 8);  // whatever the owner put there, to tell the answer back
}

// Behaves like a region release that closes a session: it calls back into the Host.
int32_t onDeletedCallingTheHost(void* record) {
    gDeletedRecords.push_back(record);
    RTSetCleanupProc(onDeletedCallingTheHost, record, kHostCleanupOnProgramStop);
    RTSetCleanupProc(onDeletedCallingTheHost, record, kHostCleanupRemove);
    uint32_t another = 0;
    void* anotherRecord = nullptr;
    if (EDVR_CreateReference(&another, &anotherRecord) == kHostNoError) HostSim_DeleteReference(another);
    return 0;
}

class ReferenceTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gDeletedRecords.clear();
        gLiveDuringCallback.clear();
    }

    // A reference with `callback` at offset 104, as the library fills it.
    uint32_t makeReference(HostDeleteCallback callback, void** recordOut = nullptr) {
        uint32_t reference = 0;
        void* record = nullptr;
        EXPECT_EQ(EDVR_CreateReference(&reference, &record), kHostNoError);
        if (record != nullptr) writeAt(record, kHostEdvrDeleteCallbackOffset, callback);
        if (recordOut != nullptr) *recordOut = record;
        return reference;
    }
};

TEST_F(ReferenceTest, CreatedReferencesHaveDistinctNonZeroNumbersAndZeroFilledRecords) {
    uint32_t reference = 0;
    void* record = nullptr;
    ASSERT_EQ(EDVR_CreateReference(&reference, &record), kHostNoError);
    ASSERT_NE(record, nullptr);
    for (size_t i = 0; i < kHostEdvrRecordSize; ++i) EXPECT_EQ(static_cast<const char*>(record)[i], 0) << i;
    EXPECT_EQ(HostSim_ReferenceRecord(reference), record);
    EXPECT_EQ(HostSim_CallCount("EDVR_CreateReference"), 1u);

    std::set<uint32_t> numbers{reference};
    for (int i = 0; i < 49; ++i) numbers.insert(makeReference(nullptr));
    EXPECT_EQ(numbers.size(), 50u);
    EXPECT_EQ(numbers.count(0u), 0u);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 50u);
    for (uint32_t number : numbers) EXPECT_EQ(HostSim_DeleteReference(number), 0) << "no callback: nothing to call";
}

TEST_F(ReferenceTest, DeletionCallsTheCallbackWithTheRecordOnceAndFreesIt) {
    void* record = nullptr;
    const uint32_t reference = makeReference(onDeleted, &record);
    writeAt<int32_t>(record, 8, -61);

    EXPECT_EQ(HostSim_DeleteReference(reference), -61);
    EXPECT_EQ(gDeletedRecords, std::vector<void*>{record});
    // The reference is gone before its callback runs: a second deletion cannot reach the record.
    EXPECT_EQ(gLiveDuringCallback, std::vector<size_t>{0});
    EXPECT_EQ(HostSim_ReferenceRecord(reference), nullptr);
    for (uint32_t unknown : {reference, 0u, 12345u}) EXPECT_EQ(HostSim_DeleteReference(unknown), -1);
    EXPECT_EQ(gDeletedRecords.size(), 1u);
}

TEST_F(ReferenceTest, CallbackMayCallBackIntoTheHost) {
    void* record = nullptr;
    const uint32_t reference = makeReference(onDeletedCallingTheHost, &record);
    EXPECT_EQ(HostSim_DeleteReference(reference), 0);
    EXPECT_EQ(gDeletedRecords, std::vector<void*>{record});
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
}

class InjectedReferenceTest : public ReferenceTest, public ::testing::WithParamInterface<int32_t> {};

TEST_P(InjectedReferenceTest, InjectedAnswerCreatesNothingAndWritesNothing) {
    HostSim_FailNext("EDVR_CreateReference", GetParam());
    uint32_t reference = 77;
    int sentinel = 0;
    void* record = &sentinel;
    EXPECT_EQ(EDVR_CreateReference(&reference, &record), GetParam());
    EXPECT_EQ(reference, 77u);
    EXPECT_EQ(record, &sentinel);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(EDVR_CreateReference(&reference, &record), kHostNoError) << "only the next call";
    HostSim_DeleteReference(reference);
}

INSTANTIATE_TEST_SUITE_P(HostAnswers, InjectedReferenceTest,
                         ::testing::Values(kHostOutOfMemory, kHostCallAborted, 1, 1000));

}  // namespace
