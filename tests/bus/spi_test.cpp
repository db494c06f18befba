// SPDX-License-Identifier: MIT
// SPI slaves.
#include "norv_linux_spi.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bus/spi_device.hpp"
#include "norv_base.h"
#include "support/failure_sweep.hpp"
#include "support/kernel_double.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::control;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::spi_device;
using norv::test::strike;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr norv_spi_config_t eight_bits = {3, 1'000'000, 8, 0};
constexpr norv_spi_config_t sixteen_bits = {0, 2'000'000, 16, 0};

class Spi : public testing::Test {
  protected:
    Spi() { kernel.add_device("/dev/spidev1.0", slave); }

    std::vector<unsigned long> requests() const {
        std::vector<unsigned long> made;
        for (const auto& call : kernel.calls("ioctl")) {
            made.push_back(call.as<control>().request);
        }
        return made;
    }

    kernel_double kernel;
    std::shared_ptr<spi_device> slave = std::make_shared<spi_device>();
    norv_spi_t spi = {};
};

// A slave opened with the given configuration.
class OpenSpi : public Spi {
  protected:
    void open(const norv_spi_config_t& config) {
        EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", &config, &spi), 0U);
        kernel.forget_calls();
    }
    ~OpenSpi() override { norv_linux_spi_close(&spi); }
};

// With 8-bit words.
class EightBitSpi : public OpenSpi {
  protected:
    EightBitSpi() { open(eight_bits); }
};

// With 16-bit words on a controller that refuses them.
class SwappingSpi : public OpenSpi {
  protected:
    SwappingSpi() {
        slave->refuses_16_bits = true;
        open(sixteen_bits);
    }
};

// ---- open and close

TEST_F(Spi, OpeningConfiguresTheSlaveAndKeepsItsNodeOpen) {
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", &eight_bits, &spi), 0U);
    EXPECT_GT(norv_linux_spi_get_fd(&spi), 0);
    EXPECT_EQ(norv_linux_spi_get_fd(&spi), spi.descriptor);
    EXPECT_THAT(kernel.open_flags("/dev/spidev1.0"), ElementsAre(O_RDWR | O_SYNC | O_CLOEXEC));
    EXPECT_EQ(slave->mode, 3);
    EXPECT_EQ(slave->bits_per_word, 8);
    EXPECT_EQ(slave->speed, 1'000'000U);
    EXPECT_EQ(slave->lsb_first, 0);
    norv_linux_spi_close(&spi);
}

// quirk 61
TEST_F(Spi, ThePathIsAFormat) {
    kernel.add_device("/dev/spi%1", slave);
    EXPECT_EQ(norv_linux_spi_open("/dev/spi%%1", &eight_bits, &spi), 0U);
    EXPECT_THAT(kernel.open_flags("/dev/spi%1"), SizeIs(1));
    norv_linux_spi_close(&spi);
}

TEST_F(Spi, ASlaveWithoutANodeCannotBeOpened) {
    spi = {77, 1};
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev9.0", &eight_bits, &spi), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(spi.descriptor, -1);
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(Spi, ASlaveThatCannotBeConfiguredIsClosedAgain) {
    slave->refuses_16_bits = true;
    const norv_spi_config_t twelve_bits = {0, 1'000'000, 12, 0};
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", &twelve_bits, &spi), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(spi.descriptor, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Spi, AFailedOpenWhoseErrnoMapsToZeroIsFollowedByTheConfiguration) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev9.0", &eight_bits, &spi), errno_status(EBADF));
    EXPECT_THAT(requests(), ElementsAre(SPI_IOC_WR_MODE));
    EXPECT_EQ(spi.descriptor, -1);
}

