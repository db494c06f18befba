// SPDX-License-Identifier: MIT
// The C++ code on docs/cpp.md and README.md, which tests/docs/check_examples.sh compares with this file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <variant>

#include "cpp/urgent_descriptor.hpp"
#include "mapped/uio_devices.hpp"
#include "norv.hpp"
#include "support/kernel_double.hpp"
#include "sysfs/gpio_chip.hpp"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using norv::test::gpio_chip;
using norv::test::kernel_double;

class CppPage : public testing::Test {
  protected:
    kernel_double kernel;
    gpio_chip chip{kernel};
};

// ---- README

bool is_pressed_within_a_second() {
    norv::gpio button = norv::gpio::open(17).value();  // throws norv::error if that fails
    button.set_direction(norv::gpio::direction::input).value();
    button.set_edge(norv::gpio::edge::rising).value();
    return button.wait_edge(1s).ok() && button.get_value().value();
}  // the end of `button` closes the line

TEST_F(CppPage, ReadmeWaitsForAnEdge) {
    EXPECT_FALSE(is_pressed_within_a_second());
    EXPECT_THAT(kernel.writes("/sys/class/gpio/unexport"), testing::ElementsAre("17\0"s));
    chip.value->edge = true;
    chip.value->level = '1';
    EXPECT_TRUE(is_pressed_within_a_second());
}

// ---- statuses and results

norv::status light(uint32_t number) {
    norv::result<norv::gpio> lamp = norv::gpio::open(number);
    if (!lamp) {
        std::fprintf(stderr, "line %u: %s (%s)\n", number, lamp.status().name(), lamp.status().text());
        return lamp.status();
    }
    if (norv::status set = lamp->set_direction(norv::gpio::direction::output); !set.ok()) {
        return set;
    }
    return lamp->set_value(true);
}

TEST_F(CppPage, AFailureIsAStatus) {
    EXPECT_EQ(light(17), norv::ok);
    EXPECT_EQ(light(99), NORV_STATUS_INVALID_ARG);
}

bool is_high(uint32_t number) {
    return norv::gpio::open(number).value().get_value().value();
}

int show_level(uint32_t number) {
    try {
        std::printf("line %u is %d\n", number, is_high(number));
        return 0;
    } catch (const norv::error& failed) {
        std::printf("%s: %s\n", failed.status().name(), failed.what());
        return 1;
    }
}

TEST_F(CppPage, AFailureIsThrown) {
    EXPECT_EQ(show_level(17), 0);
    EXPECT_EQ(show_level(99), 1);
}

// ---- owners

