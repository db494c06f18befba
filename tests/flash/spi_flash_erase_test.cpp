// SPDX-License-Identifier: MIT
// The concatenated flash: erasing.
#include "flash/concatenated_flash.hpp"
#include "flash/huge_partition.hpp"

namespace {

using norv::test::concatenated_flash;
using norv::test::errno_status;
using norv::test::flash_geometry;
using norv::test::flash_step;
using norv::test::huge_partition;
using norv::test::nand;
using norv::test::nor;
using norv::test::observer;
using norv::test::report;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class EraseOneBlock : public concatenated_flash {
  protected:
    uint32_t erase(uint32_t address) { return norv_linux_spi_flash_erase_one_block(&flash, address); }
};

class EraseFirstValidBlock : public concatenated_flash {
  protected:
    uint32_t erase(uint32_t address) {
        return norv_linux_spi_flash_erase_first_valid_block(&flash, address, &end);
    }

    uint32_t end = 0;
};

class ContinueErase : public concatenated_flash {
  protected:
    uint32_t erase(uint32_t address, uint32_t length) {
        return norv_linux_spi_flash_continue_erase(&flash, address, length, &end, observer::cancel,
                                                   observer::progress, &watcher);
    }

    uint32_t end = 0;
};

// Four blocks of 4 KiB.
constexpr flash_geometry small_nor = nor(0x4000, 0x1000);
constexpr flash_geometry small_nand = nand(0x4000, 0x1000);

// ---- one block

TEST_F(EraseOneBlock, OnNorErasesWithoutAQuery) {
    open({small_nor});
    partition(0).bytes.assign(0x4000, 0);
    EXPECT_EQ(erase(0x1000), 0U);
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"erase", 0x1000, 0x1000}));
    EXPECT_THAT(partition(0).part(0x1000, 0x1000), Each(0xFF));
    EXPECT_THAT(partition(0).part(0x2000, 0x1000), Each(0));
}

TEST_F(EraseOneBlock, OnNandQueriesFirst) {
    open({small_nand});
    EXPECT_EQ(erase(0x1000), 0U);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0x1000}, flash_step{"erase", 0x1000, 0x1000}));
}

TEST_F(EraseOneBlock, UsesTheOffsetAndTheBlockSizeOfThePartition) {
    open({nor(0x4000, 0x1000), nor(0x8000, 0x4000)});
    EXPECT_EQ(erase(0x8000), 0U);
    EXPECT_THAT(partition(0).steps, IsEmpty());
    EXPECT_THAT(partition(1).steps, ElementsAre(flash_step{"erase", 0x4000, 0x4000}));
}

TEST_F(EraseOneBlock, AddressesInsideABlockAreRefused) {
    open({small_nand});
    EXPECT_EQ(erase(0x1100), NORV_STATUS_RANGE);
    EXPECT_EQ(erase(0x1FFF), NORV_STATUS_RANGE);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EraseOneBlock, TheAlignmentIsThatOfTheOffsetInThePartition) {
    open({nor(0x1000, 0x1000), nor(0x8000, 0x4000)});
    EXPECT_EQ(erase(0x4000), NORV_STATUS_RANGE);
    EXPECT_EQ(erase(0x5000), 0U);
    EXPECT_THAT(partition(1).steps, ElementsAre(flash_step{"erase", 0x4000, 0x4000}));
}

TEST_F(EraseOneBlock, ABadBlockIsExhaustedAndNotErased) {
    open({small_nand});
    partition(0).bad_blocks = {1};
    EXPECT_EQ(erase(0x1000), NORV_STATUS_EXHAUSTED);
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"query", 0x1000}));
}

TEST_F(EraseOneBlock, ANandBlockThatDoesNotEraseIsMarkedBad) {
    open({small_nand});
    partition(0).erase_errors[1] = EIO;
    EXPECT_EQ(erase(0x1000), NORV_STATUS_EXHAUSTED);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0x1000}, flash_step{"erase", 0x1000, 0x1000},
                            flash_step{"mark", 0x1000}));
    EXPECT_THAT(partition(0).bad_blocks, ElementsAre(1));
}

