// SPDX-License-Identifier: MIT
// Files, directories, links and streams of the kernel double.
#include "support/kernel_double.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "norv_base.h"
#include "norv_file.h"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer_at;
using norv::test::directory_making;
using norv::test::kernel_double;
using norv::test::program_start;
using testing::ElementsAre;

TEST(DoubleFiles, PathsOfTheBoardLeadIntoTheScratchTree) {
    kernel_double kernel;
    kernel.add_file("/proc/uptime", "12.5 3.0\n");
    char text[16] = {};
    uint32_t length = sizeof text;
    EXPECT_EQ(norv_read_device(text, &length, "/proc/uptime"), 0U);
    EXPECT_STREQ(text, "12.5 3.0\n");
    EXPECT_EQ(access("/dev/null", F_OK), -1);
}

TEST(DoubleFiles, TheRealFilesAreBackWhenItEnds) {
    { const kernel_double kernel; }
    EXPECT_EQ(access("/dev/null", F_OK), 0);
}

TEST(DoubleFiles, AnAttributeTakesEachWriteAsItsWholeValue) {
    kernel_double kernel;
    kernel.add_file("/sys/attribute", "long content");
    uint32_t length = 2;
    norv_write_device("1", &length, "/sys/attribute");
    EXPECT_EQ(kernel.content("/sys/attribute"), "1");
    EXPECT_THAT(kernel.writes("/sys/attribute"), ElementsAre("1\0"s));
}

TEST(DoubleFiles, AReactionCanRefuseAWrite) {
    kernel_double kernel;
    kernel.add_file("/sys/attribute", "old");
    kernel.on_write("/sys/attribute", [](std::string_view) { return EBUSY; });
    uint32_t length = 2;
    EXPECT_EQ(norv_write_device("1", &length, "/sys/attribute"), norv_get_status_by_errno(EBUSY));
    EXPECT_EQ(kernel.content("/sys/attribute"), "old");
}

TEST(DoubleFiles, AReadAtAnOffsetLeavesTheFilePositionAlone) {
    kernel_double kernel;
    kernel.add_file("/proc/text", "abcdef");
    const int descriptor = open("/proc/text", O_RDONLY);
    char text[3] = {};
    EXPECT_EQ(pread(descriptor, text, 2, 3), 2);
    EXPECT_STREQ(text, "de");
    EXPECT_EQ(read(descriptor, text, 2), 2);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(kernel.calls("pread").at(0).as<byte_transfer_at>().offset, 3);
    close(descriptor);
}

TEST(DoubleFiles, AWriteAtAnOffsetLeavesTheFilePositionAlone) {
    kernel_double kernel;
    kernel.add_file("/proc/text", "abcdef");
    const int descriptor = open("/proc/text", O_RDWR);
    EXPECT_EQ(pwrite(descriptor, "XY", 2, 3), 2);
    EXPECT_EQ(write(descriptor, "-", 1), 1);
    EXPECT_EQ(kernel.content("/proc/text"), "-bcXYf");
    EXPECT_EQ(kernel.calls("pwrite").at(0).as<byte_transfer_at>().offset, 3);
    EXPECT_EQ(kernel.calls("pwrite").at(0).as<byte_transfer_at>().bytes, "XY");
    close(descriptor);
}

TEST(DoubleFiles, ADirectoryIsFilledAsInConfigfsAndRemovedWithItsFiles) {
    kernel_double kernel;
    kernel.on_make_directory("/sys/kernel/config/items",
                             [&](const std::string& path) { kernel.add_file(path + "/status", "new"); });
    EXPECT_EQ(mkdir("/sys/kernel/config/items/one", 0755), 0);
    EXPECT_EQ(kernel.content("/sys/kernel/config/items/one/status"), "new");
    EXPECT_EQ(kernel.calls("mkdir").front().as<directory_making>().mode, 0755U);
    EXPECT_EQ(rmdir("/sys/kernel/config/items/one"), 0);
    EXPECT_FALSE(kernel.exists("/sys/kernel/config/items/one"));
    EXPECT_EQ(rmdir("/sys/kernel/config/items/one"), -1);
}

TEST(DoubleFiles, ADirectoryWithoutAReactionIsAnOrdinaryOne) {
    kernel_double kernel;
    kernel.add_file("/dev/full/file");
    EXPECT_EQ(mkdir("/dev/empty", 0755), 0);
    EXPECT_EQ(rmdir("/dev/empty"), 0);
    EXPECT_EQ(rmdir("/dev/full"), -1);
    EXPECT_TRUE(kernel.exists("/dev/full/file"));
}

std::vector<std::string> entries_of(const char* path) {
    std::vector<std::string> names;
    DIR* directory = opendir(path);
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    closedir(directory);
    return names;
}

TEST(DoubleFiles, ADirectoryListsItsEntriesInTheOrderOfTheirMaking) {
    kernel_double kernel;
    kernel.add_file("/sys/bus/usb/zebra");
    kernel.add_file("/sys/bus/usb/apple/file");
    kernel.add_link("/sys/bus/usb/monkey", "../usb");
    kernel.add_file("/sys/bus/usb/apple/later");
    EXPECT_THAT(entries_of("/sys/bus/usb"), ElementsAre("zebra", "apple", "monkey"));
}

