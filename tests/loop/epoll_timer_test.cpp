// SPDX-License-Identifier: MIT
// Timers and delayed calls of the event loop, and its watchdog, with a clock that the tests set.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "norv_epoll.h"
#include "support/event_loop.hpp"
#include "support/kernel_double.hpp"
#include "support/real_calls.hpp"

namespace {

// Microseconds that both clocks show; 0: the real time.
std::atomic<uint64_t> shown_time = 0;
// How far the clock of this thread is ahead of that, in microseconds.
thread_local uint64_t ahead = 0;
std::atomic<int> readings = 0;
std::atomic<int> reports = 0;
std::function<void()> on_report;

uint64_t read_clock() {
    ++readings;
    return shown_time != 0 ? shown_time + ahead : 0;
}

}  // namespace

extern "C" uint32_t norv_thread_keep_alive(void* handle) {
    ++reports;
    if (on_report) {
        on_report();
    }
    return REAL(norv_thread_keep_alive)(handle);
}

// The libraries find the clock here first.
extern "C" uint64_t norv_time_get_us() {
    const uint64_t time = read_clock();
    return time != 0 ? time : REAL(norv_time_get_us)();
}
extern "C" uint64_t norv_time_get_ms() {
    const uint64_t time = read_clock();
    return time != 0 ? time / 1000 : REAL(norv_time_get_ms)();
}

namespace {

using norv::test::call;
using norv::test::delayed_call;
using norv::test::kernel_double;
using norv::test::loop_thread;
using norv::test::open_loop;
using norv::test::source;
using norv::test::timer;
using norv::test::waiting;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t wrap_of_32_bits = 0x100000000;

class TimedLoop : public testing::Test {
  protected:
    TimedLoop() { set_ms(1000); }
    ~TimedLoop() override { shown_time = 0; }

    static void set_ms(uint64_t ms) { shown_time = ms * 1000; }
    static void advance_ms(uint64_t ms) { shown_time += ms * 1000; }

    void schedule(timer& due, uint32_t ms, bool repeat = false) {
        EXPECT_EQ(norv_epoll_timer_schedule(&loop.handle, &due.record, ms, repeat), NORV_STATUS_OK);
    }
    void schedule(delayed_call& call, uint32_t priority) {
        EXPECT_EQ(norv_epoll_delayed_schedule(&loop.handle, &call.record, priority), NORV_STATUS_OK);
    }
    // Lets one round run: a descriptor is ready, so that it does not wait.
    void run_one_round() {
        source ready([&](uint32_t) { schedule(last_, 1000); });
        ready.signal();
        norv_epoll_fd_add(&loop.handle, &ready.record, EPOLLIN);
        loop.run();
        norv_epoll_fd_remove(&loop.handle, &ready.record);
    }
    // A callback that records its name.
    std::function<void()> note(const std::string& name) {
        return [this, name] { journal.push_back(name); };
    }

    open_loop loop;
    std::vector<std::string> journal;

