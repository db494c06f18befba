// The one-shot event: one futex word in the owner's record.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "norv_base.h"

namespace {

enum state : uint32_t { clear = 0, set = 1, awaited = 2 };

// The C library has no wrapper for futex(2), so this is the one place that calls a system call by number.
long futex(uint32_t* word, int operation, uint32_t value, const timespec* limit) {
    return syscall(SYS_futex, word, operation | FUTEX_PRIVATE_FLAG, value, limit, nullptr,
                   FUTEX_BITSET_MATCH_ANY);
}

timespec deadline_after(uint32_t milliseconds) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(milliseconds / 1000);
    deadline.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (deadline.tv_nsec >= 1000000000) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000;
    }
    return deadline;
}

bool take(norv_event_t* event) {
    uint32_t expected = set;
    return __atomic_compare_exchange_n(&event->state, &expected, clear, false, __ATOMIC_ACQUIRE,
                                       __ATOMIC_RELAXED);
}

// Says that a waiter is about to sleep. False when the event was set meanwhile.
bool announce_waiter(norv_event_t* event) {
    uint32_t expected = clear;
    return __atomic_compare_exchange_n(&event->state, &expected, awaited, false, __ATOMIC_RELAXED,
                                       __ATOMIC_RELAXED) ||
           expected == awaited;
}

}  // namespace

uint32_t norv_event_init(norv_event_t* event) {
    __atomic_store_n(&event->state, clear, __ATOMIC_RELAXED);
    return NORV_STATUS_OK;
}

uint32_t norv_event_deinit(norv_event_t*) {
    return NORV_STATUS_OK;
}

uint32_t norv_event_set(norv_event_t* event) {
    if (__atomic_exchange_n(&event->state, set, __ATOMIC_RELEASE) == awaited) {
        futex(&event->state, FUTEX_WAKE, 1, nullptr);
    }
    return NORV_STATUS_OK;
}

uint32_t norv_event_wait(norv_event_t* event, uint32_t timeout) {
    const timespec deadline = timeout == NORV_EVENT_FOREVER ? timespec{} : deadline_after(timeout);
    const timespec* limit = timeout == NORV_EVENT_FOREVER ? nullptr : &deadline;
    while (!take(event)) {
        if (announce_waiter(event) && futex(&event->state, FUTEX_WAIT_BITSET, awaited, limit) != 0 &&
            errno == ETIMEDOUT) {
            return take(event) ? NORV_STATUS_OK : NORV_STATUS_TIMEOUT;
        }
    }
    return NORV_STATUS_OK;
}
