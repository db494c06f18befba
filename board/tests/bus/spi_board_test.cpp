// SPDX-License-Identifier: MIT
// SPI slaves of a real kernel. Both send back what they receive, and 1, 2, 3, ... in a transfer that sends
// nothing. The controller of bus 0 accepts 16-bit words, the one of bus 1 refuses them.
#include "norv_linux_spi.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "../support/attribute.hpp"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

constexpr norv_spi_config_t eight_bits = {0, 1'000'000, 8, 0};
constexpr norv_spi_config_t sixteen_bits = {0, 1'000'000, 16, 0};

// What the controller of a bus reports about the last selection of its slave.
std::string seen(int bus, const std::string& name) {
    std::ostringstream content;
    content << std::ifstream("/sys/kernel/debug/norv_board_spi/" + std::to_string(bus) + "/" + name).rdbuf();
    return content.str();
}

unsigned long seen_number(int bus, const std::string& name) {
    return std::stoul(seen(bus, name));
}

class SpiOnBoard : public testing::Test {
  protected:
    void open(int bus, const norv_spi_config_t& config) {
        const std::string path = "/dev/spidev" + std::to_string(bus) + ".0";
        ASSERT_EQ(norv_linux_spi_open(path.c_str(), &config, &spi), 0U);
        selections = seen_number(bus, "selections");
    }
    ~SpiOnBoard() override { norv_linux_spi_close(&spi); }

    template <typename setting>
    setting ask(unsigned long request) {
        setting value = 0;
        EXPECT_EQ(ioctl(norv_linux_spi_get_fd(&spi), request, &value), 0);
        return value;
    }
    unsigned long selections_since_open(int bus) { return seen_number(bus, "selections") - selections; }

    norv_spi_t spi = {};
    unsigned long selections = 0;
};

// ---- open, configure, close

TEST_F(SpiOnBoard, OpeningConfiguresTheDevice) {
    open(0, {3, 5'000'000, 8, 1});
    EXPECT_EQ(ask<uint8_t>(SPI_IOC_RD_MODE), SPI_MODE_3 | SPI_LSB_FIRST);
    EXPECT_EQ(ask<uint8_t>(SPI_IOC_RD_BITS_PER_WORD), 8);
    EXPECT_EQ(ask<uint32_t>(SPI_IOC_RD_MAX_SPEED_HZ), 5'000'000U);
    EXPECT_EQ(ask<uint8_t>(SPI_IOC_RD_LSB_FIRST), 1);
}

