// SPDX-License-Identifier: MIT
// UIO devices of a real kernel: the registers and the interrupt of norv-board-regs.
#include "norv_uio.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>

#include "norv_base.h"
#include "norv_epoll.h"
#include "uio_debug.hpp"

namespace {

using norv::board::debug_number;
using norv::board::driver_register;
using norv::board::interrupt_enabled;
using norv::board::raise_interrupts;

class UioOnBoard : public testing::Test {
  protected:
    UioOnBoard() { EXPECT_EQ(norv_uio_open_by_name("norv-board-regs", &device), 0U); }
    ~UioOnBoard() override {
        norv_uio_disable_irq(&device);
        norv_uio_close(&device);
    }

    norv_uio_t* device = nullptr;
};

size_t open_descriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

bool is_mapped(const std::string& node) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.ends_with(node)) {
            return true;
        }
    }
    return false;
}

TEST_F(UioOnBoard, TheHighestIndexIsThatOfTheSecondDevice) {
    int32_t index = -1;
    EXPECT_EQ(norv_uio_get_max_idx(&index), 0U);
    EXPECT_EQ(index, 1);
}

TEST_F(UioOnBoard, BothDevicesOpenByIndexWithTheSizeThatTheKernelReports) {
    norv_uio_t* memory = nullptr;
    EXPECT_EQ(norv_uio_open_by_name("norv-board-memory", &memory), 0U);
    norv_uio_write_32(&memory, 0x1FFC, 0xCAFE);
    EXPECT_EQ(norv_uio_read_32(&memory, 0x1FFC), 0xCAFEU);
    norv_uio_close(&memory);
    EXPECT_EQ(norv_uio_open_by_idx(1, &memory), 0U);
    EXPECT_EQ(norv_uio_read_32(&memory, 0x1FFC), 0xCAFEU);
    norv_uio_close(&memory);
}

TEST_F(UioOnBoard, RegistersThatBeginWithinAPageAreReachedThroughTheirOffset) {
    norv_uio_t* memory = nullptr;
    ASSERT_EQ(norv_uio_open_by_name("norv-board-memory", &memory), 0U);
    const auto offset = static_cast<uint32_t>(
        std::stoul(norv::board::attribute("/sys/class/uio/uio1/maps/map0/offset"), nullptr, 0));
    EXPECT_GT(offset, 0U);
    EXPECT_EQ(norv_uio_read_32(&memory, offset), 0x4E4F5256U);
    EXPECT_NE(norv_uio_read_32(&memory, 0), 0x4E4F5256U);
    norv_uio_close(&memory);
}

// The library maps the first region; a program reaches the others through the descriptor, N pages into the
// node.
TEST_F(UioOnBoard, ASecondRegionIsMappedThroughTheDescriptor) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    norv_uio_t* memory = nullptr;
    ASSERT_EQ(norv_uio_open_by_name("norv-board-memory", &memory), 0U);
    const std::string region = "/sys/class/uio/uio1/maps/map1/";
    EXPECT_EQ(std::stoul(norv::board::attribute(region + "size"), nullptr, 0), 0x1000U);
    const auto offset = std::stoul(norv::board::attribute(region + "offset"), nullptr, 0);
    void* second = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_SHARED, norv_uio_get_fd(&memory),
                        static_cast<off_t>(page));
    ASSERT_NE(second, MAP_FAILED);
    EXPECT_EQ(static_cast<volatile uint32_t*>(second)[offset / sizeof(uint32_t)], ~0x4E4F5256U);
    EXPECT_EQ(munmap(second, page), 0);
    norv_uio_close(&memory);
}

