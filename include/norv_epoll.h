/* SPDX-License-Identifier: MIT */
/**
 * @file norv_epoll.h
 * The event loop: descriptors, timers, delayed calls, and event and timer descriptors, all served on one
 * thread, one at a time. The conventions of norv_status.h hold, except for threads.
 *
 * The thread that calls `norv_epoll_loop_with_watchdog` is the loop thread until `norv_epoll_exit`; every
 * handler and callback runs there. Other threads may call every function except open, run and close. A
 * function that changes the loop's own state passes its work to the loop thread through
 * `norv_epoll_call_sync`, and waits until it is done there, between two handlers. A handler must therefore
 * never wait for a thread that may be in such a call. While no loop runs, the work is done on the calling
 * thread, and one thread at a time may use the loop.
 *
 * Shut down a loop that other threads use in this order: join them while it still runs, call
 * `norv_epoll_exit` once, join the loop's thread, and only then cancel, remove and close the rest. In any
 * other order a call may wait forever; see `norv_epoll_exit`.
 *
 * All records are the caller's and are linked in place: the loop allocates nothing. A record must neither
 * move nor be freed between its add or schedule and its remove or cancel, nor the loop while it is open. A
 * round of the loop runs the timers that are due, then the handlers of ready descriptors, then all delayed
 * calls.
 *
 * In a process without standard input, an event or a timer descriptor may get descriptor 0, which counts as
 * not open (quirk 3): its callback runs, but destroying it neither removes nor closes it. Keep descriptor 0
 * in use (open /dev/null), or end such a record with `norv_epoll_fd_remove` and close(2).
 *
 *     static norv_epoll_t loop;  // zero-filled
 *     norv_epoll_fd_t line = {.descriptor = norv_linux_gpio_get_fd(&gpio), .handler = on_edge};
 *     norv_epoll_open(&loop);
 *     norv_epoll_fd_add(&loop, &line, EPOLLPRI);
 *     norv_epoll_loop_with_watchdog(&loop, NULL, 0);  // until norv_epoll_exit(&loop)
 *     norv_epoll_fd_remove(&loop, &line);
 *     norv_epoll_close(&loop);
 */
#ifndef NORV_EPOLL_H
#define NORV_EPOLL_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/epoll.h>

#include "norv_base.h"
#include "norv_linux_timer.h"
#include "norv_status.h"

NORV_BEGIN_DECLS

typedef struct norv_epoll norv_epoll_t;
typedef struct norv_epoll_fd norv_epoll_fd_t;
typedef struct norv_epoll_timer norv_epoll_timer_t;
typedef struct norv_epoll_delayed norv_epoll_delayed_t;
typedef struct norv_epoll_event_fd norv_epoll_event_fd_t;
typedef struct norv_epoll_timer_fd norv_epoll_timer_fd_t;

/** A function that `norv_epoll_call_sync` runs on the loop thread; its status is returned to the caller. */
typedef uint32_t (*norv_epoll_call_fn)(norv_epoll_t* loop, uint64_t argument1, uint64_t argument2);

/** Handles a ready descriptor on the loop thread; `events` is the mask that epoll_wait(2) reported. */
typedef void (*norv_epoll_fd_handler)(norv_epoll_fd_t* record, uint32_t events);

/** Runs on the loop thread when a timer is due. */
typedef void (*norv_epoll_timer_callback)(norv_epoll_timer_t* timer);

/** Runs on the loop thread at the end of the round. */
typedef void (*norv_epoll_delayed_callback)(norv_epoll_delayed_t* delayed);

/** Runs on the loop thread, once, after one or more activations of an event. */
typedef void (*norv_epoll_event_fd_callback)(norv_epoll_event_fd_t* event);

/** Runs on the loop thread, once, after one or more expiries of an interval timer. */
typedef void (*norv_epoll_timer_fd_callback)(norv_epoll_timer_fd_t* timer);

/** Maximum number of events that a round fetches from the kernel. */
#define NORV_EPOLL_MAX_EVENTS 256

/** Time for `norv_epoll_timer_schedule` that cancels the timer (quirk 25). */
#define NORV_EPOLL_NEVER 0xFFFFFFFFu

