// SPDX-License-Identifier: MIT
// Interval timers: the owner, its manager, the alarms of a task, and the timer with a handler on a loop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/timerfd.h>

#include <array>
#include <ctime>
#include <optional>
#include <utility>
#include <vector>

#include "cpp/owner_sweep.hpp"
#include "norv/interval_timer.hpp"
#include "norv/task.hpp"
#include "support/kernel_double.hpp"

namespace {

using norv::interval_timer;
using norv::test::kernel_double;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class IntervalTimer : public testing::Test {
  protected:
    // What the kernel has of it.
    static itimerspec setting(int descriptor) {
        itimerspec current = {};
        timerfd_gettime(descriptor, &current);
        return current;
    }
    static bool is_armed(int descriptor) {
        const timespec left = setting(descriptor).it_value;
        return left.tv_sec != 0 || left.tv_nsec != 0;
    }
    static void wait_for_expiry(const interval_timer& timer) {
        pollfd request = {timer.descriptor(), POLLIN, 0};
        EXPECT_EQ(poll(&request, 1, -1), 1);
    }

    kernel_double kernel;
    norv::loop loop = norv::loop::open().value();
};

// ---- the owner

TEST_F(IntervalTimer, AnOpenTimerIsClosedWithItsOwner) {
    const size_t before = kernel.open_descriptors();
    {
        const norv::result<interval_timer> timer = interval_timer::open();
        ASSERT_TRUE(timer);
        EXPECT_FALSE(is_armed(timer->descriptor()));
        EXPECT_EQ(kernel.open_descriptors(), before + 1);
    }
    EXPECT_EQ(kernel.open_descriptors(), before);
}

TEST_F(IntervalTimer, AFailedOpenHasTheStatus) {
    kernel.fail("timerfd_create", EMFILE);
    EXPECT_EQ(interval_timer::open().status(), norv_get_status_by_errno(EMFILE));
}

TEST_F(IntervalTimer, AnAlarmHasATimeAndAPeriod) {
    interval_timer timer = interval_timer::open().value();
    EXPECT_EQ(timer.set_alarm(norv::monotonic_clock::now() + 1h, 250us), norv::ok);
    EXPECT_EQ(setting(timer.descriptor()).it_interval.tv_nsec, 250000);
    EXPECT_TRUE(is_armed(timer.descriptor()));
    EXPECT_EQ(timer.set_alarm(norv::monotonic_clock::now() + 1h), norv::ok);
    EXPECT_EQ(setting(timer.descriptor()).it_interval.tv_nsec, 0);
    EXPECT_EQ(timer.set_periodic(2s), norv::ok);
    EXPECT_EQ(setting(timer.descriptor()).it_interval.tv_sec, 2);
    EXPECT_EQ(timer.disarm(), norv::ok);
    EXPECT_FALSE(is_armed(timer.descriptor()));
}

TEST_F(IntervalTimer, TheKernelGetsTimesToTheTick) {
    interval_timer timer = interval_timer::open().value();
    kernel.set_clock(2000000000, 600000000);
    EXPECT_EQ(timer.set_alarm(norv::alarm_time(norv::ticks(20000000000000123)), norv::ticks(30000045)),
              norv::ok);
    EXPECT_EQ(timer.set_periodic(norv::ticks(5000001)), norv::ok);
    EXPECT_EQ(timer.disarm(), norv::ok);
    std::vector<std::array<time_t, 4>> sent;
    for (const auto& call : kernel.calls<norv::test::timer_setting>("timerfd_settime")) {
        const auto& [interval, first] = call.setting;
        sent.push_back({first.tv_sec, first.tv_nsec, interval.tv_sec, interval.tv_nsec});
    }
    EXPECT_THAT(sent, ElementsAre(ElementsAre(2000000000, 12300, 3, 4500),
                                  ElementsAre(2000000001, 100000100, 0, 500000100), ElementsAre(0, 0, 0, 0)));
}

TEST_F(IntervalTimer, ATimeOfNothingHasPassed) {
    interval_timer timer = interval_timer::open().value();
    for (const int64_t time : {int64_t{0}, int64_t{-5}}) {
        EXPECT_EQ(timer.set_alarm(norv::alarm_time(norv::ticks(time))), norv::ok);
        wait_for_expiry(timer);
        EXPECT_EQ(timer.clear(), norv::ok);
        EXPECT_EQ(timer.clear(), NORV_STATUS_AGAIN);
    }
}

TEST_F(IntervalTimer, APeriodOfNothingIsRefused) {
    interval_timer timer = interval_timer::open().value();
    EXPECT_EQ(timer.set_periodic(0s), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.set_periodic(-1s), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.set_alarm(norv::monotonic_clock::now(), -1s), NORV_STATUS_INVALID_ARG);
    EXPECT_FALSE(is_armed(timer.descriptor()));
}

TEST_F(IntervalTimer, TheClockIsReadInTicks) {
    kernel.set_clock(12, 345678901);
    EXPECT_EQ(interval_timer::now().value().time_since_epoch().count(), 123456789);
    kernel.fail("clock_gettime", EINVAL);
    EXPECT_EQ(interval_timer::now().status(), NORV_STATUS_INVALID_ARG);
}

TEST_F(IntervalTimer, ATimerThatWasMovedFromIsAnInvalidArgument) {
    interval_timer timer = interval_timer::open().value();
    const interval_timer other = std::move(timer);
    kernel.forget_calls();
    EXPECT_EQ(timer.set_alarm(norv::alarm_time(norv::ticks(1))), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.set_periodic(1s), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.disarm(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.clear(), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(timer.descriptor(), -1);
    EXPECT_EQ(timer.get(), nullptr);
    EXPECT_EQ(norv::interval_timer_manager(timer).opened(), NORV_STATUS_INVALID_ARG);
    EXPECT_THAT(kernel.calls(), IsEmpty());
    EXPECT_GE(other.descriptor(), 0);
}

TEST_F(IntervalTimer, MovingIntoAnOpenTimerClosesIt) {
    interval_timer timer = interval_timer::open().value();
    const size_t before = kernel.open_descriptors();
    timer = interval_timer::open().value();
    EXPECT_EQ(kernel.open_descriptors(), before);
}

TEST_F(IntervalTimer, AManagerDrivesTheTimer) {
    interval_timer timer = interval_timer::open().value();
    {
        norv::interval_timer_manager manager(timer);
        ASSERT_EQ(manager.opened(), norv::ok);
        EXPECT_EQ(manager.get()->set_alarm(manager.get(), 1), NORV_STATUS_OK);
    }
    wait_for_expiry(timer);
}

TEST(IntervalTimerManager, WithoutMemoryThereAreNoOperations) {
    kernel_double kernel;
    interval_timer timer = interval_timer::open().value();
    kernel.fail("norv_zalloc", ENOMEM);
    norv::interval_timer_manager none(timer);
    EXPECT_EQ(none.opened(), NORV_STATUS_NO_MEMORY);
    EXPECT_EQ(none.get(), nullptr);
}

TEST(IntervalTimerSweep, NothingLeaksThroughTheOwner) {
    norv::test::owner_sweep([](kernel_double&) {},
                            [] {
                                norv::result<interval_timer> timer = interval_timer::open();
                                if (!timer) {
                                    return timer.status().number();
                                }
                                norv::interval_timer_manager manager(*timer);
                                timer->set_periodic(1s).ignore();
                                timer->clear().ignore();
                                return manager.opened().number();
                            });
}

// ---- alarms for tasks

norv::task<norv::status> wait_twice(interval_timer& timer) {
    norv::interval_alarms alarms(timer);
    if (const norv::status first = co_await alarms.next(); !first.ok()) {
        co_return first;
    }
    co_return co_await alarms.next();
}

TEST_F(IntervalTimer, ATaskWaitsForAlarms) {
    interval_timer timer = interval_timer::open().value();
    ASSERT_EQ(timer.set_periodic(100us), norv::ok);
    EXPECT_EQ(norv::run(loop, wait_twice(timer)), norv::ok);
}

TEST_F(IntervalTimer, AnAlarmThatATaskHasSeenIsCleared) {
    interval_timer timer = interval_timer::open().value();
    ASSERT_EQ(timer.set_alarm(norv::monotonic_clock::now()), norv::ok);
    norv::job<norv::status> job(loop, wait_twice(timer));
    norv::delayed_call end([&] { EXPECT_EQ(loop.exit(), norv::ok); });
    norv::timer round([&] { EXPECT_EQ(end.start(loop), norv::ok); });
    ASSERT_EQ(round.start(loop, 5ms), norv::ok);
    loop.run();
    EXPECT_FALSE(job.done()) << "the second wait is for another alarm";
    EXPECT_EQ(timer.clear(), NORV_STATUS_AGAIN);
}

TEST_F(IntervalTimer, ATaskThatIsStoppedReturnsTimeout) {
    interval_timer timer = interval_timer::open().value();
    norv::job<norv::status> job(loop, wait_twice(timer));
    EXPECT_FALSE(job.done());
    job.stop();
    ASSERT_TRUE(job.done());
    EXPECT_EQ(job.take(), NORV_STATUS_TIMEOUT);
}

TEST_F(IntervalTimer, ATaskThatEndsWhileItWaitsLeavesNothing) {
    interval_timer timer = interval_timer::open().value();
    { const norv::job<norv::status> job(loop, wait_twice(timer)); }
    norv::watch watch([](uint32_t) {});
    EXPECT_EQ(watch.start(loop, timer.descriptor(), EPOLLIN), norv::ok);
}

// ---- with a handler on a loop

TEST_F(IntervalTimer, AHandlerIsCalledAfterEachAlarm) {
    int fired = 0;
    norv::timer_fd timer([&] {
        if (++fired == 3) {
            EXPECT_EQ(loop.exit(), norv::ok);
        }
    });
    EXPECT_EQ(timer.set_periodic(1ms), NORV_STATUS_INVALID_ARG) << "not started";
    EXPECT_EQ(timer.get(), nullptr);
    ASSERT_EQ(timer.start(loop), norv::ok);
    EXPECT_EQ(timer.set_periodic(100us), norv::ok);
    loop.run();
    EXPECT_EQ(fired, 3);
    timer.stop();
    EXPECT_EQ(timer.disarm(), NORV_STATUS_INVALID_ARG);
}

TEST_F(IntervalTimer, ATimerMayEndInItsOwnHandler) {
    std::optional<norv::timer_fd<>> timer;
    timer.emplace([&] {
        EXPECT_EQ(loop.exit(), norv::ok);
        timer.reset();
    });
    ASSERT_EQ(timer->start(loop), norv::ok);
    ASSERT_EQ(timer->set_alarm(norv::monotonic_clock::now()), norv::ok);
    loop.run();
    EXPECT_FALSE(timer.has_value());
}

TEST_F(IntervalTimer, ATimerMayOutliveItsLoop) {
    norv::timer_fd timer([] {});
    {
        norv::loop other = norv::loop::open().value();
        ASSERT_EQ(timer.start(other), norv::ok);
    }
    EXPECT_EQ(timer.disarm(), norv::ok);
    timer.stop();
    timer.stop();
}

TEST_F(IntervalTimer, ALoopThatWasMovedFromIsAnInvalidArgument) {
    const norv::loop other = std::move(loop);
    norv::timer_fd timer([] {});
    EXPECT_EQ(timer.start(loop), NORV_STATUS_INVALID_ARG);
}

TEST_F(IntervalTimer, AFailedStartLeavesNothing) {
    const size_t before = kernel.open_descriptors();
    norv::timer_fd timer([] {});
    for (const char* const call : {"timerfd_create", "epoll_ctl"}) {
        kernel.fail(call, ENOSPC);
        EXPECT_EQ(timer.start(loop), norv_get_status_by_errno(ENOSPC)) << call;
        EXPECT_EQ(kernel.open_descriptors(), before);
    }
    EXPECT_EQ(timer.start(loop), norv::ok);
}

}  // namespace
