// SPDX-License-Identifier: MIT
// The flash front: every call reaches the flash of the handle's kind, with all its arguments.
#include "norv_linux_flash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "flash/block_device.hpp"
#include "flash/mtd_device.hpp"
#include "flash/observer.hpp"
#include "support/failure_sweep.hpp"
#include "support/kernel_double.hpp"
#include "support/status.hpp"

namespace {

using norv::test::block_device;
using norv::test::errno_status;
using norv::test::kernel_double;
using norv::test::mtd_device;
using norv::test::observer;
using norv::test::report;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint32_t KiB = 1024;

constexpr norv_flash_config_t spi_config = {NORV_FLASH_KIND_SPI, nullptr};
constexpr norv_flash_config_t emmc_config = {NORV_FLASH_KIND_EMMC, "/dev/mmcblk0"};

std::string repeated(char byte, size_t count) {
    return std::string(count, byte);
}

// A board with both: a NOR partition of 64 KiB in blocks of 4 KiB and units of 256 bytes, and a card of 1 MiB
// in blocks of 512 bytes. Both are full of 'b'.
class Flash : public testing::Test {
  protected:
    Flash() {
        kernel.add_device("/dev/mtd0", nor);
        kernel.add_device("/dev/mmcblk0", card);
        std::fill(nor->bytes.begin(), nor->bytes.end(), uint8_t{'b'});
        card->fill(0, repeated('b', 1024 * KiB));
    }
    ~Flash() override { norv_linux_flash_close(&flash); }

    void open(const norv_flash_config_t& config) {
        ASSERT_EQ(norv_linux_flash_open(&config, &flash), 0U);
        kernel.forget_calls();
        nor->steps.clear();
    }
    std::string on_nor(uint32_t address, uint32_t count) const {
        return {nor->bytes.begin() + address, nor->bytes.begin() + address + count};
    }

