// SPDX-License-Identifier: MIT
// The concatenated flash: open and close, geometry, plain reads and writes.
#include "norv_linux_spi_flash.h"

#include <fcntl.h>

#include "flash/concatenated_flash.hpp"
#include "flash/huge_partition.hpp"
#include "support/failure_sweep.hpp"
#include "support/standard_input.hpp"

namespace {

using norv::test::errno_status;
using norv::test::flash_step;
using norv::test::huge_partition;
using norv::test::kernel_double;
using norv::test::mtd_device;
using norv::test::nand;
using norv::test::no_standard_input;
using norv::test::nor;
using norv::test::pattern;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using SpiFlash = norv::test::concatenated_flash;

// ---- open and close

TEST_F(SpiFlash, PartitionsFollowEachOther) {
    open({nor(0x100000, 0x10000), nor(0xF00000, 0x10000)});
    EXPECT_EQ(flash->size, 0x1000000U);
    EXPECT_EQ(flash->region_count, 2);
    EXPECT_EQ(flash->regions[0].base, 0U);
    EXPECT_EQ(flash->regions[0].device.info.size, 0x100000U);
    EXPECT_EQ(flash->regions[1].base, 0x100000U);
    EXPECT_EQ(flash->regions[1].device.info.size, 0xF00000U);
}

TEST_F(SpiFlash, PartitionsAreOrderedByTheirNames) {
    for (const char* name : {"/dev/mtd9", "/dev/mtd2", "/dev/mtd5"}) {
        const auto size = static_cast<uint32_t>(name[8] - '0') * 0x1000;
        kernel.add_device(name, std::make_shared<mtd_device>(nor(size, 0x1000)));
    }
    open({});
    ASSERT_EQ(flash->region_count, 3);
    EXPECT_EQ(flash->regions[0].device.info.size, 0x2000U);
    EXPECT_EQ(flash->regions[1].device.info.size, 0x5000U);
    EXPECT_EQ(flash->regions[2].device.info.size, 0x9000U);
    EXPECT_EQ(flash->regions[2].base, 0x7000U);
}

TEST_F(SpiFlash, OnlyTheNodesMtd0ToMtd9AreOpened) {
    for (const char* name : {"mtd", "mtd10", "mtdblock0", "mtd0ro", "mtda", "xmtd1", "MTD1"}) {
        kernel.add_device(std::string("/dev/") + name, std::make_shared<mtd_device>(nor(0x1000, 0x1000)));
    }
    open({nor(0x2000, 0x1000)});
    EXPECT_EQ(flash->region_count, 1);
    EXPECT_EQ(flash->size, 0x2000U);
}

TEST_F(SpiFlash, EveryPartitionIsOpenedForSynchronousReadingAndWriting) {
    add(nor(0x1000, 0x1000));
    add(nor(0x1000, 0x1000));
    EXPECT_EQ(norv_linux_spi_flash_open(&flash), 0U);
    EXPECT_THAT(kernel.open_flags("/dev/mtd0"), ElementsAre(O_RDWR | O_SYNC | O_CLOEXEC));
    EXPECT_THAT(kernel.open_flags("/dev/mtd1"), ElementsAre(O_RDWR | O_SYNC | O_CLOEXEC));
    EXPECT_EQ(kernel.open_descriptors(), 2U);
}

// quirk 133
TEST_F(SpiFlash, WithoutPartitionsOnlyOpeningSucceeds) {
    open({});
    EXPECT_EQ(flash->region_count, 0);
    EXPECT_EQ(flash->size, 0U);
    norv_flash_info_t info = {};
    uint8_t byte = 0;
    uint32_t length = 1;
    uint32_t end = 0x1000;
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, &byte, &length), NORV_STATUS_EMPTY);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, &byte, &length), NORV_STATUS_EMPTY);
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, 0), NORV_STATUS_EMPTY);
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, 0, &end), NORV_STATUS_EMPTY);
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, 0, 0, &end, nullptr, nullptr, nullptr),
              NORV_STATUS_EMPTY);
    length = 0;
    EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, 0, &byte, &length, nullptr, nullptr, nullptr),
              NORV_STATUS_EMPTY);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0, 0, &byte, &length, &end, nullptr, nullptr,
                                                         nullptr),
              NORV_STATUS_EMPTY);
}

