// Streams through copying FIFO transfers: reads into a Host array and checks it, or fills a
// Host array with the pattern and writes it.
#pragma once

#include "stream.h"

namespace quorvane::tools {

StreamResult streamCopies(const StreamSetup& setup, FifoPlan& fifo, StatusLog& log);

}  // namespace quorvane::tools
