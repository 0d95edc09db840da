// The flag bits of a session handle as the pass-through exports read and set them.
#pragma once

#include <cstdint>

#include "Quorvane.h"

namespace quorvane {

// A handle with the refused bit is turned away before anything is called.
inline bool isRefusedSession(uint32_t session) noexcept {
    return (session & kQuorvaneSessionRefusedBit) != 0;
}

// The handle as register, array and FIFO functions of the FPGA interface library expect it;
// the mark is never stored.
inline uint32_t markedForResourceCall(uint32_t session) noexcept {
    return session | kQuorvaneResourceCallBit;
}

// The handle as the device service expects it: bits 12..15 cleared.
inline uint32_t withoutFlagNibble(uint32_t session) noexcept {
    return session & ~kQuorvaneSessionFlagNibble;
}

}  // namespace quorvane
