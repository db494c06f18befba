// SPDX-License-Identifier: MIT
// LEDs of a real kernel, with its timer and oneshot triggers.
#include "norv_linux_led.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "../support/attribute.hpp"

namespace {

using norv::board::attribute;
using norv::board::comes_true;
using testing::HasSubstr;

constexpr const char* dimmed = "norv:green:status";  // 0 to 255
constexpr const char* plain = "norv:red:alarm";      // 0 or 1

std::string attribute_of(const char* led, const char* name) {
    return attribute(std::string("/sys/class/leds/") + led + "/" + name);
}

bool has_attribute(const char* led, const char* name) {
    return !attribute_of(led, name).empty();
}

int changes(const char* led) {
    return std::stoi(attribute_of(led, "changes"));
}

class LedOnBoard : public testing::Test {
  protected:
    LedOnBoard() {
        for (const char* led : {dimmed, plain}) {
            EXPECT_EQ(norv_linux_led_set_trigger(led, "none"), 0U);
            EXPECT_EQ(norv_linux_led_set_brightness(led, 0), 0U);
        }
    }
};

TEST_F(LedOnBoard, AnLedHasTheBrightnessThatWasSet) {
    for (const int brightness : {1, 200, 255, 0, 17}) {
        EXPECT_EQ(norv_linux_led_set_brightness(dimmed, brightness), 0U);
        EXPECT_EQ(attribute_of(dimmed, "brightness"), std::to_string(brightness));
    }
}

TEST_F(LedOnBoard, OnlyTheLowByteOfABrightnessReachesIt) {
    EXPECT_EQ(norv_linux_led_set_brightness(dimmed, -1), 0U);
    EXPECT_EQ(attribute_of(dimmed, "brightness"), "255");
    EXPECT_EQ(norv_linux_led_set_brightness(dimmed, 256), 0U);
    EXPECT_EQ(attribute_of(dimmed, "brightness"), "0");
}

TEST_F(LedOnBoard, AnLedWithoutLevelsIsLitByAnyBrightness) {
    EXPECT_EQ(norv_linux_led_set_brightness(plain, 255), 0U);
    EXPECT_EQ(attribute_of(plain, "brightness"), "1");
}

TEST_F(LedOnBoard, TheTimerTriggerBlinksWithTheGivenTimes) {
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "timer"), 0U);
    EXPECT_EQ(norv_linux_led_set_delay(plain, 20, 30), 0U);
    EXPECT_EQ(attribute_of(plain, "delay_on"), "20");
    EXPECT_EQ(attribute_of(plain, "delay_off"), "30");
    const int before = changes(plain);
    EXPECT_TRUE(comes_true([=] { return changes(plain) >= before + 10; }));
}

TEST_F(LedOnBoard, ABlinkingLedStopsWithItsTrigger) {
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "timer"), 0U);
    EXPECT_EQ(norv_linux_led_set_delay(plain, 5, 5), 0U);
    EXPECT_TRUE(comes_true([before = changes(plain)] { return changes(plain) > before; }));
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "none"), 0U);
    EXPECT_EQ(attribute_of(plain, "brightness"), "0");
    const int stopped = changes(plain);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(changes(plain), stopped);
}

TEST_F(LedOnBoard, BrightnessZeroRemovesTheTrigger) {
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "timer"), 0U);
    EXPECT_THAT(attribute_of(plain, "trigger"), HasSubstr("[timer]"));
    EXPECT_EQ(norv_linux_led_set_brightness(plain, 0), 0U);
    EXPECT_THAT(attribute_of(plain, "trigger"), HasSubstr("[none]"));
    EXPECT_FALSE(has_attribute(plain, "delay_on"));
}

TEST_F(LedOnBoard, AShotLightsTheLedOnceAndDarkensIt) {
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "oneshot"), 0U);
    EXPECT_EQ(norv_linux_led_set_delay(plain, 20, 20), 0U);
    for (int shot = 0; shot < 3; ++shot) {
        const int before = changes(plain);
        EXPECT_EQ(norv_linux_led_trigger_shot(plain), 0U);
        EXPECT_TRUE(comes_true([=] { return changes(plain) == before + 2; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(changes(plain), before + 2);
    }
}

TEST_F(LedOnBoard, WithoutATriggerThereAreNoDelaysAndNoShot) {
    EXPECT_EQ(norv_linux_led_set_delay(plain, 20, 20), NORV_STATUS_NOT_FOUND);
    EXPECT_EQ(norv_linux_led_trigger_shot(plain), NORV_STATUS_NOT_FOUND);
}

TEST_F(LedOnBoard, AnUnknownTriggerIsAnInvalidArgument) {
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "disco"), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(attribute_of(plain, "trigger"), HasSubstr("[none]"));
}

TEST_F(LedOnBoard, ANegativeTimeIsRefusedAndTheOtherStays) {
    EXPECT_EQ(norv_linux_led_set_trigger(plain, "timer"), 0U);
    EXPECT_EQ(norv_linux_led_set_delay(plain, 40, 60), 0U);
    EXPECT_EQ(norv_linux_led_set_delay(plain, -1, 70), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(attribute_of(plain, "delay_off"), "60");
    EXPECT_EQ(norv_linux_led_set_delay(plain, 50, -1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(attribute_of(plain, "delay_on"), "50");
    EXPECT_EQ(attribute_of(plain, "delay_off"), "60");
}

TEST_F(LedOnBoard, AnLedThatTheKernelDoesNotHaveIsNotFound) {
    EXPECT_EQ(norv_linux_led_set_brightness("norv:blue:none", 1), NORV_STATUS_NOT_FOUND);
}

}  // namespace
