// What each soak thread did last, kept so that a failure can tell the story of the session it
// happened on. Each thread writes only its own ring, without locks (a lock here would order the
// threads' calls into the library, and hide races from ThreadSanitizer); the rings are read
// after the threads have ended.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace quorvane::soak {

// The session of an event that concerns every session (a program stop).
inline constexpr uint32_t kEverySession = 0xFFFFFFFFu;

struct HistoryEvent {
    uint64_t sequence = 0;  // global order, from one relaxed counter
    unsigned thread = 0;
    const char* operation = "";
    uint32_t session = 0;
    int32_t status = 0;
};

class ThreadHistory {
public:
    explicit ThreadHistory(unsigned thread) : thread_(thread), events_(kEvents) {}

    void record(const char* operation, uint32_t session, int32_t status) noexcept {
        events_[written_++ % kEvents] = {gSequence.fetch_add(1, std::memory_order_relaxed), thread_, operation, session,
                                         status};
    }
    // The remembered events that touched `session`, or every session.
    void collect(uint32_t session, std::vector<HistoryEvent>& into) const {
        for (size_t i = 0; i < std::min(written_, kEvents); ++i) {
            if (events_[i].session == session || events_[i].session == kEverySession) into.push_back(events_[i]);
        }
    }

    // The story of `session` across all threads, oldest first.
    static std::string story(const std::vector<ThreadHistory>& histories, uint32_t session) {
        std::vector<HistoryEvent> events;
        for (const ThreadHistory& history : histories) history.collect(session, events);
        std::sort(events.begin(), events.end(),
                  [](const HistoryEvent& a, const HistoryEvent& b) { return a.sequence < b.sequence; });
        std::string text;
        for (const HistoryEvent& event : events) {
            char line[160];
            std::snprintf(line, sizeof line, "  #%llu thread %u: %s -> %d\n",
                          static_cast<unsigned long long>(event.sequence), event.thread, event.operation, event.status);
            text += line;
        }
        return text;
    }

private:
    static constexpr size_t kEvents = size_t{1} << 15;  // more than a CI run's operations per thread
    static inline std::atomic<uint64_t> gSequence{0};
    unsigned thread_;
    std::vector<HistoryEvent> events_;
    size_t written_ = 0;
};

}  // namespace quorvane::soak
