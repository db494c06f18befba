// SPDX-License-Identifier: MIT
// The GPIO controller of a Zynq and an LED at it, as far as a model carries them: the kernel's drivers are
// there, and keep what was set.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "../support/attribute.hpp"
#include "norv_base.h"
#include "norv_linux_gpio.h"
#include "norv_linux_led.h"

namespace {

using norv::board::attribute;
using norv::board::comes_true;

// The number of the controller's first line.
int first_line() {
    for (const auto& chip : std::filesystem::directory_iterator("/sys/class/gpio")) {
        const std::string label = attribute(chip.path() / "label");
        if (label == "zynq_gpio" || label == "zynqmp_gpio") {
            return std::stoi(attribute(chip.path() / "base"));
        }
    }
    return -1;
}

TEST(PinsOnBoard, ALineOfTheControllerIsOpenedTurnedAndClosed) {
    norv_linux_gpio_t line = {};
    const int number = first_line() + 54;  // the first of those that lead to the programmable logic
    ASSERT_GE(number, 54);
    const std::string directory = "/sys/class/gpio/gpio" + std::to_string(number);
    ASSERT_EQ(norv_linux_gpio_open(number, &line), 0U);
    EXPECT_EQ(norv_linux_gpio_set_dir(&line, false), 0U);
    EXPECT_EQ(attribute(directory + "/direction"), "in");
    EXPECT_EQ(norv_linux_gpio_set_irq(&line, NORV_LINUX_GPIO_EDGE_RISING), 0U);
    EXPECT_EQ(attribute(directory + "/edge"), "rising");
    EXPECT_EQ(norv_linux_gpio_wait_irq(&line, 0), NORV_STATUS_OK) << "the first report is of no edge";
    norv_linux_gpio_close(&line);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

// The LED that the board's device tree has.
std::string led() {
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/leds")) {
        if (entry.path().filename().string().find("ds23") != std::string::npos ||
            entry.path().filename().string().find("heartbeat") != std::string::npos) {
            return entry.path().filename();
        }
    }
    return "none";
}

TEST(PinsOnBoard, TheLedOfTheBoardIsLitAndDarkened) {
    EXPECT_EQ(norv_linux_led_set_trigger(led().c_str(), "none"), 0U);
    for (const int brightness : {1, 0, 255, 0}) {
        EXPECT_EQ(norv_linux_led_set_brightness(led().c_str(), brightness), 0U);
        EXPECT_EQ(attribute("/sys/class/leds/" + led() + "/brightness"), brightness == 0 ? "0" : "1");
    }
}

TEST(PinsOnBoard, TheLedOfTheBoardBlinks) {
    EXPECT_EQ(norv_linux_led_set_trigger(led().c_str(), "timer"), 0U);
    EXPECT_EQ(norv_linux_led_set_delay(led().c_str(), 20, 30), 0U);
    EXPECT_EQ(attribute("/sys/class/leds/" + led() + "/delay_on"), "20");
    for (const char* brightness : {"1", "0", "1"}) {
        EXPECT_TRUE(
            comes_true([&] { return attribute("/sys/class/leds/" + led() + "/brightness") == brightness; }));
    }
    EXPECT_EQ(norv_linux_led_set_trigger(led().c_str(), "none"), 0U);
}

}  // namespace
