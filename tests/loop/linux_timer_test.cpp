// SPDX-License-Identifier: MIT
// Interval timers: the requests to the kernel, and how they expire.
#include "norv_linux_timer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "norv_base.h"
#include "support/failure_sweep.hpp"

namespace {

using norv::test::failure_sweep;
using norv::test::kernel_double;
using norv::test::timer_setting;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint64_t ticks_per_millisecond = 10000;
constexpr uint64_t ticks_per_second = 10000000;

uint64_t now() {
    uint64_t ticks = 0;
    EXPECT_EQ(norv_linux_timer_get_time(nullptr, &ticks), NORV_STATUS_OK);
    return ticks;
}

// An open timer, closed at the end of the scope.
struct open_timer {
    open_timer() { EXPECT_EQ(norv_linux_timer_open(&handle), NORV_STATUS_OK); }
    ~open_timer() { norv_linux_timer_close(&handle); }
    open_timer(const open_timer&) = delete;
    open_timer& operator=(const open_timer&) = delete;

    bool expires_within(int milliseconds) const {
        pollfd request = {handle.descriptor, POLLIN, 0};
        return poll(&request, 1, milliseconds) == 1;
    }
    itimerspec setting() const {
        itimerspec current = {};
        timerfd_gettime(handle.descriptor, &current);
        return current;
    }

