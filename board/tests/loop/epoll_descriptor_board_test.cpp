// SPDX-License-Identifier: MIT
// Event and timer descriptors in a loop on a real kernel: threads raise the event, and the timer expires.
#include <gtest/gtest.h>

#include <thread>

#include "norv_epoll.h"

namespace {

constexpr uint64_t ticks_per_millisecond = 10000;

// Each record is the first member of the structure that counts its callbacks.
struct counted_event {
    norv_epoll_event_fd_t record;
    int callbacks;
    int wanted;
};

struct counted_timer {
    norv_epoll_timer_fd_t record;
    int callbacks;
    int wanted;
};

template <typename counted, typename record_type>
void count(record_type* record) {
    auto* self = reinterpret_cast<counted*>(record);
    if (++self->callbacks == self->wanted) {
        EXPECT_EQ(norv_epoll_exit(record->registration.loop), NORV_STATUS_OK);
    }
}

class DescriptorsOnBoard : public testing::Test {
  protected:
    void SetUp() override {
        event.record.callback = count<counted_event>;
        timer.record.callback = count<counted_timer>;
        ASSERT_EQ(norv_epoll_open(&loop), NORV_STATUS_OK);
        ASSERT_EQ(norv_epoll_event_fd_create(&loop, &event.record), NORV_STATUS_OK);
        ASSERT_EQ(norv_epoll_timer_fd_create(&loop, &timer.record), NORV_STATUS_OK);
    }
    void TearDown() override {
        norv_epoll_timer_fd_destroy(&loop, &timer.record);
        norv_epoll_event_fd_destroy(&loop, &event.record);
        EXPECT_EQ(timer.record.timer.descriptor, -1);
        EXPECT_EQ(event.record.registration.descriptor, 0);
        norv_epoll_close(&loop);
    }

    void run() { norv_epoll_loop_with_watchdog(&loop, nullptr, 0); }

    norv_epoll_t loop = {};
    counted_event event = {};
    counted_timer timer = {};
};

TEST_F(DescriptorsOnBoard, AnotherThreadsActivationsReachTheLoop) {
    event.wanted = 1;
    EXPECT_EQ(norv_epoll_event_fd_activate(&event.record), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_event_fd_deactivate(&event.record), NORV_STATUS_OK);
    std::thread other([&] {
        EXPECT_EQ(norv_epoll_wait_loop_started(&loop), NORV_STATUS_OK);
        EXPECT_EQ(norv_epoll_event_fd_activate(&event.record), NORV_STATUS_OK);
    });
    run();
    other.join();
    EXPECT_EQ(event.callbacks, 1);
}

TEST_F(DescriptorsOnBoard, ActivationsBeforeTheLoopRunsYieldOneCallback) {
    for (int activation = 0; activation < 3; ++activation) {
        EXPECT_EQ(norv_epoll_event_fd_activate(&event.record), NORV_STATUS_OK);
    }
    timer.wanted = 2;
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.record.timer, 0, ticks_per_millisecond), NORV_STATUS_OK);
    run();
    EXPECT_EQ(event.callbacks, 1);
}

TEST_F(DescriptorsOnBoard, APeriodicTimerInTheLoopIsNotEarly) {
    uint64_t start = 0;
    uint64_t end = 0;
    timer.wanted = 20;
    EXPECT_EQ(norv_linux_timer_get_time(nullptr, &start), NORV_STATUS_OK);
    EXPECT_EQ(norv_linux_timer_set_alarm_time(&timer.record.timer, 0, 2 * ticks_per_millisecond),
              NORV_STATUS_OK);
    run();
    EXPECT_EQ(norv_linux_timer_get_time(nullptr, &end), NORV_STATUS_OK);
    EXPECT_GE(end - start, 40 * ticks_per_millisecond);
}

}  // namespace
