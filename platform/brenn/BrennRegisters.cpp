// Register and 32-bit array access of the simulated target. Each session has its own register
// space (SimRegisterSpace.h); an array of 32-bit elements at `reg` occupies bytes
// reg .. reg + 4 * count - 1, so it can be seen element by element through ReadU32. A target
// that declares its registers refuses an access outside them, and a scalar write to a register
// that the target wires to interrupts raises them.
#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"
#include "SimFifo.h"

using namespace brenn::sim;

namespace {

template <typename T>
int32_t readRegister(uint32_t session, uint32_t reg, T* value) {
    return Target::instance().withSession(session, [&](Session& open) {
        if (!value) return int32_t{kBrennSimInvalidArgument};
        if (!open.target->allowsAccess(reg, sizeof(T))) return int32_t{kBrennSimInvalidArgument};
        *value = open.registers.readValue<T>(reg);
        return int32_t{0};
    });
}

template <typename T>
int32_t writeRegister(uint32_t session, uint32_t reg, T value) {
    uint32_t raised = 0;
    int32_t status = Target::instance().withSession(session, [&](Session& open) {
        if (!open.target->allowsAccess(reg, sizeof(T))) return int32_t{kBrennSimInvalidArgument};
        open.registers.writeValue<T>(reg, value);
        raised = open.target->irqsOnWrite(reg, value);
        return int32_t{0};
    });
    // Raised after the table mutex is let go, like every other wake-up.
    if (status == 0 && raised != 0) {
        if (std::shared_ptr<SimIrqs> irqLines = findIrqs(session)) irqLines->raise(raised);
    }
    return status;
}

constexpr uint32_t kArrayElementBytes = 4;

bool allowsArray(const Session& open, uint32_t reg, size_t count) {
    // An array that runs past the 32-bit register space (a negative Host count widened with its
    // sign, say) is refused at once rather than checked address by address.
    if (count > (uint64_t{1} << 32) / kArrayElementBytes ||
        reg + uint64_t{count} * kArrayElementBytes > (uint64_t{1} << 32)) {
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        if (!open.target->allowsAccess(static_cast<uint32_t>(reg + i * kArrayElementBytes), kArrayElementBytes)) {
            return false;
        }
    }
    return true;
}

// For the unlogged test access: 1 when the session is open and fn ran, else 0.
template <typename Fn>
int withRegisters(uint32_t session, Fn&& fn) noexcept {
    try {
        int32_t status = Target::instance().withSession(session, [&](Session& open) {
            fn(open.registers);
            return int32_t{0};
        });
        return status == 0 ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

}  // namespace

extern "C" {

int32_t BrennDll_ReadU16(uint32_t session, uint32_t reg, uint16_t* value) {
    return call(__func__, args(session, reg, value), outs(value), [&] { return readRegister(session, reg, value); });
}

int32_t BrennDll_ReadU32(uint32_t session, uint32_t reg, uint32_t* value) {
    return call(__func__, args(session, reg, value), outs(value), [&] { return readRegister(session, reg, value); });
}

int32_t BrennDll_ReadU64(uint32_t session, uint32_t reg, uint64_t* value) {
    return call(__func__, args(session, reg, value), outs(value), [&] { return readRegister(session, reg, value); });
}

int32_t BrennDll_WriteU16(uint32_t session, uint32_t reg, uint16_t value) {
    return call(__func__, args(session, reg, value), outs(), [&] { return writeRegister(session, reg, value); });
}

int32_t BrennDll_WriteU32(uint32_t session, uint32_t reg, uint32_t value) {
    return call(__func__, args(session, reg, value), outs(), [&] { return writeRegister(session, reg, value); });
}

int32_t BrennDll_WriteU64(uint32_t session, uint32_t reg, uint64_t value) {
    return call(__func__, args(session, reg, value), outs(), [&] { return writeRegister(session, reg, value); });
}

int32_t BrennDll_ReadArrayU32(uint32_t session, uint32_t reg, uint32_t* array, size_t count) {
    return call(__func__, args(session, reg, array, count), outs(), [&] {
        return Target::instance().withSession(session, [&](Session& open) {
            if (!array && count != 0) return int32_t{kBrennSimInvalidArgument};
            if (!allowsArray(open, reg, count)) return int32_t{kBrennSimInvalidArgument};
            for (size_t i = 0; i < count; ++i) {
                array[i] = open.registers.readValue<uint32_t>(static_cast<uint32_t>(reg + i * kArrayElementBytes));
            }
            return int32_t{0};
        });
    });
}

int32_t BrennDll_WriteArrayU32(uint32_t session, uint32_t reg, const uint32_t* array, size_t count) {
    return call(__func__, args(session, reg, array, count), outs(), [&] {
        return Target::instance().withSession(session, [&](Session& open) {
            if (!array && count != 0) return int32_t{kBrennSimInvalidArgument};
            if (!allowsArray(open, reg, count)) return int32_t{kBrennSimInvalidArgument};
            for (size_t i = 0; i < count; ++i) {
                open.registers.writeValue<uint32_t>(static_cast<uint32_t>(reg + i * kArrayElementBytes), array[i]);
            }
            return int32_t{0};
        });
    });
}

int BrennSim_PeekRegisters(uint32_t session, uint32_t reg, void* bytes, size_t size) {
    if (!bytes) return 0;
    return withRegisters(session, [&](RegisterSpace& registers) { registers.read(reg, bytes, size); });
}

int BrennSim_PokeRegisters(uint32_t session, uint32_t reg, const void* bytes, size_t size) {
    if (!bytes) return 0;
    return withRegisters(session, [&](RegisterSpace& registers) { registers.write(reg, bytes, size); });
}

}  // extern "C"