    norv_linux_timer_t handle = {};
};

bool is_armed(const itimerspec& setting) {
    return setting.it_value.tv_sec != 0 || setting.it_value.tv_nsec != 0;
}

// The only setting that was passed to the kernel.
itimerspec sent_setting(const kernel_double& kernel) {
    const auto calls = kernel.calls<timer_setting>("timerfd_settime");
    EXPECT_THAT(calls, SizeIs(1));
    return calls.empty() ? itimerspec{} : calls[0].setting;
}

// ---- open and close

TEST(IntervalTimer, ANewTimerIsNonBlockingNotInheritedAndNotArmed) {
    const open_timer timer;
    ASSERT_GT(timer.handle.descriptor, 0);
    EXPECT_NE(fcntl(timer.handle.descriptor, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(timer.handle.descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_FALSE(is_armed(timer.setting()));
}

TEST(IntervalTimer, AFailedOpenReportsItsStatusAndLeavesNoDescriptor) {
    kernel_double kernel;
    kernel.fail("timerfd_create", EMFILE);
    norv_linux_timer_t timer = {77};
    EXPECT_EQ(norv_linux_timer_open(&timer), norv_get_status_by_errno(EMFILE));
    EXPECT_EQ(timer.descriptor, -1);
}

TEST(IntervalTimer, AFailedOpenWhoseErrnoMapsToZeroCountsAsSuccess) {
    kernel_double kernel;
    kernel.map_errno(EMFILE, 0);
    kernel.fail("timerfd_create", EMFILE);
    norv_linux_timer_t timer = {};
    EXPECT_EQ(norv_linux_timer_open(&timer), NORV_STATUS_OK);
    EXPECT_EQ(timer.descriptor, -1);
}

TEST(IntervalTimer, ASecondCloseClosesNothing) {
    const kernel_double kernel;
    norv_linux_timer_t timer = {};
    norv_linux_timer_open(&timer);
    norv_linux_timer_close(&timer);
    EXPECT_EQ(timer.descriptor, -1);
    norv_linux_timer_close(&timer);
    EXPECT_THAT(kernel.calls("close"), SizeIs(1));
}

TEST(IntervalTimer, DescriptorZeroCountsAsClosed) {
    const kernel_double kernel;
    norv_linux_timer_t timer = {0};
    norv_linux_timer_close(&timer);
    EXPECT_THAT(kernel.calls("close"), IsEmpty());
}

TEST(IntervalTimer, ANullTimerIsAnInvalidArgumentAndCloseAcceptsIt) {
    EXPECT_EQ(norv_linux_timer_open(nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(nullptr, 1, 1), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_timer_clear_event(nullptr), -1);
    norv_linux_timer_close(nullptr);
}

// ---- the time

TEST(IntervalTimer, TheTimeIsThatOfTheMonotonicClockIn100Nanoseconds) {
    kernel_double kernel;
    kernel.set_clock(3, 799);
    EXPECT_EQ(now(), 30000007U);
}

TEST(IntervalTimer, TheTimeRunsWithTheMonotonicClock) {
    const auto clock_ticks = [] {
        timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<uint64_t>(time.tv_sec) * ticks_per_second +
               static_cast<uint64_t>(time.tv_nsec) / 100;
    };
    const uint64_t before = clock_ticks();
    const uint64_t ticks = now();
    EXPECT_LE(before, ticks);
    EXPECT_LE(ticks, clock_ticks());
}

TEST(IntervalTimer, GettingTheTimeWithANullOutputReturnsZero) {
    EXPECT_EQ(norv_linux_timer_get_time(nullptr, nullptr), NORV_STATUS_OK);
}

TEST(IntervalTimer, AClockFailureLeavesTheOutputUnchanged) {
    kernel_double kernel;
    uint64_t ticks = 42;
    kernel.fail("clock_gettime", EPERM);
    EXPECT_EQ(norv_linux_timer_get_time(nullptr, &ticks), norv_get_status_by_errno(EPERM));
    EXPECT_EQ(ticks, 42U);
}

TEST(IntervalTimer, AClockFailureIsReportedWithANullOutputToo) {
    kernel_double kernel;
    kernel.fail("clock_gettime", EPERM);
    EXPECT_EQ(norv_linux_timer_get_time(nullptr, nullptr), norv_get_status_by_errno(EPERM));
}

// ---- alarms

TEST(IntervalTimer, AnAlarmIsSetAtItsAbsoluteTimeWithItsPeriod) {
    const kernel_double kernel;
    open_timer timer;
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 20000000000000123, 30000045), NORV_STATUS_OK);
    const itimerspec sent = sent_setting(kernel);
    EXPECT_EQ(sent.it_value.tv_sec, 2000000000);
    EXPECT_EQ(sent.it_value.tv_nsec, 12300);
    EXPECT_EQ(sent.it_interval.tv_sec, 3);
    EXPECT_EQ(sent.it_interval.tv_nsec, 4500);
    EXPECT_EQ(kernel.calls("timerfd_settime")[0].as<timer_setting>().flags,
              TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET);
}

TEST(IntervalTimer, APeriodWithTimeZeroStartsOnePeriodFromNow) {
    kernel_double kernel;
    open_timer timer;
    kernel.set_clock(2000000000, 600000000);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 0, 5000000), NORV_STATUS_OK);
    const itimerspec sent = sent_setting(kernel);
    EXPECT_EQ(sent.it_value.tv_sec, 2000000001);
    EXPECT_EQ(sent.it_value.tv_nsec, 100000000);
    EXPECT_EQ(sent.it_interval.tv_sec, 0);
    EXPECT_EQ(sent.it_interval.tv_nsec, 500000000);
}

TEST(IntervalTimer, TenMillionTicksArePeriodsOfOneSecondFromNow) {
    open_timer timer;
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 0, 10000000), NORV_STATUS_OK);
    const itimerspec setting = timer.setting();
    EXPECT_EQ(setting.it_interval.tv_sec, 1);
    EXPECT_EQ(setting.it_interval.tv_nsec, 0);
    EXPECT_TRUE(is_armed(setting));
    EXPECT_LE(setting.it_value.tv_sec, 1);
    EXPECT_FALSE(timer.expires_within(0));
    EXPECT_TRUE(timer.expires_within(-1));
    EXPECT_EQ(norv_linux_timer_clear_event(&timer.handle), 8);
    EXPECT_TRUE(timer.expires_within(-1));
}

TEST(IntervalTimer, ATimeWithoutAPeriodFiresOnce) {
    open_timer timer;
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, now() + 5 * ticks_per_millisecond, 0),
              NORV_STATUS_OK);
    EXPECT_TRUE(timer.expires_within(-1));
    EXPECT_EQ(norv_linux_timer_clear_event(&timer.handle), 8);
    EXPECT_FALSE(is_armed(timer.setting()));
}