/** The loop. Fill it with zeros before `norv_epoll_open` (quirk 12). Its fields may be read, not written. */
struct norv_epoll {
    uint64_t reserved;        /**< not used */
    int32_t epoll_descriptor; /**< 0 or below: not open */
    uint8_t exit;             /**< set by `norv_epoll_exit`, cleared when the loop starts (quirk 20) */
    struct epoll_event ready[NORV_EPOLL_MAX_EVENTS]; /**< the events of the last epoll_wait(2) */
    int32_t ready_count;                             /**< the result of the last epoll_wait(2) */
    int32_t dispatch_index;                          /**< the ready event being dispatched */
    norv_heap_t timers;                              /**< the pending timers */
    uint32_t delayed_sequence;        /**< arrival number of the next delayed call of the round */
    norv_heap_t delayed;              /**< the pending delayed calls */
    uint64_t loop_thread;             /**< identifier of the thread that runs the loop; 0: none */
    norv_mutex_t call_mutex;          /**< held by the thread whose call is in progress */
    int32_t call_descriptor;          /**< the eventfd that wakes the loop thread for a call */
    norv_epoll_call_fn call_function; /**< the call in progress */
    uint64_t call_argument1;          /**< its first argument */
    uint64_t call_argument2;          /**< its second argument */
    uint32_t call_result;             /**< its result */
    norv_event_t call_done;           /**< set when it has run */
};

/** The registration of a descriptor; usually the first member of the owner's record. */
struct norv_epoll_fd {
    norv_epoll_t* loop;            /**< set by `norv_epoll_fd_add`, cleared by `norv_epoll_fd_remove` */
    int32_t descriptor;            /**< set by the caller before the add */
    norv_epoll_fd_handler handler; /**< set by the caller before the add */
};

/** A timer of the loop; usually the first member of the owner's record. Zero-filled: not pending. */
struct norv_epoll_timer {
    norv_epoll_t* loop;                 /**< set when scheduled, cleared when cancelled */
    norv_epoll_timer_callback callback; /**< set by the caller before it is scheduled */
    const char* name;                   /**< a label for the owner; not used by the loop */
    uint64_t expiry;                    /**< absolute, in ms of `norv_time_get_ms` */
    uint32_t period;                    /**< ms */
    uint8_t repeat;                     /**< non-zero: periodic */
    norv_heap_node_t node;              /**< private: its place among the loop's timers */
};

/** A delayed call; usually the first member of the owner's record. Zero-filled: not pending. */
struct norv_epoll_delayed {
    norv_epoll_t* loop;                   /**< set when scheduled, cleared when cancelled */
    norv_epoll_delayed_callback callback; /**< set by the caller before it is scheduled */
    uint64_t user;                        /**< free for the owner */
    uint32_t sequence;                    /**< arrival number in the round */
    uint32_t priority;                    /**< smaller runs first */
    norv_heap_node_t node;                /**< private: its place among the loop's delayed calls */
};

/**
 * An event that any thread may raise; usually the first member of the owner's record. Zero-filled: not
 * created.
 */
struct norv_epoll_event_fd {
    norv_epoll_fd_t registration;          /**< private; its descriptor is an eventfd, 0 after destroy */
    uint64_t reserved;                     /**< not used */
    norv_epoll_event_fd_callback callback; /**< set by the caller before create; may free the record */
};

/**
 * An interval timer of the loop; usually the first member of the owner's record. Zero-filled: not created.
 */
struct norv_epoll_timer_fd {
    norv_epoll_fd_t registration;          /**< private; its descriptor is the timer's */
    uint64_t reserved;                     /**< not used */
    norv_epoll_timer_fd_callback callback; /**< set by the caller before create; may free the record */
    norv_linux_timer_t timer;              /**< arm it with `norv_linux_timer_set_alarm_time` */
};

/* ---- The loop ---------------------------------------------------------------------------------------- */

/**
 * Opens a loop: epoll_create(2), and an eventfd(2) that wakes the loop thread for the calls of other threads.
 *
 * Programs that the process executes inherit the epoll descriptor, which has no close-on-exec flag
 * (quirk 11), but not the eventfd.
 *
 * @param loop  filled with zeros by the caller; opening does not clear it (quirk 12)
 * @retval errno  of epoll_create(2), eventfd(2) or epoll_ctl(2), or a status of `norv_mutex_init` or
 *                `norv_event_init`; the loop is closed again
 */
NORV_API uint32_t norv_epoll_open(norv_epoll_t* loop);

/**
 * Closes a loop that is not running; does not stop one that is.
 *
 * Registered records, timers and delayed calls are not changed. No other thread may still use the loop.
 *
 * @param loop  open, or failed to open; null is refused, unlike by other close functions
 * @return the result of the last step, to be ignored (quirk 13): of close(2), whose -1 becomes 0xFFFFFFFF, or
 *         of `norv_mutex_destroy` if no descriptor was open
 */
NORV_API uint32_t norv_epoll_close(norv_epoll_t* loop);

