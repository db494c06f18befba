// SPDX-License-Identifier: MIT
// What the driver norv_board_umcb reports of its devices, and lets tests do to them.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

#include "../support/attribute.hpp"

namespace norv::board {

constexpr uint32_t reg_sources = 0x04;
constexpr uint32_t reg_counts = 0x10;  // of source 0; those of the others follow

inline const std::string umcb_debug = "/sys/kernel/debug/norv_board_umcb/";

inline uint32_t umcb_number(const std::string& file) {
    return static_cast<uint32_t>(std::stoul(attribute(umcb_debug + file)));
}

inline bool umcb_flag(const std::string& file) {
    return attribute(umcb_debug + file) == "Y";
}

inline std::string source_file(uint32_t source, const std::string& file) {
    return "source" + std::to_string(source) + "/" + file;
}

inline void raise_source(uint32_t source, uint32_t count) {
    std::ofstream(umcb_debug + source_file(source, "raise")) << count << std::flush;
}

// A register as the driver sees it.
inline uint32_t umcb_driver_register(uint32_t offset) {
    return register_in(umcb_debug + "registers", offset);
}

}  // namespace norv::board
