/**
 * @file norv_linux_thread.h
 * The calling thread: the processors that it may run on, its scheduling class and priority, and its name.
 *
 * Every call acts on the thread that makes it, and on no other. Call them at the start of a thread; threads
 * that it starts afterwards inherit the processors, the class and the priority.
 *
 *     norv_linux_thread_set_name("control");
 *     norv_linux_thread_set_cpu_affinity_mask(1u << 1);  // on processor 1 alone
 *     norv_linux_thread_set_realtime_priority();         // needs CAP_SYS_NICE; see below
 */
#ifndef NORV_LINUX_THREAD_H
#define NORV_LINUX_THREAD_H

#include <stdint.h>

#include "norv_status.h"

NORV_BEGIN_DECLS

/**
 * Lets the calling thread run on the processors of a mask only: sched_setaffinity(2).
 *
 * @param mask  bit n stands for processor n, 0 to 31; each one must be configured in the machine
 * @return 0; NORV_STATUS_INVALID_ARG when the mask names a processor that the machine does not have, with
 *         nothing changed; the errno status of sysconf(3) when it cannot tell the machine's processors; the
 *         errno status of sched_setaffinity(2), that of EINVAL for an empty mask or processors that are all
 *         offline
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_thread_set_cpu_affinity_mask(uint32_t mask);

/**
 * Lets the calling thread run on one processor only: sched_setaffinity(2).
 *
 * @param processor  its number, 0 to 1023
 * @return 0; the errno status of sched_setaffinity(2), that of EINVAL for a processor that the machine does
 *         not have, or beyond the range: the kernel is then asked for no processor at all, and refuses
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_thread_set_cpu_affinity(int32_t processor);

/**
 * Schedules the calling thread like an ordinary one: pthread_setschedparam(3) with SCHED_OTHER.
 *
 * @return 0, also when the system refuses: pthread_setschedparam(3) tells that by a positive number, and only
 *         a negative one counts as a failure here (then the errno status)
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_thread_set_normal_priority(void);

/**
 * Schedules the calling thread in real time, at the highest priority: pthread_setschedparam(3) with
 * SCHED_FIFO and 99. It then runs until it waits, and nothing but another such thread or an interrupt takes
 * its processor.
 *
 * Without the privilege (CAP_SYS_NICE, or RLIMIT_RTPRIO) nothing changes and the call returns 0 all the same:
 * where it matters, look with pthread_getschedparam(3).
 *
 * @return 0, also when the system refuses; the errno status of a negative result only, as above
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_thread_set_realtime_priority(void);

/**
 * Names the calling thread, for ps(1), top(1) and debuggers: pthread_setname_np(3).
 *
 * @param name  up to 15 characters; not null. A longer one is not set, and the call returns 0 all the same
 * @return 0, also when the name was not set; the errno status of a negative result only, as above;
 *         NORV_STATUS_INVALID_ARG when `name` is null
 *
 * Does not block.
 */
NORV_API uint32_t norv_linux_thread_set_name(const char* name);

NORV_END_DECLS

#endif