  private:
    delayed_call last_{[this] { loop.exit(); }};
};

class LoopTimer : public TimedLoop {};
class DelayedCall : public TimedLoop {};
class LoopWatchdog : public TimedLoop {};

// ---- scheduling timers

TEST_F(LoopTimer, SchedulingFillsTheRecordAndQueuesIt) {
    timer due;
    schedule(due, 250, true);
    EXPECT_EQ(due.record.loop, &loop.handle);
    EXPECT_EQ(due.record.expiry, 1250U);
    EXPECT_EQ(due.record.period, 250U);
    EXPECT_EQ(due.record.repeat, 1U);
    EXPECT_EQ(norv_epoll_timer_pending(&due.record), 1);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(LoopTimer, TheExpiryKeepsAll64BitsOfTheClock) {
    timer due;
    set_ms(7 * wrap_of_32_bits);
    schedule(due, 0x80000000);
    EXPECT_EQ(due.record.expiry, 7 * wrap_of_32_bits + 0x80000000);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(LoopTimer, CancellingDequeuesTheTimerAndClearsItsLoop) {
    timer due;
    schedule(due, 10);
    EXPECT_EQ(norv_epoll_timer_cancel(&loop.handle, &due.record), NORV_STATUS_OK);
    EXPECT_EQ(due.record.loop, nullptr);
    EXPECT_EQ(norv_epoll_timer_pending(&due.record), 0);
    EXPECT_EQ(loop.handle.timers.top, nullptr);
}

TEST_F(LoopTimer, CancellingATimerThatIsNotScheduledIsHarmless) {
    timer due;
    EXPECT_EQ(norv_epoll_timer_cancel(&loop.handle, &due.record), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_timer_pending(&due.record), 0);
}

// quirk 25
TEST_F(LoopTimer, SchedulingForNeverCancelsAPendingTimer) {
    timer due;
    schedule(due, 10);
    schedule(due, 0xFFFFFFFF, true);
    EXPECT_EQ(due.record.loop, nullptr);
    EXPECT_EQ(norv_epoll_timer_pending(&due.record), 0);
    EXPECT_EQ(due.record.period, 10U);
    EXPECT_EQ(due.record.repeat, 0U);
    EXPECT_EQ(due.record.expiry, 1010U);
}

TEST_F(LoopTimer, MicrosecondsAreTruncatedToMilliseconds) {
    timer due;
    EXPECT_EQ(norv_epoll_timer_schedule_us(&loop.handle, &due.record, 2999, true), NORV_STATUS_OK);
    EXPECT_EQ(due.record.period, 2U);
    EXPECT_EQ(due.record.expiry, 1002U);
    EXPECT_EQ(due.record.repeat, 1U);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
    EXPECT_EQ(norv_epoll_timer_schedule_us(&loop.handle, &due.record, 70000999, true), NORV_STATUS_OK);
    EXPECT_EQ(due.record.period, 70000U);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(LoopTimer, LessThan1000MicrosecondsAreATimerOfZeroMilliseconds) {
    timer due;
    norv_epoll_timer_schedule_us(&loop.handle, &due.record, 999, false);
    EXPECT_EQ(due.record.period, 0U);
    EXPECT_EQ(due.record.expiry, 1000U);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
}

TEST_F(LoopTimer, OnlyTheLow32BitsOfTheMillisecondsAreUsed) {
    timer due;
    norv_epoll_timer_schedule_us(&loop.handle, &due.record, (wrap_of_32_bits + 5) * 1000, false);
    EXPECT_EQ(due.record.period, 5U);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(LoopTimer, NullPointersAreRefused) {
    timer due;
    EXPECT_EQ(norv_epoll_timer_schedule(nullptr, &due.record, 1, false), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_schedule(&loop.handle, nullptr, 1, false), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_schedule_us(nullptr, &due.record, 1, false), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_schedule_us(&loop.handle, nullptr, 1, false), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_cancel(nullptr, &due.record), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_cancel(&loop.handle, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_timer_pending(nullptr), 0);
    EXPECT_EQ(due.record.loop, nullptr);
}

// ---- firing timers

TEST_F(LoopTimer, ATimerFiresOnlyWhenItsTimeHasCome) {
    timer due;
    schedule(due, 10);
    set_ms(1009);
    run_one_round();
    EXPECT_EQ(due.expiries, 0);
    set_ms(1010);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
}

TEST_F(LoopTimer, AOneShotTimerIsNotPendingInItsCallback) {
    timer due([&] {
        EXPECT_EQ(norv_epoll_timer_pending(&due.record), 0);
        EXPECT_EQ(due.record.loop, &loop.handle);
    });
    schedule(due, 0);
    run_one_round();
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
    EXPECT_EQ(due.record.loop, &loop.handle);
}

TEST_F(LoopTimer, AOneShotTimerMayFreeItselfInItsCallback) {
    auto due = std::make_unique<timer>();
    due->on_expiry([&] {
        const auto freed = std::move(due);
        journal.emplace_back("freed");
    });
    schedule(*due, 0);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("freed"));
}

TEST_F(LoopTimer, APeriodicTimerIsPendingAgainInItsCallback) {
    timer due([&] {
        EXPECT_EQ(norv_epoll_timer_pending(&due.record), 1);
        EXPECT_EQ(due.record.expiry, 1020U);
    });
    schedule(due, 10, true);
    set_ms(1010);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

// quirk 22
TEST_F(LoopTimer, APeriodicTimerThatFiresLateShiftsItsPhase) {
    timer due;
    schedule(due, 10, true);
    set_ms(1037);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
    EXPECT_EQ(due.record.expiry, 1047U);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(LoopTimer, APeriodicTimerMayCancelItselfInItsCallback) {
    timer due([&] { norv_epoll_timer_cancel(&loop.handle, &due.record); });
    schedule(due, 10, true);
    set_ms(1010);
    run_one_round();
    set_ms(1020);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
}

TEST_F(LoopTimer, ATimerMayRescheduleItselfInItsCallback) {
    timer due([&] { schedule(due, 500); });
    schedule(due, 10, true);
    set_ms(1010);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
    EXPECT_EQ(due.record.expiry, 1510U);
    EXPECT_EQ(due.record.repeat, 0U);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(LoopTimer, ReschedulingAPendingTimerMovesIt) {
    timer due;
    schedule(due, 10);
    schedule(due, 30);
    set_ms(1010);
    run_one_round();
    EXPECT_EQ(due.expiries, 0);
    set_ms(1030);
    run_one_round();
    EXPECT_EQ(due.expiries, 1);
}

TEST_F(LoopTimer, DueTimersFireInTheOrderOfTheirExpiry) {
    timer third(note("third"));
    timer first(note("first"));
    timer second(note("second"));
    schedule(third, 30);
    schedule(first, 10);
    schedule(second, 20);
    set_ms(1100);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("first", "second", "third"));
}

TEST_F(LoopTimer, OneMillisecondDecidesTheOrder) {
    timer second(note("second"));
    timer first(note("first"));
    schedule(second, 11);
    schedule(first, 10);
    set_ms(1100);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("first", "second"));
}

TEST_F(LoopTimer, TheTimeIsReadOnceForTheWholeRound) {
    timer later(note("later"));
    delayed_call after_timers(note("end of the first round"));
    timer slow([&] {
        set_ms(1050);  // `later` becomes due while this callback runs
        schedule(after_timers, 0);
    });
    schedule(slow, 10);
    schedule(later, 20);
    set_ms(1010);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("end of the first round"));
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("end of the first round", "later"));
}

TEST_F(LoopTimer, ATimerScheduledForNowByATimerFiresInTheSameRound) {
    timer second(note("second"));
    timer first([&] { schedule(second, 0); });
    schedule(first, 0);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("second"));
}

TEST_F(LoopTimer, ATimerMayCancelAnotherDueTimer) {
    timer second;
    timer first([&] { norv_epoll_timer_cancel(&loop.handle, &second.record); });
    schedule(first, 1);
    schedule(second, 2);
    set_ms(1010);
    run_one_round();
    EXPECT_EQ(first.expiries, 1);
    EXPECT_EQ(second.expiries, 0);
}

TEST_F(LoopTimer, AnExitFromATimerSkipsTheRestOfTheRound) {
    timer second;
    delayed_call never;
    source ready;
    timer first([&] {
        schedule(never, 0);
        loop.exit();
    });
    schedule(first, 1);
    schedule(second, 2);
    set_ms(1010);
    ready.signal();
    norv_epoll_fd_add(&loop.handle, &ready.record, EPOLLIN);
    loop.run();
    EXPECT_EQ(second.expiries, 0);
    EXPECT_EQ(ready.deliveries, 0);
    EXPECT_EQ(never.runs, 0);
    EXPECT_EQ(norv_epoll_timer_pending(&second.record), 1);
    EXPECT_EQ(norv_epoll_delayed_pending(&never.record), 1);
}

TEST_F(LoopTimer, TimersLeftByAnExitFireInTheNextRun) {
    timer second([&] { loop.exit(); });
    timer first([&] { loop.exit(); });
    schedule(first, 1);
    schedule(second, 2);
    set_ms(1010);
    loop.run();
    loop.run();
    EXPECT_EQ(second.expiries, 1);
}

TEST_F(LoopTimer, TimersAreRightWhenTheMillisecondsWrapAt32Bits) {
    timer after(note("after the wrap"));
    timer before(note("before the wrap"));
    set_ms(wrap_of_32_bits - 16);
    schedule(after, 32);
    schedule(before, 8);
    set_ms(wrap_of_32_bits - 8);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("before the wrap"));
    set_ms(wrap_of_32_bits + 15);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("before the wrap"));
    set_ms(wrap_of_32_bits + 16);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("before the wrap", "after the wrap"));
}