TEST_F(Spi, ClosingTwiceClosesNothingTheSecondTime) {
    norv_linux_spi_open("/dev/spidev1.0", &eight_bits, &spi);
    norv_linux_spi_close(&spi);
    EXPECT_EQ(norv_linux_spi_get_fd(&spi), -1);
    kernel.forget_calls();
    norv_linux_spi_close(&spi);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(Spi, OnlyADescriptorAboveZeroIsClosed) {
    for (const int32_t descriptor : {0, -1}) {
        spi.descriptor = descriptor;
        norv_linux_spi_close(&spi);
    }
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST(SpiWithoutStandardInput, ASlaveWithTheDescriptor0IsNotClosed) {
    const norv::test::no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/spidev1.0", std::make_shared<spi_device>());
    norv_spi_t spi = {};
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", &eight_bits, &spi), 0U);
    EXPECT_EQ(norv_linux_spi_get_fd(&spi), 0);
    norv_linux_spi_close(&spi);
    EXPECT_EQ(norv_linux_spi_get_fd(&spi), -1);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    close(0);
}

TEST_F(Spi, ANullPointerIsAnInvalidArgument) {
    const norv_spi_transfer_t transfer = {};
    norv_linux_spi_close(nullptr);
    EXPECT_EQ(norv_linux_spi_open(nullptr, &eight_bits, &spi), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", &eight_bits, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_config(nullptr, &eight_bits), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_config(&spi, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_dplx(nullptr, "1", nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_write_then_read(nullptr, "1", 1, 0, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_xfer(nullptr, &transfer, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_xfer(&spi, nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Spi, OpeningWithoutAConfigurationLeavesAClosedHandle) {
    spi = {77, 1};
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", nullptr, &spi), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(spi.descriptor, -1);
    EXPECT_EQ(spi.swap16, 0);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- configuration

TEST_F(EightBitSpi, TheSettingsAreWrittenInTheOrderModeBitsClockBitOrder) {
    EXPECT_EQ(norv_linux_spi_config(&spi, &eight_bits), 0U);
    EXPECT_THAT(requests(), ElementsAre(0x40016b01, 0x40016b03, 0x40046b04, 0x40016b02));
}

TEST_F(EightBitSpi, TheModesZeroToThreeArriveUnchanged) {
    for (const uint32_t mode : {0U, 1U, 2U, 3U}) {
        const norv_spi_config_t config = {mode, 1'000'000, 8, 0};
        EXPECT_EQ(norv_linux_spi_config(&spi, &config), 0U);
        EXPECT_EQ(slave->mode, mode);
    }
}

// quirk 56
TEST_F(EightBitSpi, ModeFourIsAnInvalidArgumentAndLeavesTheSettingsUnchanged) {
    for (const uint32_t mode : {4U, 0x100U, 0xFFFFFFFFU}) {
        const norv_spi_config_t config = {mode, 5'000'000, 16, 1};
        EXPECT_EQ(norv_linux_spi_config(&spi, &config), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_EQ(slave->speed, 1'000'000U);
}

// quirk 56
TEST_F(SwappingSpi, ARefusedModeStillClearsSwap16) {
    const norv_spi_config_t config = {4, 2'000'000, 16, 0};
    EXPECT_EQ(norv_linux_spi_config(&spi, &config), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(spi.swap16, 0);
}

TEST_F(EightBitSpi, TheClockArrivesWithAllItsBits) {
    const norv_spi_config_t config = {0, 0xF1F2F3F4, 8, 0};
    EXPECT_EQ(norv_linux_spi_config(&spi, &config), 0U);
    EXPECT_EQ(slave->speed, 0xF1F2F3F4U);
}

TEST_F(EightBitSpi, AnyNonZeroFlagSelectsTheLeastSignificantBitFirst) {
    for (const uint8_t flag : {uint8_t{1}, uint8_t{0x80}}) {
        slave->lsb_first = 0xEE;
        const norv_spi_config_t config = {0, 1'000'000, 8, flag};
        EXPECT_EQ(norv_linux_spi_config(&spi, &config), 0U);
        EXPECT_EQ(slave->lsb_first, 1);
    }
}

TEST_F(EightBitSpi, SixteenBitWordsAreNotEmulatedIfTheControllerAcceptsThem) {
    EXPECT_EQ(norv_linux_spi_config(&spi, &sixteen_bits), 0U);
    EXPECT_EQ(slave->bits_per_word, 16);
    EXPECT_EQ(spi.swap16, 0);
}

TEST_F(EightBitSpi, SixteenBitWordsAreEmulatedIfTheControllerRefusesThem) {
    slave->refuses_16_bits = true;
    EXPECT_EQ(norv_linux_spi_config(&spi, &sixteen_bits), 0U);
    EXPECT_EQ(spi.swap16, 1);
    EXPECT_EQ(slave->bits_per_word, 8);
    EXPECT_THAT(requests(), ElementsAre(SPI_IOC_WR_MODE, SPI_IOC_WR_BITS_PER_WORD, SPI_IOC_WR_BITS_PER_WORD,
                                        SPI_IOC_WR_MAX_SPEED_HZ, SPI_IOC_WR_LSB_FIRST));
}

TEST_F(SwappingSpi, ConfiguringEightBitsEndsTheEmulation) {
    EXPECT_EQ(norv_linux_spi_config(&spi, &eight_bits), 0U);
    EXPECT_EQ(spi.swap16, 0);
}

TEST_F(EightBitSpi, OtherRefusedWordLengthsAreNotTriedAsEight) {
    for (const uint8_t bits : {uint8_t{12}, uint8_t{24}}) {
        kernel.forget_calls();
        const norv_spi_config_t config = {1, 5'000'000, bits, 0};
        EXPECT_EQ(norv_linux_spi_config(&spi, &config), NORV_STATUS_INVALID_ARG);
        EXPECT_THAT(requests(), ElementsAre(SPI_IOC_WR_MODE, SPI_IOC_WR_BITS_PER_WORD));
        EXPECT_EQ(spi.swap16, 0);
        EXPECT_EQ(slave->mode, 1);
        EXPECT_EQ(slave->speed, 1'000'000U);
    }
}

TEST_F(EightBitSpi, AFailedRetryWithEightBitsEndsTheConfigurationWithItsStatus) {
    slave->refuses_16_bits = true;
    kernel.fail({.call = "ioctl", .request = SPI_IOC_WR_BITS_PER_WORD, .nth = 2, .error = EPERM});
    EXPECT_EQ(norv_linux_spi_config(&spi, &sixteen_bits), errno_status(EPERM));
    EXPECT_EQ(spi.swap16, 0);
    EXPECT_THAT(requests(), SizeIs(3));
}

// What configures a slave with 8 bits, in this order.
const std::vector<unsigned long> eight_bit_requests = {SPI_IOC_WR_MODE, SPI_IOC_WR_BITS_PER_WORD,
                                                       SPI_IOC_WR_MAX_SPEED_HZ, SPI_IOC_WR_LSB_FIRST};

TEST_F(EightBitSpi, TheFirstFailingRequestEndsTheConfiguration) {
    for (const unsigned long request : eight_bit_requests) {
        kernel.forget_calls();
        kernel.fail({.call = "ioctl", .request = request, .error = EACCES});
        EXPECT_EQ(norv_linux_spi_config(&spi, &eight_bits), errno_status(EACCES));
        EXPECT_EQ(requests().back(), request);
    }
}

TEST_F(EightBitSpi, AFailureThatMapsToZeroCountsAsSuccess) {
    kernel.map_errno(EACCES, 0);
    for (const unsigned long request : eight_bit_requests) {
        kernel.forget_calls();
        kernel.fail({.call = "ioctl", .request = request, .error = EACCES});
        EXPECT_EQ(norv_linux_spi_config(&spi, &eight_bits), 0U);
        EXPECT_EQ(requests(), eight_bit_requests);
    }
}

TEST_F(EightBitSpi, ARefusedRetryWithEightBitsThatMapsToZeroCountsAsSuccess) {
    slave->refuses_16_bits = true;
    kernel.map_errno(EPERM, 0);
    kernel.fail({.call = "ioctl", .request = SPI_IOC_WR_BITS_PER_WORD, .nth = 2, .error = EPERM});
    EXPECT_EQ(norv_linux_spi_config(&spi, &sixteen_bits), 0U);
    EXPECT_EQ(spi.swap16, 1);
    EXPECT_THAT(requests(), SizeIs(5));
}

TEST_F(EightBitSpi, RefusedSixteenBitsWhoseErrnoMapsToZeroAreNotEmulated) {
    slave->refuses_16_bits = true;
    kernel.map_errno(EINVAL, 0);
    EXPECT_EQ(norv_linux_spi_config(&spi, &sixteen_bits), 0U);
    EXPECT_EQ(spi.swap16, 0);
    EXPECT_THAT(requests(), SizeIs(4));
}

// ---- full duplex

TEST_F(EightBitSpi, ADuplexTransferSendsAndReceivesTheSameNumberOfBytes) {
    slave->incoming = "abcd";
    std::string received(4, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "1234", received.data(), 4), 0U);
    ASSERT_THAT(slave->messages, SizeIs(1));
    ASSERT_THAT(slave->messages[0], SizeIs(1));
    EXPECT_EQ(slave->messages[0][0].sent, "1234");
    EXPECT_EQ(received, "abcd");
}

TEST_F(EightBitSpi, ADuplexTransferNamesTheCallersBuffersAndNothingElse) {
    std::string received(4, '-');
    const char* sent = "1234";
    norv_linux_spi_dplx(&spi, sent, received.data(), 4);
    spi_ioc_transfer expected = {};
    expected.tx_buf = reinterpret_cast<uintptr_t>(sent);
    expected.rx_buf = reinterpret_cast<uintptr_t>(received.data());
    expected.len = 4;
    EXPECT_EQ(memcmp(&slave->messages[0][0].given, &expected, sizeof expected), 0);
    EXPECT_THAT(requests(), ElementsAre(0x40206b00));
}

TEST_F(EightBitSpi, ADuplexTransferWithoutATransmitBufferOnlyReceives) {
    slave->incoming = "ab";
    std::string received(2, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, nullptr, received.data(), 2), 0U);
    EXPECT_EQ(slave->messages[0][0].given.tx_buf, 0U);
    EXPECT_EQ(received, "ab");
}

TEST_F(EightBitSpi, ADuplexTransferWithoutAReceiveBufferOnlySends) {
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12", nullptr, 2), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, "12");
    EXPECT_EQ(slave->messages[0][0].given.rx_buf, 0U);
}

TEST_F(EightBitSpi, ADuplexTransferWithoutSwappingAllocatesNothing) {
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12", nullptr, 2), 0U);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(EightBitSpi, LengthsHave32Bits) {
    const std::string sent(65538, 's');
    std::string received(65538, '-');
    const norv_spi_transfer_t transfer = {sent.data(), received.data(), 65538, 0};
    EXPECT_EQ(norv_linux_spi_dplx(&spi, sent.data(), received.data(), 65538), 0U);
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, sent.data(), 65537, 0, received.data(), 65538), 0U);
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), 0U);
    EXPECT_EQ(slave->messages[0][0].given.len, 65538U);
    EXPECT_EQ(slave->messages[1][0].given.len, 65537U);
    EXPECT_EQ(slave->messages[1][1].given.len, 65538U);
    EXPECT_EQ(slave->messages[2][0].given.len, 65538U);
}

TEST_F(EightBitSpi, AFailedDuplexTransferGivesTheErrnoStatus) {
    kernel.fail("ioctl", EMSGSIZE);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12", nullptr, 2), errno_status(EMSGSIZE));
}

TEST_F(SwappingSpi, ADuplexTransferOfFiveBytesSwapsTwoPairsAndLeavesTheLastByte) {
    slave->incoming = "abcde";
    std::string received(5, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12345", received.data(), 5), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, "21435");
    EXPECT_EQ(received, "badce");
}

TEST_F(SwappingSpi, AWordGoesOutHighByteFirst) {
    const uint16_t words[] = {0x1234, 0xABCD};
    EXPECT_EQ(norv_linux_spi_dplx(&spi, words, nullptr, sizeof words), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, "\x12\x34\xAB\xCD");
}

TEST_F(SwappingSpi, ALongTransferIsSwappedToItsEnd) {
    const std::string sent = std::string(65534, '-') + "1234";
    std::string received(65538, '-');
    slave->incoming = sent;
    EXPECT_EQ(norv_linux_spi_dplx(&spi, sent.data(), received.data(), 65538), 0U);
    EXPECT_EQ(slave->messages[0][0].sent.substr(65534), "2143");
    EXPECT_EQ(received.substr(65534), "2143");
}

TEST_F(SwappingSpi, FewerThanTwoBytesAreNotSwapped) {
    slave->incoming = "ab";
    std::string received = "--";
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12", received.data(), 1), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, "1");
    EXPECT_EQ(received, "a-");
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12", received.data(), 0), 0U);
    EXPECT_EQ(slave->messages[1][0].sent, "");
    EXPECT_EQ(received, "a-");
}

TEST_F(SwappingSpi, ADuplexTransferNeverChangesTheCallersTransmitBuffer) {
    const std::string sent = "1234";
    const std::string before = sent;
    norv_linux_spi_dplx(&spi, sent.data(), nullptr, 4);
    EXPECT_EQ(sent, before);
    EXPECT_NE(slave->messages[0][0].given.tx_buf, reinterpret_cast<uintptr_t>(sent.data()));
}

TEST_F(SwappingSpi, ADuplexTransferMayReceiveIntoTheBufferThatItSends) {
    slave->incoming = "abcd";
    std::string buffer = "1234";
    EXPECT_EQ(norv_linux_spi_dplx(&spi, buffer.data(), buffer.data(), 4), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, "2143");
    EXPECT_EQ(buffer, "badc");
}

TEST_F(SwappingSpi, ADuplexTransferWithoutATransmitBufferSwapsWhatItReceives) {
    slave->incoming = "abcd";
    std::string received(4, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, nullptr, received.data(), 4), 0U);
    EXPECT_EQ(slave->messages[0][0].given.tx_buf, 0U);
    EXPECT_EQ(received, "badc");
}

TEST_F(SwappingSpi, ADuplexTransferWithoutMemoryForTheCopySendsNothing) {
    kernel.fail("norv_malloc", ENOMEM);
    std::string received(4, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "1234", received.data(), 4), NORV_STATUS_NO_MEMORY);
    EXPECT_THAT(slave->messages, IsEmpty());
    EXPECT_EQ(received, "----");
}

