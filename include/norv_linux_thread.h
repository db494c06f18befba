/* SPDX-License-Identifier: MIT */
/**
 * @file norv_linux_thread.h
 * The calling thread: the processors that it may run on, its scheduling class and priority, and its name. The
 * conventions of norv_status.h hold.
 *
 * Every function acts on the calling thread only. Call them at the start of a thread; threads that it starts
 * afterwards inherit the processors, the class and the priority.
 *
 *     norv_linux_thread_set_name("control");
 *     norv_linux_thread_set_cpu_affinity_mask(1u << 1);  // processor 1 only
 *     norv_linux_thread_set_realtime_priority();         // needs CAP_SYS_NICE
 */
#ifndef NORV_LINUX_THREAD_H
#define NORV_LINUX_THREAD_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Restricts the calling thread to the processors of a mask: sched_setaffinity(2).
 *
 * @param mask  bit n: processor n, 0 to 31
 * @retval NORV_STATUS_INVALID_ARG  the mask is empty, contains a processor past the number that sysconf(3)
 *                                  returns, or contains only processors that are offline; nothing is changed
 * @retval errno                    of sysconf(3) or sched_setaffinity(2)
 */
NORV_API uint32_t norv_linux_thread_set_cpu_affinity_mask(uint32_t mask);

/**
 * Restricts the calling thread to one processor: sched_setaffinity(2).
 *
 * @param processor  0 to 1023; any other number makes an empty set, which the kernel refuses
 * @retval NORV_STATUS_INVALID_ARG  there is no such processor, or it is offline
 * @retval errno                    of sched_setaffinity(2)
 */
NORV_API uint32_t norv_linux_thread_set_cpu_affinity(int32_t processor);

/**
 * Gives the calling thread the ordinary scheduling class: pthread_setschedparam(3) with SCHED_OTHER.
 *
 * A refusal is not reported: pthread_setschedparam(3) returns a positive error number, and only a negative
 * result counts as a failure (quirk 33).
 *
 * @retval errno  after a negative result
 */
NORV_API uint32_t norv_linux_thread_set_normal_priority(void);

/**
 * Gives the calling thread the highest real-time priority: pthread_setschedparam(3) with SCHED_FIFO and 99.
 *
 * It then runs until it waits; only another such thread or an interrupt takes the processor from it. Without
 * the privilege (CAP_SYS_NICE or RLIMIT_RTPRIO), nothing changes and the function returns 0 (quirk 33): where
 * the priority matters, check it with pthread_getschedparam(3).
 *
 * @retval errno  after a negative result
 */
NORV_API uint32_t norv_linux_thread_set_realtime_priority(void);

/**
 * Names the calling thread, for ps(1), top(1) and debuggers: pthread_setname_np(3).
 *
 * @param name  up to 15 characters; a longer name is not set, and the function returns 0 (quirk 33)
 * @retval errno  after a negative result
 */
NORV_API uint32_t norv_linux_thread_set_name(const char* name);

NORV_END_DECLS

#endif
