// SPDX-License-Identifier: MIT
// I2C transfers.
#include "norv_linux_i2c.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <numeric>
#include <string>

#include "bus/i2c_adapter.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::control;
using norv::test::errno_status;
using norv::test::i2c_adapter;
using norv::test::i2c_transaction;
using norv::test::kernel_double;
using norv::test::received;
using norv::test::sent;
using testing::ElementsAre;
using testing::IsEmpty;

// A board with one adapter, /dev/i2c-1.
class I2c : public testing::Test {
  protected:
    I2c() { kernel.add_device("/dev/i2c-1", adapter); }

    kernel_double kernel;
    std::shared_ptr<i2c_adapter> adapter = std::make_shared<i2c_adapter>();
    int32_t bus = -1;
};

// The same board with the adapter opened.
class OpenI2c : public I2c {
  protected:
    OpenI2c() {
        EXPECT_EQ(norv_linux_i2c_open(1, &bus), 0U);
        kernel.forget_calls();
    }
    ~OpenI2c() override { norv_linux_i2c_close(&bus); }

    uint8_t data[8] = {9, 9, 9, 9, 9, 9, 9, 9};
};

// ---- open and close

TEST_F(I2c, OpeningOpensTheAdapterForReadingAndWriting) {
    EXPECT_EQ(norv_linux_i2c_open(1, &bus), 0U);
    EXPECT_GT(bus, 0);
    EXPECT_THAT(kernel.open_flags("/dev/i2c-1"), ElementsAre(O_RDWR | O_CLOEXEC));
    norv_linux_i2c_close(&bus);
}

TEST_F(I2c, OpeningQueriesTheAdaptersFunctions) {
    norv_linux_i2c_open(1, &bus);
    ASSERT_EQ(kernel.calls("ioctl").size(), 1U);
    EXPECT_EQ(kernel.calls("ioctl")[0].as<control>().request, 0x705U);
    EXPECT_THAT(adapter->transactions, IsEmpty());
    norv_linux_i2c_close(&bus);
}