// quirk 136
TEST_F(EraseOneBlock, ABlockThatCannotBeQueriedIsMarkedBadWithoutAnErase) {
    open({small_nand});
    partition(0).query_errors[1] = EIO;
    EXPECT_EQ(erase(0x1000), NORV_STATUS_EXHAUSTED);
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"query", 0x1000}, flash_step{"mark", 0x1000}));
}

TEST_F(EraseOneBlock, AFailedMarkingReturnsItsStatus) {
    open({small_nand});
    partition(0).erase_errors[1] = EIO;
    partition(0).query_errors[2] = EIO;
    partition(0).marking_errors = {{1, EROFS}, {2, EROFS}};
    EXPECT_EQ(erase(0x1000), errno_status(EROFS));
    EXPECT_EQ(erase(0x2000), errno_status(EROFS));
    EXPECT_THAT(partition(0).bad_blocks, IsEmpty());
}

TEST_F(EraseOneBlock, ANorBlockThatDoesNotEraseReturnsTheStatusAndIsNotMarked) {
    open({small_nor});
    partition(0).erase_errors[1] = EIO;
    EXPECT_EQ(erase(0x1000), errno_status(EIO));
    EXPECT_THAT(partition(0).steps_of("mark"), IsEmpty());
}

// ---- the first block that is not bad

TEST_F(EraseFirstValidBlock, ErasesTheBlockAtTheAddressIfItIsGood) {
    open({small_nand});
    end = 0x4000;
    EXPECT_EQ(erase(0x1000), 0U);
    EXPECT_EQ(end, 0x2000U);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0x1000}, flash_step{"erase", 0x1000, 0x1000}));
}

TEST_F(EraseFirstValidBlock, SkipsBadBlocks) {
    open({small_nand});
    partition(0).bad_blocks = {0, 1};
    end = 0x4000;
    EXPECT_EQ(erase(0), 0U);
    EXPECT_EQ(end, 0x3000U);
    EXPECT_THAT(partition(0).steps_of("erase"), ElementsAre(flash_step{"erase", 0x2000, 0x1000}));
}

TEST_F(EraseFirstValidBlock, CrossesTheBorderOfAPartition) {
    open({small_nand, nand(0x8000, 0x4000)});
    partition(0).bad_blocks = {3};
    end = 0xC000;
    EXPECT_EQ(erase(0x3000), 0U);
    EXPECT_EQ(end, 0x8000U);
    EXPECT_THAT(partition(1).steps_of("erase"), ElementsAre(flash_step{"erase", 0, 0x4000}));
}

TEST_F(EraseFirstValidBlock, WithoutAGoodBlockBeforeTheEndIsExhausted) {
    open({small_nand});
    partition(0).bad_blocks = {0, 1};
    end = 0x2000;
    EXPECT_EQ(erase(0), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(end, 0x2000U);
    EXPECT_THAT(partition(0).steps_of("erase"), IsEmpty());
}

TEST_F(EraseFirstValidBlock, AnEndThatIsNotAfterTheAddressIsExhausted) {
    open({small_nand});
    end = 0x1000;
    EXPECT_EQ(erase(0x1000), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(erase(0x2001), NORV_STATUS_EXHAUSTED);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EraseFirstValidBlock, MisalignedAddressesAndEndsAreRefused) {
    open({small_nand});
    end = 0x4000;
    EXPECT_EQ(erase(0x100), NORV_STATUS_RANGE);
    for (const uint32_t wrong : {0U, 0x1100U, 0x5000U}) {
        end = wrong;
        EXPECT_EQ(erase(0), NORV_STATUS_RANGE) << wrong;
        EXPECT_EQ(end, wrong);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(EraseFirstValidBlock, ANullEndIsAnInvalidArgument) {
    open({small_nand});
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, 0, nullptr), NORV_STATUS_INVALID_ARG);
}

TEST_F(EraseFirstValidBlock, ABlockThatFailsIsMarkedBadAndTheNextOneIsTried) {
    open({small_nand});
    partition(0).erase_errors[0] = EIO;
    partition(0).query_errors[1] = EIO;
    end = 0x4000;
    EXPECT_EQ(erase(0), 0U);
    EXPECT_EQ(end, 0x3000U);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0}, flash_step{"erase", 0, 0x1000}, flash_step{"mark", 0},
                            flash_step{"query", 0x1000}, flash_step{"mark", 0x1000},
                            flash_step{"query", 0x2000}, flash_step{"erase", 0x2000, 0x1000}));
}

