// SPDX-License-Identifier: MIT
// The flash front on both kinds of flash of a real kernel: NOR below the MTD layer, and an SD card.
#include "norv_linux_flash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "media.hpp"

namespace {

using norv::board::KiB;
using norv::board::medium;
using norv::board::MiB;
using norv::board::pattern;
using testing::ElementsAre;

// One kind of flash, and what is expected of it.
struct kind {
    const char* name;
    norv_flash_config_t config;
    const char* device;  // of the flash
    uint64_t size;
    char erased;
    std::vector<uint32_t> percentages;  // of half a MiB
};

const kind spi = {"Spi", {NORV_FLASH_KIND_SPI, nullptr}, "/dev/mtd0", 4 * MiB, '\xFF', {25, 50, 75, 100}};
const kind emmc = {"Emmc",           {NORV_FLASH_KIND_EMMC, "/dev/mmcblk0"}, "/dev/mmcblk0", 16 * MiB, '\0',
                   {25, 50, 75, 100}};

class FlashOnBoard : public testing::TestWithParam<kind> {
  protected:
    FlashOnBoard() : card(GetParam().device) {
        EXPECT_TRUE(card.is_there());
        EXPECT_EQ(norv_linux_flash_open(&GetParam().config, &flash), 0U);
        EXPECT_EQ(norv_linux_flash_get_info(&flash, &info), 0U);
    }
    ~FlashOnBoard() override { norv_linux_flash_close(&flash); }

    std::string erased(size_t count) const { return std::string(count, GetParam().erased); }
    // Erases the place, and writes bytes to it.
    void put(uint32_t address, const std::string& bytes) {
        uint32_t end = address + static_cast<uint32_t>(bytes.size());
        auto length = static_cast<uint32_t>(bytes.size());
        EXPECT_EQ(norv_linux_flash_continue_erase(&flash, address, length, &end, nullptr, nullptr, nullptr),
                  0U);
        EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, address, 0, bytes.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
                  0U);
    }

    medium card;
    norv_flash_t flash = {};
    norv_flash_info_t info = {};
};

void note_percentage(void* user, uint32_t, uint32_t, uint32_t, uint32_t percentage) {
    static_cast<std::vector<uint32_t>*>(user)->push_back(percentage);
}

TEST_P(FlashOnBoard, TheGeometryIsTheKernels) {
    EXPECT_EQ(info.size, GetParam().size);
    EXPECT_GT(info.erase_block_size, 0U);
    EXPECT_GT(info.write_unit_size, 0U);
    EXPECT_EQ(info.erase_block_size % info.write_unit_size, 0U);
}

TEST_P(FlashOnBoard, AnAreaIsErasedWrittenAndReadStepByStep) {
    const std::string around = pattern(MiB, 1);
    const std::string image = pattern(512 * KiB, 2);
    put(MiB, around);
    uint32_t end = MiB + 768 * KiB;
    uint32_t length = 512 * KiB;
    std::vector<uint32_t> percentages;
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, MiB + 256 * KiB, length, &end, nullptr, note_percentage,
                                              &percentages),
              0U);
    EXPECT_EQ(end, MiB + 768 * KiB);
    EXPECT_EQ(percentages, GetParam().percentages);
    EXPECT_TRUE(card.content(MiB, MiB) ==
                std::string(around).replace(256 * KiB, 512 * KiB, erased(512 * KiB)));
    percentages.clear();
    EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, MiB, 256 * KiB, image.data(), &length, &end,
                                                     nullptr, note_percentage, &percentages),
              0U);
    EXPECT_EQ(percentages, GetParam().percentages);
    EXPECT_TRUE(card.content(MiB, MiB) == std::string(around).replace(256 * KiB, 512 * KiB, image));
    std::string bytes(512 * KiB, '-');
    EXPECT_EQ(norv_linux_flash_continue_read(&flash, MiB + 256 * KiB, bytes.data(), &length, nullptr, nullptr,
                                             nullptr),
              0U);
    EXPECT_TRUE(bytes == image);
}

TEST_P(FlashOnBoard, BlocksAreErased) {
    const uint32_t block = info.erase_block_size;
    const std::string before = pattern(MiB, 3);
    put(MiB, before);
    EXPECT_EQ(norv_linux_flash_erase_one_block(&flash, MiB + block), 0U);
    uint32_t end = MiB + 4 * block;
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(&flash, MiB + 3 * block, &end), 0U);
    EXPECT_EQ(end, MiB + 4 * block);
    EXPECT_TRUE(
        card.content(MiB, MiB) ==
        std::string(before).replace(block, block, erased(block)).replace(3 * block, block, erased(block)));
}

TEST_P(FlashOnBoard, PiecesAreWrittenAndRead) {
    put(MiB, erased(128 * KiB));
    uint32_t length = 12;
    EXPECT_EQ(norv_linux_flash_write(&flash, MiB, "hello board!", &length), 0U);
    EXPECT_EQ(length, 12U);
    EXPECT_EQ(card.content(MiB, 16), "hello board!" + erased(4));
    std::string bytes(5, '-');
    length = 5;
    EXPECT_EQ(norv_linux_flash_read(&flash, MiB + 6, bytes.data(), &length), 0U);
    EXPECT_EQ(bytes, "board");
}

bool stop_after_two(void* user) {
    return ++*static_cast<uint32_t*>(user) > 2;
}

TEST_P(FlashOnBoard, ACancelledWriteContinuesAfterASkip) {
    const std::string image = pattern(512 * KiB, 4);
    put(MiB, erased(512 * KiB));
    uint32_t questions = 0;
    uint32_t length = 512 * KiB;
    uint32_t end = MiB + 512 * KiB;
    EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, MiB, 0, image.data(), &length, &end,
                                                     stop_after_two, nullptr, &questions),
              NORV_STATUS_TIMEOUT);
    EXPECT_TRUE(card.content(MiB, 512 * KiB) == image.substr(0, 256 * KiB) + erased(256 * KiB));
    length = 256 * KiB;
    EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, MiB, 256 * KiB, image.data() + 256 * KiB,
                                                     &length, &end, nullptr, nullptr, nullptr),
              0U);
    EXPECT_TRUE(card.content(MiB, 512 * KiB) == image);
}

INSTANTIATE_TEST_SUITE_P(, FlashOnBoard, testing::Values(spi, emmc),
                         [](const auto& one) { return one.param.name; });

TEST(FlashOfUnknownKindOnBoard, IsNotOpened) {
    const norv_flash_config_t config = {3, "/dev/mmcblk0"};
    norv_flash_t flash;
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_flash_open(&config, &flash), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_flash_get_info(&flash, &info), NORV_STATUS_BAD_STATE);
    norv_linux_flash_close(&flash);
}

}  // namespace