TEST_F(SwappingSpi, AFailedDuplexTransferDoesNotSwapTheReceiveBuffer) {
    kernel.fail("ioctl", EIO);
    std::string received = "wxyz";
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "1234", received.data(), 4), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(received, "wxyz");
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(SwappingSpi, ADuplexFailureWhoseErrnoMapsToZeroSwapsTheReceiveBuffer) {
    kernel.map_errno(EIO, 0);
    kernel.fail("ioctl", EIO);
    std::string received = "wxyz";
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "1234", received.data(), 4), 0U);
    EXPECT_EQ(received, "xwzy");
}

// ---- write, then read

TEST_F(EightBitSpi, WritingThenReadingIsOneMessageOfTwoTransfers) {
    slave->incoming = "abc";
    std::string received(3, '-');
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 700, received.data(), 3), 0U);
    ASSERT_THAT(slave->messages, SizeIs(1));
    ASSERT_THAT(slave->messages[0], SizeIs(2));
    EXPECT_EQ(slave->messages[0][0].sent, "12");
    EXPECT_EQ(received, "abc");
    EXPECT_THAT(requests(), ElementsAre(0x40406b00));
}

TEST_F(EightBitSpi, TheWriteHasTheDelayAndTheSlaveStaysSelectedForTheRead) {
    const char* sent = "12";
    std::string received(3, '-');
    norv_linux_spi_write_then_read(&spi, sent, 2, 65535, received.data(), 3);
    spi_ioc_transfer expected[2] = {};
    expected[0].tx_buf = reinterpret_cast<uintptr_t>(sent);
    expected[0].len = 2;
    expected[0].delay_usecs = 65535;
    expected[1].rx_buf = reinterpret_cast<uintptr_t>(received.data());
    expected[1].len = 3;
    EXPECT_EQ(memcmp(&slave->messages[0][0].given, &expected[0], sizeof expected[0]), 0);
    EXPECT_EQ(memcmp(&slave->messages[0][1].given, &expected[1], sizeof expected[1]), 0);
}