// quirk 132
TEST_F(SpiFlash, ANegativeNumberOfRegionsIsOutOfRange) {
    open({nor(0x1000, 0x1000)});
    flash->region_count = -1;
    norv_flash_info_t info = {};
    uint8_t byte = 0;
    uint32_t length = 1;
    uint32_t end = 0x1000;
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, &byte, &length), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, &byte, &length), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, 0), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, 0, &end), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, 0, 1, &end, nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, 0, &byte, &length, nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0, 0, &byte, &length, &end, nullptr, nullptr,
                                                         nullptr),
              NORV_STATUS_RANGE);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    flash->region_count = 1;
}

TEST_F(SpiFlash, ADirectoryThatCannotBeReadReturnsTheErrnoAndANullHandle) {
    flash = reinterpret_cast<norv_spi_flash_t*>(16);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(norv_linux_spi_flash_open(&flash), errno_status(EACCES));
    EXPECT_EQ(flash, nullptr);
}

TEST_F(SpiFlash, ADirectoryWhoseErrnoMapsToZeroHasNoPartitions) {
    add(nor(0x1000, 0x1000));
    kernel.fail("scandir", EACCES);
    kernel.map_errno(EACCES, 0);
    EXPECT_EQ(norv_linux_spi_flash_open(&flash), 0U);
    EXPECT_EQ(flash->region_count, 0);
}

TEST_F(SpiFlash, WithoutMemoryForTheRecordOrItsRegionsNothingIsOpened) {
    add(nor(0x1000, 0x1000));
    for (const int number : {1, 2}) {
        flash = reinterpret_cast<norv_spi_flash_t*>(16);
        kernel.fail({.call = "calloc", .nth = number, .error = ENOMEM});
        EXPECT_EQ(norv_linux_spi_flash_open(&flash), NORV_STATUS_NO_MEMORY);
        EXPECT_TRUE(kernel.struck());
        EXPECT_EQ(flash, nullptr);
        EXPECT_EQ(kernel.allocations(), 0U);
    }
    EXPECT_THAT(kernel.calls("open"), IsEmpty());
}

