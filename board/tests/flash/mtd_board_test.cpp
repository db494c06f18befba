// SPDX-License-Identifier: MIT
// Raw flash of a real kernel: /dev/mtd0 is 8 MiB of NOR below the MTD layer, erased in blocks of 128 KiB;
// /dev/mtd1 to /dev/mtd3 are a simulated NAND chip in blocks of 16 KiB and pages of 512 bytes: block 3 of
// /dev/mtd1 is bad from the start, and its block 7 never erases.
#include "norv_linux_mtd.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using testing::Each;

constexpr uint32_t nand_block = 0x4000;
constexpr uint32_t nand_page = 512;
constexpr uint32_t nor_block = 0x20000;

class MtdOnBoard : public testing::Test {
  protected:
    MtdOnBoard() {
        EXPECT_EQ(norv_linux_mtd_open("/dev/mtd0", &nor), 0U);
        EXPECT_EQ(norv_linux_mtd_open("/dev/mtd1", &nand), 0U);
    }
    ~MtdOnBoard() override {
        norv_linux_mtd_close(&nor);
        norv_linux_mtd_close(&nand);
    }

    static std::vector<uint8_t> read(const norv_mtd_t& device, uint32_t offset, uint32_t length) {
        std::vector<uint8_t> bytes(length);
        uint32_t count = 0;
        EXPECT_EQ(norv_linux_mtd_read(&device, offset, length, bytes.data(), &count), 0U);
        EXPECT_EQ(count, length);
        return bytes;
    }
    static void write(const norv_mtd_t& device, uint32_t offset, const std::vector<uint8_t>& bytes) {
        uint32_t count = 0;
        const auto length = static_cast<uint32_t>(bytes.size());
        EXPECT_EQ(norv_linux_mtd_write(&device, offset, length, bytes.data(), &count), 0U);
        EXPECT_EQ(count, length);
    }

    norv_mtd_t nor = {};
    norv_mtd_t nand = {};
};

TEST_F(MtdOnBoard, OpeningGetsTheGeometry) {
    EXPECT_FALSE(norv_linux_mtd_type_is_nand(&nor));
    EXPECT_EQ(nor.info.size, 0x800000U);
    EXPECT_EQ(nor.info.erasesize, nor_block);
    EXPECT_EQ(nor.info.writesize, 1U);
    EXPECT_TRUE(norv_linux_mtd_type_is_nand(&nand));
    EXPECT_EQ(nand.info.size, 0x400000U);
    EXPECT_EQ(nand.info.erasesize, nand_block);
    EXPECT_EQ(nand.info.writesize, nand_page);
    EXPECT_EQ(nand.info.oobsize, 16U);
}

TEST_F(MtdOnBoard, AMissingPartitionCannotBeOpened) {
    norv_mtd_t none = {};
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd9", &none), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(none.descriptor, -1);
}

TEST_F(MtdOnBoard, ANodeThatIsNotAFlashCannotBeOpened) {
    norv_mtd_t none = {};
    EXPECT_EQ(norv_linux_mtd_open("/dev/null", &none), NORV_STATUS_ERRNO_BASE + ENOTTY);
    EXPECT_EQ(none.descriptor, -1);
}

TEST_F(MtdOnBoard, ClosingReleasesTheDescriptor) {
    const int32_t descriptor = nor.descriptor;
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    norv_linux_mtd_close(&nor);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(MtdOnBoard, WhatIsWrittenIsReadBackAndErased) {
    for (const norv_mtd_t* device : {&nor, &nand}) {
        const uint32_t block = device->info.erasesize;
        const std::vector<uint8_t> data(2 * nand_page, 0x5A);
        EXPECT_EQ(norv_linux_mtd_erase(device, block, block), 0U);
        write(*device, block + nand_page, data);
        EXPECT_EQ(read(*device, block + nand_page, 2 * nand_page), data);
        EXPECT_EQ(norv_linux_mtd_erase(device, block, block), 0U);
        EXPECT_THAT(read(*device, block, block), Each(0xFF));
    }
}

TEST_F(MtdOnBoard, WritingNorWithoutAnEraseOnlyClearsBitsAndSucceeds) {
    EXPECT_EQ(norv_linux_mtd_erase(&nor, 0, nor_block), 0U);
    write(nor, 0, {0xF0, 0x0F});
    write(nor, 0, {0x3C, 0xFF});
    EXPECT_EQ(read(nor, 0, 3), (std::vector<uint8_t>{0x30, 0x0F, 0xFF}));
    EXPECT_EQ(norv_linux_mtd_erase(&nor, 0, nor_block), 0U);
    EXPECT_THAT(read(nor, 0, nor_block), Each(0xFF));
}

TEST_F(MtdOnBoard, AReadPastTheEndIsTruncated) {
    std::vector<uint8_t> bytes(64);
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_mtd_read(&nor, 0x7FFFF0, 64, bytes.data(), &count), 0U);
    EXPECT_EQ(count, 16U);
    EXPECT_EQ(norv_linux_mtd_read(&nor, 0x800000, 64, bytes.data(), &count), NORV_STATUS_INVALID_ARG);
}

