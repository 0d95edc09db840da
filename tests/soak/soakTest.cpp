// A seeded soak of the whole library: several Host threads pick random operations from every
// export family against the simulated target, whose driver hands closed handles out again.
// Every status must be one the operation may answer; at the end, once the Host has deleted its
// references and closed what is still its own, no close reached the driver for a handle that
// was not open, every session was closed exactly once, regions went back in acquisition order
// and nothing is left registered or leaked. A hang aborts with what each thread was doing.
//   quorvane_soak_test [--seed S] [--operations N per thread] [--threads T] [--watchdog SECONDS]
// The replay line it prints repeats the threads' choices (their interleaving is the machine's).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "Quorvane.h"
#include "quarks/memory.h"
#include "support/simulatedPlatform.h"

namespace quorvane::soak {
namespace {

struct Options {
    uint64_t seed = 1, operations = 2000, threads = 4, watchdogSeconds = 150;
    std::string program = "quorvane_soak_test";

    std::string replay() const {
        return program + " --seed " + std::to_string(seed) + " --operations " + std::to_string(operations) +
               " --threads " + std::to_string(threads);
    }
} gOptions;

// FIFO i has element type kFifoTypes[i] in every session; 0 and 1 are read, 2 and 3 written.
constexpr uint32_t kFifoTypes[] = {7, 2, 5, 4};
constexpr uint32_t kTimeouts[] = {0, 0, 1, 5, 20};
constexpr size_t kMostReferences = 48;

using Random = std::mt19937_64;

// The Host model. The library closes sessions on its own (a refused close completes when the
// last region comes back, a parent's close closes its resource sessions, a program stop runs
// the cleanups), so the Host keeps a correct Host's rules, and within them every interleaving
// must keep every check: it closes a session at most once and never after its parent's close or
// a program stop; it closes within a family (a session and its resource sessions) one at a time;
// it repeats a close only while it holds back one of that session's regions, so the repeat is
// certainly refused; it stops the program only while none of its calls (but reference deletions
// and aborts) is in progress.
struct Session {
    uint32_t handle = 0;
    std::shared_ptr<Session> parent;  // set for a resource session
    bool closing = false;             // closed by the Host, with its parent or by a program stop
    std::mutex family;                // top level only: held across a close in the family

    std::mutex& familyLock() { return parent ? parent->family : family; }
};
using SessionPtr = std::shared_ptr<Session>;

struct Reference {
    uint32_t reference = 0;
    SessionPtr session;
};

// Under the Host's mutex: the index of a random item that fits, if any.
template <class T, class Fits>
std::optional<size_t> pick(Random& random, const std::vector<T>& items, Fits fits) {
    for (size_t i = 0, start = random() >> 1; i < items.size(); ++i) {
        if (fits(items[(start + i) % items.size()])) return (start + i) % items.size();
    }
    return std::nullopt;
}

// The Host's tables; `mutex` guards them and every Session::closing.
struct Host {
    // Held across each of the program's calls; a program stop waits for them, holding new ones back.
    std::shared_lock<std::shared_mutex> call() {
        std::lock_guard turn(turnstile);
        return std::shared_lock(program);
    }

    void stopProgram() {
        std::lock_guard turn(turnstile);
        std::unique_lock stop(program);
        HostSim_RunProgramStop();
        ++stops;
        std::lock_guard lock(mutex);
        for (const SessionPtr& session : sessions) session->closing = true;  // the cleanups owned them
        sessions.clear();
    }

    // A random session; with `closeable`, one the Host may still close.
    SessionPtr session(Random& random, bool closeable) {
        std::lock_guard lock(mutex);
        const auto found =
            pick(random, sessions, [&](const SessionPtr& session) { return !(closeable && session->closing); });
        return found ? sessions[*found] : nullptr;
    }

    // Takes a random reference; with `ofCloseable`, one of a session the Host may still close.
    std::optional<Reference> take(Random& random, bool ofCloseable) {
        std::lock_guard lock(mutex);
        const auto found =
            pick(random, references, [&](const Reference& held) { return !(ofCloseable && held.session->closing); });
        if (!found) return std::nullopt;
        Reference taken = std::move(references[*found]);
        references[*found] = std::move(references.back());
        references.pop_back();
        return taken;
    }

