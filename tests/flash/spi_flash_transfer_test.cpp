// SPDX-License-Identifier: MIT
// The concatenated flash: reading, and writing with verification, across blocks.
#include "flash/concatenated_flash.hpp"

namespace {

using norv::test::concatenated_flash;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::flash_geometry;
using norv::test::flash_step;
using norv::test::nand;
using norv::test::nor;
using norv::test::observer;
using norv::test::pattern;
using norv::test::report;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using bytes = std::vector<uint8_t>;

// Four blocks of 4 KiB; NAND has pages of 256 bytes.
constexpr flash_geometry small_nor = nor(0x4000, 0x1000);
constexpr flash_geometry small_nand = nand(0x4000, 0x1000);

bytes joined(bytes first, const bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// ---- read

class ContinueRead : public concatenated_flash {
  protected:
    // Fills the partitions with a pattern.
    void open_filled(const std::vector<flash_geometry>& geometries) {
        open(geometries);
        uint32_t seed = 0;
        for (const auto& part : partitions) {
            part->bytes = pattern(part->bytes.size(), ++seed);
        }
    }

    uint32_t read(uint32_t address, uint32_t wanted) {
        found.assign(wanted, 0x77);
        length = wanted;
        return norv_linux_spi_flash_continue_read(&flash, address, found.data(), &length, observer::cancel,
                                                  observer::progress, &watcher);
    }

    bytes found;
    uint32_t length = 0;
};

TEST_F(ContinueRead, ReadsBlockByBlockAndReportsEach) {
    open_filled({small_nor});
    EXPECT_EQ(read(0x800, 0x2000), 0U);
    EXPECT_EQ(length, 0x2000U);
    EXPECT_EQ(found, partition(0).part(0x800, 0x2000));
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"read", 0x800, 0x800}, flash_step{"read", 0x1000, 0x1000},
                            flash_step{"read", 0x2000, 0x800}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x800, 0x1800, 25}, report{0, 0x1000, 0x800, 75},
                                             report{0, 0x2000, 0, 100}));
}

TEST_F(ContinueRead, ASingleByteAfterABorderIsRead) {
    open_filled({small_nor});
    EXPECT_EQ(read(0xFFE, 3), 0U);
    EXPECT_EQ(found, partition(0).part(0xFFE, 3));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0xFFE, 1, 66}, report{0, 0x1000, 0, 100}));
}

TEST_F(ContinueRead, NothingIsReadForALengthOfZero) {
    open_filled({small_nor});
    EXPECT_EQ(read(0x100000, 0), 0U);
    EXPECT_EQ(watcher.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(ContinueRead, CrossesTheBorderOfPartitionsWithDifferentBlocks) {
    open_filled({nor(0x4000, 0x1000), nand(0x8000, 0x4000)});
    EXPECT_EQ(read(0x3F00, 0x4200), 0U);
    EXPECT_EQ(found, joined(partition(0).part(0x3F00, 0x100), partition(1).part(0, 0x4100)));
    EXPECT_THAT(partition(1).steps_of("read"),
                ElementsAre(flash_step{"read", 0, 0x4000}, flash_step{"read", 0x4000, 0x100}));
}

TEST_F(ContinueRead, BadBlocksAreSkipped) {
    open_filled({small_nand});
    partition(0).bad_blocks = {1, 2};
    EXPECT_EQ(read(0x800, 0x1000), 0U);
    EXPECT_EQ(found, joined(partition(0).part(0x800, 0x800), partition(0).part(0x3000, 0x800)));
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0}, flash_step{"read", 0x800, 0x800},
                            flash_step{"query", 0x1000}, flash_step{"query", 0x2000},
                            flash_step{"query", 0x3000}, flash_step{"read", 0x3000, 0x800}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x800, 0x800, 50}, report{0, 0x3000, 0, 100}));
}

