// SPDX-License-Identifier: MIT
// GPIO lines of a real kernel: line 16 drives line 17.
#include "norv_linux_gpio.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "norv_base.h"
#include "norv_file.h"

namespace {

bool is_exported(int line) {
    struct stat found {};
    return stat(("/sys/class/gpio/gpio" + std::to_string(line)).c_str(), &found) == 0;
}

// As another process would.
void write_attribute(const char* path, const char* text) {
    auto length = static_cast<uint32_t>(strlen(text));
    EXPECT_EQ(norv_write_device(text, &length, "%s", path), 0U);
}

// What epoll reports for a descriptor that is registered like that of a line.
uint32_t reported_by_epoll(int descriptor) {
    const int instance = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    event.events = EPOLLPRI;
    EXPECT_EQ(epoll_ctl(instance, EPOLL_CTL_ADD, descriptor, &event), 0);
    const int ready = epoll_wait(instance, &event, 1, 10000);
    close(instance);
    return ready == 1 ? event.events : 0;
}

class GpioOnBoard : public testing::Test {
  protected:
    GpioOnBoard() {
        EXPECT_EQ(norv_linux_gpio_open(16, &output), 0U);
        EXPECT_EQ(norv_linux_gpio_set_dir(&output, true), 0U);
        EXPECT_EQ(norv_linux_gpio_open(17, &input), 0U);
        EXPECT_EQ(norv_linux_gpio_set_dir(&input, false), 0U);
    }
    ~GpioOnBoard() override {
        norv_linux_gpio_close(&input);
        norv_linux_gpio_close(&output);
    }

    uint8_t level() {
        uint8_t value = 9;
        EXPECT_EQ(norv_linux_gpio_get_value(&input, &value), 0U);
        return value;
    }
    void drive(bool value) { EXPECT_EQ(norv_linux_gpio_set_value(&output, value), 0U); }
    // Clears pending notifications, including that of a value that was never read.
    void arm(uint32_t edge) {
        EXPECT_EQ(norv_linux_gpio_set_irq(&input, edge), 0U);
        level();
        while (norv_linux_gpio_wait_irq(&input, 0) == NORV_STATUS_OK) {
            level();
        }
    }

    norv_linux_gpio_t output = {};
    norv_linux_gpio_t input = {};
};

TEST_F(GpioOnBoard, OpeningExportsAndClosingUnexports) {
    EXPECT_TRUE(is_exported(17));
    norv_linux_gpio_close(&input);
    EXPECT_FALSE(is_exported(17));
    EXPECT_EQ(norv_linux_gpio_open(17, &input), 0U);
    EXPECT_TRUE(is_exported(17));
}

TEST_F(GpioOnBoard, ALineThatIsAlreadyExportedCanBeOpened) {
    norv_linux_gpio_t second;
    EXPECT_EQ(norv_linux_gpio_open(17, &second), 0U);
    norv_linux_gpio_close(&second);
    EXPECT_FALSE(is_exported(17));
}

TEST_F(GpioOnBoard, TheInputFollowsTheOutput) {
    for (const bool value : {true, false, true, true, false}) {
        drive(value);
        EXPECT_EQ(level(), value ? 1 : 0);
    }
}

TEST_F(GpioOnBoard, ActiveLowInvertsWhatIsRead) {
    EXPECT_EQ(norv_linux_gpio_set_active_low(&input, true), 0U);
    drive(true);
    EXPECT_EQ(level(), 0);
    drive(false);
    EXPECT_EQ(level(), 1);
    EXPECT_EQ(norv_linux_gpio_set_active_low(&input, false), 0U);
    EXPECT_EQ(level(), 0);
}

TEST_F(GpioOnBoard, AnInputCannotBeDriven) {
    EXPECT_EQ(norv_linux_gpio_set_value(&input, true), NORV_STATUS_ERRNO_BASE + EPERM);
}

TEST_F(GpioOnBoard, ARisingEdgeEndsTheWait) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_RISING);
    drive(true);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 5000), 0U);
    EXPECT_EQ(level(), 1);
    drive(false);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 50), NORV_STATUS_TIMEOUT);
}

TEST_F(GpioOnBoard, AFallingEdgeEndsTheWait) {
    drive(true);
    arm(NORV_LINUX_GPIO_EDGE_FALLING);
    drive(false);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 5000), 0U);
}

TEST_F(GpioOnBoard, BothEdgesEndTheWait) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_BOTH);
    for (const bool value : {true, false, true}) {
        drive(value);
        EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 5000), 0U);
        EXPECT_EQ(level(), value ? 1 : 0);
    }
}

TEST_F(GpioOnBoard, WithoutAnEdgeKindTheWaitTimesOut) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_NONE);
    drive(true);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 50), NORV_STATUS_TIMEOUT);
}

TEST_F(GpioOnBoard, AnEdgeFromAnotherThreadEndsTheWait) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_RISING);
    std::thread other([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        drive(true);
    });
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 10000), 0U);
    other.join();
}

TEST_F(GpioOnBoard, OneThousandEdgesAreSeenOneByOne) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_RISING);
    for (int edge = 0; edge < 1000; ++edge) {
        drive(true);
        ASSERT_EQ(norv_linux_gpio_wait_irq(&input, 5000), 0U) << "edge " << edge;
        ASSERT_EQ(level(), 1);
        drive(false);
    }
}

TEST_F(GpioOnBoard, EdgesBetweenTwoReadsAreReportedOnce) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_RISING);
    for (int pulse = 0; pulse < 100; ++pulse) {
        drive(true);
        drive(false);
    }
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 5000), 0U);
    EXPECT_EQ(level(), 0);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 50), NORV_STATUS_TIMEOUT);
}