    std::mutex turnstile, mutex;
    std::shared_mutex program;
    std::vector<SessionPtr> sessions;  // open or being closed by the Host
    std::vector<Reference> references;
    // Failures seen on the soak threads (past the first twenty only counted), and outcomes that
    // show the run reached the paths it is for.
    std::atomic<uint64_t> failures{0}, stops{0}, regionsLent{0}, closesRefused{0}, acquisitionsAborted{0},
        resourceSessions{0};
};

class Worker {
public:
    Worker(Host& host, uint64_t seed) : host_(host), random_(seed) {}

    // What the thread is doing, for the watchdog's story.
    std::atomic<const char*> doing{"starting"};
    std::atomic<uint32_t> onSession{0};

    void run(uint64_t operations) {
        for (uint64_t i = 0; i < operations; ++i) {
            const Operation& operation = choose();
            doing = operation.name;
            if (operation.kind == kFree) {
                operation.run(*this, nullptr);
                continue;
            }
            auto call = host_.call();
            SessionPtr session = host_.session(random_, false);
            onSession = session ? session->handle : 0;
            if (session || operation.kind == kCall) operation.run(*this, session);
        }
        doing = "finished";
    }

    // Deletes every reference and closes every session the Host may still close.
    void finish() {
        doing = "finish";
        while (auto held = host_.take(random_, false)) deleteReference(*held);
        while (SessionPtr session = host_.session(random_, true)) close(session, "final close", {0});
    }

private:
    // kFree: made whenever the Host likes, while a program stop may run; kCall: one of the
    // program's calls; kOnSession: one of its calls, on a random session of the Host's.
    enum Kind { kFree, kCall, kOnSession };
    struct Operation {
        const char* name;
        unsigned weight;
        Kind kind;
        void (*run)(Worker&, const SessionPtr&);
    };

