/**
 * @file norv_epoll.h
 * The event loop: descriptors, timers, delayed calls, and event and timer descriptors, served one at a time
 * on one thread.
 *
 * The thread that calls `norv_epoll_loop_with_watchdog` is the loop thread until `norv_epoll_exit`; every
 * handler and callback runs there. Any other thread may use every function below except open, run and close:
 * what touches the loop's own state is passed to the loop thread (`norv_epoll_call_sync`) and runs there
 * between two handlers, while the caller waits for its status. A handler must therefore never wait for a
 * thread that may be in such a call. While no loop runs, the same calls run directly on the calling thread,
 * and one thread at a time may then use the loop.
 *
 * A loop that other threads use is ended in this order: they are joined while it still runs, one thread calls
 * `norv_epoll_exit`, once, the loop's thread is joined, and only then is the rest cancelled, removed and
 * closed. In any other order a call may wait forever; see `norv_epoll_exit`.
 *
 * All records are the caller's and are linked in place: the loop allocates nothing. A record stays where it
 * is, and alive, from its add or schedule to its remove or cancel. A round of the loop runs the timers that
 * are due, then the handlers of ready descriptors, then all delayed calls.
 *
 * Descriptor 0 counts as not open. In a process without standard input an event or a timer descriptor may get
 * it: it calls back all the same, but destroying it neither removes nor closes it. Keep descriptor 0 taken
 * (open /dev/null), or end such a record with `norv_epoll_fd_remove` and close(2).
 *
 *     static norv_epoll_t loop;                      // zero-filled before open
 *     norv_epoll_fd_t line = {.descriptor = norv_linux_gpio_get_fd(&gpio), .handler = on_edge};
 *     norv_epoll_open(&loop);
 *     norv_epoll_fd_add(&loop, &line, EPOLLPRI);
 *     norv_epoll_loop_with_watchdog(&loop, NULL, 0); // until norv_epoll_exit(&loop)
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

/** A function that `norv_epoll_call_sync` runs on the loop thread; what it returns goes to the caller. */
typedef uint32_t (*norv_epoll_call_fn)(norv_epoll_t* loop, uint64_t argument1, uint64_t argument2);

/** Handles a ready descriptor on the loop thread; `events` is the mask that epoll_wait(2) reported. */
typedef void (*norv_epoll_fd_handler)(norv_epoll_fd_t* record, uint32_t events);

/** Runs on the loop thread when a timer is due. */
typedef void (*norv_epoll_timer_callback)(norv_epoll_timer_t* timer);

/** Runs on the loop thread at the end of the round. */
typedef void (*norv_epoll_delayed_callback)(norv_epoll_delayed_t* delayed);

/** Runs on the loop thread, once, when an event was activated, however often. */
typedef void (*norv_epoll_event_fd_callback)(norv_epoll_event_fd_t* event);

/** Runs on the loop thread, once, when an interval timer expired, however often. */
typedef void (*norv_epoll_timer_fd_callback)(norv_epoll_timer_fd_t* timer);

/** The events that one round can take from the kernel. */
#define NORV_EPOLL_MAX_EVENTS 256

/** `norv_epoll_timer_schedule` with this time takes the timer off the loop instead. */
#define NORV_EPOLL_NEVER 0xFFFFFFFFu

