// Target descriptions as users write them, typos and all: the simulated target's parser either
// describes a target or says what is wrong; it never crashes.
#include <string>

#include "TargetDescription.h"
#include "fuzzedBytes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string error;
    const auto target =
        brenn::sim::parseTargetDescription(std::string(reinterpret_cast<const char*>(data), size), error);
    quorvane::fuzzing::require((target != nullptr) == error.empty(), "a description is either a target or an error");
    return 0;
}
