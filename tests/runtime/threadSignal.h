// Handshakes between test threads, built on the standard library so that the objects under
// test are never used to coordinate their own tests.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace quorvane::testsupport {

// Upper bound for anything a test waits for; reaching it means the code under test hangs.
inline constexpr std::chrono::seconds kHangLimit{20};
// How long something must stay blocked to count as blocked. Only ever used to show that an
// event has NOT happened yet; ordering itself is established by handshakes.
inline constexpr std::chrono::milliseconds kStillBlocked{50};

// A one-way flag that threads can wait for.
class tSignal {
public:
    void set() {
        {
            std::lock_guard<std::mutex> hold(mutex_);
            set_ = true;
        }
        changed_.notify_all();
    }
    // True once set; false when kHangLimit passed first.
    bool waitSet() {
        std::unique_lock<std::mutex> hold(mutex_);
        return changed_.wait_for(hold, kHangLimit, [this] { return set_; });
    }
    bool isSet() {
        std::lock_guard<std::mutex> hold(mutex_);
        return set_;
    }
    // True when the flag stayed unset for kStillBlocked.
    bool staysUnset() {
        std::unique_lock<std::mutex> hold(mutex_);
        return !changed_.wait_for(hold, kStillBlocked, [this] { return set_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};

// Polls `condition` until it holds or kHangLimit passes; for state that has no notification
// (the lock's raw counters).
template <class Condition>
bool eventually(Condition condition) {
    const auto limit = std::chrono::steady_clock::now() + kHangLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::yield();
    }
    return true;
}

}  // namespace quorvane::testsupport