/** The loop. Zero-fill it before `norv_epoll_open`; the fields are the loop's own, to be read at most. */
struct norv_epoll {
    uint64_t reserved;        /**< not used */
    int32_t epoll_descriptor; /**< 0 or below: not open */
    uint8_t exit;             /**< set by `norv_epoll_exit`, cleared when the loop starts */
    struct epoll_event ready[NORV_EPOLL_MAX_EVENTS]; /**< what the last epoll_wait fetched */
    int32_t ready_count;                             /**< what the last epoll_wait returned */
    int32_t dispatch_index;                          /**< the ready event that is being dispatched */
    norv_heap_t timers;                              /**< the timers that are pending */
    uint32_t delayed_sequence;        /**< arrival number of the next delayed call of this round */
    norv_heap_t delayed;              /**< the delayed calls that are scheduled */
    uint64_t loop_thread;             /**< identifier of the thread that runs the loop, 0 when none does */
    norv_mutex_t call_mutex;          /**< one call of another thread at a time */
    int32_t call_descriptor;          /**< the eventfd that brings a call to the loop thread */
    norv_epoll_call_fn call_function; /**< the call under way */
    uint64_t call_argument1;          /**< its first argument */
    uint64_t call_argument2;          /**< its second argument */
    uint32_t call_result;             /**< what it returned */
    norv_event_t call_done;           /**< set once it has run */
};

/** The registration of one descriptor; usually the first member of the owner's record. */
struct norv_epoll_fd {
    norv_epoll_t* loop;            /**< set by `norv_epoll_fd_add`, cleared by `norv_epoll_fd_remove` */
    int32_t descriptor;            /**< set by the caller before the add */
    norv_epoll_fd_handler handler; /**< set by the caller before the add */
};

/** A timer of the loop; usually the first member of the owner's record. Zero-filled: not scheduled. */
struct norv_epoll_timer {
    norv_epoll_t* loop;                 /**< set when scheduled, cleared when cancelled */
    norv_epoll_timer_callback callback; /**< set by the caller before it is scheduled */
    const char* name;                   /**< a label for the owner's use */
    uint64_t expiry;                    /**< absolute, ms of `norv_time_get_ms` */
    uint32_t period;                    /**< ms */
    uint8_t repeat;                     /**< non-zero: periodic */
    norv_heap_node_t node;              /**< private: its place among the loop's timers */
};

/** A delayed call; usually the first member of the owner's record. Zero-filled: not scheduled. */
struct norv_epoll_delayed {
    norv_epoll_t* loop;                   /**< set when scheduled, cleared when cancelled */
    norv_epoll_delayed_callback callback; /**< set by the caller before it is scheduled */
    uint64_t user;                        /**< free for the owner */
    uint32_t sequence;                    /**< arrival number in the round */
    uint32_t priority;                    /**< smaller runs first */
    norv_heap_node_t node;                /**< private: its place among the loop's delayed calls */
};

/** An event that any thread may raise; usually the first member of the owner's record. Zero-filled: none. */
struct norv_epoll_event_fd {
    norv_epoll_fd_t registration;          /**< private; its descriptor is an eventfd, 0 after destroy */
    uint64_t reserved;                     /**< not used */
    norv_epoll_event_fd_callback callback; /**< set by the caller before create; may free the record */
};

/** An interval timer of the loop; usually the first member of the owner's record. Zero-filled: none. */
struct norv_epoll_timer_fd {
    norv_epoll_fd_t registration;          /**< private; its descriptor is the timer's */
    uint64_t reserved;                     /**< not used */
    norv_epoll_timer_fd_callback callback; /**< set by the caller before create; may free the record */
    norv_linux_timer_t timer;              /**< to be armed with `norv_linux_timer_set_alarm_time` */
};

/* ---- The loop ---------------------------------------------------------------------------------------- */

/**
 * Opens a loop: an epoll instance, and the eventfd that brings calls of other threads to it.
 *
 * A program that this process executes does not inherit the eventfd, but does, on purpose, inherit the epoll
 * instance (epoll_create(2) sets no close-on-exec flag).
 *
 * @param loop  zero-filled by the caller (open does not do it), who keeps it until it is closed; not null;
 *              closed again after a failure
 * @return 0; NORV_STATUS_INVALID_ARG when `loop` is null; the errno status of epoll_create(2), eventfd(2)
 *         or epoll_ctl(2); the status of `norv_mutex_init` or `norv_event_init`
 *
 * Does not block. One thread.
 */
NORV_API uint32_t norv_epoll_open(norv_epoll_t* loop);

