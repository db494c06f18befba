// SPDX-License-Identifier: MIT
// NOR flash at a real SPI controller: each chip a partition of its own, and both concatenated.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../flash/media.hpp"
#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_linux_mtd.h"
#include "norv_linux_spi_flash.h"

namespace {

using norv::board::attribute;
using norv::board::pattern;

std::string geometry(int index, const std::string& name) {
    return attribute("/sys/class/mtd/mtd" + std::to_string(index) + "/" + name);
}

// ---- one chip

class NorOnBoard : public testing::TestWithParam<int> {
  protected:
    NorOnBoard() { EXPECT_EQ(norv_linux_mtd_open(node().c_str(), &chip), 0U); }
    ~NorOnBoard() override { norv_linux_mtd_close(&chip); }

    static std::string node() { return "/dev/mtd" + std::to_string(GetParam()); }

    std::string read(uint32_t offset, uint32_t length) const {
        std::string bytes(length, '-');
        uint32_t count = 0;
        EXPECT_EQ(norv_linux_mtd_read(&chip, offset, length, bytes.data(), &count), 0U);
        EXPECT_EQ(count, length);
        return bytes;
    }
    void write(uint32_t offset, const std::string& bytes) const {
        uint32_t count = 0;
        EXPECT_EQ(
            norv_linux_mtd_write(&chip, offset, static_cast<uint32_t>(bytes.size()), bytes.data(), &count),
            0U);
        EXPECT_EQ(count, bytes.size());
    }

    norv_mtd_t chip = {};
};

TEST_P(NorOnBoard, ItsGeometryIsTheKernels) {
    EXPECT_EQ(geometry(GetParam(), "type"), "nor");
    EXPECT_FALSE(norv_linux_mtd_type_is_nand(&chip));
    EXPECT_EQ(std::to_string(chip.info.size), geometry(GetParam(), "size"));
    EXPECT_EQ(std::to_string(chip.info.erasesize), geometry(GetParam(), "erasesize"));
    EXPECT_EQ(chip.info.writesize, 1U);
}

TEST_P(NorOnBoard, ABlockIsErasedWrittenAndReadAndItsNeighboursAreLeft) {
    const uint32_t block = chip.info.erasesize;
    const std::string image = pattern(block, 7);
    ASSERT_EQ(norv_linux_mtd_erase(&chip, 0, 3 * block), 0U);
    EXPECT_TRUE(read(0, 3 * block) == std::string(3 * block, '\xFF'));
    write(0, pattern(3 * block, 8));
    ASSERT_EQ(norv_linux_mtd_erase(&chip, block, block), 0U);
    write(block, image);
    EXPECT_TRUE(read(0, 3 * block) == pattern(3 * block, 8).replace(block, block, image));
}

TEST_P(NorOnBoard, ItsLastBytesAreWrittenAndRead) {
    const uint32_t block = chip.info.erasesize;
    ASSERT_EQ(norv_linux_mtd_erase(&chip, chip.info.size - block, block), 0U);
    write(chip.info.size - 5, "norv!");
    EXPECT_EQ(read(chip.info.size - 6, 6), "\xFFnorv!");
}

TEST_P(NorOnBoard, AWriteOnlyClearsBits) {
    ASSERT_EQ(norv_linux_mtd_erase(&chip, 0, chip.info.erasesize), 0U);
    write(100, "\xF0");
    write(100, "\x3C");
    EXPECT_EQ(read(100, 1), "\x30");
}

TEST_P(NorOnBoard, APartOfABlockIsNotErased) {
    EXPECT_EQ(norv_linux_mtd_erase(&chip, 0, chip.info.erasesize - 1), NORV_STATUS_INVALID_ARG);
}

TEST_P(NorOnBoard, HasNoBadBlocks) {
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&chip, 0, &bad), 0U);
    EXPECT_EQ(bad, 0);
}

INSTANTIATE_TEST_SUITE_P(, NorOnBoard, testing::Values(0, 1),
                         [](const auto& index) { return "Mtd" + std::to_string(index.param); });

// ---- both

class JoinedNorOnBoard : public testing::Test {
  protected:
    JoinedNorOnBoard() {
        EXPECT_EQ(norv_linux_spi_flash_open(&flash), 0U);
        border = static_cast<uint32_t>(std::stoul(geometry(0, "size")));
        EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), 0U);
    }
    ~JoinedNorOnBoard() override { norv_linux_spi_flash_close(&flash); }

    norv_spi_flash_t* flash = nullptr;
    norv_flash_info_t info = {};
    uint32_t border = 0;
};

TEST_F(JoinedNorOnBoard, IsAsLargeAsBothTogether) {
    EXPECT_EQ(flash->region_count, 2);
    EXPECT_EQ(flash->regions[1].base, border);
    EXPECT_EQ(info.size, border + std::stoul(geometry(1, "size")));
}

TEST_F(JoinedNorOnBoard, EachChipKeepsWhatIsItsOwn) {
    std::string found(5, '-');
    for (const uint32_t start : {0U, border}) {
        uint32_t length = 5;
        ASSERT_EQ(norv_linux_spi_flash_erase_one_block(&flash, start), 0U);
        ASSERT_EQ(norv_linux_spi_flash_write(&flash, start, start == 0 ? "first" : "other", &length), 0U);
    }
    for (const uint32_t start : {0U, border}) {
        uint32_t length = 5;
        EXPECT_EQ(norv_linux_spi_flash_read(&flash, start, found.data(), &length), 0U);
        EXPECT_EQ(found, start == 0 ? "first" : "other");
    }
}

TEST_F(JoinedNorOnBoard, AnAreaOverTheBorderIsErasedWrittenAndRead) {
    const uint32_t block = info.erase_block_size;
    const uint32_t start = border - 2 * block;
    const std::string image = pattern(3 * block + 1000, 9);
    auto length = static_cast<uint32_t>(image.size());
    uint32_t end = border + 2 * block;
    ASSERT_EQ(norv_linux_spi_flash_continue_erase(&flash, start, length, &end, nullptr, nullptr, nullptr),
              0U);
    ASSERT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, start, 0, image.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
              0U);
    std::string found(image.size(), '-');
    EXPECT_EQ(
        norv_linux_spi_flash_continue_read(&flash, start, found.data(), &length, nullptr, nullptr, nullptr),
        0U);
    EXPECT_TRUE(found == image);
    // Each chip has its part.
    norv_mtd_t second = {};
    std::string part(block + 1000, '-');
    uint32_t count = 0;
    ASSERT_EQ(norv_linux_mtd_open("/dev/mtd1", &second), 0U);
    EXPECT_EQ(norv_linux_mtd_read(&second, 0, block + 1000, part.data(), &count), 0U);
    norv_linux_mtd_close(&second);
    EXPECT_TRUE(part == image.substr(2 * block));
}

TEST_F(JoinedNorOnBoard, APlainReadEndsAtTheBorder) {
    char bytes[64];
    uint32_t length = sizeof bytes;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, border - 4, bytes, &length), 0U);
    EXPECT_EQ(length, 4U);
}

}  // namespace
