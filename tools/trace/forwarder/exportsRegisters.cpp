// Registers and array registers.
#include "forwarding.h"

using namespace quorvane::trace;

namespace {

// A register read: `show(line, value)` writes the value read.
template <class Value, class Read, class Show>
int32_t readRegister(const char* name, uint32_t session, uint32_t reg, Value* value, Read&& read,
                     Show&& show) noexcept {
    return traced(name, read, [&](LineWriter& line, int32_t status) {
        line.argument("session").session(session);
        line.argument("reg").hex(reg);
        if (wroteResults(status) && value != nullptr) show(line.result("value"), *value);
    });
}

template <class Write, class Show>
int32_t writeRegister(const char* name, uint32_t session, uint32_t reg, Write&& write, Show&& show) noexcept {
    return traced(name, write, [&](LineWriter& line, int32_t) {
        line.argument("session").session(session);
        line.argument("reg").hex(reg);
        show(line.argument("value"));
    });
}

}  // namespace

extern "C" int32_t Quorvane_Read16(uint32_t session, uint32_t reg, uint16_t* value) noexcept {
    return readRegister(
        __func__, session, reg, value, [&] { return realLibrary().Read16(session, reg, value); },
        [](LineWriter& line, uint16_t read) { line.hex(read); });
}

extern "C" int32_t Quorvane_Read32(uint32_t session, uint32_t reg, uint32_t* value) noexcept {
    return readRegister(
        __func__, session, reg, value, [&] { return realLibrary().Read32(session, reg, value); },
        [](LineWriter& line, uint32_t read) { line.hex(read); });
}

extern "C" int32_t Quorvane_ReadSgl(uint32_t session, uint32_t reg, float* value) noexcept {
    return readRegister(
        __func__, session, reg, value, [&] { return realLibrary().ReadSgl(session, reg, value); },
        [](LineWriter& line, float read) { line.floating(read); });
}

extern "C" int32_t Quorvane_ReadDbl(uint32_t session, uint32_t reg, double* value) noexcept {
    return readRegister(
        __func__, session, reg, value, [&] { return realLibrary().ReadDbl(session, reg, value); },
        [](LineWriter& line, double read) { line.floating(read); });
}

extern "C" int32_t Quorvane_Write16(uint32_t session, uint32_t reg, uint16_t value) noexcept {
    return writeRegister(
        __func__, session, reg, [&] { return realLibrary().Write16(session, reg, value); },
        [&](LineWriter& line) { line.hex(value); });
}

extern "C" int32_t Quorvane_Write32(uint32_t session, uint32_t reg, uint32_t value) noexcept {
    return writeRegister(
        __func__, session, reg, [&] { return realLibrary().Write32(session, reg, value); },
        [&](LineWriter& line) { line.hex(value); });
}

extern "C" int32_t Quorvane_WriteSgl(uint32_t session, uint32_t reg, float value) noexcept {
    return writeRegister(
        __func__, session, reg, [&] { return realLibrary().WriteSgl(session, reg, value); },
        [&](LineWriter& line) { line.floating(value); });
}

extern "C" int32_t Quorvane_WriteDbl(uint32_t session, uint32_t reg, double value) noexcept {
    return writeRegister(
        __func__, session, reg, [&] { return realLibrary().WriteDbl(session, reg, value); },
        [&](LineWriter& line) { line.floating(value); });
}

extern "C" int32_t Quorvane_ReadArray32(uint32_t session, uint32_t reg, uint32_t count, void** array) noexcept {
    return traced(
        __func__, [&] { return realLibrary().ReadArray32(session, reg, count, array); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            line.argument("reg").hex(reg);
            line.argument("count").decimal(count);
            if (array == nullptr) line.argument("array").put("null");
            if (array != nullptr) hostArray(line, "array", array, true);
        });
}

extern "C" int32_t Quorvane_WriteArray32(uint32_t session, uint32_t reg, void** array) noexcept {
    return traced(
        __func__, [&] { return realLibrary().WriteArray32(session, reg, array); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            line.argument("reg").hex(reg);
            hostArray(line, "array", array);
        });
}