/**
 * Closes a loop that is not running; it does not stop one that is. Registered records, timers and delayed
 * calls are left as they are. Only descriptors above 0 are closed; they are -1 afterwards.
 *
 * @param loop  open, or left by a failed open; not null
 * @return the result of the last step taken, of no use, ignore it: what the last close(2) returned (0, or -1
 *         as 0xFFFFFFFF, unmapped), or the status of `norv_mutex_destroy` when no descriptor was open;
 *         NORV_STATUS_INVALID_ARG when `loop` is null
 *
 * Does not block. One thread, when no other one uses the loop any more.
 */
NORV_API uint32_t norv_epoll_close(norv_epoll_t* loop);

/**
 * Runs the loop on the calling thread until `norv_epoll_exit`.
 *
 * Each round sleeps in epoll_wait(2) until a descriptor is ready or the first timer is due, and takes 256
 * events at most. A failing epoll_wait(2) is not reported: the round goes on with timers and delayed calls.
 * What is still scheduled when the loop ends stays scheduled for the next run, and a descriptor that is still
 * ready is reported again; but an edge (EPOLLET) that the last round fetched and did not deliver is lost.
 *
 * @param loop      open, not running; null: returns at once
 * @param watchdog  kept alive with `norv_thread_keep_alive`; the owner keeps it until the loop has returned;
 *                  may be null
 * @param period    milliseconds between two reports to the watchdog, the first of which comes after one
 *                  period; 0 or NORV_EPOLL_NEVER: none. Up to 2^30, as for `norv_epoll_timer_schedule`: with
 *                  2^31 or more the loop reports endlessly and does nothing else
 *
 * Blocks until the loop was told to exit. One thread at a time.
 */
NORV_API void norv_epoll_loop_with_watchdog(norv_epoll_t* loop, void* watchdog, uint32_t period);

/**
 * Ends the loop: once the handler or callback that is running returns, nothing more of this round runs, and
 * the loop returns to its caller. While no loop runs this does nothing: starting clears the request, so wait
 * with `norv_epoll_wait_loop_started` before ending a loop that another thread is about to run.
 *
 * This returns before the loop has returned: join the loop's thread before closing or freeing the loop. Until
 * then no other thread may make a call that waits for the loop thread, not even a second exit: a call that is
 * posted as the loop leaves waits until the loop runs again, which may be never. So join the threads that use
 * the loop first. Calls that do not wait are `norv_epoll_fd_add` and `_modify`, the creation of events and
 * timer descriptors, activating and deactivating an event, and the pending queries. Where several threads, or
 * a signal handler, may end the loop, let them activate an event whose callback calls this function.
 *
 * @param loop  open; not null
 * @return 0, or a status of `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread took the request. Any thread.
 */
NORV_API uint32_t norv_epoll_exit(norv_epoll_t* loop);

/**
 * Waits until a loop runs, by having it run a call that does nothing.
 *
 * @param loop  open; it need not run yet; not null
 * @return 0, or a status of `norv_epoll_call_sync`
 *
 * Blocks without limit. Any thread except the loop thread, which would wait for itself forever.
 */
NORV_API uint32_t norv_epoll_wait_loop_started(norv_epoll_t* loop);

/**
 * Runs a function on the loop thread and returns its status.
 *
 * On the loop thread itself, or while no loop runs, the function runs at once on the calling thread, without
 * any lock. From another thread it goes through the loop's eventfd and runs between two handlers; one such
 * call is in flight at a time, and the others wait their turn. A call that reaches the loop just as it stops
 * runs, and its caller goes on, when a loop runs on this record again.
 *
 * @param loop       open; not null
 * @param function   not null
 * @param argument1  passed on
 * @param argument2  passed on
 * @return what `function` returned; NORV_STATUS_INVALID_ARG when `loop` or `function` is null; the status of
 *         `norv_mutex_lock` when the lock failed; NORV_STATUS_WAKE_FAILED, on purpose no mapped status, when
 *         the write to the eventfd failed; `function` has not run after any of these
 *
 * Blocks, on another thread, until the function has run. Any thread.
 */