// quirk 23
TEST_F(LoopTimer, TimersMoreThan2To31MillisecondsApartAreInReverseOrder) {
    timer far(note("far"));
    timer near(note("near"));
    schedule(far, 0x80000000 + 20);
    schedule(near, 10);
    EXPECT_EQ(loop.handle.timers.top, &far.record.node);
    norv_epoll_timer_cancel(&loop.handle, &far.record);
    norv_epoll_timer_cancel(&loop.handle, &near.record);
}

TEST_F(LoopTimer, TheExpiryIsComputedOnTheSchedulingThread) {
    timer due;
    {
        const loop_thread running(&loop.handle);
        ahead = 7000000;
        schedule(due, 60000);
        ahead = 0;
    }
    EXPECT_EQ(due.record.expiry, 68000U);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

// quirk 23
TEST_F(LoopTimer, ATimerOf2To31MinusOneMillisecondsDelaysLateOnes) {
    timer far(note("far"));
    timer near(note("near"));
    schedule(near, 10);
    set_ms(1011);  // near is 1 ms late
    schedule(far, 0x7FFFFFFF);
    run_one_round();
    EXPECT_THAT(journal, IsEmpty());
    norv_epoll_timer_cancel(&loop.handle, &far.record);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("near"));
}

// quirk 24
TEST_F(LoopTimer, APeriodicTimerOf2To31MillisecondsKeepsTheRoundFromEnding) {
    source ready([this](uint32_t) { loop.exit(); });
    timer due([&] {
        if (due.expiries == 100) {
            loop.exit();
        }
    });
    ready.signal();
    norv_epoll_fd_add(&loop.handle, &ready.record, EPOLLIN);
    schedule(due, 0x80000000, true);
    loop.run();
    EXPECT_EQ(ready.deliveries, 0);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

// A time that is too far ahead for a timer, in steps of 2^30 ms.
class far_timer {
  public:
    explicit far_timer(norv_epoll_t* loop) : loop_(loop) {}

    void schedule(uint64_t ms) {
        end_ = norv_time_get_ms() + ms;
        take_step();
    }
    bool over() const { return over_; }
    norv_epoll_timer_t& record() { return timer_.record; }

  private:
    void take_step() {
        const uint64_t now = norv_time_get_ms();
        const uint64_t left = end_ > now ? end_ - now : 0;
        over_ = left == 0;
        if (!over_) {
            const auto step = static_cast<uint32_t>(std::min<uint64_t>(left, 0x40000000));
            norv_epoll_timer_schedule(loop_, &timer_.record, step, false);
        }
    }

    norv_epoll_t* loop_;
    uint64_t end_ = 0;
    bool over_ = false;
    timer timer_{[this] { take_step(); }};
};

TEST_F(LoopTimer, ATimeBeyond2To31MillisecondsIsReachedInSteps) {
    constexpr uint64_t day = 86400000;
    far_timer far(&loop.handle);
    timer hourly;
    far.schedule(100 * day);
    schedule(hourly, 3600000, true);
    for (uint64_t hour = 1; hour <= 2400; ++hour) {
        set_ms(1000 + hour * 3600000);
        ASSERT_FALSE(far.over()) << "hour " << hour;
        run_one_round();
    }
    EXPECT_TRUE(far.over());
    EXPECT_EQ(hourly.expiries, 2400);
    norv_epoll_timer_cancel(&loop.handle, &hourly.record);
}

// ---- how long a round waits

// The timeouts with which the loop waited in one run.
class LoopWait : public TimedLoop {
  protected:
    std::vector<int> waits() {
        std::vector<int> timeouts;
        for (const call& made : kernel.calls("epoll_wait")) {
            timeouts.push_back(made.as<waiting>().timeout);
        }
        return timeouts;
    }

    kernel_double kernel;
};

TEST_F(LoopWait, WithoutTimersItHasNoLimit) {
    run_one_round();
    EXPECT_THAT(waits(), ElementsAre(-1));
}

TEST_F(LoopWait, ARoundWithoutTimersDoesNotReadTheClock) {
    readings = 0;
    run_one_round();
    EXPECT_EQ(readings, 0);
}

TEST_F(LoopWait, ARoundWithTimersReadsTheClockOnceToWaitAndOnceToFire) {
    timer first;
    timer second;
    schedule(first, 0);
    schedule(second, 0);
    readings = 0;
    run_one_round();
    EXPECT_EQ(readings, 2);
}

TEST_F(LoopWait, ItLastsUntilTheFirstTimerIsDue) {
    timer late;
    timer early;
    schedule(late, 500);
    schedule(early, 120);
    set_ms(1050);
    run_one_round();
    EXPECT_THAT(waits(), ElementsAre(70));
}

TEST_F(LoopWait, ItIsZeroWhenATimerIsOverdue) {
    timer due;
    schedule(due, 10);
    set_ms(1500);
    run_one_round();
    EXPECT_THAT(waits(), ElementsAre(0));
}

TEST_F(LoopWait, ItIsRightWhenTheMillisecondsWrapAt32Bits) {
    timer due;
    set_ms(wrap_of_32_bits - 16);
    schedule(due, 32);
    run_one_round();
    EXPECT_THAT(waits(), ElementsAre(32));
}

TEST_F(LoopWait, ItLastsAtMost2To31MinusOneMilliseconds) {
    timer due;
    schedule(due, 0x7FFFFFFF);
    run_one_round();
    EXPECT_THAT(waits(), ElementsAre(0x7FFFFFFF));
    EXPECT_EQ(due.expiries, 0);
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

// quirk 24
TEST_F(LoopWait, ItIsZeroForATimerOf2To31MillisecondsOrMore) {
    for (const uint32_t ms : {0x80000000U, 0xFFFFFFFEU}) {
        timer due;
        schedule(due, ms);
        run_one_round();
        EXPECT_EQ(due.expiries, 1);
    }
    EXPECT_THAT(waits(), ElementsAre(0, 0));
}

// quirk 29
TEST_F(LoopWait, DelayedCallsQueuedWhileNoLoopRanDoNotShortenIt) {
    delayed_call queued(note("delayed call"));
    schedule(queued, 0);
    run_one_round();
    EXPECT_THAT(waits(), ElementsAre(-1));
    EXPECT_THAT(journal, ElementsAre("delayed call"));
}

// ---- timers and other threads, in real time

class RealTimeLoop : public testing::Test {
  protected:
    open_loop loop;
};

TEST_F(RealTimeLoop, ATimerScheduledByAnotherThreadWakesASleepingLoop) {
    timer distant;
    norv_epoll_timer_schedule(&loop.handle, &distant.record, 3600000, false);
    std::atomic<bool> fired = false;
    timer near([&] {
        fired = true;
        loop.exit();
    });
    std::thread runner([&] { loop.run(); });
    norv_epoll_wait_loop_started(&loop.handle);
    EXPECT_EQ(norv_epoll_timer_schedule(&loop.handle, &near.record, 5, false), NORV_STATUS_OK);
    runner.join();
    EXPECT_TRUE(fired);
    EXPECT_EQ(distant.expiries, 0);
}

TEST_F(RealTimeLoop, ADelayedCallScheduledByAnotherThreadWakesASleepingLoop) {
    delayed_call call([&] { loop.exit(); });
    std::thread runner([&] { loop.run(); });
    norv_epoll_wait_loop_started(&loop.handle);
    EXPECT_EQ(norv_epoll_delayed_schedule(&loop.handle, &call.record, 0), NORV_STATUS_OK);
    runner.join();
    EXPECT_EQ(call.runs, 1);
}

TEST_F(RealTimeLoop, ATimerNeverFiresEarly) {
    uint64_t fired = 0;
    timer due([&] {
        fired = norv_time_get_ms();
        loop.exit();
    });
    const uint64_t start = norv_time_get_ms();
    norv_epoll_timer_schedule(&loop.handle, &due.record, 20, false);
    loop.run();
    EXPECT_GE(fired - start, 20U);
}

TEST_F(RealTimeLoop, TheTimeRunsFromTheCallOnTheSchedulingThread) {
    timer due;
    uint64_t before = 0;
    uint64_t after = 0;
    {
        const loop_thread running(&loop.handle);
        before = norv_time_get_ms();
        norv_epoll_timer_schedule(&loop.handle, &due.record, 60000, false);
        after = norv_time_get_ms();
    }
    EXPECT_GE(due.record.expiry, before + 60000);
    EXPECT_LE(due.record.expiry, after + 60000);
}

TEST_F(RealTimeLoop, AnyThreadMayQueryWhatIsPending) {
    timer due;
    norv_epoll_timer_schedule(&loop.handle, &due.record, 0, false);
    const loop_thread running(&loop.handle);
    while (norv_epoll_timer_pending(&due.record) != 0) {
        std::this_thread::yield();
    }
    delayed_call call([&] { norv_epoll_timer_schedule(&loop.handle, &due.record, 3600000, false); });
    norv_epoll_delayed_schedule(&loop.handle, &call.record, 0);
    while (norv_epoll_delayed_pending(&call.record) != 0 || norv_epoll_timer_pending(&due.record) == 0) {
        std::this_thread::yield();
    }
    norv_epoll_timer_cancel(&loop.handle, &due.record);
}

TEST_F(RealTimeLoop, AFailedWakeUpSchedulesNothing) {
    kernel_double kernel;
    timer due;
    delayed_call call;
    {
        const loop_thread running(&loop.handle);
        kernel.fail("eventfd_write", 5 /* EIO */);
        EXPECT_EQ(norv_epoll_timer_schedule(&loop.handle, &due.record, 0, false), NORV_STATUS_WAKE_FAILED);
        kernel.fail("eventfd_write", 5 /* EIO */);
        EXPECT_EQ(norv_epoll_delayed_schedule(&loop.handle, &call.record, 0), NORV_STATUS_WAKE_FAILED);
    }
    EXPECT_EQ(due.record.loop, nullptr);
    EXPECT_EQ(call.record.loop, nullptr);
}

TEST_F(RealTimeLoop, AFailedLockSchedulesNothingAndReturnsItsStatus) {
    kernel_double kernel;
    timer due;
    {
        const loop_thread running(&loop.handle);
        kernel.fail("norv_mutex_lock", 0);
        EXPECT_EQ(norv_epoll_timer_schedule(&loop.handle, &due.record, 0, false), NORV_STATUS_BAD_STATE);
    }
    EXPECT_EQ(due.record.loop, nullptr);
}

// ---- delayed calls

TEST_F(DelayedCall, SchedulingFillsTheRecordAndQueuesIt) {
    delayed_call first;
    delayed_call second;
    second.record.user = 0x1122334455667788;
    schedule(first, 4);
    schedule(second, 4);
    EXPECT_EQ(second.record.loop, &loop.handle);
    EXPECT_EQ(second.record.priority, 4U);
    EXPECT_EQ(second.record.sequence, first.record.sequence + 1);
    EXPECT_EQ(second.record.user, 0x1122334455667788U);
    EXPECT_EQ(norv_epoll_delayed_pending(&second.record), 1);
    run_one_round();
}

TEST_F(DelayedCall, SmallerPrioritiesRunFirst) {
    delayed_call third(note("third"));
    delayed_call first(note("first"));
    delayed_call second(note("second"));
    schedule(third, 3);
    schedule(first, 1);
    schedule(second, 2);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("first", "second", "third"));
}

TEST_F(DelayedCall, EqualPrioritiesRunInTheOrderOfScheduling) {
    std::vector<std::unique_ptr<delayed_call>> calls;
    for (int number = 0; number < 10; ++number) {
        calls.push_back(std::make_unique<delayed_call>(note(std::to_string(number))));
        schedule(*calls.back(), 5);
    }
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("0", "1", "2", "3", "4", "5", "6", "7", "8", "9"));
}

