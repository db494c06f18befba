/**
 * @file norv_linux_timer.h
 * Interval timers: a kernel timer (timerfd) on CLOCK_MONOTONIC, armed at an absolute time.
 *
 * Time is counted in ticks of 100 ns. A timer is a descriptor that becomes readable when it expires: poll it,
 * or have an event loop call back with `norv_epoll_timer_fd_t` (norv_epoll.h), which embeds one. It belongs
 * to the caller from open to close, and is used by one thread at a time.
 *
 *     norv_linux_timer_t timer;
 *     norv_linux_timer_open(&timer);
 *     norv_linux_timer_set_alarm_time(&timer, 0, NORV_LINUX_TIMER_TICKS_PER_SECOND);  // every second
 *     poll(&(struct pollfd){timer.descriptor, POLLIN, 0}, 1, -1);
 *     norv_linux_timer_clear_event(&timer);
 *     norv_linux_timer_close(&timer);
 */
#ifndef NORV_LINUX_TIMER_H
#define NORV_LINUX_TIMER_H

#include <stdint.h>
#include <sys/types.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/** Ticks of 100 ns in a second. */
#define NORV_LINUX_TIMER_TICKS_PER_SECOND UINT64_C(10000000)

/** One timer; the storage is the caller's, `norv_linux_timer_open` fills it. */
typedef struct {
    int32_t descriptor; /**< readable when the timer has expired; -1 when closed */
} norv_linux_timer_t;

typedef struct norv_linux_timer_mgr norv_linux_timer_mgr_t;

/** Through which a timer service that knows nothing of this family drives one timer. */
struct norv_linux_timer_mgr {
    uint64_t reserved[2]; /**< 0 */
    /** `norv_linux_timer_get_time`: receives the ticks, which may be null. */
    uint32_t (*get_time)(norv_linux_timer_mgr_t* manager, uint64_t* ticks);
    /** `norv_linux_timer_set_alarm_time` of one alarm at these absolute ticks; 0 disarms. */
    uint32_t (*set_alarm)(norv_linux_timer_mgr_t* manager, uint64_t ticks);
    /** Ends the record's use; the timer stays open. A second release does nothing. */
    void (*release)(norv_linux_timer_mgr_t* manager);
    void* context; /**< private; null after release */
};

/**
 * Opens a timer, not armed: timerfd_create(2) with `TFD_NONBLOCK | TFD_CLOEXEC`.
 *
 * @param timer  filled; not null; after a failure its descriptor is -1
 * @return 0; NORV_STATUS_INVALID_ARG when `timer` is null; the errno status of timerfd_create(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_timer_open(norv_linux_timer_t* timer);

/**
 * Closes a timer.
 *
 * @param timer  may be null; its descriptor is -1 afterwards, so that a second close closes nothing. A
 *               descriptor of 0 counts as not open and is not closed
 *
 * Does not block. Never fails.
 */
NORV_API void norv_linux_timer_close(norv_linux_timer_t* timer);

/**
 * Reads the clock of the alarms: clock_gettime(2) of CLOCK_MONOTONIC.
 *
 * @param timer  not used; may be null
 * @param ticks  receives the time in ticks; may be null; untouched on failure
 * @return 0; the errno status of clock_gettime(2), also when `ticks` is null
 *
 * Does not block, and makes no system call where the kernel offers the clock without one. Any thread.
 */
NORV_API uint32_t norv_linux_timer_get_time(const norv_linux_timer_t* timer, uint64_t* ticks);

/**
 * Arms, moves or disarms the timer: timerfd_settime(2) with `TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET`.
 *
 * Expiries that were not cleared yet are forgotten.
 *
 * @param timer   not null, open
 * @param time    absolute ticks of the (first) alarm, as `norv_linux_timer_get_time` counts; a time that has
 *                passed expires at once; 0 with a period: one period from now; 0 without: disarms
 * @param period  ticks between further alarms; 0: one alarm only
 * @return 0; NORV_STATUS_INVALID_ARG when `timer` is null; the status of `norv_linux_timer_get_time`; the
 *         errno status of timerfd_settime(2); the timer is as it was after a failure
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_timer_set_alarm_time(norv_linux_timer_t* timer, uint64_t time, uint64_t period);

/**
 * Takes the expiries that have come: one read(2) of their 8-byte count, which is discarded. The descriptor is
 * not readable any more until the next one.
 *
 * @param timer  open
 * @return not a status but what read(2) returned: 8; -1 when the timer has not expired (errno is EAGAIN),
 *         when it is not open, and when `timer` is null
 *
 * Does not block.
 */
NORV_API ssize_t norv_linux_timer_clear_event(norv_linux_timer_t* timer);

/**
 * Fills a manager record for a timer. End its use with its `release`, before or after the timer is closed.
 *
 * @param timer    not null; stays where it is for as long as the record is used
 * @param manager  filled; not null; all zeros after NORV_STATUS_NO_MEMORY
 * @return 0; NORV_STATUS_NO_MEMORY; NORV_STATUS_INVALID_ARG when a pointer is null
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_linux_timer_mgr_open(norv_linux_timer_t* timer, norv_linux_timer_mgr_t* manager);

NORV_END_DECLS

#endif