TEST_F(SpiFlash, APartitionThatCannotBeOpenedClosesTheEarlierOnes) {
    for (int number = 0; number < 4; ++number) {
        add(nor(0x1000, 0x1000));
    }
    kernel.fail({.call = "open", .path = "/dev/mtd2", .error = EACCES});
    EXPECT_EQ(norv_linux_spi_flash_open(&flash), errno_status(EACCES));
    EXPECT_EQ(flash, nullptr);
    const auto closed = kernel.calls("close");
    ASSERT_EQ(closed.size(), 2U);
    EXPECT_EQ(closed[0].path, "/dev/mtd0");
    EXPECT_EQ(closed[1].path, "/dev/mtd1");
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(SpiFlash, APartitionThatIsNotAFlashMakesOpeningFailWithItsStatus) {
    add(nor(0x1000, 0x1000));
    kernel.add_device("/dev/mtd1", std::make_shared<norv::test::device>());
    EXPECT_EQ(norv_linux_spi_flash_open(&flash), errno_status(ENOTTY));
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(SpiFlash, ClosingClosesEveryPartitionAndClearsTheVariable) {
    open({nor(0x1000, 0x1000), nor(0x1000, 0x1000)});
    norv_linux_spi_flash_close(&flash);
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
    kernel.forget_calls();
    norv_linux_spi_flash_close(&flash);
    norv_linux_spi_flash_close(nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(SpiFlashWithoutStandardInput, APartitionWithTheDescriptor0WorksAndIsNotClosed) {
    const no_standard_input guard;
    kernel_double kernel;
    kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(nor(0x1000, 0x1000)));
    norv_spi_flash_t* flash = nullptr;
    uint8_t byte = 0;
    uint32_t length = 1;
    ASSERT_EQ(norv_linux_spi_flash_open(&flash), 0U);
    ASSERT_EQ(flash->regions[0].device.descriptor, 0);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, &byte, &length), 0U);
    EXPECT_EQ(byte, 0xFF);
    norv_linux_spi_flash_close(&flash);
    EXPECT_EQ(flash, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    close(0);
}

TEST_F(SpiFlash, ANullOrClosedFlashIsAnInvalidArgument) {
    norv_flash_info_t info = {};
    uint8_t byte = 0;
    uint32_t length = 1;
    uint32_t end = 0x1000;
    EXPECT_EQ(norv_linux_spi_flash_open(nullptr), NORV_STATUS_INVALID_ARG);
    for (norv_spi_flash_t** none : {static_cast<norv_spi_flash_t**>(nullptr), &flash}) {
        EXPECT_EQ(norv_linux_spi_flash_get_info(none, &info), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_spi_flash_read(none, 0, &byte, &length), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_spi_flash_write(none, 0, &byte, &length), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_spi_flash_erase_one_block(none, 0), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(none, 0, &end), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// Without a kernel double: the process dies, and would leave its scratch tree.
// quirk 131
TEST(SpiFlashDeathTest, TheContinueFunctionsDoNotCheckForANullFlash) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    norv_spi_flash_t* flash = nullptr;
    uint8_t byte = 0;
    uint32_t length = 1;
    uint32_t end = 0x1000;
    EXPECT_DEATH(norv_linux_spi_flash_continue_erase(&flash, 0, 1, &end, nullptr, nullptr, nullptr), "");
    EXPECT_DEATH(norv_linux_spi_flash_continue_read(&flash, 0, &byte, &length, nullptr, nullptr, nullptr),
                 "");
    EXPECT_DEATH(norv_linux_spi_flash_continue_write_verify(&flash, 0, 0, &byte, &length, &end, nullptr,
                                                            nullptr, nullptr),
                 "");
}

// ---- geometry

// quirk 134
TEST_F(SpiFlash, TheGeometryIsTheWholeSizeAndTheBlocksOfTheFirstRegion) {
    open({nand(0x4000, 0x1000, 512), nor(0x8000, 0x2000)});
    norv_flash_info_t info = {77, 0, 0, 0};
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.reserved, 77U);
    EXPECT_EQ(info.size, 0xC000U);
    EXPECT_EQ(info.erase_block_size, 0x1000U);
    EXPECT_EQ(info.write_unit_size, 512U);
}

TEST_F(SpiFlash, ANullGeometryIsAnInvalidArgument) {
    open({nor(0x1000, 0x1000)});
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- plain read and write

TEST_F(SpiFlash, ReadingAndWritingReachThePartitionOfTheAddress) {
    open({nor(0x1000, 0x1000), nor(0x1000, 0x1000)});
    const auto data = pattern(16);
    std::vector<uint8_t> found(16);
    uint32_t length = 16;
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0x1100, data.data(), &length), 0U);
    EXPECT_EQ(length, 16U);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0x1100, found.data(), &length), 0U);
    EXPECT_EQ(length, 16U);
    EXPECT_EQ(found, data);
    EXPECT_THAT(partition(0).steps, IsEmpty());
    EXPECT_THAT(partition(1).steps,
                ElementsAre(flash_step{"write", 0x100, 16}, flash_step{"read", 0x100, 16}));
}

TEST_F(SpiFlash, AReadThatStarts4BytesBeforeTheEndOfAPartitionReads4) {
    open({nor(0x1000, 0x1000), nor(0x1000, 0x1000)});
    std::vector<uint8_t> found(8, 0x77);
    uint32_t length = 8;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0xFFC, found.data(), &length), 0U);
    EXPECT_EQ(length, 4U);
    EXPECT_THAT(found, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 0x77, 0x77, 0x77, 0x77));
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"read", 0xFFC, 4}));
    EXPECT_THAT(partition(1).steps, IsEmpty());
}

TEST_F(SpiFlash, AWriteIsTruncatedAtTheEndOfItsPartitionToo) {
    open({nor(0x1000, 0x1000), nor(0x1000, 0x1000)});
    uint32_t length = 8;
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0xFFC, "12345678", &length), 0U);
    EXPECT_EQ(length, 4U);
    EXPECT_THAT(partition(0).part(0xFFC, 4), ElementsAre('1', '2', '3', '4'));
    EXPECT_THAT(partition(1).bytes, Each(0xFF));
}