// quirk 23
TEST_F(DelayedCall, PrioritiesAreComparedByTheirWrappingDifference) {
    delayed_call zero(note("0"));
    delayed_call largest(note("0xFFFFFFFF"));
    schedule(zero, 0);
    schedule(largest, 0xFFFFFFFF);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("0xFFFFFFFF", "0"));
}

TEST_F(DelayedCall, PrioritiesLessThan2To31ApartKeepTheirOrder) {
    const std::pair<uint32_t, uint32_t> ordered[] = {{0, 0x7FFFFFFF}, {0x80000001, 0}, {7, 0x80000006}};
    for (const auto& [smaller, larger] : ordered) {
        timer due;
        delayed_call first(note("first"));
        delayed_call second([&] {
            journal.emplace_back("second");
            loop.exit();
        });
        schedule(second, larger);
        schedule(first, smaller);
        schedule(due, 0);
        loop.run();
        norv_epoll_delayed_cancel(&loop.handle, &first.record);
    }
    EXPECT_THAT(journal, ElementsAre("first", "second", "first", "second", "first", "second"));
}

TEST_F(DelayedCall, ArrivalNumbersKeepTheirOrderWhenTheyWrapAt32Bits) {
    delayed_call before(note("before the wrap"));
    delayed_call after(note("after the wrap"));
    loop.handle.delayed_sequence = 0xFFFFFFFF;
    schedule(before, 5);
    schedule(after, 5);
    EXPECT_EQ(after.record.sequence, 0U);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("before the wrap", "after the wrap"));
}

