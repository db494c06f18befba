// SPDX-License-Identifier: MIT
// Block devices as flash: the operations that report progress, can be cancelled and can be resumed.
#include "norv_linux_emmc_flash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "flash/emmc_card.hpp"
#include "support/status.hpp"

namespace {

using norv::test::EmmcFlash;
using norv::test::errno_status;
using norv::test::GiB;
using norv::test::MiB;
using norv::test::observer;
using norv::test::ones;
using norv::test::pattern;
using norv::test::report;
using norv::test::SmallCard;
using norv::test::transfer;
using norv::test::zeros;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// ---- continue erase

TEST_F(SmallCard, Erasing1000BytesWritesOneChunkOf16384Zeros) {
    EXPECT_EQ(erase(0, 1000), 0U);
    EXPECT_EQ(card->content(), before_with(0, zeros(16384)));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{0, 16384}));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 0, 0, 100}));
}

TEST_F(SmallCard, ErasingOneByteWritesOneChunk) {
    EXPECT_EQ(erase(512, 1), 0U);
    EXPECT_EQ(card->content(), before_with(512, zeros(16384)));
}

TEST_F(SmallCard, AnErasedLengthBetween16And128KiBIsOneChunkOfItsBlocks) {
    EXPECT_EQ(erase(1024, 20001), 0U);
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{1024, 20480}));
    EXPECT_EQ(card->content(), before_with(1024, zeros(20480)));
}

// quirk 145
TEST_F(SmallCard, TheLastChunkIsErasedWholeAndMayRunPastTheArea) {
    EXPECT_EQ(erase(512, 300000), 0U);
    EXPECT_EQ(card->content(), before_with(512, zeros(3 * 131072)));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{512, 131072}, transfer{512 + 131072, 131072},
                                                 transfer{512 + 262144, 131072}));
}

TEST_F(SmallCard, EachErasedChunkIsReported) {
    EXPECT_EQ(erase(512, 300000), 0U);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 512, 168928, 43}, report{0, 512 + 131072, 37856, 87},
                                              report{0, 512 + 262144, 0, 100}));
    EXPECT_EQ(watching.cancel_calls, 3U);
}

TEST_F(SmallCard, ErasingNothingMakesNoCallAndNoCallback) {
    EXPECT_EQ(erase(512, 0), 0U);
    EXPECT_EQ(watching.cancel_calls, 0U);
    EXPECT_THAT(watching.reports, IsEmpty());
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, AMisalignedEraseIsOutOfRangeEvenForALengthOfZero) {
    EXPECT_EQ(erase(513, 512), NORV_STATUS_RANGE);
    EXPECT_EQ(erase(513, 0), NORV_STATUS_RANGE);
    EXPECT_EQ(watching.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, ACancelledEraseStopsBeforeTheNextChunk) {
    for (const uint32_t chunks : {0U, 1U, 2U}) {
        watching = {.stop_at = chunks};
        card->fill(0, before);
        EXPECT_EQ(erase(0, 3 * 131072), NORV_STATUS_TIMEOUT);
        EXPECT_THAT(watching.reports, SizeIs(chunks));
        EXPECT_EQ(card->content(), before_with(0, zeros(chunks * 131072)));
    }
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(SmallCard, AFailedChunkEndsTheErase) {
    kernel.fail({.call = "pwrite", .offset = 131072, .error = EIO});
    EXPECT_EQ(erase(0, 3 * 131072), NORV_STATUS_DEVICE_ERROR);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 0, 262144, 33}));
    EXPECT_EQ(kernel.allocations(), 1U);
}

// quirk 146
TEST_F(SmallCard, AChunkThatTheDeviceAcceptsInPartCountsAsErased) {
    card->most_per_write = 1000;
    EXPECT_EQ(erase(0, 262144), 0U);
    EXPECT_EQ(card->content(), before_with(0, zeros(1000)).replace(131072, 1000, zeros(1000)));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 0, 131072, 50}, report{0, 131072, 0, 100}));
}

// quirk 150
TEST_F(SmallCard, AChunkThatTheDeviceDoesNotAcceptCountsAsErased) {
    card->most_per_write = 0;
    EXPECT_EQ(erase(0, 262144), 0U);
    EXPECT_EQ(card->content(), before);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 0, 131072, 50}, report{0, 131072, 0, 100}));
}

