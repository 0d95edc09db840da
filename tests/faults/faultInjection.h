// The failures the fault loop walks through every scenario: the library's Nth allocation, the
// Nth call of one of the Host's functions with one of the Host's answers, the Nth call into the
// FPGA interface library or the device service with an error status, once (transient) or from
// then on (persistent).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorvane::testing {

struct Injection {
    enum class Kind { Allocation, Host, Driver, Service };
    Kind kind;
    const char* function;  // the Host function; null for the other kinds
    int32_t code;          // what the failing call answers
    std::string name() const;
};

// Every injection the loop tries.
std::vector<Injection> allInjections();

// Arms `injection` for its `nth` occasion from now; `persistent` fails every later one too.
void arm(const Injection& injection, size_t nth, bool persistent);
// Switches every injection off.
void disarm();
// How many failures the armed injection has caused so far.
size_t failuresCaused(const Injection& injection);

// What the failure hit, for the list of sites reached: the function that failed (an allocation
// counts as "allocation") and, for allocations, which one of the step it was.
std::string failedCallee(const Injection& injection, size_t nth, size_t allocationsBeforeStep);

}  // namespace quorvane::testing
