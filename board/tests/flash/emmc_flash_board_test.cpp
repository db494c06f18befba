// SPDX-License-Identifier: MIT
// Block devices of a real kernel as flash: an SD card on an SDHCI controller, and loop devices.
#include "norv_linux_emmc_flash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "media.hpp"
#include "norv_base.h"

namespace {

using norv::board::GiB;
using norv::board::KiB;
using norv::board::loop_device;
using norv::board::medium;
using norv::board::MiB;
using norv::board::pattern;
using testing::ElementsAre;

constexpr const char* sd_card = "/dev/mmcblk0";
constexpr uint32_t chunk = 128 * KiB;

std::string zeros(size_t length) {
    return std::string(length, '\0');
}

std::string ones(size_t length) {
    return std::string(length, '\xFF');
}

// An open device, and its medium as seen past the page cache.
class emmc {
  public:
    explicit emmc(const std::string& path) : on(path) {
        EXPECT_TRUE(on.is_there()) << path;
        EXPECT_EQ(norv_linux_emmc_flash_open(&flash, path.c_str()), 0U) << path;
    }
    ~emmc() { norv_linux_emmc_flash_close(&flash); }
    emmc(const emmc&) = delete;
    emmc& operator=(const emmc&) = delete;

    medium on;
    norv_emmc_flash_t* flash = nullptr;
};

void note_address(void* user, uint32_t, uint32_t address, uint32_t, uint32_t) {
    static_cast<std::vector<uint32_t>*>(user)->push_back(address);
}

void note_percentage(void* user, uint32_t, uint32_t, uint32_t, uint32_t percentage) {
    static_cast<std::vector<uint32_t>*>(user)->push_back(percentage);
}

bool stop_after_two(void* user) {
    return ++*static_cast<uint32_t*>(user) > 2;
}

// ---- the SD card

TEST(EmmcFlashOnBoard, TheCardsGeometryIsTheKernels) {
    emmc card(sd_card);
    norv_flash_info_t info = {};
    int block_size = 0;
    const int descriptor = open(sd_card, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(ioctl(descriptor, BLKBSZGET, &block_size), 0);
    close(descriptor);
    EXPECT_EQ(norv_linux_emmc_flash_get_info(&card.flash, &info), 0U);
    EXPECT_EQ(info.size, 16 * MiB);
    EXPECT_EQ(info.size, card.on.size());
    EXPECT_EQ(info.erase_block_size, static_cast<uint32_t>(block_size));
    EXPECT_EQ(info.write_unit_size, static_cast<uint32_t>(block_size));
}

TEST(EmmcFlashOnBoard, BytesAreWrittenToAnyAddressOfTheCardAndReadBack) {
    emmc card(sd_card);
    card.on.fill(1 * MiB, pattern(8192, 1));
    uint32_t length = 11;
    EXPECT_EQ(norv_linux_emmc_flash_write(&card.flash, 1 * MiB + 4090, "hello board", &length), 0U);
    EXPECT_EQ(length, 11U);
    EXPECT_EQ(card.on.content(1 * MiB, 8192), pattern(8192, 1).replace(4090, 11, "hello board"));
    std::string bytes(11, '-');
    EXPECT_EQ(norv_linux_emmc_flash_read(&card.flash, 1 * MiB + 4090, bytes.data(), &length), 0U);
    EXPECT_EQ(bytes, "hello board");
}

TEST(EmmcFlashOnBoard, ABlockOfTheCardIsErased) {
    emmc card(sd_card);
    card.on.fill(2 * MiB, pattern(16384, 2));
    EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(&card.flash, 2 * MiB + 4096), 0U);
    EXPECT_EQ(card.on.content(2 * MiB, 16384), pattern(16384, 2).replace(4096, 4096, zeros(4096)));
    uint32_t end = 2 * MiB + 16384;
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&card.flash, 2 * MiB + 8192, &end), 0U);
    EXPECT_EQ(end, 2 * MiB + 16384);
    EXPECT_EQ(card.on.content(2 * MiB, 16384), pattern(16384, 2).replace(4096, 12288, zeros(12288)));
}

