// A seeded soak of the whole library: several Host threads pick random operations from every
// export family against the simulated target, with a driver that hands closed handles out again.
// Checked while it runs and at the end: every status is one the operation may answer; no close
// reaches the driver for a handle that is not open; regions come back in acquisition order and
// never more than was lent; and after the Host has deleted its references and closed what is
// still its own, every session was closed exactly once, the registry is empty and nothing
// leaked. A watchdog turns a deadlock into a failure that says what each thread was doing.
//
//   quorvane_soak_test [--seed S] [--operations N] [--threads T] [--watchdog SECONDS]
//
// N operations per thread. A failure prints the command line that replays the seed (the
// threads' choices repeat; their interleaving is the machine's).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "Quorvane.h"
#include "quarks/memory.h"
#include "soakHost.h"
#include "soakWatchdog.h"
#include "support/simulatedPlatform.h"

namespace quorvane::soak {
namespace {

struct Options {
    uint64_t seed = 1;
    uint64_t operations = 2000;
    unsigned threads = 4;
    unsigned watchdogSeconds = 150;
    std::string program = "quorvane_soak_test";

    std::string replay() const {
        return program + " --seed " + std::to_string(seed) + " --operations " + std::to_string(operations) +
               " --threads " + std::to_string(threads);
    }
};

Options gOptions;

// Every FIFO keeps one element type and direction in every session: 0 and 1 are read, 2 and 3
// written.
constexpr uint32_t kFifoTypes[] = {7, 2, 5, 4};
constexpr uint32_t kTimeouts[] = {0, 0, 1, 5, 20};
constexpr size_t kMostReferences = 48;

// Reports a failure seen on a soak thread; past the first twenty only counts them, so that a
// broken invariant checked at every step does not flood the log.
class Failures {
public:
    void add(const std::string& what) {
        if (count_.fetch_add(1) < 20) ADD_FAILURE() << what;
    }
    uint64_t count() const { return count_.load(); }

private:
    std::atomic<uint64_t> count_{0};
};

// Outcomes worth counting, to show that the run reached the paths it is for.
struct Coverage {
    std::atomic<uint64_t> regionsLent{0};
    std::atomic<uint64_t> closesRefused{0};
    std::atomic<uint64_t> retriesRefused{0};
    std::atomic<uint64_t> acquisitionsAborted{0};
    std::atomic<uint64_t> resourceSessions{0};
};

class Worker {
public:
    Worker(SoakHost& host, Failures& failures, Coverage& coverage, ThreadActivity& activity, uint64_t seed)
        : host_(host), failures_(failures), coverage_(coverage), activity_(activity), random_(seed) {}

    void run(uint64_t operations) {
        for (uint64_t i = 0; i < operations; ++i) {
            const Operation& operation = choose();
            activity_.operation = operation.name;
            (this->*operation.run)();
            activity_.operationsDone = i + 1;
            if (i % 50 == 49) checkDriver();
        }
        activity_.operation = "finished";
    }

    // Deletes every reference and closes every session the Host may still close.
    void finish() {
        while (auto held = host_.takeAny(random_)) expectIn("delete reference", deleteReference(*held), {0, -61217});
        SoakHost::Call call(host_);
        while (SessionPtr session = host_.closeCandidate(random_)) {
            std::lock_guard family(session->familyLock());
            if (!host_.beginClose(session)) continue;
            expectIn("final close", Quorvane_Close(session->handle, 0), {0});
            host_.forget(session);
        }
    }

private:
    struct Operation {
        const char* name;
        unsigned weight;
        void (Worker::*run)();
    };

