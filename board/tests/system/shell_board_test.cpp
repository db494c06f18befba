// SPDX-License-Identifier: MIT
// Shell commands on a real kernel and its user space.
#include "norv_shell.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "norv_file.h"

namespace {

TEST(ShellOnBoard, TheReleaseIsTheOneThatTheKernelReports) {
    utsname kernel = {};
    ASSERT_EQ(uname(&kernel), 0);
    char output[128] = "";
    EXPECT_EQ(norv_shell_result(output, sizeof output - 1, "uname -r"), 0U);
    EXPECT_STREQ(output, kernel.release);
}

TEST(ShellOnBoard, AFormattedCommandReadsAnAttribute) {
    char expected[32] = "";
    uint32_t length = sizeof expected - 1;
    ASSERT_EQ(norv_read_device(expected, &length, "/sys/devices/system/cpu/%s", "possible"), 0U);
    char output[32] = "";
    EXPECT_EQ(norv_shell_format_result(output, sizeof output - 1, "cat /sys/devices/system/cpu/%s; echo",
                                       "possible"),
              0U);
    EXPECT_STREQ(output, expected);
}

TEST(ShellOnBoard, AnOutputBeyondThePipesCapacityIsReadToItsEnd) {
    char output[8] = "";
    EXPECT_EQ(norv_shell_result(output, sizeof output - 1,
                                "head -c 700000 /dev/zero | tr '\\0' x; printf 'the end'"),
              0U);
    EXPECT_STREQ(output, "the end");
}

}  // namespace
