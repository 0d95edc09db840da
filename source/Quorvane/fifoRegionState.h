// Per-FIFO region bookkeeping of a session. Sessions keep one entry per FIFO that was started
// or from which a region was acquired; the entry's contents come with zero-copy regions.
#pragma once

namespace quorvane {

struct FifoRegionState {};

}  // namespace quorvane
