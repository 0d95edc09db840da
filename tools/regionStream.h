// Streams through zero-copy FIFO regions as a Host does: acquire regions, read or fill the
// elements in place, and delete the references, several at a time and out of order. The
// library must still hand them back to the target in acquisition order.
#pragma once

#include "stream.h"

namespace quorvane::tools {

StreamResult streamRegions(const StreamSetup& setup, FifoPlan& fifo, StatusLog& log);

}  // namespace quorvane::tools
