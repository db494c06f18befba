// SPDX-License-Identifier: MIT
// Interval timers on a real kernel: they expire on time, and not earlier.
#include "norv_linux_timer.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>

namespace {

constexpr uint64_t ticks_per_millisecond = 10000;

class TimerOnBoard : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(norv_linux_timer_open(&timer), NORV_STATUS_OK); }
    void TearDown() override {
        norv_linux_timer_close(&timer);
        EXPECT_EQ(timer.descriptor, -1);
    }

    static uint64_t now() {
        uint64_t ticks = 0;
        EXPECT_EQ(norv_linux_timer_get_time(nullptr, &ticks), NORV_STATUS_OK);
        return ticks;
    }
    void wait() const {
        pollfd request = {timer.descriptor, POLLIN, 0};
        EXPECT_EQ(poll(&request, 1, -1), 1);
    }

    norv_linux_timer_t timer = {};
};

TEST_F(TimerOnBoard, AnAlarmComesAtItsTimeAndNotEarlier) {
    const uint64_t alarm = now() + 30 * ticks_per_millisecond;
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer, alarm, 0), NORV_STATUS_OK);
    EXPECT_EQ(norv_linux_timer_clear_event(&timer), -1);
    EXPECT_EQ(errno, EAGAIN);
    wait();
    EXPECT_GE(now(), alarm);
    EXPECT_EQ(norv_linux_timer_clear_event(&timer), 8);
    EXPECT_EQ(norv_linux_timer_clear_event(&timer), -1);
}

TEST_F(TimerOnBoard, APeriodDoesNotDrift) {
    const uint64_t period = 5 * ticks_per_millisecond;
    const uint64_t start = now();
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer, 0, period), NORV_STATUS_OK);
    for (uint64_t expiry = 1; expiry <= 20; ++expiry) {
        wait();
        EXPECT_GE(now(), start + expiry * period);
        EXPECT_EQ(norv_linux_timer_clear_event(&timer), 8);
    }
}

TEST_F(TimerOnBoard, AManagerRecordDrivesTheTimer) {
    norv_linux_timer_mgr_t manager;
    ASSERT_EQ(norv_linux_timer_mgr_open(&timer, &manager), NORV_STATUS_OK);
    uint64_t ticks = 0;
    EXPECT_EQ(manager.get_time(&manager, &ticks), NORV_STATUS_OK);
    EXPECT_EQ(manager.set_alarm(&manager, ticks + 5 * ticks_per_millisecond), NORV_STATUS_OK);
    wait();
    EXPECT_GE(now(), ticks + 5 * ticks_per_millisecond);
    manager.release(&manager);
    EXPECT_EQ(manager.context, nullptr);
}

}  // namespace
