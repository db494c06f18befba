// SPDX-License-Identifier: MIT
// The file helpers on a real kernel: attributes, pipes and marker files.
#include "norv_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <thread>

#include "norv_base.h"

namespace {

std::string read_text(const char* path) {
    char text[64] = {};
    uint32_t length = sizeof text - 1;
    EXPECT_EQ(norv_read_device(text, &length, "%s", path), NORV_STATUS_OK);
    return {text, length};
}

// The two va_list forms, called as a variadic function of an application would call them.
uint32_t open_with_list(int32_t* descriptor, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const uint32_t status = norv_open_device_va(O_WRONLY | O_CLOEXEC, descriptor, format, values);
    va_end(values);
    return status;
}

uint32_t write_with_list(int32_t descriptor, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const uint32_t status = norv_write_string_va(descriptor, 12, format, values);
    va_end(values);
    return status;
}

TEST(FileOnBoard, AnAttributeIsReadInOneCall) {
    EXPECT_EQ(read_text("/sys/kernel/profiling"), "0\n");
}

TEST(FileOnBoard, AnAttributeAcceptsATextWithItsNul) {
    int32_t descriptor = -1;
    ASSERT_EQ(norv_open_device(O_WRONLY | O_CLOEXEC, &descriptor, "/sys/class/gpio/%s", "export"),
              NORV_STATUS_OK);
    EXPECT_EQ(norv_write_string(descriptor, 12, "%d", 20), NORV_STATUS_OK);
    close(descriptor);

    uint32_t length = 3;
    EXPECT_EQ(norv_write_device("in", &length, "/sys/class/gpio/gpio%d/direction", 20), NORV_STATUS_OK);
    EXPECT_EQ(read_text("/sys/class/gpio/gpio20/direction"), "in\n");
    length = 5;
    EXPECT_EQ(norv_write_device("high", &length, "/sys/class/gpio/gpio%d/direction", 20), NORV_STATUS_OK);
    EXPECT_EQ(length, 5U);
    EXPECT_EQ(read_text("/sys/class/gpio/gpio20/direction"), "out\n");

    ASSERT_EQ(open_with_list(&descriptor, "/sys/class/gpio/%s", "unexport"), NORV_STATUS_OK);
    EXPECT_EQ(write_with_list(descriptor, "%d", 20), NORV_STATUS_OK);
    close(descriptor);
    EXPECT_FALSE(norv_file_access(F_OK, "/sys/class/gpio/gpio%d", 20));
}

TEST(FileOnBoard, ARefusalOfTheKernelHasTheStatusOfItsErrno) {
    uint32_t length = 5;
    EXPECT_EQ(norv_write_device("junk", &length, "/sys/class/gpio/export"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(length, 5U);
    char text[4];
    EXPECT_EQ(norv_read_device(text, &length, "/sys/class/gpio/export"), NORV_STATUS_ERRNO_BASE + EACCES);
}

TEST(FileOnBoard, AMebibyteIsWrittenToAPipeAndReadFromIt) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    std::string sent(1 << 20, '\0');
    for (size_t index = 0; index < sent.size(); ++index) {
        sent[index] = static_cast<char>(index * 7);
    }
    std::thread writer([&] {
        auto length = static_cast<uint32_t>(sent.size());
        EXPECT_EQ(norv_iorw_block(ends[1], sent.data(), &length, true), NORV_STATUS_OK);
        EXPECT_EQ(length, sent.size());
    });
    std::string received(sent.size(), '\0');
    auto length = static_cast<uint32_t>(received.size());
    EXPECT_EQ(norv_iorw_timeout(ends[0], received.data(), &length, 60000, false), NORV_STATUS_OK);
    writer.join();
    EXPECT_EQ(received, sent);

    char byte = 0;
    length = 1;
    EXPECT_EQ(norv_iorw_nonblock(ends[0], &byte, &length, false), NORV_STATUS_AGAIN);
    EXPECT_EQ(norv_iorw_timeout(ends[0], &byte, &length, 20, false), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(length, 0U);
    close(ends[0]);
    close(ends[1]);
}

TEST(FileOnBoard, AMarkIsCreatedAndDeleted) {
    EXPECT_EQ(norv_file_mark("/tmp/mark%d", 1), NORV_STATUS_OK);
    EXPECT_TRUE(norv_file_access(F_OK, "/tmp/mark%d", 1));
    EXPECT_EQ(norv_file_unmark("/tmp/mark%d", 1), NORV_STATUS_OK);
    EXPECT_FALSE(norv_file_access(F_OK, "/tmp/mark%d", 1));
    EXPECT_EQ(norv_file_unmark("/tmp/mark%d", 1), NORV_STATUS_NOT_FOUND);
}

}  // namespace