    const Operation& choose() {
        static constexpr Operation kOperations[] = {
            {"open", 6, &Worker::open},
            {"open resource session", 3, &Worker::openResource},
            {"close", 4, &Worker::close},
            {"close with a region held back, and again", 2, &Worker::retriedClose},
            {"start FIFO", 3, &Worker::startFifo},
            {"acquire region", 30, &Worker::acquireRegion},
            {"delete reference", 26, &Worker::deleteAnyReference},
            {"reset or download", 4, &Worker::resetOrDownload},
            {"enumerate resources", 2, &Worker::getResources},
            {"add resources", 2, &Worker::addResources},
            {"register access", 4, &Worker::registerAccess},
            {"abort calls in progress", 3, &Worker::abortCalls},
            {"program stop", 1, &Worker::programStop},
        };
        // Keep a few sessions to work on, and the Host's references bounded.
        if (host_.sessionCount() < 2 && random_() % 2 == 0) return kOperations[0];
        if (host_.referenceCount() > kMostReferences) return kOperations[6];
        unsigned total = 0;
        for (const Operation& operation : kOperations) total += operation.weight;
        unsigned roll = static_cast<unsigned>(random_() % total);
        for (const Operation& operation : kOperations) {
            if (roll < operation.weight) return operation;
            roll -= operation.weight;
        }
        return kOperations[0];
    }

    void expectIn(const char* what, int32_t status, std::initializer_list<int32_t> allowed) {
        if (std::find(allowed.begin(), allowed.end(), status) != allowed.end()) return;
        failures_.add(std::string(what) + " on session 0x" + hex(activity_.session) + " answered " +
                      std::to_string(status));
    }

    static std::string hex(uint32_t value) {
        char text[16];
        std::snprintf(text, sizeof text, "%x", value);
        return text;
    }

    // Checks made while the run goes on: the driver saw no close of a handle that is not open and
    // no release out of order or beyond what was lent.
    void checkDriver() {
        BrennSimSessionStats sessions{};
        BrennSim_GetSessionStats(&sessions);
        if (sessions.closesNotOpen != 0) failures_.add("a close reached the driver for a handle that is not open");
        BrennSimFifoStats fifos{};
        BrennSim_GetTotalFifoStats(&fifos);
        if (fifos.outOfOrderReleases != 0) failures_.add("elements were released out of acquisition order");
        if (fifos.excessReleases != 0) failures_.add("more elements were released than were lent");
    }

    SessionPtr target() {
        SessionPtr session = host_.anySession(random_);
        activity_.session = session ? session->handle : 0;
        return session;
    }

    void open() {
        SoakHost::Call call(host_);
        uint32_t handle = 0;
        const int32_t status = Quorvane_Open("", "", "RIO0", 0, &handle);
        activity_.session = handle;
        expectIn("open", status, {0});
        if (status == 0) host_.addSession(handle, nullptr);
    }

    void openResource() {
        SoakHost::Call call(host_);
        SessionPtr parent = host_.closeableParent(random_);
        if (!parent) return;
        activity_.session = parent->handle;
        uint32_t handle = 0;
        const int32_t status = Quorvane_OpenResource(parent->handle, "soak", 0, &handle);
        // A close of the parent may overtake the open: gone from the driver, from the registry,
        // or its handle already given to a resource session elsewhere.
        expectIn("open resource session", status, {0, -63100, -63195, -52005});
        if (status != 0) return;
        ++coverage_.resourceSessions;
        host_.addSession(handle, parent);
    }

    void close() {
        SoakHost::Call call(host_);
        SessionPtr session = host_.closeCandidate(random_);
        if (!session) return;
        std::lock_guard family(session->familyLock());
        if (!host_.beginClose(session)) return;  // closed meanwhile, with its parent
        activity_.session = session->handle;
        const int32_t status = Quorvane_Close(session->handle, 0);
        expectIn("close", status, {0, -61217});
        if (status == -61217) ++coverage_.closesRefused;
        host_.forget(session);
    }

    void retriedClose() {
        SoakHost::Call call(host_);
        std::optional<HostReference> held = host_.takeOfCloseable(random_);
        if (!held) return;
        {
            std::lock_guard family(held->session->familyLock());
            if (host_.beginClose(held->session)) {
                activity_.session = held->session->handle;
                expectIn("close with a region held back", Quorvane_Close(held->session->handle, 0), {-61217});
                expectIn("repeated close with a region held back", Quorvane_Close(held->session->handle, 0), {-61217});
                ++coverage_.retriesRefused;
                host_.forget(held->session);
            }
        }
        host_.lend(std::move(*held));  // whoever deletes it completes the close
    }