TEST_F(I2c, AnAdapterWithoutADeviceFileCannotBeOpened) {
    bus = 5;
    EXPECT_EQ(norv_linux_i2c_open(2, &bus), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(bus, -1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

// quirk 2
TEST_F(I2c, TheBusNumberIsPrintedSigned) {
    kernel.add_device("/dev/i2c--2147483648", adapter);
    EXPECT_EQ(norv_linux_i2c_open(0x80000000U, &bus), 0U);
    norv_linux_i2c_close(&bus);
}

TEST_F(I2c, AnAdapterWithSmbusOnlyIsNotAvailableAndIsClosed) {
    adapter->functions = I2C_FUNC_SMBUS_EMUL;
    EXPECT_EQ(norv_linux_i2c_open(1, &bus), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(I2c, AFailedOpenLeavesNothingToCloseTwice) {
    adapter->functions = 0;
    norv_linux_i2c_open(1, &bus);
    kernel.forget_calls();
    norv_linux_i2c_close(&bus);
    EXPECT_EQ(bus, -1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(I2c, AFailedFunctionsRequestClosesTheAdapter) {
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_linux_i2c_open(1, &bus), errno_status(EIO));
    EXPECT_EQ(bus, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

// quirk 1
TEST_F(I2c, AFunctionsFailureWhoseErrnoMapsToZeroMeansNoFunctions) {
    kernel.map_errno(EIO, 0);
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_linux_i2c_open(1, &bus), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(bus, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(I2c, AFailedOpenWhoseErrnoMapsToZeroEndsAtTheFunctionsRequest) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_linux_i2c_open(2, &bus), errno_status(EBADF));
    EXPECT_EQ(bus, -1);
}

// quirk 49
TEST_F(I2c, ClosingClosesTheDescriptorAndKeepsTheStoredValue) {
    norv_linux_i2c_open(1, &bus);
    const int32_t opened = bus;
    norv_linux_i2c_close(&bus);
    EXPECT_EQ(bus, opened);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(I2c, ClosingUsesAllBitsOfTheDescriptor) {
    norv_linux_i2c_open(1, &bus);
    const int32_t other = bus + 0x10000;
    // That descriptor is not open, which the kernel double reports.
    EXPECT_NONFATAL_FAILURE(norv_linux_i2c_close(&other), "was closed, but is not open");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    norv_linux_i2c_close(&bus);
}

TEST_F(I2c, ClosingADescriptorOfZeroOrLessDoesNothing) {
    for (const int32_t closed : {0, -1, INT32_MIN}) {
        norv_linux_i2c_close(&closed);
    }
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST(I2cWithoutStandardInput, AnAdapterWithTheDescriptor0IsNotClosed) {
    const norv::test::no_standard_input guard;
    kernel_double kernel;
    const auto adapter = std::make_shared<i2c_adapter>();
    kernel.add_device("/dev/i2c-1", adapter);
    int32_t bus = -1;
    EXPECT_EQ(norv_linux_i2c_open(1, &bus), 0U);
    EXPECT_EQ(bus, 0);
    norv_linux_i2c_close(&bus);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    close(0);
    kernel.forget_calls();
    adapter->functions = 0;
    EXPECT_EQ(norv_linux_i2c_open(1, &bus), NORV_STATUS_NOT_AVAILABLE);
    EXPECT_EQ(bus, -1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    close(0);
}

TEST_F(I2c, ANullDescriptorIsAnInvalidArgument) {
    uint8_t byte = 0;
    norv_linux_i2c_close(nullptr);
    EXPECT_EQ(norv_linux_i2c_open(1, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_read(nullptr, 0x50, 0, &byte, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_write(nullptr, 0x50, 0, &byte, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_raw_read(nullptr, 0x50, &byte, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_raw_write(nullptr, 0x50, &byte, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_write_then_read(nullptr, 0x50, &byte, 1, &byte, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- registers

TEST_F(OpenI2c, ARegisterReadIsOneTransactionOfTwoMessages) {
    adapter->registers[0x10] = 0xAB;
    adapter->registers[0x11] = 0xCD;
    EXPECT_EQ(norv_linux_i2c_read(&bus, 0x50, 0x10, data, 2), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x10"), received(0x50, "\xAB\xCD")}));
    EXPECT_THAT(data, ElementsAre(0xAB, 0xCD, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenI2c, ARegisterReadAccepts65535Bytes) {
    std::string long_data(65536, 'x');
    EXPECT_EQ(norv_linux_i2c_read(&bus, 0x50, 0x00, long_data.data(), 65535), 0U);
    EXPECT_EQ(adapter->transactions.at(0).at(1).bytes.size(), 65535U);
    EXPECT_EQ(long_data.back(), 'x');
}

TEST_F(OpenI2c, ARegisterWriteSendsTheRegisterByteAndTheDataInOneMessage) {
    EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0x20, "\x01\x02\x03", 3), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x20\x01\x02\x03")}));
    EXPECT_EQ(adapter->registers[0x22], 3);
}

TEST_F(OpenI2c, ARegisterWriteWithoutDataSendsTheRegisterByteAlone) {
    EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0x20, nullptr, 0), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x20")}));
}

TEST_F(OpenI2c, ARegisterWriteOf256BytesIsOneMessageOf257) {
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0x00, bytes.data(), 256), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\0"s + bytes)}));
}

TEST_F(OpenI2c, ARegisterWriteOf257BytesIsRefusedAndNothingReachesTheBus) {
    const std::string bytes(257, 'x');
    EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0x00, bytes.data(), 257), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0x00, bytes.data(), INT32_MAX), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(OpenI2c, ARegisterWriteOfANegativeLengthIsRefused) {
    for (const int32_t length : {-1, -65534, -65536, INT32_MIN}) {
        EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0x00, data, length), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- raw transfers

TEST_F(OpenI2c, ARawReadIsOneReadMessage) {
    adapter->registers[0] = 0x42;
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, data, 1), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{received(0x50, "\x42")}));
    EXPECT_THAT(data, ElementsAre(0x42, 9, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenI2c, ARawWriteIsOneWriteMessage) {
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, "\x30\x07", 2), 0U);
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{sent(0x50, "\x30\x07")}));
}

TEST_F(OpenI2c, ARawTransferOfNoBytesIsAnEmptyMessage) {
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, nullptr, 0), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, nullptr, 0), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "")}, i2c_transaction{received(0x50, "")}));
}

TEST_F(OpenI2c, RawTransfersOf65535BytesAreAccepted) {
    std::string bytes(65535, 'x');
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, bytes.data(), 65535), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, bytes.data(), 65535), 0U);
    EXPECT_EQ(adapter->transactions.at(0).at(0).bytes.size(), 65535U);
    EXPECT_EQ(adapter->transactions.at(1).at(0).bytes.size(), 65535U);
}

TEST_F(OpenI2c, RawTransfersOf65536BytesAreRefusedAndNothingReachesTheBus) {
    std::string bytes(65536, 'x');
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, bytes.data(), 65536), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, bytes.data(), 65536), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 51
TEST_F(OpenI2c, ANegativeRawLengthIsSentAsItsLow16Bits) {
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, "\x30\x07", -65534), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, data, -65534), 0U);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, nullptr, INT32_MIN), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x30\x07")}, i2c_transaction{received(0x50, "\0\0"s)},
                            i2c_transaction{sent(0x50, "")}));
    EXPECT_THAT(data, ElementsAre(0, 0, 9, 9, 9, 9, 9, 9));
}

