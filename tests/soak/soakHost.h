// The Host side of the soak: what a Host program keeps while several of its threads use the
// library at once, and the rules a correct Host follows.
//
// The library closes sessions on its own (a refused close completes when the last region comes
// back; a parent closes with its last resource session; the program stop runs the cleanup
// procedures; a parent's close, now or when it completes, closes its resource sessions). A Host
// that then closed the same handle again would itself reach the driver for a handle it no
// longer holds, so this Host keeps to these rules:
//   - it closes a session at most once, and never after closing its parent or after a program
//     stop that ran since the session was opened (the stop's cleanup owns it then);
//   - it decides to close a session of a family (a session and its resource sessions) only
//     while no other close in that family is under way, so that a resource session's close
//     never races its parent's;
//   - it repeats a close only while it holds back one of that session's own regions, so that
//     the repeated close is certainly refused;
//   - it stops the program only while none of its own calls (other than reference deletions and
//     aborts, which the Host makes whenever it likes) is in progress.
// Within these rules every interleaving is allowed, and the library must keep every invariant.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

namespace quorvane::soak {

using Random = std::mt19937_64;

// A session the Host opened and has not closed yet.
struct HostSession {
    uint32_t handle = 0;
    uint64_t stopsBefore = 0;             // program stops that had run when it was opened
    std::shared_ptr<HostSession> parent;  // set for a resource session
    bool closing = false;                 // the Host closed it or its parent (SoakHost's mutex)
    std::mutex family;                    // top level only: held across a close in the family

    // The family's lock: the session's own, or its parent's.
    std::mutex& familyLock() { return parent ? parent->family : family; }
};

using SessionPtr = std::shared_ptr<HostSession>;

// A region reference the Host holds, with the session it was acquired on.
struct HostReference {
    uint32_t reference = 0;
    SessionPtr session;
};

class SoakHost {
public:
    // Held for the duration of one of the program's calls; a program stop waits until none is
    // in progress and holds new ones back meanwhile.
    class Call {
    public:
        explicit Call(SoakHost& host);
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        SoakHost& host_;
    };

    // Stops the program: runs every cleanup procedure registered with the Host. Returns how many.
    size_t stopProgram();
    uint64_t stops() const;

    // Sessions. Callers hold a Call.
    void addSession(uint32_t handle, SessionPtr parent);
    // Any session in the table, whether or not the Host may still close it (calls on it may find
    // it closed by the library); null when there is none.
    SessionPtr anySession(Random& random);
    // A top-level session the Host may still close (a parent for a resource session).
    SessionPtr closeableParent(Random& random);
    // A session the Host may still close (not marked yet); null when there is none.
    SessionPtr closeCandidate(Random& random);
    // Marks the session, and its resource sessions, as closed by the Host: nobody closes them
    // again. False when it may not be closed any more. The caller holds its family lock from
    // before this call until its close has returned.
    bool beginClose(const SessionPtr& session);
    // Drops a closed session (if not null), its resource sessions, and every session a program
    // stop owns now.
    void forget(const SessionPtr& session);
    size_t sessionCount();

    // References.
    void lend(HostReference reference);
    std::optional<HostReference> takeAny(Random& random);
    // Takes a reference acquired on a session the Host may still close, so that the caller holds
    // that session's region back.
    std::optional<HostReference> takeOfCloseable(Random& random);
    size_t referenceCount();

private:
    bool closeable(const HostSession& session) const;  // mutex_ held
    void markClosing(HostSession& session);            // mutex_ held

    // The program gate.
    std::mutex gateMutex_;
    std::condition_variable gateChanged_;
    int callsInProgress_ = 0;
    bool stopping_ = false;
    std::atomic<uint64_t> stops_{0};  // changes only while no call is in progress

    std::mutex mutex_;
    std::vector<SessionPtr> sessions_;
    std::vector<HostReference> references_;
};

}  // namespace quorvane::soak