TEST_F(EightBitSpi, WritingThenReadingAcceptsNullBuffers) {
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, nullptr, 2, 0, nullptr, 3), 0U);
    EXPECT_EQ(slave->messages[0][0].given.tx_buf, 0U);
    EXPECT_EQ(slave->messages[0][1].given.rx_buf, 0U);
    EXPECT_EQ(slave->messages[0][1].given.len, 3U);
}

TEST_F(EightBitSpi, WritingThenReadingWithoutSwappingAllocatesNothing) {
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 0, nullptr, 0), 0U);
    EXPECT_FALSE(kernel.struck());
}

TEST_F(EightBitSpi, AFailedWriteThenReadGivesTheErrnoStatus) {
    kernel.fail("ioctl", EMSGSIZE);
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 0, nullptr, 2), errno_status(EMSGSIZE));
}

// quirk 57
TEST_F(SwappingSpi, WritingThenReadingSendsZerosInsteadOfTheCallersBytes) {
    const std::string sent(200, 'x');
    void* used_before = norv_malloc(200);
    memset(used_before, 'y', 200);
    norv_free(used_before);
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, sent.data(), 200, 5, nullptr, 0), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, std::string(200, '\0'));
    EXPECT_NE(slave->messages[0][0].given.tx_buf, 0U);
    EXPECT_EQ(slave->messages[0][0].given.delay_usecs, 5);
    EXPECT_EQ(sent, std::string(200, 'x'));
}

