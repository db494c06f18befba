// SPDX-License-Identifier: MIT
// The one-shot event: one futex word in the owner's record. Its low half counts the sets that no wait has
// taken, its high half the waiting threads, so that a set knows whether there is a thread to wake.
#include <linux/futex.h>
#include <linux/time_types.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "norv_base.h"

namespace {

constexpr uint32_t one_set = 1;
constexpr uint32_t one_waiter = 0x10000;

uint32_t sets_in(uint32_t state) {
    return state % one_waiter;
}

uint32_t waiters_in(uint32_t state) {
    return state / one_waiter;
}

// True if there is a set for each waiter or, without waiters, one for the next wait.
bool has_enough_sets(uint32_t state) {
    return sets_in(state) >= std::max<uint32_t>(waiters_in(state), 1);
}

// The type that SYS_futex reads. The timespec of a 32-bit build with 64-bit time is wider.
using futex_time = __kernel_old_timespec;

// The C library has no wrapper for futex(2), so this is the only place that makes a system call by number.
long futex(uint32_t* word, int operation, uint32_t value, const futex_time* deadline) {
    return syscall(SYS_futex, word, operation | FUTEX_PRIVATE_FLAG, value, deadline, nullptr,
                   FUTEX_BITSET_MATCH_ANY);
}

futex_time deadline_after(uint32_t milliseconds) {
    constexpr int64_t second = 1000000000;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t nanoseconds = int64_t{milliseconds} * 1000000 + now.tv_nsec;
    futex_time deadline;
    deadline.tv_sec = static_cast<decltype(deadline.tv_sec)>(now.tv_sec) +
                      static_cast<decltype(deadline.tv_sec)>(nanoseconds / second);
    deadline.tv_nsec = static_cast<decltype(deadline.tv_nsec)>(nanoseconds % second);
    return deadline;
}

bool replace(norv_event_t* event, uint32_t* expected, uint32_t state) {
    return __atomic_compare_exchange_n(&event->state, expected, state, true, __ATOMIC_ACQ_REL,
                                       __ATOMIC_RELAXED);
}

// Takes a set if there is one. `share`, which this thread added to the count of waiters, is then subtracted.
bool take_set(norv_event_t* event, uint32_t share) {
    uint32_t state = __atomic_load_n(&event->state, __ATOMIC_RELAXED);
    while (sets_in(state) > 0) {
        if (replace(event, &state, state - one_set - share)) {
            return true;
        }
    }
    return false;
}

// Sleeps until the event is set or gets another waiter. False if the deadline passed.
bool sleep_unset(norv_event_t* event, const futex_time* deadline) {
    const uint32_t state = __atomic_load_n(&event->state, __ATOMIC_RELAXED);
    // The kernel compares, and returns at once if the event has been set.
    const uint32_t unset = state - sets_in(state);
    return futex(&event->state, FUTEX_WAIT_BITSET, unset, deadline) == 0 || errno != ETIMEDOUT;
}

bool wait_as_waiter(norv_event_t* event, const futex_time* deadline) {
    bool in_time = true;
    __atomic_fetch_add(&event->state, one_waiter, __ATOMIC_RELAXED);
    while (!take_set(event, one_waiter)) {
        if (!in_time) {
            // A set that arrives before this still counts the waiter; it is left for the next wait.
            __atomic_fetch_sub(&event->state, one_waiter, __ATOMIC_RELAXED);
            return false;
        }
        in_time = sleep_unset(event, deadline);
    }
    return true;
}

}  // namespace

uint32_t norv_event_init(norv_event_t* event) {
    __atomic_store_n(&event->state, 0, __ATOMIC_RELAXED);
    return NORV_STATUS_OK;
}

uint32_t norv_event_deinit(norv_event_t*) {
    return NORV_STATUS_OK;
}

uint32_t norv_event_set(norv_event_t* event) {
    uint32_t state = __atomic_load_n(&event->state, __ATOMIC_RELAXED);
    uint32_t added = 0;
    do {
        added = has_enough_sets(state) ? 0 : one_set;
        // Written even if nothing is added: the wait that takes the earlier set must see what came before
        // this one.
    } while (!replace(event, &state, state + added));
    if (added != 0 && waiters_in(state) > 0) {
        futex(&event->state, FUTEX_WAKE, 1, nullptr);
    }
    return NORV_STATUS_OK;
}

uint32_t norv_event_wait(norv_event_t* event, uint32_t timeout) {
    if (take_set(event, 0)) {
        return NORV_STATUS_OK;
    }
    if (timeout == NORV_EVENT_FOREVER) {
        wait_as_waiter(event, nullptr);
        return NORV_STATUS_OK;
    }
    const futex_time deadline = deadline_after(timeout);
    return wait_as_waiter(event, &deadline) ? NORV_STATUS_OK : NORV_STATUS_TIMEOUT;
}
