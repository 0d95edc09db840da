// What the simulated target is: its registers, FIFOs, interrupts and resources, as read from a
// target description (the text format of TargetDescription.md) or the built-in default.
//
// A description is parsed once per BrennDll_Open and then shared, read-only, by the session,
// its resource sessions and its FIFOs.
#ifndef BRENN_TARGET_DESCRIPTION_H
#define BRENN_TARGET_DESCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrennSim.h"

namespace brenn::sim {

enum class FifoDirection { Unknown, TargetToHost, HostToTarget };

struct RegisterSpec {
    std::string name;
    uint32_t address = 0;
    uint32_t bytes = 4;
    uint64_t resetValue = 0;
};

// An interrupt raised by the FPGA side of a FIFO every `every` elements it moves.
struct FifoIrq {
    uint32_t bit = 0;
    uint64_t every = 0;
};

struct FifoSpec {
    uint32_t number = 0;
    std::string name;
    FifoDirection direction = FifoDirection::Unknown;
    uint32_t elementType = 0;  // Host numeric type code 1..8
    size_t elementBytes = 0;
    size_t depth = kBrennSimDefaultFifoDepth;
    uint64_t rate = 0;  // elements per second, 0: no limit
    uint64_t patternStart = 0;
    uint64_t patternStep = 1;
    std::vector<FifoIrq> irqs;
};

// A register write that raises interrupts: a non-zero value raises `bit`, or, for a mask
// register, the value written is the mask of bits raised.
struct RegisterIrq {
    std::string registerName;
    uint32_t address = 0;
    bool mask = false;
    uint32_t bit = 0;
};

struct TargetDescription {
    std::string title;
    std::vector<RegisterSpec> registers;
    std::vector<FifoSpec> fifos;
    std::vector<RegisterIrq> registerIrqs;
    std::vector<std::string> resources;
    bool undeclaredAllowed = false;

    const RegisterSpec* findRegister(const std::string& name) const;
    const FifoSpec* findFifo(uint32_t number) const;
    bool declaresResource(const std::string& name) const;
    // Whether an access of `bytes` bytes at `address` lies inside one declared register (or
    // the target lets anything through).
    bool allowsAccess(uint32_t address, size_t bytes) const;
    // The interrupt bits that writing `value` at `address` raises.
    uint32_t irqsOnWrite(uint32_t address, uint64_t value) const;
};

// Parses the text of a description. On failure answers null and sets `error` to
// "<line>: <reason>" (or just the reason when it concerns the whole text).
std::shared_ptr<const TargetDescription> parseTargetDescription(const std::string& text, std::string& error);

// The target that a bitfile names: the built-in default when `bitfile` is null, empty or
// names no file; otherwise the description in that file. On failure answers null and sets
// `error` to one line naming the file and what is wrong with it.
std::shared_ptr<const TargetDescription> loadTarget(const char* bitfile, std::string& error);

// The text of the built-in default target.
const char* defaultTargetDescription() noexcept;

}  // namespace brenn::sim

#endif  // BRENN_TARGET_DESCRIPTION_H