TEST_F(SwappingSpi, WritingThenReadingSwapsWhatItReceives) {
    slave->incoming = "abcde";
    std::string received(5, '-');
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 0, received.data(), 5), 0U);
    EXPECT_EQ(received, "badce");
}

TEST_F(SwappingSpi, WritingThenReadingWithoutATransmitBufferAllocatesNothing) {
    kernel.fail("norv_malloc", ENOMEM);
    slave->incoming = "ab";
    std::string received(2, '-');
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, nullptr, 2, 0, received.data(), 2), 0U);
    EXPECT_FALSE(kernel.struck());
    EXPECT_EQ(received, "ba");
}

// quirk 58
TEST_F(SwappingSpi, WritingThenReadingWithoutMemorySendsUnswappedBytes) {
    kernel.fail("norv_malloc", ENOMEM);
    slave->incoming = "abcd";
    std::string received(4, '-');
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "1234", 4, 0, received.data(), 4), NORV_STATUS_NO_MEMORY);
    ASSERT_THAT(slave->messages, SizeIs(1));
    EXPECT_EQ(slave->messages[0][0].sent, "1234");
    EXPECT_EQ(received, "abcd");
}

// quirk 58
TEST_F(SwappingSpi, WithoutMemoryTheStatusOfAFailedMessageIsNotReported) {
    norv_linux_spi_close(&spi);
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 0, nullptr, 0), NORV_STATUS_NO_MEMORY);
    EXPECT_TRUE(kernel.struck());
}