TEST(IntervalTimer, ATimeThatHasPassedFiresAtOnce) {
    open_timer timer;
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 1, 0), NORV_STATUS_OK);
    EXPECT_TRUE(timer.expires_within(0));
}

TEST(IntervalTimer, TimeZeroWithoutAPeriodDisarmsAndClearsExpiries) {
    open_timer timer;
    norv_linux_timer_set_alarm_time(&timer.handle, 1, ticks_per_second);
    ASSERT_TRUE(timer.expires_within(0));
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 0, 0), NORV_STATUS_OK);
    EXPECT_FALSE(is_armed(timer.setting()));
    EXPECT_FALSE(timer.expires_within(0));
}

TEST(IntervalTimer, WithoutAPeriodTheClockIsNotRead) {
    kernel_double kernel;
    open_timer timer;
    kernel.fail("clock_gettime", EPERM);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 0, 0), NORV_STATUS_OK);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, ticks_per_second, 1), NORV_STATUS_OK);
    EXPECT_FALSE(kernel.struck());
}

TEST(IntervalTimer, AClockFailureArmsNothing) {
    kernel_double kernel;
    open_timer timer;
    kernel.fail("clock_gettime", EPERM);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 0, 5), norv_get_status_by_errno(EPERM));
    EXPECT_THAT(kernel.calls("timerfd_settime"), IsEmpty());
}

TEST(IntervalTimer, AnAlarmOfAClosedTimerReportsTheKernelsStatus) {
    norv_linux_timer_t closed = {-1};
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&closed, 1, 0), norv_get_status_by_errno(EBADF));
}

// ---- expiries

// quirk 32
TEST(IntervalTimer, ClearingATimerThatHasNotExpiredReturnsMinusOne) {
    open_timer timer;
    EXPECT_EQ(norv_linux_timer_clear_event(&timer.handle), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(IntervalTimer, ClearingClearsAllExpiriesAtOnce) {
    open_timer timer;
    norv_linux_timer_set_alarm_time(&timer.handle, 1, ticks_per_second);  // many periods have passed since
    ASSERT_TRUE(timer.expires_within(0));
    EXPECT_EQ(norv_linux_timer_clear_event(&timer.handle), 8);
    EXPECT_EQ(norv_linux_timer_clear_event(&timer.handle), -1);
}

// ---- the manager

TEST(TimerManager, OpeningFillsInTheOperationsAfterTwoZeroWords) {
    const kernel_double kernel;
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    std::memset(&manager, 0xff, sizeof manager);
    EXPECT_EQ(norv_linux_timer_mgr_open(&timer.handle, &manager), NORV_STATUS_OK);
    EXPECT_EQ(manager.reserved[0], 0U);
    EXPECT_EQ(manager.reserved[1], 0U);
    EXPECT_NE(manager.get_time, nullptr);
    EXPECT_NE(manager.set_alarm, nullptr);
    EXPECT_EQ(kernel.allocations(), 1U);
    manager.release(&manager);
}

TEST(TimerManager, TheContextHoldsThePointerToTheTimer) {
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    norv_linux_timer_mgr_open(&timer.handle, &manager);
    EXPECT_EQ(*static_cast<norv_linux_timer_t**>(manager.context), &timer.handle);
    manager.release(&manager);
}

TEST(TimerManager, GettingTheTimeGivesTheTimersTime) {
    kernel_double kernel;
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    norv_linux_timer_mgr_open(&timer.handle, &manager);
    kernel.set_clock(7, 100);
    uint64_t ticks = 0;
    EXPECT_EQ(manager.get_time(&manager, &ticks), NORV_STATUS_OK);
    EXPECT_EQ(ticks, 70000001U);
    EXPECT_EQ(manager.get_time(&manager, nullptr), NORV_STATUS_OK);
    kernel.fail("clock_gettime", EPERM);
    EXPECT_EQ(manager.get_time(&manager, &ticks), norv_get_status_by_errno(EPERM));
    manager.release(&manager);
}

TEST(TimerManager, SettingTheAlarmSetsOneAlarmWithoutAPeriod) {
    const kernel_double kernel;
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    norv_linux_timer_mgr_open(&timer.handle, &manager);
    EXPECT_EQ(manager.set_alarm(&manager, 10), NORV_STATUS_OK);
    const itimerspec sent = sent_setting(kernel);
    EXPECT_EQ(sent.it_value.tv_nsec, 1000);
    EXPECT_EQ(sent.it_interval.tv_sec, 0);
    EXPECT_EQ(sent.it_interval.tv_nsec, 0);
    EXPECT_TRUE(timer.expires_within(0));
    manager.release(&manager);
}

TEST(TimerManager, ReleasingFreesTheContextAndLeavesTheTimerOpen) {
    const kernel_double kernel;
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    norv_linux_timer_mgr_open(&timer.handle, &manager);
    manager.release(&manager);
    EXPECT_EQ(manager.context, nullptr);
    EXPECT_EQ(kernel.allocations(), 0U);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.handle, 1, 0), NORV_STATUS_OK);
}

