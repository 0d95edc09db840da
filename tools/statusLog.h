// Every status the demo meets: each non-zero code is printed once, the first time, with its
// meaning; all are counted for the summary.
#pragma once

#include <cstdint>
#include <map>

namespace quorvane::tools {

class StatusLog {
public:
    // Records `status`, answered by `call`, and hands it back.
    int32_t note(const char* call, int32_t status);

    // An error is a negative status; warnings (positive) do not fail the demo.
    uint64_t errorCount() const noexcept { return errors_; }
    const std::map<int32_t, uint64_t>& counts() const noexcept { return counts_; }

private:
    std::map<int32_t, uint64_t> counts_;
    uint64_t errors_ = 0;
};

}  // namespace quorvane::tools