TEST(EmmcFlashOnBoard, AnImageIsErasedWrittenAndReadChunkByChunk) {
    emmc card(sd_card);
    const std::string around = pattern(2 * MiB, 3);
    const std::string image = pattern(1 * MiB, 4);
    card.on.fill(4 * MiB, around);
    std::vector<uint32_t> addresses;
    uint32_t length = 1 * MiB;
    EXPECT_EQ(norv_linux_emmc_flash_continue_erase(&card.flash, 4 * MiB + 4 * chunk, length, nullptr,
                                                   note_address, &addresses),
              0U);
    EXPECT_EQ(addresses.size(), 8U);
    EXPECT_EQ(addresses.back(), 4 * MiB + 11 * chunk);
    EXPECT_TRUE(card.on.content(4 * MiB, 2 * MiB) ==
                std::string(around).replace(4 * chunk, 1 * MiB, zeros(1 * MiB)));
    std::vector<uint32_t> percentages;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&card.flash, 4 * MiB, 4 * chunk, image.data(),
                                                          &length, nullptr, note_percentage, &percentages),
              0U);
    EXPECT_THAT(percentages, ElementsAre(12, 25, 37, 50, 62, 75, 87, 100));
    EXPECT_TRUE(card.on.content(4 * MiB, 2 * MiB) == std::string(around).replace(4 * chunk, 1 * MiB, image));
    std::string bytes(1 * MiB, '-');
    EXPECT_EQ(norv_linux_emmc_flash_continue_read(&card.flash, 4 * MiB + 4 * chunk, bytes.data(), &length,
                                                  nullptr, nullptr, nullptr),
              0U);
    EXPECT_TRUE(bytes == image);
}

TEST(EmmcFlashOnBoard, ACancelledWriteHasWrittenWhatItReported) {
    emmc card(sd_card);
    card.on.fill(8 * MiB, zeros(4 * chunk));
    const std::string image = pattern(4 * chunk, 5);
    uint32_t questions = 0;
    uint32_t length = 4 * chunk;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&card.flash, 8 * MiB, 0, image.data(), &length,
                                                          stop_after_two, nullptr, &questions),
              NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 4 * chunk);
    EXPECT_TRUE(card.on.content(8 * MiB, 4 * chunk) == image.substr(0, 2 * chunk) + zeros(2 * chunk));
}

TEST(EmmcFlashOnBoard, TheEndOfTheCardEndsAWrite) {
    emmc card(sd_card);
    const std::string image = pattern(2 * chunk, 6);
    uint32_t length = 2 * chunk;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&card.flash, 16 * MiB - chunk, 0, image.data(),
                                                          &length, nullptr, nullptr, nullptr),
              norv_get_status_by_errno(ENOSPC));
    EXPECT_EQ(length, chunk);
    std::string bytes(2 * chunk, '-');
    length = 2 * chunk;
    EXPECT_EQ(norv_linux_emmc_flash_continue_read(&card.flash, 16 * MiB - chunk, bytes.data(), &length,
                                                  nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
    EXPECT_EQ(length, chunk);
    EXPECT_TRUE(bytes.substr(0, chunk) == image.substr(0, chunk));
}

TEST(EmmcFlashOnBoard, AFileThatIsNotABlockDeviceCannotBeOpened) {
    norv_emmc_flash_t* flash = nullptr;
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/null"), norv_get_status_by_errno(ENOTTY));
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk7"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(flash, nullptr);
}

// The first descriptor with O_SYNC, -1 if there is none.
int synchronous_descriptor() {
    for (int descriptor = 3; descriptor < 256; ++descriptor) {
        const int flags = fcntl(descriptor, F_GETFL);
        if (flags >= 0 && (flags & O_SYNC) == O_SYNC) {
            return descriptor;
        }
    }
    return -1;
}

TEST(EmmcFlashOnBoard, TheDeviceIsOpenedSynchronousAndCloseOnExecAndIsClosed) {
    emmc card(sd_card);
    const int descriptor = synchronous_descriptor();
    ASSERT_GT(descriptor, 0);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_ACCMODE, O_RDWR);
    norv_linux_emmc_flash_close(&card.flash);
    EXPECT_EQ(synchronous_descriptor(), -1);
}