TEST_F(DelayedCall, ACallScheduledByACallRunsInTheSameRoundByPriority) {
    delayed_call urgent(note("urgent"));
    delayed_call waiting(note("waiting"));
    delayed_call first([&] {
        journal.emplace_back("first");
        schedule(urgent, 3);
    });
    schedule(first, 1);
    schedule(waiting, 7);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("first", "urgent", "waiting"));
}

TEST_F(DelayedCall, ACallOfTheRoundRunsBeforeOnesLeftOver) {
    delayed_call late(note("late"));
    delayed_call first([&] {
        journal.emplace_back("first");
        schedule(late, 5);
    });
    delayed_call second(note("second"));
    delayed_call third(note("third"));
    schedule(first, 5);
    schedule(second, 5);
    schedule(third, 5);
    run_one_round();
    // The round started numbering at 0, and had one call of its own already.
    EXPECT_THAT(journal, testing::AnyOf(ElementsAre("first", "late", "second", "third"),
                                        ElementsAre("first", "second", "late", "third")));
}

// quirk 26
TEST_F(DelayedCall, SchedulingAQueuedCallKeepsItsPlaceAndItsPriority) {
    delayed_call queued(note("queued"));
    delayed_call other(note("other"));
    schedule(queued, 5);
    schedule(other, 5);
    schedule(queued, 9);
    EXPECT_EQ(queued.record.priority, 5U);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("queued", "other"));
}