    void startFifo() {
        SoakHost::Call call(host_);
        if (SessionPtr session = target()) {
            expectIn("start FIFO", Quorvane_StartFifo(session->handle, random_() % 4), {0, -63100, -63195});
        }
    }

    void acquireRegion() {
        SoakHost::Call call(host_);
        SessionPtr session = target();
        if (!session) return;
        const uint32_t fifo = random_() % 4;
        const size_t requested = 1 + random_() % 64;
        const uint32_t timeout = kTimeouts[random_() % std::size(kTimeouts)];
        uint32_t reference = 0;
        size_t acquired = 0, remaining = 0;
        const auto acquire = fifo < 2 ? Quorvane_AcquireFifoReadRegionScalar : Quorvane_AcquireFifoWriteRegionScalar;
        const int32_t status =
            acquire(session->handle, fifo, &reference, requested, kFifoTypes[fifo], 0, timeout, &acquired, &remaining);
        expectIn("acquire region", status, {0, -61219, -50400, -50405, -63100, -63195});
        if (status == -50405) ++coverage_.acquisitionsAborted;
        if (status != 0) return;
        if (reference == 0) failures_.add("an acquisition answered 0 without a reference");
        ++coverage_.regionsLent;
        host_.lend({reference, session});
    }

    int32_t deleteReference(const HostReference& held) {
        activity_.session = held.session->handle;
        return HostSim_DeleteReference(held.reference);
    }

    void deleteAnyReference() {
        // The Host deletes references whenever it likes: no Call, and a program stop may run.
        if (auto held = host_.takeAny(random_)) expectIn("delete reference", deleteReference(*held), {0, -61217});
    }

    void resetOrDownload() {
        SoakHost::Call call(host_);
        if (SessionPtr session = target()) {
            const auto forward = random_() % 2 ? Quorvane_Reset : Quorvane_Download;
            expectIn("reset or download", forward(session->handle), {0, -61217, -63100});
        }
    }

    void getResources() {
        SoakHost::Call call(host_);
        if (SessionPtr session = target()) {
            void** names = HostSim_NewStringArray(nullptr, 0);
            // -63080: resources were added between the count and the fill.
            expectIn("enumerate resources", Quorvane_GetResources(session->handle, names), {0, -63100, -63080});
            HostSim_DisposeStringArray(names);
        }
    }

    void addResources() {
        SoakHost::Call call(host_);
        if (SessionPtr session = target()) {
            const char* added[] = {"soak-a", "soak-b"};
            void** names = HostSim_NewStringArray(added, 2);
            expectIn("add resources", Quorvane_AddResources(session->handle, names, nullptr, nullptr), {0, -63100});
            HostSim_DisposeStringArray(names);
        }
    }

    void registerAccess() {
        SoakHost::Call call(host_);
        if (SessionPtr session = target()) {
            uint32_t value = static_cast<uint32_t>(random_());
            expectIn("register write", Quorvane_Write32(session->handle, 0x20, value), {0, -63100});
            expectIn("register read", Quorvane_Read32(session->handle, 0x20, &value), {0, -63100});
        }
    }

    void abortCalls() { HostSim_AbortCallsInProgress(); }

    void programStop() {
        host_.stopProgram();
        SoakHost::Call call(host_);
        host_.forget(nullptr);  // the stop's cleanups own what was open before it
    }