// quirk 135
TEST_F(EraseFirstValidBlock, AfterAFailedMarkingBlocksAreMarkedUntilAMarkingSucceeds) {
    open({nand(0x5000, 0x1000)});
    partition(0).erase_errors[0] = EIO;
    partition(0).marking_errors = {{0, EROFS}, {1, EROFS}};
    end = 0x5000;
    EXPECT_EQ(erase(0), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_THAT(partition(0).bad_blocks, ElementsAre(2));
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0}, flash_step{"erase", 0, 0x1000}, flash_step{"mark", 0},
                            flash_step{"mark", 0x1000}, flash_step{"mark", 0x2000},
                            flash_step{"query", 0x3000}, flash_step{"erase", 0x3000, 0x1000}));
}

TEST_F(EraseFirstValidBlock, IfEveryMarkingFailsTheSpaceIsExhausted) {
    open({small_nand});
    partition(0).erase_errors[0] = EIO;
    partition(0).marking_errors = {{0, EROFS}, {1, EROFS}, {2, EROFS}, {3, EROFS}};
    end = 0x4000;
    EXPECT_EQ(erase(0), NORV_STATUS_EXHAUSTED);
    EXPECT_EQ(end, 0x4000U);
}

TEST_F(EraseFirstValidBlock, AFailureOnNorEndsTheCall) {
    open({small_nor});
    partition(0).erase_errors[1] = EIO;
    end = 0x4000;
    EXPECT_EQ(erase(0x1000), errno_status(EIO));
    EXPECT_EQ(end, 0x4000U);
    EXPECT_EQ(partition(0).steps.size(), 1U);
}

TEST_F(EraseFirstValidBlock, AFailedMarkingEndsTheCallAtTheFirstNorBlock) {
    open({small_nand, small_nor});
    partition(0).erase_errors[3] = EIO;
    partition(0).marking_errors[3] = EROFS;
    end = 0x8000;
    EXPECT_EQ(erase(0x3000), errno_status(EROFS));
    EXPECT_EQ(end, 0x8000U);
    EXPECT_THAT(partition(1).steps, IsEmpty());
}

TEST_F(EraseFirstValidBlock, TheEndIsReadAgainForEachBlock) {
    open({small_nand});
    partition(0).bad_blocks = {0};
    partition(0).on_query = [this] { end = 0x1000; };
    end = 0x4000;
    EXPECT_EQ(erase(0), NORV_STATUS_EXHAUSTED);
    EXPECT_THAT(partition(0).steps_of("erase"), IsEmpty());
}

// ---- many blocks

TEST_F(ContinueErase, ErasesTheLengthAndStoresTheAddressAfterIt) {
    open({small_nor});
    partition(0).bytes.assign(0x4000, 0);
    end = 0x4000;
    EXPECT_EQ(erase(0x1000, 0x2000), 0U);
    EXPECT_EQ(end, 0x3000U);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"erase", 0x1000, 0x1000}, flash_step{"erase", 0x2000, 0x1000}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x1000, 0x1000, 50}, report{0, 0x2000, 0, 100}));
    EXPECT_THAT(partition(0).part(0, 0x1000), Each(0));
    EXPECT_THAT(partition(0).part(0x3000, 0x1000), Each(0));
}

TEST_F(ContinueErase, APartOfABlockErasesTheWholeBlock) {
    open({small_nor});
    end = 0x4000;
    EXPECT_EQ(erase(0, 0x1001), 0U);
    EXPECT_EQ(end, 0x2000U);
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"erase", 0, 0x1000}, flash_step{"erase", 0x1000, 0x1000}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 1, 99}, report{0, 0x1000, 0, 100}));
}

TEST_F(ContinueErase, ThePercentageIsRoundedDown) {
    open({small_nor});
    end = 0x4000;
    EXPECT_EQ(erase(0, 0x3000), 0U);
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x2000, 33}, report{0, 0x1000, 0x1000, 66},
                                             report{0, 0x2000, 0, 100}));
}