/**
 * Runs the loop on the calling thread until `norv_epoll_exit`.
 *
 * Each round waits in epoll_wait(2) until a descriptor is ready or the first timer is due, and fetches up to
 * 256 events. A failed epoll_wait(2) is not reported: the round continues with timers and delayed calls
 * (quirk 21). A round without timers does not read the clock.
 *
 * When the loop ends, timers and delayed calls stay scheduled for the next run, and descriptors that are
 * still ready are reported again; but an edge (EPOLLET) that the last round fetched and did not deliver is
 * lost.
 *
 * @param loop      open and not running; null: returns at once
 * @param watchdog  receives the reports, by `norv_thread_keep_alive`; must exist until the loop has returned;
 *                  may be null
 * @param period    milliseconds between two reports, and before the first; 0 or NORV_EPOLL_NEVER: no reports.
 *                  Up to 2^30: with 2^31 or more the loop reports endlessly and does nothing else (quirk 24)
 *
 * Blocks until the loop exits.
 */
NORV_API void norv_epoll_loop_with_watchdog(norv_epoll_t* loop, void* watchdog, uint32_t period);

/**
 * Ends the loop: after the handler or callback that is running, nothing more of the round runs, and
 * `norv_epoll_loop_with_watchdog` returns.
 *
 * A request made while no loop runs is discarded when the loop starts (quirk 20): to end a loop that another
 * thread is about to run, wait for it first with `norv_epoll_wait_loop_started`.
 *
 * This function returns before the loop does: join the loop's thread before you close or free the loop. Until
 * then no thread may make a call that waits for the loop thread, not even a second exit: if it is posted
 * while the loop stops, it waits until the loop runs again (quirk 19), which may be never. So join the
 * threads that use the loop first. Calls that do not wait: adding and modifying descriptors, creating events
 * and timer descriptors, activating and deactivating events, and querying what is pending. If several
 * threads, or a signal handler, may end the loop, let them activate an event whose callback calls this
 * function.
 *
 * @param loop  open
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_exit(norv_epoll_t* loop);

/**
 * Waits until the loop runs: posts a call that does nothing, even while no loop runs (quirk 18).
 *
 * @param loop  open; need not be running yet
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks without limit. On the loop thread, which would wait for itself, it would block forever.
 */
NORV_API uint32_t norv_epoll_wait_loop_started(norv_epoll_t* loop);

/**
 * Runs a function on the loop thread and returns its status.
 *
 * On the loop thread itself, and while no loop runs, the function runs at once on the calling thread, without
 * a lock. From another thread, the call is posted through the loop's eventfd and runs between two handlers,
 * one such call at a time. A call that is posted while the loop stops is run by the next run of the loop
 * (quirk 19), and its caller waits until then.
 *
 * @param loop       open
 * @param function   the function
 * @param argument1  its first argument
 * @param argument2  its second argument
 * @return the status of `function`; or, if that was not run:
 * @retval NORV_STATUS_WAKE_FAILED  the loop thread could not be woken; not a mapped status (quirk 17)
 * @retval errno                    the status of `norv_mutex_lock`
 *
 * Blocks, on a thread other than the loop thread, until the function has run.
 */
NORV_API uint32_t norv_epoll_call_sync(norv_epoll_t* loop, norv_epoll_call_fn function, uint64_t argument1,
                                       uint64_t argument2);

/* ---- Descriptors ------------------------------------------------------------------------------------- */

/**
 * Registers a descriptor: epoll_ctl(2) with EPOLL_CTL_ADD, on the calling thread.
 *
 * @param loop    open
 * @param record  its descriptor and handler set by the caller; its loop is set, even on failure (quirk 14)
 * @param events  EPOLLIN, EPOLLOUT, EPOLLPRI, EPOLLET, ... combined
 * @retval EBADF  the descriptor is not open
 * @retval errno  of epoll_ctl(2)
 */
NORV_API uint32_t norv_epoll_fd_add(norv_epoll_t* loop, norv_epoll_fd_t* record, uint32_t events);

/**
 * Changes the events of a registered descriptor: epoll_ctl(2) with EPOLL_CTL_MOD, on the calling thread.
 *
 * An event that the current round has already fetched is still delivered.
 *
 * @param loop    the loop that the record was added to
 * @param record  added; not changed
 * @param events  as for `norv_epoll_fd_add`
 * @retval NORV_STATUS_NOT_FOUND  the descriptor is not registered
 * @retval errno                  of epoll_ctl(2)
 */
NORV_API uint32_t norv_epoll_fd_modify(norv_epoll_t* loop, norv_epoll_fd_t* record, uint32_t events);

