// The event loop's inside: the steps of a round, each in the file of what it serves.
#pragma once

#include <cstdint>

#include "norv_epoll.h"

namespace norv {

// Atomic because a thread that finds no loop running may set the flag while another one starts the loop.
inline void set_exit(norv_epoll_t* loop, bool requested) {
    __atomic_store_n(&loop->exit, static_cast<uint8_t>(requested), __ATOMIC_RELAXED);
}

inline bool exit_requested(const norv_epoll_t* loop) {
    return __atomic_load_n(&loop->exit, __ATOMIC_RELAXED) != 0;
}

// Milliseconds that epoll_wait(2) may sleep: until the first timer is due, -1 when there is none.
int32_t wait_time(const norv_epoll_t* loop);

// The three steps of a round. Each ends as soon as the loop was told to exit, and then does nothing at all.
void run_due_timers(norv_epoll_t* loop);
void dispatch_ready_events(norv_epoll_t* loop);
void run_delayed_calls(norv_epoll_t* loop);

}  // namespace norv