// quirk 28
TEST_F(DelayedCall, ACallThatIsPendingOnAnotherLoopStaysThere) {
    open_loop other;
    delayed_call queued;
    schedule(queued, 5);
    EXPECT_EQ(norv_epoll_delayed_schedule(&other.handle, &queued.record, 1), NORV_STATUS_OK);
    EXPECT_EQ(queued.record.loop, &loop.handle);
    EXPECT_EQ(other.handle.delayed.top, nullptr);
    run_one_round();
    EXPECT_EQ(queued.runs, 1);
}

TEST_F(DelayedCall, ACallMayScheduleItselfForTheSameRound) {
    delayed_call again;
    again.on_run([&] {
        EXPECT_EQ(norv_epoll_delayed_pending(&again.record), 0);
        if (again.runs < 3) {
            schedule(again, 0);
        }
    });
    schedule(again, 0);
    run_one_round();
    EXPECT_EQ(again.runs, 3);
}

TEST_F(DelayedCall, ACallMayFreeItself) {
    auto call = std::make_unique<delayed_call>();
    call->on_run([&] {
        const auto freed = std::move(call);
        journal.emplace_back("freed");
    });
    schedule(*call, 0);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("freed"));
}

TEST_F(DelayedCall, CancellingDequeuesTheCallAndClearsItsLoop) {
    delayed_call call;
    schedule(call, 0);
    EXPECT_EQ(norv_epoll_delayed_cancel(&loop.handle, &call.record), NORV_STATUS_OK);
    EXPECT_EQ(call.record.loop, nullptr);
    EXPECT_EQ(norv_epoll_delayed_pending(&call.record), 0);
    run_one_round();
    EXPECT_EQ(call.runs, 0);
}

