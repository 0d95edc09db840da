// What the region and copy streams share: their inputs and what they report.
#pragma once

#include <cstdint>

#include "statusLog.h"
#include "targetPlan.h"

namespace quorvane::tools {

struct StreamSetup {
    uint32_t session = 0;
    uint64_t block = 0;        // elements per region or transfer
    uint64_t amount = 0;       // bytes to move
    bool terminal = false;     // draw a progress bar
    uint32_t timeout = 10000;  // milliseconds any one call may wait for data or room
};

struct StreamResult {
    bool ran = false;
    bool failed = false;  // stopped early by an error status
    uint64_t bytes = 0;
    double seconds = 0.0;
    uint64_t regionsAcquired = 0;
    uint64_t regionsRetired = 0;     // references the Host deleted
    uint64_t elementsInRegions = 0;  // elements lent by the regions acquired
    uint64_t mismatches = 0;         // elements read that broke the pattern, or regions whose
                                     // record disagreed with the acquisition
};

}  // namespace quorvane::tools
