// SPDX-License-Identifier: MIT
// Internals of the event loop: the steps of a round.
#pragma once

#include <cstdint>

#include "norv_epoll.h"

namespace norv {

// For a call that takes fewer than two arguments.
constexpr uint64_t no_argument = 0;

// Atomic because a thread that finds no loop running may set the flag while another thread starts the loop.
inline void set_exit(norv_epoll_t* loop, bool requested) {
    __atomic_store_n(&loop->exit, static_cast<uint8_t>(requested), __ATOMIC_RELAXED);
}

inline bool exit_requested(const norv_epoll_t* loop) {
    return __atomic_load_n(&loop->exit, __ATOMIC_RELAXED) != 0;
}

// Inline, so that a round without timers and delayed calls makes no call for them.
inline bool has_timers(const norv_epoll_t* loop) {
    return loop->timers.top != nullptr;
}

inline bool has_delayed_calls(const norv_epoll_t* loop) {
    return loop->delayed.top != nullptr;
}

// Returns the milliseconds until the first timer is due; 0 if it is overdue.
int32_t time_to_first_timer(const norv_epoll_t* loop);

// Steps of a round. Each ends as soon as an exit is requested.
void run_due_timers(norv_epoll_t* loop);
void run_delayed_calls(norv_epoll_t* loop);

// Runs the call that another thread posted, and wakes that thread.
void serve_posted_call(norv_epoll_t* loop);

}  // namespace norv
