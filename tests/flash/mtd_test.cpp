// SPDX-License-Identifier: MIT
// Raw flash partitions.
#include "norv_linux_mtd.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "flash/mtd_device.hpp"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"
#include "support/status.hpp"

namespace {

using norv::test::errno_status;
using norv::test::fault;
using norv::test::flash_geometry;
using norv::test::flash_step;
using norv::test::kernel_double;
using norv::test::mtd_device;
using norv::test::nand;
using norv::test::no_standard_input;
using norv::test::nor;
using norv::test::strike;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class Mtd : public testing::Test {
  protected:
    ~Mtd() override { norv_linux_mtd_close(&partition); }

    // Opens a new partition as /dev/mtd0.
    void open(const flash_geometry& geometry) {
        flash = std::make_shared<mtd_device>(geometry);
        kernel.add_device("/dev/mtd0", flash);
        ASSERT_EQ(norv_linux_mtd_open("/dev/mtd0", &partition), 0U);
        kernel.forget_calls();
    }

    kernel_double kernel;
    std::shared_ptr<mtd_device> flash;
    norv_mtd_t partition = {};
};

// 64 KiB of NOR flash in blocks of 4 KiB.
class NorMtd : public Mtd {
  protected:
    NorMtd() { open(nor(0x10000, 0x1000)); }
};

// 64 KiB of NAND flash in blocks of 4 KiB and pages of 256 bytes.
class NandMtd : public Mtd {
  protected:
    NandMtd() { open(nand(0x10000, 0x1000)); }
};

// ---- open and close

TEST_F(Mtd, OpeningQueriesTheGeometry) {
    kernel.add_device("/dev/mtd3", std::make_shared<mtd_device>(nand(0x20000, 0x4000, 512)));
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd3", &partition), 0U);
    EXPECT_GT(partition.descriptor, 0);
    EXPECT_EQ(partition.info.type, MTD_NANDFLASH);
    EXPECT_EQ(partition.info.flags, uint32_t{MTD_WRITEABLE});
    EXPECT_EQ(partition.info.size, 0x20000U);
    EXPECT_EQ(partition.info.erasesize, 0x4000U);
    EXPECT_EQ(partition.info.writesize, 512U);
    EXPECT_EQ(partition.info.oobsize, 16U);
    EXPECT_THAT(kernel.open_flags("/dev/mtd3"), ElementsAre(O_RDWR | O_SYNC | O_CLOEXEC));
}

// quirk 125
TEST_F(Mtd, ThePathIsAFormat) {
    kernel.add_device("/dev/mtd%0", std::make_shared<mtd_device>(nor(0x1000, 0x1000)));
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd%%0", &partition), 0U);
}

TEST_F(Mtd, AMissingPartitionCannotBeOpened) {
    partition.descriptor = 77;
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd0", &partition), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(partition.descriptor, -1);
}

TEST_F(Mtd, ADeviceThatIsNotAFlashIsClosedAgain) {
    kernel.add_device("/dev/mtd0", std::make_shared<norv::test::device>());
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd0", &partition), errno_status(ENOTTY));
    EXPECT_EQ(partition.descriptor, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Mtd, AGeometryWhoseErrnoMapsToZeroOpensAPartitionOfSizeZero) {
    kernel.add_device("/dev/mtd0", std::make_shared<norv::test::device>());
    kernel.map_errno(ENOTTY, 0);
    partition.info.size = 0x1000;
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd0", &partition), 0U);
    EXPECT_GT(partition.descriptor, 0);
    EXPECT_EQ(partition.info.size, 0U);
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0, 0), NORV_STATUS_INVALID_ARG);
}

