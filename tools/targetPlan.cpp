#include "targetPlan.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "BrennSim.h"
#include "Quorvane.h"

namespace quorvane::tools {

namespace {

// Regions the region stream holds at once, and buffer depth in blocks that leaves the target
// room to fill behind them.
constexpr uint64_t kWindow = 4;
constexpr uint64_t kDepthInBlocks = 8;
constexpr uint64_t kMaxBufferBytes = uint64_t{64} << 20;

const char* directionName(bool toHost) {
    return toHost ? "to host" : "to target";
}

const BrennSimFifoInfo* findDeclared(const std::vector<BrennSimFifoInfo>& infos, uint32_t fifo) {
    for (const auto& info : infos) {
        if (info.fifo == fifo) return &info;
    }
    return nullptr;
}

// The lowest FIFO number from `first` on that no declaration and no other plan claims.
uint32_t freeNumber(const std::vector<BrennSimFifoInfo>& infos, uint32_t first, const FifoPlan& other) {
    uint32_t fifo = first;
    while (findDeclared(infos, fifo) || (other.used && other.fifo == fifo)) ++fifo;
    return fifo;
}

std::string planOne(const std::vector<BrennSimFifoInfo>& infos, bool undeclaredAllowed, std::optional<uint32_t> chosen,
                    uint32_t undeclaredDefault, const ElementType* type, const FifoPlan& other, FifoPlan& plan) {
    const uint32_t wanted = plan.toHost ? kBrennSimToHost : kBrennSimToTarget;
    const char* option = plan.toHost ? "--read-fifo" : "--write-fifo";
    const BrennSimFifoInfo* info = nullptr;
    if (chosen) {
        info = findDeclared(infos, *chosen);
        if (info && info->direction != wanted) {
            return std::string(option) + " " + std::to_string(*chosen) + ": the target declares that FIFO " +
                   directionName(!plan.toHost);
        }
        if (!info && !undeclaredAllowed) {
            return std::string(option) + " " + std::to_string(*chosen) + ": the target declares no such FIFO";
        }
        if (other.used && other.fifo == *chosen) return "one FIFO cannot be read and written";
    } else {
        const auto found = std::find_if(infos.begin(), infos.end(), [&](const BrennSimFifoInfo& candidate) {
            return candidate.direction == wanted;
        });
        if (found != infos.end()) info = &*found;
        if (!info && !undeclaredAllowed) return {};  // nothing to stream this way
    }

    plan.used = true;
    if (info) {
        plan.fifo = info->fifo;
        plan.declared = true;
        plan.name = info->name;
        plan.type = elementTypeOfCode(info->elementType);
        plan.depth = info->depth;
        plan.rate = info->rate;
        plan.pattern = {info->patternStart, info->patternStep};
        if (!plan.type) return "FIFO " + std::to_string(plan.fifo) + " has an unknown element type";
        if (type && type != plan.type) {
            return "FIFO " + std::to_string(plan.fifo) + " is declared " + plan.type->name + ", not " + type->name;
        }
        return {};
    }
    plan.fifo = chosen ? *chosen : freeNumber(infos, undeclaredDefault, other);
    plan.type = type ? type : elementTypeOfCode(8);
    plan.pattern = {0, 1};
    return {};
}

}  // namespace

std::string planTarget(uint32_t session, const DemoOptions& options, TargetPlan& plan) {
    char name[128] = {};
    if (BrennSim_TargetName(session, name, sizeof name) == 1) plan.name = name;
    plan.undeclaredAllowed = BrennSim_AllowsUndeclared(session) == 1;
    std::vector<BrennSimFifoInfo> infos(BrennSim_DescribeFifos(session, nullptr, 0));
    infos.resize(BrennSim_DescribeFifos(session, infos.data(), infos.size()));

    plan.read.toHost = true;
    plan.write.toHost = false;
    std::string error =
        planOne(infos, plan.undeclaredAllowed, options.readFifo, 0, options.type, plan.write, plan.read);
    if (error.empty()) {
        error = planOne(infos, plan.undeclaredAllowed, options.writeFifo, 1, options.type, plan.read, plan.write);
    }
    if (error.empty() && !plan.read.used && !plan.write.used) error = "the target has no FIFO to stream through";
    return error;
}

bool prepareDepth(uint32_t session, FifoPlan& fifo, uint64_t block, StatusLog& log) {
    const uint64_t maxDepth = std::min<uint64_t>(kBrennSimMaxFifoDepth, kMaxBufferBytes / fifo.type->bytes);
    const uint64_t wanted = std::min(block * kDepthInBlocks, maxDepth);
    const uint64_t needed = std::min(block * kWindow, maxDepth);
    if (!fifo.declared || fifo.depth < needed) {
        uint32_t actual = 0;
        const int32_t status =
            log.note("Quorvane_ConfigureFifo2",
                     Quorvane_ConfigureFifo2(session, fifo.fifo, static_cast<uint32_t>(wanted), &actual));
        if (status < 0) return false;
        if (fifo.declared) {
            std::printf("  FIFO %u: declared depth %llu holds fewer than %llu blocks; configured to %llu\n", fifo.fifo,
                        static_cast<unsigned long long>(fifo.depth), static_cast<unsigned long long>(kWindow),
                        static_cast<unsigned long long>(actual != 0 ? actual : wanted));
        }
        fifo.depth = actual != 0 ? actual : wanted;
    }
    fifo.window = std::clamp<uint64_t>(fifo.depth / block, 1, kWindow);
    return true;
}

void printPlan(const TargetPlan& plan) {
    for (const FifoPlan* fifo : {&plan.read, &plan.write}) {
        if (!fifo->used) {
            std::printf("  %-10s no FIFO: the target declares none this way; that direction is skipped\n",
                        directionName(fifo->toHost));
            continue;
        }
        std::string label = fifo->declared ? " \"" + fifo->name + "\"" : std::string(" (undeclared)");
        std::printf("  %-10s FIFO %u%s %s, depth %llu, pattern start %llu step %llu", directionName(fifo->toHost),
                    fifo->fifo, label.c_str(), fifo->type->name, static_cast<unsigned long long>(fifo->depth),
                    static_cast<unsigned long long>(fifo->pattern.start),
                    static_cast<unsigned long long>(fifo->pattern.step));
        if (fifo->rate != 0) std::printf(", at most %llu elements/s", static_cast<unsigned long long>(fifo->rate));
        std::printf("\n");
    }
}

}  // namespace quorvane::tools
