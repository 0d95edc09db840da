// Target descriptions as users write them, typos and all: the simulated target's parser either
// describes a target or says what is wrong; it never crashes.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "TargetDescription.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string error;
    const auto target =
        brenn::sim::parseTargetDescription(std::string(reinterpret_cast<const char*>(data), size), error);
    if ((target != nullptr) == error.empty()) return 0;
    std::fputs("fuzz invariant broken: a description is either a target or an error\n", stderr);
    std::abort();
}