TEST_F(NorMtd, ClosingTwiceClosesOnce) {
    norv_linux_mtd_close(&partition);
    EXPECT_EQ(partition.descriptor, -1);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    kernel.forget_calls();
    norv_linux_mtd_close(&partition);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

// quirk 126
TEST_F(Mtd, ARecordOfZerosIsNotClosedAndStaysUnchanged) {
    norv_linux_mtd_close(&partition);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
    EXPECT_EQ(partition.descriptor, 0);
}

TEST(MtdWithoutStandardInput, APartitionWithTheDescriptor0WorksAndIsNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(nor(0x1000, 0x1000)));
    norv_mtd_t partition;
    char byte = 0;
    ASSERT_EQ(norv_linux_mtd_open("/dev/mtd0", &partition), 0U);
    ASSERT_EQ(partition.descriptor, 0);
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0, 0x1000), 0U);
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0, 1, &byte, nullptr), 0U);
    norv_linux_mtd_close(&partition);
    EXPECT_EQ(partition.descriptor, 0);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST(MtdWithoutStandardInput, AFailedOpenDoesNotCloseTheDescriptor0) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/mtd0", std::make_shared<norv::test::device>());
    norv_mtd_t partition;
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd0", &partition), errno_status(ENOTTY));
    EXPECT_EQ(partition.descriptor, 0);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST_F(Mtd, ANullPointerIsAnInvalidArgumentAndCloseAcceptsIt) {
    char byte = 0;
    norv_linux_mtd_close(nullptr);
    EXPECT_EQ(norv_linux_mtd_open(nullptr, &partition), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(partition.descriptor, -1);
    EXPECT_EQ(norv_linux_mtd_open("/dev/mtd0", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_FALSE(norv_linux_mtd_type_is_nand(nullptr));
    EXPECT_EQ(norv_linux_mtd_erase(nullptr, 0, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_block_isbad(nullptr, 0, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_block_markbad(nullptr, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_read_oob(nullptr, 0, 1, &byte), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_write_oob(nullptr, 0, 1, &byte), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_read(nullptr, 0, 1, &byte, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_write(nullptr, 0, 1, &byte, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Mtd, BothKindsOfNandAreNandAndNothingElseIs) {
    for (const int type : {MTD_ABSENT, MTD_RAM, MTD_ROM, MTD_NORFLASH, MTD_DATAFLASH, MTD_UBIVOLUME}) {
        partition.info.type = static_cast<uint8_t>(type);
        EXPECT_FALSE(norv_linux_mtd_type_is_nand(&partition)) << type;
    }
    for (const int type : {MTD_NANDFLASH, MTD_MLCNANDFLASH}) {
        partition.info.type = static_cast<uint8_t>(type);
        EXPECT_TRUE(norv_linux_mtd_type_is_nand(&partition)) << type;
    }
}

// ---- erase

TEST_F(NorMtd, ErasingSetsEveryBitOfTheBlock) {
    flash->bytes.assign(0x10000, 0);
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0x2000, 0x1000), 0U);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"erase", 0x2000, 0x1000}));
    EXPECT_THAT(flash->part(0x2000, 0x1000), Each(0xFF));
    EXPECT_THAT(flash->part(0x1000, 0x1000), Each(0));
    EXPECT_THAT(flash->part(0x3000, 0x1000), Each(0));
}

TEST_F(NorMtd, TheLastBlockIsErasedAndOneByteMoreIsRefused) {
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0xF000, 0x1000), 0U);
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0xF000, 0x1001), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"erase", 0xF000, 0x1000}));
}

TEST_F(NorMtd, AStartAtTheEndOfThePartitionIsRefused) {
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0x10000, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(NorMtd, AnEraseAcross4GiBIsRefused) {
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0x1000, 0xFFFFF000), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(NorMtd, ABlockThatDoesNotEraseReturnsTheErrno) {
    flash->erase_errors[2] = EIO;
    EXPECT_EQ(norv_linux_mtd_erase(&partition, 0x2000, 0x1000), errno_status(EIO));
}

// ---- bad blocks

TEST_F(NandMtd, ABadBlockSetsTheFlag) {
    flash->bad_blocks = {3};
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0x3000, &bad), 0U);
    EXPECT_EQ(bad, 1);
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0x4000, &bad), 0U);
    EXPECT_EQ(bad, 0);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"query", 0x3000}, flash_step{"query", 0x4000}));
}

TEST_F(NandMtd, ABadBlockQueryNeedsNoFlag) {
    flash->bad_blocks = {3};
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0x3000, nullptr), 0U);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"query", 0x3000}));
}

TEST_F(NandMtd, AFailedQueryReturnsTheErrnoAndLeavesTheFlagUnchanged) {
    flash->query_errors[3] = EIO;
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0x3000, &bad), errno_status(EIO));
    EXPECT_EQ(bad, 9);
}