// ---- what a verification reads

// How much was read from the card itself so far, past the kernel's page cache.
uint64_t bytes_read_from_card() {
    uint64_t requests = 0;
    uint64_t merged = 0;
    uint64_t sectors = 0;
    std::ifstream("/sys/block/mmcblk0/stat") >> requests >> merged >> sectors;
    EXPECT_GT(sectors, 0U);
    return sectors * 512;
}

class VerificationOnBoard : public testing::Test {
  protected:
    VerificationOnBoard() {
        EXPECT_TRUE(medium(sd_card).is_there());
        EXPECT_EQ(norv_linux_emmc_flash_open(&flash, sd_card), 0U);
        uint32_t length = 1 * MiB;
        before = bytes_read_from_card();
        EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&flash, 9 * MiB, 0, image.data(), &length,
                                                              nullptr, nullptr, nullptr),
                  0U);
    }
    ~VerificationOnBoard() override { norv_linux_emmc_flash_close(&flash); }

    void expect_image() {
        std::string bytes(1 * MiB, '-');
        uint32_t length = 1 * MiB;
        EXPECT_EQ(norv_linux_emmc_flash_continue_read(&flash, 9 * MiB, bytes.data(), &length, nullptr,
                                                      nullptr, nullptr),
                  0U);
        EXPECT_TRUE(bytes == image);
    }

    norv_emmc_flash_t* flash = nullptr;
    const std::string image = pattern(1 * MiB, 10);
    uint64_t before = 0;
};

// quirk 151
TEST_F(VerificationOnBoard, ReadsThePageCacheAndNothingFromTheCard) {
    EXPECT_EQ(bytes_read_from_card(), before);
    expect_image();
    EXPECT_EQ(bytes_read_from_card(), before);
}

TEST_F(VerificationOnBoard, OfTheMediumIsAReadAfterReopeningTheDevice) {
    norv_linux_emmc_flash_close(&flash);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, sd_card), 0U);
    expect_image();
    EXPECT_GE(bytes_read_from_card(), before + 1 * MiB);
}

TEST_F(VerificationOnBoard, OfTheMediumIsAReadAfterDroppingTheCaches) {
    medium another_opener(sd_card);
    norv_linux_emmc_flash_close(&flash);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, sd_card), 0U);
    expect_image();
    EXPECT_EQ(bytes_read_from_card(), before);
    std::ofstream("/proc/sys/vm/drop_caches") << "1\n";
    expect_image();
    EXPECT_GE(bytes_read_from_card(), before + 1 * MiB);
}

// ---- loop devices

TEST(EmmcFlashOnBoard, TheDataIsPaddedToAChunk) {
    loop_device loop(1 * MiB);
    emmc disk(loop.path());
    const std::string before = pattern(1 * MiB, 7);
    disk.on.fill(0, before);
    uint32_t length = 11;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&disk.flash, 4096, 0, "hello board", &length,
                                                          nullptr, nullptr, nullptr),
              0U);
    EXPECT_TRUE(disk.on.content(0, 1 * MiB) ==
                std::string(before).replace(4096, 16384, "hello board" + ones(16373)));
}

TEST(EmmcFlashOnBoard, ADeviceOf5GiBIsReachedUpTo4GiBWithoutWrappingAround) {
    loop_device loop(5 * GiB);
    emmc disk(loop.path());
    const std::string start = pattern(chunk, 8);
    const std::string image = pattern(2 * chunk, 9);
    disk.on.fill(0, start);
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_emmc_flash_get_info(&disk.flash, &info), 0U);
    EXPECT_EQ(info.size, 5 * GiB);
    uint32_t length = 2 * chunk;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&disk.flash, 0xFFFE0000, 0, image.data(), &length,
                                                          nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
    EXPECT_EQ(length, chunk);
    EXPECT_TRUE(disk.on.content(0xFFFE0000, 2 * chunk) == image.substr(0, chunk) + zeros(chunk));
    EXPECT_EQ(norv_linux_emmc_flash_continue_erase(&disk.flash, 0xFFFE0000, chunk, nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
    EXPECT_TRUE(disk.on.content(0, chunk) == start);
}

}  // namespace
