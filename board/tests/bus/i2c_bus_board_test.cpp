// SPDX-License-Identifier: MIT
// The I2C bus record with the chips of the virtual board.
#include "norv_linux_i2c_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "i2c_chips.hpp"

namespace {

using norv::board::errno_status;
using testing::ElementsAre;

class I2cBusOnBoard : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(norv_linux_open_i2c_bus(&bus, norv::board::bus_number), 0U); }
    void TearDown() override { norv_linux_close_i2c_bus(&bus); }

    norv_i2c_bus_t bus;
    uint8_t data[4] = {9, 9, 9, 9};
};

TEST_F(I2cBusOnBoard, OneRegisterReadsBackAsWritten) {
    EXPECT_EQ(bus.write_reg(&bus, norv::board::registers, 0x10, 0xAB), 0U);
    EXPECT_EQ(bus.read_reg(&bus, norv::board::registers, 0x10, data), 0U);
    EXPECT_THAT(data, ElementsAre(0xAB, 9, 9, 9));
}

TEST_F(I2cBusOnBoard, ManyRegistersReadBackAsWritten) {
    EXPECT_EQ(bus.write_regs(&bus, norv::board::registers, 0x20, "\x01\x02\x03", 3), 0U);
    EXPECT_EQ(bus.read_regs(&bus, norv::board::registers, 0x20, data, 3), 0U);
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 9));
}

TEST_F(I2cBusOnBoard, AListOfRegistersReadsBackAsWritten) {
    const norv_i2c_reg_value_t pairs[] = {{0x33, 3}, {0x31, 1}, {0x32, 2}};
    const uint8_t list[] = {0x31, 0x32, 0x33};
    EXPECT_EQ(bus.write_reg_list(&bus, norv::board::registers, pairs, 3), 0U);
    EXPECT_EQ(bus.read_reg_list(&bus, norv::board::registers, list, data, 3), 0U);
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 9));
}

TEST_F(I2cBusOnBoard, AWriteListWhoseThirdPairFailsHasWrittenTheFirstTwo) {
    const norv_i2c_reg_value_t pairs[] = {{0, 0x10}, {1, 0x11}, {2, 0x12}, {3, 0x13}};
    EXPECT_EQ(bus.write_reg_list(&bus, norv::board::refusing_registers, pairs, 4), errno_status(EREMOTEIO));
    EXPECT_EQ(bus.read_regs(&bus, norv::board::refusing_registers, 0, data, 4), 0U);
    EXPECT_THAT(data, ElementsAre(0x10, 0x11, 0, 0));
}

TEST_F(I2cBusOnBoard, RawTransfersContinueWhereTheLastOneStopped) {
    bus.write_reg(&bus, norv::board::registers, 0x42, 0x77);
    EXPECT_EQ(bus.raw_write(&bus, norv::board::registers, "\x40\x01\x02", 3), 0U);
    EXPECT_EQ(bus.raw_read(&bus, norv::board::registers, data, 1), 0U);
    EXPECT_THAT(data, ElementsAre(0x77, 9, 9, 9));
}

TEST_F(I2cBusOnBoard, WriteThenReadDoesBoth) {
    bus.write_reg(&bus, norv::board::registers, 0x51, 0xCD);
    EXPECT_EQ(bus.write_then_read(&bus, norv::board::registers, "\x50\x01", 2, data, 1), 0U);
    EXPECT_THAT(data, ElementsAre(0xCD, 9, 9, 9));
}

TEST_F(I2cBusOnBoard, TheReadBitOfAn8BitAddressIsDropped) {
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(&bus, NORV_LINUX_I2C_ADDR_8BIT), 0U);
    EXPECT_EQ(bus.write_reg(&bus, 2 * norv::board::registers, 0x60, 0x66), 0U);
    EXPECT_EQ(bus.read_reg(&bus, 2 * norv::board::registers + 1, 0x60, data), 0U);
    EXPECT_EQ(data[0], 0x66);
}

TEST_F(I2cBusOnBoard, A7BitAddressAbove0x7FIsPassedOnToTheAdapter) {
    EXPECT_EQ(bus.read_reg(&bus, 0x80 + norv::board::absent_address, 0, data), errno_status(ENXIO));
}

TEST_F(I2cBusOnBoard, AnUnansweredAddressGivesTheStatusOfTheTransfer) {
    EXPECT_EQ(bus.read_reg(&bus, norv::board::absent_address, 0, data), errno_status(ENXIO));
}

TEST_F(I2cBusOnBoard, AnAdapterWithSmbusOnlyIsNotAvailableAndIsClosed) {
    const long before = norv::board::open_descriptors();
    norv_i2c_bus_t smbus;
    EXPECT_EQ(norv_linux_open_i2c_bus(&smbus, norv::board::smbus_number()), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(smbus.state, nullptr);
    EXPECT_EQ(norv::board::open_descriptors(), before);
    norv_linux_close_i2c_bus(&smbus);
}

TEST_F(I2cBusOnBoard, AClosedBusCanBeOpenedAgain) {
    const long before = norv::board::open_descriptors();
    norv_linux_close_i2c_bus(&bus);
    EXPECT_EQ(norv::board::open_descriptors(), before - 1);
    EXPECT_EQ(bus.read_reg(&bus, norv::board::registers, 0, data), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_open_i2c_bus(&bus, norv::board::bus_number), 0U);
    EXPECT_EQ(bus.read_reg(&bus, norv::board::registers, 0, data), 0U);
}

}  // namespace
