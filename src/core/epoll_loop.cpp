// The event loop itself: rounds on the calling thread until it is told to exit.
#include "core/epoll.hpp"

namespace {

// The timer that reports to a thread watchdog; it lives as long as the loop runs.
struct watchdog_timer {
    norv_epoll_timer_t timer;
    void* watchdog;
};

void report(norv_epoll_timer_t* timer) {
    norv_thread_keep_alive(reinterpret_cast<watchdog_timer*>(timer)->watchdog);
}

void run_round(norv_epoll_t* loop) {
    loop->delayed_sequence = 0;
    const int32_t timeout = norv::wait_time(loop);
    loop->dispatch_index = 0;
    // A failure (-1: a signal, say) dispatches nothing; timers and delayed calls have their turn all the
    // same.
    loop->ready_count = epoll_wait(loop->epoll_descriptor, loop->ready, NORV_EPOLL_MAX_EVENTS, timeout);
    norv::run_due_timers(loop);
    norv::dispatch_ready_events(loop);
    norv::run_delayed_calls(loop);
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
    norv::set_exit(loop, false);
    do {
        run_round(loop);
    } while (!norv::exit_requested(loop));
    set_loop_thread(loop, 0);
    if (watched) {
        norv_epoll_timer_cancel(loop, &reporter.timer);
    }
}