/**
 * Drops the event of a descriptor that the current round has fetched but not yet delivered. The registration
 * stays.
 *
 * Only the first pending event of this descriptor number is dropped, even if it belongs to another record
 * (quirk 15): two records share a number if the descriptor of one was closed without being removed, and the
 * number was then reused.
 *
 * @param loop    the loop that the record was added to
 * @param record  only its descriptor is used
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_fd_ignore_once(norv_epoll_t* loop, norv_epoll_fd_t* record);

/**
 * Ends a registration: epoll_ctl(2) with EPOLL_CTL_DEL on the calling thread, then drops a pending event as
 * `norv_epoll_fd_ignore_once` does.
 *
 * After it has returned 0, the handler is not called again, and the record may be freed, even in its own
 * handler.
 *
 * Remove a descriptor before you close it, or the removal fails. After a failure an event that was already
 * fetched is still delivered (quirk 16): call `norv_epoll_fd_ignore_once` too before you free the record. A
 * copy of the descriptor (dup(2), fork(2)) keeps a registration alive that was not removed; the record must
 * then stay.
 *
 * @param loop    the loop that the record was added to
 * @param record  added; its loop is null afterwards, even on failure (quirk 14)
 * @return a status of `norv_epoll_call_sync`, or:
 * @retval NORV_STATUS_NOT_FOUND  the descriptor is not registered
 * @retval EBADF                  the descriptor was closed
 * @retval errno                  of epoll_ctl(2)
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_fd_remove(norv_epoll_t* loop, norv_epoll_fd_t* record);

/* ---- Timers ------------------------------------------------------------------------------------------ */

/**
 * Schedules a timer, or moves one that is pending on this loop.
 *
 * A one-shot timer is no longer pending when its callback runs; the callback may schedule or free it. A
 * periodic one is pending again by then, rearmed from the time of the round in which it fired: late rounds
 * shift its phase, and it does not catch up (quirk 22). Do not schedule a periodic timer of 0 ms: it stays
 * due, and the round never ends. Timers that are due in the same millisecond fire in any order.
 *
 * Expiry times are compared by the signed 32-bit difference of their milliseconds, which wraps around (quirk
 * 23). A timer of 2^31 ms (24.8 days) or more fires at once, and a periodic one stays due (quirk 24). Just
 * below that, lateness matters: a timer of 2^31 - 1 ms counts as earlier than one that is a millisecond late,
 * which then waits for it. Up to 2^30 ms (12.4 days) is safe. For a longer time, keep the end as a 64-bit
 * `norv_time_get_ms` and let the callback schedule the rest, up to 2^30 ms at a time; or use a timer
 * descriptor, whose alarm is an absolute 64-bit time.
 *
 * @param loop    open
 * @param timer   filled with zeros before it is first scheduled, its callback set by the caller; not pending
 *                on another loop: cancel it there first
 * @param ms      milliseconds from this call on, and the period; up to 2^30 (0x40000000). NORV_EPOLL_NEVER
 *                cancels the timer (quirk 25)
 * @param repeat  true: periodic
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_timer_schedule(norv_epoll_t* loop, norv_epoll_timer_t* timer, uint32_t ms,
                                            bool repeat);

/**
 * Schedules a timer like `norv_epoll_timer_schedule`, in microseconds that are truncated to milliseconds.
 *
 * Less than 1000 is a timer of 0 ms. Only the low 32 bits of the milliseconds are used.
 *
 * @param loop          open
 * @param timer         as for `norv_epoll_timer_schedule`
 * @param microseconds  from this call on, and the period; up to 2^30 ms
 * @param repeat        true: periodic
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_timer_schedule_us(norv_epoll_t* loop, norv_epoll_timer_t* timer,
                                               uint64_t microseconds, bool repeat);

/**
 * Cancels a timer, which need not be pending.
 *
 * @param loop   the loop that it is pending on, if any
 * @param timer  zero-filled or scheduled before; its loop is null afterwards
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_timer_cancel(norv_epoll_t* loop, norv_epoll_timer_t* timer);

/**
 * Returns whether a timer is pending: a snapshot, taken on the calling thread.
 *
 * @param timer  zero-filled or scheduled before; may be null
 * @return non-zero if it is pending; 0 for null
 */
NORV_API uint8_t norv_epoll_timer_pending(const norv_epoll_timer_t* timer);

/* ---- Delayed calls ----------------------------------------------------------------------------------- */

