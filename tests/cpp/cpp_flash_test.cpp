// SPDX-License-Identifier: MIT
// The owners of the two kinds of flash, and of one of either kind: every call reaches the flash with all its
// arguments; the callables of operations of many steps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cpp/bytes.hpp"
#include "cpp/owner_sweep.hpp"
#include "flash/block_device.hpp"
#include "flash/mtd_device.hpp"
#include "norv/emmc_flash.hpp"
#include "norv/flash.hpp"
#include "norv/spi_flash.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::emmc_flash;
using norv::flash;
using norv::flash_erased;
using norv::flash_info;
using norv::flash_progress;
using norv::flash_written;
using norv::result;
using norv::spi_flash;
using norv::status;
using norv::transferred;
using norv::test::block_device;
using norv::test::buffer_of;
using norv::test::bytes_of;
using norv::test::flash_step;
using norv::test::has_huge_spans;
using norv::test::huge_span;
using norv::test::kernel_double;
using norv::test::mtd_device;
using norv::test::nand;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::string_literals;

constexpr uint32_t KiB = 1024;

std::string repeated(char byte, size_t count) {
    return std::string(count, byte);
}

// 64 KiB of NAND in blocks of 4 KiB and pages of 256 bytes, and a card of 1 MiB in blocks of 512 bytes. Both are
// full of 'b'.
class Board : public testing::Test {
  protected:
    Board() {
        kernel.add_device("/dev/mtd0", partition);
        kernel.add_device("/dev/mmcblk0", card);
        std::fill(partition->bytes.begin(), partition->bytes.end(), uint8_t{'b'});
        card->fill(0, repeated('b', 1024 * KiB));
    }

    std::string on_partition(uint32_t address, uint32_t count) const {
        return {partition->bytes.begin() + address, partition->bytes.begin() + address + count};
    }

    kernel_double kernel;
    std::shared_ptr<mtd_device> partition = std::make_shared<mtd_device>(nand(64 * KiB, 4 * KiB));
    std::shared_ptr<block_device> card = std::make_shared<block_device>(1024 * KiB);
};

// ---- the SPI flash

class SpiFlash : public Board {
  protected:
    SpiFlash() {
        kernel.forget_calls();
        partition->steps.clear();
    }

    spi_flash nand_flash = spi_flash::open().value();
};

TEST_F(Board, AnOpenSpiFlashIsClosedWithItsOwner) {
    {
        const result<spi_flash> opened = spi_flash::open();
        ASSERT_TRUE(opened);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
        ASSERT_THAT(opened->regions(), SizeIs(1));
        EXPECT_EQ(opened->regions()[0].device.info.size, 64 * KiB);
        EXPECT_NE(opened->get(), nullptr);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    kernel.fail("ioctl", ENOTTY);
    EXPECT_EQ(spi_flash::open().status(), norv_get_status_by_errno(ENOTTY));
}

TEST_F(SpiFlash, ThePlainFunctionsReachThePartition) {
    const flash_info info = nand_flash.get_info().value();
    EXPECT_EQ(info.size, 64 * KiB);
    EXPECT_EQ(info.erase_block_size, 4 * KiB);
    EXPECT_EQ(info.write_unit_size, 256U);
    EXPECT_EQ(nand_flash.erase_one_block(4 * KiB), norv::ok);
    partition->bad_blocks.insert(2);
    const flash_erased erased = nand_flash.erase_first_valid_block(8 * KiB, 64 * KiB);
    EXPECT_EQ(erased.status, norv::ok);
    EXPECT_EQ(erased.end, 16 * KiB);
    const transferred written = nand_flash.write(4 * KiB, bytes_of(repeated('x', 256)));
    EXPECT_EQ(written.status, norv::ok);
    EXPECT_EQ(written.count, 256U);
    std::string back(10, '?');
    const transferred read = nand_flash.read(4 * KiB + 251, buffer_of(back));
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 10U);
    EXPECT_EQ(back, "xxxxx\xFF\xFF\xFF\xFF\xFF");
}