TEST_F(SwappingSpi, AFailedWriteThenReadDoesNotSwapTheReceiveBuffer) {
    kernel.fail("ioctl", EIO);
    std::string received = "wxyz";
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 0, received.data(), 4), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(received, "wxyz");
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(SwappingSpi, AWriteThenReadWhoseErrnoMapsToZeroSwapsTheReceiveBuffer) {
    kernel.map_errno(EIO, 0);
    kernel.fail("ioctl", EIO);
    std::string received = "wxyz";
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "12", 2, 0, received.data(), 4), 0U);
    EXPECT_EQ(received, "xwzy");
}

// ---- lists of transfers

TEST_F(EightBitSpi, AListIsOneMessageOfTheGivenTransfers) {
    std::string received(2, '-');
    const norv_spi_transfer_t transfers[] = {
        {"12", nullptr, 2, 0}, {nullptr, received.data(), 2, 65535}, {"3", nullptr, 1, 7}};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers, 3), 0U);
    ASSERT_THAT(slave->messages, SizeIs(1));
    ASSERT_THAT(slave->messages[0], SizeIs(3));
    spi_ioc_transfer expected = {};
    expected.rx_buf = reinterpret_cast<uintptr_t>(received.data());
    expected.len = 2;
    expected.delay_usecs = 65535;
    EXPECT_EQ(slave->messages[0][0].sent, "12");
    EXPECT_EQ(memcmp(&slave->messages[0][1].given, &expected, sizeof expected), 0);
    EXPECT_EQ(slave->messages[0][2].sent, "3");
    EXPECT_EQ(slave->messages[0][2].given.delay_usecs, 7);
    EXPECT_THAT(requests(), ElementsAre(0x40606b00));
}

// quirk 59
TEST_F(SwappingSpi, AListIsNeverSwapped) {
    slave->incoming = "abcd";
    std::string received(4, '-');
    const norv_spi_transfer_t transfer = {"1234", received.data(), 4, 0};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), 0U);
    EXPECT_EQ(slave->messages[0][0].sent, "1234");
    EXPECT_EQ(received, "abcd");
}

TEST_F(EightBitSpi, TheRequestFor511TransfersHasSize16352) {
    const std::vector<norv_spi_transfer_t> transfers(511, {"1", nullptr, 1, 0});
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers.data(), 511), 0U);
    EXPECT_THAT(requests(), ElementsAre(0x7fe06b00));
    ASSERT_THAT(slave->messages, SizeIs(1));
    EXPECT_THAT(slave->messages[0], SizeIs(511));
}

// quirk 60
TEST_F(EightBitSpi, TheRequestFor512TransfersHasSizeZeroAndRunsNothing) {
    const std::vector<norv_spi_transfer_t> transfers(512, {"1", nullptr, 1, 0});
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers.data(), 512), 0U);
    EXPECT_THAT(requests(), ElementsAre(0x40006b00));
    EXPECT_THAT(slave->messages, IsEmpty());
}