TEST_F(SpiFlash, AnAddressAtTheEndOfTheFlashIsInNoRegion) {
    open({nor(0x100000, 0x10000), nor(0xF00000, 0x10000)});
    uint8_t byte = 0;
    uint32_t length = 1;
    uint32_t end = 0x1000000;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0x1000000, &byte, &length), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0x1000000, &byte, &length), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, 0x1000000), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, 0x1000000, 1, &end, nullptr, nullptr, nullptr),
              NORV_STATUS_RANGE);
    EXPECT_EQ(length, 1U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SpiFlash, ANullBufferOrLengthOrALengthOfZeroIsRefused) {
    open({nor(0x1000, 0x1000)});
    uint8_t byte = 0;
    uint32_t length = 1;
    uint32_t zero = 0;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, nullptr, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, &byte, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, &byte, &zero), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, nullptr, &length), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, &byte, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, &byte, &zero), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SpiFlash, AShortTransferSetsTheLength) {
    open({nor(0x1000, 0x1000)});
    partition(0).most_bytes = 3;
    partition(0).most_written = 5;
    std::vector<uint8_t> bytes(16);
    uint32_t length = 16;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 3U);
    length = 16;
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, bytes.data(), &length), 0U);
    EXPECT_EQ(length, 5U);
}

TEST_F(SpiFlash, AFailedReadLeavesTheTruncatedLength) {
    open({nor(0x1000, 0x1000)});
    std::vector<uint8_t> bytes(16);
    uint32_t length = 16;
    kernel.fail("read", EIO);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0xFF8, bytes.data(), &length), errno_status(EIO));
    EXPECT_EQ(length, 8U);
}

TEST_F(SpiFlash, PlainReadsAndWritesDoNotQueryForBadBlocks) {
    open({nand(0x2000, 0x1000)});
    partition(0).bad_blocks = {0};
    const auto data = pattern(256);
    std::vector<uint8_t> found(256);
    uint32_t length = 256;
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0, data.data(), &length), 0U);
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0, found.data(), &length), 0U);
    EXPECT_EQ(found, data);
    EXPECT_THAT(partition(0).steps_of("query"), IsEmpty());
}

// ---- the end of 32-bit addresses

TEST_F(SpiFlash, AddressesReachUpTo4Gibibytes) {
    const auto upper = std::make_shared<huge_partition>(0x40000000);
    kernel.add_device("/dev/mtd0", std::make_shared<huge_partition>(0xC0000000));
    kernel.add_device("/dev/mtd1", upper);
    open({});
    uint8_t byte = 0;
    uint32_t length = 2;
    EXPECT_EQ(norv_linux_spi_flash_read(&flash, 0xFFFFFFFF, &byte, &length), 0U);
    EXPECT_EQ(length, 1U);
    EXPECT_THAT(upper->reads, ElementsAre(0x3FFFFFFF));
}

TEST_F(SpiFlash, TheSizeIsModulo4Gibibytes) {
    kernel.add_device("/dev/mtd0", std::make_shared<huge_partition>(0xC0000000));
    kernel.add_device("/dev/mtd1", std::make_shared<huge_partition>(0x50000000));
    open({});
    EXPECT_EQ(flash->size, 0x10000000U);
    EXPECT_EQ(flash->regions[1].base, 0xC0000000U);
}

// A flash of 4 GiB, whose end is not a 32-bit address.
class SpiFlashOf4Gibibytes : public SpiFlash {
  protected:
    SpiFlashOf4Gibibytes() {
        kernel.add_device("/dev/mtd0", lower);
        kernel.add_device("/dev/mtd1", upper);
        open({});
    }

    std::shared_ptr<huge_partition> lower = std::make_shared<huge_partition>(0xC0000000);
    std::shared_ptr<huge_partition> upper = std::make_shared<huge_partition>(0x40000000);
};

TEST_F(SpiFlashOf4Gibibytes, AReadThatReachesTheEndDoesNotContinueAtZero) {
    std::vector<uint8_t> found(16);
    uint32_t length = 16;
    EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, 0xFFFFFFFE, found.data(), &length, nullptr, nullptr,
                                                 nullptr),
              0U);
    EXPECT_EQ(length, 16U);
    EXPECT_THAT(upper->reads, ElementsAre(0x3FFFFFFE));
    EXPECT_THAT(lower->reads, IsEmpty());
}

