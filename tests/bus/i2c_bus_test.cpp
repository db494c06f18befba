// SPDX-License-Identifier: MIT
// The I2C bus record.
#include "norv_linux_i2c_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bus/i2c_adapter.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::errno_status;
using norv::test::i2c_adapter;
using norv::test::i2c_transaction;
using norv::test::kernel_double;
using norv::test::received;
using norv::test::sent;
using testing::ElementsAre;
using testing::IsEmpty;

bool is_zeroed(const norv_i2c_bus_t& bus) {
    const norv_i2c_bus_t zeroed = {};
    return memcmp(&bus, &zeroed, sizeof bus) == 0;
}

// A board with one adapter, /dev/i2c-1, and a record with arbitrary contents.
class I2cBus : public testing::Test {
  protected:
    I2cBus() {
        kernel.add_device("/dev/i2c-1", adapter);
        memset(static_cast<void*>(&bus), 0x5A, sizeof bus);
    }

    kernel_double kernel;
    std::shared_ptr<i2c_adapter> adapter = std::make_shared<i2c_adapter>();
    norv_i2c_bus_t bus;
};

// The same board with the record opened.
class OpenI2cBus : public I2cBus {
  protected:
    OpenI2cBus() {
        EXPECT_EQ(norv_linux_open_i2c_bus(&bus, 1), 0U);
        kernel.forget_calls();
    }
    ~OpenI2cBus() override { norv_linux_close_i2c_bus(&bus); }

    uint8_t data[4] = {9, 9, 9, 9};
};

// ---- open and close

TEST_F(I2cBus, OpeningFillsEveryOperationButTheReservedOne) {
    EXPECT_EQ(norv_linux_open_i2c_bus(&bus, 1), 0U);
    EXPECT_EQ(bus.reserved, 0U);
    EXPECT_NE(bus.read_reg, nullptr);
    EXPECT_NE(bus.write_reg, nullptr);
    EXPECT_NE(bus.read_regs, nullptr);
    EXPECT_NE(bus.write_regs, nullptr);
    EXPECT_NE(bus.read_reg_list, nullptr);
    EXPECT_NE(bus.write_reg_list, nullptr);
    EXPECT_NE(bus.raw_read, nullptr);
    EXPECT_NE(bus.raw_write, nullptr);
    EXPECT_EQ(bus.reserved_operation, nullptr);
    EXPECT_NE(bus.write_then_read, nullptr);
    EXPECT_NE(bus.state, nullptr);
    norv_linux_close_i2c_bus(&bus);
}

