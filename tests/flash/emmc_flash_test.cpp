// SPDX-License-Identifier: MIT
// Block devices as flash: opening, single transfers, erasing blocks.
#include "norv_linux_emmc_flash.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "flash/emmc_card.hpp"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using norv::test::block_device;
using norv::test::control;
using norv::test::EmmcFlash;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::GiB;
using norv::test::kernel_double;
using norv::test::MiB;
using norv::test::no_standard_input;
using norv::test::ones;
using norv::test::pattern;
using norv::test::SmallCard;
using norv::test::strike;
using norv::test::transfer;
using norv::test::zeros;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// ---- open and close

TEST_F(EmmcFlash, OpeningQueriesTheBlockSizeAndTheSize) {
    insert(3 * GiB + 512, 4096);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), 0U);
    EXPECT_THAT(kernel.open_flags("/dev/mmcblk0"), ElementsAre(O_RDWR | O_CLOEXEC | O_SYNC));
    constexpr bool on_64_bits = sizeof(size_t) == 8;  // the requests count a size_t
    const auto requests = kernel.calls<control>("ioctl");
    ASSERT_THAT(requests, SizeIs(2));
    EXPECT_EQ(requests[0].request, on_64_bits ? 0x80081270U : 0x80041270U);
    EXPECT_EQ(requests[1].request, on_64_bits ? 0x80081272U : 0x80041272U);
}

TEST_F(EmmcFlash, TheGeometryIsTheSizeAndTheBlockSizeOfTheDevice) {
    open(5 * GiB + 512, 4096);
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_emmc_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.size, 5 * GiB + 512);
    EXPECT_EQ(info.erase_block_size, 4096U);
    EXPECT_EQ(info.write_unit_size, 4096U);
}

TEST_F(SmallCard, TheGeometryLeavesTheReservedFieldUnchanged) {
    norv_flash_info_t info = {0x1122334455667788, 0, 0, 0};
    EXPECT_EQ(norv_linux_emmc_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.reserved, 0x1122334455667788U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EmmcFlash, AMissingDeviceCannotBeOpened) {
    flash = reinterpret_cast<norv_emmc_flash_t*>(&kernel);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk9"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.allocations(), 0U);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST_F(EmmcFlash, AFileThatIsNotABlockDeviceCannotBeOpened) {
    kernel.add_file("/dev/file");
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/file"), errno_status(ENOTTY));
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(EmmcFlash, ADeviceWithoutASizeIsClosedAgain) {
    insert(1 * MiB);
    kernel.fail({.call = "ioctl", .request = BLKGETSIZE64, .error = EIO});
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

// quirk 144
TEST_F(EmmcFlash, AHandleThatCouldNotBeOpenedIsReleasedByTheCLibrary) {
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk9"), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.calls("free"), SizeIs(1));
}

// quirk 144
TEST_F(SmallCard, AHandleThatIsClosedIsReleasedByTheBaseLibrary) {
    norv_linux_emmc_flash_close(&flash);
    EXPECT_THAT(kernel.calls("free"), IsEmpty());
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(EmmcFlash, WithoutMemoryForTheHandleNothingIsOpened) {
    insert(1 * MiB);
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(flash, nullptr);
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(EmmcFlash, AFailedOpenWhoseErrnoMapsToZeroContinuesWithTheRequests) {
    kernel.map_errno(ENOENT, 0);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk9"), errno_status(EBADF));
    EXPECT_THAT(kernel.calls("ioctl"), SizeIs(1));
    EXPECT_EQ(flash, nullptr);
}

TEST_F(EmmcFlash, AFailedRequestWhoseErrnoMapsToZeroCountsAsAnswered) {
    insert(1 * MiB);
    kernel.map_errno(ENOTTY, 0);
    kernel.fail({.call = "ioctl", .request = BLKBSZGET, .error = ENOTTY});
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), 0U);
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_emmc_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.size, 1 * MiB);
    EXPECT_EQ(info.erase_block_size, 0U);
}

TEST_F(EmmcFlash, ThePathIsNotAFormat) {
    card = std::make_shared<block_device>(1 * MiB);
    kernel.add_device("/dev/a%%b", card);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/a%%b"), 0U);
}

TEST_F(EmmcFlash, APathIsTruncatedAfter255Characters) {
    card = std::make_shared<block_device>(1 * MiB);
    const std::string path = "/dev/" + std::string(250, 'x');
    kernel.add_device(path, card);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, (path + "yz").c_str()), 0U);
}

