// SPDX-License-Identifier: MIT
// Thread identity and the thread watchdog, with a clock that the tests set.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "norv_base.h"

namespace {

std::atomic<uint64_t> clock_ms;

}  // namespace

// Replaces the clock of the base library in this program.
uint64_t norv_time_get_ms() {
    return clock_ms;
}

namespace {

class Watchdog : public testing::Test {
  protected:
    void start_at(uint64_t now, uint32_t limit) {
        clock_ms = now;
        norv_thread_watchdog_start(&watchdog, limit);
    }

    uint32_t check_from_another_thread() {
        uint32_t status = 0;
        std::thread([&] { status = norv_thread_watchdog_check(&watchdog); }).join();
        return status;
    }

    norv_thread_watchdog_t watchdog{};
};

TEST(ThreadIdentity, IsNeverZeroAndStaysTheSame) {
    EXPECT_NE(norv_get_curr_pthread_id(), 0U);
    EXPECT_EQ(norv_get_curr_pthread_id(), norv_get_curr_pthread_id());
    EXPECT_EQ(norv_get_curr_pthread_id(), static_cast<uint64_t>(pthread_self()));
}

TEST(ThreadIdentity, ThreadsThatLiveAtTheSameTimeDiffer) {
    constexpr size_t count = 8;
    std::vector<uint64_t> identities(count);
    std::atomic<size_t> alive = 0;
    std::vector<std::thread> threads;
    for (size_t index = 0; index < count; ++index) {
        threads.emplace_back([&, index] {
            identities[index] = norv_get_curr_pthread_id();
            ++alive;
            while (alive < count) {
                std::this_thread::yield();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::set<uint64_t> different(identities.begin(), identities.end());
    EXPECT_EQ(different.size(), count);
    EXPECT_FALSE(different.contains(0));
    EXPECT_FALSE(different.contains(norv_get_curr_pthread_id()));
}

TEST_F(Watchdog, AThreadThatHasJustStartedIsAlive) {
    start_at(5000, 100);
    EXPECT_EQ(check_from_another_thread(), NORV_STATUS_OK);
}

TEST_F(Watchdog, AThreadThatStallsIsDetectedByAnother) {
    start_at(5000, 100);
    clock_ms = 5101;
    EXPECT_EQ(check_from_another_thread(), NORV_STATUS_TIMEOUT);
}

TEST_F(Watchdog, AReportExactlyAsOldAsTheLimitIsInTime) {
    start_at(5000, 100);
    clock_ms = 5100;
    EXPECT_EQ(check_from_another_thread(), NORV_STATUS_OK);
}

TEST_F(Watchdog, AThreadThatReportsIsAlive) {
    start_at(5000, 100);
    for (int report = 0; report < 10; ++report) {
        clock_ms += 90;
        EXPECT_EQ(norv_thread_keep_alive(&watchdog), NORV_STATUS_OK);
        clock_ms += 10;
        EXPECT_EQ(check_from_another_thread(), NORV_STATUS_OK);
    }
}

TEST_F(Watchdog, AThreadThatReportsAgainAfterAStallIsAlive) {
    start_at(5000, 100);
    clock_ms = 9000;
    ASSERT_EQ(check_from_another_thread(), NORV_STATUS_TIMEOUT);
    norv_thread_keep_alive(&watchdog);
    EXPECT_EQ(check_from_another_thread(), NORV_STATUS_OK);
}

TEST_F(Watchdog, TheWrapOf32BitMillisecondsIsNotAStall) {
    start_at(0xFFFFFFF0, 100);
    clock_ms = 0x100000050;  // 96 ms later
    EXPECT_EQ(check_from_another_thread(), NORV_STATUS_OK);
}

TEST_F(Watchdog, AStallAcrossTheWrapOf32BitMillisecondsIsDetected) {
    start_at(0xFFFFFFF0, 100);
    clock_ms = 0x100000055;  // 101 ms later
    EXPECT_EQ(check_from_another_thread(), NORV_STATUS_TIMEOUT);
}

TEST_F(Watchdog, ReportsAndChecksMayCoincide) {
    start_at(5000, 100);
    std::atomic<bool> stop = false;
    std::thread watched([&] {
        while (!stop) {
            ++clock_ms;
            norv_thread_keep_alive(&watchdog);
        }
    });
    for (int check = 0; check < 1000; ++check) {
        EXPECT_EQ(norv_thread_watchdog_check(&watchdog) & ~NORV_STATUS_TIMEOUT, 0U);
    }
    stop = true;
    watched.join();
    EXPECT_EQ(norv_thread_watchdog_check(&watchdog), NORV_STATUS_OK);
}

TEST(WatchdogReport, WithoutAWatchdogIsRefusedAndHarmless) {
    EXPECT_EQ(norv_thread_keep_alive(nullptr), NORV_STATUS_INVALID_ARG);
}

}  // namespace