TEST_F(SpiFlashOf4Gibibytes, AWriteThatReachesTheEndDoesNotContinueAtZero) {
    const std::vector<uint8_t> data(huge_partition::block + 1, 0xFF);
    auto length = static_cast<uint32_t>(data.size());
    uint32_t end = 0xFFFFFFFF;
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0xFFFF0000, 0, data.data(), &length, &end,
                                                         nullptr, nullptr, nullptr),
              NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(end, 0xFFFFFFFF);
    EXPECT_THAT(upper->writes, ElementsAre(0x3FFF0000));
    EXPECT_THAT(lower->writes, IsEmpty());
}

TEST_F(SpiFlashOf4Gibibytes, AnEndOfZeroIsBeforeEveryAddress) {
    uint8_t byte = 0xFF;
    uint32_t length = 1;
    uint32_t end = 0;
    EXPECT_EQ(
        norv_linux_spi_flash_continue_erase(&flash, 0xFFFF0000, 0x10000, &end, nullptr, nullptr, nullptr),
        0U);
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, 0xFFFF0000, &end), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0xFFFF0000, 0, &byte, &length, &end, nullptr,
                                                         nullptr, nullptr),
              NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(end, 0U);
    EXPECT_THAT(upper->erased, IsEmpty());
    EXPECT_THAT(upper->writes, IsEmpty());
}

TEST_F(SpiFlashOf4Gibibytes, TheLastBlockIsErasedAndWrittenByThePlainCalls) {
    uint8_t byte = 0xFF;
    uint32_t length = 1;
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, 0xFFFF0000), 0U);
    EXPECT_EQ(norv_linux_spi_flash_write(&flash, 0xFFFF0000, &byte, &length), 0U);
    EXPECT_THAT(upper->erased, ElementsAre(0x3FFF0000));
    EXPECT_THAT(upper->writes, ElementsAre(0x3FFF0000));
}

TEST_F(SpiFlashOf4Gibibytes, TheGeometryHasASizeOfZero) {
    norv_flash_info_t info = {};
    EXPECT_EQ(norv_linux_spi_flash_get_info(&flash, &info), 0U);
    EXPECT_EQ(info.size, 0U);
}

// ---- failure sweep

// Each operation on a flash once, up to the first failure.
uint32_t use_flash() {
    norv_spi_flash_t* flash = nullptr;
    const auto data = pattern(0x1000);
    std::vector<uint8_t> found(0x1000);
    uint32_t length = 16;
    uint32_t end = 0x4000;
    uint32_t status = norv_linux_spi_flash_open(&flash);
    EXPECT_EQ(flash == nullptr, status != 0);
    if (status == 0) {
        status = norv_linux_spi_flash_erase_one_block(&flash, 0);
    }
    if (status == 0) {
        status = norv_linux_spi_flash_erase_first_valid_block(&flash, 0, &end);
    }
    if (status == 0) {
        status = norv_linux_spi_flash_write(&flash, 0, data.data(), &length);
    }
    if (status == 0) {
        length = 16;
        status = norv_linux_spi_flash_read(&flash, 0, found.data(), &length);
    }
    end = 0x4000;
    if (status == 0) {
        status = norv_linux_spi_flash_continue_erase(&flash, 0, 0x4000, &end, nullptr, nullptr, nullptr);
    }
    length = 0x1000;
    if (status == 0) {
        status = norv_linux_spi_flash_continue_read(&flash, 0x1800, found.data(), &length, nullptr, nullptr,
                                                    nullptr);
    }
    if (status == 0) {
        status = norv_linux_spi_flash_continue_write_verify(&flash, 0x1800, 0, data.data(), &length, &end,
                                                            nullptr, nullptr, nullptr);
    }
    norv_linux_spi_flash_close(&flash);
    EXPECT_EQ(flash, nullptr);
    return status;
}

TEST(SpiFlashSweep, EveryFailingCallIsReportedAndLeavesNothingOpenOrAllocated) {
    norv::test::sweep_options options;
    options.short_counts = false;
    norv::test::failure_sweep(
        [](kernel_double& kernel) {
            kernel.add_device("/dev/mtd0", std::make_shared<mtd_device>(nor(0x2000, 0x1000)));
            kernel.add_device("/dev/mtd1", std::make_shared<mtd_device>(nor(0x2000, 0x1000)));
        },
        use_flash, options);
}

}  // namespace