    const Operation& choose() {
        static constexpr Operation kOperations[] = {
            {"open", 6, kCall,
             [](Worker& w, const SessionPtr&) {
                 uint32_t handle = 0;
                 const int32_t status = Quorvane_Open("", "", "RIO0", 0, &handle);
                 w.expectIn("open", status, {0});
                 if (status == 0) w.add(handle, nullptr);
             }},
            {"delete reference", 26, kFree,
             [](Worker& w, const SessionPtr&) {
                 if (auto held = w.host_.take(w.random_, false)) w.deleteReference(*held);
             }},
            {"open resource session", 3, kOnSession,
             [](Worker& w, const SessionPtr& parent) {
                 if (parent->parent) return;
                 uint32_t handle = 0;
                 const int32_t status = Quorvane_OpenResource(parent->handle, "soak", 0, &handle);
                 // A close of the parent may overtake the open: gone from the driver, from the
                 // registry, or its handle already given to a resource session elsewhere.
                 w.expectIn("open resource session", status, {0, -63100, -63195, -52005});
                 if (status != 0) return;
                 ++w.host_.resourceSessions;
                 w.add(handle, parent);
             }},
            {"close", 4, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 w.close(session, "close", {0, -61217});
             }},
            {"close with a region held back, and again", 2, kCall,
             [](Worker& w, const SessionPtr&) {
                 if (std::optional<Reference> held = w.host_.take(w.random_, true)) {
                     w.close(held->session, "close with a region held back", {-61217}, 2);
                     w.lend(std::move(*held));  // whoever deletes it completes the close
                 }
             }},
            {"start FIFO", 3, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 const int32_t status = Quorvane_StartFifo(session->handle, w.random_() % 4);
                 w.expectIn("start FIFO", status, {0, -63100, -63195});
             }},
            {"acquire region", 30, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 const uint32_t fifo = w.random_() % 4;
                 const size_t requested = 1 + w.random_() % 64;
                 const uint32_t timeout = kTimeouts[w.random_() % std::size(kTimeouts)];
                 uint32_t reference = 0;
                 size_t acquired = 0, remaining = 0;
                 const auto acquire =
                     fifo < 2 ? Quorvane_AcquireFifoReadRegionScalar : Quorvane_AcquireFifoWriteRegionScalar;
                 const int32_t status = acquire(session->handle, fifo, &reference, requested, kFifoTypes[fifo], 0,
                                                timeout, &acquired, &remaining);
                 w.expectIn("acquire region", status, {0, -61219, -50400, -50405, -63100, -63195});
                 if (status == -50405) ++w.host_.acquisitionsAborted;
                 if (status != 0) return;
                 ++w.host_.regionsLent;
                 w.lend({reference, session});
             }},
            {"reset or download", 4, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 const auto forward = w.random_() % 2 ? Quorvane_Reset : Quorvane_Download;
                 w.expectIn("reset or download", forward(session->handle), {0, -61217, -63100});
             }},
            {"enumerate resources", 2, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 void** names = HostSim_NewStringArray(nullptr, 0);
                 // -63080: resources were added between the count and the fill; -63101: a close
                 // overtook it and took the indexes it had counted (the driver knows no such index).
                 w.expectIn("enumerate resources", Quorvane_GetResources(session->handle, names),
                            {0, -63100, -63080, -63101});
                 HostSim_DisposeStringArray(names);
             }},
            {"add resources", 2, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 const char* added[] = {"soak-a", "soak-b"};
                 void** names = HostSim_NewStringArray(added, 2);
                 w.expectIn("add resources", Quorvane_AddResources(session->handle, names, nullptr, nullptr),
                            {0, -63100});
                 HostSim_DisposeStringArray(names);
             }},
            {"register access", 4, kOnSession,
             [](Worker& w, const SessionPtr& session) {
                 uint32_t value = static_cast<uint32_t>(w.random_());
                 w.expectIn("register write", Quorvane_Write32(session->handle, 0x20, value), {0, -63100});
                 w.expectIn("register read", Quorvane_Read32(session->handle, 0x20, &value), {0, -63100});
             }},
            {"abort calls in progress", 3, kFree, [](Worker&, const SessionPtr&) { HostSim_AbortCallsInProgress(); }},
            {"program stop", 1, kFree, [](Worker& w, const SessionPtr&) { w.host_.stopProgram(); }},
        };
        {  // Keep a few sessions to work on, and the Host's references bounded.
            std::lock_guard lock(host_.mutex);
            if (host_.sessions.size() < 2 && random_() % 2 == 0) return kOperations[0];
            if (host_.references.size() > kMostReferences) return kOperations[1];
        }
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
        if (std::ranges::find(allowed, status) == allowed.end() && host_.failures++ < 20) {
            ADD_FAILURE() << what << " on session 0x" << std::hex << onSession << " answered " << std::dec << status;
        }
    }

    void add(uint32_t handle, SessionPtr parent) {
        auto session = std::make_shared<Session>();
        session->handle = handle;
        session->parent = std::move(parent);
        std::lock_guard lock(host_.mutex);
        // A resource session opened while its parent's close was under way belongs to that close.
        if (!session->parent || !session->parent->closing) host_.sessions.push_back(std::move(session));
    }

    void lend(Reference reference) {
        std::lock_guard lock(host_.mutex);
        host_.references.push_back(std::move(reference));
    }

    // Closes the session `times` over, and so its resource sessions, unless they are closed
    // already. The caller holds a call of the program.
    void close(const SessionPtr& session, const char* what, std::initializer_list<int32_t> allowed, int times = 1) {
        std::lock_guard family(session->familyLock());
        {
            std::lock_guard lock(host_.mutex);
            if (session->closing) return;  // closed meanwhile, with its parent
            for (const SessionPtr& other : host_.sessions) {
                if (other == session || other->parent == session) other->closing = true;
            }
        }
        onSession = session->handle;
        for (int i = 0; i < times; ++i) {
            const int32_t status = Quorvane_Close(session->handle, 0);
            expectIn(what, status, allowed);
            if (status == -61217) ++host_.closesRefused;
        }
        std::lock_guard lock(host_.mutex);
        std::erase_if(host_.sessions,
                      [&](const SessionPtr& other) { return other == session || other->parent == session; });
    }

    void deleteReference(const Reference& held) {
        onSession = held.session->handle;
        expectIn("delete reference", HostSim_DeleteReference(held.reference), {0, -61217});
    }

    Host& host_;
    Random random_;
};

class Soak : public testing::SimulatedPlatformTest {};