TEST(DoubleFiles, AnOpenDirectoryIsWatchedAndCanFail) {
    kernel_double kernel;
    kernel.add_file("/sys/bus/file");
    kernel.fail("opendir", EACCES);
    EXPECT_EQ(opendir("/sys/bus"), nullptr);
    DIR* directory = opendir("/sys/bus");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    kernel.fail("readdir", EIO);
    EXPECT_EQ(readdir(directory), nullptr);
    EXPECT_EQ(errno, EIO);
    closedir(directory);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST(DoubleFiles, AScanOfADirectoryFindsTheEntriesOfTheScratchTree) {
    kernel_double kernel;
    kernel.add_file("/dev/mtd1");
    kernel.add_file("/dev/mtd0");
    dirent** entries = nullptr;
    const auto is_node = [](const dirent* entry) { return entry->d_name[0] == 'm' ? 1 : 0; };
    ASSERT_EQ(scandir("/dev", &entries, is_node, alphasort), 2);
    EXPECT_STREQ(entries[0]->d_name, "mtd0");
    EXPECT_STREQ(entries[1]->d_name, "mtd1");
    EXPECT_EQ(kernel.allocations(), 3U);
    norv_free(entries[0]);
    norv_free(entries[1]);
    norv_free(entries);
    kernel.fail("scandir", EACCES);
    EXPECT_EQ(scandir("/dev", &entries, is_node, alphasort), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(DoubleFiles, ALinkIsDistinguishedFromItsTarget) {
    kernel_double kernel;
    kernel.add_file("/sys/target");
    kernel.add_link("/sys/link", "target");
    struct stat found = {};
    EXPECT_EQ(lstat("/sys/link", &found), 0);
    EXPECT_TRUE(S_ISLNK(found.st_mode));
    EXPECT_EQ(stat("/sys/link", &found), 0);
    EXPECT_TRUE(S_ISREG(found.st_mode));
}

TEST(DoubleFiles, LinksAndRealPathsHaveTheNamesOfTheBoard) {
    kernel_double kernel;
    kernel.add_directory("/sys/devices/uio0");
    kernel.add_link("/sys/class/uio/uio0", "/sys/devices/uio0");
    char target[64] = {};
    EXPECT_EQ(readlink("/sys/class/uio/uio0", target, sizeof target), 17);
    EXPECT_STREQ(target, "/sys/devices/uio0");
    char* resolved = realpath("/sys/class/uio/uio0", nullptr);
    EXPECT_STREQ(resolved, "/sys/devices/uio0");
    EXPECT_EQ(kernel.allocations(), 1U);
    norv_free(resolved);
    EXPECT_EQ(readlink("/sys/class/uio/uio1", target, sizeof target), -1);
    EXPECT_EQ(realpath("/sys/class/uio/uio1", nullptr), nullptr);
}

TEST(DoubleFiles, AStreamReadsTheScratchTreeLineByLine) {
    kernel_double kernel;
    kernel.add_file("/sys/uevent", "A=1\nB=2\n");
    FILE* stream = fopen("/sys/uevent", "re");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    char* line = nullptr;
    size_t size = 0;
    EXPECT_EQ(getline(&line, &size, stream), 4);
    EXPECT_STREQ(line, "A=1\n");
    EXPECT_EQ(kernel.allocations(), 1U);
    kernel.fail("getline", EIO);
    EXPECT_EQ(getline(&line, &size, stream), -1);
    norv_free(line);
    kernel.fail("fclose", EIO);
    EXPECT_EQ(fclose(stream), EOF);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    kernel.fail("fopen", EACCES);
    EXPECT_EQ(fopen("/sys/uevent", "re"), nullptr);
}

TEST(DoubleFiles, EveryCallOnAStreamCanFail) {
    kernel_double kernel;
    kernel.add_file("/proc/loadavg", "0.5\n");
    FILE* stream = fopen("/proc/loadavg", "re");
    ASSERT_NE(stream, nullptr);
    char text[16] = "";
    kernel.fail("fgets", EIO);
    EXPECT_EQ(fgets(text, sizeof text, stream), nullptr);
    kernel.fail("fseek", EIO);
    EXPECT_EQ(fseek(stream, 0, SEEK_SET), -1);
    kernel.fail("fflush", EIO);
    EXPECT_EQ(fflush(stream), EOF);
    EXPECT_STREQ(fgets(text, sizeof text, stream), "0.5\n");
    fclose(stream);
}

TEST(DoubleFiles, AStreamOfTheTestProgramItselfNeverFails) {
    kernel_double kernel;
    FILE* stream = tmpfile();
    ASSERT_NE(stream, nullptr);
    kernel.fail("fflush", EIO);
    EXPECT_EQ(fflush(stream), 0);
    EXPECT_EQ(fflush(nullptr), 0);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_FALSE(kernel.struck());
}

TEST(DoubleFiles, AProgramsStreamCountsAsADescriptorUntilItIsClosed) {
    const kernel_double kernel;
    FILE* stream = popen("exit 3", "r");
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.calls("popen").at(0).as<program_start>().command, "exit 3");
    EXPECT_EQ(WEXITSTATUS(pclose(stream)), 3);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

}  // namespace
