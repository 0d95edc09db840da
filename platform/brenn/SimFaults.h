// Faults that a target description tells the simulated target to inject: which BrennDll_
// functions a `fault` statement may name, the per-session counting that decides which call it
// answers, and the tally of what every fault, stall and drop statement has done on a session.
//
// A fault acts in the frame around every BrennDll_ function (SimCall.h), after a scripted
// answer had its chance and before the simulated work. Stalls act in the FIFOs (SimStall.h),
// dropped interrupts in the interrupt lines (SimIrqDrop.h).
#ifndef BRENN_SIM_FAULTS_H
#define BRENN_SIM_FAULTS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TargetDescription.h"

namespace brenn::sim {

struct CallArgs;

// A BrennDll_ function that takes a session as its first argument, and what its second one
// names.
struct FaultableFunction {
    std::string_view name;
    FaultScope argument;  // Session: neither a FIFO nor a register
};

// The entry of `name`, or null when it is no such function.
const FaultableFunction* findFaultable(std::string_view name) noexcept;
// Whether `name` is a BrennDll_ function that takes no session (and so cannot be faulted).
bool takesNoSession(std::string_view name) noexcept;
// The names a fault may give, for the message that refuses another one.
std::string faultableNames();

// How often each fault, stall and drop statement of a target acted on one session: calls it
// answered, stalls it began, assertions it dropped. Shared by the session, its FIFOs and its
// interrupt lines, which each count their own statements; read by BrennSim_DescribeFaults.
class InjectionCounts {
public:
    explicit InjectionCounts(size_t statements) : acted_(statements) {}
    void acted(size_t statement) noexcept { acted_[statement].fetch_add(1, std::memory_order_relaxed); }
    uint64_t count(size_t statement) const noexcept { return acted_[statement].load(std::memory_order_relaxed); }

private:
    std::vector<std::atomic<uint64_t>> acted_;
};

// What the fault statements make of one call.
struct InjectedAnswer {
    int32_t status = 0;     // 0: no fault answers this call
    bool replaces = false;  // the work is skipped (an error); else a warning follows a success
};

// Counts the call against every fault statement of its session's target that names
// `function` (and its FIFO or register) and answers what the first of them due says. A call
// whose first argument is no open session is not counted.
InjectedAnswer injectFault(const char* function, const CallArgs& arguments);

}  // namespace brenn::sim

#endif  // BRENN_SIM_FAULTS_H