TEST_F(UioOnBoard, TheKernelDoesNotReadRegistersOnBehalfOfAProcess) {
    uint32_t identity = 0;
    const iovec here = {&identity, sizeof identity};
    const iovec registers = {norv_uio_get_map(&device), sizeof identity};
    EXPECT_EQ(process_vm_readv(getpid(), &here, 1, &registers, 1, 0), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(UioOnBoard, AMissingDeviceIsNotFound) {
    norv_uio_t* missing = nullptr;
    EXPECT_EQ(norv_uio_open_by_idx(7, &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_uio_open_by_name("no-such-device", &missing), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(missing, nullptr);
}

TEST_F(UioOnBoard, ClosingUnmapsTheRegistersAndClosesTheDescriptor) {
    const size_t before = open_descriptors();
    norv_uio_t* memory = nullptr;
    ASSERT_EQ(norv_uio_open_by_idx(1, &memory), 0U);
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(fcntl(norv_uio_get_fd(&memory), F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(is_mapped("/dev/uio1"));
    norv_uio_close(&memory);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(is_mapped("/dev/uio1"));
}

TEST_F(UioOnBoard, ItIsAPlatformDevice) {
    norv_uio_info_t info = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(norv_uio_get_info(&device, &info), 0U);
    EXPECT_EQ(info.kind, 0U);
    EXPECT_EQ(info.vendor, 9U);
}

TEST_F(UioOnBoard, TheProgramReadsWhatTheDriverWrites) {
    EXPECT_EQ(norv_uio_read_32(&device, norv::board::reg_identity), 0x4E4F5256U);
}

TEST_F(UioOnBoard, TheDriverReadsWhatTheProgramWrites) {
    norv_uio_write_32(&device, 0x100, 0x12345678);
    norv_uio_write_32(&device, 0xFFC, 0x9ABCDEF0);
    EXPECT_EQ(driver_register(0x100), 0x12345678U);
    EXPECT_EQ(driver_register(0xFFC), 0x9ABCDEF0U);
    EXPECT_EQ(static_cast<volatile uint32_t*>(norv_uio_get_map(&device))[0x40], 0x12345678U);
}

TEST_F(UioOnBoard, EnablingAndDisablingReachTheDriver) {
    const uint32_t before = debug_number("controls");
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_TRUE(interrupt_enabled());
    EXPECT_EQ(norv_uio_disable_irq(&device), 0U);
    EXPECT_FALSE(interrupt_enabled());
    EXPECT_EQ(debug_number("controls"), before + 2);
}

TEST_F(UioOnBoard, ADeviceWithoutAnInterruptRefusesControlAndWait) {
    norv_uio_t* memory = nullptr;
    const uint32_t expected = norv_get_status_by_errno(EIO);
    ASSERT_EQ(norv_uio_open_by_name("norv-board-memory", &memory), 0U);
    EXPECT_EQ(norv_uio_enable_irq(&memory), expected);
    EXPECT_EQ(norv_uio_disable_irq(&memory), expected);
    EXPECT_EQ(norv_uio_wait_irq(&memory, 1000), expected);
    norv_uio_close(&memory);
}

TEST_F(UioOnBoard, WithoutAnInterruptTheWaitTimesOut) {
    norv_uio_enable_irq(&device);
    EXPECT_EQ(norv_uio_wait_irq(&device, 0), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(norv_uio_wait_irq(&device, 20), NORV_STATUS_TIMEOUT);
}

TEST_F(UioOnBoard, AnInterruptIsDeliveredWhileTheProgramWaits) {
    norv_uio_write_32(&device, norv::board::reg_operand, 0x0F0F0F0F);
    norv_uio_enable_irq(&device);
    std::thread raiser([] {
        usleep(20000);
        raise_interrupts(1);
    });
    EXPECT_EQ(norv_uio_wait_irq(&device, 10000), 0U);
    raiser.join();
    EXPECT_EQ(norv_uio_read_32(&device, norv::board::reg_result), 0xF0F0F0F0U);
    EXPECT_FALSE(interrupt_enabled());
    EXPECT_EQ(norv_uio_wait_irq(&device, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(UioOnBoard, ADisabledInterruptComesOnlyWhenItIsEnabledAgain) {
    raise_interrupts(1);
    EXPECT_EQ(norv_uio_wait_irq(&device, 20), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(debug_number("pending"), 1U);
    EXPECT_EQ(norv_uio_enable_irq(&device), 0U);
    EXPECT_EQ(norv_uio_wait_irq(&device, 10000), 0U);
    EXPECT_EQ(debug_number("pending"), 0U);
}

// The descriptor in a loop: each interrupt is taken and enabled again by its handler.
struct served_device {
    norv_epoll_fd_t record;
    norv_epoll_t* loop;
    norv_uio_t** device;
    int interrupts;
};

void serve(norv_epoll_fd_t* record, uint32_t) {
    auto* served = reinterpret_cast<served_device*>(record);
    EXPECT_EQ(norv_uio_wait_irq(served->device, 0), 0U);
    EXPECT_EQ(norv_uio_enable_irq(served->device), 0U);
    if (++served->interrupts == 3) {
        norv_epoll_exit(served->loop);
    }
}

TEST_F(UioOnBoard, TheEventLoopServesTheInterrupt) {
    norv_epoll_t loop = {};
    ASSERT_EQ(norv_epoll_open(&loop), 0U);
    served_device served = {{nullptr, norv_uio_get_fd(&device), serve}, &loop, &device, 0};
    ASSERT_EQ(norv_epoll_fd_add(&loop, &served.record, EPOLLIN), 0U);
    norv_uio_enable_irq(&device);
    raise_interrupts(3);
    norv_epoll_loop_with_watchdog(&loop, nullptr, 0);
    EXPECT_EQ(served.interrupts, 3);
    EXPECT_EQ(norv_epoll_fd_remove(&loop, &served.record), 0U);
    EXPECT_EQ(norv_epoll_close(&loop), 0U);
}

TEST_F(UioOnBoard, NoneOfAHundredThousandInterruptsIsLost) {
    constexpr uint32_t interrupts = 100000;
    const uint32_t before = norv_uio_read_32(&device, norv::board::reg_count);
    raise_interrupts(interrupts);
    for (uint32_t number = 1; number <= interrupts; ++number) {
        norv_uio_write_32(&device, norv::board::reg_operand, number);
        ASSERT_EQ(norv_uio_enable_irq(&device), 0U);
        ASSERT_EQ(norv_uio_wait_irq(&device, 10000), 0U) << number;
        ASSERT_EQ(norv_uio_read_32(&device, norv::board::reg_count), before + number);
        ASSERT_EQ(norv_uio_read_32(&device, norv::board::reg_result), ~number);
    }
    EXPECT_EQ(debug_number("pending"), 0U);
    EXPECT_EQ(norv_uio_wait_irq(&device, 0), NORV_STATUS_TIMEOUT);
}

}  // namespace
