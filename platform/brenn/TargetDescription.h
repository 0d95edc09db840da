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

// ---- misbehaviour on purpose (fault, stall and drop statements) ---------------------------

// A statement that makes the target misbehave, as its author wrote it: kept for reports.
struct InjectedStatement {
    uint32_t line = 0;
    std::string text;      // the statement without its comment, words one blank apart
    std::string function;  // what a fault statement names; empty for stall and drop
    int32_t status = 0;    // what a fault statement answers; 0 for stall and drop
};

// Which calls of its function a fault counts: all of a session, or only those whose second
// argument names one FIFO or one register address (every function that takes a FIFO or a
// register has it there, after the session).
enum class FaultScope { Session, Fifo, Register };

// `fault`: the function answers `status` from its (after + 1)th counted call of a session on,
// for `times` calls (0: every call from then on).
struct FaultSpec {
    std::string function;
    FaultScope scope = FaultScope::Session;
    uint32_t number = 0;  // the FIFO, or the register's address
    uint64_t after = 0;
    uint64_t times = 1;
    int32_t status = 0;
    size_t statement = 0;  // index into TargetDescription::injected
};

// `stall`: the FPGA side of the FIFO stands still for `milliseconds` once it has moved `after`
// elements.
struct StallSpec {
    uint32_t fifo = 0;
    uint64_t after = 0;
    uint64_t milliseconds = 0;
    size_t statement = 0;
};

// `drop irq`: the (after + 1)th assertion of IRQ `bit` on a session does not happen.
struct IrqDropSpec {
    uint32_t bit = 0;
    uint64_t after = 0;
    size_t statement = 0;
};

struct TargetDescription {
    std::string title;
    std::vector<RegisterSpec> registers;
    std::vector<FifoSpec> fifos;
    std::vector<RegisterIrq> registerIrqs;
    std::vector<std::string> resources;
    bool undeclaredAllowed = false;
    std::vector<FaultSpec> faults;
    std::vector<StallSpec> stalls;
    std::vector<IrqDropSpec> irqDrops;
    std::vector<InjectedStatement> injected;  // every fault, stall and drop statement, in order

    const RegisterSpec* findRegister(const std::string& name) const;
    const FifoSpec* findFifo(uint32_t number) const;
    bool declaresResource(const std::string& name) const;
    // Whether an access of `bytes` bytes at `address` lies inside one declared register (or
    // the target lets anything through).
    bool allowsAccess(uint32_t address, size_t bytes) const;
    // The interrupt bits that writing `value` at `address` raises.
    uint32_t irqsOnWrite(uint32_t address, uint64_t value) const;
    // The stall statements of one FIFO.
    std::vector<StallSpec> stallsOf(uint32_t fifo) const;
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
