// SPDX-License-Identifier: MIT
// What the driver norv_board_uio reports of its device, and lets tests do to it.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

#include "../support/attribute.hpp"

namespace norv::board {

constexpr uint32_t reg_identity = 0x00;
constexpr uint32_t reg_count = 0x04;
constexpr uint32_t reg_operand = 0x08;
constexpr uint32_t reg_result = 0x0C;

inline const std::string uio_debug = "/sys/kernel/debug/norv_board_uio/";

inline void raise_interrupts(uint32_t count) {
    std::ofstream(uio_debug + "raise") << count << std::flush;
}

inline uint32_t debug_number(const std::string& file) {
    return static_cast<uint32_t>(std::stoul(attribute(uio_debug + file)));
}

inline bool interrupt_enabled() {
    return attribute(uio_debug + "enabled") == "Y";
}

// A register as the driver sees it.
inline uint32_t driver_register(uint32_t offset) {
    return register_in(uio_debug + "registers", offset);
}

}  // namespace norv::board
