// SPDX-License-Identifier: MIT
// The one-shot event. The calls of futex(2) are counted on their way to the kernel, to know when a thread is
// about to sleep, and that a set without a waiter makes none.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <linux/time_types.h>
#include <pthread.h>
#include <sys/syscall.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "norv_base.h"
#include "support/kernel_double.hpp"

namespace {

std::atomic<int> futex_waits;
std::atomic<int> futex_wakes;
std::atomic<int> shared_futexes;
// For this thread: what runs before its next wake, and the deadline of its last wait that had one.
thread_local std::function<void()> on_wake;
thread_local __kernel_old_timespec last_deadline;

}  // namespace

// Replaces that of the C library in this program: counts the call, and makes it. The base library uses it
// only for futex(2), which has six arguments.
extern "C" long syscall(long number, ...) {
    std::array<long, 6> arguments{};
    va_list list;
    va_start(list, number);
    for (long& argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    if (number == SYS_futex) {
        const bool wakes = (arguments[1] & FUTEX_CMD_MASK) == FUTEX_WAKE;
        ++(wakes ? futex_wakes : futex_waits);
        shared_futexes += (arguments[1] & FUTEX_PRIVATE_FLAG) == 0 ? 1 : 0;
        if (wakes && on_wake) {
            std::exchange(on_wake, nullptr)();
        }
        if (!wakes && arguments[3] != 0) {
            memcpy(&last_deadline, reinterpret_cast<const void*>(arguments[3]), sizeof last_deadline);
        }
    }
    using syscall_function = long(long, ...);
    static auto* const real = reinterpret_cast<syscall_function*>(dlsym(RTLD_NEXT, "syscall"));
    return real(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

namespace {

class Event : public testing::Test {
  protected:
    Event() { EXPECT_EQ(norv_event_init(&event), NORV_STATUS_OK); }
    ~Event() override { EXPECT_EQ(norv_event_deinit(&event), NORV_STATUS_OK); }

    norv_event_t event{};
};

// Waits until `count` waits sleep, or are about to.
void await_sleepers(int count) {
    while (futex_waits < count) {
        std::this_thread::yield();
    }
}

void await(const std::atomic<int>& counter, int value) {
    while (counter < value) {
        std::this_thread::yield();
    }
}

TEST_F(Event, ASetBeforeTheWaitIsNotLost) {
    EXPECT_EQ(norv_event_set(&event), NORV_STATUS_OK);
    EXPECT_EQ(norv_event_wait(&event, NORV_EVENT_FOREVER), NORV_STATUS_OK);
}

TEST_F(Event, AWaitTakesTheSet) {
    norv_event_set(&event);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_OK);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(Event, TwoSetsWithoutAWaiterLetOneWaitPass) {
    norv_event_set(&event);
    norv_event_set(&event);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_OK);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(Event, AWaitWithoutASetLastsForItsTimeout) {
    const uint64_t before = norv_time_get_us();
    EXPECT_EQ(norv_event_wait(&event, 30), NORV_STATUS_TIMEOUT);
    EXPECT_GE(norv_time_get_us() - before, 30000U);
}

TEST_F(Event, ATimeoutAboveASecondIsWaitedFor) {
    const uint64_t before = norv_time_get_us();
    EXPECT_EQ(norv_event_wait(&event, 1001), NORV_STATUS_TIMEOUT);
    EXPECT_GE(norv_time_get_us() - before, 1001000U);
}

TEST_F(Event, TheDeadlineIsNowPlusTheTimeout) {
    norv::test::kernel_double kernel;
    kernel.set_clock(0, 999999999);
    EXPECT_EQ(norv_event_wait(&event, 2001), NORV_STATUS_TIMEOUT);
    EXPECT_EQ(last_deadline.tv_sec, 3);
    EXPECT_EQ(last_deadline.tv_nsec, 999999);
}

TEST_F(Event, TheLongestTimeoutWaitsForTheSet) {
    futex_waits = 0;
    std::thread setter([&] {
        await_sleepers(1);
        norv_event_set(&event);
    });
    EXPECT_EQ(norv_event_wait(&event, NORV_EVENT_FOREVER - 1), NORV_STATUS_OK);
    setter.join();
}

TEST_F(Event, AnEventInitialisedAgainIsNotSet) {
    norv_event_set(&event);
    norv_event_init(&event);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(Event, AZeroFilledEventIsInitialised) {
    norv_event_t zero_filled{};
    EXPECT_EQ(norv_event_wait(&zero_filled, 0), NORV_STATUS_TIMEOUT);
    norv_event_set(&zero_filled);
    EXPECT_EQ(norv_event_wait(&zero_filled, 0), NORV_STATUS_OK);
}

TEST_F(Event, ASetReleasesTheWaiter) {
    futex_waits = 0;
    uint32_t status = NORV_STATUS_TIMEOUT;
    std::thread waiter([&] { status = norv_event_wait(&event, NORV_EVENT_FOREVER); });
    await_sleepers(1);
    norv_event_set(&event);
    waiter.join();
    EXPECT_EQ(status, NORV_STATUS_OK);
    EXPECT_EQ(shared_futexes, 0) << "an event belongs to one process";
}

TEST_F(Event, AReleasedWaitLeavesNothingBehind) {
    futex_waits = 0;
    std::thread waiter([&] { norv_event_wait(&event, NORV_EVENT_FOREVER); });
    await_sleepers(1);
    norv_event_set(&event);
    waiter.join();
    norv_event_set(&event);
    norv_event_set(&event);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_OK);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(Event, ASetForAServedWaiterWakesNoThread) {
    futex_waits = 0;
    futex_wakes = 0;
    std::thread waiter([&] { norv_event_wait(&event, NORV_EVENT_FOREVER); });
    await_sleepers(1);
    on_wake = [&] { norv_event_set(&event); };
    norv_event_set(&event);
    waiter.join();
    EXPECT_EQ(futex_wakes, 1);
}

TEST_F(Event, ASetAndAWaitWithoutAWaiterMakeNoSystemCall) {
    futex_waits = 0;
    futex_wakes = 0;
    norv_event_set(&event);
    norv_event_set(&event);
    norv_event_wait(&event, NORV_EVENT_FOREVER);
    EXPECT_EQ(futex_waits, 0);
    EXPECT_EQ(futex_wakes, 0);
}

TEST_F(Event, ATimedOutWaitLeavesNothingBehind) {
    ASSERT_EQ(norv_event_wait(&event, 1), NORV_STATUS_TIMEOUT);
    futex_wakes = 0;
    norv_event_set(&event);
    EXPECT_EQ(futex_wakes, 0);
    EXPECT_EQ(norv_event_wait(&event, NORV_EVENT_FOREVER), NORV_STATUS_OK);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(Event, EachSetReleasesOneOfSeveralWaiters) {
    constexpr int count = 4;
    futex_waits = 0;
    std::atomic<int> released = 0;
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < count; ++waiter) {
        waiters.emplace_back([&] {
            norv_event_wait(&event, NORV_EVENT_FOREVER);
            ++released;
        });
    }
    await_sleepers(count);
    for (int set = 1; set <= count; ++set) {
        norv_event_set(&event);
        await(released, set);
        EXPECT_EQ(released, set);
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

TEST_F(Event, SetsInQuickSuccessionReleaseAsManyWaiters) {
    constexpr int count = 4;
    futex_waits = 0;
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < count; ++waiter) {
        waiters.emplace_back([&] { norv_event_wait(&event, NORV_EVENT_FOREVER); });
    }
    await_sleepers(count);
    // All of them before the first one wakes a thread.
    int sets = 0;
    const std::function<void()> set_once_more = [&] {
        if (sets < count) {
            ++sets;
            on_wake = set_once_more;
            norv_event_set(&event);
        }
    };
    set_once_more();
    on_wake = nullptr;
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(sets, count);
    EXPECT_EQ(norv_event_wait(&event, 0), NORV_STATUS_TIMEOUT);
}

// A handler that does not restart system calls, and a thread to interrupt.
class InterruptedEvent : public Event {
  protected:
    InterruptedEvent() {
        struct sigaction action {};
        action.sa_handler = [](int) { ++signals; };
        sigaction(SIGUSR1, &action, &previous);
        signals = 0;
        futex_waits = 0;
    }
    ~InterruptedEvent() override { sigaction(SIGUSR1, &previous, nullptr); }

    // Waits until the thread sleeps again. A signal does not disturb a thread that was only about to sleep; a
    // thread whose wait has ended does not sleep again, and ten seconds are more than enough to see that.
    static void interrupt(std::thread& thread) {
        const int waits = futex_waits;
        for (int tries = 0; futex_waits == waits && tries < 10000; ++tries) {
            pthread_kill(thread.native_handle(), SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_GT(futex_waits, waits) << "the signal ended the wait";
        EXPECT_GT(signals, 0);
    }

    static inline std::atomic<int> signals;
    struct sigaction previous {};
};

TEST_F(InterruptedEvent, ASignalDoesNotEndAWaitWithoutLimit) {
    std::atomic<bool> returned = false;
    std::thread waiter([&] {
        norv_event_wait(&event, NORV_EVENT_FOREVER);
        returned = true;
    });
    await_sleepers(1);
    for (int time = 0; time < 3; ++time) {
        interrupt(waiter);
    }
    EXPECT_FALSE(returned);
    norv_event_set(&event);
    waiter.join();
    EXPECT_TRUE(returned);
}

TEST_F(InterruptedEvent, ASignalDoesNotShortenATimedWait) {
    uint64_t waited = 0;
    uint32_t status = NORV_STATUS_OK;
    std::thread waiter([&] {
        const uint64_t before = norv_time_get_us();
        status = norv_event_wait(&event, 300);
        waited = norv_time_get_us() - before;
    });
    await_sleepers(1);
    interrupt(waiter);
    waiter.join();
    EXPECT_EQ(status, NORV_STATUS_TIMEOUT);
    EXPECT_GE(waited, 300000U);
}

TEST(EventPair, HandsDataToAndFroBetweenTwoThreads) {
    constexpr int rounds = 20000;
    norv_event_t request{};
    norv_event_t reply{};
    int ball = 0;  // deliberately not atomic: the events order every access
    std::thread player([&] {
        for (int round = 0; round < rounds; ++round) {
            norv_event_wait(&request, NORV_EVENT_FOREVER);
            ++ball;
            norv_event_set(&reply);
        }
    });
    for (int round = 0; round < rounds; ++round) {
        norv_event_set(&request);
        norv_event_wait(&reply, NORV_EVENT_FOREVER);
        ASSERT_EQ(ball, round + 1);
    }
    player.join();
}

TEST_F(Event, OneOfTwoConcurrentWaitsTakesTheSet) {
    constexpr int rounds = 2000;
    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;
    std::atomic<int> passed = 0;
    const auto wait = [&] { passed += norv_event_wait(&event, 0) == NORV_STATUS_OK ? 1 : 0; };
    std::thread other([&] {
        for (int round = 1; round <= rounds; ++round) {
            await(begun, round);
            wait();
            ended = round;
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        norv_event_set(&event);
        begun = round;
        wait();
        await(ended, round);
    }
    other.join();
    EXPECT_EQ(passed, rounds);
}

TEST_F(Event, NoSetIsLostAmongManySettersAndTimedWaiters) {
    constexpr int rounds = 5000;
    norv_event_t taken{};
    std::atomic<int> passed = 0;
    std::atomic<bool> stop = false;
    std::vector<std::thread> waiters;
    for (int waiter = 0; waiter < 3; ++waiter) {
        waiters.emplace_back([&, waiter] {
            while (!stop) {
                const auto timeout = static_cast<uint32_t>(waiter);  // 0: returns at once
                if (norv_event_wait(&event, timeout) == NORV_STATUS_OK && !stop) {
                    ++passed;
                    norv_event_set(&taken);
                }
            }
        });
    }
    for (int round = 1; round <= rounds; ++round) {
        norv_event_set(&event);
        norv_event_wait(&taken, NORV_EVENT_FOREVER);
        ASSERT_EQ(passed, round);
    }
    stop = true;
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

}  // namespace