TEST_F(SmallCard, AnErasePastTheEndFails) {
    EXPECT_EQ(erase(1 * MiB - 131072, 262144), errno_status(ENOSPC));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 1 * MiB - 131072, 131072, 50}));
}

TEST_F(EmmcFlash, AnEraseThatReaches4GiBIsOutOfRangeAndDoesNotWrapAround) {
    open(5 * GiB);
    card->fill(0, ones(512));
    EXPECT_EQ(erase(0xFFFC0000, 0x80000), NORV_STATUS_RANGE);
    EXPECT_EQ(card->content(0, 512), ones(512));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{0xFFFC0000, 131072}));
}

TEST_F(SmallCard, WithoutCallbacksAnEraseRunsToItsEnd) {
    EXPECT_EQ(norv_linux_emmc_flash_continue_erase(&flash, 0, 262144, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(card->content(), before_with(0, zeros(262144)));
}

// ---- continue read

TEST_F(SmallCard, ReadingOneMiBUsesChunksOf131072Bytes) {
    std::string bytes(1 * MiB, '-');
    uint32_t length = 1 * MiB;
    EXPECT_EQ(read(0, bytes, length), 0U);
    EXPECT_EQ(length, 1 * MiB);
    EXPECT_EQ(bytes, before);
    ASSERT_THAT(transfers("pread"), SizeIs(8));
    EXPECT_EQ(transfers("pread")[7], (transfer{7 * 131072, 131072}));
}

TEST_F(SmallCard, AReadGoesFromChunkBorderToChunkBorder) {
    std::string bytes(300000, '-');
    uint32_t length = 300000;
    EXPECT_EQ(read(100001, bytes, length), 0U);
    EXPECT_EQ(bytes, before.substr(100001, 300000));
    EXPECT_THAT(transfers("pread"), ElementsAre(transfer{100001, 31071}, transfer{131072, 131072},
                                                transfer{262144, 131072}, transfer{393216, 6785}));
}

TEST_F(SmallCard, EachChunkThatIsReadIsReported) {
    std::string bytes(300000, '-');
    uint32_t length = 300000;
    EXPECT_EQ(read(100001, bytes, length), 0U);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 100001, 268929, 10}, report{0, 131072, 137857, 54},
                                              report{0, 262144, 6785, 97}, report{0, 393216, 0, 100}));
}

TEST_F(SmallCard, AShortLengthIsReadInChunksOf16384Bytes) {
    std::string bytes(1000, '-');
    uint32_t length = 1000;
    EXPECT_EQ(read(16384 - 10, bytes, length), 0U);
    EXPECT_EQ(bytes, before.substr(16384 - 10, 1000));
    EXPECT_THAT(transfers("pread"), ElementsAre(transfer{16374, 10}, transfer{16384, 990}));
}

TEST_F(SmallCard, AChunkSizeThatIsNotAPowerOfTwoUsesTheSameBorderMask) {
    // 0xC000 - (0xBFFF & 0x8000) is 0x4000, at 0x8000 as well as at 0xC000.
    std::string bytes(49152 + 100, '-');
    uint32_t length = 49152 + 100;
    EXPECT_EQ(read(0x8000, bytes, length), 0U);
    EXPECT_EQ(bytes, before.substr(0x8000, 49152 + 100));
    EXPECT_THAT(transfers("pread"),
                ElementsAre(transfer{0x8000, 0x4000}, transfer{0xC000, 0x4000}, transfer{0x10000, 0x4064}));
}

