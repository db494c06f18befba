// SPDX-License-Identifier: MIT
// I2C transfers with the chips of the virtual board.
#include "norv_linux_i2c.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "i2c_chips.hpp"

namespace {

using norv::board::errno_status;
using testing::Each;
using testing::ElementsAre;

class I2cOnBoard : public testing::Test {
  protected:
    I2cOnBoard() { EXPECT_EQ(norv_linux_i2c_open(norv::board::bus_number, &bus), 0U); }
    ~I2cOnBoard() override { norv_linux_i2c_close(&bus); }

    // An EEPROM does not answer while it stores a page; a write that only selects a byte succeeds afterwards.
    void wait_until_stored() {
        while (norv_linux_i2c_raw_write(&bus, norv::board::eeprom, "", 1) == errno_status(ENXIO)) {
        }
    }
    void write_eeprom(uint8_t offset, const void* bytes, int32_t length) {
        EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::eeprom, offset, bytes, length), 0U);
        wait_until_stored();
    }

    int32_t bus = -1;
    std::array<uint8_t, 4> data = {9, 9, 9, 9};
};

TEST_F(I2cOnBoard, TheDescriptorIsClosedOnExec) {
    EXPECT_EQ(fcntl(bus, F_GETFD), FD_CLOEXEC);
}

TEST_F(I2cOnBoard, ClosingReleasesTheDescriptor) {
    const long before = norv::board::open_descriptors();
    int32_t second = -1;
    EXPECT_EQ(norv_linux_i2c_open(norv::board::bus_number, &second), 0U);
    EXPECT_EQ(norv::board::open_descriptors(), before + 1);
    norv_linux_i2c_close(&second);
    EXPECT_EQ(norv::board::open_descriptors(), before);
}

TEST_F(I2cOnBoard, AMissingBusIsNotFound) {
    int32_t missing = -1;
    EXPECT_EQ(norv_linux_i2c_open(99, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(missing, -1);
}

TEST_F(I2cOnBoard, AnAdapterWithSmbusOnlyIsNotAvailable) {
    const long before = norv::board::open_descriptors();
    int32_t smbus = -1;
    EXPECT_EQ(norv_linux_i2c_open(norv::board::smbus_number(), &smbus), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(smbus, -1);
    EXPECT_EQ(norv::board::open_descriptors(), before);
}

TEST_F(I2cOnBoard, RegistersReadBackAsWritten) {
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0x10, "\x01\x02\x03", 3), 0U);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0x11, data.data(), 2), 0U);
    EXPECT_THAT(data, ElementsAre(2, 3, 9, 9));
}

TEST_F(I2cOnBoard, AMessageLongerThanTheAdapterAcceptsIsNotAvailable) {
    std::array<uint8_t, norv::board::longest_message + 1> bytes = {};
    constexpr auto length = norv::board::longest_message;
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0, bytes.data(), length), 0U);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0, bytes.data(), length + 1),
              NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, norv::board::registers, bytes.data(), length + 1),
              NORV_STATUS_NOT_AVAILABLE);
    // The register's address is the first byte of the message.
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0, bytes.data(), length - 1), 0U);
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0, bytes.data(), length),
              NORV_STATUS_NOT_AVAILABLE);
}

TEST_F(I2cOnBoard, AnAdapterWithoutEmptyMessagesRefusesAnEmptyWrite) {
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::registers, nullptr, 0), NORV_STATUS_NOT_AVAILABLE);
    const norv::board::adapter_without_limits unlimited;
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::registers, nullptr, 0), 0U);
}

TEST_F(I2cOnBoard, AClockHeldLowEndsTheTransferWithTheAdaptersTimeout) {
    constexpr uint8_t chip = norv::board::refusing_registers;
    EXPECT_EQ(norv_linux_i2c_read(&bus, chip, norv::board::stretching_register, data.data(), 1),
              NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_linux_i2c_write(&bus, chip, norv::board::stretching_register, "x", 1),
              NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0, data.data(), 1), 0U);
}

TEST_F(I2cOnBoard, TheLongestRegisterWriteFillsAll256Registers) {
    const norv::board::adapter_without_limits unlimited;
    std::array<uint8_t, 256> written;
    std::array<uint8_t, 256> found = {};
    std::iota(written.begin(), written.end(), uint8_t{7});
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0x00, written.data(), 256), 0U);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0x00, found.data(), 256), 0U);
    EXPECT_EQ(found, written);
}

TEST_F(I2cOnBoard, ARawReadContinuesWhereARawWriteStopped) {
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0x22, "\xAB", 1), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::registers, "\x20\x01\x02", 3), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, norv::board::registers, data.data(), 1), 0U);
    EXPECT_THAT(data, ElementsAre(0xAB, 9, 9, 9));
}

TEST_F(I2cOnBoard, WriteThenReadDoesBoth) {
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0x31, "\xCD", 1), 0U);
    EXPECT_EQ(norv_linux_i2c_write_then_read(&bus, norv::board::registers, "\x30\x01", 2, data.data(), 1),
              0U);
    EXPECT_THAT(data, ElementsAre(0xCD, 9, 9, 9));
}

TEST_F(I2cOnBoard, AtAnUnansweredAddressEveryTransferFails) {
    const uint32_t expected = errno_status(ENXIO);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::absent_address, 0, data.data(), 1), expected);
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::absent_address, 0, "x", 1), expected);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, norv::board::absent_address, data.data(), 1), expected);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::absent_address, "x", 1), expected);
    EXPECT_EQ(norv_linux_i2c_write_then_read(&bus, norv::board::absent_address, "x", 1, data.data(), 1),
              expected);
    EXPECT_THAT(data, Each(9));
}