TEST_F(SmallCard, ClosingReleasesTheHandleAndASecondCloseDoesNothing) {
    norv_linux_emmc_flash_close(&flash);
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    kernel.forget_calls();
    norv_linux_emmc_flash_close(&flash);
    norv_linux_emmc_flash_close(nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(EmmcFlashWithoutStandardInput, ADeviceWithTheDescriptor0WorksAndIsNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/mmcblk0", std::make_shared<block_device>(1 * MiB));
    norv_emmc_flash_t* flash = nullptr;
    char byte = '-';
    uint32_t length = 1;
    ASSERT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0"), 0U);
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 0, "x", &length), 0U);
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 0, &byte, &length), 0U);
    EXPECT_EQ(byte, 'x');
    norv_linux_emmc_flash_close(&flash);
    EXPECT_EQ(flash, nullptr);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    EXPECT_EQ(kernel.allocations(), 0U);
    ASSERT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST(EmmcFlashWithoutStandardInput, AFailedOpenDoesNotCloseTheDescriptor0) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/null", std::make_shared<norv::test::device>());
    norv_emmc_flash_t* flash = nullptr;
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, "/dev/null"), errno_status(ENOTTY));
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.allocations(), 0U);
    ASSERT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST_F(EmmcFlash, WithoutAnOpenDeviceEveryCallIsAnInvalidArgument) {
    char byte = 0;
    norv_flash_info_t info = {};
    for (norv_emmc_flash_t** closed : {&flash, static_cast<norv_emmc_flash_t**>(nullptr)}) {
        uint32_t length = 1;
        uint32_t end = 512;
        EXPECT_EQ(norv_linux_emmc_flash_get_info(closed, &info), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_read(closed, 0, &byte, &length), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_write(closed, 0, &byte, &length), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(closed, 0), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(closed, 0, &end), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_continue_erase(closed, 0, 1, nullptr, nullptr, nullptr),
                  NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_continue_read(closed, 0, &byte, &length, nullptr, nullptr, nullptr),
                  NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(closed, 0, 0, &byte, &length, nullptr, nullptr,
                                                              nullptr),
                  NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(length, 1U);
        EXPECT_EQ(end, 512U);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EmmcFlash, ANullVariableOrPathIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_emmc_flash_open(nullptr, "/dev/mmcblk0"), NORV_STATUS_INVALID_ARG);
    flash = reinterpret_cast<norv_emmc_flash_t*>(&kernel);
    EXPECT_EQ(norv_linux_emmc_flash_open(&flash, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(flash, nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, ANullBufferLengthOrRecordIsAnInvalidArgument) {
    char byte = 0;
    uint32_t length = 1;
    EXPECT_EQ(norv_linux_emmc_flash_get_info(&flash, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 0, nullptr, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 0, &byte, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 0, nullptr, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 0, &byte, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_continue_read(&flash, 0, nullptr, &length, nullptr, nullptr, nullptr),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_continue_read(&flash, 0, &byte, nullptr, nullptr, nullptr, nullptr),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&flash, 0, 0, nullptr, &length, nullptr, nullptr,
                                                          nullptr),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(
        norv_linux_emmc_flash_continue_write_verify(&flash, 0, 0, &byte, nullptr, nullptr, nullptr, nullptr),
        NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(length, 1U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- plain read and write

TEST_F(SmallCard, AReadMayStartAtAnyAddress) {
    std::string bytes(1000, '-');
    uint32_t length = 1000;
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 12345, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 1000U);
    EXPECT_EQ(bytes, before.substr(12345, 1000));
    EXPECT_THAT(transfers("pread"), ElementsAre(transfer{12345, 1000}));
}

TEST_F(SmallCard, AWriteMayStartAtAnyAddress) {
    uint32_t length = 5;
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 12345, "hello", &length), 0U);
    EXPECT_EQ(length, 5U);
    EXPECT_EQ(card->content(), before_with(12345, "hello"));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{12345, 5}));
}

TEST_F(EmmcFlash, TheHighestAddressCanBeReached) {
    open(5 * GiB);
    char byte = 'x';
    uint32_t length = 1;
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, UINT32_MAX, &byte, &length), 0U);
    EXPECT_EQ(card->content(4 * GiB - 1, 1), "x");
    byte = '-';
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, UINT32_MAX, &byte, &length), 0U);
    EXPECT_EQ(byte, 'x');
}