NORV_API uint32_t norv_epoll_call_sync(norv_epoll_t* loop, norv_epoll_call_fn function, uint64_t argument1,
                                       uint64_t argument2);

/* ---- Descriptors ------------------------------------------------------------------------------------- */

/**
 * Registers a descriptor: epoll_ctl(2) with EPOLL_CTL_ADD, on the calling thread.
 *
 * @param loop    open; not null
 * @param record  its descriptor and handler are set by the caller, who leaves it where it is until it is
 *                removed; not null; its loop is set, also after a failure
 * @param events  EPOLLIN, EPOLLOUT, EPOLLPRI, EPOLLET, ... combined
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of epoll_ctl(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_epoll_fd_add(norv_epoll_t* loop, norv_epoll_fd_t* record, uint32_t events);

/**
 * Changes the events of a registered descriptor: epoll_ctl(2) with EPOLL_CTL_MOD, on the calling thread. An
 * event that the current round has fetched already is still delivered.
 *
 * @param loop    the one that the record was added to; not null
 * @param record  added; not null; unchanged
 * @param events  EPOLLIN, EPOLLOUT, EPOLLPRI, EPOLLET, ... combined
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of epoll_ctl(2)
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_epoll_fd_modify(norv_epoll_t* loop, norv_epoll_fd_t* record, uint32_t events);

/**
 * Drops the event of this descriptor that the current round has fetched but not yet delivered; the
 * registration stays. Events are matched, on purpose, by the descriptor's number, not by the record: of two
 * records that share a number (one was closed without being removed, and the number was given out again) the
 * first pending one loses its event. At most one event is dropped.
 *
 * @param loop    the one that the record was added to; not null
 * @param record  only its descriptor counts; not null
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; a status of `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread has done it. Any thread.
 */
NORV_API uint32_t norv_epoll_fd_ignore_once(norv_epoll_t* loop, norv_epoll_fd_t* record);

/**
 * Ends a registration: epoll_ctl(2) with EPOLL_CTL_DEL on the calling thread, then drops a pending event like
 * `norv_epoll_fd_ignore_once`. Once it has returned 0 the handler is not called any more and the record may
 * be freed, from inside a handler (its own, too) as from any other thread.
 *
 * Remove first and close the descriptor afterwards: the other way round the removal fails. After a failure an
 * event that was fetched already is still delivered: call `norv_epoll_fd_ignore_once` as well before freeing
 * the record. A copy of the descriptor (dup(2), fork(2)) keeps alive a registration that was not removed; the
 * record must then stay.
 *
 * @param loop    the one that the record was added to; not null
 * @param record  added; not null; its loop is null afterwards, also after a failure
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of epoll_ctl(2); a status of
 *         `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread has dropped the event. Any thread.
 */
NORV_API uint32_t norv_epoll_fd_remove(norv_epoll_t* loop, norv_epoll_fd_t* record);

/* ---- Timers ------------------------------------------------------------------------------------------ */

/**
 * Schedules a timer, or moves one that is pending on this loop.
 *
 * A one-shot timer is no longer pending when its callback runs, which may schedule or free it. A periodic one
 * is pending again by then, armed, on purpose, from the time of the round in which it fired: a late round
 * shifts its phase, it does not catch up. Do not schedule a periodic timer of 0 ms: it stays due, and the
 * round never ends. Timers that are due at the same millisecond fire in any order.
 *
 * Expiries are compared, on purpose, as signed 32-bit milliseconds that wrap around. A timer of 2^31 ms (24.8
 * days) or more fires at once, and a periodic one stays due. Just below that limit lateness counts: a timer
 * of 2^31 - 1 ms is taken for earlier than one that is a millisecond late, which then waits for it. Up to
 * 2^30 ms (0x40000000, 12.4 days) is safe. For a longer time keep the end in 64 bits of `norv_time_get_ms`
 * and let the callback schedule what is left, 2^30 ms at most each time; or use a timer descriptor, whose
 * alarm is an absolute time of 64 bits.
 *
 * @param loop    open; not null
 * @param timer   zero-filled before it is first scheduled, and not pending on another loop: cancel it there
 *                first. Its callback is set by the caller, who leaves it where it is while it is pending; not
 *                null
 * @param ms      milliseconds from this call on, and the period; up to 2^30; NORV_EPOLL_NEVER: the timer is
 *                taken off instead, and its loop is null
 * @param repeat  true: periodic
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; a status of `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread has done it. Any thread.
 */
