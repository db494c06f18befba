// SPDX-License-Identifier: MIT
// The owner of a GPIO line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "cpp/owner_sweep.hpp"
#include "norv/gpio.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::gpio;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

void add_line(kernel_double& kernel) {
    kernel.add_file("/sys/class/gpio/export");
    kernel.add_file("/sys/class/gpio/unexport");
    for (const char* const attribute : {"direction", "edge", "active_low"}) {
        kernel.add_file("/sys/class/gpio/gpio17/"s + attribute);
    }
    kernel.add_file("/sys/class/gpio/gpio17/value", "1\n");
}

class Gpio : public testing::Test {
  protected:
    Gpio() { add_line(kernel); }

    kernel_double kernel;
};

TEST_F(Gpio, AnOpenLineIsClosedWithItsOwner) {
    {
        const norv::result<gpio> line = gpio::open(17);
        ASSERT_TRUE(line);
        EXPECT_GE(line->descriptor(), 0);
    }
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("17\0"s));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(Gpio, AFailedOpenHasTheStatus) {
    kernel.remove("/sys/class/gpio/gpio17/value");
    const norv::result<gpio> line = gpio::open(17);
    EXPECT_FALSE(line);
    EXPECT_EQ(line.status(), NORV_STATUS_NOT_FOUND);
}

TEST_F(Gpio, TheAttributesAreWritten) {
    gpio line = gpio::open(17).value();
    EXPECT_EQ(line.set_direction(gpio::direction::output), norv::ok);
    EXPECT_EQ(line.set_edge(gpio::edge::falling), norv::ok);
    EXPECT_EQ(line.set_active_low(true), norv::ok);
    EXPECT_EQ(line.set_value(false), norv::ok);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/gpio17/direction"), ElementsAre("out\0"s));
    EXPECT_THAT(kernel.writes("/sys/class/gpio/gpio17/edge"), ElementsAre("falling\0"s));
}

TEST_F(Gpio, ALineThatWasMovedFromIsAnInvalidArgument) {
    gpio line = gpio::open(17).value();
    gpio other = std::move(line);
    kernel.forget_calls();
    EXPECT_EQ(line.set_value(true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.get_value().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.set_edge(gpio::edge::both), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.descriptor(), -1);
    EXPECT_EQ(line.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_TRUE(other.get_value().value());
}

TEST_F(Gpio, MovingIntoAnOpenLineClosesIt) {
    gpio line = gpio::open(17).value();
    gpio other = gpio::open(17).value();
    line = std::move(other);
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_EQ(kernel.writes("/sys/class/gpio/unexport").size(), 1U);
}

TEST(GpioSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep(add_line, [] {
        norv::result<gpio> line = gpio::open(17);
        return line ? line->set_value(true).number() : line.status().number();
    });
}

}  // namespace