TEST_F(ContinueRead, AStartInsideABadBlockMovesToTheNextBlock) {
    open_filled({small_nand});
    partition(0).bad_blocks = {0};
    EXPECT_EQ(read(0x123, 0x10), 0U);
    EXPECT_EQ(found, partition(0).part(0x1000, 0x10));
}

TEST_F(ContinueRead, NorIsNotQueriedForBadBlocks) {
    open_filled({small_nor});
    EXPECT_EQ(read(0, 0x4000), 0U);
    EXPECT_THAT(partition(0).steps_of("query"), IsEmpty());
}

// quirk 139
TEST_F(ContinueRead, AReadPastTheLastPartitionLeavesTheLengthUnchanged) {
    open_filled({small_nor});
    EXPECT_EQ(read(0x3000, 0x2000), 0U);
    EXPECT_EQ(length, 0x2000U);
    EXPECT_EQ(found, joined(partition(0).part(0x3000, 0x1000), bytes(0x1000, 0x77)));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x3000, 0x1000, 50}));
}

TEST_F(ContinueRead, AnAddressPastTheFlashReadsNothingAndSucceeds) {
    open_filled({small_nor});
    EXPECT_EQ(read(0x4000, 0x10), 0U);
    EXPECT_EQ(length, 0x10U);
    EXPECT_THAT(found, Each(0x77));
}

TEST_F(ContinueRead, AFailedReadReportsTheBytesRead) {
    open_filled({small_nor});
    kernel.fail({.call = "read", .path = "/dev/mtd0", .offset = 0x2000, .error = EIO});
    EXPECT_EQ(read(0x800, 0x3000), errno_status(EIO));
    EXPECT_EQ(length, 0x1800U);
}

TEST_F(ContinueRead, AFailedQueryReportsTheBytesRead) {
    open_filled({small_nand});
    partition(0).query_errors[2] = EIO;
    EXPECT_EQ(read(0, 0x4000), errno_status(EIO));
    EXPECT_EQ(length, 0x2000U);
    EXPECT_EQ(partition(0).steps.back(), (flash_step{"query", 0x2000}));
}

TEST_F(ContinueRead, TheStatusOfAFailedQueryHas32Bits) {
    open_filled({small_nand});
    partition(0).query_errors[0] = EIO;
    kernel.map_errno(EIO, 0x10000);
    EXPECT_EQ(read(0, 0x10), 0x10000U);
    EXPECT_EQ(length, 0U);
}

TEST_F(ContinueRead, BlocksOf128KiBAreReportedAtTheirAddresses) {
    open_filled({nand(0x60000, 0x20000, 0x800)});
    EXPECT_EQ(read(0x20000, 0x30000), 0U);
    EXPECT_EQ(found, partition(0).part(0x20000, 0x30000));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x20000, 0x10000, 66}, report{0, 0x40000, 0, 100}));
}

TEST_F(ContinueRead, ANullBufferIsAnInvalidArgument) {
    open_filled({small_nor});
    length = 16;
    EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, 0, nullptr, &length, nullptr, nullptr, nullptr),
              NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(length, 0U);
}

TEST_F(ContinueRead, ShortReadsAreContinued) {
    open_filled({small_nor});
    partition(0).most_bytes = 0x600;
    EXPECT_EQ(read(0, 0x1000), 0U);
    EXPECT_EQ(found, partition(0).part(0, 0x1000));
    EXPECT_THAT(watcher.reports,
                ElementsAre(report{0, 0, 0xA00, 37}, report{0, 0x600, 0x400, 75}, report{0, 0xC00, 0, 100}));
}

