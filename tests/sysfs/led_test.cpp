// SPDX-License-Identifier: MIT
// LEDs.
#include "norv_linux_led.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/failure_sweep.hpp"
#include "support/status.hpp"

namespace {

using namespace std::string_literals;
using norv::test::errno_status;
using norv::test::fault;
using norv::test::kernel_double;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* trigger = "/sys/class/leds/red:alarm/trigger";
constexpr const char* brightness = "/sys/class/leds/red:alarm/brightness";
constexpr const char* delay_on = "/sys/class/leds/red:alarm/delay_on";
constexpr const char* delay_off = "/sys/class/leds/red:alarm/delay_off";
constexpr const char* shot = "/sys/class/leds/red:alarm/shot";

void add_led(kernel_double& kernel) {
    for (const char* attribute : {trigger, brightness, delay_on, delay_off, shot}) {
        kernel.add_file(attribute);
    }
}

class Led : public testing::Test {
  protected:
    Led() { add_led(kernel); }

    kernel_double kernel;
};

// ---- trigger

TEST_F(Led, TheTriggersNameIsWrittenWithItsNul) {
    EXPECT_EQ(norv_linux_led_set_trigger("red:alarm", "heartbeat"), 0U);
    EXPECT_THAT(kernel.writes(trigger), ElementsAre("heartbeat\0"s));
    EXPECT_THAT(kernel.open_flags(trigger), ElementsAre(O_WRONLY | O_CLOEXEC));
}

TEST_F(Led, AnEmptyTriggerIsASingleNul) {
    EXPECT_EQ(norv_linux_led_set_trigger("red:alarm", ""), 0U);
    EXPECT_THAT(kernel.writes(trigger), ElementsAre("\0"s));
}

TEST_F(Led, ATriggersNameIsNotAFormat) {
    EXPECT_EQ(norv_linux_led_set_trigger("red:alarm", "100%d"), 0U);
    EXPECT_THAT(kernel.writes(trigger), ElementsAre("100%d\0"s));
}

TEST_F(Led, AnUnknownTriggerGivesTheErrnoStatus) {
    kernel.on_write(trigger, [](std::string_view) { return EINVAL; });
    EXPECT_EQ(norv_linux_led_set_trigger("red:alarm", "disco"), NORV_STATUS_INVALID_ARG);
}

// ---- brightness

TEST_F(Led, BrightnessIsWrittenInDecimal) {
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", 0), 0U);
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", 7), 0U);
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", 255), 0U);
    EXPECT_THAT(kernel.writes(brightness), ElementsAre("0\0"s, "7\0"s, "255\0"s));
    EXPECT_THAT(kernel.open_flags(brightness), Each(O_WRONLY | O_CLOEXEC));
}

// quirk 39
TEST_F(Led, OnlyTheLowByteOfABrightnessCounts) {
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", 256), 0U);
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", -1), 0U);
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", 0x12345), 0U);
    EXPECT_THAT(kernel.writes(brightness), ElementsAre("0\0"s, "255\0"s, "69\0"s));
}

// ---- delay

TEST_F(Led, TheTimeOnIsWrittenBeforeTheTimeOff) {
    EXPECT_EQ(norv_linux_led_set_delay("red:alarm", 100, 900), 0U);
    EXPECT_THAT(kernel.writes(delay_on), ElementsAre("100\0"s));
    EXPECT_THAT(kernel.writes(delay_off), ElementsAre("900\0"s));
    EXPECT_EQ(kernel.calls("open").front().path, delay_on);
    EXPECT_EQ(kernel.calls("open").back().path, delay_off);
}

TEST_F(Led, TimesAreWrittenSigned) {
    EXPECT_EQ(norv_linux_led_set_delay("red:alarm", INT_MIN, -1), 0U);
    EXPECT_THAT(kernel.writes(delay_on), ElementsAre("-2147483648\0"s));
    EXPECT_THAT(kernel.writes(delay_off), ElementsAre("-1\0"s));
}

TEST_F(Led, AFailedTimeOnLeavesTheTimeOffUnwritten) {
    kernel.on_write(delay_on, [](std::string_view) { return EIO; });
    EXPECT_EQ(norv_linux_led_set_delay("red:alarm", 100, 900), NORV_STATUS_DEVICE_ERROR);
    EXPECT_THAT(kernel.writes(delay_off), IsEmpty());
    EXPECT_THAT(kernel.open_flags(delay_off), IsEmpty());
}

TEST_F(Led, WithoutTheTimerTriggerADelayIsNotFound) {
    kernel.remove(delay_on);
    EXPECT_EQ(norv_linux_led_set_delay("red:alarm", 100, 900), NORV_STATUS_NOT_FOUND);
    EXPECT_THAT(kernel.writes(delay_off), IsEmpty());
}

TEST_F(Led, AFailedTimeOffLeavesTheNewTimeOn) {
    kernel.on_write(delay_off, [](std::string_view) { return EPERM; });
    EXPECT_EQ(norv_linux_led_set_delay("red:alarm", 100, 900), errno_status(EPERM));
    EXPECT_EQ(kernel.content(delay_on), "100");
}

// ---- shot

TEST_F(Led, AShotWritesAOneWithItsNul) {
    EXPECT_EQ(norv_linux_led_trigger_shot("red:alarm"), 0U);
    EXPECT_THAT(kernel.writes(shot), ElementsAre("1\0"s));
    EXPECT_THAT(kernel.open_flags(shot), ElementsAre(O_WRONLY | O_CLOEXEC));
}

// ---- all of them

TEST_F(Led, EveryCallClosesWhatItOpened) {
    norv_linux_led_set_trigger("red:alarm", "timer");
    norv_linux_led_set_brightness("red:alarm", 1);
    norv_linux_led_set_delay("red:alarm", 1, 1);
    norv_linux_led_trigger_shot("red:alarm");
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Led, AnLedThatDoesNotExistIsNotFound) {
    EXPECT_EQ(norv_linux_led_set_trigger("blue", "timer"), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_led_set_brightness("blue", 1), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_led_set_delay("blue", 1, 1), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_led_trigger_shot("blue"), NORV_STATUS_NOT_FOUND);
}

// quirk 40
TEST_F(Led, AShortWriteIsASuccess) {
    kernel.fail({.call = "write", .how = fault::kind::short_count});
    EXPECT_EQ(norv_linux_led_set_brightness("red:alarm", 128), 0U);
    EXPECT_TRUE(kernel.struck());
    EXPECT_THAT(kernel.writes(brightness), ElementsAre("128"s));
}

TEST_F(Led, ANullNameOrTriggerIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_led_set_trigger(nullptr, "timer"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_led_set_trigger("red:alarm", nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_led_set_brightness(nullptr, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_led_set_delay(nullptr, 1, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_led_trigger_shot(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

// ---- failure sweep

// Makes every call for an LED, up to the first failure.
uint32_t use_led() {
    uint32_t status = norv_linux_led_set_trigger("red:alarm", "timer");
    if (status == 0) {
        status = norv_linux_led_set_brightness("red:alarm", 200);
    }
    if (status == 0) {
        status = norv_linux_led_set_delay("red:alarm", 100, 900);
    }
    if (status == 0) {
        status = norv_linux_led_trigger_shot("red:alarm");
    }
    return status;
}

TEST(LedSweep, EveryFailingCallIsReportedAndLeavesNothingOpen) {
    norv::test::failure_sweep(add_led, use_led);
}

}  // namespace
