// The simulated FPGA target behind the BrennDll_ stand-in: its sessions and resource names,
// and the test control machinery (scripted answers and the call log).
//
// One process-wide Target. One mutex guards all of its tables; it is held only for table
// look-ups and updates, never while a call waits for anything, so it is never held across a
// call into another component and never taken twice by one thread.
#ifndef BRENN_SIM_TARGET_H
#define BRENN_SIM_TARGET_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrennSim.h"
#include "CallFailurePlan.h"
#include "SimFaults.h"
#include "SimFifo.h"
#include "SimRegisterSpace.h"
#include "TargetDescription.h"

namespace brenn::sim {

// Bits 12..15 of a handle are flags the caller may set; they never name a different session.
inline constexpr uint32_t kHandleFlagMask = 0xF000u;
inline constexpr uint32_t kFirstHandle = 0x10u;

inline uint32_t sessionKey(uint32_t handle) {
    return handle & ~kHandleFlagMask;
}

struct Session {
    uint32_t handle = 0;
    uint32_t parent = 0;  // 0 unless this is a resource session
    std::string bitfile;
    std::string signature;
    std::string resource;  // for a resource session: the name it was opened with
    uint32_t attribute = 0;
    uint32_t irqContextsReserved = 0;
    // What the session's target is; a resource session shares its parent's.
    std::shared_ptr<const TargetDescription> target;
    RegisterSpace registers;
    std::vector<uint32_t> resourceIndexes;  // in the order they were added, no repeats
    // Shared so that a caller blocked on a FIFO or on the interrupt lines keeps them alive
    // after the session is closed and the table has forgotten them.
    std::map<uint32_t, std::shared_ptr<SimFifo>> fifos;
    std::shared_ptr<SimIrqs> irqs;
    // Calls counted by each fault statement of the target (SimFaults.h), and what every fault,
    // stall and drop statement did on this session; a resource session counts its own.
    std::vector<uint64_t> faultCalls;
    std::shared_ptr<InjectionCounts> injections;
};

// Resource names known to the target. Indexes start at 1 so that an index of 0 always means
// "never written". Names live until the target is reset: BrennDll_GetResourceName hands out
// pointers to them that callers keep.
struct ResourceTable {
    std::vector<std::unique_ptr<std::string>> names;  // index i + 1
    std::vector<uint32_t> references;                 // index i + 1, from GetResourceIndex
    std::unordered_map<std::string, uint32_t> indexByName;

    uint32_t intern(const std::string& name);
    const std::string* find(uint32_t index) const;
};

struct TargetState {
    std::map<uint32_t, Session> sessions;  // keyed by handle, flags never set
    uint32_t nextHandle = kFirstHandle;
    // Off: every handle is new until reset. On: the lowest handle not open is issued again,
    // as real drivers do, so a stale close would end somebody else's session.
    bool reuseHandles = false;
    BrennSimSessionStats sessionStats{};
    uintptr_t nextIrqContext = 1;
    ResourceTable resources;

    Session* find(uint32_t handle);
    // A handle not in use, with no flag bit set and never 0.
    uint32_t issueHandle();
    uint32_t lowestFreeHandle() const;
    Session& open(uint32_t parent, std::shared_ptr<const TargetDescription> target);
};

// Puts every declared register of the session's target back to its reset value, as opening,
// resetting and downloading the target do. Bytes outside declared registers keep their value.
void applyResetValues(Session& session);

struct CallArgs {
    uint64_t values[kBrennSimMaxArgs] = {};
    uint32_t count = 0;
};

class Target {
public:
    static Target& instance() noexcept;

    // Runs fn(TargetState&) under the mutex and returns its result.
    template <typename Fn>
    decltype(auto) withState(Fn&& fn) {
        std::lock_guard lock(mutex_);
        return fn(state_);
    }

    // Runs fn(Session&) under the mutex, or answers kBrennSimInvalidSession when the handle
    // (flags ignored) names no open session.
    template <typename Fn>
    int32_t withSession(uint32_t handle, Fn&& fn) {
        std::lock_guard lock(mutex_);
        Session* session = state_.find(handle);
        return session ? fn(*session) : int32_t{kBrennSimInvalidSession};
    }

    // Holds: the next call of a function waits, before it does anything, until released.
    void holdNext(const char* function);
    void release(const char* function);
    size_t heldCalls(const char* function);
    // Called first by every BrennDll_ function: waits while a hold is set on `function`.
    void pauseIfHeld(const char* function);

    void script(const char* function, const BrennSimAnswer& answer);
    // Takes the oldest answer queued for `function`, or else the planned failure when this call
    // is the one planned; false when there is neither.
    bool takeAnswer(const char* function, BrennSimAnswer& answer);
    void planFailure(size_t nth, int32_t status, bool always) {
        std::lock_guard lock(mutex_);
        planned_.set(nth, status, always);
    }
    size_t plannedFailures() {
        std::lock_guard lock(mutex_);
        return planned_.fired();
    }
    size_t scriptsPending(const char* function);

    void record(const char* function, const CallArgs& args, int32_t result) noexcept;
    void enableLog(bool enabled);
    size_t callCount();
    bool getCall(size_t index, BrennSimCall& call);
    size_t countCalls(const char* function);

    void reset();

private:
    Target() = default;

    std::mutex mutex_;
    TargetState state_;

    // Holds have a mutex of their own: a held call waits without blocking the target.
    struct Hold {
        size_t pending = 0;  // calls still to be held
        size_t waiting = 0;  // calls held right now
        uint64_t releases = 0;
    };
    std::mutex holdMutex_;
    std::condition_variable holdReleased_;
    std::unordered_map<std::string, Hold> holds_;
    std::atomic<size_t> holdsPending_{0};  // lets calls skip the hold mutex when nothing is held
    std::unordered_map<std::string, std::deque<BrennSimAnswer>> scripts_;
    CallFailurePlan planned_;  // counts the calls no script answers
    std::vector<BrennSimCall> log_;
    size_t totalCalls_ = 0;
    std::unordered_map<std::string, size_t> callsByFunction_;
    bool logEnabled_ = true;
};

}  // namespace brenn::sim

#endif  // BRENN_SIM_TARGET_H