TEST_F(NandMtd, AFailedQueryWhoseErrnoMapsToZeroReportsAGoodBlock) {
    flash->query_errors[3] = EIO;
    kernel.map_errno(EIO, 0);
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0x3000, &bad), 0U);
    EXPECT_EQ(bad, 0);
}

TEST_F(NorMtd, ABadBlockQueryOnNorReturnsTheErrno) {
    flash->query_errors[0] = EOPNOTSUPP;
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0, &bad), errno_status(EOPNOTSUPP));
    EXPECT_EQ(bad, 9);
}

TEST_F(NandMtd, MarkingABlockMakesItBad) {
    EXPECT_EQ(norv_linux_mtd_block_markbad(&partition, 0x5000), 0U);
    EXPECT_THAT(flash->bad_blocks, ElementsAre(5));
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"mark", 0x5000}));
}

TEST_F(NandMtd, AFailedMarkingReturnsTheErrno) {
    flash->marking_errors[5] = EROFS;
    EXPECT_EQ(norv_linux_mtd_block_markbad(&partition, 0x5000), errno_status(EROFS));
}

TEST_F(NandMtd, ABlockPastTheEndIsRefused) {
    uint8_t bad = 9;
    EXPECT_EQ(norv_linux_mtd_block_isbad(&partition, 0x10000, &bad), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_block_markbad(&partition, 0x10000), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(bad, 9);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- out-of-band bytes

TEST_F(NandMtd, OutOfBandBytesAreWrittenAndReadBack) {
    char found[8] = {};
    EXPECT_EQ(norv_linux_mtd_write_oob(&partition, 0x300, 8, "bytes 3"), 0U);
    EXPECT_EQ(norv_linux_mtd_read_oob(&partition, 0x300, 8, found), 0U);
    EXPECT_STREQ(found, "bytes 3");
    EXPECT_EQ(norv_linux_mtd_read_oob(&partition, 0x200, 8, found), 0U);
    EXPECT_THAT(found, Each('\xFF'));
    EXPECT_THAT(flash->bytes, Each(0xFF));
}

// quirk 130
TEST_F(NandMtd, TheRangeOfAnOutOfBandRequestIsLeftToTheKernel) {
    char byte = 0;
    EXPECT_EQ(norv_linux_mtd_read_oob(&partition, 0x10000, 1, &byte), errno_status(EINVAL));
    EXPECT_EQ(norv_linux_mtd_write_oob(&partition, 0x10000, 1, &byte), errno_status(EINVAL));
    EXPECT_EQ(kernel.calls("ioctl").size(), 2U);
}

// ---- read and write

TEST_F(NandMtd, WritingAndReadingStartAtTheOffset) {
    std::vector<uint8_t> page(256, 0x5A);
    std::vector<uint8_t> found(256);
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0x1100, 256, page.data(), &count), 0U);
    EXPECT_EQ(count, 256U);
    count = 0;
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0x1100, 256, found.data(), &count), 0U);
    EXPECT_EQ(count, 256U);
    EXPECT_EQ(found, page);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"write", 0x1100, 256}, flash_step{"read", 0x1100, 256}));
    EXPECT_THAT(flash->part(0x1000, 0x100), Each(0xFF));
}

TEST_F(NandMtd, TheCountMayBeNull) {
    std::vector<uint8_t> page(256, 0x5A);
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0, 256, page.data(), nullptr), 0U);
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0, 256, page.data(), nullptr), 0U);
}

TEST_F(NorMtd, ASingleByteIsCounted) {
    uint8_t byte = 0x5A;
    uint32_t count = 9;
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0xFFFF, 1, &byte, &count), 0U);
    EXPECT_EQ(count, 1U);
    count = 9;
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0xFFFF, 1, &byte, &count), 0U);
    EXPECT_EQ(count, 1U);
}

// quirk 128
TEST_F(NorMtd, TheKernelTruncatesATransferPastTheEnd) {
    std::vector<uint8_t> bytes(16, 0x11);
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0xFFFC, 16, bytes.data(), &count), 0U);
    EXPECT_EQ(count, 4U);
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0xFFFE, 16, bytes.data(), &count), 0U);
    EXPECT_EQ(count, 2U);
}