    kernel_double kernel;
    std::shared_ptr<mtd_device> nor = std::make_shared<mtd_device>(norv::test::nor(64 * KiB, 4 * KiB, 256));
    std::shared_ptr<block_device> card = std::make_shared<block_device>(1024 * KiB);
    norv_flash_t flash = {};
    observer watching;
};

class SpiFront : public Flash {
  protected:
    SpiFront() { open(spi_config); }
};

class EmmcFront : public Flash {
  protected:
    EmmcFront() { open(emmc_config); }
};

// A handle of an unknown kind.
class UnknownFront : public Flash {
  protected:
    UnknownFront() {
        const norv_flash_config_t config = {3, "/dev/mmcblk0"};
        EXPECT_EQ(norv_linux_flash_open(&config, &flash), NORV_STATUS_INVALID_ARG);
    }
};

// ---- open and close

TEST_F(Flash, Kind1OpensThePartitionsAndNotThePath) {
    const norv_flash_config_t config = {1, "/dev/mmcblk0"};
    EXPECT_EQ(norv_linux_flash_open(&config, &flash), 0U);
    EXPECT_EQ(flash.kind, 1U);
    EXPECT_THAT(kernel.open_flags("/dev/mtd0"), SizeIs(1));
    EXPECT_THAT(kernel.open_flags("/dev/mmcblk0"), IsEmpty());
}

TEST_F(Flash, Kind2OpensTheBlockDeviceOfThePath) {
    const norv_flash_config_t config = {2, "/dev/mmcblk0"};
    EXPECT_EQ(norv_linux_flash_open(&config, &flash), 0U);
    EXPECT_EQ(flash.kind, 2U);
    EXPECT_THAT(kernel.open_flags("/dev/mmcblk0"), SizeIs(1));
    EXPECT_THAT(kernel.open_flags("/dev/mtd0"), IsEmpty());
}

TEST_F(Flash, Kind2WithoutAPathIsAnInvalidArgumentAndOpensNothing) {
    const norv_flash_config_t config = {2, nullptr};
    EXPECT_EQ(norv_linux_flash_open(&config, &flash), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(flash.kind, 2U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 155
TEST_F(Flash, AnyOtherKindIsAnInvalidArgumentButIsStored) {
    for (const uint32_t kind : {0U, 3U, 0x101U, 0xFFFFFFFFU}) {
        const norv_flash_config_t config = {kind, "/dev/mmcblk0"};
        EXPECT_EQ(norv_linux_flash_open(&config, &flash), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(flash.kind, kind);
        EXPECT_EQ(flash.backend.emmc, nullptr);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Flash, ABackendThatCannotBeOpenedReturnsItsStatusAndNoHandle) {
    flash.backend.emmc = reinterpret_cast<norv_emmc_flash_t*>(&kernel);
    const norv_flash_config_t missing = {2, "/dev/mmcblk9"};
    EXPECT_EQ(norv_linux_flash_open(&missing, &flash), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(flash.backend.emmc, nullptr);
    kernel.fail("ioctl", EIO);
    EXPECT_EQ(norv_linux_flash_open(&spi_config, &flash), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(flash.backend.spi, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Flash, ANullConfigurationOrHandleIsAnInvalidArgument) {
    flash.backend.emmc = reinterpret_cast<norv_emmc_flash_t*>(&kernel);
    EXPECT_EQ(norv_linux_flash_open(nullptr, &flash), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(flash.backend.emmc, nullptr);
    EXPECT_EQ(norv_linux_flash_open(&spi_config, nullptr), NORV_STATUS_INVALID_ARG);
    norv_linux_flash_close(nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Flash, ClosingReleasesTheBackendAndASecondCloseDoesNothing) {
    for (const auto& config : {spi_config, emmc_config}) {
        open(config);
        norv_linux_flash_close(&flash);
        EXPECT_EQ(flash.backend.emmc, nullptr);
        EXPECT_EQ(kernel.open_descriptors(), 0U);
        EXPECT_EQ(kernel.allocations(), 0U);
        kernel.forget_calls();
        norv_linux_flash_close(&flash);
        EXPECT_THAT(kernel.calls(), IsEmpty());
    }
}

TEST_F(UnknownFront, ClosingDoesNothing) {
    flash.backend.emmc = reinterpret_cast<norv_emmc_flash_t*>(&kernel);
    norv_linux_flash_close(&flash);
    EXPECT_EQ(flash.backend.emmc, reinterpret_cast<norv_emmc_flash_t*>(&kernel));
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- handles that no call can use

// Every operation on a handle returns this status.
void expect_of_every_operation(norv_flash_t* flash, uint32_t status) {
    norv_flash_info_t info = {};
    char byte = 0;
    uint32_t length = 1;
    uint32_t end = 4096;
    EXPECT_EQ(norv_linux_flash_get_info(flash, &info), status);
    EXPECT_EQ(norv_linux_flash_erase_one_block(flash, 0), status);
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(flash, 0, &end), status);
    EXPECT_EQ(norv_linux_flash_read(flash, 0, &byte, &length), status);
    EXPECT_EQ(norv_linux_flash_write(flash, 0, &byte, &length), status);
    EXPECT_EQ(norv_linux_flash_continue_erase(flash, 0, 1, &end, nullptr, nullptr, nullptr), status);
    EXPECT_EQ(norv_linux_flash_continue_read(flash, 0, &byte, &length, nullptr, nullptr, nullptr), status);
    EXPECT_EQ(
        norv_linux_flash_continue_write_verify(flash, 0, 0, &byte, &length, &end, nullptr, nullptr, nullptr),
        status);
    EXPECT_EQ(length, 1U);
    EXPECT_EQ(end, 4096U);
}

TEST_F(UnknownFront, EveryOperationReturnsBadState) {
    expect_of_every_operation(&flash, NORV_STATUS_BAD_STATE);
    flash.kind = 0;
    expect_of_every_operation(&flash, NORV_STATUS_BAD_STATE);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Flash, WithoutAnOpenFlashEveryOperationIsAnInvalidArgument) {
    expect_of_every_operation(nullptr, NORV_STATUS_INVALID_ARG);
    for (const uint32_t kind : {1U, 2U}) {
        flash.kind = kind;
        expect_of_every_operation(&flash, NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- the SPI flash

TEST_F(SpiFront, GetsTheGeometryOfThePartitions) {
    norv_flash_info_t info = {0x1122334455667788, 0, 0, 0};
    EXPECT_EQ(norv_linux_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.reserved, 0x1122334455667788U);
    EXPECT_EQ(info.size, 64 * KiB);
    EXPECT_EQ(info.erase_block_size, 4 * KiB);
    EXPECT_EQ(info.write_unit_size, 256U);
}

TEST_F(SpiFront, ErasesOneBlock) {
    EXPECT_EQ(norv_linux_flash_erase_one_block(&flash, 8 * KiB), 0U);
    EXPECT_EQ(on_nor(8 * KiB, 4 * KiB), repeated('\xFF', 4 * KiB));
    EXPECT_THAT(nor->steps, SizeIs(1));
}

TEST_F(SpiFront, ErasesTheFirstValidBlockAndReturnsItsEnd) {
    uint32_t end = 32 * KiB;
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(&flash, 8 * KiB, &end), 0U);
    EXPECT_EQ(end, 12 * KiB);
    EXPECT_EQ(on_nor(8 * KiB, 5 * KiB), repeated('\xFF', 4 * KiB) + repeated('b', KiB));
}

TEST_F(SpiFront, ReadsAndWrites) {
    nor->bytes[1000] = 'x';
    std::string bytes(3, '-');
    uint32_t length = 3;
    EXPECT_EQ(norv_linux_flash_read(&flash, 999, bytes.data(), &length), 0U);
    EXPECT_EQ(bytes, "bxb");
    length = 300;
    bytes.assign(256, 'B');
    length = 256;
    EXPECT_EQ(norv_linux_flash_write(&flash, 512, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 256U);
    EXPECT_EQ(on_nor(512, 256), repeated('B', 256));
}

TEST_F(SpiFront, AReadAcrossTheEndOfThePartitionReportsTheBytesRead) {
    std::string bytes(8, '-');
    uint32_t length = 8;
    EXPECT_EQ(norv_linux_flash_read(&flash, 64 * KiB - 4, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 4U);
}

TEST_F(SpiFront, PassesTheEndAndTheCallbacksToAnErase) {
    uint32_t end = 32 * KiB;
    watching.stop_at = 3;
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, 8 * KiB, 8 * KiB, &end, observer::cancel,
                                              observer::progress, &watching),
              0U);
    EXPECT_EQ(end, 16 * KiB);
    EXPECT_EQ(on_nor(8 * KiB, 9 * KiB), repeated('\xFF', 8 * KiB) + repeated('b', KiB));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 8 * KiB, 4 * KiB, 50}, report{0, 12 * KiB, 0, 100}));
    watching = {.stop_at = 0};
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, 8 * KiB, 8 * KiB, &end, observer::cancel,
                                              observer::progress, &watching),
              NORV_STATUS_TIMEOUT);
    EXPECT_EQ(watching.cancel_calls, 1U);
}

TEST_F(SpiFront, TheEndBoundsAnErase) {
    uint32_t end = 12 * KiB;
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, 8 * KiB, 8 * KiB, &end, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(end, 12 * KiB);
    EXPECT_EQ(on_nor(12 * KiB, 4 * KiB), repeated('b', 4 * KiB));
}

TEST_F(SpiFront, PassesTheCallbacksToARead) {
    std::string bytes(6 * KiB, '-');
    uint32_t length = 6 * KiB;
    EXPECT_EQ(norv_linux_flash_continue_read(&flash, 4 * KiB, bytes.data(), &length, observer::cancel,
                                             observer::progress, &watching),
              0U);
    EXPECT_EQ(bytes, repeated('b', 6 * KiB));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 4 * KiB, 2 * KiB, 66}, report{0, 8 * KiB, 0, 100}));
    EXPECT_EQ(watching.cancel_calls, 2U);
}

TEST_F(SpiFront, PassesTheSkipTheEndAndTheCallbacksToAWrite) {
    std::fill(nor->bytes.begin(), nor->bytes.end(), uint8_t{0xFF});
    const std::string data = repeated('d', 5 * KiB);
    uint32_t length = 5 * KiB;
    uint32_t end = 32 * KiB;
    EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, 4 * KiB, 2 * KiB, data.data(), &length, &end,
                                                     observer::cancel, observer::progress, &watching),
              0U);
    EXPECT_EQ(length, 5 * KiB);
    EXPECT_EQ(end, 12 * KiB);
    EXPECT_EQ(on_nor(4 * KiB, 8 * KiB), repeated('\xFF', 2 * KiB) + data + repeated('\xFF', KiB));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 6 * KiB, 3 * KiB, 40}, report{0, 8 * KiB, 0, 100}));
    EXPECT_GT(watching.cancel_calls, 2U);
}

