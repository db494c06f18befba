// SPDX-License-Identifier: MIT
// Rounding to units of the flash.
#pragma once

#include <cstdint>

namespace norv {

// ---- by masks, which are exact for powers of two only

inline uint32_t round_down(uint32_t value, uint32_t unit) {
    return value & -unit;
}

inline uint32_t round_up(uint32_t value, uint32_t unit) {
    return (value + unit - 1) & -unit;
}

inline bool is_aligned(uint64_t value, uint32_t unit) {
    return (value & (unit - 1U)) == 0;
}

// ---- for units of any size

// Nothing is a multiple of 0.
inline bool is_multiple(uint32_t value, uint32_t unit) {
    return unit != 0 && value % unit == 0;
}

}  // namespace norv
