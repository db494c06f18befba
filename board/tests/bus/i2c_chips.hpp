// The I2C buses of the virtual board: what board/modules/i2c.c and board/modules/smbus.c bring.
#pragma once

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"

namespace norv::board {

constexpr uint32_t bus_number = 1;
constexpr uint8_t registers = 0x20;
constexpr uint8_t refusing_registers = 0x21;  // register 2 takes no data
constexpr uint8_t eeprom = 0x50;
constexpr uint8_t nobody = 0x30;

inline uint32_t errno_status(int error) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error));
}

// The bus of an adapter that knows SMBus only; its number is the kernel's choice.
inline uint32_t smbus_number() {
    // Devices of the bus are there as well, named after bus and address.
    for (const auto& entry : std::filesystem::directory_iterator("/sys/bus/i2c/devices")) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("i2c-") && attribute(entry.path() / "name") == "norv-board-smbus") {
            return static_cast<uint32_t>(std::stoul(name.substr(4)));
        }
    }
    return UINT32_MAX;
}

// How many descriptors this process has open.
inline long open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace norv::board