TEST_F(GpioOnBoard, OnlyReadingTheValueEndsTheReportOfAnEdge) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_RISING);
    drive(true);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 5000), 0U);
    EXPECT_EQ(lseek(norv_linux_gpio_get_fd(&input), 0, SEEK_SET), 0);
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 0), 0U);
    level();
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 0), NORV_STATUS_TIMEOUT);
}

// The unexport does not wake the wait; its timeout or a signal does.
TEST_F(GpioOnBoard, UnexportingTheLineDuringAWaitReturns0WithoutAnEdge) {
    drive(false);
    arm(NORV_LINUX_GPIO_EDGE_RISING);
    std::thread other([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        write_attribute("/sys/class/gpio/unexport", "17");
    });
    EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 500), 0U);
    other.join();
    EXPECT_EQ(norv_linux_gpio_get_value(&input, nullptr), NORV_STATUS_ERRNO_BASE + ENODEV);
}

// quirk 37
TEST_F(GpioOnBoard, AHandleWhoseLineWasUnexportedHasToBeOpenedAgain) {
    write_attribute("/sys/class/gpio/unexport", "17");
    for (int wait = 0; wait < 3; ++wait) {
        EXPECT_EQ(norv_linux_gpio_wait_irq(&input, 10000), 0U);
        EXPECT_EQ(reported_by_epoll(norv_linux_gpio_get_fd(&input)), uint32_t{EPOLLPRI | EPOLLERR});
    }
    EXPECT_EQ(norv_linux_gpio_set_dir(&input, false), NORV_STATUS_NOT_FOUND);
    write_attribute("/sys/class/gpio/export", "17");
    EXPECT_EQ(norv_linux_gpio_get_value(&input, nullptr), NORV_STATUS_ERRNO_BASE + ENODEV);
    norv_linux_gpio_close(&input);
    EXPECT_EQ(norv_linux_gpio_open(17, &input), 0U);
    EXPECT_EQ(norv_linux_gpio_get_value(&input, nullptr), 0U);
}

// quirk 36
TEST_F(GpioOnBoard, ASecondCloseUnexportsALineThatWasExportedAgain) {
    norv_linux_gpio_close(&input);
    write_attribute("/sys/class/gpio/export", "17");
    norv_linux_gpio_close(&input);
    EXPECT_FALSE(is_exported(17));
}

// Lines 32 and 33, wired to each other, of a port expander on a bus.
class ExpanderOnBoard : public testing::Test {
  protected:
    ExpanderOnBoard() {
        EXPECT_EQ(norv_linux_gpio_open(32, &output), 0U);
        EXPECT_EQ(norv_linux_gpio_set_dir(&output, true), 0U);
        EXPECT_EQ(norv_linux_gpio_open(33, &input), 0U);
        EXPECT_EQ(norv_linux_gpio_set_dir(&input, false), 0U);
    }
    ~ExpanderOnBoard() override {
        break_bus(false);
        norv_linux_gpio_close(&input);
        norv_linux_gpio_close(&output);
    }

    static void break_bus(bool broken) {
        write_attribute("/sys/kernel/debug/norv_board_gpio/expander_fails", broken ? "Y" : "N");
    }

    norv_linux_gpio_t output = {};
    norv_linux_gpio_t input = {};
};

TEST_F(ExpanderOnBoard, TheInputFollowsTheOutput) {
    for (const bool value : {true, false, true}) {
        uint8_t level = 9;
        EXPECT_EQ(norv_linux_gpio_set_value(&output, value), 0U);
        EXPECT_EQ(norv_linux_gpio_get_value(&input, &level), 0U);
        EXPECT_EQ(level, value ? 1 : 0);
    }
}

TEST_F(ExpanderOnBoard, AReadThatFailsGivesTheDriversStatus) {
    uint8_t level = 9;
    break_bus(true);
    EXPECT_EQ(norv_linux_gpio_get_value(&input, &level), NORV_STATUS_DEVICE_ERROR);
    EXPECT_EQ(level, 9);
    EXPECT_EQ(norv_linux_gpio_set_dir(&input, true), NORV_STATUS_DEVICE_ERROR);
    break_bus(false);
    EXPECT_EQ(norv_linux_gpio_get_value(&input, &level), 0U);
}

// Kernels up to 6.12 take a level that does not reach the chip; 7.3 reports the driver's failure.
TEST_F(ExpanderOnBoard, AWriteThatDoesNotReachTheChipHasTheKernelsAnswer) {
    uint8_t level = 9;
    EXPECT_EQ(norv_linux_gpio_set_value(&output, true), 0U);
    break_bus(true);
    const int value = open("/sys/class/gpio/gpio32/value", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(value, 0);
    const bool taken = write(value, "0", 1) == 1;
    close(value);
    EXPECT_EQ(norv_linux_gpio_set_value(&output, false), taken ? 0U : NORV_STATUS_DEVICE_ERROR);
    break_bus(false);
    EXPECT_EQ(norv_linux_gpio_get_value(&input, &level), 0U);
    EXPECT_EQ(level, 1);
}

TEST_F(ExpanderOnBoard, ALineThatCannotInterruptAcceptsNoEdge) {
    EXPECT_EQ(norv_linux_gpio_set_irq(&input, NORV_LINUX_GPIO_EDGE_RISING), NORV_STATUS_NOT_FOUND);
}

TEST(GpioOnBoardRefusals, AMissingLineCannotBeOpened) {
    norv_linux_gpio_t line;
    EXPECT_EQ(norv_linux_gpio_open(100000, &line), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_gpio_get_fd(&line), -1);
}

}  // namespace