TEST_F(ContinueErase, ALengthOfZeroOnlyMovesTheEndToTheAddress) {
    open({small_nor});
    end = 0x4000;
    EXPECT_EQ(erase(0x1234, 0), 0U);
    EXPECT_EQ(end, 0x1234U);
    EXPECT_EQ(watcher.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(ContinueErase, CrossesTheBorderOfPartitionsWithDifferentBlocks) {
    open({nor(0x4000, 0x1000), nor(0x8000, 0x4000)});
    end = 0xC000;
    EXPECT_EQ(erase(0x3000, 0x5000), 0U);
    EXPECT_EQ(end, 0x8000U);
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"erase", 0x3000, 0x1000}));
    EXPECT_THAT(partition(1).steps, ElementsAre(flash_step{"erase", 0, 0x4000}));
}

TEST_F(ContinueErase, ABadBlockIsSkippedAndNeitherCountedNorReported) {
    open({small_nand});
    partition(0).bad_blocks = {1};
    partition(0).bytes.assign(0x4000, 0);
    end = 0x4000;
    EXPECT_EQ(erase(0, 0x2000), 0U);
    EXPECT_EQ(end, 0x3000U);
    EXPECT_THAT(partition(0).steps, ElementsAre(flash_step{"query", 0}, flash_step{"erase", 0, 0x1000},
                                                flash_step{"query", 0x1000}, flash_step{"query", 0x2000},
                                                flash_step{"erase", 0x2000, 0x1000}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x1000, 50}, report{0, 0x2000, 0, 100}));
    EXPECT_EQ(watcher.cancel_calls, 3U);
}

// quirk 138
TEST_F(ContinueErase, ReachingTheEndBeforeTheLengthIsASuccess) {
    open({small_nor});
    end = 0x2000;
    EXPECT_EQ(erase(0, 0x8000), 0U);
    EXPECT_EQ(end, 0x2000U);
    EXPECT_EQ(partition(0).steps.size(), 2U);
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x7000, 12}, report{0, 0x1000, 0, 100}));
}

TEST_F(ContinueErase, ABadLastBlockEndsTheCallLikeAnyOtherEnd) {
    open({small_nand});
    partition(0).bad_blocks = {1};
    end = 0x2000;
    EXPECT_EQ(erase(0, 0x2000), 0U);
    EXPECT_EQ(end, 0x2000U);
    EXPECT_THAT(partition(0).steps_of("erase"), ElementsAre(flash_step{"erase", 0, 0x1000}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x1000, 50}));
}

TEST_F(ContinueErase, ABadBlockAtTheEndOfTheFlashEndsTheCallToo) {
    open({small_nand});
    partition(0).bad_blocks = {0, 1, 2, 3};
    end = 0x4000;
    EXPECT_EQ(erase(0, 0x1000), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_THAT(watcher.reports, IsEmpty());
}

TEST_F(ContinueErase, AnAddressThatIsNotBeforeTheEndErasesNothing) {
    open({small_nor});
    for (const uint32_t address : {0x2000U, 0x3000U}) {
        end = 0x2000;
        EXPECT_EQ(erase(address, 0x1000), 0U);
        EXPECT_EQ(end, 0x2000U);
    }
    EXPECT_THAT(partition(0).steps, IsEmpty());
    EXPECT_THAT(watcher.reports, IsEmpty());
}

TEST_F(ContinueErase, ABlockThatFailsIsMarkedBadAndDoesNotCount) {
    open({nand(0x5000, 0x1000)});
    partition(0).erase_errors[1] = EIO;
    partition(0).query_errors[2] = EIO;
    end = 0x5000;
    EXPECT_EQ(erase(0, 0x2000), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_THAT(partition(0).bad_blocks, ElementsAre(1, 2));
    EXPECT_THAT(
        partition(0).steps,
        ElementsAre(flash_step{"query", 0}, flash_step{"erase", 0, 0x1000}, flash_step{"query", 0x1000},
                    flash_step{"erase", 0x1000, 0x1000}, flash_step{"mark", 0x1000},
                    flash_step{"query", 0x2000}, flash_step{"mark", 0x2000}, flash_step{"query", 0x3000},
                    flash_step{"erase", 0x3000, 0x1000}));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x1000, 50}, report{0, 0x1000, 0x1000, 50},
                                             report{0, 0x2000, 0x1000, 50}, report{0, 0x3000, 0, 100}));
}

