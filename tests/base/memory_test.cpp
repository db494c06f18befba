// SPDX-License-Identifier: MIT
// Memory and strings of the base library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

#include "norv_base.h"

// The sanitizers end a program that allocates too much, unless their options make them return null as the C library
// does.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

TEST(Memory, ZeroFilledMemoryIsZero) {
    auto* memory = static_cast<unsigned char*>(norv_zalloc(64));
    ASSERT_NE(memory, nullptr);
    EXPECT_THAT(std::string_view(reinterpret_cast<char*>(memory), 64), testing::Each('\0'));
    norv_free(memory);
}

TEST(Memory, AllocatedMemoryHoldsWhatIsWritten) {
    auto* memory = static_cast<unsigned char*>(norv_malloc(16));
    ASSERT_NE(memory, nullptr);
    norv_memset(memory, 0x5A, 16);
    EXPECT_THAT(std::string_view(reinterpret_cast<char*>(memory), 16), testing::Each('\x5A'));
    norv_free(memory);
}

TEST(Memory, AFailedAllocationReturnsNull) {
    EXPECT_EQ(norv_malloc(SIZE_MAX), nullptr);
    EXPECT_EQ(norv_zalloc(SIZE_MAX), nullptr);
}

TEST(Memory, FreeingNullIsAllowed) {
    norv_free(nullptr);
}

TEST(Memory, CopiesAndCompares) {
    char copy[6] = {};
    norv_memcpy(copy, "board", 6);
    EXPECT_STREQ(copy, "board");
    EXPECT_EQ(norv_memcmp(copy, "board", 6), 0);
    EXPECT_LT(norv_memcmp("a", "b", 1), 0);
}

TEST(Strings, MeasureCompareAndSearch) {
    EXPECT_EQ(norv_strlen("gpio"), 4U);
    EXPECT_EQ(norv_strncmp("gpio17", "gpio18", 5), 0);
    EXPECT_LT(norv_strncmp("gpio17", "gpio18", 6), 0);
    EXPECT_STREQ(norv_strstr("uio_pci", "pci"), "pci");
    EXPECT_EQ(norv_strstr("uio", "pci"), nullptr);
}

TEST(Strings, CopyPadsWithZerosAndMayLeaveOutTheNul) {
    char wide[5] = {'x', 'x', 'x', 'x', 'x'};
    norv_strncpy(wide, "ab", 5);
    EXPECT_EQ(std::string_view(wide, 5), std::string_view("ab\0\0\0", 5));
    char narrow[2] = {};
    norv_strncpy(narrow, "abc", 2);
    EXPECT_EQ(std::string_view(narrow, 2), "ab");
}

TEST(Strings, TokensAreReturnedOneByOne) {
    char text[] = "a, b";
    char* position = nullptr;
    EXPECT_STREQ(norv_strtok_r(text, ", ", &position), "a");
    EXPECT_STREQ(norv_strtok_r(nullptr, ", ", &position), "b");
    EXPECT_EQ(norv_strtok_r(nullptr, ", ", &position), nullptr);
}

}  // namespace