// quirk 51
TEST_F(OpenI2c, ARawLengthOfMinusOneAsksFor65535Bytes) {
    std::string bytes(65536, 'x');
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, bytes.data(), -1), 0U);
    EXPECT_EQ(adapter->transactions.at(0).at(0).bytes.size(), 65535U);
    EXPECT_EQ(bytes.back(), 'x');
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, nullptr, -1), NORV_STATUS_INVALID_ARG);
}

// ---- write, then read

TEST_F(OpenI2c, WriteThenReadIsOneTransactionOfTwoMessages) {
    adapter->registers[0x42] = 0x99;
    EXPECT_EQ(norv_linux_i2c_write_then_read(&bus, 0x50, "\x40\x01\x02", 3, data, 1), 0U);
    EXPECT_THAT(adapter->transactions,
                ElementsAre(i2c_transaction{sent(0x50, "\x40\x01\x02"), received(0x50, "\x99")}));
    EXPECT_THAT(data, ElementsAre(0x99, 9, 9, 9, 9, 9, 9, 9));
}

TEST_F(OpenI2c, WriteThenReadAccepts65535BytesEach) {
    std::string written(65535, 'w');
    std::string read(65535, 'r');
    EXPECT_EQ(norv_linux_i2c_write_then_read(&bus, 0x50, written.data(), 65535, read.data(), 65535), 0U);
    EXPECT_EQ(adapter->transactions.at(0).at(0).bytes, written);
    EXPECT_EQ(adapter->transactions.at(0).at(1).bytes, read);
}

// ---- all transfers

// One transfer of each kind.
void make_every_transfer(const int32_t* bus, uint8_t address, uint32_t expected) {
    uint8_t byte = 9;
    EXPECT_EQ(norv_linux_i2c_read(bus, address, 0, &byte, 1), expected);
    EXPECT_EQ(norv_linux_i2c_write(bus, address, 0, "x", 1), expected);
    EXPECT_EQ(norv_linux_i2c_raw_read(bus, address, &byte, 1), expected);
    EXPECT_EQ(norv_linux_i2c_raw_write(bus, address, "x", 1), expected);
    EXPECT_EQ(norv_linux_i2c_write_then_read(bus, address, "x", 1, &byte, 1), expected);
}

