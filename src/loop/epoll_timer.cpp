// SPDX-License-Identifier: MIT
// The event loop's timers and delayed calls: two heaps of records that belong to the callers.
#include <bit>
#include <cstddef>

#include "core/layout.hpp"
#include "loop/epoll.hpp"

NORV_LAYOUT(norv_epoll_timer_t, sizeof(norv_epoll_timer_t), loop, callback, name, expiry, period, repeat,
            node);
NORV_LAYOUT(norv_epoll_delayed_t, sizeof(norv_epoll_delayed_t), loop, callback, user, sequence, priority,
            node);
static_assert(offsetof(norv_heap_t, top) == 0 && offsetof(norv_heap_node_t, queued) == 0);
#if __SIZEOF_POINTER__ == 8
NORV_OFFSETS(norv_epoll_timer_t, sizeof(norv_epoll_timer_t), expiry, 24, period, 32, repeat, 36, node, 40);
NORV_OFFSETS(norv_epoll_delayed_t, sizeof(norv_epoll_delayed_t), user, 16, sequence, 24, priority, 28, node,
             32);
#endif

namespace {

// ---- The two orderings ----

// How far `first` is past `second`. Both wrap at 32 bits: the difference is right across the wrap, for values
// less than 2^31 apart.
// quirk 23, quirk 24: it is wrong for values farther apart; 64 bits would change when such timers fire.
int32_t distance(uint64_t first, uint64_t second) {
    return static_cast<int32_t>(static_cast<uint32_t>(first) - static_cast<uint32_t>(second));
}

const norv_epoll_timer_t* timer_of(const norv_heap_node_t* node) {
    return reinterpret_cast<const norv_epoll_timer_t*>(reinterpret_cast<const char*>(node) -
                                                       offsetof(norv_epoll_timer_t, node));
}

const norv_epoll_delayed_t* delayed_of(const norv_heap_node_t* node) {
    return reinterpret_cast<const norv_epoll_delayed_t*>(reinterpret_cast<const char*>(node) -
                                                         offsetof(norv_epoll_delayed_t, node));
}

bool is_due_earlier(const norv_heap_node_t* first, const norv_heap_node_t* second) {
    return distance(timer_of(first)->expiry, timer_of(second)->expiry) < 0;
}

// quirk 23: priorities are compared like times, not like plain numbers.
bool runs_earlier(const norv_heap_node_t* first, const norv_heap_node_t* second) {
    const norv_epoll_delayed_t* one = delayed_of(first);
    const norv_epoll_delayed_t* other = delayed_of(second);
    return one->priority != other->priority ? distance(one->priority, other->priority) < 0
                                            : distance(one->sequence, other->sequence) < 0;
}

norv_epoll_timer_t* first_timer(const norv_epoll_t* loop) {
    return const_cast<norv_epoll_timer_t*>(timer_of(loop->timers.top));
}

norv_epoll_delayed_t* first_delayed(const norv_epoll_t* loop) {
    return const_cast<norv_epoll_delayed_t*>(delayed_of(loop->delayed.top));
}

// A snapshot: the loop thread may be writing the flag.
uint8_t is_queued(const norv_heap_node_t& node) {
    return __atomic_load_n(&node.queued, __ATOMIC_RELAXED);
}

// ---- What runs on the loop thread ----

template <typename record>
record* record_of(uint64_t argument) {
    return std::bit_cast<record*>(static_cast<uintptr_t>(argument));
}

uint64_t argument_of(const void* record) {
    return reinterpret_cast<uintptr_t>(record);
}

struct timer_request {
    norv_epoll_timer_t* timer;
    uint64_t expiry;
    uint32_t ms;
    bool repeat;
};

uint32_t schedule_timer(norv_epoll_t* loop, uint64_t argument, uint64_t) {
    const auto* request = record_of<const timer_request>(argument);
    norv_epoll_timer_t* timer = request->timer;
    norv_heap_remove(&loop->timers, &timer->node, is_due_earlier);
    if (request->ms == NORV_EPOLL_NEVER) {  // quirk 25
        timer->loop = nullptr;
        return NORV_STATUS_OK;
    }
    timer->loop = loop;
    timer->period = request->ms;
    timer->repeat = static_cast<uint8_t>(request->repeat);
    timer->expiry = request->expiry;
    norv_heap_insert(&loop->timers, &timer->node, is_due_earlier);
    return NORV_STATUS_OK;
}

uint32_t cancel_timer(norv_epoll_t* loop, uint64_t argument, uint64_t) {
    auto* timer = record_of<norv_epoll_timer_t>(argument);
    timer->loop = nullptr;
    norv_heap_remove(&loop->timers, &timer->node, is_due_earlier);
    return NORV_STATUS_OK;
}

uint32_t schedule_delayed(norv_epoll_t* loop, uint64_t argument, uint64_t priority) {
    auto* delayed = record_of<norv_epoll_delayed_t>(argument);
    if (delayed->node.queued != 0) {
        // quirk 26: it keeps its place and its old priority. quirk 28: it also stays on another loop.
        return NORV_STATUS_OK;
    }
    delayed->loop = loop;
    delayed->sequence = loop->delayed_sequence++;
    delayed->priority = static_cast<uint32_t>(priority);
    norv_heap_insert(&loop->delayed, &delayed->node, runs_earlier);
    return NORV_STATUS_OK;
}

uint32_t cancel_delayed(norv_epoll_t* loop, uint64_t argument, uint64_t) {
    auto* delayed = record_of<norv_epoll_delayed_t>(argument);
    norv_heap_remove(&loop->delayed, &delayed->node, runs_earlier);
    delayed->loop = nullptr;
    return NORV_STATUS_OK;
}

// Dequeues the first timer, or reschedules a periodic one, before its callback runs: the callback may cancel,
// schedule or free it.
norv_epoll_timer_t* dequeue_first_timer(norv_epoll_t* loop, uint64_t now) {
    norv_epoll_timer_t* timer = first_timer(loop);
    norv_heap_dequeue(&loop->timers, is_due_earlier);
    if (timer->repeat != 0) {
        // quirk 22: from now, not from the last expiry, so a late round shifts the phase.
        timer->expiry = timer->period + now;
        norv_heap_insert(&loop->timers, &timer->node, is_due_earlier);
    }
    return timer;
}

}  // namespace

