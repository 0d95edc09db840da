// What the demo streams on the target of an open session: which FIFO in each direction, its
// element type, the pattern its data follows, and how deep its buffer is.
#pragma once

#include <cstdint>
#include <string>

#include "demoOptions.h"
#include "elementType.h"
#include "pattern.h"
#include "statusLog.h"

namespace quorvane::tools {

struct FifoPlan {
    bool used = false;
    bool toHost = true;
    uint32_t fifo = 0;
    const ElementType* type = nullptr;
    Pattern pattern;
    bool declared = false;
    std::string name;     // as declared; empty for an undeclared FIFO
    uint64_t depth = 0;   // elements; 0 while not known
    uint64_t rate = 0;    // declared elements per second; 0: unlimited
    uint64_t window = 1;  // regions held at once by the region stream
    // Pattern index of the next element through this FIFO. The target counts elements from
    // the FIFO's first use, across regions and copies alike, so every stream continues it.
    uint64_t nextIndex = 0;
};

struct TargetPlan {
    std::string name;
    bool undeclaredAllowed = false;
    FifoPlan read;
    FifoPlan write;
};

// Chooses the FIFOs from the options and the target's declarations. Answers an error text
// for a choice the target cannot serve, empty on success.
std::string planTarget(uint32_t session, const DemoOptions& options, TargetPlan& plan);

// Gives an undeclared FIFO, or a declared one too shallow for several blocks, a buffer of
// several blocks, and sets the region window from the depth. False when the library refused.
bool prepareDepth(uint32_t session, FifoPlan& fifo, uint64_t block, StatusLog& log);

// One line per direction: "to host    FIFO 0 "Samples" I16, depth ..., pattern ...".
void printPlan(const TargetPlan& plan);

}  // namespace quorvane::tools