// quirk 135
TEST_F(ContinueErase, AfterAFailedMarkingBlocksAreMarkedUntilAMarkingSucceeds) {
    open({nand(0x6000, 0x1000)});
    partition(0).erase_errors[0] = EIO;
    partition(0).marking_errors = {{0, EROFS}, {1, EROFS}};
    end = 0x6000;
    EXPECT_EQ(erase(0, 0x1000), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_THAT(partition(0).bad_blocks, ElementsAre(2));
    EXPECT_THAT(partition(0).steps,
                ElementsAre(flash_step{"query", 0}, flash_step{"erase", 0, 0x1000}, flash_step{"mark", 0},
                            flash_step{"mark", 0x1000}, flash_step{"mark", 0x2000},
                            flash_step{"query", 0x3000}, flash_step{"erase", 0x3000, 0x1000}));
    const uint32_t refused = errno_status(EROFS);
    EXPECT_THAT(watcher.reports,
                ElementsAre(report{refused, 0, 0x1000, 0}, report{refused, 0x1000, 0x1000, 0},
                            report{0, 0x2000, 0x1000, 0}, report{0, 0x3000, 0, 100}));
}

// quirk 137
TEST_F(ContinueErase, AMarkingThatStillFailsAtTheEndIsReturned) {
    open({small_nand});
    partition(0).erase_errors[2] = EIO;
    partition(0).marking_errors = {{2, EROFS}, {3, EPERM}};
    end = 0x4000;
    EXPECT_EQ(erase(0x2000, 0x2000), errno_status(EPERM));
    EXPECT_EQ(end, 0x4000U);
    EXPECT_THAT(watcher.reports,
                ElementsAre(report{errno_status(EROFS), 0x2000, 0x2000, 0}, report{0, 0x3000, 0, 100}));
}

// quirk 137
TEST_F(ContinueErase, TheLastBlockBeforeTheEndIsReportedAsDone) {
    open({small_nand});
    partition(0).erase_errors[3] = EIO;
    end = 0x4000;
    EXPECT_EQ(erase(0x3000, 0x1000), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_THAT(partition(0).bad_blocks, ElementsAre(3));
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x3000, 0, 100}));
}

TEST_F(ContinueErase, AFailureOnNorEndsTheCallAtOnce) {
    open({small_nor});
    partition(0).erase_errors[1] = EIO;
    end = 0x4000;
    EXPECT_EQ(erase(0, 0x4000), errno_status(EIO));
    EXPECT_EQ(end, 0x4000U);
    EXPECT_EQ(partition(0).steps.size(), 2U);
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x3000, 25}));
}

TEST_F(ContinueErase, AFailedMarkingEndsTheCallAtTheFirstNorBlock) {
    open({small_nand, small_nor});
    partition(0).erase_errors[3] = EIO;
    partition(0).marking_errors[3] = EROFS;
    end = 0x8000;
    EXPECT_EQ(erase(0x3000, 0x2000), errno_status(EROFS));
    EXPECT_EQ(end, 0x8000U);
    EXPECT_THAT(partition(1).steps, IsEmpty());
}