TEST_F(SmallCard, ALengthOfZeroIsAnInvalidArgument) {
    char byte = 0;
    uint32_t length = 0;
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 0, &byte, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 0, &byte, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, AReadAcrossTheEndReportsTheBytesRead) {
    std::string bytes(100, '-');
    uint32_t length = 100;
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 1 * MiB - 40, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 40U);
    EXPECT_EQ(bytes, before.substr(1 * MiB - 40) + std::string(60, '-'));
}

TEST_F(SmallCard, AReadPastTheEndReadsZeroBytesAndSucceeds) {
    char byte = '-';
    uint32_t length = 1;
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 1 * MiB, &byte, &length), 0U);
    EXPECT_EQ(length, 0U);
}

TEST_F(SmallCard, AWriteAcrossTheEndReportsTheBytesWritten) {
    const std::string bytes(100, 'x');
    uint32_t length = 100;
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 1 * MiB - 40, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 40U);
}

// quirk 150
TEST_F(SmallCard, AWriteThatStoresNothingSucceedsWithALengthOfZero) {
    char byte = 0;
    uint32_t length = 1;
    card->most_per_write = 0;
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 0, &byte, &length), 0U);
    EXPECT_EQ(length, 0U);
    uint32_t end = 2048;
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 1024, &end), 0U);
    EXPECT_EQ(end, 1024U);
    EXPECT_EQ(card->content(), before);
}

TEST_F(SmallCard, AFailedTransferReturnsTheErrnoAndLeavesTheLengthUnchanged) {
    char byte = 0;
    uint32_t length = 1;
    kernel.fail("pread", EIO);
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 0, &byte, &length), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 1 * MiB, &byte, &length), errno_status(ENOSPC));
    EXPECT_EQ(length, 1U);
}

TEST_F(SmallCard, AFailedTransferWhoseErrnoMapsToZeroLeavesTheLength) {
    kernel.map_errno(EIO, 0);
    char byte = 0;
    uint32_t length = 1;
    kernel.fail("pread", EIO);
    EXPECT_EQ(norv_linux_emmc_flash_read(&flash, 0, &byte, &length), 0U);
    kernel.fail("pwrite", EIO);
    EXPECT_EQ(norv_linux_emmc_flash_write(&flash, 0, &byte, &length), 0U);
    EXPECT_EQ(length, 1U);
}

// ---- erasing blocks

TEST_F(SmallCard, ErasingOneBlockWritesOneBlockOfZeros) {
    EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(&flash, 1024), 0U);
    EXPECT_EQ(card->content(), before_with(1024, zeros(512)));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{1024, 512}));
    EXPECT_EQ(kernel.allocations(), 1U);  // the handle
}

TEST_F(SmallCard, ErasingTheFirstValidBlockWithoutAnEndErasesOneBlock) {
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 1024, nullptr), 0U);
    EXPECT_EQ(card->content(), before_with(1024, zeros(512)));
}

TEST_F(SmallCard, WithAnEndEverythingBeforeItIsErasedByOneWrite) {
    uint32_t end = 1024 + 600 * 512;
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 1024, &end), 0U);
    EXPECT_EQ(end, 1024U + 600 * 512);
    EXPECT_EQ(card->content(), before_with(1024, zeros(600 * 512)));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{1024, 600 * 512}));
}