TEST_F(DelayedCall, CancellingACallThatIsNotScheduledIsHarmless) {
    delayed_call call;
    EXPECT_EQ(norv_epoll_delayed_cancel(&loop.handle, &call.record), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_delayed_pending(&call.record), 0);
}

TEST_F(DelayedCall, ACallMayCancelAnotherOne) {
    delayed_call second;
    delayed_call first([&] { norv_epoll_delayed_cancel(&loop.handle, &second.record); });
    schedule(first, 1);
    schedule(second, 2);
    run_one_round();
    EXPECT_EQ(second.runs, 0);
}

TEST_F(DelayedCall, ACallOfATimerRunsAtTheEndOfTheSameRound) {
    delayed_call call(note("delayed call"));
    timer due([&] {
        schedule(call, 0);
        journal.emplace_back("timer");
    });
    schedule(due, 0);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("timer", "delayed call"));
}

TEST_F(DelayedCall, ArrivalsAreNumberedFromZeroInEveryRound) {
    delayed_call first;
    run_one_round();
    timer due([&] { schedule(first, 0); });
    schedule(due, 0);
    run_one_round();
    EXPECT_EQ(first.record.sequence, 0U);
}

// quirk 27
TEST_F(DelayedCall, ACallLeftOverFromAnEarlierRoundKeepsItsNumber) {
    delayed_call left_over(note("left over"));
    delayed_call spare;
    schedule(spare, 0);
    schedule(left_over, 1);  // arrival number 1, while no loop runs
    norv_epoll_delayed_cancel(&loop.handle, &spare.record);
    delayed_call fresh(note("fresh"));
    timer due([&] { schedule(fresh, 1); });  // arrival number 0 of its round
    schedule(due, 0);
    run_one_round();
    EXPECT_THAT(journal, ElementsAre("fresh", "left over"));
}

TEST_F(DelayedCall, CallsLeftByAnExitRunInTheNextRun) {
    delayed_call second;
    delayed_call first([&] { loop.exit(); });
    source ready([&](uint32_t) {
        ready.quiet();
        schedule(first, 1);
        schedule(second, 2);
    });
    ready.signal();
    norv_epoll_fd_add(&loop.handle, &ready.record, EPOLLIN);
    loop.run();
    EXPECT_EQ(second.runs, 0);
    EXPECT_EQ(norv_epoll_delayed_pending(&second.record), 1);
    run_one_round();
    EXPECT_EQ(second.runs, 1);
}

