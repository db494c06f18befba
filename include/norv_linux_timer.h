/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_timer.h
 * Interval timers: a kernel timer (timerfd) on CLOCK_MONOTONIC, armed at an absolute time. The conventions of
 * norv_status.h hold.
 *
 * Times are in ticks of 100 ns. A timer is a descriptor that becomes readable when it expires: poll it, or
 * let an event loop call back with `norv_epoll_timer_fd_t` (norv_epoll.h), which contains a timer.
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

/** One timer. */
typedef struct {
    int32_t descriptor; /**< readable after an expiry; -1 when closed */
} norv_linux_timer_t;

typedef struct norv_linux_timer_mgr norv_linux_timer_mgr_t;

/** Operations by which code that does not know this family drives a timer. They do not check the manager. */
struct norv_linux_timer_mgr {
    uint64_t reserved[2]; /**< 0 */
    /** `norv_linux_timer_get_time`; `ticks` may be null. */
    uint32_t (*get_time)(norv_linux_timer_mgr_t* manager, uint64_t* ticks);
    /** `norv_linux_timer_set_alarm_time` without a period; NORV_STATUS_INVALID_ARG after release. */
    uint32_t (*set_alarm)(norv_linux_timer_mgr_t* manager, uint64_t ticks);
    /** Ends the use of the manager and leaves the timer open; a second release does nothing. */
    void (*release)(norv_linux_timer_mgr_t* manager);
    void* context; /**< private; null after release */
};

/**
 * Opens a timer, not armed: timerfd_create(2) with `TFD_NONBLOCK | TFD_CLOEXEC`.
 *
 * @param timer  receives the open timer
 * @retval errno  of timerfd_create(2)
 */
NORV_API uint32_t norv_linux_timer_open(norv_linux_timer_t* timer);

/**
 * Closes a timer.
 *
 * @param timer  opened; may be null
 */
NORV_API void norv_linux_timer_close(norv_linux_timer_t* timer);

/**
 * Reads the clock of the alarms, CLOCK_MONOTONIC: clock_gettime(2).
 *
 * @param timer  not used; may be null
 * @param ticks  receives the time in ticks; may be null, the clock is read nevertheless
 * @retval errno  of clock_gettime(2)
 */
NORV_API uint32_t norv_linux_timer_get_time(const norv_linux_timer_t* timer, uint64_t* ticks);

/**
 * Arms, moves or disarms a timer: timerfd_settime(2) with `TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET`.
 * Expiries that were not cleared are discarded.
 *
 * @param timer   an open timer; after a failure its alarm is unchanged
 * @param time    absolute ticks of the first alarm, as from `norv_linux_timer_get_time`; a time that has
 *                passed expires at once; 0 means one period from now or, without a period, disarms
 * @param period  ticks between further alarms; 0: one alarm only
 * @retval EBADF  the timer is not open
 * @retval errno  of clock_gettime(2) or timerfd_settime(2)
 */
NORV_API uint32_t norv_linux_timer_set_alarm_time(norv_linux_timer_t* timer, uint64_t time, uint64_t period);

/**
 * Clears the expiries, so that the descriptor is not readable until the next one: reads their 8-byte count,
 * and discards it.
 *
 * @param timer  an open timer
 * @return the result of read(2), not a status (quirk 32): 8; or -1 if the timer has not expired (errno is
 *         EAGAIN), is not open or is null
 */
NORV_API ssize_t norv_linux_timer_clear_event(norv_linux_timer_t* timer);

/**
 * Fills a manager record for a timer. End its use with its `release`, before or after the timer is closed.
 *
 * @param timer    must not move while the manager is used
 * @param manager  receives the operations; all zeros after NORV_STATUS_NO_MEMORY
 * @retval NORV_STATUS_NO_MEMORY  out of memory
 */
NORV_API uint32_t norv_linux_timer_mgr_open(norv_linux_timer_t* timer, norv_linux_timer_mgr_t* manager);

NORV_END_DECLS

#endif