TEST_F(CppPage, AnOwnerMoves) {
    norv::gpio first = norv::gpio::open(17).value();
    norv::gpio second = std::move(first);
    EXPECT_EQ(first.set_value(true), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(first.descriptor(), -1);
    EXPECT_EQ(second.set_direction(norv::gpio::direction::output), norv::ok);
    // The C interface is still there; the record stays the owner's.
    EXPECT_EQ(norv_linux_gpio_set_value(second.get(), true), NORV_STATUS_OK);
}

// ---- names

TEST_F(CppPage, ANameNeedNotEndWithANul) {
    kernel.add_file("/sys/class/leds/red/brightness", "0");
    const std::string_view names = "red,green";
    const norv::led red(names.substr(0, names.find(',')));
    EXPECT_EQ(red.set_brightness(7), norv::ok);
    EXPECT_EQ(norv::led(std::string(300, 'x')).set_brightness(7), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv::led("red\0green"s).set_brightness(7), NORV_STATUS_INVALID_ARG);
}

// ---- registers

enum class mode : uint32_t { idle, single, continuous };
constexpr norv::reg control(0x10);
constexpr norv::field<bool> enable(control, 0x00000001);
constexpr norv::field<mode> run_mode(control, 0x0000000C);
constexpr norv::reg<int32_t> temperature(0x14);

int32_t start(norv::uio& device) {
    device.write(enable(true) | run_mode(mode::single));  // the other bits become 0
    device.modify(run_mode(mode::continuous));            // the other bits stay
    return device.read(enable) ? device.read(temperature) : 0;
}

TEST_F(CppPage, RegistersHaveTypes) {
    norv::test::add_uio(kernel, "uio0", "fpga-regs");
    norv::uio device = norv::uio::open(0).value();
    device.write(temperature, -5);
    EXPECT_EQ(start(device), -5);
    EXPECT_EQ(device.read(control), 0x9U);
}

// ---- the loop

int count_ticks(norv::loop& loop) {
    int ticks = 0;
    norv::timer tick([&] {
        if (++ticks == 3) {
            loop.exit().value();
        }
    });
    tick.start_periodic(loop, 1ms).value();
    loop.run();
    return ticks;
}

TEST_F(CppPage, ATimerTicks) {
    norv::loop loop = norv::loop::open().value();
    EXPECT_EQ(count_ticks(loop), 3);
}

class blinker {
  public:
    explicit blinker(norv::led& light) : light_(light), tick_([this] { toggle(); }) {}
    norv::status start(norv::loop& on) { return tick_.start_periodic(on, 1ms); }
    int changes() const { return changes_; }

  private:
    void toggle() { light_.set_brightness(++changes_ % 2 != 0 ? 255 : 0).value(); }

    norv::led& light_;
    int changes_ = 0;
    norv::timer<norv::callback<void()>> tick_;
};

TEST_F(CppPage, AMemberHasATypeWithAName) {
    kernel.add_file("/sys/class/leds/red/brightness", "0");
    norv::led red("red");
    norv::loop loop = norv::loop::open().value();
    blinker blink(red);
    ASSERT_EQ(blink.start(loop), norv::ok);
    norv::timer end([&] {
        if (blink.changes() >= 2) {
            loop.exit().value();
        }
    });
    ASSERT_EQ(end.start_periodic(loop, 1ms), norv::ok);
    loop.run();
    EXPECT_GE(blink.changes(), 2);
}

TEST_F(CppPage, AHandlersExceptionLeavesTheLoop) {
    norv::loop loop = norv::loop::open().value();
    norv::timer failing([] { norv::status(NORV_STATUS_DEVICE_ERROR).value(); });
    ASSERT_EQ(failing.start(loop, 0ms), norv::ok);
    EXPECT_THROW(loop.run(), norv::error);
}

// ---- threads

int ask_the_other_thread() {
    norv::loop_thread io = norv::loop_thread::start().value();
    int sum = 0;  // belongs to the loop's thread
    norv::timer add([&] { ++sum; });
    add.start_periodic(io.loop(), 1ms).value();
    int seen = 0;
    while (seen == 0) {
        seen = io.run_on_loop([&] { return sum; }).value();
    }
    io.stop().value();
    return seen;
}

TEST_F(CppPage, AnotherThreadIsAsked) {
    EXPECT_GT(ask_the_other_thread(), 0);
}

TEST_F(CppPage, ALoopThreadThatHasEndedRunsNothing) {
    norv::loop_thread io = norv::loop_thread::start().value();
    ASSERT_EQ(io.stop(), norv::ok);
    EXPECT_EQ(io.run_on_loop([] {}), NORV_STATUS_BAD_STATE);
}

// ---- coroutines

norv::task<norv::status> follow(norv::gpio& line, int& high) {
    norv::gpio_edges edges(line);
    for (;;) {
        norv::result<bool> level = co_await edges.next();
        if (!level) {
            co_return level.status();
        }
        high += *level ? 1 : 0;
    }
}

norv::task<norv::status> follow_for(std::chrono::milliseconds time, norv::gpio& line, int& high) {
    co_return co_await norv::with_timeout(time, follow(line, high));
}

TEST_F(CppPage, ATaskFollowsALine) {
    norv::gpio line = norv::gpio::open(17).value();
    norv::test::urgent_descriptor urgent(line.descriptor());
    chip.value->level = '1';
    norv::loop loop = norv::loop::open().value();
    int high = 0;
    EXPECT_EQ(norv::run(loop, follow_for(1ms, line, high)), NORV_STATUS_TIMEOUT);
    urgent.raise();
    norv::job job(loop, follow(line, high));
    norv::timer end([&] {
        if (high > 0) {
            loop.exit().value();
        }
    });
    ASSERT_EQ(end.start_periodic(loop, 1ms), norv::ok);
    loop.run();
    job.stop();
    EXPECT_EQ(job.take(), NORV_STATUS_TIMEOUT);
}

norv::task<int> answer_after(std::chrono::milliseconds time, int answer) {
    (co_await norv::sleep(time)).value();
    co_return answer;
}

norv::task<int> add() {
    auto [first, second] = co_await norv::when_all(answer_after(2ms, 40), answer_after(1ms, 2));
    co_return first + second;
}

norv::task<norv::status> wait_for_stop() {
    co_return co_await norv::sleep(24h);
}

norv::task<size_t> race() {
    auto first = co_await norv::when_any(wait_for_stop(), answer_after(1ms, 2));
    co_return first.index();  // 1; the wait of the other task has ended with NORV_STATUS_TIMEOUT
}

TEST_F(CppPage, TasksRunBesideEachOther) {
    norv::loop loop = norv::loop::open().value();
    EXPECT_EQ(norv::run(loop, add()), 42);
    EXPECT_EQ(norv::run(loop, race()), 1U);
}

norv::status stop_from_another_thread(norv::loop& loop) {
    std::stop_source source;
    norv::job job(loop, wait_for_stop(), source.get_token());
    job.on_done([&] { loop.exit().value(); });
    const std::jthread other([&] { source.request_stop(); });
    loop.run();
    return job.take();  // NORV_STATUS_TIMEOUT
}

TEST_F(CppPage, AnotherThreadStopsATask) {
    norv::loop loop = norv::loop::open().value();
    EXPECT_EQ(stop_from_another_thread(loop), NORV_STATUS_TIMEOUT);
}

norv::task<int> compute_elsewhere(norv::loop& loop) {
    norv::completion<int> answer(loop);
    const std::jthread worker([&] { answer.set(6 * 7).value(); });
    norv::result<int> given = co_await answer;
    co_return given.value();
}

TEST_F(CppPage, AnotherThreadGivesAResult) {
    norv::loop loop = norv::loop::open().value();
    EXPECT_EQ(norv::run(loop, compute_elsewhere(loop)), 42);
}

TEST_F(CppPage, ARegularFileCannotBeAwaited) {
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    norv::loop loop = norv::loop::open().value();
    const auto wait = [](int descriptor) -> norv::task<norv::status> {
        norv::readiness ready(descriptor);
        co_return (co_await ready.wait(EPOLLIN)).status();
    };
    EXPECT_EQ(norv::run(loop, wait(fileno(file))), norv_get_status_by_errno(EPERM));
    std::fclose(file);
}

TEST_F(CppPage, ASecondReaderIsRefused) {
    norv::gpio line = norv::gpio::open(17).value();
    norv::test::urgent_descriptor urgent(line.descriptor());
    norv::loop loop = norv::loop::open().value();
    norv::gpio_edges edges(line);
    const auto next = [](norv::gpio_edges& of) -> norv::task<norv::status> {
        co_return (co_await of.next()).status();
    };
    norv::job first(loop, next(edges));
    norv::job second(loop, next(edges));
    EXPECT_FALSE(first.done());
    ASSERT_TRUE(second.done());
    EXPECT_EQ(second.take(), NORV_STATUS_BAD_STATE);
}

}  // namespace