TEST_F(SpiFront, StatusesPassThroughUnchanged) {
    uint32_t end = 4 * KiB;
    uint32_t length = 1;
    EXPECT_EQ(norv_linux_flash_erase_one_block(&flash, 64 * KiB), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(&flash, 8 * KiB, &end), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(norv_linux_flash_read(&flash, 0, nullptr, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, 1, 4 * KiB, &end, nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
}

// ---- the eMMC

TEST_F(EmmcFront, GetsTheGeometryOfTheDevice) {
    norv_flash_info_t info = {0x1122334455667788, 0, 0, 0};
    EXPECT_EQ(norv_linux_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.reserved, 0x1122334455667788U);
    EXPECT_EQ(info.size, 1024 * KiB);
    EXPECT_EQ(info.erase_block_size, 512U);
    EXPECT_EQ(info.write_unit_size, 512U);
}

TEST_F(EmmcFront, ErasesOneBlock) {
    EXPECT_EQ(norv_linux_flash_erase_one_block(&flash, 1024), 0U);
    EXPECT_EQ(card->content(512, 1536), repeated('b', 512) + repeated('\0', 512) + repeated('b', 512));
}

TEST_F(EmmcFront, ErasesUpToTheEnd) {
    uint32_t end = 4096;
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(&flash, 1024, &end), 0U);
    EXPECT_EQ(end, 4096U);
    EXPECT_EQ(card->content(512, 4096), repeated('b', 512) + repeated('\0', 3072) + repeated('b', 512));
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(&flash, 0, nullptr), 0U);
    EXPECT_EQ(card->content(0, 1024), repeated('\0', 512) + repeated('b', 512));
}

TEST_F(EmmcFront, ReadsAndWrites) {
    uint32_t length = 5;
    EXPECT_EQ(norv_linux_flash_write(&flash, 777, "hello", &length), 0U);
    EXPECT_EQ(card->content(776, 7), "bhellob");
    std::string bytes(7, '-');
    length = 7;
    EXPECT_EQ(norv_linux_flash_read(&flash, 776, bytes.data(), &length), 0U);
    EXPECT_EQ(bytes, "bhellob");
}

// quirk 156
TEST_F(EmmcFront, PassesAnEraseWithoutTheEnd) {
    uint32_t end = 1;
    watching.stop_at = 2;
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, 1024, 256 * KiB, &end, observer::cancel,
                                              observer::progress, &watching),
              0U);
    EXPECT_EQ(end, 1U);
    EXPECT_EQ(card->content(1023, 256 * KiB + 2), "b" + repeated('\0', 256 * KiB) + "b");
    EXPECT_THAT(watching.reports,
                ElementsAre(report{0, 1024, 128 * KiB, 50}, report{0, 1024 + 128 * KiB, 0, 100}));
    EXPECT_EQ(norv_linux_flash_continue_erase(&flash, 0, 512, nullptr, observer::cancel, observer::progress,
                                              &watching),
              NORV_STATUS_TIMEOUT);
    EXPECT_EQ(watching.cancel_calls, 3U);
}

