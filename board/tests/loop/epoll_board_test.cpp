// SPDX-License-Identifier: MIT
// The event loop over a real GPIO line: line 16 drives line 17.
#include "norv_epoll.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "norv/gpio.hpp"

namespace {

// A loop that watches line 17, and a timer that toggles line 16. Each record is the first member of a
// structure through which its handler reaches the board.
struct board {
    struct watched {
        norv_epoll_fd_t record;
        board* owner;
    } watched = {};
    struct toggler {
        norv_epoll_timer_t record;
        board* owner;
    } toggler = {};
    struct counter {
        norv_epoll_delayed_t record;
        board* owner;
    } counter = {};
    norv_epoll_t loop = {};
    norv::gpio output = norv::gpio::open(16).value();
    norv::gpio input = norv::gpio::open(17).value();
    bool level = false;
    int toggles = 0;
    int wanted_toggles = 0;
    int edges = 0;
    int delayed_calls = 0;
};

void on_edge(norv_epoll_fd_t* record, uint32_t events) {
    board* owner = reinterpret_cast<struct board::watched*>(record)->owner;
    EXPECT_NE(events & EPOLLPRI, 0U);
    // Reading rearms the notification. The level may be low again: a late round toggles the output first.
    EXPECT_EQ(owner->input.get_value().status(), norv::ok);
    ++owner->edges;
    EXPECT_EQ(norv_epoll_delayed_schedule(&owner->loop, &owner->counter.record, 1), NORV_STATUS_OK);
}

void count_delayed(norv_epoll_delayed_t* record) {
    ++reinterpret_cast<struct board::counter*>(record)->owner->delayed_calls;
}

void toggle(norv_epoll_timer_t* record) {
    board* owner = reinterpret_cast<struct board::toggler*>(record)->owner;
    if (owner->toggles == owner->wanted_toggles) {
        EXPECT_EQ(norv_epoll_exit(&owner->loop), NORV_STATUS_OK);
        return;
    }
    ++owner->toggles;
    owner->level = !owner->level;
    EXPECT_EQ(owner->output.set_value(owner->level), norv::ok);
}

class LoopOnBoard : public testing::Test {
  protected:
    LoopOnBoard() {
        EXPECT_EQ(here.output.set_direction(norv::gpio::direction::output), norv::ok);
        EXPECT_EQ(here.input.set_direction(norv::gpio::direction::input), norv::ok);
        EXPECT_EQ(here.input.set_edge(norv::gpio::edge::rising), norv::ok);
        EXPECT_EQ(here.input.get_value().status(), norv::ok);
        EXPECT_EQ(norv_epoll_open(&here.loop), NORV_STATUS_OK);
        here.watched.owner = &here;
        here.watched.record.descriptor = here.input.descriptor();
        here.watched.record.handler = on_edge;
        EXPECT_EQ(norv_epoll_fd_add(&here.loop, &here.watched.record, EPOLLPRI), NORV_STATUS_OK);
        here.toggler.owner = &here;
        here.toggler.record.callback = toggle;
        here.counter.owner = &here;
        here.counter.record.callback = count_delayed;
    }
    ~LoopOnBoard() override { norv_epoll_close(&here.loop); }

    board here;
};

TEST_F(LoopOnBoard, EveryRisingEdgeReachesItsHandler) {
    here.wanted_toggles = 200;
    EXPECT_EQ(norv_epoll_timer_schedule(&here.loop, &here.toggler.record, 2, true), NORV_STATUS_OK);
    EXPECT_NE(norv_epoll_timer_pending(&here.toggler.record), 0);
    norv_epoll_loop_with_watchdog(&here.loop, nullptr, 0);
    EXPECT_EQ(norv_epoll_timer_cancel(&here.loop, &here.toggler.record), NORV_STATUS_OK);
    EXPECT_EQ(here.edges, 100);
    EXPECT_EQ(here.delayed_calls, 100);
    EXPECT_EQ(norv_epoll_delayed_pending(&here.counter.record), 0);
}

TEST_F(LoopOnBoard, OtherThreadsStartChangeAndStopTheLoop) {
    here.wanted_toggles = 1000000;
    norv_thread_watchdog_t watchdog;
    norv_thread_watchdog_start(&watchdog, 60000);
    std::thread runner([&] { norv_epoll_loop_with_watchdog(&here.loop, &watchdog, 5); });
    EXPECT_EQ(norv_epoll_wait_loop_started(&here.loop), NORV_STATUS_OK);

    EXPECT_EQ(norv_epoll_timer_schedule_us(&here.loop, &here.toggler.record, 2000, true), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_fd_modify(&here.loop, &here.watched.record, EPOLLPRI | EPOLLERR), NORV_STATUS_OK);
    const auto edges_so_far = [](norv_epoll_t*, uint64_t argument, uint64_t) -> uint32_t {
        return static_cast<uint32_t>(reinterpret_cast<board*>(argument)->edges);
    };
    while (norv_epoll_call_sync(&here.loop, edges_so_far, reinterpret_cast<uintptr_t>(&here), 0) < 20) {
        std::this_thread::yield();
    }
    EXPECT_EQ(norv_thread_watchdog_check(&watchdog), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_fd_ignore_once(&here.loop, &here.watched.record), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_fd_remove(&here.loop, &here.watched.record), NORV_STATUS_OK);
    const uint32_t edges =
        norv_epoll_call_sync(&here.loop, edges_so_far, reinterpret_cast<uintptr_t>(&here), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(norv_epoll_call_sync(&here.loop, edges_so_far, reinterpret_cast<uintptr_t>(&here), 0), edges);

    EXPECT_EQ(norv_epoll_delayed_cancel(&here.loop, &here.counter.record), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_timer_cancel(&here.loop, &here.toggler.record), NORV_STATUS_OK);
    EXPECT_EQ(norv_epoll_exit(&here.loop), NORV_STATUS_OK);
    runner.join();
}

}  // namespace
