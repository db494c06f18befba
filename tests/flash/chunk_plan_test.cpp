// SPDX-License-Identifier: MIT
// The chunks of an eMMC as tables: their size, their borders, and what is written of the data. No device
// takes part.
#include "flash/chunk_plan.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <tuple>

namespace norv {

bool operator==(const chunk_write& one, const chunk_write& other) {
    return std::tie(one.count, one.size, one.is_padded) == std::tie(other.count, other.size, other.is_padded);
}

void PrintTo(const chunk_write& write, std::ostream* out) {
    *out << "{count 0x" << std::hex << write.count << ", size 0x" << write.size << std::dec
         << (write.is_padded ? ", padded}" : "}");
}

}  // namespace norv

namespace {

using norv::chunk_size;
using norv::chunk_write;
using norv::plan_chunk_write;
using norv::room_in_chunk;

chunk_write whole(uint32_t count) {
    return {count, count, false};
}

chunk_write padded(uint32_t count, uint32_t size) {
    return {count, size, true};
}

TEST(ChunkPlan, AChunkHas16To128KiB) {
    struct row {
        uint32_t wanted;
        uint32_t size;
    };
    constexpr row rows[] = {{0, 16384},       {512, 16384},     {16383, 16384},
                            {16384, 16384},   {16385, 16385},   {131071, 131071},
                            {131072, 131072}, {131073, 131072}, {0xFFFFFFFF, 131072}};
    for (const row& each : rows) {
        EXPECT_EQ(chunk_size(each.wanted), each.size) << each.wanted;
    }
}

TEST(ChunkPlan, TheRoomEndsAtTheNextBorder) {
    EXPECT_EQ(room_in_chunk(0, 0x4000), 0x4000U);
    EXPECT_EQ(room_in_chunk(1, 0x4000), 0x3FFFU);
    EXPECT_EQ(room_in_chunk(0x3FFF, 0x4000), 1U);
    EXPECT_EQ(room_in_chunk(0x4000, 0x4000), 0x4000U);
    EXPECT_EQ(room_in_chunk(0xFFFFFFFF, 0x4000), 1U);
    EXPECT_EQ(room_in_chunk(0x100000000, 0x4000), 0x4000U);
}

TEST(ChunkPlan, DataThatReachesTheBorderIsWrittenUpToThere) {
    for (const uint32_t remaining : {0x4000U, 0x4001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(plan_chunk_write(0, remaining, 0x4000), whole(0x4000));
        EXPECT_EQ(plan_chunk_write(0x3000, remaining, 0x4000), whole(0x1000));
        EXPECT_EQ(plan_chunk_write(0xFFFFFFFF, remaining, 0x4000), whole(1));
    }
}

// quirk 148
TEST(ChunkPlan, DataThatEndsBeforeTheBorderIsPaddedToAWholeChunk) {
    EXPECT_EQ(plan_chunk_write(0, 1, 0x4000), padded(1, 0x4000));
    EXPECT_EQ(plan_chunk_write(0, 0x3FFF, 0x4000), padded(0x3FFF, 0x4000));
    EXPECT_EQ(plan_chunk_write(0x3E00, 1, 0x4000), padded(1, 0x4000)) << "past the border";
    EXPECT_EQ(plan_chunk_write(0x3E00, 0x1FF, 0x4000), padded(0x1FF, 0x4000)) << "past the border";
    EXPECT_EQ(plan_chunk_write(0x3E00, 0x200, 0x4000), whole(0x200));
}

// quirk 149
TEST(ChunkPlan, OtherSizesThanPowersOfTwoUseTheSameMasks) {
    EXPECT_EQ(room_in_chunk(0x8000, 0xC000), 0x4000U);
    EXPECT_EQ(plan_chunk_write(0, 0x5001, 0x5000), whole(0x5000));
    EXPECT_EQ(plan_chunk_write(0x5000, 1, 0x5000), padded(1, 0x1000));
    EXPECT_EQ(plan_chunk_write(0x1F800, 0x15C00, 0x15C00), whole(0x400));
    EXPECT_EQ(plan_chunk_write(0x20000, 0x15400, 0x15C00), padded(0x15400, 0x2A400));
}

// quirk 149
TEST(ChunkPlan, PaddedDataIsNeverShorterThanTheDataAndFitsIntoTwoChunks) {
    for (uint32_t chunk = 16384; chunk <= 131072; chunk += 512) {
        for (uint32_t address = 0; address < 2 * chunk; address += 8192) {
            const uint32_t room = room_in_chunk(address, chunk);
            ASSERT_GE(room, 1U);
            ASSERT_LE(room, chunk);
            for (const uint32_t remaining : {1U, room / 2 + 1, room - 1}) {
                const chunk_write planned = plan_chunk_write(address, remaining, chunk);
                ASSERT_EQ(planned.count, std::min(remaining, room)) << chunk << ", " << address;
                ASSERT_GE(planned.size, planned.count) << chunk << ", " << address;
                ASSERT_LT(planned.size, 2 * chunk) << chunk << ", " << address;
            }
        }
    }
}

}  // namespace