TEST_F(DelayedCall, NullPointersAreRefused) {
    delayed_call call;
    EXPECT_EQ(norv_epoll_delayed_schedule(nullptr, &call.record, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_delayed_schedule(&loop.handle, nullptr, 0), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_delayed_cancel(nullptr, &call.record), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_delayed_cancel(&loop.handle, nullptr), NORV_STATUS_INVALID_ARG);
    EXPECT_EQ(norv_epoll_delayed_pending(nullptr), 0);
    EXPECT_EQ(call.record.loop, nullptr);
}

// ---- the watchdog

TEST_F(LoopWatchdog, IsKeptAliveOncePerPeriod) {
    norv_thread_watchdog_t watchdog = {};
    norv_thread_watchdog_start(&watchdog, 50);
    // Each round takes 40 ms: without a report the second one would end 80 ms after the start.
    source busy([&](uint32_t) {
        advance_ms(40);
        journal.emplace_back(norv_thread_watchdog_check(&watchdog) == NORV_STATUS_OK ? "alive" : "late");
        if (busy.deliveries == 4) {
            loop.exit();
        }
    });
    busy.signal();
    norv_epoll_fd_add(&loop.handle, &busy.record, EPOLLIN);
    norv_epoll_loop_with_watchdog(&loop.handle, &watchdog, 40);
    EXPECT_THAT(journal, ElementsAre("alive", "alive", "alive", "alive"));
}

TEST_F(LoopWatchdog, IsFirstKeptAliveOnePeriodAfterTheStart) {
    norv_thread_watchdog_t watchdog = {};
    std::vector<int> counts;
    reports = 0;
    source busy([&](uint32_t) {
        counts.push_back(reports);
        advance_ms(20);
        if (busy.deliveries == 4) {
            loop.exit();
        }
    });
    busy.signal();
    norv_epoll_fd_add(&loop.handle, &busy.record, EPOLLIN);
    norv_epoll_loop_with_watchdog(&loop.handle, &watchdog, 40);
    EXPECT_THAT(counts, ElementsAre(0, 0, 1, 1));
}

// quirk 24
TEST_F(LoopWatchdog, IsKeptAliveEndlesslyByAPeriodOf2To31Milliseconds) {
    norv_thread_watchdog_t watchdog = {};
    source ready([this](uint32_t) { loop.exit(); });
    ready.signal();
    norv_epoll_fd_add(&loop.handle, &ready.record, EPOLLIN);
    reports = 0;
    on_report = [this] {
        if (reports == 100) {
            loop.exit();
        }
    };
    norv_epoll_loop_with_watchdog(&loop.handle, &watchdog, 0x80000000);
    on_report = nullptr;
    EXPECT_EQ(ready.deliveries, 0);
}

TEST_F(LoopWatchdog, IsNotKeptAliveWhileAHandlerHangs) {
    norv_thread_watchdog_t watchdog = {};
    norv_thread_watchdog_start(&watchdog, 50);
    source hanging([&](uint32_t) {
        advance_ms(51);
        EXPECT_EQ(norv_thread_watchdog_check(&watchdog), NORV_STATUS_TIMEOUT);
        loop.exit();
    });
    hanging.signal();
    norv_epoll_fd_add(&loop.handle, &hanging.record, EPOLLIN);
    norv_epoll_loop_with_watchdog(&loop.handle, &watchdog, 10);
    EXPECT_EQ(hanging.deliveries, 1);
}

// The first timer of the loop, in its state while the loop runs.
struct shown_timer {
    bool present = false;
    std::string name;
    uint32_t period = 0;
    bool repeat = false;
    void* watchdog = nullptr;
};

shown_timer first_timer_of(const norv_epoll_t& loop) {
    if (loop.timers.top == nullptr) {
        return {};
    }
    const auto* timer = reinterpret_cast<const norv_epoll_timer_t*>(
        reinterpret_cast<const char*>(loop.timers.top) - offsetof(norv_epoll_timer_t, node));
    return {true, timer->name, timer->period, timer->repeat != 0, *reinterpret_cast<void* const*>(timer + 1)};
}

class WatchdogTimer : public LoopWatchdog {
  protected:
    // Runs the loop for one round, and returns what its first timer was meanwhile.
    shown_timer run_watched(void* watched, uint32_t period) {
        shown_timer shown;
        source ready([&](uint32_t) {
            shown = first_timer_of(loop.handle);
            loop.exit();
        });
        ready.signal();
        norv_epoll_fd_add(&loop.handle, &ready.record, EPOLLIN);
        norv_epoll_loop_with_watchdog(&loop.handle, watched, period);
        norv_epoll_fd_remove(&loop.handle, &ready.record);
        return shown;
    }

    norv_thread_watchdog_t watchdog = {0, 1000};
};

TEST_F(WatchdogTimer, IsANamedPeriodicTimerFollowedByTheWatchdog) {
    const shown_timer shown = run_watched(&watchdog, 100);
    EXPECT_TRUE(shown.present);
    EXPECT_EQ(shown.name, "epoll_watchdog_timer");
    EXPECT_EQ(shown.period, 100U);
    EXPECT_TRUE(shown.repeat);
    EXPECT_EQ(shown.watchdog, &watchdog);
}

TEST_F(WatchdogTimer, IsCancelledWhenTheLoopEnds) {
    run_watched(&watchdog, 100);
    EXPECT_EQ(loop.handle.timers.top, nullptr);
}

TEST_F(WatchdogTimer, IsNotScheduledWithoutAWatchdog) {
    EXPECT_FALSE(run_watched(nullptr, 100).present);
}

TEST_F(WatchdogTimer, IsNotScheduledWithoutAPeriod) {
    EXPECT_FALSE(run_watched(&watchdog, 0).present);
}

}  // namespace