    SoakHost& host_;
    Failures& failures_;
    Coverage& coverage_;
    ThreadActivity& activity_;
    Random random_;
};

class Soak : public testing::SimulatedPlatformTest {};

TEST_F(Soak, EveryInvariantHoldsUnderRandomOperationsOnSeveralThreads) {
    BrennSim_ReuseHandles(1);
    BrennSim_EnableLog(0);
    const uint64_t blocksBefore = heap::liveBlocks();
    std::printf("soak: seed %llu, %llu operations on each of %u threads\nreplay: %s\n",
                static_cast<unsigned long long>(gOptions.seed), static_cast<unsigned long long>(gOptions.operations),
                gOptions.threads, gOptions.replay().c_str());

    SoakHost host;
    Failures failures;
    Coverage coverage;
    std::vector<ThreadActivity> activities(gOptions.threads);
    {
        Watchdog watchdog(std::chrono::seconds(gOptions.watchdogSeconds), activities, gOptions.replay());
        std::vector<Worker> workers;
        for (unsigned t = 0; t < gOptions.threads; ++t) {
            workers.emplace_back(host, failures, coverage, activities[t], gOptions.seed * 1000003 + t);
        }
        std::vector<std::thread> threads;
        for (Worker& worker : workers) threads.emplace_back([&] { worker.run(gOptions.operations); });
        for (std::thread& thread : threads) thread.join();
        workers.front().finish();
    }

    BrennSimSessionStats sessions{};
    BrennSim_GetSessionStats(&sessions);
    BrennSimFifoStats fifos{};
    BrennSim_GetTotalFifoStats(&fifos);
    std::printf(
        "soak: %llu sessions, %llu regions, %llu closes refused, %llu refused again, %llu acquisitions "
        "aborted, %llu program stops, %llu resource sessions\n",
        static_cast<unsigned long long>(sessions.opened), static_cast<unsigned long long>(coverage.regionsLent.load()),
        static_cast<unsigned long long>(coverage.closesRefused.load()),
        static_cast<unsigned long long>(coverage.retriesRefused.load()),
        static_cast<unsigned long long>(coverage.acquisitionsAborted.load()),
        static_cast<unsigned long long>(host.stops()),
        static_cast<unsigned long long>(coverage.resourceSessions.load()));

    EXPECT_EQ(failures.count(), 0u) << "failures on the soak threads (the first twenty are above)";
    EXPECT_EQ(sessions.closesNotOpen, 0u) << "a close reached the driver for a handle that is not open";
    EXPECT_EQ(sessions.closed, sessions.opened) << "every session opened is closed exactly once";
    EXPECT_EQ(BrennSim_OpenSessionCount(), 0u);
    EXPECT_EQ(testing::registeredSessionCount(), 0u);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_EQ(fifos.outOfOrderReleases, 0u);
    EXPECT_EQ(fifos.excessReleases, 0u);
    EXPECT_EQ(fifos.elementsReleased, fifos.elementsAcquired) << "every acquired element went back";
    EXPECT_EQ(heap::liveBlocks(), blocksBefore) << "records, states and queues are all given back";
    if (gOptions.operations >= 1000) {
        // A run this long that never reached these paths would prove little.
        EXPECT_GT(coverage.regionsLent.load(), 0u);
        EXPECT_GT(coverage.closesRefused.load() + coverage.retriesRefused.load(), 0u);
        EXPECT_GT(host.stops(), 0u);
    }
    if (HasFailure()) std::printf("replay: %s\n", gOptions.replay().c_str());
}

bool parseNumber(const char* text, uint64_t& value) {
    char* end = nullptr;
    value = std::strtoull(text, &end, 10);
    return end != text && *end == '\0';
}

}  // namespace
}  // namespace quorvane::soak

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    quorvane::soak::Options& options = quorvane::soak::gOptions;
    options.program = argv[0];
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        uint64_t value = 0;
        const bool known = name == "--seed" || name == "--operations" || name == "--threads" || name == "--watchdog";
        if (!known || i + 1 >= argc || !quorvane::soak::parseNumber(argv[i + 1], value)) {
            std::fprintf(stderr, "usage: %s [--seed S] [--operations N] [--threads T] [--watchdog SECONDS]\n", argv[0]);
            return 2;
        }
        if (name == "--seed") options.seed = value;
        if (name == "--operations") options.operations = value;
        if (name == "--threads") options.threads = static_cast<unsigned>(std::max<uint64_t>(value, 1));
        if (name == "--watchdog") options.watchdogSeconds = static_cast<unsigned>(value);
    }
    return RUN_ALL_TESTS();
}