// ---- The steps of a round ----

int32_t norv::time_to_first_timer(const norv_epoll_t* loop) {
    const int32_t left = distance(first_timer(loop)->expiry, norv_time_get_ms());
    return left < 0 ? 0 : left;
}

void norv::run_due_timers(norv_epoll_t* loop) {
    const uint64_t now = norv_time_get_us() / 1000;
    while (has_timers(loop) && !exit_requested(loop) && distance(first_timer(loop)->expiry, now) <= 0) {
        norv_epoll_timer_t* timer = dequeue_first_timer(loop, now);
        timer->callback(timer);
    }
}

void norv::run_delayed_calls(norv_epoll_t* loop) {
    while (has_delayed_calls(loop) && !exit_requested(loop)) {
        norv_epoll_delayed_t* delayed = first_delayed(loop);
        norv_heap_dequeue(&loop->delayed, runs_earlier);
        delayed->callback(delayed);
    }
}

// ---- Exported functions ----

uint32_t norv_epoll_timer_schedule(norv_epoll_t* loop, norv_epoll_timer_t* timer, uint32_t ms, bool repeat) {
    if (timer == nullptr) {
        return NORV_STATUS_INVALID_ARG;
    }
    // The expiry is computed on the calling thread, so that the wait for the loop thread does not delay it.
    const timer_request request = {timer, ms + norv_time_get_ms(), ms, repeat};
    return norv_epoll_call_sync(loop, schedule_timer, argument_of(&request), norv::no_argument);
}

uint32_t norv_epoll_timer_schedule_us(norv_epoll_t* loop, norv_epoll_timer_t* timer, uint64_t microseconds,
                                      bool repeat) {
    // Truncated to whole milliseconds, of which the low 32 bits are used.
    return norv_epoll_timer_schedule(loop, timer, static_cast<uint32_t>(microseconds / 1000), repeat);
}

uint32_t norv_epoll_timer_cancel(norv_epoll_t* loop, norv_epoll_timer_t* timer) {
    return timer != nullptr ? norv_epoll_call_sync(loop, cancel_timer, argument_of(timer), norv::no_argument)
                            : NORV_STATUS_INVALID_ARG;
}

uint8_t norv_epoll_timer_pending(const norv_epoll_timer_t* timer) {
    return timer != nullptr ? is_queued(timer->node) : uint8_t{0};
}

uint32_t norv_epoll_delayed_schedule(norv_epoll_t* loop, norv_epoll_delayed_t* delayed, uint32_t priority) {
    return delayed != nullptr ? norv_epoll_call_sync(loop, schedule_delayed, argument_of(delayed), priority)
                              : NORV_STATUS_INVALID_ARG;
}

uint32_t norv_epoll_delayed_cancel(norv_epoll_t* loop, norv_epoll_delayed_t* delayed) {
    return delayed != nullptr
               ? norv_epoll_call_sync(loop, cancel_delayed, argument_of(delayed), norv::no_argument)
               : NORV_STATUS_INVALID_ARG;
}

uint8_t norv_epoll_delayed_pending(const norv_epoll_delayed_t* delayed) {
    return delayed != nullptr ? is_queued(delayed->node) : uint8_t{0};
}
