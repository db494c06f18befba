// SPDX-License-Identifier: MIT
// A flash chip at a real SPI controller, talked to through spidev in its own commands.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_linux_spi.h"

namespace {

using norv::board::comes_true;
using testing::Each;
using testing::ElementsAreArray;
using testing::Not;

// Commands that all such chips know.
constexpr uint8_t read_identity = 0x9F;
constexpr uint8_t read_status = 0x05;
constexpr uint8_t enable_writes = 0x06;
constexpr uint8_t disable_writes = 0x04;
constexpr uint8_t program_page = 0x02;
constexpr uint8_t read_bytes = 0x03;
constexpr uint8_t erase_sector = 0xD8;
// In the status.
constexpr uint8_t busy = 0x01;
constexpr uint8_t writes_enabled = 0x02;

constexpr norv_spi_config_t plain = {0, 1'000'000, 8, 0};

// The only node of spidev that the machine has.
std::string node() {
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/spidev")) {
        return "/dev/" + entry.path().filename().string();
    }
    return "no spidev";
}

class SpiChipOnBoard : public testing::Test {
  protected:
    SpiChipOnBoard() { EXPECT_EQ(norv_linux_spi_open(node().c_str(), &plain, &spi), 0U); }
    ~SpiChipOnBoard() override { norv_linux_spi_close(&spi); }

    void command(uint8_t code) { EXPECT_EQ(norv_linux_spi_dplx(&spi, &code, nullptr, 1), 0U); }
    uint8_t status() {
        uint8_t value = 0;
        EXPECT_EQ(norv_linux_spi_write_then_read(&spi, &read_status, 1, 0, &value, 1), 0U);
        return value;
    }

    norv_spi_t spi = {};
};

// Of every kind of transfer the chip sees the same bytes.
TEST_F(SpiChipOnBoard, TellsItsIdentity) {
    std::array<uint8_t, 3> identity = {};
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, &read_identity, 1, 0, identity.data(), 3), 0U);
    EXPECT_THAT(identity, Not(Each(0)));
    EXPECT_THAT(identity, Not(Each(0xFF)));

    const std::array<uint8_t, 4> sent = {read_identity};
    std::array<uint8_t, 4> received = {};
    EXPECT_EQ(norv_linux_spi_dplx(&spi, sent.data(), received.data(), 4), 0U);
    EXPECT_THAT(std::vector<uint8_t>(received.begin() + 1, received.end()), ElementsAreArray(identity));

    std::array<uint8_t, 3> again = {};
    const norv_spi_transfer_t transfers[] = {{&read_identity, nullptr, 1, 0}, {nullptr, again.data(), 3, 0}};
    EXPECT_EQ(norv_linux_spi_xfer(&spi, transfers, 2), 0U);
    EXPECT_EQ(again, identity);
}

TEST_F(SpiChipOnBoard, EachCallSelectsTheChipAnew) {
    for (int round = 0; round < 2; ++round) {
        command(enable_writes);
        EXPECT_EQ(status() & writes_enabled, writes_enabled);
        command(disable_writes);
        EXPECT_EQ(status() & writes_enabled, 0);
    }
}

// As many bytes as one transfer can have: the emulator's controllers lose what comes after the 128 of their
// buffer.
TEST_F(SpiChipOnBoard, WhatIsProgrammedIsReadBack) {
    constexpr size_t size = 124;
    command(enable_writes);
    const uint8_t erase[] = {erase_sector, 0, 0, 0};
    EXPECT_EQ(norv_linux_spi_dplx(&spi, erase, nullptr, 4), 0U);
    EXPECT_TRUE(comes_true([this] { return (status() & busy) == 0; }));

    std::vector<uint8_t> program = {program_page, 0, 0, 0};
    for (size_t index = 0; index < size; ++index) {
        program.push_back(static_cast<uint8_t>(index * 7));
    }
    command(enable_writes);
    EXPECT_EQ(norv_linux_spi_dplx(&spi, program.data(), nullptr, static_cast<uint32_t>(program.size())), 0U);
    EXPECT_TRUE(comes_true([this] { return (status() & busy) == 0; }));

    const uint8_t read[] = {read_bytes, 0, 0, 0};
    std::vector<uint8_t> found(size);
    EXPECT_EQ(norv_linux_spi_write_then_read(&spi, read, 4, 0, found.data(), size), 0U);
    EXPECT_EQ(found, std::vector<uint8_t>(program.begin() + 4, program.end()));
}

}  // namespace
