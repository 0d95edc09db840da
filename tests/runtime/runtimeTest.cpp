// Status records and their merge rule, allocation, containers with a sticky failure flag, and the
// locks and event with real threads (coordinating through atomics, never the objects under test).
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "moskshared/moskshared.h"
#include "protons/cppNewDelete/memoryAllocation.h"
#include "protons/status/stlContainers.h"
#include "quarks/memory.h"
#include "quarks/synchronization.h"

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
    std::make_unique<tMoskAutoStatus>(&caller)->code = incoming;  // handed back when destroyed
    std::make_unique<tMoskAutoStatus>(nullptr)->code = incoming;  // a null target is never written
    EXPECT_EQ(caller, expected32);

    // Narrowed to 32 bits: the low half, and -52005 at moskshared:453 when the code does not fit.
    tStatus narrowed = recordHolding(heldCode);
    EXPECT_EQ(narrowToU32(static_cast<uint64_t>(incoming), narrowed), static_cast<uint32_t>(low));
    const bool flagged = static_cast<uint64_t>(incoming) > UINT32_MAX && replaces(heldCode, kStatusInvalidArgument);
    EXPECT_EQ(held(narrowed), flagged ? std::to_string(kStatusInvalidArgument) + " Quorvane moskshared:453" : before);
}

constexpr int64_t kHeld[] = {0, 7, 1234, -52000, -61217};
// Codes wider than 32 bits, or a warning whose low half is an error: their low halves are -2, 0, -1.
constexpr int64_t kIncoming[] = {0, 7, 1234, -52000, -61217, 0x1FFFFFFFE, 0x100000000, 0xFFFFFFFF};
INSTANTIATE_TEST_SUITE_P(AllPairs, MergeRule,
                         ::testing::Combine(::testing::ValuesIn(kHeld), ::testing::ValuesIn(kIncoming)));

// The component keeps 9 characters, the file 100 (a longer one its first and last 49 around
// ".."), both zero-filled to the end of their fields.
TEST(StatusRecord, LocationTextsAreCutToTheirFieldsAndZeroFilled) {
    for (const std::size_t length : {0u, 2u, 9u, 10u, 100u, 101u, 102u, 250u}) {
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
        EXPECT_EQ(std::string(status.component, sizeof status.component), component) << length;
        EXPECT_EQ(std::string(status.file, sizeof status.file), file) << length;
    }
}

// The switch fails every request from the planned one on until switched off, failed ones counted
// too; an earlier error keeps requests off the heap; an overflowing size fails, never a short block.
TEST(Allocation, TheSwitchAnEarlierErrorOrAnOverflowingSizeMakesARequestFail) {
    const uint64_t requests = testing::allocationRequests();
    testing::failAllocation(1, true);
    tStatus status;
    EXPECT_EQ(allocateWithStatus(8, status), nullptr) << "the very next request must fail";
    EXPECT_EQ(allocate(8), nullptr);
    testing::stopFailingAllocations();
    EXPECT_EQ(held(status), "-52000 Quorvane quarks/memory:416");
    EXPECT_EQ(allocateWithStatus(16, status), nullptr);
    EXPECT_EQ(newWithStatus<int>(status, 1), nullptr);
    EXPECT_EQ(testing::allocationRequests(), requests + 2) << "failed requests count; after an error none is made";

    volatile uint64_t hugeCount = UINT64_MAX / 2;  // in the library such counts come at run time
    EXPECT_EQ(arrayBytes(hugeCount, 4), UINT64_MAX);
    EXPECT_EQ(allocate(arrayBytes(hugeCount, 4)), nullptr) << "refused before the system's allocator sees it";
    // SIZE_MAX / 8 + 2 elements of 8 bytes would wrap around to 8 bytes.
    EXPECT_THROW((void)tStlAllocator<uint64_t>().allocate(SIZE_MAX / 8 + 2), std::bad_alloc);
    tVector<uint64_t> vector;
    EXPECT_FALSE(vector.resize(SIZE_MAX)) << "a size beyond the container's maximum raises the flag too";
    EXPECT_TRUE(vector.allocationFailed());
}

// Each container adds the values 0, 1, ... and lists what it holds, in order.
using tIntMap = tMap<int, int>;
using tBlockDeque = tDeque<std::array<int, 16>>;  // a few items to a block: appending allocates often

bool add(tIntMap& map, int value) {
    auto [stored, inserted] = map.tryEmplace(value, value * 10);
    return stored != nullptr && inserted;
}
bool add(tBlockDeque& deque, int value) {
    const std::array<int, 16>* item = deque.emplaceBack(std::array<int, 16>{value});
    return item != nullptr && (*item)[0] == value;
}
template <class Sequence>
bool add(Sequence& sequence, int value) {
    return sequence.pushBack(value);
}

