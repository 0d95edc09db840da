#include "statusLog.h"

#include <cstdio>

#include "progress.h"
#include "statusText.h"

namespace quorvane::tools {

int32_t StatusLog::note(const char* call, int32_t status) {
    const bool first = counts_.find(status) == counts_.end();
    ++counts_[status];
    if (status < 0) ++errors_;
    if (status != 0 && first) {
        endProgressLine();
        std::printf("  %s %d from %s: %s\n", status < 0 ? "error" : "warning", status, call, statusMeaning(status));
        std::fflush(stdout);
    }
    return status;
}

}  // namespace quorvane::tools