TEST_F(I2cBus, WithoutMemoryTheRecordIsZeroedAndNothingIsOpened) {
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_open_i2c_bus(&bus, 1), NORV_STATUS_NO_MEMORY);
    EXPECT_TRUE(is_zeroed(bus));
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(I2cBus, ABusWithoutADeviceFileCannotBeOpenedAndClosingItDoesNothing) {
    EXPECT_EQ(norv_linux_open_i2c_bus(&bus, 2), NORV_STATUS_NOT_FOUND);
    EXPECT_TRUE(is_zeroed(bus));
    kernel.forget_calls();
    norv_linux_close_i2c_bus(&bus);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(I2cBus, AnAdapterWithSmbusOnlyIsNotAvailableAndIsClosedOnce) {
    adapter->functions = I2C_FUNC_SMBUS_EMUL;
    EXPECT_EQ(norv_linux_open_i2c_bus(&bus, 1), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_TRUE(is_zeroed(bus));
    EXPECT_EQ(kernel.calls("close").size(), 1U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

// quirk 54
TEST_F(I2cBus, ClosingReleasesTheStateAndLeavesTheOperations) {
    norv_linux_open_i2c_bus(&bus, 1);
    norv_i2c_bus_t wanted = bus;
    wanted.state = nullptr;
    norv_linux_close_i2c_bus(&bus);
    EXPECT_EQ(memcmp(&bus, &wanted, sizeof bus), 0);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(I2cBus, ClosingTwiceClosesNothingTheSecondTime) {
    norv_linux_open_i2c_bus(&bus, 1);
    norv_linux_close_i2c_bus(&bus);
    kernel.forget_calls();
    norv_linux_close_i2c_bus(&bus);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(I2cBus, AClosedRecordCanBeOpenedAgain) {
    norv_linux_open_i2c_bus(&bus, 1);
    norv_linux_i2c_bus_set_addr_mode(&bus, NORV_LINUX_I2C_ADDR_8BIT);
    norv_linux_close_i2c_bus(&bus);
    EXPECT_EQ(norv_linux_open_i2c_bus(&bus, 1), 0U);
    EXPECT_EQ(bus.write_reg(&bus, 0x50, 1, 2), 0U);
    norv_linux_close_i2c_bus(&bus);
}

TEST_F(I2cBus, ANullRecordIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_open_i2c_bus(nullptr, 1), NORV_STATUS_INVALID_ARG);
    norv_linux_close_i2c_bus(nullptr);
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(nullptr, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- operations

TEST_F(OpenI2cBus, ReadRegReadsOneByte) {
    adapter->registers[0x10] = 0xAB;
    EXPECT_EQ(bus.read_reg(&bus, 0x50, 0x10, data), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x10"), received(0x50, "\xAB")}));
    EXPECT_THAT(data, ElementsAre(0xAB, 9, 9, 9));
}

TEST_F(OpenI2cBus, WriteRegWritesOneByte) {
    EXPECT_EQ(bus.write_reg(&bus, 0x50, 0x10, 0xAB), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x10\xAB")}));
}

TEST_F(OpenI2cBus, ReadRegsReadsManyBytesInOneTransaction) {
    adapter->registers[0x20] = 0xAA;
    adapter->registers[0x22] = 0xBB;
    EXPECT_EQ(bus.read_regs(&bus, 0x50, 0x20, data, 3), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x20"), received(0x50, "\xAA\0\xBB"s)}));
    EXPECT_THAT(data, ElementsAre(0xAA, 0, 0xBB, 9));
}

TEST_F(OpenI2cBus, WriteRegsWritesManyBytesInOneTransaction) {
    EXPECT_EQ(bus.write_regs(&bus, 0x50, 0x20, "\x01\x02", 2), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x20\x01\x02")}));
}

TEST_F(OpenI2cBus, WriteRegsAcceptsAtMost256Bytes) {
    const std::string bytes(257, 'x');
    EXPECT_EQ(bus.write_regs(&bus, 0x50, 0, bytes.data(), 256), 0U);
    EXPECT_EQ(bus.write_regs(&bus, 0x50, 0, bytes.data(), 257), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_regs(&bus, 0x50, 0, bytes.data(), 65535), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(adapter->transactions.size(), 1U);
}

TEST_F(OpenI2cBus, RawTransfersHaveNoRegister) {
    adapter->registers[0x31] = 0x77;
    EXPECT_EQ(bus.raw_write(&bus, 0x50, "\x30\x07", 2), 0U);
    EXPECT_EQ(bus.raw_read(&bus, 0x50, data, 1), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x30\x07")},
                                                   i2c_transaction{received(0x50, "\x77")}));
    EXPECT_THAT(data, ElementsAre(0x77, 9, 9, 9));
}

TEST_F(OpenI2cBus, RawTransfersAccept65535Bytes) {
    std::string bytes(65535, 'x');
    EXPECT_EQ(bus.raw_write(&bus, 0x50, bytes.data(), 65535), 0U);
    EXPECT_EQ(bus.raw_read(&bus, 0x50, bytes.data(), 65535), 0U);
    EXPECT_EQ(adapter->transactions.at(1).at(0).bytes.size(), 65535U);
}

TEST_F(OpenI2cBus, WriteThenReadIsOneTransactionOfTwoMessages) {
    adapter->registers[0x41] = 0x99;
    EXPECT_EQ(bus.write_then_read(&bus, 0x50, "\x40\x01", 2, data, 1), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x40\x01"), received(0x50, "\x99")}));
    EXPECT_THAT(data, ElementsAre(0x99, 9, 9, 9));
}

// ---- lists

TEST_F(OpenI2cBus, AReadListReadsEachRegisterInATransactionOfItsOwn) {
    adapter->registers[0x07] = 0xAA;
    adapter->registers[0x03] = 0xBB;
    const uint8_t list[] = {0x07, 0x03};
    EXPECT_EQ(bus.read_reg_list(&bus, 0x50, list, data, 2), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x07"), received(0x50, "\xAA")},
                            i2c_transaction{sent(0x50, "\x03"), received(0x50, "\xBB")}));
    EXPECT_THAT(data, ElementsAre(0xAA, 0xBB, 9, 9));
}

TEST_F(OpenI2cBus, AWriteListWritesEachPairInOrderInATransactionOfItsOwn) {
    const norv_i2c_reg_value_t list[] = {{0x07, 0xAA}, {0x03, 0xBB}};
    EXPECT_EQ(bus.write_reg_list(&bus, 0x50, list, 2), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x07\xAA")},
                                                   i2c_transaction{sent(0x50, "\x03\xBB")}));
}

TEST_F(OpenI2cBus, AReadListOf65535RegistersIsReadToItsEnd) {
    std::vector<uint8_t> list(65535, 0x01);
    std::vector<uint8_t> values(65535);
    list.back() = 0x02;
    adapter->registers[0x02] = 0x22;
    kernel.fail({.call = "ioctl",
                 .request = I2C_RDWR,
                 .nth = 65536,
                 .error = EREMOTEIO});  // ends a loop that would start again
    EXPECT_EQ(bus.read_reg_list(&bus, 0x50, list.data(), values.data(), 65535), 0U);
    EXPECT_EQ(adapter->transactions.size(), 65535U);
    EXPECT_EQ(values.back(), 0x22);
}

TEST_F(OpenI2cBus, AWriteListOfMoreThan256PairsIsWrittenToItsEnd) {
    std::vector<norv_i2c_reg_value_t> list(300, {0x01, 0x11});
    list[256] = {0x02, 0x22};
    list[299] = {0x03, 0x33};
    kernel.fail({.call = "ioctl",
                 .request = I2C_RDWR,
                 .nth = 301,
                 .error = EREMOTEIO});  // ends a loop that would start again
    EXPECT_EQ(bus.write_reg_list(&bus, 0x50, list.data(), 300), 0U);
    ASSERT_EQ(adapter->transactions.size(), 300U);
    EXPECT_EQ(adapter->transactions[255], i2c_transaction{sent(0x50, "\x01\x11")});
    EXPECT_EQ(adapter->transactions[256], i2c_transaction{sent(0x50, "\x02\x22")});
    EXPECT_EQ(adapter->transactions[299], i2c_transaction{sent(0x50, "\x03\x33")});
}

TEST_F(OpenI2cBus, EmptyListsSendNothing) {
    EXPECT_EQ(bus.read_reg_list(&bus, 0x50, nullptr, nullptr, 0), NORV_STATUS_OK);
    EXPECT_EQ(bus.write_reg_list(&bus, 0x50, nullptr, 0), NORV_STATUS_OK);
    EXPECT_EQ(bus.read_reg_list(nullptr, 0x50, nullptr, nullptr, 0), NORV_STATUS_OK);
    EXPECT_EQ(bus.write_reg_list(nullptr, 0x50, nullptr, 0), NORV_STATUS_OK);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenI2cBus, AReadListStopsAtItsFirstFailure) {
    adapter->registers = {1, 2, 3};
    const uint8_t list[] = {0, 1, 2};
    kernel.fail({.call = "ioctl", .request = I2C_RDWR, .nth = 2, .error = EREMOTEIO});
    EXPECT_EQ(bus.read_reg_list(&bus, 0x50, list, data, 3), errno_status(EREMOTEIO));
    EXPECT_THAT(data, ElementsAre(1, 9, 9, 9));
    EXPECT_EQ(adapter->transactions.size(), 1U);
}

// quirk 55
TEST_F(OpenI2cBus, AWriteListWhoseThirdPairFailsHasWrittenTheFirstTwo) {
    const norv_i2c_reg_value_t list[] = {{0, 1}, {1, 2}, {2, 3}, {3, 4}};
    kernel.fail({.call = "ioctl", .request = I2C_RDWR, .nth = 3, .error = EREMOTEIO});
    EXPECT_EQ(bus.write_reg_list(&bus, 0x50, list, 4), errno_status(EREMOTEIO));
    EXPECT_EQ(adapter->registers[0], 1);
    EXPECT_EQ(adapter->registers[1], 2);
    EXPECT_EQ(adapter->registers[2], 0);
    EXPECT_EQ(adapter->registers[3], 0);
}

// ---- address mode

// Runs every operation with this address; each must return this status.
void make_every_operation(norv_i2c_bus_t* bus, uint8_t address, uint32_t expected) {
    uint8_t byte = 0;
    const norv_i2c_reg_value_t pair = {0, 0};
    EXPECT_EQ(bus->read_reg(bus, address, 0, &byte), expected);
    EXPECT_EQ(bus->write_reg(bus, address, 0, 0), expected);
    EXPECT_EQ(bus->read_regs(bus, address, 0, &byte, 1), expected);
    EXPECT_EQ(bus->write_regs(bus, address, 0, "x", 1), expected);
    EXPECT_EQ(bus->read_reg_list(bus, address, &byte, &byte, 1), expected);
    EXPECT_EQ(bus->write_reg_list(bus, address, &pair, 1), expected);
    EXPECT_EQ(bus->raw_read(bus, address, &byte, 1), expected);
    EXPECT_EQ(bus->raw_write(bus, address, "x", 1), expected);
    EXPECT_EQ(bus->write_then_read(bus, address, "x", 1, &byte, 1), expected);
}

TEST_F(OpenI2cBus, AddressesHave7BitsByDefault) {
    make_every_operation(&bus, 0x50, 0);
    EXPECT_EQ(adapter->transactions.size(), 9U);
}

TEST_F(OpenI2cBus, TheReadBitOfAn8BitAddressIsDropped) {
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(&bus, 1), 0U);
    make_every_operation(&bus, 0xA0, 0);
    make_every_operation(&bus, 0xA1, 0);
    for (const i2c_transaction& transaction : adapter->transactions) {
        for (const auto& message : transaction) {
            EXPECT_EQ(message.address, 0x50);
        }
    }
}

TEST_F(OpenI2cBus, A7BitAddressAbove0x7FIsPassedOnUnchanged) {
    make_every_operation(&bus, 0xA0, errno_status(ENXIO));
    for (const i2c_transaction& transaction : adapter->transactions) {
        EXPECT_EQ(transaction.at(0).address, 0xA0);
    }
}

TEST_F(OpenI2cBus, TheAddressModeIsThatOfTheTimeOfTheCall) {
    norv_linux_i2c_bus_set_addr_mode(&bus, NORV_LINUX_I2C_ADDR_8BIT);
    EXPECT_EQ(bus.write_reg(&bus, 0xA0, 0, 1), 0U);
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(&bus, NORV_LINUX_I2C_ADDR_7BIT), 0U);
    EXPECT_EQ(bus.write_reg(&bus, 0x50, 0, 1), 0U);
    EXPECT_EQ(adapter->transactions.at(0), adapter->transactions.at(1));
}

// Switches the bus to 7-bit addresses during a transfer.
class switching_adapter : public i2c_adapter {
  public:
    norv_i2c_bus_t* bus = nullptr;

    long ioctl(unsigned long request, void* argument) override {
        if (request == I2C_RDWR) {
            norv_linux_i2c_bus_set_addr_mode(bus, NORV_LINUX_I2C_ADDR_7BIT);
        }
        return i2c_adapter::ioctl(request, argument);
    }
};

TEST_F(I2cBus, AListUsesTheAddressModeSetAtItsStart) {
    const auto switching = std::make_shared<switching_adapter>();
    switching->bus = &bus;
    kernel.add_device("/dev/i2c-3", switching);
    const norv_i2c_reg_value_t list[] = {{0, 1}, {1, 2}};
    norv_linux_open_i2c_bus(&bus, 3);
    norv_linux_i2c_bus_set_addr_mode(&bus, NORV_LINUX_I2C_ADDR_8BIT);
    EXPECT_EQ(bus.write_reg_list(&bus, 0xA0, list, 2), 0U);
    EXPECT_EQ(switching->transactions.at(1).at(0).address, 0x50);
    norv_linux_close_i2c_bus(&bus);
}

TEST_F(OpenI2cBus, AnUnknownAddressModeIsNotAvailableAndChangesNothing) {
    norv_linux_i2c_bus_set_addr_mode(&bus, 1);
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(&bus, 2), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(&bus, 255), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(bus.write_reg(&bus, 0xA0, 0, 1), 0U);
}

// ---- failures of all operations

TEST_F(OpenI2cBus, AFailedTransferGivesItsStatusUnchanged) {
    make_every_operation(&bus, 0x51, errno_status(ENXIO));
}

TEST_F(OpenI2cBus, ANullRecordIsAnInvalidArgumentForEveryOperation) {
    uint8_t byte = 0;
    EXPECT_EQ(bus.read_reg(nullptr, 0x50, 0, &byte), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.raw_write(nullptr, 0x50, &byte, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenI2cBus, NullDataIsAnInvalidArgument) {
    EXPECT_EQ(bus.read_reg(&bus, 0x50, 0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_regs(&bus, 0x50, 0, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_reg_list(&bus, 0x50, nullptr, data, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.read_reg_list(&bus, 0x50, data, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bus.write_reg_list(&bus, 0x50, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(I2cBus, TheOperationsOfAClosedBusFailAndSendNothing) {
    norv_linux_open_i2c_bus(&bus, 1);
    norv_linux_close_i2c_bus(&bus);
    kernel.forget_calls();
    make_every_operation(&bus, 0x50, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_bus_set_addr_mode(&bus, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

uint32_t use_bus() {
    norv_i2c_bus_t bus;
    uint8_t data[2] = {};
    const norv_i2c_reg_value_t pairs[] = {{0, 1}, {1, 2}};
    uint32_t status = norv_linux_open_i2c_bus(&bus, 1);
    if (status == 0) {
        status = bus.write_reg_list(&bus, 0x50, pairs, 2);
    }
    if (status == 0) {
        status = bus.read_reg_list(&bus, 0x50, data, data, 2);
    }
    if (status == 0) {
        status = bus.write_then_read(&bus, 0x50, data, 1, data, 1);
    }
    norv_linux_close_i2c_bus(&bus);
    EXPECT_EQ(bus.state, nullptr);
    return status;
}

TEST(I2cBusSweep, EveryFailingCallIsReportedAndLeavesNothingOpenOrAllocated) {
    norv::test::failure_sweep(
        [](kernel_double& kernel) { kernel.add_device("/dev/i2c-1", std::make_shared<i2c_adapter>()); },
        use_bus);
}

}  // namespace