NORV_API uint32_t norv_epoll_timer_schedule(norv_epoll_t* loop, norv_epoll_timer_t* timer, uint32_t ms,
                                            bool repeat);

/**
 * `norv_epoll_timer_schedule` in microseconds, truncated to whole milliseconds: less than 1000 is a timer of
 * 0 ms. Only the low 32 bits of the milliseconds are used; the same limits hold.
 *
 * @param loop          open; not null
 * @param timer         as for `norv_epoll_timer_schedule`
 * @param microseconds  from this call on, and the period
 * @param repeat        true: periodic
 * @return as `norv_epoll_timer_schedule`
 *
 * Blocks, on another thread, until the loop thread has done it. Any thread.
 */
NORV_API uint32_t norv_epoll_timer_schedule_us(norv_epoll_t* loop, norv_epoll_timer_t* timer,
                                               uint64_t microseconds, bool repeat);

/**
 * Takes a timer off the loop; harmless when it is not pending.
 *
 * @param loop   the one that it is pending on, if it is; not null
 * @param timer  zero-filled or scheduled before; not null; its loop is null afterwards
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; a status of `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread has done it. Any thread.
 */
NORV_API uint32_t norv_epoll_timer_cancel(norv_epoll_t* loop, norv_epoll_timer_t* timer);

/**
 * Tells whether a timer is pending: a snapshot, taken without the loop thread.
 *
 * @param timer  zero-filled or scheduled before; may be null
 * @return non-zero while it is pending; 0 for null
 *
 * Does not block. Any thread.
 */
NORV_API uint8_t norv_epoll_timer_pending(const norv_epoll_timer_t* timer);

/* ---- Delayed calls ----------------------------------------------------------------------------------- */

/**
 * Schedules a call for the end of the current round; a call that is scheduled already keeps its place and
 * its priority.
 *
 * Calls run by priority, smaller first, equal ones in the order of scheduling; one that is scheduled from
 * such a call runs in the same round. A call is no longer pending when its callback runs, which may schedule
 * it again, for the same round, or free it. Priorities are, on purpose, compared by their wrapping
 * difference: they lie within 2^31 of each other.
 *
 * A call that is scheduled while no loop runs waits for the first event or timer of the next run. Arrivals
 * are counted anew in every round: among calls of equal priority one that was left over from before the round
 * may run after one of the round.
 *
 * @param loop      open; not null
 * @param delayed   zero-filled before it is first scheduled; one that is pending on another loop stays there.
 *                  Its callback is set by the caller, who leaves it where it is while it is pending; not null
 * @param priority  smaller runs first
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; a status of `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread has queued it. Any thread.
 */
NORV_API uint32_t norv_epoll_delayed_schedule(norv_epoll_t* loop, norv_epoll_delayed_t* delayed,
                                              uint32_t priority);

/**
 * Takes a delayed call off the loop; harmless when it is not scheduled.
 *
 * @param loop     the one that it is pending on, if it is; not null
 * @param delayed  zero-filled or scheduled before; not null; its loop is null afterwards
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; a status of `norv_epoll_call_sync`
 *
 * Blocks, on another thread, until the loop thread has done it. Any thread.
 */
NORV_API uint32_t norv_epoll_delayed_cancel(norv_epoll_t* loop, norv_epoll_delayed_t* delayed);