// quirk 128
TEST_F(NorMtd, AShortTransferIsNotContinued) {
    flash->most_bytes = 3;
    flash->most_written = 5;
    std::vector<uint8_t> bytes(16);
    uint32_t count = 0;
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0, 16, bytes.data(), &count), 0U);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0, 16, bytes.data(), &count), 0U);
    EXPECT_EQ(count, 5U);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"read", 0, 16}, flash_step{"write", 0, 16}));
}

TEST_F(NorMtd, AnOffsetAtTheEndOrNoBufferIsRefused) {
    char byte = 0;
    uint32_t count = 9;
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0x10000, 1, &byte, &count), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0x10000, 1, &byte, &count), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0, 1, nullptr, &count), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0, 1, nullptr, &count), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(count, 9U);
    EXPECT_THAT(flash->steps, IsEmpty());
}

TEST_F(NorMtd, AFailedTransferReturnsTheErrnoAndLeavesTheCountUnchanged) {
    for (const char* call : {"read", "write"}) {
        kernel.fail(call, EIO);
        char byte = 0;
        uint32_t count = 9;
        EXPECT_EQ(call[0] == 'r' ? norv_linux_mtd_read(&partition, 0, 1, &byte, &count)
                                 : norv_linux_mtd_write(&partition, 0, 1, &byte, &count),
                  errno_status(EIO));
        EXPECT_EQ(count, 9U);
    }
}

TEST_F(NorMtd, AFailedTransferWhoseErrnoMapsToZeroCountsZeroBytes) {
    kernel.map_errno(EIO, 0);
    kernel.fail("read", EIO);
    char byte = 0;
    uint32_t count = 9;
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0, 1, &byte, &count), 0U);
    EXPECT_EQ(count, 0U);
}

// quirk 127
TEST_F(NorMtd, AFailedSeekIsReportedOnlyAfterTheTransfer) {
    std::vector<uint8_t> bytes(4, 0x22);
    uint32_t count = 0;
    kernel.fail("lseek", ESPIPE);
    EXPECT_EQ(norv_linux_mtd_write(&partition, 0x100, 4, bytes.data(), &count), errno_status(ESPIPE));
    EXPECT_EQ(count, 4U);
    EXPECT_THAT(flash->steps, ElementsAre(flash_step{"write", 0, 4}));
    kernel.fail("lseek", ESPIPE);
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0x100, 2, bytes.data(), &count), errno_status(ESPIPE));
    EXPECT_EQ(count, 2U);
}

TEST_F(NorMtd, AFailedSeekWhoseErrnoMapsToZeroIsNotReported) {
    kernel.map_errno(ESPIPE, 0);
    kernel.fail("lseek", ESPIPE);
    char byte = 0;
    EXPECT_EQ(norv_linux_mtd_read(&partition, 0x100, 1, &byte, nullptr), 0U);
}

// ---- failure sweep

// Each operation on a partition once, up to the first failure.
uint32_t use_partition() {
    norv_mtd_t partition;
    char bytes[256] = {};
    uint32_t status = norv_linux_mtd_open("/dev/mtd0", &partition);
    if (status == 0) {
        status = norv_linux_mtd_block_isbad(&partition, 0, nullptr);
    }
    if (status == 0) {
        status = norv_linux_mtd_erase(&partition, 0, 0x1000);
    }
    if (status == 0) {
        status = norv_linux_mtd_write(&partition, 0, sizeof bytes, bytes, nullptr);
    }
    if (status == 0) {
        status = norv_linux_mtd_read(&partition, 0, sizeof bytes, bytes, nullptr);
    }
    if (status == 0) {
        status = norv_linux_mtd_write_oob(&partition, 0, 16, bytes);
    }
    if (status == 0) {
        status = norv_linux_mtd_read_oob(&partition, 0, 16, bytes);
    }
    if (status == 0) {
        status = norv_linux_mtd_block_markbad(&partition, 0);
    }
    norv_linux_mtd_close(&partition);
    EXPECT_EQ(partition.descriptor, -1);
    return status;
}

TEST(MtdSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        // NAND takes whole pages.
        return struck.how == fault::kind::short_count && struck.name == "write"
                   ? errno_status(EINVAL)
                   : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(nand(0x4000, 0x1000)));
        },
        use_partition, options);
}

}  // namespace
