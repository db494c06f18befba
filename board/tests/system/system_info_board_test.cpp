// SPDX-License-Identifier: MIT
// The facts that a real kernel reports, compared with what the calls return.
#include "norv_system_info.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../support/attribute.hpp"
#include "../support/serial_gadget.hpp"
#include "norv_status.h"

namespace {

using norv::board::attribute;
using norv::board::comes_true;
using norv::board::gadget_controller;
using norv::board::serial_gadget;

// ---- USB connection

uint32_t usb_state() {
    uint32_t state = 77;
    EXPECT_EQ(norv_get_usb_periph_state(gadget_controller, &state), 0U);
    return state;
}

bool usb_state_comes_to(uint32_t wanted) {
    return comes_true([=] { return usb_state() == wanted; });
}

TEST(UsbPeriphOnBoard, WithoutAGadgetThePortIsNotConfigured) {
    EXPECT_EQ(usb_state(), uint32_t{NORV_USB_PERIPH_NOT_CONFIGURED});
}

TEST(UsbPeriphOnBoard, AGadgetAtHighSpeedIsTwo) {
    serial_gadget gadget;
    gadget.bind();
    EXPECT_TRUE(usb_state_comes_to(NORV_USB_PERIPH_HIGH_SPEED));
    gadget.unbind();
    EXPECT_TRUE(usb_state_comes_to(NORV_USB_PERIPH_NOT_CONFIGURED));
}

TEST(UsbPeriphOnBoard, AGadgetAtFullSpeedIsOne) {
    serial_gadget gadget("full-speed");
    gadget.bind();
    EXPECT_TRUE(usb_state_comes_to(NORV_USB_PERIPH_CONFIGURED));
    EXPECT_EQ(attribute("/sys/class/udc/dummy_udc.0/current_speed"), "full-speed");
}

TEST(UsbPeriphOnBoard, AGadgetAtSuperSpeedIsThree) {
    ASSERT_EQ(
        std::system(
            "modprobe -r norv_board_usb_gadget; modprobe -r dummy_hcd; modprobe dummy_hcd is_super_speed=1"),
        0);
    {
        serial_gadget gadget;
        gadget.bind();
        EXPECT_TRUE(usb_state_comes_to(NORV_USB_PERIPH_SUPER_SPEED));
    }
    EXPECT_EQ(std::system("modprobe -r dummy_hcd; modprobe norv_board_usb_gadget"), 0);
}

TEST(UsbPeriphOnBoard, AControllerThatTheKernelDoesNotHaveIsNotFound) {
    uint32_t state = 77;
    EXPECT_EQ(norv_get_usb_periph_state("none", &state), NORV_STATUS_NOT_FOUND);
}

// ---- memory

norv_mem_info_t memory() {
    norv_mem_info_t info = {};
    EXPECT_EQ(norv_get_mem_info(&info), 0U);
    return info;
}

TEST(MemInfoOnBoard, TheTotalIsWhatTheKernelHas) {
    struct sysinfo information = {};
    ASSERT_EQ(sysinfo(&information), 0);
    EXPECT_EQ(memory().total, static_cast<int32_t>(information.totalram * information.mem_unit / 1024));
}

TEST(MemInfoOnBoard, MemoryThatIsUsedIsNeitherFreeNorAvailable) {
    constexpr size_t size = 128 << 20;
    constexpr int32_t most_of_it = 100 << 10;  // kB
    const norv_mem_info_t before = memory();
    void* used = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(used, MAP_FAILED);
    memset(used, 1, size);
    const norv_mem_info_t during = memory();
    munmap(used, size);
    EXPECT_LT(during.available, before.available - most_of_it);
    EXPECT_LT(during.free, before.free - most_of_it);
    // Newer kernels keep many freed pages on a list of each processor for a while, where they do not count.
    norv_mem_info_t after = memory();
    for (int tries = 0; tries < 600 && after.free <= during.free + most_of_it; ++tries) {
        usleep(100000);
        after = memory();
    }
    EXPECT_GT(after.available, during.available + most_of_it);
    EXPECT_GT(after.free, during.free + most_of_it);
}

TEST(MemInfoOnBoard, WhatIsWrittenIntoTmpfsIsCached) {
    const norv_mem_info_t before = memory();
    ASSERT_EQ(std::system("head -c 64M /dev/zero > /dev/shm/cached"), 0);
    const norv_mem_info_t during = memory();
    EXPECT_GT(during.cached, before.cached + (60 << 10));
    EXPECT_EQ(std::system("rm /dev/shm/cached"), 0);
}

TEST(MemInfoOnBoard, WhatIsReadOfABlockDeviceIsInTheBuffers) {
    // Its pages stay cached while it is open.
    const int card = open("/dev/mmcblk0", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(card, 0);
    const norv_mem_info_t before = memory();
    std::vector<char> content(16 << 20);
    EXPECT_EQ(read(card, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    EXPECT_GT(memory().buffers, before.buffers + (12 << 10));
    close(card);
}

// ---- uptime

TEST(UptimeOnBoard, ItIsBetweenTwoReadsOfTheKernelsOwn) {
    const auto before = static_cast<uint32_t>(std::stod(attribute("/proc/uptime")));
    uint32_t seconds = 0;
    EXPECT_EQ(norv_get_uptime(&seconds), 0U);
    const auto after = static_cast<uint32_t>(std::stod(attribute("/proc/uptime")));
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after + 1) << "the kernel rounds up";
}

// ---- card

TEST(MmcSizeOnBoard, TheCardOf16MebibytesHas16Megabytes) {
    uint32_t megabytes = 0;
    ASSERT_TRUE(comes_true([&] { return norv_get_mmc_size(0, &megabytes) == NORV_STATUS_OK; }));
    EXPECT_EQ(megabytes, 16U);
    EXPECT_EQ(attribute("/sys/class/block/mmcblk0/size"), "32768");
}

TEST(MmcSizeOnBoard, ACardThatTheKernelDoesNotHaveIsNotFound) {
    uint32_t megabytes = 77;
    EXPECT_EQ(norv_get_mmc_size(7, &megabytes), NORV_STATUS_NOT_FOUND);
}

}  // namespace