TEST(TimerManager, AReleasedRecordSetsNoAlarmAndIsReleasedOnlyOnce) {
    const kernel_double kernel;
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    norv_linux_timer_mgr_open(&timer.handle, &manager);
    manager.release(&manager);
    manager.release(&manager);
    EXPECT_EQ(manager.set_alarm(&manager, 10), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(manager.get_time(&manager, nullptr), NORV_STATUS_OK);
    EXPECT_FALSE(timer.expires_within(0));
}

TEST(TimerManager, WithoutMemoryTheRecordIsLeftAllZero) {
    kernel_double kernel;
    open_timer timer;
    norv_linux_timer_mgr_t manager;
    std::memset(&manager, 0xff, sizeof manager);
    kernel.fail("norv_zalloc", ENOMEM);
    EXPECT_EQ(norv_linux_timer_mgr_open(&timer.handle, &manager), NORV_STATUS_NO_MEMORY);
    const norv_linux_timer_mgr_t zero = {};
    EXPECT_EQ(std::memcmp(&manager, &zero, sizeof manager), 0);
}

TEST(TimerManager, ANullPointerIsAnInvalidArgument) {
    norv_linux_timer_t timer = {-1};
    norv_linux_timer_mgr_t manager = {};
    EXPECT_EQ(norv_linux_timer_mgr_open(nullptr, &manager), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_linux_timer_mgr_open(&timer, nullptr), NORV_STATUS_INVALID_ARG);
}

// ---- every call may fail

uint32_t drive_a_timer_through_its_manager() {
    norv_linux_timer_t timer = {};
    norv_linux_timer_mgr_t manager = {};
    uint64_t ticks = 0;
    uint32_t status = norv_linux_timer_open(&timer);
    if (status == NORV_STATUS_OK) {
        status = norv_linux_timer_mgr_open(&timer, &manager);
    }
    if (status == NORV_STATUS_OK) {
        status = manager.get_time(&manager, &ticks);
    }
    if (status == NORV_STATUS_OK) {
        status = manager.set_alarm(&manager, ticks + ticks_per_second);
    }
    if (status == NORV_STATUS_OK) {
        status = norv_linux_timer_set_alarm_time(&timer, 0, ticks_per_second);
    }
    if (manager.release != nullptr) {
        manager.release(&manager);
    }
    norv_linux_timer_close(&timer);
    return status;
}

TEST(IntervalTimerSweep, EveryFailureIsReportedAndNothingLeaks) {
    failure_sweep([](kernel_double&) {}, drive_a_timer_through_its_manager);
}

uint32_t clear_an_expired_timer() {
    open_timer timer;
    norv_linux_timer_set_alarm_time(&timer.handle, 1, 0);
    return norv_linux_timer_clear_event(&timer.handle) == 8 ? 0U : 1U;
}

TEST(IntervalTimerSweep, AFailedReadOfTheExpiriesIsReturned) {
    kernel_double kernel;
    kernel.fail("read", EINTR);
    EXPECT_EQ(clear_an_expired_timer(), 1U);
}

}  // namespace
