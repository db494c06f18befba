// SPDX-License-Identifier: MIT
// The registers of the virtual board on its I2C bus, and the bare requests that read and write one.
#pragma once

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <norv_status.h>
#include <sys/ioctl.h>

#include <cstdint>

#include "support/expect.hpp"
#include "support/rows.hpp"

namespace bench {

constexpr uint32_t i2c_bus_number = 1;
constexpr uint8_t i2c_registers = 0x20;

template <uint32_t count>
void bare_transfer(int descriptor, i2c_msg (&messages)[count]) {
    i2c_rdwr_ioctl_data transaction = {messages, count};
    expect(ioctl(descriptor, I2C_RDWR, &transaction) >= 0, "I2C_RDWR");
}

inline void bare_read(int descriptor) {
    uint8_t reg = 0x10;
    uint8_t data[1];
    i2c_msg messages[] = {{i2c_registers, 0, 1, &reg}, {i2c_registers, I2C_M_RD, sizeof data, data}};
    bare_transfer(descriptor, messages);
}

inline void bare_write(int descriptor) {
    uint8_t data[] = {0x10, 0x01};
    i2c_msg messages[] = {{i2c_registers, 0, sizeof data, data}};
    bare_transfer(descriptor, messages);
}

inline void succeed(uint32_t status) {
    expect(status == NORV_STATUS_OK, "norv_linux_i2c");
}

template <typename raw_type, typename ours_type>
void add_row(const char* name, raw_type raw, ours_type ours) {
    add_pair({.name = name, .target = 1.05}, raw, [=] { succeed(ours()); });
}

}  // namespace bench