std::vector<int> contents(tIntMap& map) {
    std::vector<int> values;
    for (auto& [key, value] : map.items()) values.push_back(value == key * 10 ? key : -1);
    return values;
}
std::vector<int> contents(tBlockDeque& deque) {
    std::vector<int> values;
    for (; !deque.empty(); deque.popFront()) values.push_back(deque.front()[0]);
    return values;
}
template <class Sequence>
std::vector<int> contents(Sequence& sequence) {
    std::vector<int> values(sequence.items().begin(), sequence.items().end());
    if constexpr (requires { sequence.removeFirst(0); }) {  // the list: emptied by value
        for (const int value : values) EXPECT_TRUE(sequence.removeFirst(value) && !sequence.removeFirst(value));
    }
    return values;
}

template <class Container>
class ContainerAllocation : public ::testing::Test {};
using Containers = ::testing::Types<tIntMap, tBlockDeque, tList<int>, tVector<int>>;
TYPED_TEST_SUITE(ContainerAllocation, Containers);

// Allocation 1, 2, ... fails until a run meets none: what went in stays, and so does the flag.
TYPED_TEST(ContainerAllocation, KeepsWhatItHoldsAndRaisesItsStickyFlag) {
    constexpr std::size_t kValues = 40;
    bool failed = true;
    for (uint64_t nth = 1; failed; ++nth) {
        ASSERT_LT(nth, 500u) << "the additions never ran without a failure";
        SCOPED_TRACE(::testing::Message() << "allocation " << nth << " fails");
        testing::failAllocation(nth);
        TypeParam container;
        std::vector<int> added;
        for (int value = 0; value < static_cast<int>(kValues); ++value)
            if (add(container, value)) added.push_back(value);
        testing::stopFailingAllocations();
        failed = added.size() < kValues;
        EXPECT_GE(added.size(), kValues - 1) << "one failed allocation lost more than one addition";
        EXPECT_EQ(contents(container), added);
        EXPECT_EQ(container.allocationFailed(), failed);
        tStatus status;
        EXPECT_EQ(container.reportInto(status), failed);
        EXPECT_EQ(held(status), failed ? "-52000 Quorvane protons/status/stlStatus:34" : "0" + kNone);
    }
}

using namespace std::chrono_literals;
using tResult = tEvent::tWaitResult;
constexpr auto kStillBlocked = 50ms;  // only ever used to show that something has not happened

// Whether `condition` came to hold within 20 s; if not, the code under test hangs.
template <class Condition>
bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return condition();
}

