// Handshakes between test threads, built on the standard library so that the objects under
// test are never used to coordinate their own tests.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace quorvane::testsupport {

// Reaching this means the code under test hangs.
inline constexpr std::chrono::milliseconds kHangLimit{20000};
// Only ever used to show that something has NOT happened yet; ordering itself is established
// by handshakes.
inline constexpr std::chrono::milliseconds kStillBlocked{50};

class tSignal {
public:
    void set() {
        {
            std::lock_guard<std::mutex> hold(mutex_);
            set_ = true;
        }
        changed_.notify_all();
    }
    // False when kHangLimit passed first.
    bool waitSet() { return waitFor(kHangLimit); }
    bool staysUnset() { return !waitFor(kStillBlocked); }

private:
    bool waitFor(std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> hold(mutex_);
        return changed_.wait_for(hold, limit, [this] { return set_; });
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};

// For state that has no notification (the lock's raw counters).
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = kHangLimit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

}  // namespace quorvane::testsupport