TEST_F(MtdOnBoard, NandRefusesPartsOfAPage) {
    const std::vector<uint8_t> bytes(nand_page);
    EXPECT_EQ(norv_linux_mtd_write(&nand, 0, 100, bytes.data(), nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_write(&nand, 100, nand_page, bytes.data(), nullptr), NORV_STATUS_INVALID_ARG);
}

TEST_F(MtdOnBoard, AnEraseThatIsMisalignedOrExtendsPastTheEndIsRefused) {
    EXPECT_EQ(norv_linux_mtd_erase(&nand, 100, nand_block), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_erase(&nand, 0x400000 - nand_block, nand_block + 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_erase(&nor, 0x800000 - nor_block, nor_block), 0U);
}

TEST_F(MtdOnBoard, ABadBlockIsReportedAndNotErased) {
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&nand, 2 * nand_block, &bad), 0U);
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(norv_linux_mtd_block_isbad(&nand, 3 * nand_block, &bad), 0U);
    EXPECT_EQ(bad, 1);
    EXPECT_EQ(norv_linux_mtd_erase(&nand, 3 * nand_block, nand_block), NORV_STATUS_DEVICE_ERROR);
}

TEST_F(MtdOnBoard, ABlockThatWasMarkedIsBad) {
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&nand, 9 * nand_block, &bad), 0U);
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(norv_linux_mtd_block_markbad(&nand, 9 * nand_block), 0U);
    EXPECT_EQ(norv_linux_mtd_block_isbad(&nand, 9 * nand_block, &bad), 0U);
    EXPECT_EQ(bad, 1);
}

TEST_F(MtdOnBoard, AWornOutBlockDoesNotErase) {
    EXPECT_EQ(norv_linux_mtd_erase(&nand, 7 * nand_block, nand_block), NORV_STATUS_DEVICE_ERROR);
}

// ---- data that the error correction cannot restore

// Page 32000 of the chip, the first of block 232 of its last partition, does not keep what is written to it.
class DamagedPageOnBoard : public testing::Test {
  protected:
    static constexpr uint32_t block = 232 * nand_block;

    DamagedPageOnBoard() { EXPECT_EQ(norv_linux_mtd_open("/dev/mtd3", &nand), 0U); }
    ~DamagedPageOnBoard() override { norv_linux_mtd_close(&nand); }

    uint32_t uncorrected() const {
        mtd_ecc_stats statistics = {};
        EXPECT_EQ(ioctl(nand.descriptor, ECCGETSTATS, &statistics), 0);
        return statistics.failed;
    }

    norv_mtd_t nand = {};
};

// quirk 129
TEST_F(DamagedPageOnBoard, IsReadWithoutAFailureAndCountedByTheKernel) {
    const std::vector<uint8_t> written(nand_block, 0x5A);
    std::vector<uint8_t> found(nand_block);
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_mtd_erase(&nand, block, nand_block), 0U);
    EXPECT_EQ(norv_linux_mtd_write(&nand, block, nand_block, written.data(), nullptr), 0U);
    const uint32_t before = uncorrected();
    EXPECT_EQ(norv_linux_mtd_read(&nand, block + nand_page, nand_block - nand_page, found.data(), &count),
              0U);
    EXPECT_EQ(uncorrected(), before);
    EXPECT_EQ(norv_linux_mtd_read(&nand, block, nand_block, found.data(), &count), 0U);
    EXPECT_EQ(count, nand_block);
    EXPECT_NE(found, written);
    EXPECT_GT(uncorrected(), before);
}

TEST_F(MtdOnBoard, FlashWithoutBadBlocksReportsGoodBlocksAndMarksNone) {
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&nor, 0, &bad), 0U);
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(norv_linux_mtd_block_markbad(&nor, 0), NORV_STATUS_NOT_AVAILABLE);
}

TEST_F(MtdOnBoard, OutOfBandBytesAreSeparateFromTheirPage) {
    // The first 8 bytes belong to the driver: the mark of a bad block, and the error correction.
    const std::string written = "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFFmetadata";
    std::string found(16, '-');
    EXPECT_EQ(norv_linux_mtd_erase(&nand, 2 * nand_block, nand_block), 0U);
    EXPECT_EQ(norv_linux_mtd_write_oob(&nand, 2 * nand_block + nand_page, 16, written.data()), 0U);
    EXPECT_EQ(norv_linux_mtd_read_oob(&nand, 2 * nand_block + nand_page, 16, found.data()), 0U);
    EXPECT_EQ(found, written);
    EXPECT_THAT(read(nand, 2 * nand_block, nand_block), Each(0xFF));
    EXPECT_EQ(norv_linux_mtd_read_oob(&nand, 0x400000, 16, found.data()), NORV_STATUS_INVALID_ARG);
}

TEST_F(MtdOnBoard, FlashWithoutOutOfBandBytesRefusesTheRequests) {
    char byte = 0;
    EXPECT_EQ(norv_linux_mtd_read_oob(&nor, 0, 1, &byte), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_write_oob(&nor, 0, 1, &byte), NORV_STATUS_NOT_AVAILABLE);
}

}  // namespace