TEST_F(SpiOnBoard, TheControllerRunsATransferAsConfigured) {
    open(0, {2, 250'000, 16, 1});
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12", nullptr, 2), 0U);
    EXPECT_EQ(seen_number(0, "mode"), 2U | SPI_LSB_FIRST);
    EXPECT_EQ(seen_number(0, "speed_hz"), 250'000U);
    EXPECT_EQ(seen_number(0, "bits_per_word"), 16U);
}

TEST_F(SpiOnBoard, EveryModeReachesTheController) {
    open(0, eight_bits);
    for (const uint32_t mode : {3U, 2U, 1U, 0U}) {
        const norv_spi_config_t config = {mode, 1'000'000, 8, 0};
        EXPECT_EQ(norv_linux_spi_config(&spi, &config), 0U);
        EXPECT_EQ(norv_linux_spi_dplx(&spi, "1", nullptr, 1), 0U);
        EXPECT_EQ(seen_number(0, "mode"), mode);
    }
}

TEST_F(SpiOnBoard, ModeFourLeavesTheSettingsUnchanged) {
    open(0, {1, 3'000'000, 8, 1});
    const norv_spi_config_t config = {4, 1'000'000, 16, 0};
    EXPECT_EQ(norv_linux_spi_config(&spi, &config), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(ask<uint8_t>(SPI_IOC_RD_MODE), SPI_MODE_1 | SPI_LSB_FIRST);
    EXPECT_EQ(ask<uint8_t>(SPI_IOC_RD_BITS_PER_WORD), 8);
    EXPECT_EQ(ask<uint32_t>(SPI_IOC_RD_MAX_SPEED_HZ), 3'000'000U);
}

TEST_F(SpiOnBoard, ASlaveWithRefusedTwelveBitWordsCannotBeOpened) {
    const norv_spi_config_t twelve_bits = {0, 1'000'000, 12, 0};
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev1.0", &twelve_bits, &spi), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_get_fd(&spi), -1);
}

TEST_F(SpiOnBoard, AMissingSlaveCannotBeOpened) {
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev7.0", &eight_bits, &spi), NORV_STATUS_NOT_FOUND);
}

TEST_F(SpiOnBoard, ClosingReleasesTheDescriptor) {
    open(0, eight_bits);
    const int32_t descriptor = norv_linux_spi_get_fd(&spi);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    norv_linux_spi_close(&spi);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

// The settings of the device node, read through a descriptor that has not configured it.
struct node_settings {
    uint8_t mode = 0;
    uint8_t bits_per_word = 0;
    uint32_t speed_hz = 0;
};

node_settings settings_of(const char* path) {
    node_settings found;
    const int descriptor = ::open(path, O_RDWR | O_CLOEXEC);
    EXPECT_EQ(ioctl(descriptor, SPI_IOC_RD_MODE, &found.mode), 0);
    EXPECT_EQ(ioctl(descriptor, SPI_IOC_RD_BITS_PER_WORD, &found.bits_per_word), 0);
    EXPECT_EQ(ioctl(descriptor, SPI_IOC_RD_MAX_SPEED_HZ, &found.speed_hz), 0);
    ::close(descriptor);
    return found;
}

TEST_F(SpiOnBoard, ModeWordSizeAndBitOrderOutliveTheHandleAndTheClockDoesNot) {
    open(0, {3, 2'000'000, 16, 1});
    EXPECT_EQ(settings_of("/dev/spidev0.0").speed_hz, 2'000'000U);
    norv_linux_spi_close(&spi);
    const node_settings left = settings_of("/dev/spidev0.0");
    EXPECT_EQ(left.mode, SPI_MODE_3 | SPI_LSB_FIRST);
    EXPECT_EQ(left.bits_per_word, 16);
    EXPECT_EQ(left.speed_hz, 10'000'000U);  // the clock of the slave's description
}

TEST_F(SpiOnBoard, ASecondHandleChangesTheSettingsOfTheFirst) {
    open(0, {0, 2'000'000, 8, 0});
    norv_spi_t second;
    const norv_spi_config_t config = {3, 500'000, 8, 0};
    EXPECT_EQ(norv_linux_spi_open("/dev/spidev0.0", &config, &second), 0U);
    norv_linux_spi_close(&second);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "1", nullptr, 1), 0U);
    EXPECT_EQ(seen_number(0, "mode"), 3U);
    EXPECT_EQ(seen_number(0, "speed_hz"), 500'000U);
}

// ---- full duplex

TEST_F(SpiOnBoard, WhatIsSentComesBack) {
    open(0, eight_bits);
    std::string received(11, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "hello board", received.data(), 11), 0U);
    EXPECT_EQ(received, "hello board");
    EXPECT_EQ(seen(0, "wire"), "hello board");
}

TEST_F(SpiOnBoard, WithoutATransmitBufferZerosAreSentAndBytesReceived) {
    open(0, eight_bits);
    std::string received(3, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, nullptr, received.data(), 3), 0U);
    EXPECT_EQ(received, "\1\2\3");
    EXPECT_EQ(seen(0, "wire"), "\0\0\0"s);
}

TEST_F(SpiOnBoard, WithoutAReceiveBufferTheBytesAreOnlySent) {
    open(0, eight_bits);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "out", nullptr, 3), 0U);
    EXPECT_EQ(seen(0, "wire"), "out");
}

TEST_F(SpiOnBoard, AMessageMovesAtMostTheBufferOfSpidev) {
    open(0, eight_bits);
    const size_t most = std::stoul(norv::board::attribute("/sys/module/spidev/parameters/bufsiz"));
    EXPECT_EQ(most, 4096U) << "the kernel's default, on every board";
    const auto length = static_cast<uint32_t>(most);
    const std::string sent(most + 1, 'x');
    std::string received(most + 1, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, sent.data(), received.data(), length + 1),
              NORV_STATUS_ERRNO_BASE + EMSGSIZE);
    EXPECT_EQ(selections_since_open(0), 0U);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, sent.data(), received.data(), length), 0U);
    EXPECT_EQ(received, std::string(most, 'x') + "-");
}

TEST_F(SpiOnBoard, AControllerWithSixteenBitsSendsTheHighByteFirst) {
    open(0, sixteen_bits);
    EXPECT_EQ(spi.swap16, 0);
    const uint16_t words[] = {0x1234, 0xABCD};
    uint16_t received[2] = {};
    EXPECT_EQ(norv_linux_spi_dplx(&spi, words, received, 4), 0U);
    EXPECT_EQ(seen(0, "wire"), "\x12\x34\xAB\xCD");
    EXPECT_THAT(received, ElementsAre(0x1234, 0xABCD));
}

TEST_F(SpiOnBoard, AControllerWithoutSixteenBitsSendsTheSameBytes) {
    open(1, sixteen_bits);
    EXPECT_EQ(spi.swap16, 1);
    const uint16_t words[] = {0x1234, 0xABCD};
    uint16_t received[2] = {};
    EXPECT_EQ(norv_linux_spi_dplx(&spi, words, received, 4), 0U);
    EXPECT_EQ(seen_number(1, "bits_per_word"), 8U);
    EXPECT_EQ(seen(1, "wire"), "\x12\x34\xAB\xCD");
    EXPECT_THAT(received, ElementsAre(0x1234, 0xABCD));
}