TEST_F(SmallCard, TheEndBecomesTheEndOfWhatTheDeviceAccepted) {
    uint32_t end = 1 * MiB + 512;
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 1 * MiB - 512, &end), 0U);
    EXPECT_EQ(end, 1 * MiB);
}

// quirk 147
TEST_F(SmallCard, AnEndThatEqualsTheAddressIsAnInvalidArgument) {
    uint32_t end = 1024;
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 1024, &end), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(end, 1024U);
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

TEST_F(SmallCard, AMisalignedAddressIsOutOfRange) {
    uint32_t end = 2048;
    EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(&flash, 1), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 256, nullptr), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 511, &end), NORV_STATUS_RANGE);
    EXPECT_EQ(end, 2048U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, AMisalignedEndOrOneBelowTheAddressIsOutOfRange) {
    for (const uint32_t wrong : {1025U, 1500U, 512U, 0U}) {
        uint32_t end = wrong;
        EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 1024, &end), NORV_STATUS_RANGE);
        EXPECT_EQ(end, wrong);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 147
TEST_F(SmallCard, WithoutMemoryForTheZerosTheStatusIsInvalidArgument) {
    uint32_t end = 2048;
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 0, &end), NORV_STATUS_INVALID_ARG);
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_emmc_flash_continue_erase(&flash, 0, 512, nullptr, nullptr, nullptr),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(end, 2048U);
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

TEST_F(SmallCard, AFailedEraseLeavesTheEndUnchanged) {
    uint32_t end = 2048;
    kernel.fail("pwrite", EIO);
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 0, &end), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(end, 2048U);
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(EmmcFlash, TheLastBlockBelow4GiBCanBeErased) {
    open(4 * GiB);
    card->fill(4 * GiB - 512, ones(512));
    EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(&flash, 0xFFFFFE00), 0U);
    EXPECT_EQ(card->content(4 * GiB - 512, 512), zeros(512));
}

// ---- failure sweep

// Each operation on a card once, up to the first failure.
uint32_t use_card() {
    norv_emmc_flash_t* flash = nullptr;
    std::string image = pattern(131072 + 1000, 2);
    uint32_t length = 131072 + 1000;
    uint32_t end = 2048;
    uint32_t status = norv_linux_emmc_flash_open(&flash, "/dev/mmcblk0");
    if (status == 0) {
        status = norv_linux_emmc_flash_erase_first_valid_block(&flash, 0, &end);
    }
    if (status == 0) {
        status = norv_linux_emmc_flash_continue_erase(&flash, 0, length, nullptr, nullptr, nullptr);
    }
    if (status == 0) {
        status = norv_linux_emmc_flash_continue_write_verify(&flash, 0, 0, image.data(), &length, nullptr,
                                                             nullptr, nullptr);
    }
    if (status == 0) {
        status =
            norv_linux_emmc_flash_continue_read(&flash, 0, image.data(), &length, nullptr, nullptr, nullptr);
    }
    norv_linux_emmc_flash_close(&flash);
    EXPECT_EQ(flash, nullptr);
    return status;
}

TEST(EmmcFlashSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        // Without memory for the zeros, the write refuses the null buffer; the first allocation is the
        // handle's.
        if (struck.name == "norv_zalloc" && struck.nth != 1) {
            return NORV_STATUS_INVALID_ARG;
        }
        // After three writes of zeros, the fourth is verified: more bytes are read back than it wrote.
        if (struck.how == fault::kind::short_count && struck.name == "pwrite" && struck.nth == 4) {
            return NORV_STATUS_VERIFY_FAILED;
        }
        return norv::test::status_of_fault(struck);
    };
    const int struck = norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mmcblk0", std::make_shared<block_device>(1 * MiB));
        },
        use_card, options);
    EXPECT_EQ(struck, 3 * 17 + 9);  // 17 calls with 3 errno values each, 9 reads and writes
}

}  // namespace