TEST_F(SmallCard, ReadingNothingMakesNoCallAndNoCallback) {
    uint32_t length = 0;
    EXPECT_EQ(norv_linux_emmc_flash_continue_read(&flash, 0, nullptr, &length, observer::cancel,
                                                  observer::progress, &watching),
              0U);
    EXPECT_EQ(watching.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, ACancelledReadLeavesTheLengthUnchanged) {
    for (const uint32_t chunks : {0U, 1U, 2U}) {
        watching = {.stop_at = chunks};
        std::string bytes(3 * 131072, '-');
        uint32_t length = 3 * 131072;
        EXPECT_EQ(read(0, bytes, length), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(length, 3 * 131072U);
        EXPECT_THAT(watching.reports, SizeIs(chunks));
    }
}

TEST_F(SmallCard, AFailedReadReportsTheBytesReadBefore) {
    std::string bytes(3 * 131072, '-');
    uint32_t length = 3 * 131072;
    kernel.fail({.call = "pread", .offset = 262144, .error = EIO});
    EXPECT_EQ(read(0, bytes, length), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(length, 262144U);
    EXPECT_EQ(bytes, before.substr(0, 262144) + std::string(131072, '-'));
}

TEST_F(SmallCard, ShortReadsAreContinued) {
    card->most_per_read = 1000;
    std::string bytes(2500, '-');
    uint32_t length = 2500;
    EXPECT_EQ(read(7, bytes, length), 0U);
    EXPECT_EQ(bytes, before.substr(7, 2500));
    EXPECT_THAT(watching.reports,
                ElementsAre(report{0, 7, 1500, 40}, report{0, 1007, 500, 80}, report{0, 2007, 0, 100}));
}

TEST_F(SmallCard, AReadAcrossTheEndIsOutOfRangeAndReportsTheBytesRead) {
    std::string bytes(1000, '-');
    uint32_t length = 1000;
    EXPECT_EQ(read(1 * MiB - 600, bytes, length), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 600U);
    EXPECT_EQ(bytes, before.substr(1 * MiB - 600) + std::string(400, '-'));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 1 * MiB - 600, 400, 60}));
}

TEST_F(EmmcFlash, AReadAcross4GiBIsOutOfRangeAndDoesNotWrapAround) {
    open(5 * GiB);
    std::string bytes(2 * 131072, '-');
    uint32_t length = 2 * 131072;
    EXPECT_EQ(read(0xFFFE0000, bytes, length), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 131072U);
    EXPECT_THAT(transfers("pread"), ElementsAre(transfer{0xFFFE0000, 131072}));
}

TEST_F(SmallCard, AFailedReadWhoseErrnoMapsToZeroCountsAsRead) {
    kernel.map_errno(EIO, 0);
    kernel.fail("pread", EIO);
    std::string bytes(1000, '-');
    uint32_t length = 1000;
    EXPECT_EQ(read(0, bytes, length), 0U);
    EXPECT_EQ(length, 1000U);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 0, 0, 100}));
}

TEST_F(SmallCard, WithoutCallbacksAReadRunsToItsEnd) {
    std::string bytes(262144, '-');
    uint32_t length = 262144;
    EXPECT_EQ(
        norv_linux_emmc_flash_continue_read(&flash, 0, bytes.data(), &length, nullptr, nullptr, nullptr), 0U);
    EXPECT_EQ(bytes, before.substr(0, 262144));
}

// ---- continue write with verification

TEST_F(SmallCard, WhatIsWrittenIsReadBackChunkByChunk) {
    const std::string image = pattern(262144, 2);
    uint32_t length = 262144;
    EXPECT_EQ(write(131072, 0, image, length), 0U);
    EXPECT_EQ(length, 262144U);
    EXPECT_EQ(card->content(), before_with(131072, image));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{131072, 131072}, transfer{262144, 131072}));
    EXPECT_THAT(transfers("pread"), ElementsAre(transfer{131072, 131072}, transfer{262144, 131072}));
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(SmallCard, AWriteGoesFromBorderToBorderAndPadsTheLastChunk) {
    const std::string image = pattern(300000, 2);
    uint32_t length = 300000;
    EXPECT_EQ(write(65536, 0, image, length), 0U);
    EXPECT_THAT(transfers("pwrite"),
                ElementsAre(transfer{65536, 65536}, transfer{131072, 131072}, transfer{262144, 131072}));
    EXPECT_THAT(transfers("pread"),
                ElementsAre(transfer{65536, 65536}, transfer{131072, 131072}, transfer{262144, 103392}));
    EXPECT_EQ(card->content(), before_with(65536, image + ones(131072 - 103392)));
}

TEST_F(SmallCard, EachVerifiedChunkIsReported) {
    const std::string image = pattern(300000, 2);
    uint32_t length = 300000;
    EXPECT_EQ(write(65536, 0, image, length), 0U);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 65536, 234464, 21}, report{0, 131072, 103392, 65},
                                              report{0, 262144, 0, 100}));
    EXPECT_EQ(watching.cancel_calls, 3U);
}

TEST_F(SmallCard, TenBytesAreWrittenAsAChunkOf16384AndOnlyTheTenAreReadBack) {
    uint32_t length = 10;
    EXPECT_EQ(write(512, 0, "0123456789", length), 0U);
    EXPECT_EQ(card->content(), before_with(512, "0123456789" + ones(16374)));
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{512, 16384}));
    EXPECT_THAT(transfers("pread"), ElementsAre(transfer{512, 10}));
}