TEST_F(I2cOnBoard, AnAddressAbove7BitsIsNotRefusedByTheKernel) {
    EXPECT_EQ(norv_linux_i2c_read(&bus, 0x80 + norv::board::absent_address, 0, data.data(), 1),
              errno_status(ENXIO));
    // The adapter has put the low 7 bits on the bus, where another chip may have that address.
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0x10, "\x42", 1), 0U);
    EXPECT_EQ(norv_linux_i2c_read(&bus, 0x80 + norv::board::registers, 0x10, data.data(), 1), 0U);
    EXPECT_THAT(data, ElementsAre(0x42, 9, 9, 9));
}

TEST_F(I2cOnBoard, ANegativeRawLengthCountsByItsLow16Bits) {
    std::vector<uint8_t> bytes(65535);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::registers, "\x10\x43", -65534), 0U);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0x10, data.data(), 1), 0U);
    EXPECT_THAT(data, ElementsAre(0x43, 9, 9, 9));
    // 65535 bytes are more than the kernel accepts in one message.
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, norv::board::registers, bytes.data(), -1),
              NORV_STATUS_INVALID_ARG);
}

TEST_F(I2cOnBoard, AByteThatIsNotAcknowledgedEndsTheWrite) {
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::refusing_registers, 0x01, "\x11\x22\x33", 3),
              errno_status(EREMOTEIO));
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::refusing_registers, 0x01, data.data(), 3), 0U);
    EXPECT_THAT(data, ElementsAre(0x11, 0, 0, 9));
}

TEST_F(I2cOnBoard, TheKernelAcceptsMessagesOfAtMost8192Bytes) {
    const norv::board::adapter_without_limits unlimited;
    std::vector<uint8_t> bytes(65535);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, norv::board::registers, bytes.data(), 8192), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::registers, bytes.data(), 8192), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, norv::board::registers, bytes.data(), 8193),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, norv::board::registers, bytes.data(), 65535),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0, bytes.data(), 65535),
              NORV_STATUS_INVALID_ARG);
}

TEST_F(I2cOnBoard, TheWholeEepromReadsBackAsWritten) {
    std::array<uint8_t, 256> written;
    std::array<uint8_t, 256> found = {};
    std::iota(written.begin(), written.end(), uint8_t{100});
    for (uint32_t page = 0; page < 256; page += 8) {
        write_eeprom(static_cast<uint8_t>(page), &written[page], 8);
    }
    for (const uint8_t half : {uint8_t{0}, uint8_t{128}}) {
        EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::eeprom, half, &found[half], 128), 0U);
    }
    EXPECT_EQ(found, written);
}

TEST_F(I2cOnBoard, AnEepromDoesNotAnswerWhileItStoresAPage) {
    // It stores for only 5 ms, which may pass between two calls on a busy host, but not every time.
    bool unanswered = false;
    for (int attempt = 0; attempt < 100 && !unanswered; ++attempt) {
        EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::eeprom, 0x40, "\x55", 1), 0U);
        unanswered =
            norv_linux_i2c_read(&bus, norv::board::eeprom, 0x40, data.data(), 1) == errno_status(ENXIO);
        wait_until_stored();
    }
    EXPECT_TRUE(unanswered);
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::eeprom, 0x40, data.data(), 1), 0U);
    EXPECT_EQ(data[0], 0x55);
}

TEST_F(I2cOnBoard, AWritePastTheEndOfAPageContinuesAtItsStart) {
    write_eeprom(0x80, "--------", 8);
    write_eeprom(0x88, "--------", 8);
    write_eeprom(0x86, "abc", 3);
    char found[16];
    EXPECT_EQ(norv_linux_i2c_read(&bus, norv::board::eeprom, 0x80, found, 16), 0U);
    EXPECT_EQ(std::string(found, 16), "c-----ab--------");
}

TEST_F(I2cOnBoard, TenThousandTransactionsLoseNothing) {
    constexpr uint16_t count = norv::board::longest_message - 1;  // and the register's address
    std::array<uint8_t, count> expected = {};
    std::mt19937 random(1);
    EXPECT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, 0, expected.data(), count), 0U);
    for (int pair = 0; pair < 5000; ++pair) {
        const auto first = static_cast<uint8_t>(random() % count);
        const auto length = static_cast<uint16_t>(1 + random() % (count - first));
        std::array<uint8_t, count> found = {};
        for (uint32_t index = first; index < first + length; ++index) {
            expected[index] = static_cast<uint8_t>(random());
        }
        ASSERT_EQ(norv_linux_i2c_write(&bus, norv::board::registers, first, &expected[first], length), 0U);
        ASSERT_EQ(norv_linux_i2c_read(&bus, norv::board::registers, 0, found.data(), count), 0U);
        ASSERT_EQ(found, expected) << "after " << pair << " pairs";
    }
}

// Keeps reading its own registers; another thread's transfers must not come between the register address and
// the data.
void read_repeatedly(const int32_t* bus, uint8_t first_register) {
    const uint8_t written[] = {first_register, static_cast<uint8_t>(first_register + 1)};
    EXPECT_EQ(norv_linux_i2c_write(bus, norv::board::registers, first_register, written, 2), 0U);
    for (int read = 0; read < 2000; ++read) {
        uint8_t found[2] = {};
        ASSERT_EQ(norv_linux_i2c_read(bus, norv::board::registers, first_register, found, 2), 0U);
        ASSERT_THAT(found, ElementsAre(written[0], written[1]));
    }
}

TEST_F(I2cOnBoard, TransfersOfTwoThreadsDoNotMix) {
    std::thread other(read_repeatedly, &bus, uint8_t{0x40});
    read_repeatedly(&bus, 0x80);
    other.join();
}

}  // namespace
