// SPDX-License-Identifier: MIT
// A loop on a thread of its own: how it starts, and all the ways in which it ends.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "cpp/owner_sweep.hpp"
#include "norv/loop_thread.hpp"
#include "norv/task.hpp"
#include "norv/thread.hpp"
#include "norv/thread_watchdog.hpp"
#include "norv/wait.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::loop_thread;
using norv::test::kernel_double;
using namespace std::chrono_literals;

class LoopThread : public testing::Test {
  protected:
    kernel_double kernel;
};

TEST_F(LoopThread, AFunctionRunsOnItsThread) {
    loop_thread thread = loop_thread::start().value();
    const auto there = thread.run_on_loop([] { return norv::this_thread::id(); });
    EXPECT_NE(there.value(), norv::this_thread::id());
    EXPECT_EQ(thread.run_on_loop([] { return norv::status(NORV_STATUS_EMPTY); }), NORV_STATUS_EMPTY);
    EXPECT_EQ(thread.run_on_loop([] {}), norv::ok);
    EXPECT_THROW(thread.run_on_loop([] { throw std::runtime_error("there"); }).ignore(), std::runtime_error);
    EXPECT_EQ(thread.run_on_loop([&] { return thread.run_on_loop([] { return 1; }); }).value(), 1)
        << "at once, there";
}

TEST_F(LoopThread, AFunctionRunsAtOnceOnItsThreadWithinAnotherLoop) {
    loop_thread thread = loop_thread::start().value();
    norv::loop inner = norv::loop::open().value();
    norv::timer in_inner([&] {
        EXPECT_EQ(thread.run_on_loop([] { return 1; }).value(), 1);
        EXPECT_EQ(thread.stop(), NORV_STATUS_BAD_STATE);
        EXPECT_EQ(inner.exit(), norv::ok);
    });
    ASSERT_EQ(in_inner.start(inner, 0ms), norv::ok);
    EXPECT_EQ(thread.run_on_loop([&] { inner.run(); }), norv::ok);
}

TEST_F(LoopThread, NothingIsLeftAtItsEnd) {
    {
        loop_thread thread = loop_thread::start().value();
        EXPECT_EQ(kernel.open_descriptors(), 3U);
    }
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    EXPECT_EQ(kernel.allocations(), 0U);
}

TEST_F(LoopThread, ItStopsHoweverSoonItEnds) {
    for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(loop_thread::start().value().stop(), norv::ok);
    }
}

TEST_F(LoopThread, HandlersRunUntilItStops) {
    loop_thread thread = loop_thread::start().value();
    norv::one_shot_event fired;
    norv::timer timer([&] { EXPECT_EQ(fired.set(), norv::ok); });
    ASSERT_EQ(timer.start_periodic(thread.loop(), 1ms), norv::ok);
    EXPECT_EQ(fired.wait(norv::no_limit), norv::ok);
    EXPECT_EQ(fired.wait(norv::no_limit), norv::ok);
    EXPECT_EQ(thread.stop(), norv::ok);
    EXPECT_TRUE(timer.pending());
}

TEST_F(LoopThread, AfterItsEndAFunctionIsNotRun) {
    loop_thread thread = loop_thread::start().value();
    EXPECT_EQ(thread.stop(), norv::ok);
    EXPECT_EQ(thread.stop(), norv::ok);
    bool ran = false;
    EXPECT_EQ(thread.run_on_loop([&] { ran = true; }), NORV_STATUS_BAD_STATE);
    EXPECT_FALSE(ran);
}

