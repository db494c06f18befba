// SPDX-License-Identifier: MIT
// The owner of an I2C bus record.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bus/i2c_adapter.hpp"
#include "cpp/bytes.hpp"
#include "cpp/owner_sweep.hpp"
#include "norv/i2c_bus.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::i2c_bus;
using norv::test::buffer_of;
using norv::test::bytes_of;
using norv::test::i2c_adapter;
using norv::test::i2c_transaction;
using norv::test::kernel_double;
using norv::test::received;
using norv::test::sent;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

class I2cBus : public testing::Test {
  protected:
    I2cBus() {
        kernel.add_device("/dev/i2c-1", adapter);
        adapter->registers[7] = 'x';
        adapter->registers[8] = 'y';
    }

    kernel_double kernel;
    std::shared_ptr<i2c_adapter> adapter = std::make_shared<i2c_adapter>();
};

TEST_F(I2cBus, AnOpenBusIsClosedWithItsOwner) {
    {
        const norv::result<i2c_bus> bus = i2c_bus::open(1);
        ASSERT_TRUE(bus);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
        EXPECT_EQ(kernel.allocations(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(I2cBus, AFailedOpenHasTheStatus) {
    EXPECT_EQ(i2c_bus::open(2).status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(I2cBus, RegistersAreReadAndWritten) {
    i2c_bus bus = i2c_bus::open(1).value();
    EXPECT_EQ(bus.read_reg(0x50, 7).value(), 'x');
    EXPECT_EQ(bus.read_reg(0x51, 7).status(), norv_get_status_by_errno(ENXIO));
    EXPECT_EQ(bus.write_reg(0x50, 9, 'z'), norv::ok);
    std::string data = "???";
    EXPECT_EQ(bus.read_regs(0x50, 7, buffer_of(data)), norv::ok);
    EXPECT_EQ(data, "xyz");
    EXPECT_EQ(bus.write_regs(0x50, 20, bytes_of("abc")), norv::ok);
    EXPECT_EQ(adapter->registers[22], 'c');
    EXPECT_EQ(bus.raw_write(0x50, bytes_of("\x08"s)), norv::ok);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(data)), norv::ok);
    EXPECT_EQ(data, "yz\0"s);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of("\x14"s), buffer_of(data)), norv::ok);
    EXPECT_EQ(data, "abc");
}

TEST_F(I2cBus, ListsAreReadAndWrittenOneByOne) {
    i2c_bus bus = i2c_bus::open(1).value();
    const std::array<uint8_t, 2> registers = {8, 7};
    std::array<uint8_t, 2> values = {};
    EXPECT_EQ(bus.read_reg_list(0x50, registers, values), norv::ok);
    EXPECT_THAT(values, ElementsAre('y', 'x'));
    const std::array<i2c_bus::reg_value, 2> list = {{{3, 'c'}, {1, 'a'}}};
    EXPECT_EQ(bus.write_reg_list(0x50, list), norv::ok);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x08"), received(0x50, "y")},
                                                   i2c_transaction{sent(0x50, "\x07"), received(0x50, "x")},
                                                   i2c_transaction{sent(0x50,
                                                                        "\x03"
                                                                        "c")},
                                                   i2c_transaction{sent(0x50,
                                                                        "\x01"
                                                                        "a")}));
}

TEST_F(I2cBus, TheAddressModeAppliesToTheNextTransfers) {
    i2c_bus bus = i2c_bus::open(1).value();
    EXPECT_EQ(bus.set_address_mode(i2c_bus::address_mode::eight_bits), norv::ok);
    EXPECT_EQ(bus.read_reg(0xA1, 7).value(), 'x');
    EXPECT_EQ(bus.set_address_mode(i2c_bus::address_mode::seven_bits), norv::ok);
    EXPECT_EQ(bus.read_reg(0x50, 7).value(), 'x');
}

TEST_F(I2cBus, WhatDoesNotFitIsAnInvalidArgument) {
    i2c_bus bus = i2c_bus::open(1).value();
    std::string longer(65536 + 1, 'x');  // 16 bits count 1 of them
    std::string one = "x";
    std::vector<uint8_t> registers(65536 + 1);
    const std::vector<i2c_bus::reg_value> list(65536 + 1);
    kernel.forget_calls();
    EXPECT_EQ(bus.read_regs(0x50, 0, buffer_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_regs(0x50, 0, bytes_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_write(0x50, bytes_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(longer), buffer_of(one)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(one), buffer_of(longer)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_reg_list(0x50, registers, registers), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_reg_list(0x50, list), NORV_STATUS_INVALID_ARG);
    const std::span<uint8_t> few = std::span(registers).first(2);
    EXPECT_EQ(bus.read_reg_list(0x50, few, few.first(1)), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(I2cBus, ABusThatWasMovedFromIsAnInvalidArgument) {
    i2c_bus bus = i2c_bus::open(1).value();
    i2c_bus other = std::move(bus);
    std::string data = "?";
    std::array<uint8_t, 1> registers = {};
    const std::array<i2c_bus::reg_value, 1> list = {};
    kernel.forget_calls();
    EXPECT_EQ(bus.set_address_mode(i2c_bus::address_mode::seven_bits), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_reg(0x50, 7).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_reg(0x50, 7, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_regs(0x50, 7, buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_regs(0x50, 7, bytes_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_reg_list(0x50, registers, registers), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_reg_list(0x50, list), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_read(0x50, buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_write(0x50, bytes_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_then_read(0x50, bytes_of(data), buffer_of(data)), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.read_reg(0x50, 7).value(), 'x');
    ASSERT_NE(other.get(), nullptr);
}

TEST_F(I2cBus, MovingIntoAnOpenBusClosesIt) {
    i2c_bus bus = i2c_bus::open(1).value();
    bus = i2c_bus::open(1).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.allocations(), 1U);
    EXPECT_EQ(bus.read_reg(0x50, 7).value(), 'x');
}

TEST(I2cBusSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) { kernel.add_device("/dev/i2c-1", std::make_shared<i2c_adapter>()); },
        [] {
            norv::result<i2c_bus> bus = i2c_bus::open(1);
            return bus ? bus->write_reg(0x50, 7, 1).number() : bus.status().number();
        });
}

}  // namespace