TEST_F(OpenI2c, EveryTransferIsOneRequestThatNamesItsAddress) {
    make_every_transfer(&bus, 0x50, 0);
    ASSERT_EQ(kernel.calls().size(), 5U);
    for (const auto& call : kernel.calls()) {
        EXPECT_EQ(call.name, "ioctl");
        EXPECT_EQ(call.as<control>().request, 0x707U);
    }
}

TEST_F(OpenI2c, AnUnansweredAddressGivesTheErrnoStatusWithoutARetry) {
    make_every_transfer(&bus, 0x51, errno_status(ENXIO));
    EXPECT_EQ(adapter->transactions.size(), 5U);
}

// quirk 52
TEST_F(OpenI2c, AnAddressAbove7BitsIsPassedOnUnchanged) {
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0xD0, data, 1), errno_status(ENXIO));
    EXPECT_THAT(adapter->transactions, ElementsAre(i2c_transaction{received(0xD0, "")}));
}

// quirk 53
TEST_F(OpenI2c, TransientFailuresAreNotRetried) {
    for (const int error : {EAGAIN, EINTR, ETIMEDOUT}) {
        kernel.fail("ioctl", error);
        EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, data, 1), errno_status(error));
    }
    EXPECT_THAT(adapter->transactions, IsEmpty());
}

TEST_F(OpenI2c, AFailedTransferWhoseErrnoMapsToZeroCountsAsSuccess) {
    kernel.map_errno(ENXIO, 0);
    make_every_transfer(&bus, 0x51, 0);
}

// An adapter that reports success with no messages done.
class forgetful_adapter : public i2c_adapter {
  public:
    long ioctl(unsigned long request, void* argument) override {
        const long result = i2c_adapter::ioctl(request, argument);
        return request == I2C_RDWR ? 0 : result;
    }
};

// quirk 50
TEST_F(I2c, TheCountOfMessagesThatTheKernelReturnsIsNotChecked) {
    kernel.add_device("/dev/i2c-3", std::make_shared<forgetful_adapter>());
    norv_linux_i2c_open(3, &bus);
    make_every_transfer(&bus, 0x50, 0);
    norv_linux_i2c_close(&bus);
}

TEST_F(OpenI2c, NullDataIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_i2c_read(&bus, 0x50, 0, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_write(&bus, 0x50, 0, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_raw_read(&bus, 0x50, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_raw_write(&bus, 0x50, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_write_then_read(&bus, 0x50, nullptr, 1, data, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_i2c_write_then_read(&bus, 0x50, data, 1, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(I2c, ADescriptorThatIsNotOpenGivesTheErrnoStatus) {
    make_every_transfer(&bus, 0x50, errno_status(EBADF));
}

// ---- failure sweep

uint32_t use_adapter() {
    int32_t bus = -1;
    uint8_t data[2] = {};
    uint32_t status = norv_linux_i2c_open(1, &bus);
    if (status == 0) {
        status = norv_linux_i2c_write(&bus, 0x50, 0, data, 2);
    }
    if (status == 0) {
        status = norv_linux_i2c_read(&bus, 0x50, 0, data, 2);
    }
    if (status == 0) {
        status = norv_linux_i2c_raw_write(&bus, 0x50, data, 2);
    }
    if (status == 0) {
        status = norv_linux_i2c_raw_read(&bus, 0x50, data, 2);
    }
    if (status == 0) {
        status = norv_linux_i2c_write_then_read(&bus, 0x50, data, 1, data, 1);
    }
    // Even after a failed open, which must have left nothing to close.
    norv_linux_i2c_close(&bus);
    return status;
}

TEST(I2cSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::failure_sweep(
        [](kernel_double& kernel) { kernel.add_device("/dev/i2c-1", std::make_shared<i2c_adapter>()); },
        use_adapter);
}

}  // namespace
