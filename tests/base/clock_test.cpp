// SPDX-License-Identifier: MIT
// The clock of the base library.
#include <gtest/gtest.h>

#include <ctime>

#include "norv_base.h"
#include "support/kernel_double.hpp"

namespace {

uint64_t monotonic_microseconds() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000 + static_cast<uint64_t>(time.tv_nsec) / 1000;
}

TEST(Clock, MicrosecondsAreThoseOfTheMonotonicClock) {
    const uint64_t before = monotonic_microseconds();
    const uint64_t now = norv_time_get_us();
    const uint64_t after = monotonic_microseconds();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(Clock, MillisecondsAreThoseOfTheSameClock) {
    const uint64_t before = norv_time_get_us();
    const uint64_t now = norv_time_get_ms();
    const uint64_t after = norv_time_get_us();
    EXPECT_LE(before / 1000, now);
    EXPECT_LE(now, after / 1000);
}

TEST(Clock, SecondsAndNanosecondsMakeOneNumber) {
    norv::test::kernel_double kernel;
    kernel.set_clock(2000000000, 999000000);
    EXPECT_EQ(norv_time_get_ms(), 2000000000999U);
    EXPECT_EQ(norv_time_get_us(), 2000000000999000U);
    kernel.set_clock(2000000000, 999999999);
    EXPECT_EQ(norv_time_get_ms(), 2000000000999U);
    EXPECT_EQ(norv_time_get_us(), 2000000000999999U);
}

TEST(Clock, NeverRunsBackwards) {
    uint64_t last = norv_time_get_us();
    for (int reading = 0; reading < 100000; ++reading) {
        const uint64_t now = norv_time_get_us();
        ASSERT_LE(last, now);
        last = now;
    }
}

TEST(Clock, RunsWhileTheThreadSleeps) {
    const uint64_t before = norv_time_get_ms();
    const timespec pause{.tv_sec = 0, .tv_nsec = 20000000};
    nanosleep(&pause, nullptr);
    EXPECT_GE(norv_time_get_ms() - before, 19U);
}

}  // namespace