TEST_F(Soak, EveryInvariantHoldsUnderRandomOperationsOnSeveralThreads) {
    BrennSim_ReuseHandles(1);
    BrennSim_EnableLog(0);
    const uint64_t blocksBefore = heap::liveBlocks();
    std::cout << "soak: seed " << gOptions.seed << ", " << gOptions.operations << " operations on each of "
              << gOptions.threads << " threads\nreplay: " << gOptions.replay() << std::endl;

    Host host;
    std::deque<Worker> workers;
    for (uint64_t t = 0; t < gOptions.threads; ++t) workers.emplace_back(host, gOptions.seed * 1000003 + t);
    // The watchdog: the soak runs on its own thread, and a hang aborts with each thread's story.
    auto soak = std::async(std::launch::async, [&] {
        std::vector<std::thread> threads;
        for (Worker& worker : workers) threads.emplace_back([&] { worker.run(gOptions.operations); });
        for (std::thread& thread : threads) thread.join();
        workers.front().finish();
    });
    if (soak.wait_for(std::chrono::seconds(gOptions.watchdogSeconds)) != std::future_status::ready) {
        std::cerr << "soak: no end after " << gOptions.watchdogSeconds << " s (deadlock?)\n" << std::hex;
        for (const Worker& worker : workers) {
            std::cerr << "  thread: " << worker.doing << ", session 0x" << worker.onSession << "\n";
        }
        std::cerr << "replay: " << gOptions.replay() << std::endl;
        std::abort();
    }

    BrennSimSessionStats sessions{};
    BrennSim_GetSessionStats(&sessions);
    BrennSimFifoStats fifos{};
    BrennSim_GetTotalFifoStats(&fifos);
    std::cout << "soak: " << sessions.opened << " sessions (" << host.resourceSessions << " resource), "
              << host.regionsLent << " regions, " << host.closesRefused << " closes refused, "
              << host.acquisitionsAborted << " acquisitions aborted, " << host.stops << " program stops\n";
    EXPECT_EQ(host.failures.load(), 0u) << "failures on the soak threads (the first twenty are above)";
    EXPECT_EQ(sessions.closesNotOpen, 0u) << "a close reached the driver for a handle that is not open";
    EXPECT_EQ(sessions.closed, sessions.opened) << "every session opened is closed exactly once";
    EXPECT_EQ(testing::registeredSessionCount(), 0u);
    EXPECT_EQ(HostSim_LiveReferenceCount(), 0u);
    EXPECT_EQ(HostSim_ProgramStopRegistrationCount(), 0u);
    EXPECT_EQ(fifos.outOfOrderReleases, 0u);
    EXPECT_EQ(fifos.excessReleases, 0u);
    EXPECT_EQ(fifos.elementsReleased, fifos.elementsAcquired) << "every acquired element went back";
    EXPECT_EQ(heap::liveBlocks(), blocksBefore) << "records, states and queues are all given back";
    if (gOptions.operations >= 1000) {  // a run this long that never reached these paths would prove little
        EXPECT_GT(host.regionsLent.load(), 0u);
        EXPECT_GT(host.closesRefused.load(), 0u);
        EXPECT_GT(host.resourceSessions.load(), 0u);
        EXPECT_GT(host.stops.load(), 0u);
    }
}

}  // namespace
}  // namespace quorvane::soak

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    quorvane::soak::Options& options = quorvane::soak::gOptions;
    options.program = argv[0];
    const std::map<std::string, uint64_t*> named = {{"--seed", &options.seed},
                                                    {"--operations", &options.operations},
                                                    {"--threads", &options.threads},
                                                    {"--watchdog", &options.watchdogSeconds}};
    for (int i = 1; i < argc; i += 2) {
        const auto option = named.find(argv[i]);
        char* end = nullptr;
        if (option != named.end() && i + 1 < argc) *option->second = std::strtoull(argv[i + 1], &end, 10);
        if (!end || end == argv[i + 1] || *end != '\0') {
            std::cerr << "usage: " << argv[0] << " [--seed S] [--operations N] [--threads T] [--watchdog SECONDS]\n";
            return 2;
        }
    }
    options.threads = std::max<uint64_t>(options.threads, 1);
    return RUN_ALL_TESTS();
}