TEST_F(ContinueRead, AReadThatReturnsNothingIsRepeatedUntilTheCallerStopsIt) {
    open_filled({small_nor});
    partition(0).most_bytes = 0;
    watcher.stop_at = 50;
    EXPECT_EQ(read(0, 0x10), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(partition(0).steps.size(), 50U);
}

TEST_F(ContinueRead, CanBeStoppedBeforeEachStepAndLeavesTheLengthUnchanged) {
    open_filled({small_nand});
    partition(0).bad_blocks = {1};
    for (uint32_t question = 0; question < 4; ++question) {
        watcher = {question};
        EXPECT_EQ(read(0, 0x3000), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(length, 0x3000U);
        EXPECT_EQ(watcher.reports.size(), question < 2 ? question : question - 1);
    }
    watcher = {4};
    EXPECT_EQ(read(0, 0x3000), 0U);
}

TEST_F(ContinueRead, TheCallbacksMayBeNull) {
    open_filled({small_nand});
    found.resize(0x4000);
    length = 0x4000;
    EXPECT_EQ(norv_linux_spi_flash_continue_read(&flash, 0, found.data(), &length, nullptr, nullptr, nullptr),
              0U);
    EXPECT_EQ(found, partition(0).bytes);
}

// ---- write with verification

class ContinueWrite : public concatenated_flash {
  protected:
    uint32_t write(uint32_t address, const bytes& data, uint32_t skip = 0) {
        length = static_cast<uint32_t>(data.size());
        return norv_linux_spi_flash_continue_write_verify(&flash, address, skip, data.data(), &length, &end,
                                                          observer::cancel, observer::progress, &watcher);
    }

    uint32_t length = 0;
    uint32_t end = 0x4000;
};

TEST_F(ContinueWrite, WritesAndReadsBackBlockByBlockAndReportsEach) {
    open({small_nor});
    const bytes data = pattern(0x2000);
    EXPECT_EQ(write(0x800, data), 0U);
    EXPECT_EQ(length, 0x2000U);
    EXPECT_EQ(partition(0).part(0x800, 0x2000), data);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"write", 0x800, 0x800}, flash_step{"read", 0x800, 0x800},
                            flash_step{"write", 0x1000, 0x1000}, flash_step{"read", 0x1000, 0x1000},
                            flash_step{"write", 0x2000, 0x800}, flash_step{"read", 0x2000, 0x800}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x800, 0x1800, 25}, report{0, 0x1000, 0x800, 75},
                                             report{0, 0x2000, 0, 100}));
}

TEST_F(ContinueWrite, TheCursorIsTheStartOfTheBlockAfterTheLastOneWritten) {
    open({small_nor});
    EXPECT_EQ(write(0, pattern(0x1001)), 0U);
    EXPECT_EQ(end, 0x2000U);
}

TEST_F(ContinueWrite, TenBytesArePaddedToAPageAndOnlyTheTenAreCompared) {
    open({small_nand});
    partition(0).flipped = {10, 255};
    const bytes data = pattern(10);
    EXPECT_EQ(write(0, data), 0U);
    EXPECT_EQ(end, 0x1000U);
    EXPECT_EQ(kernel.writes("/dev/mtd0").at(0).size(), 256U);
    EXPECT_EQ(partition(0).part(0, 10), data);
    EXPECT_EQ(kernel.writes("/dev/mtd0").at(0).substr(10), std::string(246, '\xFF'));
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0}, flash_step{"write", 0, 256}, flash_step{"read", 0, 10}));
}

