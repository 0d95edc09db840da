// A failure planned for the Nth of a stand-in's calls from now, and with `always` for every later
// one too: how tests walk a failure through every place a call is made. Shared by the stand-ins;
// not part of any contract with libQuorvane. Not thread-safe: each stand-in guards its plan.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

class CallFailurePlan {
public:
    // nth 0 clears the plan.
    void set(size_t nth, int32_t code, bool always) noexcept {
        nth_ = nth;
        code_ = code;
        always_ = always;
        seen_ = 0;
        fired_ = 0;
    }
    // Counts one call: the code it answers instead of working, or nothing.
    std::optional<int32_t> next() noexcept {
        if (nth_ == 0) return std::nullopt;
        ++seen_;
        if (seen_ < nth_ || (seen_ > nth_ && !always_)) return std::nullopt;
        ++fired_;
        return code_;
    }
    // Calls that answered the planned code since the plan was set.
    size_t fired() const noexcept { return fired_; }

private:
    size_t nth_ = 0;
    int32_t code_ = 0;
    bool always_ = false;
    size_t seen_ = 0;
    size_t fired_ = 0;
};