/**
 * Schedules a call for the end of the current round.
 *
 * A call that is already pending keeps its place and its priority (quirk 26), and the loop that it is pending
 * on (quirk 28).
 *
 * Calls run by priority, smaller first, and those of equal priority in the order of scheduling. Priorities
 * are compared by their wrapping difference: keep them within 2^31 of each other (quirk 23). A call that is
 * scheduled by a delayed call runs in the same round. A call is no longer pending when its callback runs; the
 * callback may schedule it again, for the same round, or free it.
 *
 * A call that is scheduled while no loop runs waits for the first event or timer of the next run (quirk 29).
 * Arrivals are numbered from 0 in each round: of calls of equal priority, one left over from an earlier round
 * may run after one of this round (quirk 27).
 *
 * @param loop      open
 * @param delayed   filled with zeros before it is first scheduled, its callback set by the caller
 * @param priority  smaller runs first
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_delayed_schedule(norv_epoll_t* loop, norv_epoll_delayed_t* delayed,
                                              uint32_t priority);

/**
 * Cancels a delayed call, which need not be pending.
 *
 * @param loop     the loop that it is pending on, if any
 * @param delayed  zero-filled or scheduled before; its loop is null afterwards
 * @return the status of `norv_epoll_call_sync`
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API uint32_t norv_epoll_delayed_cancel(norv_epoll_t* loop, norv_epoll_delayed_t* delayed);

/**
 * Returns whether a delayed call is pending: a snapshot, taken on the calling thread.
 *
 * @param delayed  zero-filled or scheduled before; may be null
 * @return non-zero if it is pending; 0 for null
 */
NORV_API uint8_t norv_epoll_delayed_pending(const norv_epoll_delayed_t* delayed);

/* ---- Event descriptors ------------------------------------------------------------------------------- */

/**
 * Creates an event that other threads raise without waiting for the loop thread: eventfd(2) with
 * `EFD_NONBLOCK | EFD_CLOEXEC`, registered for EPOLLIN.
 *
 * However often it is activated before the loop handles it, its callback runs once.
 *
 * @param loop   open
 * @param event  its callback is set by the caller; destroyed again after a failure
 * @retval errno  of eventfd(2) or epoll_ctl(2)
 */
NORV_API uint32_t norv_epoll_event_fd_create(norv_epoll_t* loop, norv_epoll_event_fd_t* event);

/**
 * Destroys an event: `norv_epoll_fd_remove`, then close(2). Afterwards its callback is not called again, and
 * the record may be freed.
 *
 * Its descriptor becomes 0, not -1 (quirk 30). No other thread may activate the event meanwhile.
 *
 * @param loop   the loop of create; if null, or closed since, the descriptor is closed nevertheless
 * @param event  created; may be null
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API void norv_epoll_event_fd_destroy(norv_epoll_t* loop, norv_epoll_event_fd_t* event);

/**
 * Raises an event: eventfd_write(3) of 1. Signal handlers may call it, too.
 *
 * @param event  created
 * @retval EBADF              the event was not created, or is destroyed
 * @retval NORV_STATUS_AGAIN  2^64 - 2 activations are pending
 * @retval errno              of eventfd_write(3)
 */
NORV_API uint32_t norv_epoll_event_fd_activate(norv_epoll_event_fd_t* event);

/**
 * Withdraws the activations for which the callback has not run yet: reads the eventfd until a read fails.
 *
 * On a thread other than the loop thread, the callback may be running already.
 *
 * @param event  created
 * @return 0
 */
NORV_API uint32_t norv_epoll_event_fd_deactivate(norv_epoll_event_fd_t* event);

/* ---- Timer descriptors ------------------------------------------------------------------------------- */

/**
 * Creates an interval timer whose expiries call back on the loop thread: `norv_linux_timer_open`, registered
 * for EPOLLIN. Arm it with `norv_linux_timer_set_alarm_time(&timer->timer, ...)`.
 *
 * However often it expires before the loop handles it, its callback runs once; it runs even if the expiry was
 * cleared elsewhere (quirk 31).
 *
 * @param loop   open
 * @param timer  its callback is set by the caller; destroyed again after a failure
 * @retval errno  of timerfd_create(2) or epoll_ctl(2)
 */
NORV_API uint32_t norv_epoll_timer_fd_create(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer);

/**
 * Destroys a timer descriptor: `norv_epoll_fd_remove` if both the loop and the timer are open, then
 * `norv_linux_timer_close`. Afterwards its callback is not called again, and the record may be freed.
 *
 * @param loop   the loop of create; if null, or closed since, the timer is closed nevertheless
 * @param timer  created; may be null
 *
 * Blocks as `norv_epoll_call_sync` does.
 */
NORV_API void norv_epoll_timer_fd_destroy(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer);

NORV_END_DECLS

#endif