TEST_F(SpiOnBoard, TheLastByteOfAnOddLengthIsNotSwapped) {
    open(1, sixteen_bits);
    std::string received(5, '-');
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12345", received.data(), 5), 0U);
    EXPECT_EQ(seen(1, "wire"), "21435");
    EXPECT_EQ(received, "12345");
}

TEST_F(SpiOnBoard, AControllerWithSixteenBitsRefusesAnOddLength) {
    open(0, sixteen_bits);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, "12345", nullptr, 5), NORV_STATUS_INVALID_ARG);
}

// ---- write, then read

TEST_F(SpiOnBoard, WritingThenReadingIsOneSelectionWithThePauseBetween) {
    open(0, eight_bits);
    std::string received(3, '-');
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "ask", 3, 150, received.data(), 3), 0U);
    EXPECT_EQ(received, "\1\2\3");
    EXPECT_EQ(seen(0, "wire"), "ask\0\0\0"s);
    EXPECT_EQ(seen_number(0, "delay_us"), 150U);
    EXPECT_EQ(selections_since_open(0), 1U);
}

TEST_F(SpiOnBoard, WritingThenReadingWithSwappingSendsZeros) {
    open(1, sixteen_bits);
    std::string received(5, '-');
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, "ask", 3, 0, received.data(), 5), 0U);
    EXPECT_EQ(received, "\2\1\4\3\5");
    EXPECT_EQ(seen(1, "wire"), std::string(8, '\0'));
}

// ---- lists of transfers

TEST_F(SpiOnBoard, AListRunsInOneSelection) {
    open(0, eight_bits);
    std::string first(2, '-');
    std::string second(2, '-');
    const norv_spi_transfer_t transfers[] = {
        {"ab", first.data(), 2, 10}, {nullptr, second.data(), 2, 20}, {"c", nullptr, 1, 0}};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers, 3), 0U);
    EXPECT_EQ(first, "ab");
    EXPECT_EQ(second, "\1\2");
    EXPECT_EQ(seen(0, "wire"), "ab\0\0c"s);
    EXPECT_EQ(seen_number(0, "delay_us"), 30U);
    EXPECT_EQ(selections_since_open(0), 1U);
}

TEST_F(SpiOnBoard, AListIsNotSwapped) {
    open(1, sixteen_bits);
    std::string received(4, '-');
    const norv_spi_transfer_t transfer = {"1234", received.data(), 4, 0};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, &transfer, 1), 0U);
    EXPECT_EQ(seen(1, "wire"), "1234");
    EXPECT_EQ(received, "1234");
}

// Only one in 16 sends a byte: on a 64-bit ARM processor even one byte takes 128 of the 4096 bytes of
// spidev's buffer.
TEST_F(SpiOnBoard, AListOf511TransfersRunsCompletely) {
    open(0, eight_bits);
    std::string bytes(511, '-');
    std::string received(511, '-');
    std::string expected = received;
    std::string on_wire;
    std::vector<norv_spi_transfer_t> transfers;
    for (size_t index = 0; index < 511; ++index) {
        const bool sends = index % 16 == 0;
        bytes[index] = static_cast<char>(index);
        transfers.push_back({&bytes[index], &received[index], sends ? 1U : 0U, 0});
        if (sends) {
            expected[index] = bytes[index];
            on_wire += bytes[index];
        }
    }
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers.data(), 511), 0U);
    EXPECT_EQ(received, expected);
    EXPECT_EQ(seen(0, "wire"), on_wire);
}

TEST_F(SpiOnBoard, AListOf512TransfersSendsNothingAndLinuxReportsSuccess) {
    open(0, eight_bits);
    const std::vector<norv_spi_transfer_t> transfers(512, {"1", nullptr, 1, 0});
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers.data(), 512), 0U);
    EXPECT_EQ(selections_since_open(0), 0U);
}

// ---- soak

class SpiSoak : public SpiOnBoard, public testing::WithParamInterface<int> {};

TEST_P(SpiSoak, TenThousandTransfersLoseNothing) {
    open(GetParam(), sixteen_bits);
    std::mt19937 random(1);
    std::vector<uint16_t> sent(64);
    for (int round = 0; round < 10'000; ++round) {
        for (uint16_t& word : sent) {
            word = static_cast<uint16_t>(random());
        }
        std::vector<uint16_t> received(1 + random() % sent.size());
        const auto length = static_cast<uint32_t>(received.size() * sizeof(uint16_t));
        ASSERT_EQ(norv_linux_spi_dplx(&spi, sent.data(), received.data(), length), 0U) << "round " << round;
        ASSERT_EQ(received, std::vector(sent.begin(), sent.begin() + static_cast<long>(received.size())));
    }
    EXPECT_EQ(selections_since_open(GetParam()), 10'000U);
}

INSTANTIATE_TEST_SUITE_P(BothControllers, SpiSoak, testing::Values(0, 1));

}  // namespace