TEST_F(ContinueErase, CanBeStoppedBeforeEachBlockAndContinuesFromThere) {
    open({small_nor});
    for (uint32_t question = 0; question < 4; ++question) {
        partition(0).steps.clear();
        watcher = {question};
        end = 0x4000;
        EXPECT_EQ(erase(0, 0x4000), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(end, 0x4000U);
        EXPECT_EQ(partition(0).steps.size(), question);
        EXPECT_EQ(watcher.reports.size(), question);
        watcher = {};
        EXPECT_EQ(erase(question * 0x1000, 0x4000 - question * 0x1000), 0U);
        EXPECT_EQ(partition(0).steps.size(), 4U);
    }
}

TEST_F(ContinueErase, TheCursorLeadsThroughTheWholeArea) {
    open({nand(0x8000, 0x1000), small_nor});
    partition(0).bad_blocks = {0, 3, 4};
    uint32_t cursor = 0;
    while (cursor < 0xC000) {
        end = 0xC000;
        ASSERT_EQ(erase(cursor, 0x1000), 0U);
        ASSERT_GT(end, cursor);
        cursor = end;
    }
    EXPECT_EQ(partition(0).steps_of("erase").size(), 5U);
    EXPECT_EQ(partition(1).steps_of("erase").size(), 4U);
}

TEST_F(ContinueErase, MisalignedAddressesAndEndsAreRefused) {
    open({small_nand});
    end = 0x4000;
    EXPECT_EQ(erase(0x100, 0x1000), NORV_STATUS_RANGE);
    EXPECT_EQ(end, 0x4000U);
    for (const uint32_t wrong : {0U, 0x1100U, 0x5000U}) {
        end = wrong;
        EXPECT_EQ(erase(0, 0x1000), NORV_STATUS_RANGE) << wrong;
        EXPECT_EQ(erase(0, 0), NORV_STATUS_RANGE) << wrong;
        EXPECT_EQ(end, wrong);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(ContinueErase, AnAddressThatStartsNoBlockOfItsPartitionIsRefused) {
    open({nand(0x1000, 0x1000), nand(0x8000, 0x2000)});
    end = 0x8000;
    EXPECT_EQ(erase(0x2000, 0x2000), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, 0x2000, &end), NORV_STATUS_RANGE);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(ContinueErase, ABlockAtAMisalignedAddressIsErasedOnlyAlone) {
    open({nand(0x1000, 0x1000), nand(0x8000, 0x2000)});
    for (const uint32_t wanted : {0x3000U, 0x9000U}) {
        end = 0x8000;
        EXPECT_EQ(erase(0x1000, wanted), NORV_STATUS_RANGE);
        EXPECT_EQ(norv_linux_spi_flash_erase_first_valid_block(&flash, 0x1000, &end), NORV_STATUS_RANGE);
        EXPECT_EQ(end, 0x8000U);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(norv_linux_spi_flash_erase_one_block(&flash, 0x1000), 0U);
    EXPECT_THAT(partition(1).steps_of("erase"), ElementsAre(flash_step{"erase", 0, 0x2000}));
}

TEST_F(ContinueErase, AnEraseStopsAtAPartitionWithAMisalignedBase) {
    open({nand(0x1000, 0x1000), nand(0x8000, 0x2000)});
    end = 0x8000;
    EXPECT_EQ(erase(0, 0x3000), NORV_STATUS_RANGE);
    EXPECT_EQ(end, 0x8000U);
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0, 0x2000, 33}));
    EXPECT_THAT(partition(1).steps, IsEmpty());
}

TEST_F(ContinueErase, AMisalignedEndIsRefusedEvenAtTheEndOfABlock) {
    open({nand(0x1000, 0x1000), nand(0x8000, 0x2000)});
    end = 0x3000;
    EXPECT_EQ(erase(0, 0x1000), NORV_STATUS_RANGE);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(ContinueErase, PercentagesOfGibibytesAreExact) {
    kernel.add_device("/dev/mtd0", std::make_shared<huge_partition>(0x80000000));
    open({});
    // One byte more than 100 times 16 MiB: after each 16 MiB the exact quotient is just below a whole number.
    constexpr uint64_t total = 100 * uint64_t{0x1000000} + 1;
    end = 0x80000000;
    EXPECT_EQ(erase(0, total), 0U);
    ASSERT_EQ(watcher.reports.size(), total / huge_partition::block + 1);
    for (const report& progress : watcher.reports) {
        const uint64_t done = total - progress.remaining;
        ASSERT_EQ(progress.percentage, done * 100 / total) << done;
    }
}

TEST_F(ContinueErase, BlocksOf128KiBAreReportedAtTheirAddresses) {
    open({nor(0x60000, 0x20000)});
    end = 0x60000;
    EXPECT_EQ(erase(0x20000, 0x40000), 0U);
    EXPECT_THAT(watcher.reports, ElementsAre(report{0, 0x20000, 0x20000, 50}, report{0, 0x40000, 0, 100}));
}

TEST_F(ContinueErase, TheCallbacksMayBeNull) {
    open({small_nand});
    end = 0x4000;
    EXPECT_EQ(norv_linux_spi_flash_continue_erase(&flash, 0, 0x4000, &end, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(end, 0x4000U);
    EXPECT_EQ(partition(0).steps_of("erase").size(), 4U);
}

}  // namespace