// quirk 148
TEST_F(SmallCard, ThePaddingMayExtendPastTheChunkBorder) {
    uint32_t length = 10;
    EXPECT_EQ(write(16384 - 512, 0, "0123456789", length), 0U);
    EXPECT_EQ(card->content(), before_with(16384 - 512, "0123456789" + ones(16374)));
}

// quirk 149
TEST_F(SmallCard, AChunkSizeThatIsNotAPowerOfTwoUsesTheSamePaddingMask) {
    // Chunk and pad are 20480, 0x5000.
    const std::string image = pattern(20481, 2);
    uint32_t length = 20481;
    EXPECT_EQ(write(0, 0, image, length), 0U);
    // One byte is left: (1 + 0x4FFF) & -0x5000 is 0x1000.
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{0, 0x5000}, transfer{0x5000, 0x1000}));
    EXPECT_EQ(card->content(), before_with(0, image + ones(4095)));
}

// quirk 149
TEST_F(SmallCard, ALastWriteOfNearlyTwoChunksIsPaddedAndVerified) {
    // Chunk and pad are 89088, 0x15C00. The last 0x15400 bytes, at 0x20000, make a write of
    // (0x15400 + 0x15BFF) & -0x15C00, which is 0x2A400.
    const std::string image = pattern(89088, 2);
    uint32_t length = 89088;
    EXPECT_EQ(write(0x1F800, 0, image, length), 0U);
    EXPECT_THAT(transfers("pwrite"),
                ElementsAre(transfer{0x1F800, 0x400}, transfer{0x1FC00, 0x400}, transfer{0x20000, 0x2A400}));
    EXPECT_EQ(card->content(), before_with(0x1F800, image + ones(0x2A400 - 0x15400)));
}

TEST_F(SmallCard, TheSkipCountsUnitsBeforeTheFirstByte) {
    const std::string image = pattern(16384, 2);
    uint32_t length = 16384;
    EXPECT_EQ(write(16384, 32768, image, length), 0U);
    EXPECT_EQ(card->content(), before_with(49152, image));
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 49152, 0, 100}));
}

