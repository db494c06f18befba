// SPDX-License-Identifier: MIT
// LEDs by their names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "cpp/owner_sweep.hpp"
#include "norv/led.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::led;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_literals;

const std::string directory = "/sys/class/leds/red:alarm/";

void add_led(kernel_double& kernel) {
    for (const char* const attribute : {"trigger", "brightness", "delay_on", "delay_off", "shot"}) {
        kernel.add_file(directory + attribute);
    }
}

class Led : public testing::Test {
  protected:
    Led() { add_led(kernel); }

    kernel_double kernel;
    led alarm{"red:alarm"};
};

TEST_F(Led, TheAttributesAreWritten) {
    EXPECT_EQ(alarm.set_trigger("timer"), norv::ok);
    EXPECT_EQ(alarm.set_brightness(255), norv::ok);
    EXPECT_EQ(alarm.set_delay(100ms, 2s), norv::ok);
    EXPECT_EQ(alarm.trigger_shot(), norv::ok);
    EXPECT_THAT(kernel.writes(directory + "trigger"), ElementsAre("timer\0"s));
    EXPECT_THAT(kernel.writes(directory + "brightness"), ElementsAre("255\0"s));
    EXPECT_THAT(kernel.writes(directory + "delay_on"), ElementsAre("100\0"s));
    EXPECT_THAT(kernel.writes(directory + "delay_off"), ElementsAre("2000\0"s));
    EXPECT_THAT(kernel.writes(directory + "shot"), ElementsAre("1\0"s));
}

TEST_F(Led, ANameNeedsNoNul) {
    const led other(std::string_view("red:alarm:more").substr(0, 9));
    EXPECT_EQ(other.set_trigger(std::string_view("timers").substr(0, 5)), norv::ok);
    EXPECT_THAT(kernel.writes(directory + "trigger"), ElementsAre("timer\0"s));
}

TEST_F(Led, ACopyIsTheSameLed) {
    const led copy = alarm;
    EXPECT_EQ(copy.set_brightness(1), norv::ok);
    EXPECT_THAT(kernel.writes(directory + "brightness"), ElementsAre("1\0"s));
}

TEST_F(Led, ANameThatWouldBeTruncatedIsAnInvalidArgument) {
    const std::string longest(228, 'x');
    kernel.add_file("/sys/class/leds/" + longest + "/brightness");
    EXPECT_EQ(led(longest).set_brightness(1), norv::ok);
    EXPECT_THAT(kernel.writes("/sys/class/leds/" + longest + "/brightness"), ElementsAre("1\0"s));
    kernel.forget_calls();
    const led longer(longest + 'x');
    EXPECT_EQ(longer.set_brightness(1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(longer.set_trigger("none"), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(longer.set_delay(1ms, 1ms), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(longer.trigger_shot(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(led("red\0:alarm"s).trigger_shot(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(alarm.set_trigger(std::string(256, 'x')), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST_F(Led, ATimeOfMoreThan32BitsIsAnInvalidArgument) {
    EXPECT_EQ(alarm.set_delay(std::chrono::milliseconds(INT32_MAX), 0ms), norv::ok);
    EXPECT_THAT(kernel.writes(directory + "delay_on"), ElementsAre("2147483647\0"s));
    kernel.forget_calls();
    for (const auto time :
         {std::chrono::milliseconds(0x1'0000'0000), std::chrono::milliseconds(-0x8000'0001LL)}) {
        EXPECT_EQ(alarm.set_delay(time, 0ms), NORV_STATUS_INVALID_ARG);
        EXPECT_EQ(alarm.set_delay(0ms, time), NORV_STATUS_INVALID_ARG);
    }
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(LedSweep, NothingLeaks) {
    norv::test::owner_sweep(add_led, [] {
        const led alarm("red:alarm");
        const norv::status set = alarm.set_trigger("timer");
        return set.ok() ? alarm.set_delay(1ms, 1ms).number() : set.number();
    });
}

}  // namespace