TEST_F(LoopThread, AHandlerMayEndIt) {
    loop_thread thread = loop_thread::start().value();
    EXPECT_EQ(thread.run_on_loop([&] { return std::as_const(thread).loop().state() != nullptr; }).value(),
              true);
    EXPECT_EQ(thread.run_on_loop([&] { return thread.loop().exit(); }), norv::ok);
    while (thread.run_on_loop([] {}).ok()) {
    }
    EXPECT_EQ(thread.run_on_loop([] {}), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(thread.stop(), norv::ok);
}

TEST_F(LoopThread, ItCannotBeStoppedOnItsOwnThread) {
    loop_thread thread = loop_thread::start().value();
    EXPECT_EQ(thread.run_on_loop([&] { return thread.stop(); }), NORV_STATUS_BAD_STATE);
    EXPECT_EQ(thread.run_on_loop([] {}), norv::ok) << "it still runs";
}

TEST(LoopThreadDeathTest, EndingItOnItsOwnThreadEndsTheProgram) {
    EXPECT_DEATH(
        {
            auto thread = std::make_unique<loop_thread>(loop_thread::start().value());
            thread->run_on_loop([&] { thread.reset(); }).ignore();
        },
        "ended on its own thread");
}

TEST_F(LoopThread, TheExceptionOfAHandlerComesOutOfStop) {
    loop_thread thread = loop_thread::start().value();
    norv::timer timer([] { throw std::runtime_error("from the handler"); });
    ASSERT_EQ(timer.start(thread.loop(), 0ms), norv::ok);
    while (thread.run_on_loop([] {}).ok()) {
    }
    EXPECT_THROW(thread.stop().ignore(), std::runtime_error);
    EXPECT_EQ(thread.stop(), norv::ok);
}

TEST_F(LoopThread, WithoutAStopTheExceptionOfAHandlerIsDropped) {
    norv::timer timer([] { throw std::runtime_error("from the handler"); });
    {
        loop_thread thread = loop_thread::start().value();
        ASSERT_EQ(timer.start(thread.loop(), 0ms), norv::ok);
    }
    EXPECT_EQ(kernel.open_descriptors(), 3U) << "until the timer has ended";
}

TEST_F(LoopThread, OneThatWasMovedFromIsAnInvalidArgument) {
    loop_thread thread = loop_thread::start().value();
    loop_thread other = std::move(thread);
    norv::timer timer([] {});
    EXPECT_EQ(thread.stop(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(thread.run_on_loop([] { return 1; }).status(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.start(thread.loop(), 1ms), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(other.run_on_loop([] { return 1; }).value(), 1);
}

// Set at the end of the thread that has called it.
std::atomic<bool> has_ended;
void report_end() {
    struct at_end {
        ~at_end() { has_ended = true; }
    };
    thread_local at_end report;
    has_ended = false;
}

TEST_F(LoopThread, MovingIntoOneEndsIt) {
    loop_thread thread = loop_thread::start().value();
    loop_thread other = loop_thread::start().value();
    EXPECT_EQ(thread.run_on_loop(report_end), norv::ok);
    EXPECT_FALSE(has_ended);
    thread = std::move(other);
    EXPECT_TRUE(has_ended);
    EXPECT_EQ(kernel.open_descriptors(), 3U);
    EXPECT_EQ(thread.run_on_loop([] { return 1; }).value(), 1);
    thread = std::move(other);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
}

TEST_F(LoopThread, TheLoopReportsToAWatchdog) {
    kernel.set_clock(100, 0);
    norv::thread_watchdog watchdog(1h);
    loop_thread thread = loop_thread::start({.watchdog = watchdog.get(), .watchdog_period = 1ms}).value();
    EXPECT_EQ(thread.run_on_loop([&] { kernel.set_clock(100, 10000000); }), norv::ok);
    const auto has_reported = [&] {
        return __atomic_load_n(&watchdog.get()->last_report, __ATOMIC_RELAXED) == 100010;
    };
    // Each call wakes the loop, which then finds that a report is due.
    while (!has_reported()) {
        EXPECT_EQ(thread.run_on_loop([] {}), norv::ok);
    }
    EXPECT_EQ(thread.stop(), norv::ok);
    EXPECT_TRUE(has_reported());
}

TEST_F(LoopThread, AThreadThatCannotBeCreatedHasAStatus) {
    constexpr size_t almost_everything = SIZE_MAX - 0xFFFFF;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, almost_everything), 0);
    const auto thread = loop_thread::start({.attributes = &attributes});
    EXPECT_EQ(thread.status(), NORV_STATUS_AGAIN);
    EXPECT_EQ(kernel.open_descriptors(), 0U);
    pthread_attr_destroy(&attributes);
}

TEST(LoopThreadSweep, NothingLeaks) {
    norv::test::owner_sweep([](kernel_double&) {},
                            [] {
                                norv::result<loop_thread> thread = loop_thread::start();
                                return thread ? thread->stop().number() : thread.status().number();
                            });
}

// Threads that never stop calling while it ends: each call returns.
TEST_F(LoopThread, NoCallIsLeftWaitingAtItsEnd) {
    for (int round = 0; round < 50; ++round) {
        loop_thread thread = loop_thread::start().value();
        std::thread callers[2];
        for (std::thread& caller : callers) {
            caller = std::thread([&] {
                while (thread.run_on_loop([] {}).ok()) {
                }
            });
        }
        EXPECT_EQ(thread.stop(), norv::ok);
        for (std::thread& caller : callers) {
            caller.join();
        }
    }
}

}  // namespace