TEST_F(SpiFlash, AFailedTransferHasCountedNothing) {
    std::string back(10, '?');
    EXPECT_EQ(nand_flash.read(64 * KiB, buffer_of(back)).count, 0U);
    kernel.fail("read", EIO);
    const transferred read = nand_flash.read(64 * KiB - 5, buffer_of(back));
    EXPECT_EQ(read.status, norv_get_status_by_errno(EIO));
    EXPECT_EQ(read.count, 0U);
}

TEST_F(SpiFlash, AnUpdateSkipsBadBlocks) {
    partition->bad_blocks.insert(1);
    const std::string image = repeated('x', 6000);
    const flash_erased erased = nand_flash.continue_erase(0, 6000, 64 * KiB);
    EXPECT_EQ(erased.status, norv::ok);
    EXPECT_EQ(erased.end, 12 * KiB);
    const flash_written written = nand_flash.continue_write_verify(0, 0, bytes_of(image), erased.end);
    EXPECT_EQ(written.status, norv::ok);
    EXPECT_EQ(written.count, 6000U);
    EXPECT_EQ(written.end, 12 * KiB);
    std::string back(6000, '?');
    const transferred read = nand_flash.continue_read(0, buffer_of(back));
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 6000U);
    EXPECT_EQ(back, image);
    EXPECT_EQ(on_partition(4 * KiB, 4 * KiB), repeated('b', 4 * KiB));
}

TEST_F(SpiFlash, TheSkipIsPassedOn) {
    ASSERT_EQ(nand_flash.continue_erase(0, 64 * KiB, 64 * KiB).status, norv::ok);
    EXPECT_EQ(nand_flash.continue_write_verify(0, 512, bytes_of(repeated('x', 256)), 64 * KiB).status,
              norv::ok);
    EXPECT_EQ(on_partition(256, 768), repeated('\xFF', 256) + repeated('x', 256) + repeated('\xFF', 256));
}

TEST_F(SpiFlash, EachStepIsReported) {
    std::vector<uint32_t> addresses;
    std::vector<uint32_t> percentages;
    const auto note = [&](const flash_progress& step) {
        EXPECT_EQ(step.status, norv::ok);
        EXPECT_EQ(step.remaining, 8 * KiB - (addresses.size() + 1) * 4 * KiB);
        addresses.push_back(step.address);
        percentages.push_back(step.percentage);
    };
    EXPECT_EQ(nand_flash.continue_erase(4 * KiB, 8 * KiB, 64 * KiB, note).status, norv::ok);
    EXPECT_THAT(addresses, ElementsAre(4 * KiB, 8 * KiB));
    EXPECT_THAT(percentages, ElementsAre(50U, 100U));
}

