// SPDX-License-Identifier: MIT
// The code on docs/kernel-double.md, which tests/docs/check_examples.sh compares with this file.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

#include "norv_base.h"
#include "norv_file.h"
#include "norv_linux_led.h"
#include "support/failure_sweep.hpp"
#include "support/kernel_double.hpp"

namespace {

using namespace std::string_literals;
using norv::test::byte_transfer;
using norv::test::device;
using norv::test::kernel_double;
using norv::test::opening;
using norv::test::strike;

TEST(KernelDoublePage, TheBrightnessIsWrittenWithItsNul) {
    kernel_double kernel;
    kernel.add_file("/sys/class/leds/red/brightness", "0");
    EXPECT_EQ(norv_linux_led_set_brightness("red", 7), NORV_STATUS_OK);
    EXPECT_EQ(kernel.content("/sys/class/leds/red/brightness"), "7");
    EXPECT_THAT(kernel.writes("/sys/class/leds/red/brightness"), testing::ElementsAre("7\0"s));
}

TEST(KernelDoublePage, AValueThatTheDriverRefusesReturnsItsErrno) {
    kernel_double kernel;
    kernel.add_file("/sys/class/leds/red/brightness", "0");
    kernel.on_write("/sys/class/leds/red/brightness",
                    [](std::string_view bytes) { return bytes == "9\0"s ? EINVAL : 0; });
    EXPECT_EQ(norv_linux_led_set_brightness("red", 9), norv_get_status_by_errno(EINVAL));
    EXPECT_EQ(norv_linux_led_set_brightness("red", 8), NORV_STATUS_OK);
}

// A thermometer that measures one degree more each time that it is read.
class thermometer : public device {
  public:
    int degrees = 20;

    long open(int flags) override { return (flags & O_ACCMODE) == O_RDONLY ? 0 : -EACCES; }
    long read(void* buffer, size_t size, off_t) override {
        const std::string text = std::to_string(degrees++) + "\n";
        return static_cast<long>(text.copy(static_cast<char*>(buffer), size));
    }
};

TEST(KernelDoublePage, AThermometerIsReadAnew) {
    kernel_double kernel;
    const auto model = std::make_shared<thermometer>();
    kernel.add_device("/dev/thermometer", model);
    model->degrees = 36;
    for (const char* expected : {"36\n", "37\n"}) {
        char text[8] = "";
        uint32_t length = sizeof text;
        EXPECT_EQ(norv_read_device(text, &length, "/dev/thermometer"), NORV_STATUS_OK);
        EXPECT_EQ(std::string(text, length), expected);
    }
}

TEST(KernelDoublePage, TheDeviceIsOpenedForReadingAndReadOnce) {
    kernel_double kernel;
    kernel.add_device("/dev/thermometer", std::make_shared<thermometer>());
    char text[8] = "";
    uint32_t length = sizeof text;
    norv_read_device(text, &length, "/dev/thermometer");
    EXPECT_EQ(kernel.calls("open").at(0).path, "/dev/thermometer");
    EXPECT_EQ(kernel.calls("open").at(0).as<opening>().flags & O_ACCMODE, O_RDONLY);
    const auto reads = kernel.calls<byte_transfer>("read");
    ASSERT_EQ(reads.size(), 1U);
    EXPECT_EQ(reads[0].bytes, "20\n");
}

TEST(KernelDoublePage, OnlyTheSecondDelayFails) {
    kernel_double kernel;
    kernel.add_file("/sys/class/leds/red/delay_on", "0");
    kernel.add_file("/sys/class/leds/red/delay_off", "0");
    kernel.fail({.call = "write", .path = "/sys/class/leds/red/delay_off", .error = EBUSY});
    EXPECT_EQ(norv_linux_led_set_delay("red", 100, 900), norv_get_status_by_errno(EBUSY));
    EXPECT_EQ(kernel.content("/sys/class/leds/red/delay_on"), "100");
    EXPECT_EQ(kernel.content("/sys/class/leds/red/delay_off"), "0");
}

void build_led(kernel_double& kernel) {
    for (const char* attribute : {"trigger", "delay_on", "delay_off"}) {
        kernel.add_file("/sys/class/leds/red/"s + attribute, "0");
    }
}

// Ignores a failure to set the trigger.
uint32_t blink() {
    norv_linux_led_set_trigger("red", "timer");
    return norv_linux_led_set_delay("red", 100, 900);
}

TEST(KernelDoublePage, EveryFailureToBlinkIsReported) {
    norv::test::sweep_options options;
    options.expect = [](const strike& struck) {
        const bool ignored = struck.path == "/sys/class/leds/red/trigger";
        return ignored ? NORV_STATUS_OK : norv::test::status_of_fault(struck);
    };
    norv::test::failure_sweep(build_led, blink, options);
}

// A device that is never ready, and on which a wait takes as long as it may.
class silent_device : public device {
  public:
    explicit silent_device(kernel_double& kernel) : kernel_(kernel) { kernel_.set_clock(1, 0); }
    long poll(short, int timeout) override {
        kernel_.set_clock(1 + timeout / 1000, 0);
        return 0;
    }

  private:
    kernel_double& kernel_;
};

TEST(KernelDoublePage, AMinuteWithoutAByteIsATimeout) {
    kernel_double kernel;
    const int descriptor = kernel.hand_out("silent", std::make_shared<silent_device>(kernel));
    char byte = 0;
    uint32_t length = 1;
    EXPECT_EQ(norv_iorw_timeout(descriptor, &byte, &length, 60000, false), NORV_STATUS_TIMEOUT);
    close(descriptor);
}

}  // namespace
