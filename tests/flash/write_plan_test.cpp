// SPDX-License-Identifier: MIT
// What a write with verification does next, as a table: its state, the place, what is known of the block, and
// the step. No device takes part.
#include "flash/write_plan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mtd/mtd-user.h>

#include <ostream>
#include <tuple>
#include <vector>

namespace norv {

bool operator==(const write_step& one, const write_step& other) {
    return std::tie(one.action, one.status, one.advance, one.count, one.size) ==
           std::tie(other.action, other.status, other.advance, other.count, other.size);
}

void PrintTo(const write_step& step, std::ostream* out) {
    *out << "{action " << static_cast<int>(step.action) << ", status " << step.status << ", advance 0x"
         << std::hex << step.advance << ", count 0x" << step.count << ", size 0x" << step.size << std::dec
         << "}";
}

}  // namespace norv

namespace {

using norv::block_health;
using norv::flash_place;
using norv::plan_write;
using norv::write_action;
using norv::write_state;
using norv::write_step;
using testing::ElementsAre;

constexpr uint32_t failure = 1234;  // a status of a query

// A partition of four blocks of 4 KiB.
norv_spi_flash_region_t region(uint64_t base, uint8_t type, uint32_t write_size) {
    return {base, {-1, {type, MTD_WRITEABLE, 0x4000, 0x1000, write_size, 0, 0}}};
}

const norv_spi_flash_region_t nand = region(0, MTD_NANDFLASH, 0x100);
const norv_spi_flash_region_t nor = region(0x4000, MTD_NORFLASH, 1);

// Both, as one flash.
flash_place place_of(uint64_t address) {
    const norv_spi_flash_region_t* of_address = address < 0x4000 ? &nand : &nor;
    return {address < 0x8000 ? of_address : nullptr, address};
}

// The plan for a write that nothing limits.
write_step plan(uint64_t address, uint32_t remaining, block_health health = block_health::good,
                uint32_t to_skip = 0, uint32_t query_status = 0) {
    return plan_write({address, remaining, 0x8000, to_skip, query_status}, place_of(address), health);
}

write_step end_with(write_action action, uint32_t status) {
    return {action, status, 0, 0, 0};
}

write_step skip(uint32_t advance, uint32_t count) {
    return {write_action::skip, 0, advance, count, 0};
}

write_step whole(uint32_t count) {
    return {write_action::write, 0, count, count, count};
}

write_step padded(uint32_t advance, uint32_t count, uint32_t size) {
    return {write_action::write_padded, 0, advance, count, size};
}

const write_step query = {write_action::query, 0, 0, 0, 0};

// ---- data

TEST(WritePlan, DataThatReachesTheEndOfTheBlockIsWrittenUpToThere) {
    for (const uint32_t remaining : {0x1000U, 0x1001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(plan(0, remaining), whole(0x1000)) << "the first block, " << remaining;
        EXPECT_EQ(plan(0x3000, remaining), whole(0x1000)) << "the last block, " << remaining;
        EXPECT_EQ(plan(0x1F00, remaining), whole(0x100)) << "the last write unit, " << remaining;
        EXPECT_EQ(plan(0x4000, remaining), whole(0x1000)) << "the next region, " << remaining;
        EXPECT_EQ(plan(0x7FFF, remaining), whole(1)) << "the last byte, " << remaining;
    }
}

TEST(WritePlan, DataThatEndsInTheBlockIsPaddedToAWriteUnit) {
    struct row {
        uint32_t remaining;
        uint32_t size;
    };
    for (const row& each : {row{1, 0x100}, {0xFF, 0x100}, {0x100, 0x100}, {0x101, 0x200}, {0xFFF, 0x1000}}) {
        EXPECT_EQ(plan(0x2000, each.remaining), padded(0x1000, each.remaining, each.size));
    }
    EXPECT_EQ(plan(0x1E00, 0x101), padded(0x200, 0x101, 0x200));
    EXPECT_EQ(plan(0x1E00, 0x1FF), padded(0x200, 0x1FF, 0x200));
    EXPECT_EQ(plan(0x1E00, 0x200), whole(0x200));
}

TEST(WritePlan, WriteUnitsOfOneByteNeedNoPadding) {
    EXPECT_EQ(plan(0x4001, 0xFFE), padded(0xFFF, 0xFFE, 0xFFE));
    EXPECT_EQ(plan(0x4001, 0xFFF), whole(0xFFF));
}

// ---- bad blocks and the skip

TEST(WritePlan, ANandBlockIsQueriedBeforeAnythingElse) {
    EXPECT_EQ(plan(0, 0x1000, block_health::unknown), query);
    EXPECT_EQ(plan(0x3F00, 1, block_health::unknown, 0x100), query);
}

TEST(WritePlan, ANorBlockIsNotQueried) {
    EXPECT_EQ(plan(0x4000, 0x1000, block_health::unknown), whole(0x1000));
    EXPECT_EQ(plan(0x4000, 0x1000, block_health::unknown, 2), skip(1, 1));
}

TEST(WritePlan, ABadBlockIsSkippedToItsEndAndNotCounted) {
    EXPECT_EQ(plan(0, 0x1000, block_health::bad), skip(0x1000, 0));
    EXPECT_EQ(plan(0x3000, 1, block_health::bad, 0x300), skip(0x1000, 0));
    EXPECT_EQ(plan(0x1300, 1, block_health::bad), skip(0xD00, 0));
}

TEST(WritePlan, TheSkipIsSpentInWriteUnitsOfGoodBlocks) {
    EXPECT_EQ(plan(0, 1, block_health::good, 0x300), skip(0x100, 0x100));
    EXPECT_EQ(plan(0x3F00, 1, block_health::good, 0x100), skip(0x100, 0x100));
    EXPECT_EQ(plan(0, 1, block_health::good, 1), skip(0x100, 1)) << "less than a unit";
    EXPECT_EQ(plan(0x4000, 1, block_health::good, 0x300), skip(1, 1));
}

// ---- a failed query

// quirk 142
TEST(WritePlan, AFailedQueryEndsTheWriteOnlyAfterTheSkip) {
    EXPECT_EQ(plan(0, 1, block_health::unknown, 0x100, failure), skip(0x100, 0x100));
    EXPECT_EQ(plan(0, 1, block_health::unknown, 0, failure), end_with(write_action::fail, failure));
}

TEST(WritePlan, NoBlockIsQueriedOrWrittenAfterAFailedQuery) {
    for (const uint64_t address : {0U, 0x3F00U, 0x4000U, 0x7FFFU}) {
        EXPECT_EQ(plan(address, 0x1000, block_health::unknown, 0, failure),
                  end_with(write_action::fail, failure));
    }
}

// ---- the ends

// quirk 141
TEST(WritePlan, TheEndIsComparedWithTheStartAlone) {
    const auto plan_to = [](uint32_t end) {
        return plan_write({0x1000, 0x1000, end, 0, 0}, place_of(0x1000), block_health::good);
    };
    EXPECT_EQ(plan_to(0x1001), whole(0x1000));
    EXPECT_EQ(plan_to(0x1000), end_with(write_action::stop, NORV_STATUS_EXHAUSTED));
    EXPECT_EQ(plan_to(0xFFF), end_with(write_action::stop, NORV_STATUS_EXHAUSTED));
    EXPECT_EQ(plan_to(0), end_with(write_action::stop, NORV_STATUS_EXHAUSTED));
}

TEST(WritePlan, AtTheEndNothingElseMatters) {
    for (const uint64_t address : {uint64_t{0x80}, uint64_t{0x8000}, uint64_t{0x100000000}}) {
        const auto end = static_cast<uint32_t>(address);
        EXPECT_EQ(plan_write({address, 1, end, 0x100, failure}, place_of(address), block_health::bad),
                  end_with(write_action::stop, NORV_STATUS_EXHAUSTED))
            << address;
    }
}

TEST(WritePlan, AnAddressOutsideTheFlashIsOutOfRange) {
    EXPECT_EQ(plan_write({0x8000, 1, 0x8001, 0, 0}, place_of(0x8000), block_health::unknown),
              end_with(write_action::fail, NORV_STATUS_RANGE));
}

// quirk 140
TEST(WritePlan, AMisalignedAddressIsOutOfRangeAndLeaks) {
    const write_step leaking = end_with(write_action::fail_leaking, NORV_STATUS_RANGE);
    for (const uint64_t address : {1U, 0x80U, 0xFFFU, 0x3FFFU}) {
        EXPECT_EQ(plan(address, 1, block_health::unknown, 0x100, failure), leaking) << address;
    }
    EXPECT_EQ(plan(0x4001, 1), padded(0xFFF, 1, 1)) << "every byte of the other region starts a unit";
}

TEST(WritePlan, ARegionWithoutAWriteSizeHasNoAlignedAddress) {
    const norv_spi_flash_region_t unwritable = region(0, MTD_NORFLASH, 0);
    EXPECT_EQ(plan_write({0, 1, 0x1000, 0, 0}, {&unwritable, 0}, block_health::unknown),
              end_with(write_action::fail_leaking, NORV_STATUS_RANGE));
}

TEST(WritePlan, TheAlignmentIsThatOfTheOffsetInTheRegion) {
    const norv_spi_flash_region_t shifted = region(0x80, MTD_NANDFLASH, 0x100);
    EXPECT_EQ(plan_write({0x1080, 0x1000, 0x8000, 0, 0}, {&shifted, 0x1080}, block_health::good),
              whole(0x1000));
    EXPECT_EQ(plan_write({0x1100, 0x1000, 0x8000, 0, 0}, {&shifted, 0x1100}, block_health::good),
              end_with(write_action::fail_leaking, NORV_STATUS_RANGE));
}

// ---- a whole write

// The steps of a write on blocks of this health, up to the one that ends it.
std::vector<write_step> steps_of(write_state state, const std::vector<block_health>& blocks) {
    std::vector<write_step> steps;
    while (state.remaining > 0 && (steps.empty() || steps.back().status == 0)) {
        const block_health health = blocks.at(static_cast<size_t>(state.address / 0x1000));
        const write_step step = plan_write(state, place_of(state.address), health);
        (step.action == write_action::skip ? state.to_skip : state.remaining) -= step.count;
        state.address += step.advance;
        steps.push_back(step);
    }
    return steps;
}

TEST(WritePlan, AWriteGoesAroundBadBlocksFromRegionToRegion) {
    constexpr auto good = block_health::good;
    constexpr auto bad = block_health::bad;
    const std::vector<block_health> blocks = {good, bad, bad, good, good, good, good, good};
    EXPECT_THAT(steps_of({0xE00, 0x1234, 0x8000, 0x100, 0}, blocks),
                ElementsAre(skip(0x100, 0x100), whole(0x100), skip(0x1000, 0), skip(0x1000, 0), whole(0x1000),
                            padded(0x1000, 0x134, 0x134)));
}

TEST(WritePlan, AWriteStopsWhereTheGoodSpaceEnds) {
    const std::vector<block_health> blocks = {block_health::good, block_health::bad, block_health::good};
    EXPECT_THAT(
        steps_of({0, 0x2000, 0x2000, 0, 0}, blocks),
        ElementsAre(whole(0x1000), skip(0x1000, 0), end_with(write_action::stop, NORV_STATUS_EXHAUSTED)));
}

}  // namespace