/**
 * Tells whether a delayed call is scheduled: a snapshot, taken without the loop thread.
 *
 * @param delayed  zero-filled or scheduled before; may be null
 * @return non-zero while it is scheduled; 0 for null
 *
 * Does not block. Any thread.
 */
NORV_API uint8_t norv_epoll_delayed_pending(const norv_epoll_delayed_t* delayed);

/* ---- Event descriptors ------------------------------------------------------------------------------- */

/**
 * Creates an event that other threads raise without waiting for the loop thread: eventfd(2) with
 * `EFD_NONBLOCK | EFD_CLOEXEC`, registered for EPOLLIN.
 *
 * However often it is activated before the loop comes to it, its callback runs once.
 *
 * @param loop   open; not null
 * @param event  its callback is set by the caller; not null; destroyed again after a failure
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; the errno status of eventfd(2); a status of
 *         `norv_epoll_fd_add`
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_epoll_event_fd_create(norv_epoll_t* loop, norv_epoll_event_fd_t* event);

/**
 * Destroys an event: `norv_epoll_fd_remove`, then close(2). Once it returns, the callback is not called any
 * more and the record may be freed.
 *
 * @param loop   the loop of create; null, or closed since: the descriptor is closed all the same
 * @param event  may be null; its descriptor is 0 afterwards, on purpose not -1; with a descriptor of 0 or
 *               below, after a destroy or a failed create, nothing is done
 *
 * Blocks, on another thread, until the loop thread has dropped the event. Any thread; no other thread may
 * activate the event meanwhile.
 */
NORV_API void norv_epoll_event_fd_destroy(norv_epoll_t* loop, norv_epoll_event_fd_t* event);

/**
 * Raises the event: eventfd_write(3) of 1.
 *
 * @param event  created; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `event` is null; the errno status of eventfd_write(3), for instance
 *         EBADF when the event is not created, or destroyed again
 *
 * Does not block. Any thread, and a signal handler: it does not go through the loop thread.
 */
NORV_API uint32_t norv_epoll_event_fd_activate(norv_epoll_event_fd_t* event);

/**
 * Takes back what was raised and not called back yet: reads the eventfd until that fails.
 *
 * @param event  created; not null
 * @return 0; NORV_STATUS_INVALID_ARG when `event` is null
 *
 * Does not block. Any thread; from another one than the loop thread the callback may already be under way.
 */
NORV_API uint32_t norv_epoll_event_fd_deactivate(norv_epoll_event_fd_t* event);

/* ---- Timer descriptors ------------------------------------------------------------------------------- */

/**
 * Creates an interval timer whose expiries call back on the loop thread: `norv_linux_timer_open`, registered
 * for EPOLLIN. Arm it with `norv_linux_timer_set_alarm_time(&timer->timer, ...)`.
 *
 * However often it expires before the loop comes to it, its callback runs once.
 *
 * @param loop   open; not null
 * @param timer  its callback is set by the caller; not null; destroyed again after a failure
 * @return 0; NORV_STATUS_INVALID_ARG when a pointer is null; a status of `norv_linux_timer_open` or
 *         `norv_epoll_fd_add`
 *
 * Does not block. Any thread.
 */
NORV_API uint32_t norv_epoll_timer_fd_create(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer);

/**
 * Destroys a timer descriptor: `norv_epoll_fd_remove` when both the loop and the timer are open, then
 * `norv_linux_timer_close`. Once it returns, the callback is not called any more and the record may be freed.
 *
 * @param loop   the loop of create; null, or closed since: the timer is closed all the same
 * @param timer  may be null; closed afterwards, so that a second destroy does nothing
 *
 * Blocks, on another thread, until the loop thread has dropped the event. Any thread.
 */
NORV_API void norv_epoll_timer_fd_destroy(norv_epoll_t* loop, norv_epoll_timer_fd_t* timer);

NORV_END_DECLS

#endif
