// SPDX-License-Identifier: MIT
// The event loop itself: rounds on the calling thread until an exit is requested.
#include "loop/epoll.hpp"

namespace {

using norv::exit_requested;
using norv::has_delayed_calls;
using norv::has_timers;

// The timer that reports to a thread watchdog; it lives as long as the loop runs.
struct watchdog_timer {
    norv_epoll_timer_t timer;
    void* watchdog;
};

void report(norv_epoll_timer_t* timer) {
    norv_thread_keep_alive(reinterpret_cast<watchdog_timer*>(timer)->watchdog);
}

void dispatch_ready_events(norv_epoll_t* loop) {
    // The index is kept in the record because a handler that removes a descriptor searches for its event from
    // there on.
    while (loop->dispatch_index < loop->ready_count && !exit_requested(loop)) {
        const epoll_event& event = loop->ready[loop->dispatch_index];
        void* const target = event.data.ptr;
        if (target == loop) {
            norv::serve_posted_call(loop);
        } else if (target != nullptr) {
            auto* record = static_cast<norv_epoll_fd_t*>(target);
            record->handler(record, event.events);
        }
        ++loop->dispatch_index;
    }
}

void run_round(norv_epoll_t* loop) {
    // quirk 27: calls left over from earlier rounds keep their numbers, and may run after those of this one.
    loop->delayed_sequence = 0;
    // quirk 29: delayed calls that are already queued do not shorten the wait.
    const int32_t timeout = has_timers(loop) ? norv::time_to_first_timer(loop) : -1;
    loop->dispatch_index = 0;
    // quirk 21: a failure (-1, for instance after a signal) dispatches nothing, and the round continues.
    loop->ready_count = epoll_wait(loop->epoll_descriptor, loop->ready, NORV_EPOLL_MAX_EVENTS, timeout);
    if (has_timers(loop)) {
        norv::run_due_timers(loop);
    }
    dispatch_ready_events(loop);
    if (has_delayed_calls(loop)) {
        norv::run_delayed_calls(loop);
    }
}

void set_loop_thread(norv_epoll_t* loop, uint64_t thread) {
    __atomic_store_n(&loop->loop_thread, thread, __ATOMIC_RELEASE);
}

}  // namespace

void norv_epoll_loop_with_watchdog(norv_epoll_t* loop, void* watchdog, uint32_t period) {
    if (loop == nullptr) {
        return;
    }
    const bool watched = watchdog != nullptr && period != 0;
    watchdog_timer reporter = {};
    reporter.timer.name = "epoll_watchdog_timer";
    reporter.timer.callback = report;
    reporter.watchdog = watchdog;
    if (watched) {
        norv_epoll_timer_schedule(loop, &reporter.timer, period, true);
    }
    set_loop_thread(loop, norv_get_curr_pthread_id());
    norv::set_exit(loop, false);  // quirk 20: discards a request made while no loop ran
    do {
        run_round(loop);
    } while (!exit_requested(loop));
    set_loop_thread(loop, 0);
    if (watched) {
        norv_epoll_timer_cancel(loop, &reporter.timer);
    }
}