// Counts whose size, truncated to the 14 bits of a request or to 16 bits, would name another number.
class LongListSpi : public EightBitSpi, public testing::WithParamInterface<uint32_t> {};

TEST_P(LongListSpi, TheRequestHasSizeZeroWhateverTheCount) {
    const std::vector<norv_spi_transfer_t> transfers(GetParam(), {"1", nullptr, 1, 0});
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers.data(), GetParam()), 0U);
    EXPECT_THAT(requests(), ElementsAre(0x40006b00));
    EXPECT_THAT(slave->messages, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Counts, LongListSpi,
                         testing::Values(513, 1023, 1025, 2048, 2049, 4096, 4097, 65536, 65537));

// quirk 60
TEST_F(EightBitSpi, ARefusedRequestOfSizeZeroGivesTheErrnoStatus) {
    const std::vector<norv_spi_transfer_t> transfers(512, {"1", nullptr, 1, 0});
    kernel.fail("ioctl", EINVAL);
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers.data(), 512), NORV_STATUS_INVALID_ARG);
}

TEST_F(EightBitSpi, AnEmptyListIsARequestOfSizeZero) {
    EXPECT_EQ(norv_linux_spi_xfer(&spi, nullptr, 0), 0U);
    EXPECT_THAT(requests(), ElementsAre(0x40006b00));
}

TEST_F(EightBitSpi, AListWithoutMemorySendsNothing) {
    kernel.fail("norv_zalloc", ENOMEM);
    const norv_spi_transfer_t transfer = {"1", nullptr, 1, 0};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), NORV_STATUS_NO_MEMORY);
    EXPECT_THAT(slave->messages, IsEmpty());
}

TEST_F(EightBitSpi, AFailedListGivesTheErrnoStatusAndKeepsNoMemory) {
    kernel.fail("ioctl", EMSGSIZE);
    const norv_spi_transfer_t transfer = {"1", nullptr, 1, 0};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), errno_status(EMSGSIZE));
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(EightBitSpi, AFailedListWhoseErrnoMapsToZeroCountsAsSuccess) {
    kernel.map_errno(EMSGSIZE, 0);
    kernel.fail("ioctl", EMSGSIZE);
    const norv_spi_transfer_t transfer = {"1", nullptr, 1, 0};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), 0U);
}

TEST_F(Spi, AClosedHandleGivesTheStatusOfABadDescriptor) {
    const norv_spi_transfer_t transfer = {"1", nullptr, 1, 0};
    norv_linux_spi_close(&spi);
    EXPECT_EQ(norv_linux_spi_config(&spi, &eight_bits), errno_status(EBADF));
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "1", nullptr, 1), errno_status(EBADF));
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "1", 1, 0, nullptr, 0), errno_status(EBADF));
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), errno_status(EBADF));
}

// ---- failure sweep

// Makes every call on a slave, up to the first failure.
uint32_t use_slave() {
    norv_spi_t spi;
    char received[4] = {};
    const norv_spi_transfer_t transfer = {"1234", received, 4, 0};
    uint32_t status = norv_linux_spi_open("/dev/spidev1.0", &sixteen_bits, &spi);
    if (status == 0) {
        status = norv_linux_spi_dplx(&spi, "1234", received, 4);
    }
    if (status == 0) {
        status = norv_linux_spi_write_then_read(&spi, "12", 2, 0, received, 4);
    }
    if (status == 0) {
        status = norv_linux_spi_xfer(&spi, &transfer, 1);
    }
    norv_linux_spi_close(&spi);
    EXPECT_EQ(spi.descriptor, -1);
    return status;
}

TEST(SpiSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.short_counts = false;
    options.expect = [](const strike& struck) {
        // The first request for a number of bits is that for 16: its failure starts the emulation.
        const bool ignored = struck.name == "ioctl" && struck.nth == 1 &&
                             struck.as<control>().request == SPI_IOC_WR_BITS_PER_WORD;
        return ignored ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    const int struck = norv::test::failure_sweep(
        [](kernel_double& kernel) {
            auto slave = std::make_shared<spi_device>();
            slave->refuses_16_bits = true;
            kernel.add_device("/dev/spidev1.0", slave);
        },
        use_slave, options);
    EXPECT_EQ(struck, 39);  // 13 calls, each with 3 errno values
}

}  // namespace
