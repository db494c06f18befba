// SPDX-License-Identifier: MIT
// What holds for the registers of every owner of a mapped device.
#pragma once

#include <gtest/gtest.h>

#include "mapped/uio_devices.hpp"
#include "norv/reg.hpp"

namespace norv::test {

template <typename owner>
void expect_register_accesses(owner& device, const uio_node& node) {
    constexpr reg control(0x10);
    device.write(control, 5);
    device.write_32(0x14, 6);
    EXPECT_EQ(node.registers[4], 5U);
    EXPECT_EQ(node.registers[5], 6U);
    EXPECT_EQ(device.read(control), 5U);
    EXPECT_EQ(device.read_32(0x14), 6U);
}

}  // namespace norv::test