TEST_F(ContinueWrite, ALengthOfZeroOnlyMovesTheEndToTheAddress) {
    open({small_nor});
    EXPECT_EQ(write(0x1234, {}), 0U);
    EXPECT_EQ(end, 0x1234U);
    EXPECT_EQ(watcher.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(ContinueWrite, TheCursorHas32Bits) {
    open({nor(0x20000, 0x1000)});
    end = 0x20000;
    EXPECT_EQ(write(0x11000, pattern(0x1000)), 0U);
    EXPECT_EQ(end, 0x12000U);
}

TEST_F(ContinueWrite, CrossesTheBorderOfPartitionsWithDifferentBlocks) {
    open({nor(0x4000, 0x1000), nand(0x8000, 0x4000)});
    const bytes data = pattern(0x5200);
    end = 0xC000;
    EXPECT_EQ(write(0x3000, data), 0U);
    EXPECT_EQ(end, 0xC000U);
    EXPECT_EQ(joined(partition(0).part(0x3000, 0x1000), partition(1).part(0, 0x4200)), data);
}

TEST_F(ContinueWrite, ALargeBlockBeforeASmallOneFitsIntoTheWorkArea) {
    open({nand(0x8000, 0x4000), nor(0x4000, 0x1000)});
    const bytes data = pattern(0x3F10);
    end = 0x9000;
    EXPECT_EQ(write(0, data), 0U);
    EXPECT_EQ(partition(0).part(0, 0x3F10), data);
    const bytes more = pattern(0x9000, 7);
    end = 0x9000;
    EXPECT_EQ(write(0x4000, bytes(more.begin(), more.begin() + 0x5000)), 0U);
    EXPECT_EQ(end, 0x9000U);
}

TEST_F(ContinueWrite, BadBlocksAreSkipped) {
    open({small_nand});
    partition(0).bad_blocks = {0, 2};
    const bytes data = pattern(0x1800);
    EXPECT_EQ(write(0, data), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_EQ(joined(partition(0).part(0x1000, 0x1000), partition(0).part(0x3000, 0x800)), data);
    EXPECT_THAT(partition(0).part(0, 0x1000), Each(0xFF));
    EXPECT_THAT(partition(0).part(0x2000, 0x1000), Each(0xFF));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x1000, 0x800, 66}, report{0, 0x3000, 0, 100}));
}

TEST_F(ContinueWrite, NorIsNotQueriedForBadBlocks) {
    open({small_nor});
    EXPECT_EQ(write(0, pattern(0x4000)), 0U);
    EXPECT_THAT(partition(0).steps_of("query"), IsEmpty());
}

TEST_F(ContinueWrite, TheQueryIsForTheStartOfTheBlock) {
    open({small_nand});
    EXPECT_EQ(write(0x1300, pattern(0x100)), 0U);
    EXPECT_THAT(partition(0).steps_of("query"), ElementsAre(flash_step{"query", 0x1000}));
}

TEST_F(ContinueWrite, TheSkipCountsPagesOfGoodBlocks) {
    open({small_nand});
    partition(0).bad_blocks = {1};
    const bytes data = pattern(0x300);
    EXPECT_EQ(write(0xE00, data, 0x300), 0U);
    EXPECT_EQ(partition(0).part(0x2100, 0x300), data);
    EXPECT_THAT(partition(0).part(0, 0x2100), Each(0xFF));
    EXPECT_EQ(end, 0x3000U);
}

TEST_F(ContinueWrite, ASkipOfOneByteSkipsOneByte) {
    open({small_nor});
    const bytes data = pattern(0x10);
    EXPECT_EQ(write(0x100, data, 1), 0U);
    EXPECT_EQ(partition(0).part(0x101, 0x10), data);
    EXPECT_THAT(partition(0).part(0, 0x101), Each(0xFF));
    EXPECT_EQ(watcher.cancel_calls, 2U);
}

TEST_F(ContinueWrite, ASkipThatEndsInsideAPageSkipsThePage) {
    // A skip is a multiple of the last region's write size, here a byte.
    open({small_nand, small_nor});
    end = 0x8000;
    const bytes data = pattern(0x100);
    EXPECT_EQ(write(0, data, 0x180), 0U);
    EXPECT_EQ(partition(0).part(0x200, 0x100), data);
    EXPECT_THAT(partition(0).part(0, 0x200), Each(0xFF));
}

TEST_F(ContinueWrite, BlocksOf128KiBAreWrittenWholeAndThePaddingIsThatOfAPage) {
    open({nand(0x60000, 0x20000, 0x800)});
    end = 0x60000;
    const bytes data = pattern(0x30001);
    EXPECT_EQ(write(0x20000, data), 0U);
    EXPECT_EQ(partition(0).part(0x20000, 0x30001), data);
    EXPECT_THAT(partition(0).steps_of("write"),
                ElementsAre(flash_step{"write", 0x20000, 0x20000}, flash_step{"write", 0x40000, 0x10800}));
    EXPECT_THAT(partition(0).steps_of("read"),
                ElementsAre(flash_step{"read", 0x20000, 0x20000}, flash_step{"read", 0x40000, 0x10001}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x20000, 0x10001, 66}, report{0, 0x40000, 0, 100}));
}

