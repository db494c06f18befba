// SPDX-License-Identifier: MIT
// The owner of a GPIO line, and tasks that wait for its edges.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "cpp/urgent_descriptor.hpp"
#include "cpp/waiting_task.hpp"
#include "norv/gpio.hpp"
#include "support/kernel_double.hpp"
#include "sysfs/gpio_chip.hpp"

namespace {

using norv::gpio;
using norv::status;
using norv::task;
using norv::test::gpio_chip;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_literals;

class CppGpio : public testing::Test {
  protected:
    kernel_double kernel;
    gpio_chip chip{kernel};
};

TEST_F(CppGpio, AnOpenLineIsClosedWithItsOwner) {
    {
        const norv::result<gpio> line = gpio::open(17);
        ASSERT_TRUE(line);
        EXPECT_GE(line->descriptor(), 0);
    }
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("17\0"s));
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(CppGpio, ALineThatStaysExportedIsClosedAlone) {
    {
        gpio line = gpio::open(17).value();
        line.keep_exported(true);
        const gpio moved = std::move(line);
        line.keep_exported(false);
    }
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), IsEmpty());
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    {
        gpio line = gpio::open(17).value();
        line.keep_exported(true);
        line.keep_exported(false);
    }
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("17\0"s));
}

TEST_F(CppGpio, AFailedOpenHasTheStatus) {
    const norv::result<gpio> line = gpio::open(99);
    EXPECT_FALSE(line);
    EXPECT_EQ(line.status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(CppGpio, TheAttributesAreWritten) {
    gpio line = gpio::open(17).value();
    EXPECT_EQ(line.set_direction(gpio::direction::input), norv::ok);
    EXPECT_EQ(line.set_direction(gpio::direction::output), norv::ok);
    for (const auto edge : {gpio::edge::none, gpio::edge::rising, gpio::edge::falling, gpio::edge::both}) {
        EXPECT_EQ(line.set_edge(edge), norv::ok);
    }
    for (const bool value : {true, false}) {
        EXPECT_EQ(line.set_active_low(value), norv::ok);
        EXPECT_EQ(line.set_value(value), norv::ok);
    }
    const std::string directory = "/sys/class/gpio/gpio17/";
    EXPECT_THAT(kernel.writes(directory + "direction"), ElementsAre("in\0"s, "out\0"s));
    EXPECT_THAT(kernel.writes(directory + "edge"),
                ElementsAre("none\0"s, "rising\0"s, "falling\0"s, "both\0"s));
    EXPECT_THAT(kernel.writes(directory + "active_low"), ElementsAre("1\0"s, "0\0"s));
    EXPECT_THAT(chip.value->written, ElementsAre("1\0"s, "0\0"s));
}

TEST_F(CppGpio, TheLevelIsRead) {
    gpio line = gpio::open(17).value();
    chip.value->level = '1';
    EXPECT_TRUE(line.get_value().value());
    chip.value->level = '0';
    EXPECT_FALSE(line.get_value().value());
}

TEST_F(CppGpio, AnEdgeEndsTheWait) {
    gpio line = gpio::open(17).value();
    EXPECT_EQ(line.wait_edge(5ms), NORV_STATUS_TIMEOUT);
    chip.value->edge = true;
    EXPECT_EQ(line.wait_edge(norv::no_limit), norv::ok);
    EXPECT_THAT(chip.value->poll_timeouts, ElementsAre(5, -1));
}

TEST_F(CppGpio, ALineThatWasMovedFromIsAnInvalidArgument) {
    gpio line = gpio::open(17).value();
    gpio other = std::move(line);
    kernel.forget_calls();
    EXPECT_EQ(line.set_value(true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.get_value().status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.set_edge(gpio::edge::both), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.wait_edge(0ms), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(line.descriptor(), -1);
    EXPECT_EQ(line.get(), nullptr);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_EQ(other.get_value().status(), norv::ok);
}

TEST_F(CppGpio, MovingIntoAnOpenLineClosesIt) {
    gpio line = gpio::open(17).value();
    line = gpio::open(18).value();
    EXPECT_EQ(kernel.open_descriptors(), 1U);
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), ElementsAre("17\0"s));
    EXPECT_EQ(line.set_value(true), norv::ok);
}

// ---- edges in tasks

class CppGpioEdges : public CppGpio {
  protected:
    task<status> next() {
        const norv::result<bool> edge = co_await edges.next();
        level = edge ? std::optional(edge.value()) : std::nullopt;
        co_return edge.status();
    }

    gpio line = gpio::open(17).value();
    norv::test::urgent_descriptor urgent{line.descriptor()};
    norv::loop loop = norv::loop::open().value();
    norv::gpio_edges edges{line};
    std::optional<bool> level;
};

TEST_F(CppGpioEdges, ATaskWaitsForEachEdge) {
    for (const bool high : {true, false}) {
        chip.value->level = high ? '1' : '0';
        EXPECT_EQ(norv::test::run_until_ready(loop, next(), [this] { urgent.raise(); }), norv::ok);
        EXPECT_EQ(level, high);
        urgent.lower();
    }
}

TEST_F(CppGpioEdges, ALevelThatCannotBeReadHasTheStatus) {
    kernel.fail("read", EIO);
    EXPECT_EQ(norv::test::run_until_ready(loop, next(), [this] { urgent.raise(); }),
              NORV_STATUS_DEVICE_ERROR);
}

TEST_F(CppGpioEdges, AStoppedTaskReadsNothing) {
    kernel.forget_calls();
    EXPECT_EQ(norv::test::stop_before_ready(loop, next(), [this] { urgent.raise(); }), NORV_STATUS_TIMEOUT);
    EXPECT_THAT(kernel.calls("read"), IsEmpty());
}

TEST_F(CppGpioEdges, ATaskThatEndsWhileItWaitsLeavesNothing) {
    kernel.forget_calls();
    norv::test::end_before_ready(loop, next(), [this] { urgent.raise(); });
    EXPECT_THAT(kernel.calls("read"), IsEmpty());
}

// ---- failures

TEST(CppGpioSweep, NothingLeaksThroughTheOwner) {
    std::optional<gpio_chip> chip;
    norv::test::owner_sweep([&](kernel_double& kernel) { chip.emplace(kernel); },
                            [] {
                                norv::result<gpio> line = gpio::open(17);
                                return line ? line->set_value(true).number() : line.status().number();
                            });
}

}  // namespace
