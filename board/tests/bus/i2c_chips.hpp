// SPDX-License-Identifier: MIT
// The I2C buses of the virtual board: provided by board/modules/i2c.c and board/modules/smbus.c.
#pragma once

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"

namespace norv::board {

constexpr uint32_t bus_number = 1;
constexpr uint8_t registers = 0x20;
constexpr uint8_t refusing_registers = 0x21;   // register 2 refuses data
constexpr uint8_t stretching_register = 0x10;  // of the same chip: holds the clock low
constexpr uint16_t longest_message = 255;      // the adapter's default
constexpr uint8_t eeprom = 0x50;
constexpr uint8_t absent_address = 0x30;

inline uint32_t errno_status(int error) {
    return norv_get_status_by_errno(static_cast<uint32_t>(error));
}

// The bus of an adapter that supports SMBus only; the kernel chooses its number.
inline uint32_t smbus_number() {
    // The directory also lists the devices of the bus, named after bus and address.
    for (const auto& entry : std::filesystem::directory_iterator("/sys/bus/i2c/devices")) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("i2c-") && attribute(entry.path() / "name") == "norv-board-smbus") {
            return static_cast<uint32_t>(std::stoul(name.substr(4)));
        }
    }
    return UINT32_MAX;
}

// An adapter that accepts whatever the kernel accepts, during the lifetime of this object.
class adapter_without_limits {
  public:
    adapter_without_limits() { set("0", "Y"); }
    ~adapter_without_limits() { set(std::to_string(longest_message), "N"); }
    adapter_without_limits(const adapter_without_limits&) = delete;
    adapter_without_limits& operator=(const adapter_without_limits&) = delete;

  private:
    static void set(const std::string& length, const std::string& empty_messages) {
        const std::string parameters = "/sys/module/norv_board_i2c/parameters/";
        std::ofstream(parameters + "max_read_length") << length;
        std::ofstream(parameters + "max_write_length") << length;
        std::ofstream(parameters + "empty_messages") << empty_messages;
    }
};

// Number of open descriptors of this process.
inline long open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace norv::board