// Created only when the status holds no error; recursive; other threads wait for the last unlock.
TEST(Mutex, IsRecursiveAndExcludesOtherThreadsUntilTheLastUnlock) {
    tStatus failed, status;
    failed.setCode(kStatusMemoryFull, "earlier", 1);
    EXPECT_FALSE(tMutex(failed).initialised());
    tMutex mutex(status);
    std::atomic<bool> announced{false}, entered{false};
    mutex.lock();
    EXPECT_TRUE(mutex.tryLock());
    std::thread other([&] {
        tMutexGuard hold(mutex, [&] { announced = true; });
        entered = true;
    });
    EXPECT_TRUE(eventually([&] { return announced.load(); }));
    mutex.unlock();
    std::this_thread::sleep_for(kStillBlocked);
    EXPECT_FALSE(entered) << "one unlock of two released the mutex";
    mutex.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

struct EventCase {
    const char* name;
    bool autoReset, createdSignalled, setWhileWaiting, signalledAfter;
    int setsBefore, waiters, timeoutMs, passing;  // sets before the waiters start; time-out 0: wait()
};
class Event : public ::testing::TestWithParam<EventCase> {};

// Auto-reset: a signal lets one wait through, consumed by it; manual: every wait, until reset. A
// waiter not served waits out its time-out (-52007 at line 2215; at 2248 for a zero time-out).
TEST_P(Event, LetsThroughTheWaitersItShouldAndKeepsOrConsumesItsSignal) {
    const EventCase& c = GetParam();
    tStatus status;
    tEvent event(status, c.autoReset, c.createdSignalled);
    for (int i = 0; i < c.setsBefore; ++i) event.set();
    std::atomic<int> passed{0}, done{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < c.waiters; ++i) {
        waiters.emplace_back([&] {
            tStatus waited;
            const uint64_t start = MonotonicNow();
            if (c.timeoutMs == 0) event.wait();
            const bool through = c.timeoutMs == 0 || event.waitFor(c.timeoutMs, waited) == tResult::signalled;
            passed += through;
            EXPECT_EQ(held(waited), through ? "0" + kNone : "-52007 Quorvane quarks/synchronization:2215");
            EXPECT_TRUE(through || MonotonicNow() - start >= c.timeoutMs * 1000000u) << "timed out early";
            ++done;
        });
    }
    std::this_thread::sleep_for(kStillBlocked);  // for the waiters to reach the wait
    if (c.setWhileWaiting) event.set();
    // Waiters without limit that the event fails to let through are let go, to end the test.
    EXPECT_TRUE(c.timeoutMs != 0 || eventually([&] { return done == c.waiters; })) << "waiters not let through";
    while (c.timeoutMs == 0 && done < c.waiters) event.set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(passed.load(), c.passing);

    tStatus after;
    EXPECT_EQ(event.tryConsume(), c.signalledAfter);
    EXPECT_EQ(event.waitFor(0, after), c.signalledAfter && !c.autoReset ? tResult::signalled : tResult::timedOut);
    event.reset();
    EXPECT_EQ(event.waitFor(0, after), tResult::timedOut);
    EXPECT_EQ(held(after), "-52007 Quorvane quarks/synchronization:2248");
}

INSTANTIATE_TEST_SUITE_P(
    Table, Event,
    ::testing::Values(EventCase{"AutoSetsDoNotAccumulate", true, false, false, false, 2, 2, 200, 1},
                      EventCase{"AutoOneSetServesOneOfTwoWaiting", true, false, true, false, 0, 2, 200, 1},
                      EventCase{"AutoWaitConsumes", true, false, true, false, 0, 1, 0, 1},
                      EventCase{"AutoSignalKeptWithoutWaiters", true, false, false, true, 1, 0, 0, 0},
                      EventCase{"ManualSetWakesEveryWaiter", false, false, true, true, 0, 3, 0, 3},
                      EventCase{"ManualCreatedSignalledServesAll", false, true, false, true, 0, 2, 200, 2}),
    [](const auto& info) { return std::string(info.param.name); });

// A writer waits only for earlier readers; a later one is turned away, takes its count back, waits.
TEST(ReaderWriterLock, AWaitingWriterGoesBeforeLaterReaders) {
    tStatus status;
    tReaderWriterLock lock(status);
    std::atomic<bool> writerInside{false}, readerAnnounced{false};
    lock.acquireShared();
    std::thread writer([&] {
        tExclusiveLock hold(lock);
        writerInside = true;
    });
    EXPECT_TRUE(eventually([&] { return lock.writerActiveForTesting() == 1; }));
    std::thread reader([&] {
        EXPECT_FALSE(lock.tryAcquireShared()) << "a reader got in while a writer waited";
        tSharedLock hold(lock, [&] { readerAnnounced = true; });
        EXPECT_TRUE(writerInside) << "a later reader went before the waiting writer";
    });
    EXPECT_TRUE(eventually([&] { return readerAnnounced.load(); }));
    std::this_thread::sleep_for(kStillBlocked);
    EXPECT_FALSE(writerInside) << "the writer did not wait for the reader counted before it";
    EXPECT_TRUE(eventually([&] { return lock.readerCountForTesting() == 1; })) << "a reader turned away kept its count";
    lock.releaseShared();
    writer.join();
    reader.join();
}

// A writer is always alone inside, and data it changes in two steps is never seen half changed.
TEST(ReaderWriterLock, ExcludesUnderLoad) {
    tStatus status;
    tReaderWriterLock lock(status);
    constexpr int kWriters = 2, kReaders = 3, kWrites = 300, kWriter = 1000;
    std::atomic<int> inside{0}, writersDone{0}, violations{0}, reads{0};  // inside: readers, plus kWriter a writer
    uint64_t data[2] = {0, 0};                                            // plain: only the lock keeps it whole
    std::vector<std::thread> threads;
    for (int i = 0; i < kWriters; ++i)
        threads.emplace_back([&] {
            // Each write waits for a read after the one before, so that readers keep coming.
            for (int write = 0; write < kWrites && eventually([&] { return reads > write; }); ++write) {
                tExclusiveLock hold(lock);
                violations += inside.fetch_add(kWriter) != 0;
                ++data[0];
                std::this_thread::yield();
                ++data[1];
                inside -= kWriter;
            }
            ++writersDone;
        });
    for (int i = 0; i < kReaders; ++i)
        threads.emplace_back([&, i] {
            for (; writersDone < kWriters; ++reads) {
                tSharedLock hold(lock);
                violations += inside.fetch_add(1) >= kWriter || data[0] != data[1];
                inside -= 1;
                if (i == 0) hold.unlock();  // the hold must then not be released again
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(data[0], uint64_t{kWriters * kWrites});
    EXPECT_EQ(lock.readerCountForTesting(), 1) << "not free: 1 plus the readers counted";
    EXPECT_EQ(lock.writerActiveForTesting(), 0);
}

}  // namespace
}  // namespace quorvane