TEST_F(ContinueWrite, CancelIsCalledAtEachSkippedPageAndEachBadBlock) {
    open({small_nand});
    partition(0).bad_blocks = {0};
    EXPECT_EQ(write(0, pattern(0x100), 0x200), 0U);
    EXPECT_EQ(watcher.cancel_calls, 4U);
    EXPECT_EQ(watcher.reports.size(), 1U);
}

TEST_F(ContinueWrite, ASkipOverPartitionsWithDifferentPagesCountsBytes) {
    open({nor(0x1000, 0x1000), nand(0x3000, 0x1000)});
    const bytes data = pattern(0x100);
    EXPECT_EQ(write(0xF00, data, 0x200), 0U);
    EXPECT_EQ(partition(1).part(0x100, 0x100), data);
    EXPECT_THAT(partition(0).bytes, Each(0xFF));
}

// quirk 143
TEST_F(ContinueWrite, TooLittleGoodSpaceIsExhaustedAndLeavesLengthAndEnd) {
    open({small_nand});
    partition(0).bad_blocks = {1};
    end = 0x2000;
    EXPECT_EQ(write(0, pattern(0x1800)), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(length, 0x1800U);
    EXPECT_EQ(end, 0x2000U);
    EXPECT_EQ(watcher.reports.size(), 1U);
}

TEST_F(ContinueWrite, AnAddressThatIsNotBeforeTheEndIsExhausted) {
    open({small_nor});
    end = 0x1000;
    EXPECT_EQ(write(0x1000, pattern(4)), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(length, 4U);
    EXPECT_THAT(partition(0).steps, IsEmpty());
}

// quirk 141
TEST_F(ContinueWrite, ABlockThatStartsBeforeTheEndIsWrittenUpToItsOwnEnd) {
    open({small_nor});
    end = 0x800;
    EXPECT_EQ(write(0, pattern(0x1000)), 0U);
    EXPECT_EQ(partition(0).part(0, 0x1000), pattern(0x1000));
    EXPECT_EQ(end, 0x1000U);
}

TEST_F(ContinueWrite, AMisalignedEndOrSkipOrAnEndOutsideTheFlashIsRefused) {
    open({small_nand});
    for (const uint32_t wrong : {0U, 0x80U, 0x3FFFU, 0x4100U}) {
        end = wrong;
        EXPECT_EQ(write(0, pattern(0x10)), NORV_STATUS_RANGE) << wrong;
        EXPECT_EQ(end, wrong);
        EXPECT_EQ(length, 0x10U);
    }
    end = 0x4000;
    EXPECT_EQ(write(0, pattern(0x10), 0x80), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 0x10U);
    EXPECT_EQ(watcher.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// quirk 140
TEST_F(ContinueWrite, AMisalignedAddressIsRefusedAndLeaksTheWorkArea) {
    open({small_nand});
    const size_t before = kernel.allocations();
    EXPECT_EQ(write(0x80, pattern(0x10)), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 0U);
    EXPECT_THAT(partition(0).steps, IsEmpty());
    EXPECT_EQ(kernel.allocations(), before + 1);
    kernel.accept_leaked_allocations(1);
}

TEST_F(ContinueWrite, APartitionWithoutAWriteSizeIsRefused) {
    open({small_nor});
    flash->regions[0].device.info.writesize = 0;
    EXPECT_EQ(write(0, pattern(0x10)), NORV_STATUS_RANGE);
    EXPECT_THAT(partition(0).steps, IsEmpty());
}

TEST_F(ContinueWrite, WithoutMemoryForTheWorkAreaNothingIsWritten) {
    open({small_nor});
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(write(0, pattern(0x10)), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(length, 0x10U);
    EXPECT_EQ(watcher.cancel_calls, 0U);
}

TEST_F(ContinueWrite, AFlippedBitFailsTheVerification) {
    open({small_nor});
    partition(0).flipped = {0x1FFF};
    EXPECT_EQ(write(0, pattern(0x3000)), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0x1000U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_EQ(watcher.reports.size(), 1U);
}

TEST_F(ContinueWrite, AFlashThatWasNotErasedFailsTheVerification) {
    open({small_nor});
    partition(0).bytes[5] = 0;
    EXPECT_EQ(write(0, bytes(8, 0x55)), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0U);
}

TEST_F(ContinueWrite, AShortReadBackFailsTheVerification) {
    open({small_nor});
    partition(0).most_bytes = 15;
    EXPECT_EQ(write(0, pattern(16)), NORV_STATUS_VERIFY_FAILED);
}

TEST_F(ContinueWrite, AShortReadBackAfterAnIdenticalBlockFailsTheVerification) {
    open({small_nor});
    // The buffer still holds the first block, with which the missing bytes of the second would match.
    const bytes data(0x2000, 0x55);
    kernel.fail({.call = "read", .offset = 0x1000, .how = fault::kind::short_count});
    EXPECT_EQ(write(0, data), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0x1000U);
    EXPECT_TRUE(kernel.struck());
}

TEST_F(ContinueWrite, AShortWriteFailsTheVerification) {
    open({small_nor});
    partition(0).most_written = 15;
    EXPECT_EQ(write(0, bytes(16, 0xFF)), NORV_STATUS_VERIFY_FAILED);
}

TEST_F(ContinueWrite, AShortWriteOfThePaddingAloneIsNotAFailure) {
    open({small_nand});
    partition(0).most_written = 200;
    EXPECT_EQ(write(0, pattern(200)), 0U);
}

TEST_F(ContinueWrite, AFailedWriteOrReadBackReportsTheVerifiedBytes) {
    open({small_nor});
    for (const char* call : {"write", "read"}) {
        partition(0).bytes.assign(0x4000, 0xFF);
        end = 0x4000;
        kernel.fail({.call = call, .offset = 0x1000, .error = EIO});
        EXPECT_EQ(write(0, pattern(0x3000)), errno_status(EIO));
        EXPECT_EQ(length, 0x1000U);
        EXPECT_EQ(end, 0x4000U);
    }
}

// quirk 143
TEST_F(ContinueWrite, AFailureThatLooksLikeACancellationReportsTheBytesToo) {
    open({small_nor});
    for (const int error : {ETIMEDOUT, ENOSPC}) {
        kernel.fail("write", error);
        EXPECT_EQ(write(0, pattern(0x3000)), errno_status(error));
        EXPECT_EQ(length, 0U);
    }
}

TEST_F(ContinueWrite, AFailedQueryEndsTheCallBeforeTheWrite) {
    open({small_nand});
    partition(0).query_errors[1] = EIO;
    EXPECT_EQ(write(0, pattern(0x2000)), errno_status(EIO));
    EXPECT_EQ(length, 0x1000U);
    EXPECT_EQ(partition(0).steps.back(), (flash_step{"query", 0x1000}));
}

// quirk 142
TEST_F(ContinueWrite, AFailedQueryIsReportedOnlyAfterTheSkip) {
    open({small_nand});
    partition(0).query_errors[0] = EIO;
    partition(0).bad_blocks = {1};
    EXPECT_EQ(write(0, pattern(0x100), 0x1100), errno_status(EIO));
    EXPECT_EQ(watcher.cancel_calls, 18U);
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"query", 0}));
    EXPECT_EQ(length, 0U);
}

// quirk 143
TEST_F(ContinueWrite, CanBeStoppedBeforeEachStepAndLeavesLengthAndEnd) {
    open({small_nand});
    partition(0).bad_blocks = {1};
    for (uint32_t question = 0; question < 4; ++question) {
        partition(0).bytes.assign(0x4000, 0xFF);
        watcher = {question};
        EXPECT_EQ(write(0, pattern(0x3000)), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(length, 0x3000U);
        EXPECT_EQ(end, 0x4000U);
        EXPECT_EQ(watcher.reports.size(), question < 2 ? question : question - 1);
    }
}

TEST_F(ContinueWrite, TheSkipResumesAStoppedWrite) {
    open({nand(0x8000, 0x1000)});
    partition(0).bad_blocks = {0, 3, 5};
    const bytes data = pattern(0x4321);
    end = 0x8000;
    for (uint32_t question = 1; question < 8; ++question) {
        partition(0).bytes.assign(0x8000, 0xFF);
        watcher = {question};
        ASSERT_EQ(write(0, data), NORV_STATUS_TIMEOUT) << question;
        const uint32_t done = watcher.reports.empty() ? 0 : 0x4321 - watcher.reports.back().remaining;
        watcher = {};
        ASSERT_EQ(write(0, bytes(data.begin() + done, data.end()), done), 0U) << question;
        bytes found(0x4321);
        uint32_t count = 0x4321;
        norv_linux_spi_flash_continue_read(&flash, 0, found.data(), &count, nullptr, nullptr, nullptr);
        EXPECT_EQ(found, data) << question;
        end = 0x8000;
    }
}

TEST_F(ContinueWrite, TheCursorLeadsThroughTheWholeArea) {
    open({small_nand, small_nor});
    partition(0).bad_blocks = {1};
    const bytes data = pattern(0x7000);
    uint32_t cursor = 0;
    for (uint32_t done = 0; done < 0x7000; done += 0x1000) {
        end = 0x8000;
        ASSERT_EQ(write(cursor, bytes(data.begin() + done, data.begin() + done + 0x1000)), 0U);
        ASSERT_GT(end, cursor);
        cursor = end;
    }
    EXPECT_EQ(cursor, 0x8000U);
    EXPECT_EQ(partition(1).bytes, bytes(data.begin() + 0x3000, data.end()));
}

TEST_F(ContinueWrite, AnEndThatACallbackMovesPastTheFlashIsOutOfRange) {
    open({small_nor});
    const auto move_the_end = [](void* user) {
        *static_cast<uint32_t*>(user) = 0x5000;
        return false;
    };
    const bytes data = pattern(0x2000);
    length = 0x2000;
    const size_t before = kernel.allocations();
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0x3000, 0, data.data(), &length, &end,
                                                         move_the_end, nullptr, &end),
              NORV_STATUS_RANGE);
    EXPECT_EQ(length, 0x1000U);
    EXPECT_EQ(kernel.allocations(), before);
}

// The work area has the size of the blocks before the first end.
TEST_F(ContinueWrite, AnEndThatACallbackMovesToLargerBlocksIsOutOfRange) {
    open({small_nor, nor(0x20000, 0x10000)});
    const auto move_the_end = [](void* user) {
        *static_cast<uint32_t*>(user) = 0x14000;
        return false;
    };
    const bytes data = pattern(0x2001);
    length = 0x2001;
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0x3000, 0, data.data(), &length, &end,
                                                         move_the_end, nullptr, &end),
              NORV_STATUS_RANGE);
    EXPECT_EQ(length, 0x1000U);
    EXPECT_THAT(partition(1).steps, IsEmpty());
    // What the work area holds is written there, too.
    length = 0x2000;
    end = 0x4000;
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0x3000, 0, data.data(), &length, &end,
                                                         move_the_end, nullptr, &end),
              0U);
}

TEST_F(ContinueWrite, TheCallbacksMayBeNull) {
    open({small_nand});
    const bytes data = pattern(0x4000);
    length = 0x4000;
    EXPECT_EQ(norv_linux_spi_flash_continue_write_verify(&flash, 0, 0, data.data(), &length, &end, nullptr,
                                                         nullptr, nullptr),
              0U);
    EXPECT_EQ(partition(0).bytes, data);
}

}  // namespace