TEST_F(EmmcFront, PassesTheCallbacksToARead) {
    std::string bytes(192 * KiB, '-');
    uint32_t length = 192 * KiB;
    EXPECT_EQ(norv_linux_flash_continue_read(&flash, 128 * KiB, bytes.data(), &length, observer::cancel,
                                             observer::progress, &watching),
              0U);
    EXPECT_EQ(bytes, repeated('b', 192 * KiB));
    EXPECT_THAT(watching.reports,
                ElementsAre(report{0, 128 * KiB, 64 * KiB, 66}, report{0, 256 * KiB, 0, 100}));
    EXPECT_EQ(watching.cancel_calls, 2U);
}

// quirk 156
TEST_F(EmmcFront, PassesAWriteWithoutTheEnd) {
    const std::string data = repeated('d', 128 * KiB);
    uint32_t length = 128 * KiB;
    uint32_t end = 1;
    EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, 64 * KiB, 64 * KiB, data.data(), &length, &end,
                                                     observer::cancel, observer::progress, &watching),
              0U);
    EXPECT_EQ(length, 128 * KiB);
    EXPECT_EQ(end, 1U);
    EXPECT_EQ(card->content(128 * KiB - 1, 128 * KiB + 2), "b" + data + "b");
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 128 * KiB, 0, 100}));
    EXPECT_EQ(watching.cancel_calls, 1U);
}

TEST_F(EmmcFront, StatusesPassThroughUnchanged) {
    uint32_t end = 1024;
    uint32_t length = 1;
    card->flipped = 0;
    EXPECT_EQ(norv_linux_flash_erase_one_block(&flash, 1), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_flash_erase_first_valid_block(&flash, 1024, &end), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_flash_write(&flash, 1024 * KiB, "x", &length), errno_status(ENOSPC));
    EXPECT_EQ(norv_linux_flash_continue_write_verify(&flash, 0, 0, "x", &length, nullptr, nullptr, nullptr,
                                                     nullptr),
              NORV_STATUS_VERIFY_FAILED);
}

// ---- failure sweep

class FlashSweep : public testing::TestWithParam<uint32_t> {};

TEST_P(FlashSweep, AFailedOpenLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.short_counts = false;
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(norv::test::nor(64 * KiB, 4 * KiB)));
            kernel.add_device("/dev/mmcblk0", std::make_shared<block_device>(64 * KiB));
        },
        [] {
            const norv_flash_config_t config = {GetParam(), "/dev/mmcblk0"};
            norv_flash_t flash;
            const uint32_t status = norv_linux_flash_open(&config, &flash);
            EXPECT_EQ(flash.backend.emmc == nullptr, status != 0);
            norv_linux_flash_close(&flash);
            return status;
        },
        options);
}

INSTANTIATE_TEST_SUITE_P(, FlashSweep, testing::Values(1U, 2U),
                         [](const auto& kind) { return kind.param == 1 ? "Spi" : "Emmc"; });

}  // namespace