TEST_F(SpiFlash, AStoppedOperationHasCountedItsSteps) {
    int asked = 0;
    const auto second = [&] { return asked++ % 2 == 1; };
    const flash_erased erased = nand_flash.continue_erase(0, 64 * KiB, 64 * KiB, norv::no_progress, second);
    EXPECT_EQ(erased.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(erased.end, 64 * KiB);
    EXPECT_EQ(on_partition(4 * KiB, 1), "b");
    ASSERT_EQ(nand_flash.continue_erase(0, 64 * KiB, 64 * KiB).status, norv::ok);
    const flash_written written = nand_flash.continue_write_verify(0, 0, bytes_of(repeated('x', 9000)),
                                                                   64 * KiB, norv::no_progress, second);
    EXPECT_EQ(written.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(written.count, 4 * KiB);
    std::string back(9000, '?');
    const transferred read = nand_flash.continue_read(0, buffer_of(back), norv::no_progress, second);
    EXPECT_EQ(read.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(read.count, 4 * KiB);
}

// quirk 139
TEST_F(SpiFlash, AReadPastTheEndHasCountedWhatItRead) {
    std::string back(9000, '?');
    const transferred read = nand_flash.continue_read(60 * KiB, buffer_of(back));
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 4 * KiB);
}

TEST_F(SpiFlash, AFailedStepIsNotCounted) {
    std::string back(9000, '?');
    kernel.fail({.call = "read", .nth = 2, .error = EIO});
    const transferred read = nand_flash.continue_read(0, buffer_of(back));
    EXPECT_EQ(read.status, norv_get_status_by_errno(EIO));
    EXPECT_EQ(read.count, 4 * KiB);
}

// quirk 140
TEST_F(SpiFlash, AMisalignedWriteIsRefusedWithoutALeak) {
    const size_t before = kernel.allocations();
    const flash_written written = nand_flash.continue_write_verify(100, 0, bytes_of("data"), 64 * KiB);
    EXPECT_EQ(written.status, NORV_STATUS_RANGE);
    EXPECT_EQ(written.count, 0U);
    EXPECT_EQ(written.end, 64 * KiB);
    EXPECT_EQ(kernel.allocations(), before);
    EXPECT_THAT(partition->steps, IsEmpty());
}

TEST_F(Board, TheAlignmentIsThatOfTheRegion) {
    kernel.add_device("/dev/mtd1", std::make_shared<mtd_device>(nand(16 * KiB, 4 * KiB, 1024)));
    kernel.add_device("/dev/mtd2", std::make_shared<mtd_device>(nand(16 * KiB, 4 * KiB, 0x300)));
    spi_flash several = spi_flash::open().value();
    const auto write = [&](uint32_t address) {
        return several.continue_write_verify(address, 0, bytes_of("data"), 80 * KiB).status;
    };
    std::fill(partition->bytes.end() - 256, partition->bytes.end(), uint8_t{0xFF});
    EXPECT_EQ(write(64 * KiB + 256), NORV_STATUS_RANGE);
    EXPECT_EQ(write(64 * KiB - 256), norv::ok);
    EXPECT_EQ(write(64 * KiB + 1024), norv::ok);
    EXPECT_EQ(write(80 * KiB + 256), NORV_STATUS_RANGE);
    EXPECT_EQ(write(96 * KiB + 1), NORV_STATUS_EXHAUSTED);  // past the flash, as the C function reports it
}

TEST_F(SpiFlash, AFlashThatWasMovedFromIsAnInvalidArgument) {
    spi_flash other = std::move(nand_flash);
    std::string data(256, 'x');
    EXPECT_EQ(nand_flash.get_info().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(nand_flash.regions(), IsEmpty());
    EXPECT_EQ(nand_flash.read(0, buffer_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.write(0, bytes_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.erase_one_block(0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.erase_first_valid_block(0, 4 * KiB).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.continue_erase(0, 1, 4 * KiB).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.continue_read(0, buffer_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.continue_write_verify(0, 0, bytes_of(data), 4 * KiB).status,
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(nand_flash.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_TRUE(other.get_info());
}

TEST_F(SpiFlash, MovingIntoAnOpenFlashClosesIt) {
    nand_flash = spi_flash::open().value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

TEST_F(SpiFlash, MoreBytesThan32BitsCountAreAnInvalidArgument) {
    if (has_huge_spans) {
        EXPECT_EQ(nand_flash.continue_read(0, huge_span()).status, NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(nand_flash.continue_write_verify(0, 0, huge_span(), 64 * KiB).status,
                  NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- callables that throw

TEST_F(SpiFlash, AnExceptionOfTheProgressEndsTheOperation) {
    int reports = 0;
    const auto failing = [&](const flash_progress&) {
        ++reports;
        throw std::runtime_error("progress");
    };
    EXPECT_THROW(nand_flash.continue_erase(0, 64 * KiB, 64 * KiB, failing).status.ignore(),
                 std::runtime_error);
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(partition->steps_of("erase").size(), 1U);
    EXPECT_EQ(kernel.allocations(), 2U);
}

TEST_F(SpiFlash, AnExceptionAfterTheLastStepIsThrown) {
    const auto failing = [](const flash_progress& step) {
        if (step.remaining == 0) {
            throw std::runtime_error("last");
        }
    };
    EXPECT_THROW(nand_flash.continue_erase(0, 8 * KiB, 64 * KiB, failing).status.ignore(),
                 std::runtime_error);
    EXPECT_EQ(partition->steps_of("erase").size(), 2U);
}

TEST_F(SpiFlash, AnExceptionOfTheStopEndsTheOperation) {
    std::string back(9000, '?');
    int asked = 0;
    const auto failing = [&]() -> bool {
        if (++asked == 2) {
            throw std::runtime_error("stop");
        }
        return false;
    };
    EXPECT_THROW(nand_flash.continue_read(0, buffer_of(back), norv::no_progress, failing).status.ignore(),
                 std::runtime_error);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(partition->steps_of("read").size(), 1U);
}

// ---- an eMMC

class EmmcFlash : public Board {
  protected:
    EmmcFlash() { kernel.forget_calls(); }

    emmc_flash card_flash = emmc_flash::open("/dev/mmcblk0").value();
};

TEST_F(Board, AnOpenEmmcIsClosedWithItsOwner) {
    {
        const result<emmc_flash> opened = emmc_flash::open("/dev/mmcblk0");
        ASSERT_TRUE(opened);
        EXPECT_EQ(kernel.open_descriptors(), 1U);
        EXPECT_NE(opened->get(), nullptr);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(emmc_flash::open("/dev/mmcblk1").status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(Board, APathThatWouldBeTruncatedIsAnInvalidArgument) {
    const std::string longest = "/dev/" + std::string(250, 'x');
    kernel.add_device(longest, card);
    EXPECT_TRUE(emmc_flash::open(longest));
    EXPECT_TRUE(flash::open_emmc(longest));
    kernel.forget_calls();
    for (const std::string& path : {longest + 'x', "/dev/mmcblk0\0x"s}) {
        EXPECT_EQ(emmc_flash::open(path).status(), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(flash::open_emmc(path).status(), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EmmcFlash, ThePlainFunctionsReachTheCard) {
    const flash_info info = card_flash.get_info().value();
    EXPECT_EQ(info.size, 1024 * KiB);
    EXPECT_EQ(info.erase_block_size, 512U);
    EXPECT_EQ(info.write_unit_size, 512U);
    EXPECT_EQ(card_flash.erase_one_block(512), norv::ok);
    const flash_erased erased = card_flash.erase_first_valid_block(2048, 4096);
    EXPECT_EQ(erased.status, norv::ok);
    EXPECT_EQ(erased.end, 4096U);
    EXPECT_EQ(card_flash.write(100, bytes_of("data")).count, 4U);
    std::string back(6, '?');
    const transferred read = card_flash.read(99, buffer_of(back));
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 6U);
    EXPECT_EQ(back, "bdatab");
    EXPECT_EQ(card->content(511, 3), "b\0\0"s);
    EXPECT_EQ(card->content(2047, 2), "b\0"s);
    EXPECT_EQ(card->content(4095, 2), "\0b"s);
    kernel.fail("pread", EIO);
    EXPECT_EQ(card_flash.read(0, buffer_of(back)).count, 0U);
}

TEST_F(EmmcFlash, AnUpdateIsWrittenAndReadBack) {
    const std::string image = repeated('x', 256 * KiB);
    std::vector<uint32_t> remaining;
    const auto note = [&](const flash_progress& step) { remaining.push_back(step.remaining); };
    EXPECT_EQ(card_flash.continue_erase(0, 256 * KiB, note), norv::ok);
    EXPECT_THAT(remaining, ElementsAre(128 * KiB, 0U));
    EXPECT_EQ(card->content(256 * KiB - 1, 2), "\0b"s);
    const transferred written = card_flash.continue_write_verify(0, 512, bytes_of(image), note);
    EXPECT_EQ(written.status, norv::ok);
    EXPECT_EQ(written.count, 256 * KiB);
    EXPECT_EQ(card->content(511, 2), "\0x"s);
    std::string back(256 * KiB, '?');
    const transferred read = card_flash.continue_read(512, buffer_of(back), note);
    EXPECT_EQ(read.status, norv::ok);
    EXPECT_EQ(read.count, 256 * KiB);
    EXPECT_EQ(back, image);
}

TEST_F(EmmcFlash, AStoppedOperationHasCountedItsSteps) {
    int asked = 0;
    const auto second = [&] { return asked++ % 2 == 1; };
    std::string data(256 * KiB, 'x');
    EXPECT_EQ(card_flash.continue_erase(0, 256 * KiB, norv::no_progress, second), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(card->content(128 * KiB - 1, 2), "\0b"s);
    const transferred written =
        card_flash.continue_write_verify(0, 0, bytes_of(data), norv::no_progress, second);
    EXPECT_EQ(written.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(written.count, 128 * KiB);
    const transferred read = card_flash.continue_read(0, buffer_of(data), norv::no_progress, second);
    EXPECT_EQ(read.status, NORV_STATUS_TIMEOUT);
    EXPECT_EQ(read.count, 128 * KiB);
}

TEST_F(EmmcFlash, ACardThatWasMovedFromIsAnInvalidArgument) {
    emmc_flash other = std::move(card_flash);
    std::string data(512, 'x');
    EXPECT_EQ(card_flash.get_info().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(card_flash.read(0, buffer_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(card_flash.write(0, bytes_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(card_flash.erase_one_block(0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(card_flash.erase_first_valid_block(0, 512).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(card_flash.continue_erase(0, 512), NORV_STATUS_INVALID_ARG);
    const transferred read = card_flash.continue_read(0, buffer_of(data));
    EXPECT_EQ(read.status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(read.count, 0U);
    EXPECT_EQ(card_flash.continue_write_verify(0, 0, bytes_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(card_flash.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_TRUE(other.get_info());
}

TEST_F(EmmcFlash, MovingIntoAnOpenCardClosesIt) {
    card_flash = emmc_flash::open("/dev/mmcblk0").value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

// ---- either kind

result<flash> open_kind(flash::kind kind) {
    return kind == flash::kind::spi ? flash::open_spi() : flash::open_emmc("/dev/mmcblk0");
}

class EitherFlash : public Board, public testing::WithParamInterface<flash::kind> {
  protected:
    static result<flash> open_flash() { return open_kind(GetParam()); }
    std::string on_flash(uint32_t address, uint32_t count) const {
        return GetParam() == flash::kind::spi ? on_partition(address, count) : card->content(address, count);
    }
};

TEST_P(EitherFlash, AnOpenFlashIsClosedWithItsOwner) {
    {
        const result<flash> opened = open_flash();
        ASSERT_TRUE(opened);
        EXPECT_EQ(opened->get_kind(), GetParam());
        EXPECT_THAT(opened->regions(), SizeIs(GetParam() == flash::kind::spi ? 1 : 0));
        EXPECT_EQ(kernel.open_descriptors(), 1U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
    kernel.fail("ioctl", ENOTTY);
    EXPECT_EQ(open_flash().status(), norv_get_status_by_errno(ENOTTY));
}

TEST_P(EitherFlash, ThePlainFunctionsReachTheFlash) {
    flash opened = open_flash().value();
    const flash_info info = opened.get_info().value();
    EXPECT_EQ(info.size, GetParam() == flash::kind::spi ? 64 * KiB : 1024 * KiB);
    EXPECT_EQ(opened.erase_one_block(0), norv::ok);
    EXPECT_NE(on_flash(0, 1), "b");
    const flash_erased erased = opened.erase_first_valid_block(4 * KiB, 8 * KiB);
    EXPECT_EQ(erased.status, norv::ok);
    EXPECT_EQ(erased.end, 8 * KiB);
    EXPECT_NE(on_flash(8 * KiB - 1, 1), "b");
    EXPECT_EQ(on_flash(8 * KiB, 1), "b");
    partition->bytes[512] = 0xFF;
    EXPECT_EQ(opened.write(512, bytes_of(repeated('b', 256))).count, 256U);
    std::string back(5, '?');
    EXPECT_EQ(opened.read(512, buffer_of(back)).count, 5U);
    EXPECT_EQ(on_flash(512, 5), back);
}

TEST_P(EitherFlash, AnUpdateIsWrittenAndReadBack) {
    flash opened = open_flash().value();
    int reports = 0;
    const auto note = [&](const flash_progress&) { ++reports; };
    const auto never = [] { return false; };
    const std::string image = repeated('x', 16 * KiB);
    const flash_erased erased = opened.continue_erase(16 * KiB, 16 * KiB, 64 * KiB, note, never);
    EXPECT_EQ(erased.status, norv::ok);
    EXPECT_EQ(erased.end, GetParam() == flash::kind::spi ? 32 * KiB : 64 * KiB);
    const flash_written written =
        opened.continue_write_verify(16 * KiB, 0, bytes_of(image), erased.end, note, never);
    EXPECT_EQ(written.status, norv::ok);
    EXPECT_EQ(written.count, 16 * KiB);
    EXPECT_EQ(written.end, erased.end);
    std::string back(16 * KiB, '?');
    EXPECT_EQ(opened.continue_read(16 * KiB, buffer_of(back), note, never).count, 16 * KiB);
    EXPECT_EQ(back, image);
    EXPECT_EQ(reports, GetParam() == flash::kind::spi ? 12 : 3);
    EXPECT_EQ(on_flash(16 * KiB - 1, 2), "bx");
    EXPECT_EQ(on_flash(32 * KiB - 1, 2), "xb");
}

TEST_P(EitherFlash, AMisalignedWriteIsRefusedWithoutALeak) {
    flash opened = open_flash().value();
    const size_t before = kernel.allocations();
    kernel.forget_calls();
    EXPECT_EQ(opened.continue_write_verify(100, 0, bytes_of("data"), 64 * KiB).status, NORV_STATUS_RANGE);
    EXPECT_EQ(kernel.allocations(), before);
    EXPECT_THAT(kernel.calls("write"), IsEmpty());
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

TEST_P(EitherFlash, AFlashThatWasMovedFromIsAnInvalidArgument) {
    flash opened = open_flash().value();
    flash other = std::move(opened);
    std::string data(256, 'x');
    kernel.forget_calls();
    EXPECT_EQ(opened.get_kind(), flash::kind::none);
    EXPECT_THAT(opened.regions(), IsEmpty());
    EXPECT_EQ(opened.get_info().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.read(0, buffer_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.write(0, bytes_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.erase_one_block(0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.erase_first_valid_block(0, 4 * KiB).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.continue_erase(0, 1, 4 * KiB).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.continue_read(0, buffer_of(data)).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.continue_write_verify(0, 0, bytes_of(data), 4 * KiB).status, NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(opened.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_TRUE(other.get_info());
}

TEST_P(EitherFlash, MovingIntoAnOpenFlashClosesIt) {
    flash opened = flash::open_spi().value();
    opened = open_flash().value();
    EXPECT_EQ(opened.get_kind(), GetParam());
    EXPECT_EQ(kernel.open_descriptors(), 1U);
}

template <typename opening>
void sweep(opening open_flash) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(nand(8 * KiB, 4 * KiB)));
            kernel.add_device("/dev/mmcblk0", std::make_shared<block_device>(128 * KiB));
        },
        [&] {
            auto opened = open_flash();
            if (!opened) {
                return opened.status().number();
            }
            const std::string data = "data";
            const status erased = opened->erase_one_block(0);
            return erased.ok() ? opened->continue_write_verify(0, 0, bytes_of(data), 8 * KiB).status.number()
                               : erased.number();
        });
}

INSTANTIATE_TEST_SUITE_P(, EitherFlash, testing::Values(flash::kind::spi, flash::kind::emmc),
                         [](const auto& kind) { return kind.param == flash::kind::spi ? "Spi" : "Emmc"; });

TEST(FlashSweep, NothingLeaksThroughTheOwner) {
    sweep(flash::open_spi);
    sweep([] { return flash::open_emmc("/dev/mmcblk0"); });
}

TEST(SpiFlashSweep, NothingLeaksThroughTheOwner) {
    sweep(spi_flash::open);
}

TEST(EmmcFlashSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mmcblk0", std::make_shared<block_device>(128 * KiB));
        },
        [] {
            result<emmc_flash> opened = emmc_flash::open("/dev/mmcblk0");
            if (!opened) {
                return opened.status().number();
            }
            const status erased = opened->continue_erase(0, 16 * KiB);
            return erased.ok() ? opened->continue_write_verify(0, 0, bytes_of("data"s)).status.number()
                               : erased.number();
        });
}

}  // namespace
