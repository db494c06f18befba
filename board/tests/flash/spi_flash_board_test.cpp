// SPDX-License-Identifier: MIT
// The concatenated flash on a real kernel: 8 MiB of NOR below the MTD layer in blocks of 128 KiB, and 16 MiB
// of simulated NAND in blocks of 16 KiB, divided into three partitions. There are bad blocks at the borders
// and in runs; one block never erases.
#include "norv_linux_spi_flash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using testing::Each;
using bytes = std::vector<uint8_t>;

constexpr uint32_t KiB = 1024;
constexpr uint32_t MiB = 1024 * KiB;
constexpr uint32_t nand_block = 16 * KiB;
constexpr uint32_t nor_block = 128 * KiB;

// Where the partitions start.
constexpr uint32_t nand_1 = 8 * MiB;
constexpr uint32_t nand_2 = 12 * MiB;
constexpr uint32_t nand_3 = 20 * MiB;
constexpr uint32_t flash_end = 24 * MiB;

// Blocks of the NAND chip, as set by the module's parameters.
constexpr uint32_t worn_out = 7;
constexpr uint32_t first_bad = 3;
constexpr uint32_t last_of_nand_1 = 255;  // bad, and so is the next one

bytes pattern(size_t size, uint32_t seed) {
    bytes made(size);
    std::mt19937 random(seed);
    std::generate(made.begin(), made.end(), [&] { return static_cast<uint8_t>(random()); });
    return made;
}

class SpiFlashOnBoard : public testing::Test {
  protected:
    SpiFlashOnBoard() { EXPECT_EQ(norv_linux_spi_flash_open(&flash), 0U); }
    ~SpiFlashOnBoard() override { norv_linux_spi_flash_close(&flash); }

    bytes read_good(uint32_t address, uint32_t length) {
        bytes found(length);
        EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, address, found.data(), &length, nullptr, nullptr,
                                                     nullptr),
                  0U);
        return found;
    }
    bool is_bad(uint32_t block) {
        uint8_t bad = 9;
        const norv_mtd_t& device = flash->regions[1].device;
        EXPECT_EQ(norv_linux_mtd_block_isbad(&device, block * nand_block, &bad), 0U);
        return bad == 1;
    }

    norv_spi_flash_t* flash = nullptr;
};

// ---- geometry, plain calls

TEST_F(SpiFlashOnBoard, ThePartitionsAreConcatenated) {
    ASSERT_EQ(flash->region_count, 4);
    EXPECT_EQ(flash->size, flash_end);
    EXPECT_EQ(flash->regions[1].base, nand_1);
    EXPECT_EQ(flash->regions[2].base, nand_2);
    EXPECT_EQ(flash->regions[3].base, nand_3);
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.size, flash_end);
    EXPECT_EQ(info.erase_block_size, nor_block);
    EXPECT_EQ(info.write_unit_size, 1U);
}

TEST_F(SpiFlashOnBoard, OneBlockIsErasedWrittenAndRead) {
    for (const uint32_t address : {nor_block, nand_2 + 8 * nand_block}) {
        const bytes data = pattern(1024, address);
        bytes found(1024);
        uint32_t length = 1024;
        EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, address), 0U);
        EXPECT_EQ(norv_linux_spi_flash_write(&flash, address, data.data(), &length), 0U);
        EXPECT_EQ(norv_linux_spi_flash_read(&flash, address, found.data(), &length), 0U);
        EXPECT_EQ(length, 1024U);
        EXPECT_EQ(found, data);
    }
}

TEST_F(SpiFlashOnBoard, APlainReadEndsAtTheBorder) {
    bytes found(64);
    uint32_t length = 64;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, nand_1 - 4, found.data(), &length), 0U);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, flash_end, found.data(), &length), NORV_STATUS_RANGE);
}

TEST_F(SpiFlashOnBoard, ABadBlockIsNotErasedButTheFirstGoodOneAfterItIs) {
    uint32_t end = nand_2;
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, nand_1 + first_bad * nand_block),
              NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, nand_1 + first_bad * nand_block, &end),
              0U);
    EXPECT_EQ(end, nand_1 + (first_bad + 3) * nand_block);
    end = nand_2 + 4 * nand_block;
    EXPECT_EQ(
        norv_linux_spi_flash_erase_first_valid_block(&flash, nand_1 + last_of_nand_1 * nand_block, &end), 0U);
    EXPECT_EQ(end, nand_2 + 2 * nand_block);
}

// ---- many blocks

TEST_F(SpiFlashOnBoard, AnAreaAcrossBadBlocksIsErasedWrittenAndRead) {
    const bytes data = pattern(700 * KiB, 1);
    const uint32_t start = nand_1 - 2 * nor_block;
    uint32_t end = nand_1 + MiB;
    uint32_t length = 700 * KiB;
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, start, MiB, &end, nullptr, nullptr, nullptr), 0U);
    EXPECT_GT(end, start + MiB);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, start, 0, data.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
              0U);
    EXPECT_EQ(length, 700 * KiB);
    EXPECT_EQ(read_good(start, 700 * KiB), data);
}

TEST_F(SpiFlashOnBoard, AWornOutBlockIsMarkedBadAndSkipped) {
    uint32_t end = nand_1 + (worn_out + 2) * nand_block;
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, nand_1 + worn_out * nand_block, nand_block, &end,
                                                  nullptr, nullptr, nullptr),
              0U);
    EXPECT_EQ(end, nand_1 + (worn_out + 2) * nand_block);
    EXPECT_TRUE(is_bad(worn_out));
}

TEST_F(SpiFlashOnBoard, AWriteToAFlashThatWasNotErasedFailsTheVerification) {
    for (const uint32_t address : {2 * nor_block, nand_3 + 8 * nand_block}) {
        SCOPED_TRACE(address);
        const bytes zeros(nand_block, 0);
        const bytes ones(nand_block, 0x5A);
        uint32_t end = address + nand_block;
        uint32_t length = nand_block;
        EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, address, 0, zeros.data(), &length, &end,
                                                             nullptr, nullptr, nullptr),
                  0U);
        EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, address, 0, ones.data(), &length, &end,
                                                             nullptr, nullptr, nullptr),
                  NORV_STATUS_VERIFY_FAILED);
        EXPECT_EQ(length, 0U);
    }
}

// Page 32000 of the NAND does not keep what is written to it.
// quirk 129
TEST_F(SpiFlashOnBoard, ADamagedPageFailsTheVerificationButNotARead) {
    const uint32_t address = nand_1 + 1000 * nand_block;
    const bytes data = pattern(3 * nand_block, 2);
    uint32_t end = address + 2 * nand_block;
    uint32_t length = 3 * nand_block;
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, address - nand_block, length, &end, nullptr,
                                                  nullptr, nullptr),
              0U);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, address - nand_block, 0, data.data(),
                                                         &length, &end, nullptr, nullptr, nullptr),
              NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, nand_block);
    bytes found(nand_block);
    length = nand_block;
    EXPECT_EQ(
        norv_linux_spi_flash_continue_read(&flash, address, found.data(), &length, nullptr, nullptr, nullptr),
        0U);
    EXPECT_EQ(length, nand_block);
    EXPECT_NE(found, bytes(data.begin() + nand_block, data.begin() + 2 * nand_block));
}

}  // namespace
