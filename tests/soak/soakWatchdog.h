// Ends a soak that stops making progress: after its time limit it prints what every thread was
// doing, and how to replay the run, and aborts the process, so that a deadlock shows up as a
// failure with a story instead of a hung CI job.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quorvane::soak {

// What one soak thread is doing right now; written by that thread, read by the watchdog.
struct ThreadActivity {
    std::atomic<const char*> operation{"starting"};
    std::atomic<uint32_t> session{0};
    std::atomic<uint64_t> operationsDone{0};
};

class Watchdog {
public:
    Watchdog(std::chrono::seconds limit, const std::vector<ThreadActivity>& threads, std::string replay)
        : threads_(threads), replay_(std::move(replay)), thread_([this, limit] { watch(limit); }) {}
    ~Watchdog() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        done_.notify_one();
        thread_.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    void watch(std::chrono::seconds limit) {
        std::unique_lock lock(mutex_);
        if (done_.wait_for(lock, limit, [this] { return finished_; })) return;
        std::fprintf(stderr, "soak watchdog: no end after %lld s (deadlock?)\n", static_cast<long long>(limit.count()));
        for (size_t i = 0; i < threads_.size(); ++i) {
            const ThreadActivity& activity = threads_[i];
            std::fprintf(stderr, "  thread %zu: %s, session 0x%x, %llu operations done\n", i, activity.operation.load(),
                         activity.session.load(), static_cast<unsigned long long>(activity.operationsDone.load()));
        }
        std::fprintf(stderr, "replay: %s\n", replay_.c_str());
        std::abort();
    }

    const std::vector<ThreadActivity>& threads_;
    const std::string replay_;
    std::mutex mutex_;
    std::condition_variable done_;
    bool finished_ = false;
    std::thread thread_;
};

}  // namespace quorvane::soak