TEST_F(SmallCard, AMisalignedAddressOrSkipIsOutOfRange) {
    uint32_t length = 10;
    EXPECT_EQ(write(1, 0, "0123456789", length), NORV_STATUS_RANGE);
    EXPECT_EQ(write(0, 256, "0123456789", length), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 10U);
    EXPECT_EQ(watching.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(SmallCard, WithoutMemoryNothingIsWrittenAndTheLengthIsUnchanged) {
    uint32_t length = 10;
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(write(0, 0, "0123456789", length), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(length, 10U);
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

TEST_F(SmallCard, WritingNothingMakesNoCallAndNoCallback) {
    uint32_t length = 0;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&flash, 512, 512, nullptr, &length,
                                                          observer::cancel, observer::progress, &watching),
              0U);
    EXPECT_EQ(watching.cancel_calls, 0U);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(kernel.allocations(), 1U);
}

// quirk 154
TEST_F(SmallCard, WritingNothingNeedsTheMemoryNevertheless) {
    uint32_t length = 0;
    kernel.fail("norv_malloc", ENOMEM);
    EXPECT_EQ(write(0, 0, "", length), NORV_STATUS_NO_MEMORY);
}

// quirk 153
TEST_F(SmallCard, ACancelledWriteLeavesTheLengthUnchanged) {
    const std::string image = pattern(3 * 131072, 2);
    for (const uint32_t chunks : {0U, 1U, 2U}) {
        watching = {.stop_at = chunks};
        card->fill(0, before);
        uint32_t length = 3 * 131072;
        EXPECT_EQ(write(0, 0, image, length), NORV_STATUS_TIMEOUT);
        EXPECT_EQ(length, 3 * 131072U);
        EXPECT_THAT(watching.reports, SizeIs(chunks));
        EXPECT_EQ(card->content(), before_with(0, image.substr(0, chunks * 131072)));
    }
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(SmallCard, ACancelledWriteCanContinueAfterItsLastReport) {
    const std::string image = pattern(4 * 131072, 2);
    uint32_t done = 0;
    for (uint32_t attempt = 0; attempt < 3; ++attempt) {
        watching = {.stop_at = 1};
        uint32_t length = 4 * 131072 - done;
        EXPECT_EQ(write(0, done, image.substr(done), length), NORV_STATUS_TIMEOUT);
        done += length - watching.reports.back().remaining;
    }
    watching = {};
    uint32_t length = 4 * 131072 - done;
    EXPECT_EQ(length, 131072U);
    EXPECT_EQ(write(0, done, image.substr(done), length), 0U);
    EXPECT_EQ(card->content(), before_with(0, image));
}

TEST_F(SmallCard, AFlippedBitIsDetectedAndTheLengthIsTheVerifiedBytes) {
    const std::string image = pattern(3 * 131072, 2);
    for (const off_t place : {off_t{131072}, off_t{200000}, off_t{262143}}) {
        card->flipped = place;
        uint32_t length = 3 * 131072;
        EXPECT_EQ(write(0, 0, image, length), NORV_STATUS_VERIFY_FAILED);
        EXPECT_EQ(length, 131072U);
    }
    EXPECT_EQ(kernel.allocations(), 1U);
}

// quirk 148
TEST_F(SmallCard, AFlippedBitInThePaddingIsIgnored) {
    card->flipped = 10;
    uint32_t length = 10;
    EXPECT_EQ(write(0, 0, "0123456789", length), 0U);
}

TEST_F(SmallCard, AFailedWriteOrReadBackReportsTheVerifiedBytes) {
    const std::string image = pattern(3 * 131072, 2);
    for (const char* call : {"pwrite", "pread"}) {
        kernel.fail({.call = call, .offset = 262144, .error = EIO});
        uint32_t length = 3 * 131072;
        EXPECT_EQ(write(0, 0, image, length), NORV_STATUS_DEVICE_ERROR);
        EXPECT_EQ(length, 262144U);
    }
    EXPECT_EQ(kernel.allocations(), 1U);
}

TEST_F(SmallCard, MoreReadBackThanWasWrittenFailsTheVerification) {
    card->most_per_write = 1000;
    const std::string image = pattern(16384, 2);
    card->fill(0, image);  // so that the bytes match
    uint32_t length = 16384;
    EXPECT_EQ(write(0, 0, image, length), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0U);
}

TEST_F(SmallCard, AWriteThatStoresNothingFailsTheVerification) {
    card->most_per_write = 0;
    const std::string image = pattern(16384, 2);
    card->fill(0, image);
    uint32_t length = 16384;
    EXPECT_EQ(write(0, 0, image, length), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0U);
}

// quirk 152
TEST_F(SmallCard, AShortReadBackThatMatchesIsContinued) {
    card->most_per_read = 12000;
    const std::string image = pattern(16384, 2);
    uint32_t length = 16384;
    EXPECT_EQ(write(0, 0, image, length), 0U);
    EXPECT_THAT(watching.reports, ElementsAre(report{0, 0, 4384, 73}, report{0, 12000, 0, 100}));
    EXPECT_EQ(card->content().substr(0, 16384), image);
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{0, 16384}, transfer{12000, 4384}));
}

TEST_F(SmallCard, NothingReadBackFailsTheVerification) {
    card->most_per_read = 0;
    uint32_t length = 10;
    EXPECT_EQ(write(0, 0, "0123456789", length), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 0U);
    EXPECT_THAT(kernel.calls("pwrite"), SizeIs(1));
}

TEST_F(SmallCard, AWriteAcrossTheEndReportsTheVerifiedBytes) {
    const std::string image = pattern(131072, 2);
    uint32_t length = 131072;
    EXPECT_EQ(write(1 * MiB - 65536, 0, image, length), errno_status(ENOSPC));
    EXPECT_EQ(length, 65536U);
    EXPECT_EQ(card->content(), before_with(1 * MiB - 65536, image.substr(0, 65536)));
}

TEST_F(SmallCard, PaddingPastTheEndOfTheDeviceIsNotAFailure) {
    uint32_t length = 10;
    EXPECT_EQ(write(1 * MiB - 512, 0, "0123456789", length), 0U);
    EXPECT_EQ(card->content(), before_with(1 * MiB - 512, "0123456789" + ones(502)));
}

TEST_F(EmmcFlash, AWriteAcross4GiBIsOutOfRangeAndDoesNotWrapAround) {
    open(5 * GiB);
    const std::string image = pattern(2 * 131072, 2);
    uint32_t length = 2 * 131072;
    EXPECT_EQ(write(0xFFFE0000, 0, image, length), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 131072U);
    EXPECT_EQ(card->content(0xFFFE0000, 131072), image.substr(0, 131072));
    EXPECT_EQ(card->content(0, 131072), zeros(131072));
}

TEST_F(EmmcFlash, ASkipAcross4GiBIsOutOfRangeAndDoesNotWrapAround) {
    open(5 * GiB);
    uint32_t length = 10;
    EXPECT_EQ(write(0xFFFFFE00, 0x400, "0123456789", length), NORV_STATUS_RANGE);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(watching.cancel_calls, 1U);
    EXPECT_THAT(kernel.calls("pwrite"), IsEmpty());
}

TEST_F(SmallCard, AFailedWriteWhoseErrnoMapsToZeroFailsTheVerification) {
    kernel.map_errno(EIO, 0);
    kernel.fail("pwrite", EIO);
    uint32_t length = 10;
    EXPECT_EQ(write(0, 0, "0123456789", length), NORV_STATUS_VERIFY_FAILED);
}

TEST_F(SmallCard, AFailedReadBackIsNeverComparedWithTheDataItself) {
    // Nothing is read back of the last bytes: what was read back before differs from them and their padding.
    kernel.map_errno(EIO, 0);
    kernel.fail({.call = "pread", .nth = 2, .error = EIO});
    const std::string image = zeros(131072) + ones(10);
    uint32_t length = 131082;
    EXPECT_EQ(write(0, 0, image, length), NORV_STATUS_VERIFY_FAILED);
    EXPECT_EQ(length, 131072U);
}

TEST_F(SmallCard, WithoutCallbacksAWriteRunsToItsEnd) {
    const std::string image = pattern(262144, 2);
    uint32_t length = 262144;
    EXPECT_EQ(norv_linux_emmc_flash_continue_write_verify(&flash, 0, 0, image.data(), &length, nullptr,
                                                          nullptr, nullptr),
              0U);
    EXPECT_EQ(card->content(), before_with(0, image));
}

// ---- block sizes that are not powers of two

TEST_F(EmmcFlash, ABlockSizeOfZeroAllowsOnlyAddress0AndDividesByNothing) {
    open(1 * MiB, 0);
    uint32_t end = 0;
    uint32_t length = 10;
    EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(&flash, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 0, &end), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(erase(0, 512), NORV_STATUS_RANGE);
    EXPECT_EQ(erase(512, 512), NORV_STATUS_RANGE);
    EXPECT_EQ(write(512, 0, "0123456789", length), NORV_STATUS_RANGE);
    EXPECT_EQ(write(0, 512, "0123456789", length), NORV_STATUS_RANGE);
    EXPECT_EQ(card->content(), before);
    EXPECT_EQ(write(0, 0, "0123456789", length), 0U);
    EXPECT_EQ(card->content(), before_with(0, "0123456789" + ones(16374)));
}

TEST_F(EmmcFlash, ASkipBelowAUnitThatIsNotAPowerOfTwoSkipsNothing) {
    // 0x200 passes the mask of 0x600, but is less than a unit; 0x800 is one unit and a part.
    open(1 * MiB, 1536);
    uint32_t length = 10;
    EXPECT_EQ(write(0, 0x200, "0123456789", length), 0U);
    EXPECT_EQ(card->content(), before_with(0, "0123456789" + ones(16374)));
    EXPECT_EQ(write(0x8000, 0x800, "0123456789", length), 0U);
    EXPECT_EQ(card->content(0x8000 + 0x600, 10), "0123456789");
}

// quirk 149
TEST_F(EmmcFlash, ABlockSizeThatIsNotAPowerOfTwoUsesTheSameMasks) {
    // 1536 is 0x600, and its mask 0xFFFFFA00: the multiples are the addresses without the bits 0x5FF.
    open(1 * MiB, 1536);
    uint32_t end = 0xA00;
    EXPECT_EQ(norv_linux_emmc_flash_erase_one_block(&flash, 0x600), NORV_STATUS_RANGE);
    EXPECT_EQ(norv_linux_emmc_flash_erase_first_valid_block(&flash, 0x200, &end), 0U);
    // (0xA00 - 1 - 0x200 + 0x600) & -0x600 is 0x800.
    EXPECT_THAT(transfers("pwrite"), ElementsAre(transfer{0x200, 0x800}));
    EXPECT_EQ(end, 0xA00U);
    EXPECT_EQ(card->content(), before_with(0x200, zeros(0x800)));
}

}  // namespace
